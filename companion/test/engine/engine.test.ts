import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { asAnalyser } from "../../src/engine/analyser.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { defaultSettings, type ObserverSettings } from "../../src/wire/records.ts";
import { echoAnalyser, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload, tinyPicture } from "../support/payloads.ts";

const startMs = 1_795_250_000_000;
const at = (seconds: number) => framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

const vertex = { ...defaultSettings, inferenceProvider: "google_vertex_ai" };

describe("providers that can't be asked", () => {
  const cases: readonly (readonly [string, Partial<ObserverSettings>, RegExp])[] = [
    ["vertexWithoutAKey", { inferenceProvider: "google_vertex_ai" }, /API key is not configured/],
    ["defaultServerWithAToken", { analysisApiToken: "t" }, /no managed analysis server yet/],
    ["serverThatIsNoUrl", { analysisServerUrl: "no url" }, /"no url" is not a URL/],
    ["serverOpenlyInTheNet", { analysisServerUrl: "http://ai.example.org" }, /travel openly/],
    ["unheardOf", { inferenceProvider: "oracle" }, /the provider "oracle"/],
  ];
  for (const [name, settings, reason] of cases) {
    it(`provider_${name}_blocksTheQueueAndSaysWhy`, async () => {
      const harness = await ObserverHarness.open({ settings });
      await harness.observer.start();
      await harness.send([at(0), at(20)]);
      const status = await harness.observer.stop();
      assert.equal(status.pendingAnalysisChunks, 2);
      assert.equal(status.analysisBackfillBlocked, true);
      assert.equal(status.analysisBackfillActive, false);
      assert.match(status.analysisBackfillLastError ?? "", reason);
      assert.equal(status.lastError, undefined);
      assert.deepEqual(harness.lines, []);
      assert.deepEqual(harness.names("pending"), ["1", "2"]);
    });
  }

  it("provider_defaultServerWithASlash_isTheBuiltInOne", async () => {
    const analysisServerUrl = `${defaultSettings.analysisServerUrl}/`;
    const harness = await ObserverHarness.open({ settings: { analysisServerUrl } });
    await harness.observer.start();
    assert.equal((await harness.observer.stop()).analysisBackfillBlocked, false);
    assert.deepEqual(harness.lines, ["end of 0"]);
  });

  it("provider_changedToTheBuiltInOne_worksOffTheQueueInOrder", async () => {
    const harness = await ObserverHarness.open({ settings: vertex });
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    await harness.observer.stop();
    harness.observer.replaceSettings(defaultSettings);
    const status = await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "at 20", "end of 2"]);
    assert.equal(status.analysisBackfillBlocked, false);
    assert.equal(status.analysisBackfillLastError, undefined);
    assert.deepEqual(harness.names("pending"), []);
  });

  it("provider_blockedAcrossARestart_losesNothing", async () => {
    const first = await ObserverHarness.open({ settings: vertex });
    await first.observer.start();
    await first.send([at(0), at(20), at(21)]);
    await first.observer.stop();
    const second = await ObserverHarness.open({ home: first.home, settings: vertex });
    assert.equal((await second.observer.stop()).pendingAnalysisChunks, 2);
    const third = await ObserverHarness.open({ home: first.home });
    await third.observer.stop();
    assert.deepEqual(third.lines, ["at 0", "at 20", "at 21", "end of 3"]);
  });

  it("analysis_beforeItMayBegin_waits", async () => {
    const first = await ObserverHarness.open({ settings: vertex });
    await first.observer.start();
    await first.send([at(0)]);
    await first.observer.stop();
    // A token that is still on its way must not find its chunks analysed by another.
    const second = await ObserverHarness.open({ home: first.home, isAnalysing: false });
    assert.equal(second.observer.status().pendingAnalysisChunks, 1);
    second.observer.applySecrets({ analysisApiToken: " token\n", byokGoogleVertexApiKey: "" });
    second.observer.beginAnalysis();
    assert.equal((await second.observer.stop()).analysisBackfillBlocked, true);
    assert.deepEqual(second.lines, []);
  });
});

