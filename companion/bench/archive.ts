// What the archive costs: encryption in MB/s on one core, and packing as a multiple of real time.
//
//   npm run bench
//
// Pictures are of a 3840x2160 display with text that changes, at the default rate of one every two
// seconds. ffmpeg makes them.
import { execFileSync } from "node:child_process";
import { mkdtempSync, readdirSync, readFileSync, rmSync, statSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { encrypt } from "../src/archive/age/age.ts";
import { Identity } from "../src/archive/age/x25519.ts";
import { packChunk } from "../src/archive/clips/packer.ts";
import { ffmpegEncoder } from "../src/archive/clips/videoEncoder.ts";
import { realDisk } from "../src/spool/disk.ts";
import { pictureName } from "../src/spool/records.ts";
import { spooledFrame } from "../test/support/archiveHarness.ts";

const frameCount = 10;
const frameMs = 2_000;
const rounds = 7;
const { recipient } = Identity.generate();

function median(values: readonly number[]): number {
  return [...values].sort((a, b) => a - b)[values.length >> 1] ?? 0;
}

function say(line: string): void {
  process.stdout.write(`${line}\n`);
}

/** Seconds of processor time that this process and the programs that it has ended have used. */
function processorTime(): number {
  const fields = readFileSync("/proc/self/stat", "latin1").split(") ")[1]?.split(" ") ?? [];
  return fields.slice(11, 15).reduce((sum, ticks) => sum + Number(ticks) / 100, 0);
}

function elapsed(start: bigint): number {
  return Number(process.hrtime.bigint() - start) / 1e9;
}

async function* zeros(bytes: number): AsyncGenerator<Uint8Array> {
  const piece = Buffer.alloc(256 * 1024, 7);
  for (let sent = 0; sent < bytes; sent += piece.length) yield piece;
}

async function measureEncryption(): Promise<void> {
  const bytes = 512 * 1024 * 1024;
  const rates: number[] = [];
  const used: number[] = [];
  for (let round = 0; round < rounds; round += 1) {
    const [start, before] = [process.hrtime.bigint(), process.cpuUsage()];
    for await (const _ of encrypt(zeros(bytes), recipient));
    const { user, system } = process.cpuUsage(before);
    rates.push(bytes / 1e6 / elapsed(start));
    used.push(bytes / 1e6 / ((user + system) / 1e6));
  }
  say(
    `encryption: ${median(rates).toFixed(0)} MB/s elapsed, ${median(used).toFixed(0)} MB per second of processor time`,
  );
}

function makePictures(folder: string): void {
  const source = "testsrc2=size=3840x2160:rate=1";
  const given = ["-v", "error", "-f", "lavfi", "-i", source, "-frames:v", String(frameCount)];
  execFileSync("ffmpeg", [...given, "-q:v", "4", "-start_number", "0", "1-%d.jpg"], {
    cwd: folder,
  });
}

async function measurePacking(kind: "mjpeg" | "h264"): Promise<void> {
  const folder = mkdtempSync(join(tmpdir(), "bench-archive-"));
  try {
    makePictures(folder);
    const frames = Array.from({ length: frameCount }, (_, index) => {
      const picture = readFileSync(join(folder, `1-${index}.jpg`));
      return spooledFrame({ atMs: index * frameMs, picture, width: 3840, height: 2160 }, 1, index);
    });
    const chunk = {
      version: 1 as const,
      id: 1,
      session: { id: "s", startedAtMs: 0 },
      stoppedAtMs: undefined,
      gaps: undefined,
      through: { batch: 1, frame: frameCount - 1 },
      frames,
    };
    const encodeVideo = kind === "h264" ? ffmpegEncoder("ffmpeg", process.env) : undefined;
    const dependencies = { disk: realDisk, encodeVideo, randomName: () => "0".repeat(16) };
    const times: number[] = [];
    const used: number[] = [];
    let packed = "";
    for (let round = 0; round < rounds; round += 1) {
      const [start, before] = [process.hrtime.bigint(), processorTime()];
      const signal = new AbortController().signal;
      const [clip] = await packChunk(dependencies, folder, chunk, recipient, signal);
      times.push(elapsed(start));
      used.push(processorTime() - before);
      packed = `${((clip?.bytes ?? 0) / 1e6).toFixed(1)} MB as ${clip?.encoding}`;
    }
    const realTime = (frameCount * frameMs) / 1000;
    const pictureBytes = frames.reduce(
      (sum, frame) => sum + statSync(join(folder, pictureName(frame))).size,
      0,
    );
    const rate = (seconds: number) =>
      `${seconds.toFixed(2)} s (${(realTime / seconds).toFixed(1)} x)`;
    say(
      `packing ${realTime} s of pictures, ${(pictureBytes / 1e6).toFixed(1)} MB: ${rate(median(times))} elapsed, ${rate(median(used))} of processor time; ${packed}`,
    );
    if (readdirSync(folder).some((name) => name.endsWith(".mkv"))) throw new Error("left behind");
  } finally {
    rmSync(folder, { recursive: true, force: true });
  }
}

await measureEncryption();
await measurePacking("mjpeg");
await measurePacking("h264");
