// Names and logs are text, whatever they hold, and slow nothing down.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { hostileWords } from "./farm.mjs";
import { until, untilCell, untilText } from "./browser.mjs";

const name = `<img src=x onerror=alert(1)> "quoted" 'single' & \u001b[31mred \u202etxt.exe`;
const shownName = `<img src=x onerror=alert(1)> "quoted" 'single' & \\x1b[31mred \\u202etxt.exe`;

export function testHostile(world) {
  test("HostileNamesAndLogsAreShownAsText", async () => {
    const { farm, user } = world;
    const scene = farm.scene("<b>scene<b>.json", { seed: 1, fail: { 2: hostileWords } });
    const job = await farm.render(scene, "--range", "1-3", "--set", `Name=${name}`, "--out", "<i>out<i>", "--set", "Retries=0");
    const list = await user.open("#/jobs");
    await until(list, ([link, text]) => document.querySelector(link)?.textContent === text, [`.job a[href="#/job/${job}"]`, shownName]);
    const page = await user.open(`#/job/${job}`);
    await untilCell(page, 2, "failed");
    assert.equal(await page.locator("h1").textContent(), shownName);
    await untilText(page, ".failure", `<script>alert("log")</script> & 'quotes'`);
    await untilText(page, "details.panel", "<i>out<i>");
    await page.locator(".failure").getByRole("link", { name: "Frame 2" }).click();
    await untilText(page, ".log-deciding mark", '<script>alert("log")</script>');
    await untilText(page, ".log-text", "painting <b>96 × 54</b>");
    const text = await page.locator(".log-text").textContent();
    assert.ok(text.includes("red \\u202etxt.exe"), "what turns the direction is spelt out");
    assert.ok(!/[\u0000-\u0008\u001b\u202e]/.test(await page.locator("main").innerText()), "nothing hidden is left");
    for (const open of [list, page]) {
      assert.equal(await open.locator("main :is(script, b, i, img[src=x])").count(), 0);
    }
    await list.close();
    await page.close();
  });

  test("ANameThatIsNoUtf8IsShown", async () => {
    const { farm, user } = world;
    const file = Buffer.concat([Buffer.from(`${farm.scenes}/caf`), Buffer.from([0xe9]), Buffer.from(".json")]);
    fs.writeFileSync(file, JSON.stringify({ seed: 1 }));
    // Words of a program that node starts are UTF-8: a link has a name that can be said.
    fs.writeFileSync(path.join(farm.root, "submit.sh"), 'exec "$1" submit paint caf*.json --new --range 1-2 --out latin --json\n');
    const text = await farm.shell("submit.sh");
    const job = JSON.parse(text.trim().split("\n").at(-1)).job;
    const page = await user.open("#/jobs");
    await until(page, (link) => document.querySelector(link)?.textContent === "caf\ufffd.json", `.job a[href="#/job/${job}"]`);
    await page.locator(`.job a[href="#/job/${job}"]`).click();
    await untilText(page, "h1", "caf\ufffd.json");
    await untilCell(page, 1, "waiting");
    await farm.trovik("cancel", String(job));
    await page.close();
  });

  test("ALogOfAHundredMegabytesOpensAtItsEnd", async (t) => {
    const { farm, user } = world;
    const scene = farm.scene("talkative.json", { seed: 1, print: 100e6, fail: { 1: "it said too much" } });
    const job = await farm.render(scene, "--range", "1-1", "--out", "talkative", "--set", "Retries=0");
    const begun = Date.now();
    const page = await user.open(`#/job/${job}/frame/1`);
    await untilText(page, ".log-deciding mark", "fatal: it said too much");
    await untilText(page, ".log-text", "giving up");
    t.diagnostic(`seen after ${Date.now() - begun} ms`);
    const length = () => page.evaluate(() => document.querySelector(".log-text").textContent.length);
    assert.ok((await length()) <= 70_000, `${await length()} letters at first`);
    await page.getByRole("button", { name: "Show what was before" }).click();
    await until(page, () => document.querySelectorAll(".log-piece").length === 2);
    assert.ok((await length()) > 100_000);
    await page.close();
  });
}
