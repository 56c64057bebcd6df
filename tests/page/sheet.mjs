// Ten thousand frames: only what is seen exists, and only that is asked for.
import assert from "node:assert/strict";
import { test } from "node:test";
import { until, untilCell } from "./browser.mjs";

const frames = 10_000;

export function testSheet(world) {
  test("TenThousandFramesScrollWithFewElementsAndFewRequests", async (t) => {
    const scene = world.farm.scene("long.json", { seed: 1, small: true, fail: { 8000: "the disk was full" } });
    world.jobs.long = await world.farm.render(scene, "--range", `1-${frames}`, "--packet", "1000", "--out", "long", "--set", "Retries=0");
    const page = await world.user.open("#/jobs");
    let pictures = 0;
    page.on("request", (request) => {
      pictures += request.url().includes("/picture") ? 1 : 0;
    });
    await page.evaluate((to) => void (location.hash = to), `#/job/${world.jobs.long}?zoom=2`);
    await untilCell(page, 1, "good");
    const flown = await page.evaluate(async () => {
      const times = [];
      let most = 0;
      const end = document.documentElement.scrollHeight;
      let last = performance.now();
      for (let step = 0; step <= 150; ++step) {
        scrollTo(0, (end * step) / 150);
        await new Promise((resolve) => requestAnimationFrame(resolve));
        times.push(performance.now() - last);
        last = performance.now();
        most = Math.max(most, document.getElementsByTagName("*").length);
      }
      times.sort((a, b) => a - b);
      return { most, median: times[75], slowest: times.at(-1) };
    });
    t.diagnostic(`elements ${flown.most}, frame times: median ${flown.median.toFixed(1)} ms, slowest ${flown.slowest.toFixed(1)} ms`);
    await untilCell(page, frames, "good");
    assert.ok(flown.most < 3000, `${flown.most} elements`);
    // It flew over ten thousand pictures, and asked for those where it began and ended.
    await until(page, (frame) => document.querySelector(`.cell-link[href$="/frame/${frame}"] img`)?.naturalWidth > 0, frames);
    assert.ok(pictures < 400, `${pictures} pictures were asked for`);
    await page.close();
  });

  test("TheKeyboardGoesThroughAllFramesAndFindsTheOneThatFailed", async () => {
    const page = await world.user.open(`#/job/${world.jobs.long}?zoom=2`);
    await untilCell(page, 1, "good");
    await page.keyboard.press("n");
    await until(page, () => document.activeElement.getAttribute("href")?.endsWith("/frame/8000"));
    assert.match(await page.evaluate(() => document.activeElement.textContent), /Frame 8000, failed/);
    await page.keyboard.press("Control+End");
    await until(page, (frame) => document.activeElement.getAttribute("href")?.endsWith(`/frame/${frame}`), frames);
    await page.keyboard.press("Control+Home");
    await until(page, () => document.activeElement.getAttribute("href")?.endsWith("/frame/1"));
    await page.keyboard.press("ArrowDown");
    const columns = Number(await page.locator(".sheet").getAttribute("aria-colcount"));
    await until(page, (frame) => document.activeElement.getAttribute("href")?.endsWith(`/frame/${frame}`), 1 + columns);
    await page.getByLabel("Go to frame").fill("5000");
    await page.keyboard.press("Enter");
    await until(page, () => document.activeElement.getAttribute("href")?.endsWith("/frame/5000"));
    // What was focused stays so when it is scrolled out of sight and back.
    await page.evaluate(() => scrollTo(0, 0));
    await untilCell(page, 1, "good");
    await page.keyboard.press("ArrowRight");
    await until(page, () => document.activeElement.getAttribute("href")?.endsWith("/frame/5001"));
    assert.equal(await page.locator(".sheet").getAttribute("aria-rowcount"), String(Math.ceil(frames / columns)));
    await page.close();
  });

  test("OnlyChosenStatesAreShownAndTheSizeIsKeptInTheAddress", async () => {
    const page = await world.user.open(`#/job/${world.jobs.long}`);
    await untilCell(page, 1, "good");
    await page.locator('[data-choice="failed"]').click();
    await untilCell(page, 8000, "failed");
    assert.equal(await page.locator(".sheet .cell:visible").count(), 1);
    await until(page, () => location.hash.includes("show=failed"));
    await page.locator('[data-choice="failed"]').click();
    await untilCell(page, 1, "good");
    const size = () => page.evaluate(() => document.querySelector(".sheet .cell").getBoundingClientRect().width);
    const medium = await size();
    await page.keyboard.press("+");
    await until(page, () => location.hash.includes("zoom=3"));
    assert.ok((await size()) > medium);
    for (const zoom of [2, 1, 0]) {
      await page.keyboard.press("-");
      await until(page, (wanted) => location.hash.includes(`zoom=${wanted}`), zoom);
    }
    // Cells without pictures are drawn: all of them, with one element for the keyboard.
    assert.ok((await page.locator(".sheet .cell").count()) <= 1);
    const canvas = page.locator(".sheet-drawn");
    await canvas.hover({ position: { x: 5, y: 5 } });
    await until(page, () => document.querySelector(".sheet-tip").textContent.startsWith("Frame 1, good"));
    await canvas.click({ position: { x: 5, y: 5 } });
    await until(page, () => location.hash.endsWith("/frame/1"));
    await page.goBack();
    await until(page, () => document.querySelector(".sheet-drawn"));
    await page.close();
  });

  test("TheChartTellsTimesByFrameAndLeadsToTheSlowest", async () => {
    const page = await world.user.open(`#/job/${world.jobs.long}`);
    await page.locator(".chart").waitFor();
    assert.match(await page.locator(".chart").getAttribute("aria-label"), /^Time by frame\. [\d,]+ frames: median .*, slowest /);
    const slowest = page.locator(".chart-slowest a").first();
    const frame = (await slowest.textContent()).split(":")[0];
    await slowest.click();
    await until(page, (name) => location.hash.endsWith(`/frame/${name}`), frame);
    await page.close();
  });
}
