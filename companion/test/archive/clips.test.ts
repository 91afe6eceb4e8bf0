import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import { readdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { jpegSize } from "../../src/archive/clips/jpegSize.ts";
import { ffmpegEncoder } from "../../src/archive/clips/videoEncoder.ts";
import { ArchiveHarness, type TestFrame } from "../support/archiveHarness.ts";
import {
  anyFolder,
  archiveTurnedOn,
  day,
  filesIn,
  frames,
  picture,
  startMs,
} from "../support/footage.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** The pictures of a lossless clip, as ffmpeg takes them out of it. */
function picturesOf(clip: Buffer): Buffer[] {
  const folder = temporaryHome();
  writeFileSync(join(folder, "clip.mkv"), clip);
  const given = ["-v", "error", "-i", "clip.mkv", "-map", "0:v", "-c", "copy"];
  execFileSync("ffmpeg", [...given, "-f", "image2", "%05d.jpg"], { cwd: folder, timeout: 30_000 });
  const names = readdirSync(folder).filter((name) => name.endsWith(".jpg"));
  return names.sort().map((name) => readFileSync(join(folder, name)));
}

interface Probe {
  readonly streams: readonly Record<string, unknown>[];
  readonly packets: readonly { readonly pts_time: string }[];
}

function probe(clip: Buffer): Probe {
  const folder = temporaryHome();
  writeFileSync(join(folder, "clip.mkv"), clip);
  const given = ["-v", "error", "-show_streams", "-show_packets", "-select_streams", "v"];
  const text = execFileSync("ffprobe", [...given, "-of", "json", join(folder, "clip.mkv")], {
    encoding: "utf8",
    timeout: 30_000,
  });
  return JSON.parse(text) as Probe;
}

/** Real JPEGs, each different. */
function realPictures(count: number, size: string): Buffer[] {
  const folder = temporaryHome();
  const source = `testsrc2=rate=1,scale=${size.replace("x", ":")},format=yuvj444p`;
  const given = [
    "-v",
    "error",
    "-f",
    "lavfi",
    "-i",
    source,
    "-frames:v",
    String(count),
    "-pix_fmt",
    "yuvj444p",
  ];
  execFileSync("ffmpeg", [...given, "-q:v", "3", "%05d.jpg"], { cwd: folder, timeout: 30_000 });
  return readdirSync(folder)
    .sort()
    .map((name) => readFileSync(join(folder, name)));
}

describe("clips", () => {
  it("display_thatChangesItsSize_getsAClipForEach", async () => {
    const { harness } = await archiveTurnedOn();
    const [small, large] = [realPictures(1, "320x240")[0], realPictures(1, "640x480")[0]];
    const pictures = [small, small, large, Buffer.alloc(0)];
    await harness.finish(
      1,
      pictures.map((bytes, index) => ({
        // What is told of the size is wrong, as after a change while the picture was taken.
        ...{ width: 999, height: 999, atMs: startMs + index },
        picture: bytes ?? Buffer.alloc(0),
      })),
    );
    await harness.export(join(harness.home, "out"), day, day);
    const clips = [...filesIn(join(harness.home, "out"))].filter(([name]) => name.endsWith("mkv"));
    const sizes = clips.map(([, clip]) => [
      probe(clip).streams[0]?.["width"],
      picturesOf(clip).length,
    ]);
    assert.deepEqual(sizes.sort(), [
      [320, 2],
      [640, 1],
    ]);
  });

  it("jpegSize_ofWhatIsNone_isNotKnown", () => {
    const [picture = Buffer.alloc(0)] = realPictures(1, "322x242");
    assert.deepEqual(jpegSize(picture), { width: 322, height: 242 });
    for (const bytes of ["", "ab", "no picture at all", "\xff\xd8\xff", "\xff\xd8junkjunkjunk"]) {
      assert.equal(jpegSize(Buffer.from(bytes, "latin1")), undefined);
    }
    for (let end = 0; end < 100; end += 1) jpegSize(picture.subarray(0, end));
  });

  const uneven = [0, 2_000, 2_100, 4_100, 9_000];

  function unevenFrames(pictures: readonly Buffer[], width: number, height: number): TestFrame[] {
    return uneven.map((offset, index) => ({
      atMs: startMs + offset,
      picture: pictures[index] ?? Buffer.alloc(0),
      text: `text ${index}`,
      width,
      height,
    }));
  }

  it("losslessExport_equalsTheArchivedFramesBitByBit", async () => {
    const { harness } = await archiveTurnedOn();
    const pictures = realPictures(5, "321x241");
    await harness.finish(1, unevenFrames(pictures, 321, 241));
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.equal(status.state, "done");
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    assert.ok(clip !== undefined);
    assert.deepEqual(picturesOf(clip[1]), pictures);
    const { streams, packets } = probe(clip[1]);
    assert.deepEqual([streams[0]?.["width"], streams[0]?.["codec_name"]], [321, "mjpeg"]);
    const times = packets.map((packet) => Math.round(Number(packet.pts_time) * 1000));
    assert.deepEqual(times, uneven);
  });

  it("clip_holdsTheTextsAndTheHashesOfItsFrames", async () => {
    const { harness } = await archiveTurnedOn();
    const pictures = realPictures(5, "320x240");
    await harness.finish(1, unevenFrames(pictures, 320, 240));
    await harness.export(join(harness.home, "out"), day, day);
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    const folder = temporaryHome();
    writeFileSync(join(folder, "clip.mkv"), clip?.[1] ?? "");
    const given = ["-v", "error", "-dump_attachment:t:0", "frames.json", "-i", "clip.mkv"];
    execFileSync("ffmpeg", [...given, "-f", "null", "-"], { cwd: folder, timeout: 30_000 });
    const index = JSON.parse(readFileSync(join(folder, "frames.json"), "utf8")) as {
      frames: { text: string; receivedAtMs: number; picture: { sha256: string } }[];
    };
    assert.deepEqual(
      index.frames.map(({ text }) => text),
      uneven.map((_, number) => `text ${number}`),
    );
    assert.deepEqual(
      index.frames.map((frame) => frame.picture.sha256),
      pictures.map((bytes) => createHash("sha256").update(bytes).digest("hex")),
    );
  });

  it("videoClip_hasEveryFrameAtItsTime", async () => {
    const harness = await ArchiveHarness.open({
      target: new MemoryTarget(),
      encodeVideo: ffmpegEncoder("ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    // Sides of odd length, which the codec can't have.
    await harness.finish(1, unevenFrames(realPictures(5, "321x241"), 321, 241));
    await harness.archive.settled();
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported], ["done", 1]);
    const clip = [...filesIn(join(harness.home, "out"))].find(([name]) => name.endsWith(".mkv"));
    const { streams, packets } = probe(clip?.[1] ?? Buffer.alloc(0));
    assert.deepEqual([streams[0]?.["width"], streams[0]?.["codec_name"]], [322, "h264"]);
    const times = packets.map((packet) => Math.round(Number(packet.pts_time) * 1000));
    assert.deepEqual(
      [...times].sort((a, b) => a - b),
      uneven,
    );
  });

  it("pictures_thatFfmpegCantRead_areKeptAsTheyAre", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({
      target,
      encodeVideo: ffmpegEncoder("ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const status = await harness.export(join(harness.home, "out"), day, day);
    assert.deepEqual([status.state, status.exported], ["done", 1]);
    const [, clip] = [...filesIn(join(harness.home, "out"))].find(([name]) =>
      name.endsWith(".mkv"),
    ) ?? ["", Buffer.alloc(0)];
    for (const number of [0, 1, 2]) assert.ok(clip.includes(picture(number)));
  });

  it("ffmpeg_thatIsNotInstalled_leavesThePicturesAsTheyAre", async () => {
    const harness = await ArchiveHarness.open({
      target: new MemoryTarget(),
      encodeVideo: ffmpegEncoder("/nonexistent/ffmpeg", process.env),
    });
    await harness.turnOn({ ...anyFolder, lossless: false });
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const estimate = await harness.archive.estimate({ fromDate: day, toDate: day });
    assert.equal(estimate.clips, 1);
  });
});
