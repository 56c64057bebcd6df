// How every view looks: without a finding of the accessibility check in light and
// dark, wide and narrow, and laid out as it was when it was looked at. Compared are
// the boxes of what makes up a view, as shares of the window, so that other fonts
// and other pixels make no difference. TROVIK_PAGE_LOOKS=update writes them anew.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";
import { accessible, move, until, untilStill, User } from "./browser.mjs";

const file = path.join(path.dirname(fileURLToPath(import.meta.url)), "looks.json");
const parts =
  "header.top, .nav, .link-state, main h1, .jobs-bar, .jobs, .job:first-child .job-strip, .job:first-child .job-time, " +
  ".job-head-buttons, .job-map, .sheet-tools, .sheet, .job-aside, [data-part], .viewer, .log-panel, .frame-aside, " +
  ".stage, .screen, .scrub, .play-bar, .machine > .panel, .problem, .empty";
const near = 0.07; // of the window's width, or of 1,000 pixels of height

const views = (jobs) => ({
  jobs: "#/jobs",
  empty: "#/jobs?text=nothing-has-this-name",
  job: `#/job/${jobs.shot}`,
  dots: `#/job/${jobs.shot}?zoom=0`,
  failed: `#/job/${jobs.shot}/frame/7`,
  frame: `#/job/${jobs.shot}/frame/5`,
  play: `#/job/${jobs.shot}/play?at=5`,
  compare: `#/job/${jobs.shot}/play?at=5&with=${jobs.earlier}&how=side`,
  machine: "#/machine",
  none: "#/job/9999",
});

/** What is seen at the top of a view: each part's name, role and box. */
const look = (page) =>
  page.evaluate(
    ([selector]) =>
      [...document.querySelectorAll(selector)]
        .map((element) => {
          const box = element.getBoundingClientRect();
          const name = element.dataset.part ? `part ${element.dataset.part}` : `${element.localName}.${[...element.classList].filter((one) => !one.startsWith("all")).join(".")}`;
          const share = (value, whole) => Math.round((value / whole) * 1000) / 1000;
          return {
            name,
            role: element.getAttribute("role") ?? "",
            shown: box.width > 0 && box.height > 0 && getComputedStyle(element).visibility !== "hidden",
            x: share(box.left, innerWidth),
            w: share(box.width, innerWidth),
            y: share(box.top + scrollY, 1000),
            h: share(box.height, 1000),
          };
        })
        .filter((one) => one.shown)
        .map(({ shown, ...rest }) => rest),
    [parts],
  );

function compare(view, seen, known) {
  const differences = [];
  const names = (list) => list.map((one) => `${one.name} ${one.role}`.trim());
  assert.deepEqual(names(seen), names(known), `${view}: other parts are shown`);
  seen.forEach((one, i) => {
    for (const side of ["x", "w", "y", "h"]) {
      // What is further down the page is moved by all above it.
      const room = near + (side === "y" || side === "h" ? 0.15 * known[i][side] : 0);
      if (Math.abs(one[side] - known[i][side]) > room) {
        differences.push(`${one.name}: ${side} is ${one[side]}, was ${known[i][side]}`);
      }
    }
  });
  assert.deepEqual(differences, [], `${view} is laid out in another way`);
}

export function testLooks(world) {
  const update = process.env.TROVIK_PAGE_LOOKS === "update";
  const known = fs.existsSync(file) ? JSON.parse(fs.readFileSync(file, "utf8")) : {};
  const seen = {};

  for (const [width, height, dark] of [[1440, 900, false], [1440, 900, true], [360, 780, false], [3840, 2160, false]]) {
    const size = `${width}${dark ? " dark" : ""}`;
    test(`EveryViewIsAccessibleAndLaidOutAsKnownAt${width}${dark ? "InTheDark" : ""}`, async () => {
      const user = await User.come(world.browser, world.server, { width, height, dark });
      const page = await user.open("#/jobs");
      for (const [name, hash] of Object.entries(views(world.jobs))) {
        await move(page, "#/nowhere");
        await move(page, hash);
        await until(page, () => document.querySelector("main").children.length > 1);
        await untilStill(page);
        if (process.env.TROVIK_PAGE_SHOTS) {
          await page.screenshot({ path: path.join(process.env.TROVIK_PAGE_SHOTS, `${name}-${size.replace(" ", "-")}.png`) });
        }
        if (width !== 3840) {
          await accessible(page, `${name} at ${size}`);
        }
        assert.ok((await page.evaluate(() => document.documentElement.scrollWidth - innerWidth)) <= 0, `${name} at ${size} is wider than the window`);
        if (!dark) {
          const one = `${name} at ${width}`;
          seen[one] = await look(page);
          if (!update) {
            compare(one, seen[one], known[one] ?? []);
          }
        }
      }
      await user.leave();
      if (update) {
        const sorted = Object.entries(seen).map(([name, list]) => `  ${JSON.stringify(name)}: [\n${list.map((one) => `    ${JSON.stringify(one)}`).join(",\n")}\n  ]`);
        fs.writeFileSync(file, `{\n${sorted.join(",\n")}\n}\n`);
      }
    });
  }

  test("DialogsAreAccessible", async () => {
    const user = await User.come(world.browser, world.server);
    const page = await user.open(`#/job/${world.jobs.shot}`);
    await page.locator('[data-action="retry"]').click();
    await page.locator("dialog .command").waitFor();
    await accessible(page, "the dialog of a button");
    await page.keyboard.press("Escape");
    await until(page, () => !document.querySelector("dialog"));
    await page.keyboard.press("?");
    await page.locator("dialog .keys").first().waitFor();
    await accessible(page, "the list of keys");
    await user.leave();
  });
}
