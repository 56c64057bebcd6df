// The program's side of the tests: a queue of its own, with jobs of the small
// renderer of these tests, an engine, and the page's server.
import { execFile, spawn } from "node:child_process";
import fs from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

const here = path.dirname(fileURLToPath(import.meta.url));
const program = process.env.TROVIK;
const module = process.env.TROVIK_MODULE;
const run = promisify(execFile);

const type = `[Module]
ID=71111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
Help=Paints one picture a frame.
Command=${path.join(here, "paint.mjs")} $(Scene.Enquote) $(OutputFolder.Enquote) $(SubRange.Start) $(SubRange.End)
ImageStartText=saved:
ErrorDetectPosition=Yes
[ErrorText]
1=fatal:
[OverrideDefaults]
Executable=${process.execPath}
OutputFolder=$(Scene.Branch)/$(Scene.Base)_images
`;

export class Farm {
  constructor() {
    this.root = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), "trovik-page-")));
    this.scenes = path.join(this.root, "scenes");
    const home = path.join(this.root, "home");
    const modules = path.join(this.root, "modules");
    for (const folder of [this.scenes, home, modules]) {
      fs.mkdirSync(folder);
    }
    fs.writeFileSync(path.join(modules, "paint.tvx"), type);
    fs.symlinkSync(module, path.join(modules, "Tessivar.so"));
    this.environment = {
      PATH: process.env.PATH,
      HOME: home,
      XDG_DATA_HOME: path.join(home, "data"),
      XDG_STATE_HOME: path.join(home, "state"),
      XDG_CONFIG_HOME: path.join(home, "config"),
      XDG_CACHE_HOME: path.join(home, "cache"),
      TROVIK_MODULE_PATH: modules,
      TROVIK_PAGE: process.env.TROVIK_PAGE ?? "",
      LC_ALL: "C.UTF-8",
      TZ: "UTC",
    };
    if (!this.environment.TROVIK_PAGE) {
      delete this.environment.TROVIK_PAGE;
    }
    this.children = new Set();
  }

  /** Runs the program; its output, whatever the exit code. */
  async trovik(...words) {
    try {
      const { stdout } = await run(program, words, { env: this.environment, cwd: this.scenes, maxBuffer: 64e6 });
      return stdout;
    } catch (error) {
      if (typeof error.code === "number" && error.stdout !== undefined && error.code !== 2) {
        return error.stdout;
      }
      throw new Error(`trovik ${words.join(" ")}: ${error.stderr || error.message}`);
    }
  }

  /** Runs a script of the farm's folder, with the program as its argument. */
  async shell(script) {
    const { stdout } = await run("/bin/sh", [path.join(this.root, script), program], { env: this.environment, cwd: this.scenes });
    return stdout;
  }

  async json(...words) {
    return JSON.parse(await this.trovik(...words, "--json"));
  }

  /** Writes a scene; gives its file. */
  scene(name, what) {
    const file = path.join(this.scenes, name);
    fs.writeFileSync(file, JSON.stringify(what));
    return file;
  }

  /** Puts a job into the queue; gives its number. */
  async submit(scene, ...words) {
    const text = await this.trovik("submit", "paint", scene, "--new", "--json", ...words);
    return JSON.parse(text.trim().split("\n").at(-1)).job;
  }

  /** Renders a job to its end; gives its number. */
  async render(scene, ...words) {
    const job = await this.submit(scene, ...words);
    await this.trovik("engine", "--job", String(job), "--until-empty", "--slots", "2");
    return job;
  }

  start(...words) {
    const child = spawn(program, words, { env: this.environment, cwd: this.scenes, stdio: ["ignore", "pipe", "pipe"] });
    this.children.add(child);
    child.ended = new Promise((resolve) => child.once("exit", (code, signal) => resolve({ code, signal })));
    child.ended.then(() => this.children.delete(child));
    return child;
  }

  async stop(child, signal = "SIGTERM") {
    child.kill(signal);
    await child.ended;
  }

  /** Starts the page's server; gives {child, address, port}. */
  async page(...words) {
    const child = this.start("page", ...words);
    let said = "";
    let errors = "";
    child.stderr.on("data", (data) => (errors += data));
    const address = await new Promise((resolve, reject) => {
      child.stdout.on("data", (data) => {
        said += data;
        const found = /http:\/\/\S+/.exec(said);
        if (found) {
          resolve(found[0]);
        }
      });
      child.once("exit", (code) => reject(new Error(`the page ended with ${code}: ${errors}`)));
    });
    return { child, address, port: Number(new URL(address).port), base: new URL(address).origin };
  }

  async close() {
    for (const child of [...this.children]) {
      child.kill("SIGKILL");
      await child.ended;
    }
    fs.rmSync(this.root, { recursive: true, force: true, maxRetries: 5 });
  }
}

/** A port that is free just now. */
export function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.once("error", reject);
    server.listen(0, "127.0.0.1", () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

export const hostileWords = `<script>alert("log")</script> & 'quotes' \u001b[31mred\u001b[0m \u202etxt.exe`;

/** All that the tests look at; gives the farm with the numbers of its jobs. */
export async function setUp() {
  const farm = new Farm();
  const jobs = {};
  const scene = farm.scene("shot.json", { seed: 0 });
  jobs.earlier = await farm.render(scene, "--range", "1-24", "--out", "earlier", "--packet", "4");
  // The same shot, with failures of two kinds, and holes.
  farm.scene("shot.json", { seed: 2, fail: { 7: "texture 7 is broken", 8: "texture 8 is broken", 20: "the lamp is out" } });
  jobs.shot = await farm.render(scene, "--range", "1-24", "--out", "later", "--set", "Retries=0");
  return { farm, jobs, scene };
}
