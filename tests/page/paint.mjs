// The renderer of these tests: a PPM picture for each frame, by what the scene says.
//
//   node paint.mjs SCENE FOLDER [FIRST LAST]
//
// The scene is JSON: "seed" (colours), "fail": {"7": "words"} (frames that fail and
// what is said), "gates" (a folder: a frame begins when a file of its number is
// there), "print" (bytes of output before the frames), "small" (of many frames).
import fs from "node:fs";

const [sceneFile, folder, first = "", last = ""] = process.argv.slice(2);
const scene = JSON.parse(fs.readFileSync(sceneFile, "utf8"));
const width = scene.small ? 16 : 96;
const height = scene.small ? 9 : 54;

function paint(frame) {
  const pixels = Buffer.alloc(width * height * 3);
  const seed = scene.seed ?? 0;
  const bar = (frame * 5) % width;
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const at = 3 * (y * width + x);
      const lit = Math.abs(x - bar) < 4;
      pixels[at] = lit ? 250 : 40 + seed * 60;
      pixels[at + 1] = lit ? 240 : 60 + y * 2;
      pixels[at + 2] = lit ? 200 : 90 + x;
    }
  }
  return Buffer.concat([Buffer.from(`P6\n${width} ${height}\n255\n`), pixels]);
}

/** Ends when the file is there; it is told by its folder, and looked for again
    each second in case it came before anybody listened. */
function gate(file) {
  return new Promise((resolve) => {
    const look = () => {
      if (fs.existsSync(file)) {
        watcher.close();
        clearInterval(timer);
        resolve();
      }
    };
    const watcher = fs.watch(scene.gates, look);
    const timer = setInterval(look, 1000);
    look();
  });
}

if (scene.print) {
  const line = `${"All work and no play makes a long log. ".repeat(25)}\n`;
  for (let printed = 0; printed < scene.print; printed += line.length) {
    fs.writeSync(1, line);
  }
}
const single = first === "";
for (let frame = Number(first); frame <= Number(last); ++frame) {
  if (scene.gates) {
    console.log(`waiting for frame ${frame}`);
    await gate(`${scene.gates}/${frame}`);
  }
  console.log(`frame ${frame}: painting <b>${width} × ${height}</b>`);
  const words = scene.fail?.[frame];
  if (words !== undefined) {
    console.log(`reading textures\nfatal: ${words}\ngiving up`);
    process.exit(3);
  }
  const file = single ? `${folder}/all.ppm` : `${folder}/paint.${String(frame).padStart(5, "0")}.ppm`;
  fs.writeFileSync(file, paint(frame));
  console.log(`saved: ${file}`);
}