describe("a stored result", () => {
  it("result_foundAfterAKill_isDurableBeforeItsLinesAreWritten", async () => {
    const steps: string[] = [];
    const appendToJournal = async () => {
      steps.push("append");
      throw new Error("killed");
    };
    const first = await ObserverHarness.open({ appendToJournal });
    await first.observer.start();
    await first.send([at(0)]);
    await first.observer.stop();
    assert.deepEqual(first.names("pending", "1"), ["1-0.jpg", "chunk.json", "result.json"]);
    steps.length = 0;
    const disk: Disk = {
      ...realDisk,
      async syncFolder(path) {
        await realDisk.syncFolder(path);
        if (path === first.layout.chunk(1)) steps.push("sync");
      },
    };
    const second = await ObserverHarness.open({ home: first.home, disk, appendToJournal });
    await second.observer.stop();
    assert.deepEqual(steps, ["sync", "append"]);
  });
});

describe("journal", () => {
  it("journal_thatCannotBeWritten_blocksAndIsTriedAgain", async () => {
    let isBroken = true;
    const written: string[] = [];
    const harness = await ObserverHarness.open({
      async appendToJournal(directory, _, bullets) {
        const code = { code: "EACCES", path: directory };
        if (isBroken) throw Object.assign(new Error("EACCES"), code);
        written.push(...bullets.map((bullet) => bullet.text));
      },
    });
    await harness.observer.start();
    await harness.send([at(0)]);
    const status = await harness.observer.stop();
    assert.equal(status.analysisBackfillBlocked, true);
    const directory = join(harness.home, "ostrel/journal");
    assert.equal(
      status.analysisBackfillLastError,
      `The journal can't be written: Permission denied: ${directory}. Allow yourself to write there.`,
    );
    assert.equal(harness.clock.nextDelayMs, 5_000);
    for (const delayMs of [10_000, 20_000, 40_000, 80_000, 160_000, 320_000, 600_000, 600_000]) {
      harness.clock.advance(harness.clock.nextDelayMs ?? 0);
      await harness.observer.stop();
      assert.equal(harness.clock.nextDelayMs, delayMs);
    }
    isBroken = false;
    harness.clock.advance(600_000);
    assert.equal((await harness.observer.stop()).analysisBackfillBlocked, false);
    assert.deepEqual(written, ["at 0", "end of 1"]);
    assert.equal(harness.clock.timerCount, 0);
  });

  it("journal_directory_isTheOneInUse", async () => {
    const harness = await ObserverHarness.open();
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    await harness.send([]);
    harness.observer.replaceSettings({ ...defaultSettings, outputDirectory: "/elsewhere" });
    await harness.observer.stop();
    assert.equal(harness.journal.at(-1)?.directory, "/elsewhere");
  });
});

describe("directories", () => {
  for (const directory of ["journal", "", "./journal", "~jane/journal"]) {
    it(`directory_thatIsNotAbsolute_isRefused: "${directory}"`, async () => {
      const harness = await ObserverHarness.open({
        settings: { outputDirectory: directory, rawInputDirectory: directory, saveRawInputs: true },
      });
      await harness.observer.start();
      await harness.send([at(0)]);
      const status = await harness.observer.stop();
      assert.equal(
        status.analysisBackfillLastError,
        `The journal can't be written: "${directory}" is not an absolute path.`,
      );
      assert.equal(
        status.lastError,
        `The model inputs can't be kept: "${directory}" is not an absolute path.`,
      );
      assert.deepEqual(harness.lines, []);
      harness.observer.replaceSettings(defaultSettings);
      await harness.observer.stop();
      assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
    });
  }
});

