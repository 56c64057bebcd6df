// The browser's side of the tests: Debian's Chromium, and words for what is done
// with a page. Everything waits for what it wants to see, with a deadline.
import assert from "node:assert/strict";
import fs from "node:fs";
import { createRequire } from "node:module";
import path from "node:path";

const load = createRequire(path.join(process.env.TROVIK_PAGE_MODULES ?? ".", "package.json"));
const { chromium } = load("playwright-core");
const axeSource = fs.readFileSync(load.resolve("axe-core/axe.min.js"), "utf8");
export const deadline = 30_000;

export async function openBrowser() {
  // The page is our own, and root may not have the sandbox; nothing else is opened.
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-dev-shm-usage", "--force-color-profile=srgb"],
  });
}

/** A user: pages share the cookie, and what is wrong is remembered. */
export class User {
  constructor(context, server) {
    this.context = context;
    this.server = server;
    this.wrong = [];
  }

  static async come(browser, server, { width = 1440, height = 900, dark = false, motion = "reduce" } = {}) {
    const context = await browser.newContext({
      viewport: { width, height },
      colorScheme: dark ? "dark" : "light",
      reducedMotion: motion,
      timezoneId: "UTC",
      locale: "en-GB",
    });
    context.setDefaultTimeout(deadline);
    const user = new User(context, server);
    const first = await context.newPage();
    await first.goto(server.address);
    await first.close();
    return user;
  }

  /** Opens an address of the page, such as "#/job/2". */
  async open(hash = "#/jobs") {
    const page = await this.context.newPage();
    page.on("pageerror", (error) => this.wrong.push(`error: ${error.stack}`));
    page.on("dialog", (dialog) => {
      this.wrong.push(`a dialog came: ${dialog.message()}`);
      dialog.dismiss();
    });
    page.on("console", (message) => {
      const text = message.text();
      // What is gone, or a server that is away, is told by the browser itself.
      if (message.type() === "error" && !/Failed to load resource|ERR_CONNECTION|ERR_INCOMPLETE_CHUNKED|ERR_EMPTY/.test(text)) {
        this.wrong.push(`console: ${text}`);
      }
    });
    // What is asked for and not there yet, but for the events, which never end.
    const open = new Set();
    page.awaited = open;
    page.on("request", (request) => request.url().endsWith("/api/events") || open.add(request));
    page.on("requestfinished", (request) => open.delete(request));
    page.on("requestfailed", (request) => open.delete(request));
    await page.goto(`${this.server.base}/${hash}`);
    return page;
  }

  async leave() {
    await this.context.close();
    assert.deepEqual(this.wrong, [], "the page was in trouble");
  }
}

/** Goes to another view within the page. */
export const move = (page, hash) => page.evaluate((to) => void (location.hash = to), hash);

/** Waits until a function in the page gives something true. */
export const until = (page, test, argument, options = {}) =>
  page.waitForFunction(test, argument, { timeout: deadline, polling: 50, ...options });

export async function untilText(page, selector, text) {
  try {
    await until(
      page,
      ([where, what]) => [...document.querySelectorAll(where)].some((element) => element.textContent.includes(what)),
      [selector, text],
    );
  } catch (error) {
    const there = await page.locator(selector).allTextContents();
    throw new Error(`${selector} has no "${text}", but ${JSON.stringify(there).slice(0, 800)}: ${error.message}`);
  }
}

/** The cell of a frame in the sheet. */
export const cell = (page, frame) => page.locator(`.sheet .cell:has(a[href$="/frame/${frame}"])`);

export const untilCell = (page, frame, state) =>
  until(
    page,
    ([name, wanted]) =>
      document.querySelector(`.sheet .cell-link[href$="/frame/${name}"]`)?.closest(".cell")?.dataset.state === wanted,
    [frame, state],
  );

export const untilLive = (page) => page.waitForSelector('#link-state[data-state="on"]');

/** Waits until nothing of a view is awaited any more: what came is drawn, and that
    made nobody ask for more. */
export async function untilStill(page) {
  await untilLive(page);
  const end = Date.now() + deadline;
  for (let still = 0; still < 3; ) {
    assert.ok(Date.now() < end, `still awaited: ${[...page.awaited].map((request) => request.url())}`);
    await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(resolve)))));
    still = page.awaited.size === 0 ? still + 1 : 0;
  }
}

/** What the accessibility check finds; nothing is well. */
export async function accessible(page, name) {
  await page.evaluate(axeSource);
  const found = await page.evaluate(async () => {
    const result = await globalThis.axe.run(document, { resultTypes: ["violations"] });
    return {
      passes: result.passes.length,
      violations: result.violations.map(
        (one) => `${one.id}: ${one.nodes.slice(0, 3).map((node) => `${node.target.join(" ")}: ${node.failureSummary}`).join("; ")}`,
      ),
    };
  });
  assert.ok(found.passes > 10, `${name}: the check looked at something`);
  assert.deepEqual(found.violations, [], `${name}: the accessibility check has findings`);
}
