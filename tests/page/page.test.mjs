// All tests of the page in a real browser, over one queue: each part brings the
// jobs that it needs, and leaves the others' alone.
import fs from "node:fs";
import path from "node:path";
import { after, before } from "node:test";
import { openBrowser, User } from "./browser.mjs";
import { setUp } from "./farm.mjs";
import { testViews } from "./views.mjs";
import { testSheet } from "./sheet.mjs";
import { testSteering } from "./steering.mjs";
import { testLive } from "./live.mjs";
import { testAway } from "./away.mjs";
import { testHostile } from "./hostile.mjs";
import { testLooks } from "./looks.mjs";

const world = {};

before(async () => {
  Object.assign(world, await setUp());
  const folder = path.join(world.farm.scenes, "later");
  fs.rmSync(path.join(folder, "paint.00011.ppm"));
  fs.truncateSync(path.join(folder, "paint.00015.ppm"), 0);
  world.server = await world.farm.page();
  world.browser = await openBrowser();
  world.user = await User.come(world.browser, world.server);
});

after(async () => {
  await world.browser?.close();
  await world.farm?.close();
});

testViews(world);
testLooks(world);
testSheet(world);
testHostile(world);
testSteering(world);
testLive(world);
testAway(world);
