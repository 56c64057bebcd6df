// A server that goes away and comes back.
import assert from "node:assert/strict";
import { test } from "node:test";
import { freePort } from "./farm.mjs";
import { until, untilCell, untilLive, untilText, User } from "./browser.mjs";

export function testAway(world) {
  test("AServerThatGoesAwayLeavesWhatWasSeenAndComesBackByItself", async () => {
    const { farm, browser, jobs } = world;
    const port = String(await freePort());
    let server = await farm.page("--port", port);
    const user = await User.come(browser, server);
    const page = await user.open(`#/job/${jobs.shot}`);
    const second = await user.open("#/jobs");
    await untilCell(page, 1, "good");
    await untilLive(second);
    await farm.stop(server.child, "SIGKILL");
    await until(page, () => document.getElementById("link-state").dataset.state === "off");
    await untilText(page, "#banner", "The server is away");
    await untilText(second, "#banner", "The server is away");
    // What was seen stays, and can be looked through.
    await untilCell(page, 1, "good");
    assert.match(await page.locator("h1").textContent(), /shot\.json/);
    // A button says so, and harms nothing.
    await page.locator('[data-action="delete"]').click();
    await untilText(page, "dialog .problem", "does not answer");
    await page.getByRole("button", { name: "Close" }).click();

    const job = await farm.submit(farm.scene("meanwhile.json", { seed: 1 }), "--range", "1-2", "--out", "meanwhile");
    server = await farm.page("--port", port);
    await untilLive(page);
    await untilLive(second);
    await until(page, () => document.getElementById("banner").hidden);
    await second.locator(`.job a[href="#/job/${job}"]`).waitFor(); // what happened meanwhile
    await farm.trovik("cancel", String(job));
    await until(second, (link) => document.querySelector(link).closest(".job").dataset.state === "canceled", `.job a[href="#/job/${job}"]`);
    await user.leave();
    await farm.stop(server.child);
  });

  test("WhoHasNoTokenIsToldWhatToDo", async () => {
    const context = await world.browser.newContext();
    const page = await context.newPage();
    const answer = await page.goto(`${world.server.base}/`);
    assert.equal(answer.status(), 403);
    assert.match(await page.locator("body").innerText(), /trovik page/);
    await context.close();
  });
}
