import assert from "node:assert/strict";
import { rmSync } from "node:fs";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import { NotRecording, ShuttingDown } from "../../src/observer/errors.ts";
import { fillableDisk } from "../support/fillableDisk.ts";
import { ManualClock } from "../support/manualClock.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

describe("session", () => {
  it("observer_beforeAnySession_isIdle", async () => {
    const { observer, clock } = await ObserverHarness.open();
    assert.deepEqual(observer.status(), {
      running: false,
      sessionId: undefined,
      chunkIndex: 0,
      lastAction: undefined,
      lastError: undefined,
      lastChunkAt: undefined,
      pendingAnalysisChunks: 0,
      analysisBackfillActive: false,
      analysisBackfillBlocked: false,
      analysisBackfillLastError: undefined,
    });
    assert.equal(clock.timerCount, 0);
  });

  it("start_whileRunning_isTheSameSession", async () => {
    const { observer } = await ObserverHarness.open();
    const first = await observer.start();
    assert.equal(first.running, true);
    assert.match(first.sessionId ?? "", /^\d{4}-\d\d-\d\dT\d\d-\d\d-\d\d-1$/);
    assert.deepEqual(await observer.start(), first);
  });

  it("start_afterStopInTheSameSecond_isAnotherSession", async () => {
    const { observer } = await ObserverHarness.open();
    const first = (await observer.start()).sessionId;
    await observer.stop();
    const second = (await observer.start()).sessionId;
    assert.notEqual(first, second);
    assert.ok((first ?? "") < (second ?? ""));
  });

  it("start_afterARestart_countsOn", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.observer.stop();
    const second = await ObserverHarness.open({ home: first.home });
    assert.match((await second.observer.start()).sessionId ?? "", /-2$/);
  });

  it("start_onAFullDisk_failsAndSaysSo", async () => {
    const { disk, state } = fillableDisk();
    const { observer } = await ObserverHarness.open({ disk });
    state.isFull = true;
    await assert.rejects(observer.start(), /ENOSPC/);
    assert.equal(observer.status().running, false);
    assert.equal(
      observer.status().lastError,
      "The recording can't be started: The disk is full. Delete some files on that disk to make room.",
    );
    state.isFull = false;
    assert.equal((await observer.start()).lastError, undefined);
  });

  it("stop_withoutSession_isIdle", async () => {
    const harness = await ObserverHarness.open();
    assert.equal((await harness.observer.stop()).running, false);
    assert.deepEqual(harness.lines, []);
  });

  it("stop_withFramesInTheOpenChunk_hasWrittenThemWhenItResolves", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0), at(2)]);
    assert.deepEqual(harness.lines, []);
    const status = await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "at 2", "end of 2"]);
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("stop_onAFullDisk_keepsTheFramesAndEndsLater", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isFull = true;
    await assert.rejects(harness.observer.stop(), /ENOSPC/);
    assert.equal(harness.observer.status().running, false);
    await assert.rejects(harness.send([at(1)]), NotRecording);
    state.isFull = false;
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  it("stop_onAFullDisk_isEndedByItselfWhenThereIsRoomAgain", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isFull = true;
    await assert.rejects(harness.observer.stop(), /ENOSPC/);
    assert.match(harness.observer.status().lastError ?? "", /Delete some files on that disk/);
    state.isFull = false;
    assert.equal(harness.clock.nextDelayMs, 10_000);
    harness.clock.advance(10_000);
    while (harness.lines.length < 2) await setImmediate();
    assert.equal(harness.observer.status().lastError, undefined);
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  it("start_afterAStopThatFailed_endsTheOldSessionFirst", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    const old = (await harness.observer.start()).sessionId;
    await harness.send([at(0)]);
    state.isFull = true;
    await assert.rejects(harness.observer.stop());
    state.isFull = false;
    assert.notEqual((await harness.observer.start()).sessionId, old);
    await harness.send([at(1)]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1", "at 1", "end of 1"]);
  });

  it("close_whileRecording_endsTheSessionAndTakesNothingMore", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0)]);
    await harness.observer.close();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
    await assert.rejects(harness.observer.start(), ShuttingDown);
    await assert.rejects(harness.send([at(1)]), ShuttingDown);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("stop_behindAQueueThatTakesTooLong_answersInTime_andTheRestGoesOn", async () => {
    const written: string[] = [];
    let letGo = () => {};
    const gate = new Promise<void>((resolve) => {
      letGo = resolve;
    });
    const harness = await ObserverHarness.open({
      async appendToJournal(_, __, bullets) {
        await gate;
        written.push(...bullets.map((bullet) => bullet.text));
      },
    });
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    const stopped = harness.observer.stop();
    while (harness.clock.nextDelayMs !== 20_000) await setImmediate();
    harness.clock.advance(20_000);
    const status = await stopped;
    assert.equal(status.running, false);
    assert.equal(status.pendingAnalysisChunks, 2);
    assert.equal(status.analysisBackfillActive, true);
    assert.deepEqual(written, []);
    // Meanwhile nobody has to wait for the queue.
    assert.equal((await harness.observer.start()).running, true);
    letGo();
    assert.equal((await harness.observer.stop()).pendingAnalysisChunks, 0);
    assert.deepEqual(written, ["at 0", "at 20", "end of 2", "end of 0"]);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("close_behindAQueueThatTakesTooLong_endsWithTheChunkAtHand", async () => {
    const written: string[] = [];
    const letGo: (() => void)[] = [];
    const harness = await ObserverHarness.open({
      async appendToJournal(_, __, bullets) {
        await new Promise<void>((resolve) => letGo.push(resolve));
        written.push(...bullets.map((bullet) => bullet.text));
      },
    });
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    const closed = harness.observer.close();
    while (harness.clock.nextDelayMs !== 3_000 || letGo.length === 0) await setImmediate();
    harness.clock.advance(3_000);
    await setImmediate();
    letGo[0]?.();
    await closed;
    assert.deepEqual(written, ["at 0"]);
    assert.deepEqual(harness.names("pending"), ["2"]);
    const next = await ObserverHarness.open({ home: harness.home });
    await next.observer.stop();
    assert.deepEqual(next.lines, ["at 20", "end of 2"]);
  });

  it("sessionLeftOpenByAKill_isEndedAtTheNextStart", async () => {
    const first = await ObserverHarness.open();
    const { sessionId } = await first.observer.start();
    await first.send([at(0), at(2)]);
    const clock = new ManualClock(startMs + 400_000);
    const second = await ObserverHarness.open({ home: first.home, clock });
    await second.observer.stop();
    assert.equal(second.observer.status().running, false);
    const gap = "[Ostrel] Gap: 08:33:22 to 08:40:00, the observer ended unexpectedly";
    assert.deepEqual(second.lines, ["at 0", "at 2", gap, "end of 2"]);
    const sentence = `The last recording ended unexpectedly. In the journal: ${gap}.`;
    assert.equal(second.observer.status().lastError, sentence);
    assert.deepEqual(second.notices, [sentence]);
    const bullets = second.journal.flatMap((call) => call.bullets);
    assert.deepEqual(
      bullets.slice(2).map(({ atMs }) => atMs - startMs),
      [2000, 2000],
    );
    assert.equal(second.journal[0]?.session.id, sessionId);
  });

  it("framesLeftByAKill_onAFullDisk_comeBeforeTheNextSession", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.send([at(0)]);
    const { disk, state } = fillableDisk();
    state.isFull = true;
    const second = await ObserverHarness.open({ home: first.home, disk });
    assert.equal(
      second.observer.status().lastError,
      "Frames can't be recovered: The disk is full. Delete some files on that disk to make room.",
    );
    await assert.rejects(second.observer.start(), /ENOSPC/);
    assert.equal(second.observer.status().running, false);
    state.isFull = false;
    assert.equal((await second.observer.start()).lastError, undefined);
    await second.send([at(100)]);
    await second.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:20, the observer ended unexpectedly";
    assert.deepEqual(second.lines, ["at 0", gap, "end of 1", "at 100", "end of 1"]);
  });
});