describe("chunks that can't be analysed", () => {
  const fastidious = asAnalyser<unknown>("fastidious", {
    initialState: () => ({}),
    parseState: (json) => json,
    analyseChunk: (state, frames) => {
      if (frames.some((frame) => frame.text === "at 0")) throw new Error("unheard of");
      return { state, bullets: [{ atMs: startMs, text: `${frames.length}` }] };
    },
    finishSession: (state) => ({ state, bullets: [] }),
  });

  it("chunk_thatTheAnalyserCannotBear_isPutAsideAndKept", async () => {
    const harness = await ObserverHarness.open({ analyser: fastidious });
    await harness.observer.start();
    await harness.send([at(0), at(20), at(21)]);
    const status = await harness.observer.stop();
    assert.deepEqual(harness.lines, ["2"]);
    assert.equal(status.pendingAnalysisChunks, 0);
    assert.equal(status.lastError, "Chunk 1 was put aside: could not analyse it (unheard of).");
    const [name = ""] = harness.names("quarantine");
    assert.deepEqual(harness.names("quarantine", name), ["1-0.jpg", "chunk.json"]);
  });

  it("chunk_damagedOnTheDisk_isPutAside", async () => {
    const first = await ObserverHarness.open({ settings: vertex });
    await first.observer.start();
    await first.send([at(0), at(20)]);
    await first.observer.stop();
    writeFileSync(join(first.layout.chunk(1), "chunk.json"), "{");
    const second = await ObserverHarness.open({ home: first.home });
    const status = await second.observer.stop();
    assert.deepEqual(second.lines, ["at 20", "end of 1"]);
    assert.match(status.lastError ?? "", /Could not read a waiting chunk/);
    assert.equal(second.names("quarantine").length, 1);
  });

  it("batch_damagedOnTheDisk_isPutAside", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.send([at(0)]);
    await first.send([at(1)]);
    writeFileSync(join(first.layout.batch(1), "frames.jsonl"), "nonsense");
    const second = await ObserverHarness.open({ home: first.home });
    const status = await second.observer.stop();
    const gap = "[Ostrel] Gap: after 08:33:21, the observer ended unexpectedly";
    assert.deepEqual(second.lines, ["at 1", gap, "end of 1"]);
    assert.match(status.lastError ?? "", /ended unexpectedly/);
    const started = await second.observer.start();
    assert.equal(started.lastError, undefined);
    assert.equal(second.names("quarantine").length, 1);
  });

  it("queueState_damaged_countsOnFromTheClock", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.send([at(0)]);
    await first.observer.stop();
    writeFileSync(first.layout.stateFile, "{}");
    const second = await ObserverHarness.open({ home: first.home });
    assert.match(second.observer.status().lastError ?? "", /the state of the queue/);
    await second.observer.start();
    await second.send([at(100)]);
    await second.observer.stop();
    const [bullet] = second.journal.flatMap((call) => call.bullets);
    assert.match(bullet?.key ?? "", /^\d+-1795250000-0$/);
  });

  it("analyserState_ofAnotherForm_startsAnew", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.observer.stop();
    const state = readFileSync(first.layout.stateFile, "utf8");
    writeFileSync(first.layout.stateFile, state.replace('"frames":0', '"frames":"many"'));
    const second = await ObserverHarness.open({ home: first.home });
    await second.observer.start();
    await second.send([at(0)]);
    const status = await second.observer.stop();
    assert.deepEqual(second.lines, ["at 0", "end of 1"]);
    assert.match(status.lastError ?? "", /it starts anew/);
  });

  it("analyserState_ofAnotherAnalyser_isKeptForIt", async () => {
    const first = await ObserverHarness.open();
    await first.observer.start();
    await first.observer.stop();
    const second = await ObserverHarness.open({ home: first.home, analyser: fastidious });
    await second.observer.start();
    await second.observer.stop();
    const state = JSON.parse(readFileSync(first.layout.stateFile, "utf8")) as {
      state: Record<string, unknown>;
    };
    assert.deepEqual(Object.keys(state.state), [echoAnalyser.name, "fastidious"]);
  });
});

