// The renderer of bench/page: a PNG file of 1920 × 1080 for each frame, soft light with
// some grain, so that it packs like a rendered picture.
//
//   node picture.mjs SCENE FOLDER FIRST LAST
import fs from "node:fs";
import zlib from "node:zlib";

const [, folder, first, last] = process.argv.slice(2);
const width = 1920;
const height = 1080;

const crcTable = Array.from({ length: 256 }, (_, byte) => {
  let value = byte;
  for (let bit = 0; bit < 8; ++bit) {
    value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
  }
  return value >>> 0;
});

function chunk(name, data) {
  const body = Buffer.concat([Buffer.from(name, "latin1"), data]);
  let crc = 0xffffffff;
  for (const byte of body) {
    crc = crcTable[(crc ^ byte) & 255] ^ (crc >>> 8);
  }
  const whole = Buffer.alloc(body.length + 8);
  whole.writeUInt32BE(data.length, 0);
  body.copy(whole, 4);
  whole.writeUInt32BE((crc ^ 0xffffffff) >>> 0, body.length + 4);
  return whole;
}

function png(frame) {
  const stride = 1 + 3 * width;
  const rows = Buffer.alloc(height * stride);
  let grain = frame + 1;
  for (let y = 0; y < height; ++y) {
    // The filter that takes the byte of the pixel before away.
    rows[y * stride] = 1;
    let before = [0, 0, 0];
    for (let x = 0; x < width; ++x) {
      grain = (Math.imul(grain, 1103515245) + 12345) >>> 0;
      const noise = (grain >>> 16) & 3;
      const pixel = [((x + 8 * frame) >> 3) + noise, (y >> 3) + 40 + noise, ((x + y) >> 4) + noise];
      for (let channel = 0; channel < 3; ++channel) {
        rows[y * stride + 1 + 3 * x + channel] = pixel[channel] - before[channel];
      }
      before = pixel;
    }
  }
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 2], 8); // bits of a channel; red, green and blue
  return Buffer.concat([
    Buffer.from("\x89PNG\r\n\x1a\n", "latin1"),
    chunk("IHDR", header),
    chunk("IDAT", zlib.deflateSync(rows, { level: 1 })),
    chunk("IEND", Buffer.alloc(0)),
  ]);
}

for (let frame = Number(first); frame <= Number(last); ++frame) {
  const file = `${folder}/picture.${String(frame).padStart(4, "0")}.png`;
  fs.writeFileSync(file, png(frame));
  console.log(`saved: ${file}`);
}
