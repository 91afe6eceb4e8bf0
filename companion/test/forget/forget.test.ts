import assert from "node:assert/strict";
import {
  mkdirSync,
  readdirSync,
  readFileSync,
  renameSync,
  statSync,
  symlinkSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import type { Analyst } from "../../src/engine/analyser.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { at, open, seconds, startMs } from "../support/forgetHarness.ts";

const asked = { analysisServerUrl: "http://127.0.0.1:9", model: "eyes" };

/** Answers when it is told to, with the texts of the frames. */
class SlowAnalyst implements Analyst {
  readonly asked: string[][] = [];
  answer: () => void = () => {};
  signal: AbortSignal | undefined;

  async analyse(...[, chunk, signal]: Parameters<Analyst["analyse"]>) {
    this.signal = signal;
    this.asked.push(chunk.frames.map(({ text }) => text ?? "-"));
    await new Promise<void>((resolve) => {
      this.answer = resolve;
    });
    const bullets = chunk.frames.map(({ receivedAtMs: atMs, text = "-" }) => ({ atMs, text }));
    return { bullets, remark: undefined };
  }

  preview(): never {
    throw new Error("nobody expected a preview");
  }

  async questions(count: number): Promise<void> {
    while (this.asked.length < count) await setImmediate();
  }
}

describe("forgetting", () => {
  it("waitingFramesOfThatTime_goWithTheirPicturesAndOthersStay", async () => {
    const { harness, pages } = await open({ isAnalysing: false });
    await harness.observer.start();
    await harness.send([at(0), at(5), at(9)]);
    await harness.send([at(20), at(25)]);
    const report = await harness.observer.forget(seconds(5, 20));
    assert.deepEqual(report, {
      frames: 3,
      rawInputs: 0,
      rawInputsUnknown: 0,
      journalLines: 0,
      archiveClips: 0,
      archiveFrames: 0,
      notSearched: undefined,
      archiveWaits: undefined,
    });
    const pictures = harness
      .names("pending")
      .flatMap((chunk) => harness.names("pending", chunk))
      .filter((name) => name.endsWith(".jpg"));
    assert.deepEqual(pictures, ["1-0.jpg", "2-1.jpg"]);
    harness.observer.beginAnalysis();
    await harness.observer.stop();
    assert.match(pages().join(), /at 0 .*\n.*at 25 /);
    assert.doesNotMatch(pages().join(), /at (5|9|20) /);
  });

  it("journalLines_goAndHandWrittenOnesStay", async () => {
    const { harness, outputDirectory, pages } = await open();
    await harness.observer.start();
    await harness.send([at(0), at(9), at(20)]);
    await harness.observer.stop();
    const [name = ""] = readdirSync(outputDirectory);
    writeFileSync(join(outputDirectory, name), `${pages()[0]}- [08:00] coffee\n`);
    const report = await harness.observer.forget(seconds(0, 19));
    assert.equal(report.journalLines, 2);
    assert.match(pages().join(), /at 20 [^\n]*\n[^\n]*end of 3 [^\n]*\n- \[08:00\] coffee\n$/);
    assert.doesNotMatch(pages().join(), /at (0|9) /);
  });

  it("dayOfNothingElse_hasNoFileAnyMore", async () => {
    const { harness, outputDirectory } = await open();
    await harness.observer.start();
    await harness.send([at(0)]);
    await harness.observer.stop();
    await harness.observer.forget({ fromMs: 0, toMs: startMs * 2 });
    assert.deepEqual(readdirSync(outputDirectory), []);
    await harness.observer.start();
    await harness.send([at(3 * 86_400)]);
    await harness.observer.stop();
  });

  it("linkedJournalFile_losesTheLinesWhereTheyAre", async () => {
    const { harness, outputDirectory } = await open();
    await harness.observer.start();
    await harness.send([at(0), at(20)]);
    await harness.observer.stop();
    const [name = ""] = readdirSync(outputDirectory);
    const elsewhere = join(harness.home, "elsewhere.md");
    renameSync(join(outputDirectory, name), elsewhere);
    symlinkSync(elsewhere, join(outputDirectory, name));
    await harness.observer.forget(seconds(0, 1));
    assert.doesNotMatch(readFileSync(elsewhere, "utf8"), /at 0 /);
    assert.equal(statSync(elsewhere).ino, statSync(join(outputDirectory, name)).ino);
  });

  it("answerThatIsOnItsWay_isNotWritten", async () => {
    const analyst = new SlowAnalyst();
    const { harness, pages } = await open({ analyst, settings: asked });
    await harness.observer.start();
    await harness.send([at(0), at(9)]);
    const stopped = harness.observer.stop();
    await analyst.questions(1);
    const forgotten = harness.observer.forget(seconds(0, 1));
    while (analyst.signal?.aborted !== true) await setImmediate();
    analyst.answer();
    assert.equal((await forgotten).frames, 1);
    await analyst.questions(2);
    assert.deepEqual(analyst.asked, [["at 0", "at 9"], ["at 9"]]);
    analyst.answer();
    await stopped;
    await harness.observer.settled();
    assert.match(pages().join(), /at 9 /);
    assert.doesNotMatch(pages().join(), /at 0 /);
  });

  it("answerThatWaitsForTheJournal_losesItsLines", async () => {
    let refuses = true;
    const lines: string[] = [];
    const { harness } = await open({
      appendToJournal: async (_, __, bullets) => {
        if (refuses) throw Object.assign(new Error("EACCES"), { code: "EACCES" });
        lines.push(...bullets.map(({ text }) => text));
      },
    });
    await harness.observer.start();
    await harness.send([at(0), at(5)]);
    await harness.observer.stop();
    await harness.observer.forget(seconds(0, 1));
    refuses = false;
    harness.clock.advance(600_000);
    await harness.observer.settled();
    assert.deepEqual(lines, ["at 5", "end of 2"]);
  });

  it("frameThatArrivesLate_goesToo", async () => {
    const { harness, pages } = await open();
    await harness.observer.start();
    await harness.observer.forget(seconds(0, 5));
    await harness.send([at(2), at(8)]);
    await harness.observer.stop();
    assert.match(pages().join(), /at 8 /);
    assert.doesNotMatch(pages().join(), /at 2 /);
  });

  it("timeThatIsStillToCome_takesNothingOfWhatIsRecordedThen", async () => {
    const { harness, pages } = await open();
    await harness.observer.start();
    await harness.send([at(90)]);
    await harness.observer.forget(seconds(80, 9_000));
    harness.clock.advance(60_000);
    await harness.send([at(99), at(101), at(150)]);
    await harness.observer.stop();
    assert.doesNotMatch(pages().join(), /at 9[09] /);
    assert.match(pages().join(), /at 101 [\s\S]*at 150 /);
  });

  it("requestsOfLater_whichQuoteTheJournal_goAndThoseBeforeStay", async () => {
    const { harness } = await open({ settings: { saveRawInputs: true } });
    await harness.observer.start();
    await harness.send([at(0), at(20), at(40)]);
    await harness.observer.stop();
    const raw = join(harness.home, "ostrel", "model-input");
    for (const id of ["1", "3"]) {
      writeFileSync(join(raw, id, "request.json"), "{}");
      writeFileSync(join(raw, id, "request.json.new"), "{");
    }
    assert.equal((await harness.observer.forget(seconds(20, 21))).rawInputs, 1);
    const kept = ["request.json", "request.json.new"];
    assert.deepEqual(
      readdirSync(join(raw, "1")).filter((name) => name.startsWith("request")),
      kept,
    );
    assert.deepEqual(readdirSync(join(raw, "3")).sort(), ["1-2.jpg", "1-2.txt", "time.json"]);
  });

  it("answers_thatNobodyWaitsFor_goToo", async () => {
    const { harness } = await open({ settings: asked, isAnalysing: false });
    await harness.observer.start();
    await harness.send([at(0), at(5), at(20), at(25)]);
    const { quarantine } = harness.layout;
    mkdirSync(quarantine);
    await harness.observer.close();
    const aside = join(quarantine, `chunk-1-${startMs}`);
    renameSync(harness.layout.chunk(1), aside);
    writeFileSync(join(aside, "result.json"), "half an ans");
    const half = join(harness.layout.chunk(2), "result.json.new");
    writeFileSync(half, "half an ans");
    const { harness: second } = await open({ home: harness.home, isAnalysing: false });
    await second.observer.forget(seconds(5, 20));
    assert.deepEqual(readdirSync(aside).sort(), ["1-0.jpg", "chunk.json"]);
    assert.deepEqual(readdirSync(harness.layout.chunk(2)).sort(), ["1-3.jpg", "chunk.json"]);
  });

  it("rawInputs_ofChunksOfThatTime_goAndOthersOfTheUserStay", async () => {
    const { harness } = await open({ settings: { saveRawInputs: true } });
    await harness.observer.start();
    await harness.send([at(0), at(9), at(20)]);
    await harness.observer.stop();
    const raw = join(harness.home, "ostrel", "model-input");
    mkdirSync(join(raw, "7"));
    mkdirSync(join(raw, "notes"));
    assert.deepEqual(readdirSync(raw).sort(), ["1", "2", "7", "notes"]);
    const report = await harness.observer.forget(seconds(5, 9));
    assert.deepEqual([report.rawInputs, report.rawInputsUnknown], [1, 1]);
    assert.deepEqual(readdirSync(raw).sort(), ["2", "7", "notes"]);
  });

  it("chunkThatWasPutAside_losesItsFrames", async () => {
    const { harness } = await open({ isAnalysing: false });
    await harness.observer.start();
    await harness.send([at(0), at(5)]);
    await harness.observer.close();
    const aside = join(harness.layout.quarantine, `chunk-1-${startMs}`);
    mkdirSync(harness.layout.quarantine);
    renameSync(harness.layout.chunk(1), aside);
    const { harness: second } = await open({ home: harness.home, isAnalysing: false });
    assert.equal((await second.observer.forget(seconds(0, 1))).frames, 1);
    assert.deepEqual(readdirSync(aside).sort(), ["1-1.jpg", "chunk.json"]);
    assert.doesNotMatch(readFileSync(join(aside, "chunk.json"), "utf8"), /at 0"/);
  });

  it("archiveOutOfReach_isSaidAndTriedAgainUntilItIsDone", async () => {
    const ranges: TimeRange[] = [];
    let reachable = false;
    const { harness } = await open({
      forgetInArchive: async (range) => {
        ranges.push(range);
        if (!reachable) throw new Error("The place can't be reached.");
        return { clips: 2, frames: 1 };
      },
    });
    const report = await harness.observer.forget(seconds(0, 9));
    assert.match(
      report.archiveWaits ?? "",
      /could not be removed .*: The place can't be reached\./,
    );
    assert.equal(harness.observer.status().lastError, report.archiveWaits);
    await harness.observer.close();

    reachable = true;
    const { harness: second } = await open({
      home: harness.home,
      forgetInArchive: async (range) => {
        ranges.push(range);
        return { clips: 2, frames: 1 };
      },
    });
    while (ranges.length < 2) await setImmediate();
    assert.deepEqual(ranges, [seconds(0, 9), seconds(0, 9)]);
    await setImmediate();
    assert.equal(second.observer.status().lastError, undefined);
  });

  it("journalThatRefuses_isToldAndTriedAgain", async () => {
    let refuses = true;
    let count = 0;
    const { harness } = await open({
      forgetInJournal: async () => {
        count += 1;
        if (refuses) throw Object.assign(new Error("EACCES"), { code: "EACCES", path: "/j" });
        return 1;
      },
    });
    await assert.rejects(harness.observer.forget(seconds(0, 9)));
    assert.match(harness.observer.status().lastError ?? "", /could not all be removed yet: Perm/);
    refuses = false;
    harness.clock.advance(10_000);
    while (harness.observer.status().lastError !== undefined) await setImmediate();
    assert.equal(count, 2);
  });
});
