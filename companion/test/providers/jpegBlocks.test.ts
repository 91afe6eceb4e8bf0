import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { describe, it } from "node:test";
import { jpegBlocks } from "../../src/providers/jpegBlocks.ts";
import { areNearlyIdentical } from "../../src/providers/pictures.ts";

const width = 331;
const height = 205;

/** A picture with edges, noise and slopes, whose blocks all differ. */
function pixels(change: (x: number, y: number) => number = () => 0): Buffer {
  const bytes = Buffer.alloc(width * height * 3);
  for (let y = 0; y < height; y += 1) {
    for (let x = 0; x < width; x += 1) {
      const at = (y * width + x) * 3;
      const noise = ((x * 7919 + y * 104729) % 97) / 4;
      const text = x % 23 < 9 && y % 17 < 6 ? 90 : 0;
      for (const [channel, slope] of [x * 0.4, y * 0.7, (x + y) * 0.2].entries()) {
        bytes[at + channel] = Math.min(255, Math.max(0, slope + noise + text + change(x, y)));
      }
    }
  }
  return bytes;
}

function convert(input: Buffer, from: readonly string[], to: readonly string[]): Buffer {
  return execFileSync("convert", [...from, ...to], { input, timeout: 20_000 });
}

function jpeg(options: readonly string[], bytes = pixels()): Buffer {
  const from = ["-size", `${width}x${height}`, "-depth", "8", "rgb:-"];
  return convert(bytes, from, [...options, "-quality", "72", "jpg:-"]);
}

/** The mean brightness of each whole block by another decoder. */
function referenceMeans(picture: Buffer): number[][] {
  const rgb = convert(
    picture,
    ["jpg:-"],
    ["-colorspace", "sRGB", "-type", "TrueColor", "-depth", "8", "rgb:-"],
  );
  const rows: number[][] = [];
  for (let top = 0; top + 8 <= height; top += 8) {
    const row: number[] = [];
    for (let left = 0; left + 8 <= width; left += 8) {
      let sum = 0;
      for (let pixel = 0; pixel < 64; pixel += 1) {
        const at = ((top + (pixel >> 3)) * width + left + (pixel & 7)) * 3;
        sum += 0.299 * (rgb[at] ?? 0) + 0.587 * (rgb[at + 1] ?? 0) + 0.114 * (rgb[at + 2] ?? 0);
      }
      row.push(sum / 64);
    }
    rows.push(row);
  }
  return rows;
}

describe("blocks of a JPEG", () => {
  const kinds: readonly (readonly [string, readonly string[]])[] = [
    ["420", ["-sampling-factor", "2x2,1x1,1x1"]],
    ["422", ["-sampling-factor", "2x1,1x1,1x1"]],
    ["440", ["-sampling-factor", "1x2,1x1,1x1"]],
    ["444", ["-sampling-factor", "1x1,1x1,1x1"]],
    ["gray", ["-colorspace", "Gray"]],
  ];
  for (const [name, options] of kinds) {
    it(`blocks_of_${name}_areThoseOfAnotherDecoder`, () => {
      const picture = jpeg(options);
      const blocks = jpegBlocks(picture);
      assert.ok(blocks !== undefined);
      for (const [y, row] of referenceMeans(picture).entries()) {
        for (const [x, expected] of row.entries()) {
          const found = blocks.means[y * blocks.columns + x] ?? Number.NaN;
          // Brightness that leaves the range of bytes is cut off by the other one.
          assert.ok(Math.abs(found - expected) < 4, `${x}, ${y}: ${found} for ${expected}`);
        }
      }
    });
  }

  it("blocks_ofOtherPictures_areNotKnown", () => {
    assert.equal(jpegBlocks(jpeg(["-interlace", "JPEG"])), undefined);
    assert.equal(jpegBlocks(Buffer.from("\x89PNG\r\n\x1a\n", "latin1")), undefined);
    assert.equal(jpegBlocks(Buffer.alloc(0)), undefined);
  });

  it("blocks_ofDamagedPictures_areNotKnownOrOthers_andNothingIsThrown", () => {
    const picture = jpeg(["-sampling-factor", "2x2,1x1,1x1"]);
    for (let length = 0; length < picture.length; length += 61) {
      jpegBlocks(picture.subarray(0, length));
    }
    for (let at = 2; at < picture.length; at += 37) {
      const damaged = Buffer.from(picture);
      damaged[at] = (damaged[at] ?? 0) ^ 0x5a;
      jpegBlocks(damaged);
    }
  });
});

describe("nearly identical pictures", () => {
  const before = jpegBlocks(jpeg([]));
  const after = (change: (x: number, y: number) => number) => jpegBlocks(jpeg([], pixels(change)));

  it("picture_thatIsTheSame_isIdentical", () => {
    assert.ok(before !== undefined);
    assert.equal(areNearlyIdentical(before, before), true);
  });

  it("picture_withAnotherWord_isNot", () => {
    const other = after((x, y) => (x >= 100 && x < 140 && y >= 80 && y < 92 ? 60 : 0));
    assert.ok(before !== undefined && other !== undefined);
    assert.equal(areNearlyIdentical(before, other), false);
  });

  it("picture_ofAnotherSize_isNot", () => {
    assert.ok(before !== undefined);
    const smaller = { ...before, columns: before.columns - 1 };
    assert.equal(areNearlyIdentical(before, smaller), false);
  });

  it("picture_ofAScreen_mayDifferByACaret", () => {
    const columns = 240;
    const rows = 136;
    const one = { columns, rows, means: new Float32Array(columns * rows).fill(200) };
    const caret = { ...one, means: Float32Array.from(one.means) };
    for (const index of [100, 340, 580]) caret.means[index] = 150;
    assert.equal(areNearlyIdentical(one, caret), true);
    const line = { ...one, means: Float32Array.from(one.means).fill(150, 1000, 1060) };
    assert.equal(areNearlyIdentical(one, line), false);
  });
});
