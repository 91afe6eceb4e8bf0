import assert from "node:assert/strict";
import { mkdirSync, renameSync, rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { systemFailure } from "../../src/base/failure.ts";
import { Engine } from "../../src/engine/engine.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { recover } from "../../src/spool/recovery.ts";
import { defaultSettings } from "../../src/wire/records.ts";
import { chatSettings, openModelHarness } from "../support/modelHarness.ts";
import { pass, record } from "../support/modelQueue.ts";
import type { Reply } from "../support/modelServer.ts";
import { type HarnessOptions, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });
const nobodyToAsk = { inferenceProvider: "google_vertex_ai" };

/** A home in which a chunk waits for each of the times, since nobody could be asked. */
async function waitingChunks(...seconds: readonly number[]): Promise<ObserverHarness> {
  const harness = await ObserverHarness.open({ settings: nobodyToAsk });
  await harness.observer.start();
  await harness.send(seconds.map(at));
  await harness.observer.stop();
  await harness.observer.close();
  return harness;
}

/** The real disk, but for one file that it keeps back as long as `code` says why. */
function keepingBack(path: string) {
  const refusal: { code: string | undefined } = { code: undefined };
  const disk: Disk = {
    ...realDisk,
    async readText(file) {
      if (file === path && refusal.code !== undefined) throw systemFailure(refusal.code, file);
      return realDisk.readText(file);
    },
  };
  return { disk, refusal };
}

