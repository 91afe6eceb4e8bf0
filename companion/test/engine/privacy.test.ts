import assert from "node:assert/strict";
import { existsSync, readdirSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { systemFailure } from "../../src/base/failure.ts";
import type { Analyst } from "../../src/engine/analyser.ts";
import { PrivacyFile } from "../../src/privacy/privacyFile.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import type { SpooledFrame } from "../../src/spool/records.ts";
import { windowOf } from "../support/frames.ts";
import { type HarnessOptions, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

const startMs = 1_795_250_000_000;
const asked = { analysisServerUrl: "http://127.0.0.1:9", model: "eyes" };
const secret = "Diary";

function at(seconds: number, text = `at ${seconds}`) {
  return framePayload(startMs + Math.round(seconds * 1000), { text });
}

/** Remembers what it was shown, and notes one line a frame. */
class SeeingAnalyst implements Analyst {
  readonly seen: string[] = [];

  async analyse(_: unknown, chunk: { readonly frames: readonly SpooledFrame[] }) {
    const texts = chunk.frames.map(({ text }) => text ?? "-");
    this.seen.push(...texts);
    const bullets = chunk.frames.map(({ receivedAtMs: atMs, text = "-" }) => ({ atMs, text }));
    return { bullets, remark: undefined };
  }

  preview(): never {
    throw new Error("nobody expected a preview");
  }
}

/** Rules as they stand in a file that a test may change. */
class Rules {
  readonly #path: string;
  readonly #file: PrivacyFile;

  constructor(home: string) {
    this.#path = join(home, "privacy.json");
    this.#file = new PrivacyFile(this.#path);
  }

  readonly now = () => this.#file.rules();

  exclude(...windowClasses: string[]): void {
    this.write(JSON.stringify({ excludedApplications: [], excludedWindowClasses: windowClasses }));
  }

  write(text: string): void {
    writeFileSync(this.#path, text);
  }

  delete(): void {
    rmSync(this.#path);
  }
}

async function open(options: HarnessOptions & { readonly home?: string } = {}) {
  const home = options.home ?? temporaryHome();
  const rules = new Rules(home);
  const analyst = new SeeingAnalyst();
  const harness = await ObserverHarness.open({
    analyst,
    home,
    privacyRules: rules.now,
    ...options,
    settings: { chunkSizeMs: 10_000, ...options.settings },
  });
  return { harness, rules, analyst };
}

describe("private frames", () => {
  it("titlePattern_thatSearchesForEver_deletesItsFramesAlone_andTheStatusNamesIt", async () => {
    const { harness, rules } = await open();
    rules.write(JSON.stringify({ excludedTitlePatterns: ["Diary", "^(a+)+$"] }));
    await harness.observer.start();
    const undecidable = windowOf("Editor", `${"a".repeat(2_000)}!`);
    await harness.send([at(0, undecidable), at(20, windowOf("Editor", "notes"))]);
    const { lastError } = await harness.observer.stop();
    assert.match(lastError ?? "", /entry 2 of excludedTitlePatterns .* count as private/);
    assert.deepEqual(
      harness.lines.filter((line) => line.includes("Editor")),
      [windowOf("Editor", "notes")],
    );
  });

  it("excludedApplication_goesWithWhatIsWithinASecondOfIt", async () => {
    const { harness, rules, analyst } = await open({ settings: asked });
    rules.exclude(secret);
    await harness.observer.start();
    await harness.send([at(0), at(3), at(4), at(5, secret), at(6), at(6.001), at(8)]);
    await harness.observer.stop();
    assert.deepEqual(analyst.seen, ["at 0", "at 3", "at 6.001", "at 8"]);
    assert.deepEqual(harness.names("private.json"), [], "nothing is left near it");
  });

  for (const [name, settings] of [
    ["theBuiltInAnalyser", {}],
    ["aModel", asked],
  ] as const) {
    it(`privateEdgeOfAChunk_takesTheNextOnesBeginning_with_${name}`, async () => {
      const { harness, rules } = await open({ settings });
      rules.exclude(secret);
      await harness.observer.start();
      await harness.send([at(0), at(9.5, secret), at(10.4), at(12), at(20)]);
      await harness.observer.stop();
      await harness.observer.settled();
      const texts = harness.lines.filter((line) => !line.startsWith("end of")).sort();
      assert.deepEqual(texts, ["at 0", "at 12", "at 20"]);
    });

    it(`privateBeginningOfAChunk_takesTheOneBeforesEnd_with_${name}`, async () => {
      const { harness, rules } = await open({ settings });
      rules.exclude(secret);
      await harness.observer.start();
      await harness.send([at(0), at(9.5)]);
      await harness.send([at(10, "Other")]);
      await harness.send([at(10.4, secret), at(12), at(20)]);
      await harness.observer.stop();
      await harness.observer.settled();
      const texts = harness.lines.filter((line) => !line.startsWith("end of")).sort();
      assert.deepEqual(texts, ["at 0", "at 12", "at 20"]);
    });
  }

  it("privateFrame_inAChunkThatTheDiskHasNotTakenYet_takesTheOneBeforesEnd", async () => {
    const disk: Disk = {
      ...realDisk,
      async move(from, to) {
        if (to.endsWith("pending/2")) throw systemFailure("EIO", to);
        return realDisk.move(from, to);
      },
    };
    const { harness, rules, analyst } = await open({ settings: asked, disk });
    rules.exclude(secret);
    await harness.observer.start();
    await harness.send([at(0), at(9.5), at(10.4, secret), at(12), at(20.5)]);
    await harness.observer.settled();
    assert.deepEqual(analyst.seen, ["at 0"]);
  });

  it("privateFrame_amongThoseThatAKillLeft_takesTheOneBeforesEnd", async () => {
    const { harness } = await open({ settings: asked, isAnalysing: false });
    await harness.observer.start();
    await harness.send([at(0), at(9.5), at(10.4, secret), at(12)]);
    const disk: Disk = {
      ...realDisk,
      async replaceFile(path, text) {
        if (path.includes("pending/2.partial")) throw systemFailure("EIO", path);
        return realDisk.replaceFile(path, text);
      },
    };
    const home = harness.home;
    new Rules(home).exclude(secret);
    const { harness: second, analyst } = await open({ home, settings: asked, disk });
    await second.observer.settled();
    assert.match(second.observer.status().lastError ?? "", /Frames can't be recovered/);
    assert.deepEqual(analyst.seen, ["at 0"]);
  });

  it("privateMoment_isRememberedOverARestart", async () => {
    const { harness, rules } = await open();
    rules.exclude(secret);
    await harness.observer.start();
    await harness.send([at(0), at(9.9, secret)]);
    await harness.observer.stop();
    await harness.observer.close();
    const { harness: second } = await open({ home: harness.home });
    await second.observer.start();
    await second.send([at(10.5), at(12)]);
    await second.observer.stop();
    assert.deepEqual(second.lines, ["at 12", "end of 1"]);
  });

  it("privateFrame_isInNeitherRawInputsNorArchive", async () => {
    const taken: string[] = [];
    const { harness, rules } = await open({
      settings: { saveRawInputs: true },
      finishedChunks: {
        take: async (folder) => {
          taken.push(...readdirSync(folder), readFileSync(join(folder, "chunk.json"), "utf8"));
          return false;
        },
      },
    });
    rules.exclude(secret);
    await harness.observer.start();
    await harness.send([at(0), at(5, secret)]);
    await harness.observer.stop();
    const raw = join(harness.home, "ostrel", "model-input", "1");
    assert.deepEqual(readdirSync(raw).sort(), ["1-0.jpg", "1-0.txt", "time.json"]);
    assert.ok(taken.includes("1-0.jpg") && !taken.includes("1-1.jpg"));
    assert.ok(!taken.join().includes(secret));
    assert.deepEqual(harness.lines, ["at 0", "end of 1"]);
  });

  it("chunkOfNothingElse_asksNobodyAndNotesNothing", async () => {
    const { harness, rules, analyst } = await open({ settings: asked });
    rules.exclude(secret);
    await harness.observer.start();
    await harness.send([at(0, secret), at(2, secret)]);
    await harness.observer.stop();
    assert.deepEqual(analyst.seen, []);
    assert.deepEqual(harness.lines, []);
    assert.equal(harness.observer.status().pendingAnalysisChunks, 0);
  });

  it("ruleOfLater_holdsForWhatWaits", async () => {
    const { harness, rules, analyst } = await open({ settings: asked, isAnalysing: false });
    rules.exclude();
    await harness.observer.start();
    await harness.send([at(0), at(5, secret)]);
    await harness.send([at(20, secret), at(40)]);
    rules.exclude(secret);
    harness.observer.beginAnalysis();
    await harness.observer.stop();
    await harness.observer.settled();
    assert.deepEqual(analyst.seen.sort(), ["at 0", "at 40"]);
  });

  it("damagedRules_nothingLeavesUntilTheyCanBeRead", async () => {
    const { harness, rules, analyst } = await open({ settings: asked });
    rules.write("{");
    await harness.observer.start();
    await harness.send([at(0), at(5, secret)]);
    const stopped = await harness.observer.stop();
    assert.equal(stopped.pendingAnalysisChunks, 1);
    assert.equal(stopped.analysisBackfillBlocked, true);
    assert.match(stopped.analysisBackfillLastError ?? "", /privacy.json is not JSON/);
    assert.match(stopped.lastError ?? "", /Mend the file, or delete it/);
    assert.deepEqual(analyst.seen, []);
    assert.ok(existsSync(join(harness.layout.chunk(1), "1-1.jpg")), "recording goes on");
    rules.exclude(secret);
    harness.clock.advance(5_000);
    await harness.observer.settled();
    assert.deepEqual(analyst.seen, ["at 0"]);
    assert.equal(harness.observer.status().lastError, undefined);
  });
});
