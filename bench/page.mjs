// What bench/page measures, over a queue of its own; README.md tells how.
import { spawn } from "node:child_process";
import fs from "node:fs";
import http from "node:http";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { openBrowser, until, User } from "../tests/page/browser.mjs";
import { Farm } from "../tests/page/farm.mjs";

const here = path.dirname(fileURLToPath(import.meta.url));
const quick = process.env.BENCH_QUICK === "1";
const seconds = Number(process.env.BENCH_SECONDS);
const size = quick
  ? { frames: 100, commits: 5, listeners: 5, paints: 1, pictures: 4, rounds: 2 }
  : { frames: 10_000, commits: 100, listeners: 200, paints: 5, pictures: 200, rounds: 4 };
const patience = 5_000; // for what should come at once
const wholeTime = 900_000 + 3_000 * seconds;
const atOnce = 6; // connections of a browser to one server
const processes = 2; // helpers that the page has for its pictures

const wait = (time) => new Promise((resolve) => setTimeout(resolve, time));
function middle(values) {
  const sorted = values.toSorted((a, b) => a - b);
  return (sorted[(sorted.length - 1) >> 1] + sorted[sorted.length >> 1]) / 2;
}
const rows = [];
const row = (what, figure, besides = "") => rows.push([what, figure, besides]);
const spread = (values, digits, unit) => [
  `${middle(values).toFixed(digits)} ${unit}`.trim(),
  `${Math.min(...values).toFixed(digits)} to ${Math.max(...values).toFixed(digits)} ${unit}`.trim(),
];

function within(promise, time, what) {
  let timer;
  const late = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`${what} took longer than ${time / 1000} s`)), time);
  });
  return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}

const cookieOf = (server) => `trovik-${server.port}=${new URL(server.address).searchParams.get("token")}`;

function get(server, what, agent) {
  return new Promise((resolve, reject) => {
    const options = { headers: { Cookie: cookieOf(server) }, agent };
    const request = http.get(`${server.base}${what}`, options, (answer) => {
      const parts = [];
      answer.on("data", (part) => parts.push(part));
      answer.on("error", reject);
      answer.on("end", () => {
        const body = Buffer.concat(parts);
        if (answer.statusCode === 200) {
          resolve({ body, type: answer.headers["content-type"] });
        } else {
          reject(new Error(`${what} was answered by ${answer.statusCode}: ${body.toString().slice(0, 500)}`));
        }
      });
    });
    request.on("error", reject);
  });
}

const getJson = async (server, what) => JSON.parse((await get(server, what)).body);

/** A client of the events: whoever waits for the next change of a job has its time. */
class Listener {
  static come(server) {
    const listener = new Listener();
    listener.waiting = [];
    const ready = new Promise((resolve, reject) => {
      const options = { headers: { Cookie: cookieOf(server) }, agent: false };
      listener.request = http.get(`${server.base}/api/events`, options, (answer) => {
        if (answer.statusCode !== 200) {
          reject(new Error(`the events were answered by ${answer.statusCode}`));
          return;
        }
        let text = "";
        answer.on("error", () => {}); // it was left
        answer.on("data", (data) => {
          const now = performance.now();
          text += data;
          const events = text.split("\n\n");
          text = events.pop();
          for (const event of events) {
            if (event.includes("event: hello")) {
              resolve(listener);
            } else if (event.startsWith("event: change")) {
              listener.heard(JSON.parse(event.slice(event.indexOf("data: ") + 6)), now);
            }
          }
        });
      });
      listener.request.on("error", reject);
    });
    return within(ready, patience, "the first event");
  }

  heard(change, now) {
    this.waiting = this.waiting.filter(({ job, resolve }) => !change.jobs.includes(job) || resolve(now));
  }

  change(job) {
    const heard = new Promise((resolve) => this.waiting.push({ job, resolve }));
    return within(heard, patience, "the event of a change");
  }

  leave() {
    this.request.destroy();
  }
}