describe("raw inputs", () => {
  const settings = { saveRawInputs: true };

  it("rawInputs_wanted_areTextsAndPicturesOfEachChunk", async () => {
    const harness = await ObserverHarness.open({ settings });
    await harness.observer.start();
    await harness.send([at(0), { ...at(1), text: undefined }]);
    await harness.observer.stop();
    const folder = join(harness.home, "ostrel/model-input/1");
    assert.equal(readFileSync(join(folder, "1-0.txt"), "utf8"), "at 0");
    for (const name of ["1-0.jpg", "1-1.jpg"]) {
      assert.equal(readFileSync(join(folder, name)).toString("base64"), tinyPicture);
    }
    assert.throws(() => readFileSync(join(folder, "1-1.txt")), /ENOENT/);
  });

  it("rawInputs_thatCannotBeKept_holdUpNothing", async () => {
    const rawInputDirectory = "/proc/none";
    const harness = await ObserverHarness.open({
      settings: { ...settings, rawInputDirectory },
    });
    await harness.observer.start();
    await harness.send([at(0)]);
    const status = await harness.observer.stop();
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
    assert.match(status.lastError ?? "", /^The model inputs can't be kept: /);
  });
});

describe("quota", () => {
  const pictureBytes = Buffer.from(tinyPicture, "base64").length;
  const frames = [0, 1, 2, 3, 20, 21, 22, 40].map(at);
  const pictures = (harness: ObserverHarness, id: string) =>
    harness.names("pending", id).filter((name) => name.endsWith(".jpg"));

  it("quota_exceeded_thinsTheOldestToFirstAndLast", async () => {
    const harness = await ObserverHarness.open({
      settings: vertex,
      quotaBytes: () => 6 * pictureBytes,
    });
    await harness.observer.start();
    const status = await harness.send(frames);
    assert.deepEqual(pictures(harness, "1"), ["1-0.jpg", "1-3.jpg"]);
    assert.deepEqual(pictures(harness, "2"), ["1-4.jpg", "1-5.jpg", "1-6.jpg"]);
    assert.match(status.lastError ?? "", /pictures of 1 waiting chunk were removed/);
  });

  it("quota_farExceeded_keepsTheTexts", async () => {
    const harness = await ObserverHarness.open({ settings: vertex, quotaBytes: () => 0 });
    await harness.observer.start();
    const status = await harness.send(frames);
    assert.deepEqual(pictures(harness, "1"), []);
    assert.deepEqual(pictures(harness, "2"), []);
    assert.match(status.lastError ?? "", /pictures of 3 waiting chunks were removed/);
    harness.observer.replaceSettings(defaultSettings);
    await harness.observer.stop();
    assert.equal(harness.lines.length, frames.length + 1);
  });

  it("quota_eachDisplay_keepsItsOwnFirstAndLast", async () => {
    const both = [0, 1, 2].flatMap((second) => [at(second), { ...at(second), displayId: "2" }]);
    const harness = await ObserverHarness.open({
      settings: vertex,
      quotaBytes: () => 5 * pictureBytes,
    });
    await harness.observer.start();
    await harness.send([...both, at(20)]);
    assert.deepEqual(pictures(harness, "1"), ["1-0.jpg", "1-1.jpg", "1-4.jpg", "1-5.jpg"]);
  });

  it("quota_afterARestart_countsWhatIsThere", async () => {
    const first = await ObserverHarness.open({
      settings: vertex,
      quotaBytes: () => 6 * pictureBytes,
    });
    await first.observer.start();
    await first.send(frames);
    const second = await ObserverHarness.open({
      home: first.home,
      settings: vertex,
      quotaBytes: () => 8 * pictureBytes,
    });
    await second.observer.start();
    await second.send([at(100)]);
    assert.deepEqual(pictures(second, "2"), ["1-4.jpg", "1-5.jpg", "1-6.jpg"]);
    await second.send([at(120), at(140)]);
    assert.deepEqual(pictures(second, "2"), ["1-4.jpg", "1-6.jpg"]);
  });

  it("quota_exceededWithinOneChunk_thinsThatChunk", async () => {
    const harness = await ObserverHarness.open({
      settings: { ...vertex, chunkSizeMs: 3_600_000 },
      quotaBytes: () => 5 * pictureBytes,
    });
    await harness.observer.start();
    await harness.send(frames.slice(0, 5));
    assert.deepEqual(harness.names("pending"), []);
    await harness.send([at(23)]);
    assert.deepEqual(pictures(harness, "1"), ["1-0.jpg", "2-0.jpg"]);
  });

  it("quota_ofADiskThatHasFilledUp_isKeptBeforeTheNextRecording", async () => {
    const first = await ObserverHarness.open({ settings: vertex });
    await first.observer.start();
    await first.send(frames);
    const second = await ObserverHarness.open({
      home: first.home,
      settings: vertex,
      quotaBytes: () => 0,
    });
    const status = await second.observer.start();
    assert.deepEqual(pictures(second, "1"), []);
    assert.match(status.lastError ?? "", /pictures of 3 waiting chunks were removed/);
  });

  it("quota_isGivenWhatWouldBeFreeWithoutThePictures", async () => {
    const given: number[] = [];
    const harness = await ObserverHarness.open({
      settings: vertex,
      quotaBytes: (free) => {
        given.push(free);
        return free;
      },
    });
    await harness.observer.start();
    await harness.send(frames);
    assert.ok((given[0] ?? 0) > 7 * pictureBytes);
  });
});
