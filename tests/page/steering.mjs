// Every button: it says what it will do, names the command that does the same, and
// does it; the queue is asked what came of it.
import assert from "node:assert/strict";
import { test } from "node:test";
import { until, untilCell, untilText, User } from "./browser.mjs";

/** Presses a button, reads its dialog, and says yes. */
async function steer(page, button, { says, command, yes, before }) {
  await button.click();
  const dialog = page.locator("dialog.action");
  await dialog.waitFor();
  await before?.(dialog);
  await untilText(page, "dialog.action .command code", command);
  await untilText(page, "dialog.action .said", says);
  await dialog.getByRole("button", { name: yes }).click();
  await until(page, () => !document.querySelector("dialog"));
}

const action = (page, name) => page.locator(`.job-head [data-action="${name}"]`);

export function testSteering(world) {
  const stateOf = async (job) => (await world.farm.json("show", String(job))).state;

  test("HoldReleasePriorityAndCancelAreDoneAndSeen", async () => {
    const { farm } = world;
    const scene = farm.scene("steered.json", { seed: 1 });
    const job = await farm.submit(scene, "--range", "1-6", "--out", "steered", "--packet", "2");
    const page = await world.user.open(`#/job/${job}`);
    await untilText(page, ".job-head .state", "waiting");
    await untilText(page, ".job-aside", "No engine is at work");

    await steer(page, action(page, "hold"), { says: "held", command: `trovik hold ${job}`, yes: "Hold the job" });
    await untilText(page, ".job-head .state", "held");
    assert.equal(await stateOf(job), "stopped");

    await steer(page, action(page, "release"), { says: "released", command: `trovik release ${job}`, yes: "Let it go" });
    await untilText(page, ".job-head .state", "waiting");
    assert.equal(await stateOf(job), "waiting");

    await steer(page, action(page, "set"), {
      says: "50 -> 80",
      command: "Priority=80",
      yes: "Set the priority",
      before: (dialog) => dialog.getByLabel(/priority/).fill("80"),
    });
    await untilText(page, '[data-action="set"]', "Priority 80");
    assert.equal((await farm.json("show", String(job))).priority, 80);

    // What the server does not take is said in its own words, and nothing is done.
    await action(page, "set").click();
    await page.getByLabel(/priority/).fill("900");
    await untilText(page, "dialog .problem", "900");
    assert.ok(await page.getByRole("button", { name: "Set the priority" }).isDisabled());
    await page.getByRole("button", { name: "Close" }).click();

    // "No" changes nothing.
    await action(page, "cancel").click();
    await untilText(page, "dialog .command code", `trovik cancel ${job}`);
    await page.getByRole("button", { name: "Let it go on" }).click();
    assert.equal(await stateOf(job), "waiting");

    await page.keyboard.press("x");
    await untilText(page, "dialog .command code", `trovik cancel ${job}`);
    await page.getByRole("button", { name: "Cancel the job" }).click();
    await untilText(page, ".job-head .state", "canceled");
    await untilCell(page, 1, "canceled");
    assert.equal(await stateOf(job), "canceled");

    await steer(page, action(page, "retry"), { says: "6", command: `trovik retry ${job}`, yes: "Render again" });
    await untilText(page, ".job-head .state", "waiting");
    await farm.trovik("cancel", String(job));
    await untilText(page, ".job-head .state", "canceled");
    await steer(page, action(page, "delete"), { says: "deleted", command: `trovik delete ${job}`, yes: "Delete the job" });
    await untilText(page, ".problem", String(job));
    await page.close();
  });

  test("AFailedFrameIsRenderedAgainFromItsReason", async () => {
    const { farm } = world;
    const scene = farm.scene("mended.json", { seed: 1, fail: { 2: "no light", 3: "no light" } });
    const job = await farm.render(scene, "--range", "1-3", "--out", "mended", "--set", "Retries=0");
    farm.scene("mended.json", { seed: 1 });
    const page = await world.user.open("#/jobs");
    // Three clicks from the list: the job, the frame, the button.
    await page.locator(`.job a[href="#/job/${job}"]`).click();
    await page.locator(".failure").getByRole("link", { name: "Frame 2" }).click();
    await untilText(page, ".log-deciding mark", "fatal: no light");
    await steer(page, page.getByRole("button", { name: "Render this frame again" }), {
      says: "1 frame",
      command: `trovik retry ${job} --frames 2`,
      yes: "Render again",
    });
    await untilText(page, ".frame-head .state", "waiting");
    await farm.trovik("engine", "--job", String(job), "--until-empty");
    await untilText(page, ".frame-head .state", "good");
    await page.keyboard.press("Escape");
    await untilText(page, ".job-head [data-action='retry']", "Render the failed frame again");
    await page.locator(".failure").getByRole("button", { name: "Render it again" }).click();
    await untilText(page, "dialog .command code", `trovik retry ${job} --frames 3`);
    await page.getByRole("button", { name: "Not now" }).click();
    await steer(page, action(page, "retry"), { says: "1 frame", command: `trovik retry ${job}`, yes: "Render again" });
    await farm.trovik("engine", "--job", String(job), "--until-empty");
    await untilText(page, ".job-head .state", "good");
    await untilCell(page, 3, "good");
    assert.equal(await page.locator(".failure").count(), 0);
    await page.close();
  });

  test("MissingFramesAreRenderedAgain", async () => {
    const { farm } = world;
    const page = await world.user.open(`#/job/${world.jobs.shot}`);
    await untilText(page, ".job-aside", "Files that are gone");
    await steer(page, action(page, "missing"), { says: "5 frames", command: `trovik retry ${world.jobs.shot} --frames 7-8,11,15,20`, yes: "Render them" });
    farm.scene("shot.json", { seed: 2 });
    await farm.trovik("engine", "--job", String(world.jobs.shot), "--until-empty");
    await untilText(page, ".job-head .state", "good");
    await untilCell(page, 11, "good");
    await page.close();
  });

  test("CancelOffersTheFollowers", async () => {
    const { farm } = world;
    const scene = farm.scene("chain.json", { seed: 1 });
    const first = await farm.submit(scene, "--range", "1-2", "--out", "chain1");
    const second = await farm.submit(scene, "--range", "1-2", "--out", "chain2", "--after", String(first));
    const page = await world.user.open(`#/job/${first}`);
    await untilText(page, ".relations", `Job ${second}`);
    await steer(page, action(page, "cancel"), {
      says: "canceled",
      command: "--with-followers",
      yes: "Cancel the job",
      before: (dialog) => dialog.getByLabel(/waits for it/).check(),
    });
    await untilText(page, ".job-head .state", "canceled");
    assert.equal(await stateOf(second), "canceled");
    await page.getByRole("link", { name: `Job ${second}` }).click();
    await untilText(page, ".job-sub", `Job ${second}`);
    await untilText(page, ".relations", `Job ${first}`);
    await page.close();
  });

  test("AReadOnlyPageHasNoButtonsAndItsServerRefuses", async () => {
    const { farm, browser, jobs } = world;
    const server = await farm.page("--read-only");
    const user = await User.come(browser, server);
    const page = await user.open(`#/job/${jobs.earlier}`);
    await untilCell(page, 1, "good");
    await untilText(page, "#where", "read only");
    assert.equal(await page.locator("[data-action]:visible:not([data-action=play])").count(), 0);
    await page.keyboard.press("D");
    assert.equal(await page.locator("dialog").count(), 0);
    const answer = await page.evaluate(async (job) => {
      const response = await fetch(`api/jobs/${job}/delete`, { method: "POST", headers: { "Content-Type": "application/json" }, body: '{"dryRun":true}' });
      return { status: response.status, form: await response.json() };
    }, jobs.earlier);
    assert.equal(answer.status, 403);
    assert.equal(answer.form.kind, "page.problem");
    await user.leave();
    await farm.stop(server.child);
  });
}
