import assert from "node:assert/strict";
import { it, type TestContext } from "node:test";
import { setImmediate } from "node:timers/promises";
import { systemFailure } from "../../src/base/failure.ts";
import type { Analyst } from "../../src/engine/analyser.ts";
import { journalFilesOn } from "../../src/journal/journalFiles.ts";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import { diskOn } from "../../src/spool/disk.ts";
import { type Chunk, pictureName } from "../../src/spool/records.ts";
import { readDay } from "../support/journalGrammar.ts";
import { ManualClock } from "../support/manualClock.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload, tinyPicture } from "../support/payloads.ts";
import type { Random } from "../support/random.ts";
import { chosenSeed, rounds, seeds, withSeed } from "../support/rounds.ts";
import {
  Mortality,
  SimulatedDisk,
  SimulatedFileSystem,
  type Step,
} from "../support/simulatedFileSystem.ts";

const startMs = 1_795_250_000_000;
const never = Number.MAX_SAFE_INTEGER;
const home = "/home";
const expectedFiles =
  /^\/home\/(?:observer\/(?:folders|queue|session)\.json|journal\/[0-9-]+\.md)$/;
const usersText = "# My day\n\n- [08:00] coffee\nno line end";

/** Where a frame comes by on its way: each has to be among the steps at which the process died. */
const stages = [
  "create observer/incoming/N.partial/frames.jsonl",
  "write observer/incoming/N.partial/picture",
  "sync observer/incoming/N.partial/picture",
  "sync observer/incoming/N.partial/frames.jsonl",
  "syncFolder observer/incoming/N.partial",
  "rename observer/incoming/N",
  "syncFolder observer/incoming",
  "write observer/pending/N.partial/chunk.json.new",
  "rename observer/pending/N.partial/chunk.json",
  "rename observer/pending/N.partial/N.jpg",
  "rename observer/pending/N",
  "syncFolder observer/pending",
  "rename observer/trash/incoming-N",
  "remove observer/trash/incoming-N/frames.jsonl",
  "write observer/pending/N/result.json.new",
  "rename observer/pending/N/result.json",
  "write journal/N.md",
  "sync journal/N.md",
  "rename observer/queue.json",
  "rename observer/trash/pending-N",
  "remove observer/trash/pending-N/chunk.json",
  "rename observer/session.json",
];

/** What one life of an observer was told was safe. */
interface Life {
  readonly acknowledged: string[];
  sessionEnds: number;
}

/** A line a frame, at another time with every answer; and an answer takes its time. */
function slowModel(): Analyst {
  let answers = 0;
  return {
    async analyse(_, chunk) {
      await setImmediate();
      answers += 1;
      const bullets = chunk.frames.map((frame) => ({
        atMs: frame.receivedAtMs + (answers % 1000),
        text: frame.text ?? "-",
      }));
      return { bullets, remark: undefined };
    },
    preview: () => {
      throw new Error("nobody expected a preview");
    },
  };
}

const modelSettings = { analysisServerUrl: "http://127.0.0.1:9", model: "eyes" };

/** A machine on whose disk one observer lives after the other. */
class Machine {
  readonly disk: SimulatedDisk;
  readonly #random: Random;
  readonly #hasModel: boolean;
  readonly #model = slowModel();

  constructor(random: Random, hasModel: boolean) {
    this.#random = random;
    this.#hasModel = hasModel;
    this.disk = new SimulatedDisk(random);
  }

