// What an archive of many clips costs: time, and memory of the process, of what a user asks for.
//
//   npm run bench -- archiveSize [clips]        100,000 unless told, in a folder
//   npm run bench -- archiveSize backlog [n]    chunks that wait for their archive, 20,000 unless told
//
// Clips are small: it is about their number. They lie in memory where that is possible.
import { createHash } from "node:crypto";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { encryptBytes } from "../src/archive/age/age.ts";
import { Identity } from "../src/archive/age/x25519.ts";
import { clipName } from "../src/archive/clips/packer.ts";
import type { ClipEntry } from "../src/archive/clips/records.ts";
import { Vault } from "../src/archive/keys/vault.ts";
import { noPrevious, sealSegment, segmentName } from "../src/archive/manifest/segment.ts";
import { writeJson } from "../src/json/writer.ts";
import { ArchiveHarness, TestKeyring } from "../test/support/archiveHarness.ts";
import { ManualClock } from "../test/support/manualClock.ts";
import { temporaryHome } from "../test/support/temporaryHome.ts";

const clipsOfPart = 50;
const partsOfDay = 40;
const clipMs = 20_000;
const firstMs = new Date(2026, 0, 1, 9).getTime();
const dayMs = 86_400_000;

function say(line: string): void {
  process.stdout.write(`${line}\n`);
}

function sha256(bytes: Uint8Array): string {
  return createHash("sha256").update(bytes).digest("hex");
}

function memory(kind: "VmRSS" | "VmHWM"): string {
  const [, kilobytes = "0"] =
    new RegExp(`${kind}:\\s*([0-9]+)`).exec(readFileSync("/proc/self/status", "latin1")) ?? [];
  return `${(Number(kilobytes) / 1024).toFixed(0)} MB`;
}

async function timed<Result>(what: string, task: () => Promise<Result>): Promise<Result> {
  const start = process.hrtime.bigint();
  const before = process.cpuUsage();
  const result = await task();
  const { user, system } = process.cpuUsage(before);
  const seconds = Number(process.hrtime.bigint() - start) / 1e9;
  say(
    `${what}: ${seconds.toFixed(2)} s, ${((user + system) / 1e6).toFixed(2)} s of processor time; ${memory("VmRSS")}, at most ${memory("VmHWM")}`,
  );
  return result;
}

/** So many clips of another machine's, as they lie in a place, with the list that names them. */
async function fillPlace(root: string, vault: Vault, count: number): Promise<string[]> {
  const writer = "feedfacefeedface";
  let previous = noPrevious;
  const days = new Set<string>();
  const stored = await objectFor(vault);
  for (let first = 0, sequence = 1; first < count; first += clipsOfPart, sequence += 1) {
    const clips: ClipEntry[] = [];
    const part = sequence - 1;
    const partMs = firstMs + Math.floor(part / partsOfDay) * dayMs;
    const day = localDay(partMs);
    days.add(day);
    mkdirSync(join(root, vault.id, "clips", day), { recursive: true });
    for (let n = first; n < Math.min(count, first + clipsOfPart); n += 1) {
      const startMs = partMs + (n % (clipsOfPart * partsOfDay)) * clipMs * 0.7;
      clips.push(storedClip(root, vault, stored, { day, startMs: Math.floor(startMs), number: n }));
    }
    const segment = {
      format: "ostrel-archive-list" as const,
      version: 1 as const,
      vault: vault.id,
      writer,
      sequence,
      day,
      previous,
      clips,
    };
    const object = await sealSegment(segment, vault);
    previous = sha256(object);
    mkdirSync(join(root, vault.id, "manifest", day), { recursive: true });
    writeFileSync(join(root, vault.id, segmentName(segment)), object);
  }
  return [...days];
}

/** The same object again and again: to encrypt so many would take longer than what is measured. */
async function objectFor(vault: Vault) {
  const content = Buffer.from("a clip ".repeat(40));
  return { content, object: await encryptBytes(content, vault.identity.recipient) };
}

type Stored = Awaited<ReturnType<typeof objectFor>>;

