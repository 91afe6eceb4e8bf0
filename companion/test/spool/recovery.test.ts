import assert from "node:assert/strict";
import { rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { systemFailure } from "../../src/base/failure.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { defaultSettings } from "../../src/wire/records.ts";
import { chatSettings, openModelHarness } from "../support/modelHarness.ts";
import { pass, record } from "../support/modelQueue.ts";
import type { Reply } from "../support/modelServer.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
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
    it(`chunk_kept_back_by_${code}_waitsUntilItCanBeRead`, async () => {
      const first = await waitingChunks(0, 20, 40);
      const { disk, refusal } = keepingBack(join(first.layout.chunk(2), "chunk.json"));
      refusal.code = code;
      const second = await ObserverHarness.open({ home: first.home, disk });
      await second.observer.settled();
      assert.deepEqual(second.names("quarantine"), []);
      assert.match(second.observer.status().lastError ?? "", /A waiting chunk can't be read yet/);
      assert.match(second.observer.status().analysisBackfillLastError ?? "", /The queue is stuck/);
      refusal.code = undefined;
      await pass(second, 5_000);
      assert.deepEqual(second.lines, ["at 0", "at 20", "at 40", "end of 3"]);
      await second.observer.close();
    });
  }

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

describe("a start behind many chunks", () => {
  it("waitingChunks_moreThanAreReadAtOnce_keepTheirOrder", async () => {
    const seconds = Array.from({ length: 75 }, (_, index) => index * 20);
    const first = await waitingChunks(...seconds);
    const second = await ObserverHarness.open({ home: first.home });
    await second.observer.settled();
    const expected = [...seconds.map((second) => `at ${second}`), "end of 75"];
    assert.deepEqual(second.lines, expected);
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