  async writeUsersText(day: string): Promise<void> {
    const files = journalFilesOn(new SimulatedFileSystem(this.disk, this.#random));
    await files.makeFolder(`${home}/journal`);
    const file = await files.open(`${home}/journal/${day}.md`);
    await file.append(Buffer.from(usersText));
    await file.sync();
    await files.syncFolder(`${home}/journal`);
  }

  /** Opens an observer whose journal, too, dies with it. */
  openObserver(
    mortality: Mortality,
    isAnalysing = true,
    onStep: (step: Step) => void = mortality.step,
  ): Promise<ObserverHarness> {
    const fs = new SimulatedFileSystem(this.disk, this.#random, onStep);
    const writer = new JournalWriter({
      outputDirectory: `${home}/journal`,
      files: journalFilesOn(fs),
    });
    return ObserverHarness.open({
      home,
      disk: diskOn(fs),
      clock: new ManualClock(startMs + 100_000),
      isAnalysing,
      analyst: this.#model,
      settings: { chunkSizeMs: 10_000, ...(this.#hasModel && modelSettings) },
      appendToJournal: (_, session, bullets) => writer.append(session, bullets),
    });
  }

  /** Half of the processes that die are killed; with the others the power goes. */
  endLife(): void {
    if (this.#random.next() < 0.5) this.disk.failPower();
  }

  get journal(): string[] {
    return [...this.disk.files()]
      .filter(([path]) => path.startsWith(`${home}/journal/`))
      .sort(([a], [b]) => (a < b ? -1 : 1))
      .map(([, text]) => text);
  }
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
async function live(harness: ObserverHarness, life: Life): Promise<void> {
  const { observer } = harness;
  await observer.start();
  life.acknowledged.push(...(await sendBatch(harness, "first", [0, 4])));
  life.acknowledged.push(...(await sendBatch(harness, "second", [8, 12, 26])));
  await observer.stop();
  life.sessionEnds += 1;
  await observer.start();
  life.acknowledged.push(...(await sendBatch(harness, "third", [30, 50])));
}

const order = [
  "first at 0",
  "first at 4",
  "second at 8",
  "second at 12",
  "second at 26",
  "third at 30",
  "third at 50",
];

/** Runs a life that a death at the mortality's step may cut short. */
async function untilDeath(mortality: Mortality, task: () => Promise<unknown>): Promise<void> {
  await task().catch((error: unknown) => {
    if (!mortality.isDead) throw error;
  });
  mortality.die();
}

/** Every frame that waits has its picture, whole. */
function checkPictures(files: ReadonlyMap<string, string>): void {
  const picture = Buffer.from(tinyPicture, "base64").toString("latin1");
  for (const [path, text] of files) {
    if (!/\/pending\/[0-9]+\/chunk\.json$/.test(path)) continue;
    for (const frame of (JSON.parse(text) as Chunk).frames) {
      const where = path.replace("chunk.json", pictureName(frame));
      assert.equal(files.get(where), picture, where);
    }
  }
}

/** The last life: everything is recovered, and analysed when its pictures have been looked at. */
async function recoverAll(machine: Machine): Promise<void> {
  const harness = await machine.openObserver(new Mortality(never), false);
  checkPictures(machine.disk.files());
  harness.observer.beginAnalysis();
  await harness.observer.settled();
  const status = harness.observer.status();
  assert.equal(status.pendingAnalysisChunks, 0);
  assert.match(status.lastError ?? "", /^$|^The last recording ended unexpectedly\./);
  assert.equal(status.analysisBackfillBlocked, false);
  const rest = [...machine.disk.files().keys()].filter((path) => !expectedFiles.test(path));
  assert.deepEqual(rest, []);
}

function checkJournal(pages: readonly string[], life: Life, hasModel: boolean): void {
  assert.ok(
    pages.some((page) => page.startsWith(usersText)),
    "the user's text was touched",
  );
  const texts = pages
    .flatMap((page) => readDay(Buffer.from(page, "latin1")))
    .flatMap((session) => session.entries)
    .map((entry) => entry.text)
    .filter((text) => text !== "coffee");
  const gaps = texts.filter((text) => text.startsWith("[Ostrel] Gap: "));
  assert.ok(gaps.length <= 4, "more gaps than sessions and deaths");
  const frames = texts.filter((text) => !text.startsWith("end of") && !gaps.includes(text));
  assert.equal(new Set(frames).size, frames.length, "a line stands twice");
  for (const text of life.acknowledged) assert.ok(frames.includes(text), `${text} is lost`);
  // A model is asked about the newest first, and remembers no session.
  if (hasModel) return;
  assert.deepEqual(
    frames,
    order.filter((text) => frames.includes(text)),
    "out of order",
  );
  // An analyser's count of a session is right only if no chunk was counted twice or left out.
  const counts = texts.filter((text) => text.startsWith("end of"));
  const ofThird = frames.filter((text) => text.startsWith("third")).length;
  const expected = [`end of ${frames.length - ofThird}`, `end of ${ofThird}`];
  for (const count of counts.filter((text) => text !== "end of 0")) {
    assert.ok(expected.includes(count), `${count}, ${expected}`);
  }
  assert.ok(counts.length >= life.sessionEnds && counts.length <= 2, String(counts));
}

/** The step without what tells one batch or chunk from another. */
function kindOf({ call, path }: { call: string; path: string }): string {
  return `${call} ${path.slice(home.length + 1).replace(/[0-9]+(-[0-9]+)*/g, "N")}`;
}

/** More than any life has. */
const mostSteps = 1_000;

/** A whole story with a death at a step that the seed tells; undefined when there was none. */
function story(seed: number, hasModel: boolean): Promise<string | undefined> {
  return withSeed(seed, async (random) => {
    const machine = new Machine(random, hasModel);
    await machine.writeUsersText("2026-11-21");
    const life: Life = { acknowledged: [], sessionEnds: 0 };
    const first = new Mortality(seed % mostSteps);
    await untilDeath(first, async () => live(await machine.openObserver(first), life));
    machine.endLife();
    // Every other time the next one dies, too, somewhere on its way.
    const second = new Mortality(random.pick([never, random.integer(1, 120)]));
    await untilDeath(second, async () => (await machine.openObserver(second)).observer.stop());
    machine.endLife();
    await recoverAll(machine);
    checkJournal(machine.journal, life, hasModel);
    return first.last && kindOf(first.last);
  });
}

/** Dies at every step that a life has, and so often at each kind of them. */
async function dieEverywhere(test: TestContext, wanted: number, hasModel: boolean) {
  const deaths = new Map<string, number>();
  const stepsOf = new Map<string, number[]>();
  let nextRound = mostSteps;
  const dieAt = async (step: number) => {
    const kind = await story(nextRound + step, hasModel);
    if (kind !== undefined) deaths.set(kind, (deaths.get(kind) ?? 0) + 1);
    return kind;
  };
  for (let step = 1, kind = await dieAt(1); kind !== undefined; kind = await dieAt(step)) {
    stepsOf.set(kind, [...(stepsOf.get(kind) ?? []), step]);
    step += 1;
  }
  for (const [kind, steps] of stepsOf) {
    for (let turn = 0; (deaths.get(kind) ?? 0) < wanted; turn += 1) {
      nextRound += mostSteps;
      await dieAt(steps[turn % steps.length] ?? 1);
    }
  }
  const total = [...deaths.values()].reduce((sum, count) => sum + count, 0);
  test.diagnostic(`${total} deaths, ${wanted} or more at each of ${deaths.size} kinds of steps`);
  for (const kind of stages) assert.ok((deaths.get(kind) ?? 0) >= wanted, kind);
}

for (const [name, usual, hasModel] of [
  ["queue", 100, false],
  ["queueOfAModel", 10, true],
] as const) {
  it(`${name}_deathAtEveryStep_losesNoFrameAndWritesNoLineTwice`, async (test) => {
    if (chosenSeed === undefined) await dieEverywhere(test, rounds(usual), hasModel);
    else await story(chosenSeed, hasModel);
  });
}

/** Refuses, every third time, to open the records of what waits. */
function refusingRecords(random: Random, mortality: Mortality): (step: Step) => void {
  return (step) => {
    const isRecord = step.call === "open" && /\/(?:frames\.jsonl|chunk\.json)$/.test(step.path);
    if (isRecord && random.next() < 0.33) throw systemFailure("EIO", step.path);
    mortality.step(step);
  };
}

/** What waits after a death meets a disk that keeps some of it back, for some lives. */
function refusedStory(seed: number): Promise<void> {
  return withSeed(seed, async (random) => {
    const machine = new Machine(random, true);
    await machine.writeUsersText("2026-11-21");
    const life: Life = { acknowledged: [], sessionEnds: 0 };
    const first = new Mortality(random.integer(20, 300));
    await untilDeath(first, async () => live(await machine.openObserver(first), life));
    machine.endLife();
    for (let count = random.integer(1, 3); count > 0; count -= 1) {
      const next = new Mortality(random.pick([never, random.integer(1, 120)]));
      const onStep = refusingRecords(random, next);
      await untilDeath(next, async () =>
        (await machine.openObserver(next, true, onStep)).observer.stop(),
      );
      machine.endLife();
    }
    const last = await machine.openObserver(new Mortality(never));
    await last.observer.settled();
    assert.equal(last.observer.status().pendingAnalysisChunks, 0);
    checkJournal(machine.journal, life, true);
  });
}

it("records_thatTheDiskKeepsBackNowAndThen_loseNoFrameAndWriteNoLineTwice", async () => {
  for (const seed of seeds(60)) await refusedStory(seed);
});
