import assert from "node:assert/strict";
import { existsSync, readdirSync, renameSync } from "node:fs";
import { join } from "node:path";
import { it } from "node:test";
import { ArchiveSlot } from "../../src/archive/archiveSlot.ts";
import { systemFailure } from "../../src/base/failure.ts";
import { SpoolLayout } from "../../src/spool/layout.ts";
import type { FinishedChunks } from "../../src/spool/moves.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const startMs = 1_795_250_000_000;

/** Moves what it takes beside the observer's folder. */
class Taker implements FinishedChunks {
  readonly folder = temporaryHome();
  readonly asked: string[] = [];
  failure: Error | undefined;
  takes = true;

  async take(folder: string): Promise<boolean> {
    this.asked.push(folder.slice(folder.lastIndexOf("/") + 1));
    if (this.failure !== undefined) throw this.failure;
    if (!this.takes || !existsSync(folder)) return false;
    renameSync(folder, join(this.folder, String(this.asked.length)));
    return true;
  }

  get taken(): string[] {
    return readdirSync(this.folder).sort();
  }
}

async function recordTwoChunks(taker: FinishedChunks) {
  const harness = await ObserverHarness.open({
    settings: { chunkSizeMs: 10_000 },
    finishedChunks: taker,
  });
  await harness.observer.start();
  await harness.send([framePayload(startMs), framePayload(startMs + 12_000)]);
  await harness.observer.stop();
  return harness;
}

it("chunk_whoseLinesStandInTheJournal_isHandedOnWithItsPictures", async () => {
  const taker = new Taker();
  const harness = await recordTwoChunks(taker);
  assert.deepEqual(taker.asked, ["1", "2"]);
  for (const name of taker.taken) {
    const files = readdirSync(join(taker.folder, name));
    assert.ok(files.includes("chunk.json") && files.some((file) => file.endsWith(".jpg")));
  }
  assert.deepEqual(harness.names("pending"), []);
});

it("chunk_thatNobodyTakes_isThrownAway", async () => {
  const taker = new Taker();
  taker.takes = false;
  const harness = await recordTwoChunks(taker);
  assert.deepEqual([taker.asked.length, harness.names("pending").length], [2, 0]);
  assert.deepEqual(harness.names("trash"), []);
});

it("taker_thatTheDiskRefuses_isAskedAgainAndTheJournalGoesOn", async () => {
  const taker = new Taker();
  taker.failure = systemFailure("ENOSPC", "/");
  const harness = await recordTwoChunks(taker);
  assert.equal(harness.observer.status().pendingAnalysisChunks, 0);
  assert.equal(harness.names("pending").length, 2);
  taker.failure = undefined;
  await harness.observer.start();
  await harness.observer.stop();
  // And the one of the second session.
  assert.equal(taker.taken.length, 3);
});

it("chunkThatAKillLeft_isHandedOnByTheNextStart", async () => {
  const taker = new Taker();
  taker.failure = systemFailure("EIO", "/");
  const first = await recordTwoChunks(taker);
  taker.failure = undefined;
  taker.asked.length = 0;
  const second = await ObserverHarness.open({ home: first.home, finishedChunks: taker });
  assert.deepEqual(taker.asked, ["1", "2"]);
  assert.deepEqual(second.names("pending"), []);
});

it("archive_thatFailsForAnotherReason_isSaidAndHoldsNothingUp", async () => {
  const complaints: string[] = [];
  const slot = await ArchiveSlot.open(async () => {
    const broken = { take: async () => Promise.reject(new Error("a fault of ours")) };
    return Object.assign(Object.create(null), broken);
  });
  slot.tellTo((area, sentence) => complaints.push(`${area}: ${sentence}`));
  assert.equal(await slot.take(new SpoolLayout("/x").chunk(1)), false);
  assert.deepEqual(complaints, ["archive: A chunk can't be archived: a fault of ours."]);
});