describe("a waiting chunk that the disk keeps back", () => {
  for (const code of ["EIO", "EACCES", "EMFILE"]) {
    it(`chunk_kept_back_by_${code}_waitsWithItsNeighboursAlone_andIsSaid`, async () => {
      const first = await waitingChunks(0, 20, 40, 60, 80);
      const { disk, refusal } = keepingBack(join(first.layout.chunk(3), "chunk.json"));
      refusal.code = code;
      const second = await ObserverHarness.open({ home: first.home, disk });
      await second.observer.settled();
      assert.deepEqual(second.names("quarantine"), []);
      // Of what lies next to it nobody knows whether it is private.
      assert.deepEqual(second.names("pending"), ["2", "3", "4"]);
      assert.deepEqual(second.lines, ["at 0", "at 80", "end of 2"]);
      const status = second.observer.status();
      assert.match(status.lastError ?? "", /A waiting chunk can't be read/);
      assert.match(status.analysisBackfillLastError ?? "", /A waiting chunk can't be read/);
      assert.equal(status.analysisBackfillBlocked, true);
      refusal.code = undefined;
      await pass(second, 5_000);
      assert.deepEqual(second.lines.slice(3), ["at 20", "at 40", "at 60"]);
      assert.equal(second.observer.status().analysisBackfillBlocked, false);
      assert.equal(second.observer.status().lastError, undefined);
      await second.observer.close();
    });
  }

  it("chunk_keptBackForLong_isTriedLessAndLessOften_andNewFramesAreAnalysed", async () => {
    const first = await waitingChunks(0);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EIO";
    const second = await ObserverHarness.open({ home: first.home, disk });
    await second.observer.settled();
    for (const seconds of [5, 10, 20, 40, 80, 160, 320, 600, 600]) {
      assert.equal(second.clock.nextDelayMs, seconds * 1_000);
      await pass(second, seconds * 1_000);
    }
    await second.observer.start();
    await second.send([at(5_000)]);
    await second.observer.stop();
    assert.deepEqual(second.lines, ["at 5000", "end of 1"]);
    refusal.code = undefined;
    await pass(second, 600_000);
    assert.deepEqual(second.lines.slice(2), ["at 0", "end of 1"]);
    assert.equal(second.observer.status().lastError, undefined);
    assert.equal(second.clock.timerCount, 0);
  });

  it("preview_ofAChunkThatIsKeptBack_saysWhyThereIsNone", async () => {
    const first = await waitingChunks(0);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EIO";
    const settings = chatSettings("http://127.0.0.1:9");
    const second = await ObserverHarness.open({
      home: first.home,
      disk,
      settings,
      isAnalysing: false,
    });
    const { reason } = await second.observer.preview(false);
    assert.match(reason ?? "", /^A waiting chunk can't be read: The disk could not be read/);
  });

  it("chunk_keptBack_isNotTakenForDoneOverRestarts", async () => {
    const first = await waitingChunks(0, 20);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EIO";
    for (let restart = 0; restart < 2; restart += 1) {
      const again = await ObserverHarness.open({ home: first.home, disk, settings: nobodyToAsk });
      assert.equal(again.observer.status().pendingAnalysisChunks, 2);
      await again.observer.close();
    }
    refusal.code = undefined;
    const last = await ObserverHarness.open({ home: first.home, disk });
    await last.observer.settled();
    assert.deepEqual(last.lines, ["at 0", "at 20", "end of 2"]);
  });

  it("forget_whileAChunkIsKeptBack_removesWhatItCanInTheOthers", async () => {
    const first = await waitingChunks(0, 20, 40);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EIO";
    const second = await ObserverHarness.open({ home: first.home, disk, settings: nobodyToAsk });
    const range = { fromMs: startMs, toMs: startMs + 40_000 };
    await assert.rejects(second.observer.forget(range), { code: "EIO" });
    for (const id of ["2", "3"]) {
      assert.deepEqual(
        second.names("pending", id).filter((name) => name.endsWith(".jpg")),
        [],
      );
    }
    await second.observer.close();
  });

  it("forget_whileAChunkIsKeptBack_isTriedLessAndLessOften", async () => {
    const first = await waitingChunks(0);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EIO";
    const second = await ObserverHarness.open({ home: first.home, disk, settings: nobodyToAsk });
    await assert.rejects(second.observer.forget({ fromMs: startMs, toMs: startMs + 1_000 }));
    assert.equal(second.names("pending", "1").includes("1-0.jpg"), true);
    let attempts = 0;
    const { whilePaused } = Engine.prototype;
    Engine.prototype.whilePaused = function counted(...task) {
      attempts += 1;
      return whilePaused.apply(this, task) as never;
    };
    try {
      for (let seconds = 0; seconds < 600; seconds += 10) {
        second.clock.advance(10_000);
        await second.observer.stop();
      }
    } finally {
      Engine.prototype.whilePaused = whilePaused;
    }
    // Each of them takes back a question that a model may be about to answer.
    assert.ok(attempts >= 4 && attempts <= 7, `${attempts} attempts`);
    refusal.code = undefined;
    second.clock.advance(600_000);
    await second.observer.stop();
    await second.observer.settled();
    assert.equal(second.names("pending", "1").includes("1-0.jpg"), false);
    assert.equal(second.lines.includes("at 0"), false);
    await second.observer.close();
  });

  it("forget_whileAChunkIsKeptBack_saysSoAndIsMadeUpForLater", async () => {
    const first = await waitingChunks(0, 20);
    const { disk, refusal } = keepingBack(join(first.layout.chunk(1), "chunk.json"));
    refusal.code = "EACCES";
    const second = await ObserverHarness.open({ home: first.home, disk, settings: nobodyToAsk });
    const range = { fromMs: startMs, toMs: startMs + 1_000 };
    await assert.rejects(second.observer.forget(range), { code: "EACCES" });
    await second.observer.close();
    refusal.code = undefined;
    const third = await ObserverHarness.open({ home: first.home, disk });
    await third.observer.settled();
    assert.deepEqual(third.lines, ["at 20", "end of 1"]);
  });
});

describe("a chunk that was being closed", () => {
  /** One of which a kill left the record, which can't be read; its frames are in their batches. */
  async function halfClosed(record: string) {
    const first = await ObserverHarness.open({ settings: nobodyToAsk });
    await first.observer.start();
    await first.send([at(0), at(2)]);
    const folder = `${first.layout.chunk(1)}.partial`;
    mkdirSync(folder);
    writeFileSync(join(folder, "chunk.json"), record);
    // One of the two pictures was under way already.
    renameSync(join(first.layout.batch(1), "1-0.jpg"), join(folder, "1-0.jpg"));
    return { first, path: join(folder, "chunk.json") };
  }

  for (const [name, code, record] of [
    ["thatTheDiskKeepsBack", "EIO", "{}"],
    ["thatIsDamaged", undefined, "{"],
  ] as const) {
    it(`record_${name}_startsAllTheSame_andLosesNeitherFrameNorPicture`, async () => {
      const { first, path } = await halfClosed(record);
      const { disk, refusal } = keepingBack(path);
      refusal.code = code;
      const second = await ObserverHarness.open({ home: first.home, disk, settings: nobodyToAsk });
      const [chunk = ""] = second.names("pending");
      const pictures = second.names("pending", chunk).filter((file) => file.endsWith(".jpg"));
      assert.deepEqual(pictures, ["1-0.jpg", "1-1.jpg"]);
      assert.match(second.observer.status().lastError ?? "", /ended unexpectedly/);
      second.observer.replaceSettings(defaultSettings);
      await second.observer.settled();
      assert.deepEqual(
        second.lines.filter((line) => line.startsWith("at")),
        ["at 0", "at 2"],
      );
    });
  }
});

describe("a batch of frames that can't be read", () => {
  /** Two batches that a kill left, the first of them partly in a chunk. */
  async function killedWithTwoBatches() {
    const first = await ObserverHarness.open({ settings: { ...nobodyToAsk, chunkSizeMs: 10_000 } });
    await first.observer.start();
    await first.send([at(0), at(4), at(20), at(22)]);
    await first.send([at(24), at(26)]);
    return first;
  }

  const options = { settings: { ...nobodyToAsk, chunkSizeMs: 10_000 } };
  const analysed = async (harness: ObserverHarness) => {
    harness.observer.replaceSettings({ ...defaultSettings, chunkSizeMs: 10_000 });
    await harness.observer.settled();
    return harness.lines.filter((line) => line.startsWith("at")).sort();
  };

  for (const code of ["EIO", "EACCES"]) {
    for (const batch of [1, 2]) {
      it(`batch_${batch}_keptBackBy_${code}_waitsOverRestarts_andIsAnalysedOnce`, async () => {
        const first = await killedWithTwoBatches();
        let held = join(first.layout.batch(batch), "frames.jsonl");
        const state = { isRefusing: true };
        const disk: Disk = {
          ...realDisk,
          async readText(path) {
            if (state.isRefusing && path === held) throw systemFailure(code, path);
            return realDisk.readText(path);
          },
          async move(from, to) {
            await realDisk.move(from, to);
            if (held.startsWith(`${from}/`)) held = join(to, "frames.jsonl");
          },
        };
        for (let restart = 0; restart < 3; restart += 1) {
          const again = await ObserverHarness.open({ ...options, home: first.home, disk });
          assert.deepEqual(again.names("quarantine"), []);
          assert.deepEqual(again.names("incoming"), []);
          await again.observer.close();
        }
        state.isRefusing = false;
        const last = await ObserverHarness.open({ ...options, home: first.home, disk });
        assert.deepEqual(await analysed(last), [
          "at 0",
          "at 20",
          "at 22",
          "at 24",
          "at 26",
          "at 4",
        ]);
        assert.deepEqual(last.names("pending"), []);
      });
    }
  }

  it("batch_keptBack_andKilledRightAfter_losesNoneOfTheBatchesBeforeIt", async () => {
    const first = await killedWithTwoBatches();
    const { layout } = first;
    const { disk, refusal } = keepingBack(join(layout.batch(2), "frames.jsonl"));
    refusal.code = "EIO";
    // The second batch has become a chunk, and then nothing more was done.
    const { leftovers } = await recover(disk, layout, startMs + 60_000);
    assert.equal(leftovers.frames.length, 2);
    const [held = ""] = first.names("pending").slice(-1);
    const second = keepingBack(join(layout.chunk(Number(held)), "frames.jsonl"));
    second.refusal.code = "EIO";
    const again = await ObserverHarness.open({ ...options, home: first.home, disk: second.disk });
    await again.observer.close();
    const last = await ObserverHarness.open({ ...options, home: first.home });
    const seconds = [0, 20, 22, 24, 26, 4];
    assert.deepEqual(
      await analysed(last),
      seconds.map((second) => `at ${second}`),
    );
  });

  it("batch_keptBack_doesNotHoldUpChunksOfLongBefore", async () => {
    const first = await ObserverHarness.open(options);
    await first.observer.start();
    await first.send([at(-200), at(-180), at(-160), at(-140)]);
    await first.send([at(-120)]);
    const held = join(first.layout.batch(2), "frames.jsonl");
    const disk: Disk = {
      ...realDisk,
      async readText(path) {
        const isInQueue = path.startsWith(first.layout.pending) && path.endsWith("frames.jsonl");
        if (path === held || isInQueue) throw systemFailure("EIO", path);
        return realDisk.readText(path);
      },
    };
    const settings = { chunkSizeMs: 10_000 };
    const second = await ObserverHarness.open({ home: first.home, disk, settings });
    await second.observer.settled();
    const early = second.lines.filter((line) => line.startsWith("at"));
    assert.deepEqual(early, ["at -200", "at -180", "at -160"]);
    assert.match(second.observer.status().lastError ?? "", /can't be read/);
    await second.observer.close();
  });

  it("batch_thatIsDamaged_isPutAside_andSaid", async () => {
    const first = await killedWithTwoBatches();
    writeFileSync(join(first.layout.batch(2), "frames.jsonl"), "{");
    const second = await ObserverHarness.open({ ...options, home: first.home });
    assert.equal(second.names("quarantine").length, 1);
    assert.deepEqual(await analysed(second), ["at 0", "at 20", "at 22", "at 4"]);
  });
});

describe("a start behind many chunks", () => {
  it("waitingChunks_moreThanAreReadAtOnce_keepTheirOrder", async () => {
    const seconds = Array.from({ length: 75 }, (_, index) => index * 20);
    const first = await waitingChunks(...seconds);
    const second = await ObserverHarness.open({ home: first.home });
    await second.observer.settled();
    const expected = [...seconds.map((second) => `at ${second}`), "end of 75"];
    assert.deepEqual(second.lines, expected);
  });

  /** An observer that has read one handful of 100 waiting chunks, and is kept from reading on. */
  async function recovering(fields: HarnessOptions = {}) {
    const seconds = Array.from({ length: 100 }, (_, index) => index * 20);
    const first = await waitingChunks(...seconds);
    let read = 0;
    let letGo = () => {};
    const held = new Promise<void>((resolve) => {
      letGo = resolve;
    });
    const disk: Disk = {
      ...realDisk,
      async readText(path) {
        read += Number(path.endsWith("chunk.json"));
        if (read > 8) await held;
        return realDisk.readText(path);
      },
    };
    const { home } = first;
    const second = await ObserverHarness.open({ home, disk, readAtOnce: 1, ...fields });
    return { second, seconds, letGo };
  }

  it("frames_areTakenWhileTheRestIsLookedThrough_andTheStatusSaysSo", async () => {
    const { second, seconds, letGo } = await recovering();
    const before = second.observer.status();
    assert.equal(before.pendingAnalysisChunks, 100);
    assert.equal(
      before.lastAction,
      "Recovering: 92 of 100 waiting chunks have to be looked through.",
    );
    await second.observer.start();
    const status = await second.send([at(5_000), at(5_030)]);
    assert.equal(status.running, true);
    assert.deepEqual(second.lines, []);
    letGo();
    await second.observer.stop();
    assert.deepEqual(second.lines.slice(0, 101), [
      ...seconds.map((second) => `at ${second}`),
      "end of 100",
    ]);
    assert.deepEqual(second.lines.slice(101), ["at 5000", "at 5030", "end of 2"]);
    assert.equal(second.observer.status().lastAction, "Wrote 2 journal lines.");
  });

  it("forget_whileTheRestIsLookedThrough_waitsForIt_andLeavesNothing", async () => {
    const { second, letGo } = await recovering({ settings: nobodyToAsk });
    const forgetting = second.observer.forget({ fromMs: startMs, toMs: startMs + 25_000 });
    letGo();
    assert.equal((await forgetting).frames, 2);
    second.observer.replaceSettings(defaultSettings);
    await second.observer.settled();
    assert.equal(second.lines[0], "at 40");
  });

  it("close_whileTheRestIsLookedThrough_losesNothing", async () => {
    const { second, seconds, letGo } = await recovering();
    const closing = second.observer.close();
    letGo();
    await closing;
    assert.deepEqual(second.lines, []);
    const third = await ObserverHarness.open({ home: second.home });
    await third.observer.settled();
    assert.equal(third.lines.length, seconds.length + 1);
  });
});

describe("an answer that a kill left", () => {
  /** Two chunks of a model, the older answered and not yet written. */
  async function answeredAndKilled() {
    const home = (await waitingChunks(0, 20)).home;
    const layout = (await ObserverHarness.open({ home, isAnalysing: false })).layout;
    const bullets = [{ key: "1-1-0", atMs: startMs, text: "answered" }];
    const result = join(layout.chunk(1), "result.json");
    writeFileSync(result, JSON.stringify({ version: 1, bullets }));
    return { home, result };
  }

  it("storedAnswer_afterARestart_waitsForNoProvider", async () => {
    const { home } = await answeredAndKilled();
    const again = await ObserverHarness.open({ home, settings: nobodyToAsk });
    await again.observer.settled();
    assert.deepEqual(again.lines, ["answered"]);
    assert.equal(again.observer.status().pendingAnalysisChunks, 1);
  });

  it("storedAnswer_thatSomebodyDeleted_losesNoFrame", async () => {
    const { home, result } = await answeredAndKilled();
    const again = await ObserverHarness.open({ home, settings: nobodyToAsk, isAnalysing: false });
    rmSync(result);
    again.observer.beginAnalysis();
    await again.observer.settled();
    assert.deepEqual(again.lines, []);
    again.observer.replaceSettings(defaultSettings);
    await again.observer.settled();
    assert.deepEqual(again.lines, ["at 0", "at 20", "end of 2"]);
  });
});

describe("a damaged count of refusals", () => {
  for (const text of ["", "{", '{"version":1,"count":-1}', '{"version":2,"count":1}']) {
    it(`refusals_thatSay_${text || "nothing"}_countAsNone`, async (test) => {
      const bad: Reply = { status: 400, body: { error: { message: "unable to process" } } };
      const { server, harness } = await record(test, [bad]);
      await harness.observer.stop();
      await harness.observer.close();
      writeFileSync(join(harness.layout.chunk(1), "refusals.json"), text);
      const settings = chatSettings(server.origin);
      server.reply(bad);
      const second = await openModelHarness({ home: harness.home, settings });
      await second.observer.settled();
      assert.match(second.observer.status().analysisBackfillLastError ?? "", /unable to process/);
      for (let refusal = 1; refusal < 3; refusal += 1) {
        assert.equal(second.names("quarantine").length, 0);
        server.reply(bad);
        await pass(second, 10_000);
      }
      assert.equal(second.names("quarantine").length, 1);
    });
  }
});
