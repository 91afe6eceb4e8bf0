import assert from "node:assert/strict";
import { readFileSync, rmSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import { JsonError } from "../../src/json/tokenizer.ts";
import { NotRecording, ShuttingDown } from "../../src/observer/errors.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { InvalidRecord } from "../../src/wire/schema.ts";
import { ManualClock } from "../support/manualClock.ts";
import { body, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

function systemError(code: string): Error {
  return Object.assign(new Error(`${code}: no`), { code });
}

/** A disk that refuses to make files while `isFull`. */
function fillableDisk(): { disk: Disk; state: { isFull: boolean } } {
  const state = { isFull: false };
  const refuse = () => {
    if (state.isFull) throw systemError("ENOSPC");
  };
  const disk: Disk = {
    ...realDisk,
    async createFile(path) {
      refuse();
      const file = await realDisk.createFile(path);
      return {
        ...file,
        async write(bytes) {
          refuse();
          await file.write(bytes);
        },
      };
    },
    async replaceFile(path, text) {
      refuse();
      await realDisk.replaceFile(path, text);
    },
  };
  return { disk, state };
}

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

describe("frames", () => {
  it("frames_withoutSession_areRefusedAndNotKept", async () => {
    const harness = await ObserverHarness.open();
    await assert.rejects(harness.send([at(0)]), NotRecording);
    await harness.observer.start();
    await harness.observer.stop();
    await assert.rejects(harness.send([at(0)]), NotRecording);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("frames_areOnTheDiskAndSyncedBeforeTheAnswer", async () => {
    const steps: string[] = [];
    const name = (path: string) => path.slice(path.indexOf("/observer/") + "/observer/".length);
    const disk: Disk = {
      ...realDisk,
      async createFile(path) {
        steps.push(`create ${name(path)}`);
        const file = await realDisk.createFile(path);
        return {
          ...file,
          async finish() {
            await file.finish();
            steps.push(`synced ${name(path)}`);
          },
        };
      },
      async syncFolder(path) {
        await realDisk.syncFolder(path);
        steps.push(`synced ${name(path)}`);
      },
      async move(from, to) {
        await realDisk.move(from, to);
        steps.push(`moved ${name(to)}`);
      },
    };
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    steps.length = 0;
    await harness.send([at(0), at(2)]);
    assert.deepEqual(steps, [
      "create incoming/1.partial/frames.jsonl",
      "create incoming/1.partial/picture",
      "create incoming/1.partial/picture",
      "synced incoming/1.partial/picture",
      "synced incoming/1.partial/picture",
      "synced incoming/1.partial/frames.jsonl",
      "synced incoming/1.partial",
      "moved incoming/1",
    ]);
    assert.deepEqual(harness.names("incoming", "1"), ["1-0.jpg", "1-1.jpg", "frames.jsonl"]);
    const picture = readFileSync(join(harness.layout.batch(1), "1-0.jpg")).toString("base64");
    assert.equal(picture, at(0).videoBase64);
  });

  it("batch_empty_isAcceptedAndLeavesNothing", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([]);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("batch_frameWithoutPicture_keepsItsText", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([{ ...at(0), videoBase64: "" }]);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  const text = JSON.stringify({ frames: [at(0), at(2), at(4)] });
  const damaged: readonly (readonly [string, string, typeof JsonError | typeof InvalidRecord])[] = [
    ["cutOffInTheMiddle", text.slice(0, text.length / 2), JsonError],
    ["noJsonHalfWay", text.replace('"at 4"', "at 4"), JsonError],
    ["noRecordHalfWay", text.replace('"at 4"', "4"), InvalidRecord],
    ["noBase64HalfWay", text.replace(/\/9j(?!.*\/9j)/, "/9?"), InvalidRecord],
    ["noDateHalfWay", text.replace(`${startMs + 4000}`, "9223372036854775807"), InvalidRecord],
    ["timeBefore1970", text.replace(`${startMs + 4000}`, "-1"), InvalidRecord],
  ];
  for (const [name, damagedText, errorType] of damaged) {
    it(`batch_${name}_isRemovedWhole`, async () => {
      const harness = await ObserverHarness.open();
      await harness.observer.start();
      for (const pieceBytes of [10, 100_000]) {
        const received = harness.observer.receiveFrames(body(damagedText, pieceBytes));
        await assert.rejects(received, errorType);
        assert.deepEqual(harness.names("incoming"), []);
      }
      await harness.send([at(6)]);
      await harness.observer.stop();
      assert.deepEqual(harness.lines, ["at 6", "end of 1"]);
    });
  }

  it("batch_senderGoesAwayInTheMiddle_isRemovedWhole", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    async function* brokenBody() {
      yield Buffer.from(text.slice(0, text.length - 20));
      throw new Error("gone");
    }
    await assert.rejects(harness.observer.receiveFrames(brokenBody()), /gone/);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("batch_second_waitsItsTurn", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    let letGo = () => {};
    const gate = new Promise<void>((resolve) => {
      letGo = resolve;
    });
    const seen: string[] = [];
    async function* firstBody() {
      seen.push("first begins");
      yield Buffer.from(text.slice(0, 40));
      await gate;
      yield Buffer.from(text.slice(40));
      seen.push("first ends");
    }
    async function* secondBody() {
      seen.push("second begins");
      yield Buffer.from(JSON.stringify({ frames: [at(6)] }));
    }
    const first = harness.observer.receiveFrames(firstBody());
    const second = harness.observer.receiveFrames(secondBody());
    const stop = harness.observer.stop();
    letGo();
    await Promise.all([first, second, stop]);
    assert.deepEqual(seen, ["first begins", "first ends", "second begins"]);
    assert.deepEqual(harness.lines, ["at 0", "at 2", "at 4", "at 6", "end of 4"]);
  });

  it("batch_onAFullDisk_isRemovedWholeAndSaysSo", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    async function* bodyThatFillsTheDisk() {
      const half = text.indexOf('"at 2"');
      yield Buffer.from(text.slice(0, half));
      state.isFull = true;
      yield Buffer.from(text.slice(half));
    }
    await assert.rejects(harness.observer.receiveFrames(bodyThatFillsTheDisk()), /ENOSPC/);
    assert.deepEqual(harness.names("incoming"), []);
    assert.equal(
      harness.observer.status().lastError,
      "The frames can't be kept: The disk is full. Delete some files on that disk to make room.",
    );
    state.isFull = false;
    assert.equal((await harness.send([at(6)])).lastError, undefined);
    await harness.observer.stop();
    const gap = "[Ostrel] Gap: 08:33:20 to 08:33:26, the disk was full";
    assert.deepEqual(harness.lines, [gap, "at 6", "end of 1"]);
  });

  it("batch_thatCannotEvenBegin_leavesNothing", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    state.isFull = true;
    await assert.rejects(harness.send([at(0)]), /ENOSPC/);
    assert.deepEqual(harness.names("incoming"), []);
  });

  it("status_neverTouchesTheDisk", async () => {
    const state = { isForbidden: false };
    const disk = new Proxy(realDisk, {
      get(target, name, receiver) {
        assert.equal(state.isForbidden, false, String(name));
        return Reflect.get(target, name, receiver);
      },
    });
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    await harness.send([at(0)]);
    state.isForbidden = true;
    assert.equal(harness.observer.status().running, true);
    state.isForbidden = false;
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

describe("chunks", () => {
  /** The texts of each chunk that frames at these seconds make, the stop's included. */
  async function chunksOf(
    seconds: readonly number[],
    chunkSizeMs: number | bigint = 20_000,
  ): Promise<string[][]> {
    const harness = await ObserverHarness.open({ settings: { chunkSizeMs } });
    await harness.observer.start();
    await harness.send(seconds.map(at));
    await harness.observer.stop();
    return harness.journal.map((call) => call.bullets.map((bullet) => bullet.text));
  }

  it("chunk_closesEveryChunkSizeOfFrameTime", async () => {
    assert.deepEqual(await chunksOf([0, 10, 19.999, 20, 39, 40]), [
      ["at 0", "at 10", "at 19.999"],
      ["at 20", "at 39"],
      ["at 40", "end of 6"],
    ]);
  });

  it("chunk_stepBackwards_closesIt", async () => {
    assert.deepEqual(await chunksOf([10, 11, 5, 6]), [
      ["at 10", "at 11"],
      ["at 5", "at 6", "end of 4"],
    ]);
  });

  it("chunk_gapAboveAMinute_closesIt", async () => {
    assert.deepEqual(await chunksOf([0, 60, 120.001], 1_000_000), [
      ["at 0", "at 60"],
      ["at 120.001", "end of 3"],
    ]);
  });

  it("chunk_sizeWithoutSense_stillMakesChunks", async () => {
    for (const size of [0, -5, -(2n ** 63n)]) {
      assert.deepEqual(await chunksOf([0, 19, 20], size), [
        ["at 0", "at 19"],
        ["at 20", "end of 3"],
      ]);
    }
    for (const size of [1, 5_000]) {
      assert.deepEqual(await chunksOf([0, 4, 5], size), [
        ["at 0", "at 4"],
        ["at 5", "end of 3"],
      ]);
    }
    assert.deepEqual(await chunksOf([0, 1], 2n ** 63n - 1n), [["at 0", "at 1", "end of 2"]]);
  });

  it("chunk_closing_isToldInTheStatus", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    const open = await harness.send([at(0)]);
    assert.equal(open.chunkIndex, 0);
    assert.equal(open.lastChunkAt, undefined);
    const closed = await harness.send([at(20), at(40)]);
    assert.equal(closed.chunkIndex, 2);
    assert.match(closed.lastChunkAt ?? "", /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d$/);
  });

  it("chunk_screenThatStaysAsItIs_closesItByTheClock", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0)]);
    assert.equal(harness.clock.nextDelayMs, 40_000);
    harness.clock.advance(40_000);
    await harness.send([]);
    assert.equal(harness.observer.status().chunkIndex, 1);
    assert.equal(harness.clock.timerCount, 0);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  it("chunk_thatCannotBeClosed_isClosedWithTheNextBatch", async () => {
    const { disk, state } = fillableDisk();
    const harness = await ObserverHarness.open({ disk });
    await harness.observer.start();
    const fullAfterwards: Disk["move"] = disk.move;
    disk.move = async (from, to) => {
      await fullAfterwards(from, to);
      state.isFull = to.includes("incoming");
    };
    const answer = await harness.send([at(0), at(20)]);
    assert.equal(
      answer.lastError,
      "A chunk can't be closed: The disk is full. Delete some files on that disk to make room.",
    );
    disk.move = fullAfterwards;
    state.isFull = false;
    assert.equal((await harness.send([at(21)])).lastError, undefined);
    await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "at 20", "at 21", "end of 3"]);
  });
});
