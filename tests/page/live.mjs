// What happens in the queue is seen at once, in every tab.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { until, untilCell, untilLive, untilText } from "./browser.mjs";

export function testLive(world) {
  test("FramesAppearWhileTheyAreRenderedInTwoTabs", async () => {
    const { farm, user } = world;
    const gates = path.join(farm.root, "gates");
    fs.mkdirSync(gates);
    const open = (frame) => fs.writeFileSync(path.join(gates, String(frame)), "");
    const scene = farm.scene("live.json", { seed: 3, gates, fail: { 8: "the sky fell" } });
    const list = await user.open("#/jobs");
    await untilLive(list);
    const job = await farm.submit(scene, "--range", "1-8", "--out", "live", "--packet", "4", "--set", "Retries=0");
    const row = `.job a[href="#/job/${job}"]`;
    await list.locator(row).waitFor(); // nobody asked for it
    const page = await user.open(`#/job/${job}`);
    await untilCell(page, 1, "waiting");
    const engine = farm.start("engine", "--slots", "1");
    await untilCell(page, 1, "running");
    await untilText(page, ".job-head .state", "running");
    await until(list, (link) => document.querySelector(link).closest(".job").dataset.state === "running", row);
    const machine = await user.open("#/machine");
    await untilText(machine, ".slot", "live.json");

    // Inside the packet: what is written is seen, what is not yet is not.
    open(1);
    await until(page, () => document.querySelector('.cell-link[href$="/frame/1"]')?.closest(".cell").dataset.letter === "R");
    await untilCell(page, 2, "running");
    await untilText(page, ".works", "1 of 4 written");
    await until(page, () => document.querySelector('.cell-link[href$="/frame/1"] img')?.naturalWidth > 0);
    assert.equal(await page.evaluate(() => document.querySelector('.cell-link[href$="/frame/2"]').closest(".cell").dataset.letter), "r");

    // Its log grows before the eyes.
    const frame = await user.open(`#/job/${job}/frame/2`);
    await untilText(frame, ".log-text", "waiting for frame 2");
    open(2);
    await untilText(frame, ".log-text", "waiting for frame 3");
    await frame.close();

    open(3);
    open(4);
    await untilCell(page, 4, "good");
    await until(page, () => document.querySelector('.cell-link[href$="/frame/4"] img')?.naturalWidth > 0);
    const film = await user.open(`#/job/${job}/play?at=5`);
    await until(film, () => ["running", "waiting"].includes(document.querySelector(".screen-here")?.dataset.hole));
    open(5);
    await until(film, () => document.querySelector(".screen-here").dataset.hole === undefined);
    await film.close();
    for (const frame of [6, 7, 8]) {
      open(frame);
    }
    await untilCell(page, 8, "failed");
    await untilText(page, ".failure", "the sky fell");
    await untilCell(page, 7, "good");
    await untilText(page, ".job-head .state", "failed");
    await until(list, (link) => document.querySelector(link).closest(".job").dataset.state === "failed", row);
    await untilText(list, ".job-progress", "7 of 8 good · 1 failed");
    await farm.stop(engine);
    await untilText(machine, ".machine", "No engine is at work");

    // One tab listens for all; another takes over when it goes.
    await list.close();
    await farm.trovik("delete", String(world.jobs.earlier));
    const other = await user.open("#/jobs");
    await other.locator(row).waitFor();
    await page.close();
    await machine.close();
    await farm.trovik("delete", String(job));
    await until(other, (link) => !document.querySelector(link), row);
    await other.close();
  });
}