function storedClip(
  root: string,
  vault: Vault,
  { content, object }: Stored,
  { day, startMs, number }: { day: string; startMs: number; number: number },
): ClipEntry {
  const name = clipName(startMs, day, number.toString(16).padStart(16, "0"));
  writeFileSync(join(root, vault.id, name), object);
  return {
    name,
    bytes: object.length,
    sha256: sha256(object),
    contentBytes: content.length,
    contentSha256: sha256(content),
    encoding: "h264",
    day,
    startMs,
    endMs: startMs + clipMs - 1,
    displayId: "1",
    displayLabel: "Display 1",
    width: 3840,
    height: 2160,
    frames: 10,
  };
}

function localDay(ms: number): string {
  const date = new Date(ms);
  const parts = [date.getFullYear(), date.getMonth() + 1, date.getDate()];
  return parts.map((part) => String(part).padStart(2, "0")).join("-");
}

async function emptyArchive() {
  const home = temporaryHome();
  const root = join(home, "nas");
  mkdirSync(root);
  const keyring = new TestKeyring();
  const harness = await ArchiveHarness.open({ home, keyring, clock: new ManualClock(Date.now()) });
  await harness.turnOn({ kind: "folder", path: root, lossless: true });
  const [secret = ""] = keyring.secrets.values();
  return { harness, root, keyring, vault: new Vault(Identity.parse(secret)) };
}

async function measureArchive(count: number): Promise<void> {
  const { harness, root, keyring, vault } = await emptyArchive();
  await harness.archive.close();
  const days = await fillPlace(root, vault, count);
  const [first = "", last = ""] = [days[0], days.at(-1)];
  const all = { fromDate: first, toDate: last };
  globalThis.gc?.();
  say(
    `${count} clips in ${days.length} days, ${Math.ceil(count / clipsOfPart)} parts of the list; ${memory("VmRSS")} before`,
  );
  const { home } = harness;
  const options = { home, keyring, clock: new ManualClock(Date.now()) };
  const { archive } = await timed("opening", () => ArchiveHarness.open(options));
  await timed("status", async () => archive.status());
  await timed("estimate of one day, never read before", () =>
    archive.estimate({ fromDate: last, toDate: last }),
  );
  await timed("estimate of one day", () => archive.estimate({ fromDate: last, toDate: last }));
  const { clips } = await timed("estimate of everything", () => archive.estimate(all));
  if (clips !== count) throw new Error(`${clips} clips are in the list`);
  const fromMs = firstMs + Math.floor(days.length / 2) * dayMs;
  const forget = () => archive.forget({ fromMs, toMs: fromMs + 600_000 });
  const forgotten = await timed("forgetting 10 minutes", forget);
  say(`  ${forgotten.clips} clips went`);
  await timed("exporting a day", async () => {
    await archive.startExport(join(home, "out"), { fromDate: last, toDate: last });
    while (archive.exportStatus().state === "running") await new Promise(setImmediate);
    say(`  ${archive.exportStatus().exported} clips`);
  });
  await archive.close();
}

/** Packed chunks in the outbox, as after weeks without the place. */
async function measureBacklog(count: number): Promise<void> {
  const { harness, root, keyring, vault } = await emptyArchive();
  await harness.archive.close();
  const items = join(harness.home, "observer", "archive", "items");
  const scratch = join(harness.home, "scratch");
  const day = localDay(firstMs);
  mkdirSync(join(scratch, vault.id, "clips", day), { recursive: true });
  const stored = await objectFor(vault);
  for (let id = 1; id <= count; id += 1) {
    const startMs = firstMs + id * 1_000;
    const clip = storedClip(scratch, vault, stored, { day, startMs, number: id });
    mkdirSync(join(items, String(id)));
    writeFileSync(
      join(items, String(id), "0.age"),
      readFileSync(join(scratch, vault.id, clip.name)),
    );
    const packed = { version: 1, vault: vault.id, clips: [clip] };
    writeFileSync(join(items, String(id), "clips.json"), writeJson(packed));
  }
  say(`${count} chunks wait; ${memory("VmRSS")} before`);
  const options = { home: harness.home, keyring, clock: new ManualClock(Date.now()) };
  const { archive } = await timed("opening", () => ArchiveHarness.open(options));
  await timed("storing all", () => archive.settled());
  await timed("listing the rest", () => archive.estimate({ fromDate: day, toDate: day }));
  say(`  in ${root}`);
  await archive.close();
}

const [what = "100000", number = "20000"] = process.argv.slice(2);
if (what === "backlog") await measureBacklog(Number(number));
else await measureArchive(Number(what));
