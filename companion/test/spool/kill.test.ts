import assert from "node:assert/strict";
import { mkdtempSync, readdirSync, readFileSync, rmSync } from "node:fs";
import { join } from "node:path";
import { it } from "node:test";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import { type Chunk, pictureName } from "../../src/spool/records.ts";
import { defaultSettings } from "../../src/wire/records.ts";
import { readDay } from "../support/journalGrammar.ts";
import { ManualClock } from "../support/manualClock.ts";
import { MortalDisk } from "../support/mortalDisk.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload, tinyPicture } from "../support/payloads.ts";
import { temporaryRoot } from "../support/temporaryHome.ts";

const startMs = 1_795_250_000_000;
const never = Number.MAX_SAFE_INTEGER;

/** What one life of an observer was told was safe. */
interface Life {
  readonly acknowledged: string[];
  sessionEnds: number;
}

/** Opens an observer whose journal, too, dies with its disk. */
function openMortal(
  home: string,
  disk: MortalDisk,
  inferenceProvider = "ostrel",
): Promise<ObserverHarness> {
  const writer = new JournalWriter({ outputDirectory: join(home, "journal") });
  return ObserverHarness.open({
    home,
    disk,
    clock: new ManualClock(startMs + 100_000),
    settings: { chunkSizeMs: 10_000, inferenceProvider },
    async appendToJournal(_, session, bullets) {
      disk.step();
      await writer.append(session, bullets);
      disk.step();
    },
  });
}

/** Frames named for their batch, some of which end a chunk in the middle of the batch. */
async function sendBatch(harness: ObserverHarness, name: string, secondsAt: readonly number[]) {
  const texts = secondsAt.map((seconds) => `${name} at ${seconds}`);
  await harness.send(
    secondsAt.map((seconds, index) =>
      framePayload(startMs + seconds * 1000, { text: texts[index], frameIndex: index }),
    ),
  );
  return texts;
}

/** Two sessions, of which the second is still running at the end. */
async function live(home: string, disk: MortalDisk, life: Life): Promise<void> {
  const harness = await openMortal(home, disk);
  const { observer } = harness;
  await observer.start();
  life.acknowledged.push(...(await sendBatch(harness, "first", [0, 4])));
  life.acknowledged.push(...(await sendBatch(harness, "second", [8, 12, 14, 26])));
  await observer.stop();
  life.sessionEnds += 1;
  await observer.start();
  life.acknowledged.push(...(await sendBatch(harness, "third", [30, 31, 50, 51])));
}

/** Every frame that waits has its picture, whole. */
async function checkPictures(harness: ObserverHarness): Promise<void> {
  for (const id of harness.names("pending")) {
    const folder = join(harness.layout.pending, id);
    const chunk = JSON.parse(readFileSync(join(folder, "chunk.json"), "utf8")) as Chunk;
    for (const frame of chunk.frames) {
      const picture = readFileSync(join(folder, pictureName(frame))).toString("base64");
      assert.equal(picture, tinyPicture);
    }
  }
}

/** The next life: everything is recovered, and analysed when its pictures have been looked at. */
async function recoverAll(home: string): Promise<void> {
  const harness = await openMortal(home, new MortalDisk(never), "google_vertex_ai");
  await checkPictures(harness);
  harness.observer.replaceSettings(defaultSettings);
  await harness.observer.stop();
  const status = harness.observer.status();
  assert.equal(status.pendingAnalysisChunks, 0);
  assert.equal(status.lastError, undefined);
  assert.equal(status.analysisBackfillBlocked, false);
  for (const folder of ["incoming", "pending", "trash", "quarantine"]) {
    assert.deepEqual(harness.names(folder), [], folder);
  }
}

function journalTexts(home: string): string[] {
  const folder = join(home, "journal");
  return readdirSync(folder)
    .sort()
    .flatMap((name) => readDay(readFileSync(join(folder, name))))
    .flatMap((session) => session.entries)
    .map((entry) => entry.text);
}

const order = [
  "first at 0",
  "first at 4",
  "second at 8",
  "second at 12",
  "second at 14",
  "second at 26",
  "third at 30",
  "third at 31",
  "third at 50",
  "third at 51",
];

function checkJournal(home: string, life: Life): void {
  const texts = life.acknowledged.length === 0 ? [] : journalTexts(home);
  const frames = texts.filter((text) => !text.startsWith("end of"));
  assert.equal(new Set(frames).size, frames.length, "a line stands twice");
  for (const text of life.acknowledged) assert.ok(frames.includes(text), `${text} is lost`);
  assert.deepEqual(
    frames,
    order.filter((text) => frames.includes(text)),
    "out of order",
  );
  // An analyser's count of a session is right only if no chunk was counted twice or left out.
  const counts = texts.filter((text) => text.startsWith("end of"));
  const expected = [
    `end of ${frames.filter((text) => !text.startsWith("third")).length}`,
    `end of ${frames.filter((text) => text.startsWith("third")).length}`,
  ];
  for (const count of counts.filter((text) => text !== "end of 0")) {
    assert.ok(expected.includes(count), `${count}, ${expected}`);
  }
  assert.ok(counts.length >= life.sessionEnds && counts.length <= 2, String(counts));
}

async function withHome(task: (home: string) => Promise<void>): Promise<void> {
  const home = mkdtempSync(join(temporaryRoot, "ostrel-kill-"));
  try {
    await task(home);
  } finally {
    rmSync(home, { recursive: true, force: true });
  }
}

/** Lives until the step; true when the life ended before it came. */
async function liveUntil(home: string, killAt: number, life: Life) {
  const disk = new MortalDisk(killAt);
  await live(home, disk, life).catch((error: unknown) => {
    if (!disk.isDead) throw error;
  });
  return !disk.isDead;
}

it("queue_killAtEveryStep_losesNoFrameAndWritesNoLineTwice", async (test) => {
  let survived = false;
  let killAt = 0;
  while (!survived) {
    killAt += 1;
    await withHome(async (home) => {
      const life: Life = { acknowledged: [], sessionEnds: 0 };
      survived = await liveUntil(home, killAt, life);
      await recoverAll(home);
      checkJournal(home, life);
    });
  }
  test.diagnostic(`${killAt} steps`);
  assert.ok(killAt > 100);
});

it("queue_killAtEveryStepOfTheRecovery_losesNoFrameAndWritesNoLineTwice", async () => {
  let kills = 0;
  for (const firstKill of [60, 90, 120, 150, 180, 205]) {
    for (let secondKill = 1; ; secondKill += 1) {
      let recovered = false;
      await withHome(async (home) => {
        const life: Life = { acknowledged: [], sessionEnds: 0 };
        await liveUntil(home, firstKill, life);
        const disk = new MortalDisk(secondKill);
        const recovery = async () => (await openMortal(home, disk)).observer.stop();
        await recovery().catch((error: unknown) => {
          if (!disk.isDead) throw error;
        });
        recovered = !disk.isDead;
        await recoverAll(home);
        checkJournal(home, life);
        kills += 1;
      });
      if (recovered) break;
    }
  }
  assert.ok(kills > 100);
});
