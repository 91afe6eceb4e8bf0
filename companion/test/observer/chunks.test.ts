import assert from "node:assert/strict";
import { describe, it } from "node:test";
import type { Disk } from "../../src/spool/disk.ts";
import { fillableDisk } from "../support/fillableDisk.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

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
