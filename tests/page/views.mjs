// What each view shows.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { cell, move, until, untilCell, untilLive, untilText } from "./browser.mjs";

export function testViews(world) {
  test("TheListShowsEachJobWithStateProgressAndAStripOfItsFrames", async () => {
    const page = await world.user.open("#/jobs");
    const row = page.locator(`.job:has(a[href="#/job/${world.jobs.shot}"])`);
    await row.waitFor();
    assert.equal(await row.locator(".job-title").textContent(), "shot.json");
    assert.equal(await row.locator(".job-state").textContent(), "✕failed");
    assert.equal(await row.locator(".job-progress").textContent(), "21 of 24 good · 3 failed");
    assert.match(await row.locator(".job-note").textContent(), /^Error line: fatal: /);
    assert.match(await row.locator(".strip").getAttribute("aria-label"), /^Frames: 3 failed, .*21 good$/);
    // The strip is drawn: it has the red of what failed, and the green of what is good.
    const colours = await until(page, (job) => {
      const strip = document.querySelector(`.job a[href="#/job/${job}"]`).closest(".job").querySelector("canvas");
      const data = strip.getContext("2d").getImageData(0, 0, strip.width, strip.height).data;
      const found = new Set();
      for (let i = 0; i < data.length; i += 4) {
        if (data[i + 3] === 255) {
          found.add(`${data[i]},${data[i + 1]},${data[i + 2]}`);
        }
      }
      return found.size > 1 ? [...found] : null;
    }, world.jobs.shot);
    const list = (await colours.jsonValue()).map((text) => text.split(",").map(Number));
    assert.ok(list.some(([r, g, b]) => r > 150 && g < 110 && b < 110), "red is there");
    assert.ok(list.some(([r, g, b]) => g > r && g > b), "green is there");
    await page.close();
  });

  test("FiltersLiveInTheAddress", async () => {
    const page = await world.user.open("#/jobs");
    await page.locator('[data-filter="failed"]').click();
    await until(page, () => location.hash.includes("state=failed"));
    await until(page, (good) => !document.querySelector(`.job a[href="#/job/${good}"]`), world.jobs.earlier);
    await page.getByLabel("Find jobs").fill("shot");
    await until(page, () => location.hash.includes("text=shot"));
    await page.locator(`.job a[href="#/job/${world.jobs.shot}"]`).waitFor();
    const address = await page.evaluate(() => location.hash);
    const other = await world.user.open(address);
    await other.locator(`.job a[href="#/job/${world.jobs.shot}"]`).waitFor();
    assert.equal(await other.locator(".job").count(), await page.locator(".job").count());
    assert.equal(await other.getByLabel("Find jobs").inputValue(), "shot");
    await other.getByLabel("Find jobs").fill("no such job");
    await untilText(other, ".jobs-note", "No job is like that");
    await other.getByRole("button", { name: "Show all jobs" }).click();
    await other.locator(`.job a[href="#/job/${world.jobs.earlier}"]`).waitFor();
    await other.getByLabel("Type", { exact: true }).selectOption("Paint");
    await until(other, () => location.hash.includes("type=Paint"));
    await page.close();
    await other.close();
  });

  test("AJobShowsItsFramesAsPicturesAndItsHolesAsWhatTheyAre", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}`);
    await untilCell(page, 7, "failed");
    await untilCell(page, 11, "missing");
    await untilCell(page, 15, "damaged");
    await untilCell(page, 1, "good");
    assert.match(await cell(page, 7).innerText(), /failed[\s\S]*7|7[\s\S]*failed/);
    assert.match(await cell(page, 11).innerText(), /missing/);
    await until(page, () => {
      const image = document.querySelector('.sheet .cell-link[href$="/frame/1"] img');
      return image?.complete && image.naturalWidth > 0 && !image.hidden;
    });
    // A picture no wider than is needed.
    assert.ok((await page.evaluate(() => document.querySelector('.cell-link[href$="/frame/1"] img').naturalWidth)) <= 320);
    assert.match(await page.locator(".job-how").textContent(), /^21 of 24 good · 3 failed/);
    await untilText(page, ".facts", "later");
    await page.close();
  });

  test("AFileThatWasCutShortSinceIsDamaged", async () => {
    const { farm, user } = world;
    const job = await farm.render(farm.scene("cut.json", { seed: 1 }), "--range", "1-3", "--out", "cut");
    fs.truncateSync(path.join(farm.scenes, "cut", "paint.00002.ppm"), 5000);
    const page = await user.open(`#/job/${job}`);
    await untilCell(page, 2, "damaged");
    await untilCell(page, 3, "good");
    assert.match(await cell(page, 2).getAttribute("title"), /^Truncated or damaged/);
    await move(page, `#/job/${job}/frame/2`);
    await untilText(page, ".viewer-hole", "Truncated or damaged");
    await move(page, `#/job/${job}/play?at=2`);
    await until(page, () => document.querySelector(".screen-here")?.getAttribute("aria-label")?.includes("damaged"));
    await page.close();
    await farm.trovik("delete", String(job));
  });

  test("FailuresAreGroupedByReasonAndLeadToTheFrame", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}`);
    await page.locator(".failure").first().waitFor();
    assert.equal(await page.locator(".failure").count(), 2);
    const first = page.locator(".failure", { hasText: "texture" });
    assert.match(await first.textContent(), /2 frames failed/);
    assert.match(await first.textContent(), /fatal: texture \d is broken/);
    await first.getByRole("link", { name: "Frame 8" }).click();
    await untilText(page, "h1", "Frame 8");
    assert.equal(await page.evaluate(() => location.hash), `#/job/${world.jobs.shot}/frame/8`);
    await page.close();
  });

  test("AFrameShowsWhyItFailedWithTheDecidingLineAndItsLog", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}/frame/7`);
    await untilText(page, ".viewer-hole", "texture 7 is broken");
    await untilText(page, ".log-deciding mark", "fatal: texture 7 is broken");
    await untilText(page, ".log-text", "giving up");
    await page.getByLabel("Find in the log").fill("textures");
    await untilText(page, ".log-panel [role=status]", "1 of 1");
    await page.getByLabel("Find in the log").fill("no such words");
    await untilText(page, ".log-panel [role=status]", "not found");
    await untilText(page, ".attempt", "Attempt 1");
    await page.getByText("Command", { exact: true }).click();
    await untilText(page, "details .deciding", "paint.mjs");
    await page.close();
  });

  test("AFrameShowsItsPictureWithZoomAndItsNeighbours", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}/frame/5`);
    await until(page, () => document.querySelector(".viewer-image")?.naturalWidth > 0);
    await untilText(page, ".facts", "paint.00005.ppm");
    await page.keyboard.press("+");
    await untilText(page, ".viewer-scale", "150 %");
    await page.keyboard.press("+");
    const before = await page.evaluate(() => document.querySelector(".viewer-image").style.transform);
    await page.keyboard.press("d");
    await until(page, (old) => document.querySelector(".viewer-image").style.transform !== old, before);
    await page.keyboard.press("0");
    await untilText(page, ".viewer-scale", "100 %");
    await page.getByRole("button", { name: /Larger/ }).click();
    await untilText(page, ".viewer-scale", "150 %");
    await page.keyboard.press("0");
    await page.keyboard.press("ArrowRight");
    await untilText(page, "h1", "Frame 6");
    await page.keyboard.press("ArrowLeft");
    await untilText(page, "h1", "Frame 5");
    await page.keyboard.press("n");
    await untilText(page, "h1", "Frame 7");
    await page.keyboard.press("Escape");
    await page.locator(".sheet").waitFor();
    const download = page.waitForEvent("download");
    await move(page, `#/job/${world.jobs.shot}/frame/5`);
    await page.getByRole("link", { name: "Save the file" }).click();
    const saved = await (await download).path();
    assert.deepEqual(fs.readFileSync(saved), fs.readFileSync(path.join(world.farm.scenes, "later", "paint.00005.ppm")));
    await page.close();
  });

  test("TheFilmPlaysStepsAndShowsHoles", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}/play`);
    await until(page, () => document.querySelector(".counter")?.textContent === "1");
    const counter = () => page.locator(".counter").textContent();
    const untilFrame = (frame) => until(page, (name) => document.querySelector(".counter").textContent === name, String(frame));
    for (let frame = 2; frame <= 7; ++frame) {
      await page.keyboard.press("ArrowRight");
    }
    await untilFrame(7);
    await until(page, () => document.querySelector(".screen-here").dataset.hole === "failed");
    assert.match(await page.locator(".screen-here").getAttribute("aria-label"), /Frame 7: failed/);
    await page.keyboard.press("i");
    for (let frame = 8; frame <= 11; ++frame) {
      await page.keyboard.press("ArrowRight");
    }
    await untilFrame(11);
    await until(page, () => document.querySelector(".screen-here").dataset.hole === "missing");
    await page.keyboard.press("o");
    await until(page, () => location.hash.includes("in=7") && location.hash.includes("out=11"));
    await page.keyboard.press("ArrowRight"); // round from out to in
    await untilFrame(7);
    await page.getByLabel("Frames a second").selectOption("60");
    await page.evaluate(() => {
      globalThis.shown = [];
      new MutationObserver(() => shown.push(document.querySelector(".counter").textContent)).observe(document.querySelector(".counter"), { childList: true, characterData: true, subtree: true });
    });
    await page.keyboard.press(" ");
    await until(page, () => shown.filter((frame) => frame === "7").length >= 2);
    await page.keyboard.press(" ");
    const shown = await page.evaluate(() => globalThis.shown);
    assert.deepEqual([...new Set(shown)].sort((a, b) => a - b), ["7", "8", "9", "10", "11"]);
    await page.keyboard.press("c");
    await page.keyboard.press("l");
    await page.keyboard.press("Home");
    await until(page, () => location.hash.includes("loop=no"));
    await page.keyboard.press(" ");
    await untilFrame(24); // to its end, and no further
    await untilText(page, '[data-name="play"]', "Play");
    assert.equal(await counter(), "24");
    await page.close();
  });

  test("AnEarlierVersionIsComparedByWipeSideAndDifference", async () => {
    const page = await world.user.open(`#/job/${world.jobs.shot}/play?at=5`);
    await page.getByLabel("Compare with").waitFor();
    await page.keyboard.press("v");
    await until(page, (job) => location.hash.includes(`with=${job}`), world.jobs.earlier);
    await until(page, () => document.querySelector(".stage").dataset.mode === "wipe");
    await until(page, () => document.querySelector(".screen-there").width === document.querySelector(".screen-here").width);
    const clip = () => page.evaluate(() => getComputedStyle(document.querySelector(".screen-there")).clipPath);
    assert.match(await clip(), /50%/);
    const box = await page.locator(".stage").boundingBox();
    await page.mouse.click(box.x + box.width * 0.25, box.y + box.height / 2);
    assert.match(await clip(), /2[45]%/);
    await page.keyboard.press("d");
    await until(page, () => getComputedStyle(document.querySelector(".screen-there")).mixBlendMode === "difference");
    // The pictures differ in red alone: the two seeds of the painter. They have their
    // size before they are drawn.
    const pixels = await until(page, () => {
      const drawn = [".screen-here", ".screen-there"].map((name) => [
        ...document.querySelector(name).getContext("2d").getImageData(2, 2, 1, 1).data,
      ]);
      return drawn.every((pixel) => pixel[3] === 255) ? drawn : null;
    });
    const [here, there] = await pixels.jsonValue();
    assert.ok(Math.abs(here[0] - there[0]) > 80, `red differs: ${here} and ${there}`);
    assert.ok(Math.abs(here[1] - there[1]) < 25, `green does not: ${here} and ${there}`);
    await page.keyboard.press("b");
    await until(page, () => document.querySelector(".stage").classList.contains("boosted"));
    await page.keyboard.press("s");
    await until(page, () => {
      const [a, b] = [".screen-here", ".screen-there"].map((name) => document.querySelector(name).getBoundingClientRect());
      return b.left >= a.right - 1;
    });
    await page.getByLabel("Compare with").selectOption("0");
    await until(page, () => document.querySelector(".stage").dataset.mode === "single");
    await page.close();
  });

  test("TheMachineShowsMemoryAndDisks", async () => {
    const page = await world.user.open("#/machine");
    await untilText(page, ".machine", "Memory");
    await untilText(page, ".machine", "No engine is at work");
    await untilText(page, ".machine code", "trovik engine");
    assert.ok((await page.getByRole("meter").count()) >= 2);
    await page.close();
  });

  test("KeysAreListedAndEveryViewIsReachedByThem", async () => {
    const page = await world.user.open("#/jobs");
    await page.locator(".job-link").first().waitFor();
    await page.keyboard.press("?");
    await untilText(page, "dialog", "Next job");
    await page.keyboard.press("?");
    await until(page, () => !document.querySelector("dialog"));
    await page.keyboard.press("2");
    await page.locator(".machine").waitFor();
    await page.keyboard.press("1");
    await page.locator(".job-link").first().waitFor();
    await page.keyboard.press("/");
    assert.equal(await page.evaluate(() => document.activeElement.type), "search");
    await page.keyboard.press("Escape");
    await page.keyboard.press("ArrowDown");
    await page.keyboard.press("Enter");
    await page.locator(".sheet").waitFor({ state: "attached" });
    await untilCellsOf(page);
    await page.keyboard.press("ArrowRight");
    await until(page, () => document.activeElement.matches(".cell-link"));
    await page.keyboard.press("Enter");
    await page.locator(".viewer").waitFor();
    await page.keyboard.press("p");
    await page.locator(".stage").waitFor({ state: "attached" });
    await page.keyboard.press("Escape");
    await untilCellsOf(page);
    await page.keyboard.press("Escape");
    await page.locator(".jobs").waitFor();
    await page.close();
  });

  test("LightAndDarkAreChosenAndKept", async () => {
    const page = await world.user.open("#/jobs");
    await untilLive(page);
    const paper = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    const light = await paper();
    await page.keyboard.press("t");
    assert.equal(await paper(), light);
    await page.keyboard.press("t");
    const dark = await paper();
    assert.notEqual(dark, light);
    await page.reload();
    assert.equal(await paper(), dark);
    await page.keyboard.press("t");
    assert.equal(await paper(), light);
    await page.close();
  });

  test("WhatIsNotThereIsSaidInTheServersWords", async () => {
    const page = await world.user.open("#/job/9999");
    await untilText(page, ".problem", "9999");
    await move(page, "#/nowhere");
    await untilText(page, "h1", "Nothing is here");
    await page.close();
  });
}

const untilCellsOf = (page) => until(page, () => document.querySelectorAll(".cell-link").length > 0);