/** A connection to the queue whose commits are known at once. */
class Database {
  constructor(file) {
    this.child = spawn(process.env.BENCH_SQLITE, ["-batch", file], { stdio: ["pipe", "pipe", "inherit"] });
    this.count = 0;
    let text = "";
    this.child.stdout.on("data", (data) => {
      const now = performance.now();
      text += data;
      if (text.endsWith(`done ${this.count}\n`)) {
        this.answered?.(now);
      }
    });
    this.ended = new Promise((resolve) => this.child.once("exit", resolve));
  }

  /** Executes a statement; gives the time at which it was known to be committed. */
  commit(statement) {
    const done = new Promise((resolve) => (this.answered = resolve));
    this.child.stdin.write(`${statement};\n.print done ${++this.count}\n`);
    return within(done, patience, "a commit");
  }

  async close() {
    this.child.stdin.end();
    await this.ended;
  }
}

async function measureEvents(farm, job) {
  const server = await farm.page();
  const listener = await Listener.come(server);
  const { directory } = await getJson(server, "/api/about");
  const database = new Database(path.join(directory, "queue.db"));
  await database.commit("PRAGMA busy_timeout = 5000");
  await database.commit("PRAGMA synchronous = NORMAL"); // as the program's own connections
  const commits = [];
  const verbs = [];
  for (let count = 0; count < size.commits; ++count) {
    const heard = listener.change(job);
    const committed = await database.commit(`UPDATE jobs SET priority = ${10 + (count % 2)} WHERE id = ${job}`);
    commits.push((await heard) - committed);
    await wait(50); // so that each one meets a server that rests
  }
  await database.close();
  for (let count = 0; count < size.commits; ++count) {
    const heard = listener.change(job);
    const begin = performance.now();
    await farm.trovik("set", String(job), `Priority=${20 + (count % 2)}`);
    verbs.push((await heard) - begin);
    await wait(50);
  }
  listener.leave();
  await farm.stop(server.child);
  row(`${size.commits} commits, each until its event`, ...spread(commits, 2, "ms"));
  row(`${size.commits} \`trovik set\`, each from its start to its event`, ...spread(verbs, 1, "ms"));
}

/** What the kernel tells of a process: nanoseconds of processors, memory, wakes. */
function usage(process) {
  const status = fs.readFileSync(`/proc/${process}/status`, "utf8");
  const number = (name) => Number(new RegExp(`^${name}:\\s*(\\d+)`, "m").exec(status)[1]);
  // The same time is in its file "stat", but in steps of 10 ms there.
  let time = 0;
  for (const thread of fs.readdirSync(`/proc/${process}/task`)) {
    time += Number(fs.readFileSync(`/proc/${process}/task/${thread}/schedstat`, "utf8").split(" ")[0]);
  }
  return { time, memory: number("VmRSS") / 1024, wakes: number("voluntary_ctxt_switches") };
}

/** The same of a process and its children: the server's helpers are a part of it. */
function usageOfAll(process) {
  const children = fs.readFileSync(`/proc/${process}/task/${process}/children`, "utf8").trim().split(" ").filter(Boolean);
  return [process, ...children].map(usage).reduce((sum, one) => ({ time: sum.time + one.time, memory: sum.memory + one.memory, wakes: sum.wakes + one.wakes }));
}

async function measureIdle(farm) {
  for (const count of [0, 1, size.listeners]) {
    const server = await farm.page();
    await getJson(server, "/api/jobs");
    const listeners = await Promise.all(Array.from({ length: count }, () => Listener.come(server)));
    await wait(1_000); // what the coming of clients makes it do
    const before = usageOfAll(server.child.pid);
    await wait(1_000 * seconds);
    const after = usageOfAll(server.child.pid);
    for (const listener of listeners) {
      listener.leave();
    }
    await farm.stop(server.child);
    const clients = count === 0 ? "no client" : `${count} listening client${count === 1 ? "" : "s"}`;
    row(
      `idle for ${seconds} s, ${clients}`,
      `${((after.time - before.time) / 1e6).toFixed(1)} ms CPU`,
      `${after.memory.toFixed(1)} MiB, woke ${after.wakes - before.wakes} times`,
    );
  }
}