describe("a state folder that is deleted while it is in use", () => {
  const remove = (harness: ObserverHarness) => rmSync(harness.layout.root, { recursive: true });

  it("stateFolder_deletedWhileRecording_isMadeAnew_andTheKnownFramesAreWritten", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0)]);
    remove(harness);
    await harness.send([at(1), at(20)]);
    const status = await harness.observer.stop();
    assert.equal(status.lastError, undefined);
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.deepEqual(harness.lines, ["at 0", "at 1", "at 20", "end of 3"]);
    for (const name of ["incoming", "pending", "trash"]) assert.deepEqual(harness.names(name), []);
  });

  it("stateFolder_deletedBetweenRecordings_isMadeAnew", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.observer.stop();
    remove(harness);
    await harness.observer.start();
    remove(harness);
    assert.equal((await harness.observer.stop()).lastError, undefined);
    await harness.observer.start();
    await harness.send([at(0)]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["end of 0", "end of 0", "at 0", "end of 1"]);
  });

  it("stateFolder_deletedWithWaitingChunks_saysSo_andHoldsUpNothing", async () => {
    const inferenceProvider = "google_vertex_ai";
    const harness = await ObserverHarness.open({ settings: { inferenceProvider } });
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    remove(harness);
    harness.observer.replaceSettings({ ...harness.settings.record, inferenceProvider: "ostrel" });
    const status = await harness.observer.stop();
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.equal(status.analysisBackfillBlocked, false);
    assert.match(status.lastError ?? "", /Chunk 1 was put aside: .*somebody has removed it/);
    assert.deepEqual(harness.lines, ["at 20", "end of 1"]);
  });
});