/** In the page: the time since navigation at which the first good cells were drawn. */
function watchPaint() {
  const look = () => {
    if (!document.querySelector('.sheet .cell[data-state="good"]')) {
      requestAnimationFrame(look);
      return;
    }
    // This picture of the browser has them; a message is taken after it is drawn.
    const channel = new MessageChannel();
    channel.port1.onmessage = () => (globalThis.firstCells = performance.now());
    channel.port2.postMessage(0);
  };
  requestAnimationFrame(look);
}

async function measurePaint(farm, job) {
  const server = await farm.page();
  const browser = await openBrowser();
  const times = [];
  try {
    for (let count = 0; count < size.paints; ++count) {
      const user = await User.come(browser, server);
      await user.context.addInitScript(watchPaint);
      const page = await user.open(`#/job/${job}`);
      await until(page, () => globalThis.firstCells !== undefined);
      times.push(await page.evaluate(() => globalThis.firstCells));
      await user.leave();
    }
  } finally {
    await browser.close();
  }
  await farm.stop(server.child);
  row(`first cells of ${size.frames} frames in Chromium`, ...spread(times, 0, "ms"));
}

/** Pictures a second from the page. */
async function fetchPictures(server, files) {
  const agent = new http.Agent({ keepAlive: true, maxSockets: atOnce });
  const begin = performance.now();
  await Promise.all(
    files.map(async (file) => {
      const { body, type } = await get(server, `/api/files/${file}/picture?w=320`, agent);
      if (type !== "image/jpeg" || body.length < 500) {
        throw new Error(`file ${file} has no picture, but ${body.length} bytes of ${type}`);
      }
    }),
  );
  const rate = (1_000 * files.length) / (performance.now() - begin);
  agent.destroy();
  return rate;
}

/** Pictures a second from oiiotool, with as many processes as the page has helpers. */
async function convertPictures(farm, folder, from, count) {
  const out = path.join(farm.root, "converted");
  fs.mkdirSync(out);
  const begin = performance.now();
  await Promise.all(
    Array.from({ length: processes }, async (_, index) => {
      const first = from + Math.floor((count * index) / processes);
      const last = from - 1 + Math.floor((count * (index + 1)) / processes);
      const words = ["--threads", "1", "--frames", `${first}-${last}`, path.join(folder, "picture.#.png")];
      words.push("--resize", "320x180", "-o", path.join(out, "picture.#.jpg"));
      const child = spawn(process.env.BENCH_OIIOTOOL, words, { stdio: ["ignore", "ignore", "inherit"] });
      farm.children.add(child);
      child.ended = new Promise((resolve) => child.once("exit", resolve));
      const code = await child.ended;
      farm.children.delete(child);
      if (code !== 0) {
        throw new Error(`oiiotool ended with ${code}`);
      }
    }),
  );
  const rate = (1_000 * count) / (performance.now() - begin);
  if (fs.readdirSync(out).length !== count) {
    throw new Error(`oiiotool made ${fs.readdirSync(out).length} pictures instead of ${count}`);
  }
  fs.rmSync(out, { recursive: true });
  return rate;
}

async function measurePictures(farm, job, folder) {
  const rates = { empty: [], full: [], tool: [], ratio: [] };
  const server = await farm.page();
  const { files } = await getJson(server, `/api/jobs/${job}/cells`);
  // In turn, so that what else the machine does meets both sides.
  const share = files.length / size.rounds;
  for (let first = 0; first < files.length; first += share) {
    const some = files.slice(first, first + share);
    rates.empty.push(await fetchPictures(server, some));
    rates.tool.push(await convertPictures(farm, folder, 1 + first, share));
    rates.full.push(await fetchPictures(server, some));
    rates.ratio.push(rates.empty.at(-1) / rates.tool.at(-1));
  }
  await farm.stop(server.child);
  row(`${size.pictures} pictures, empty cache`, ...spread(rates.empty, 1, "/s"));
  row("the same by oiiotool --resize 320x180", ...spread(rates.tool, 1, "/s"));
  row("pictures with an empty cache for each of oiiotool", ...spread(rates.ratio, 2, ""));
  row(`the same ${size.pictures} pictures, full cache`, ...spread(rates.full, 0, "/s"));
}

const pictureType = `[Module]
ID=71111111-2222-3333-4444-666666666666
Name=Picture
Shortcut=picture
Help=Writes one large picture a frame.
Command=${path.join(here, "picture.mjs")} $(Scene.Enquote) $(OutputFolder.Enquote) $(SubRange.Start) $(SubRange.End)
ImageStartText=saved:
[OverrideDefaults]
Executable=${process.execPath}
OutputFolder=$(Scene.Branch)/$(Scene.Base)_images
`;

/** Puts a job of so many frames into the queue; gives its number. */
async function submit(farm, type, scene, frames, packet, out) {
  const words = ["--range", `1-${frames}`, "--packet", String(packet), "--out", out, "--new", "--json"];
  const text = await farm.trovik("submit", type, scene, ...words);
  return JSON.parse(text.trim().split("\n").at(-1)).job;
}

/** Renders one to its end. */
async function render(farm, type, scene, frames, packet) {
  const job = await submit(farm, type, scene, frames, packet, type);
  const engine = farm.start("engine", "--job", String(job), "--until-empty", "--slots", "2");
  engine.stdout.resume();
  engine.stderr.resume();
  await engine.ended;
  const { jobs } = await farm.json("jobs", "--all");
  const { good } = jobs.find((each) => each.job === job).counts;
  if (good !== frames) {
    throw new Error(`of ${frames} frames ${good} became good: ${await farm.trovik("log", String(job))}`);
  }
  return job;
}

async function measure(farm) {
  const say = (words) => process.stderr.write(`${words} …\n`);
  fs.writeFileSync(path.join(farm.root, "modules", "picture.tvx"), pictureType);
  say(`rendering ${size.frames} small frames`);
  const small = await render(farm, "paint", farm.scene("long.json", { small: true }), size.frames, size.frames / 20);
  say(`rendering ${size.pictures} pictures of 1920 x 1080`);
  const large = await render(farm, "picture", farm.scene("large.json", {}), size.pictures, size.pictures / 4);
  // What is over cannot be set any more: another one has as many works that wait.
  const open = await submit(farm, "paint", farm.scene("open.json", { small: true }), size.frames, 1, "open");
  say("commits and events");
  await measureEvents(farm, open);
  say(`idle pages, ${seconds} s each`);
  await measureIdle(farm);
  say("first paint");
  await measurePaint(farm, small);
  say("pictures");
  await measurePictures(farm, large, path.join(farm.scenes, "picture"));
}

function print() {
  const head = ["What", "Median", "Besides"];
  const lines = [head, head.map(() => "---"), ...rows];
  const widths = head.map((_, column) => Math.max(...lines.map((line) => line[column].length)));
  for (const line of lines) {
    console.log(`| ${line.map((text, column) => text.padEnd(widths[column])).join(" | ")} |`);
  }
  const load = os.loadavg().map((each) => each.toFixed(1));
  console.log(`\n${os.availableParallelism()} processors; load at the end ${load.join(", ")}`);
}

const farm = new Farm();
const signaled = new Promise((_, reject) => {
  for (const signal of ["SIGINT", "SIGTERM"]) {
    process.once(signal, () => reject(new Error(`ended by ${signal}`)));
  }
});
let status = 0;
try {
  await within(Promise.race([measure(farm), signaled]), wholeTime, "all of it");
  print();
} catch (error) {
  console.error(`bench/page: ${error.message}`);
  status = 1;
} finally {
  // An engine ends what it runs before it goes.
  const gone = Promise.all([...farm.children].map((child) => farm.stop(child)));
  await within(gone, 20_000, "the end").catch((error) => console.error(`bench/page: ${error.message}`));
  await farm.close();
}
process.exit(status);
