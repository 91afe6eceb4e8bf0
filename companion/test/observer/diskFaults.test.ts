import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { setImmediate } from "node:timers/promises";
import { systemFailure } from "../../src/base/failure.ts";
import { journalFilesOn } from "../../src/journal/journalFiles.ts";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import { NotRecording } from "../../src/observer/errors.ts";
import { diskOn } from "../../src/spool/disk.ts";
import { defaultQuotaBytes } from "../../src/spool/pictureStore.ts";
import type { ObserverStatus } from "../../src/wire/records.ts";
import { readDay } from "../support/journalGrammar.ts";
import { ManualClock } from "../support/manualClock.ts";
import { type HarnessOptions, ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import type { Random } from "../support/random.ts";
import { chosenSeed, seeds, withSeed } from "../support/rounds.ts";
import { SimulatedDisk, SimulatedFileSystem, type Step } from "../support/simulatedFileSystem.ts";

const startMs = 1_795_250_000_000;
const home = "/home";
const vertex = "google_vertex_ai";

/** Which calls fail, and the words that the status has to have for it. */
interface Fault {
  readonly name: string;
  readonly code: string;
  readonly words: RegExp;
  hits(step: Step): boolean;
}

const growing = ["create", "makeFolder", "write", "rename"];
const changing = [...growing, "remove", "truncate"];
const makeRoom = /Delete some files on that disk to make room/;

const faults: readonly Fault[] = [
  {
    name: "fullDisk",
    code: "ENOSPC",
    words: makeRoom,
    hits: ({ call }) => growing.includes(call),
  },
  {
    name: "noInodes",
    code: "ENOSPC",
    words: makeRoom,
    hits: ({ call }) => call === "create" || call === "makeFolder",
  },
  {
    name: "usedUpQuota",
    code: "EDQUOT",
    words: makeRoom,
    hits: ({ call }) => growing.includes(call),
  },
  {
    name: "readOnlyFileSystem",
    code: "EROFS",
    words: /The file system is read-only.*Mount it for writing/,
    hits: ({ call }) => changing.includes(call),
  },
  {
    name: "folderWithoutPermission",
    code: "EACCES",
    words: /Permission denied.*Allow yourself to write there/,
    hits: ({ call }) => ["create", "makeFolder", "rename", "remove"].includes(call),
  },
  {
    name: "brokenDisk",
    code: "EIO",
    words: /The disk could not be read or written.*Check the disk/,
    hits: () => true,
  },
  {
    name: "tooManyOpenFiles",
    code: "EMFILE",
    words: /Too many files are open/,
    hits: ({ call }) => ["open", "create", "syncFolder"].includes(call),
  },
];

/** An observer on a disk of which a test can make some steps fail. */
class FaultyMachine {
  readonly disk: SimulatedDisk;
  readonly clock = new ManualClock(startMs + 100_000);
  readonly acknowledged: string[] = [];
  failing: (step: Step) => string | undefined = () => undefined;
  #harness: ObserverHarness | undefined;

  private constructor(random: Random) {
    this.disk = new SimulatedDisk(random);
  }

  static async open(random: Random, options: HarnessOptions = {}): Promise<FaultyMachine> {
    const machine = new FaultyMachine(random);
    const fs = new SimulatedFileSystem(machine.disk, random, (step) => {
      const code = machine.failing(step);
      if (code !== undefined) throw systemFailure(code, step.path);
    });
    const outputDirectory = `${home}/journal`;
    const writer = new JournalWriter({ outputDirectory, files: journalFilesOn(fs) });
    machine.#harness = await ObserverHarness.open({
      home,
      disk: diskOn(fs),
      clock: machine.clock,
      appendToJournal: (_, session, bullets) => writer.append(session, bullets),
      ...options,
      settings: { chunkSizeMs: 10_000, ...options.settings },
    });
    return machine;
  }

  get harness(): ObserverHarness {
    assert.ok(this.#harness);
    return this.#harness;
  }

  get status(): ObserverStatus {
    return this.harness.observer.status();
  }

  async send(name: string, secondsAt: readonly number[], videoBase64?: string): Promise<void> {
    const texts = secondsAt.map((seconds) => `${name} at ${seconds}`);
    const picture = videoBase64 === undefined ? {} : { videoBase64 };
    await this.harness.send(
      secondsAt.map((seconds, index) =>
        framePayload(startMs + seconds * 1000, { text: texts[index], ...picture }),
      ),
    );
    this.acknowledged.push(...texts);
  }

  /** Lets time pass, and with it every attempt that waits for its time; nobody asks for anything. */
  async passTime(): Promise<void> {
    for (let minute = 0; minute < 30; minute += 1) {
      this.clock.advance(60_000);
      await setImmediate();
    }
  }

  /** Each acknowledged frame has its one line, and nothing is left on the disk besides. */
  checkJournal(): void {
    const files = this.disk.files();
    const lines = [...files]
      .filter(([path]) => path.startsWith(`${home}/journal/`))
      .flatMap(([, text]) => readDay(Buffer.from(text, "latin1")))
      .flatMap((session) => session.entries.map((entry) => entry.text))
      .filter((text) => !text.startsWith("end of"));
    assert.equal(new Set(lines).size, lines.length, "a line stands twice");
    for (const text of this.acknowledged) assert.ok(lines.includes(text), `${text} is lost`);
    const rest = [...files.keys()].filter(
      (path) => !/^\/home\/(journal\/.*\.md|observer\/(folders|queue|session)\.json)$/.test(path),
    );
    assert.deepEqual(rest, []);
  }
}

/** Two recordings, the second of which goes on, whatever is refused; the refusals' status. */
async function recordThrough(machine: FaultyMachine): Promise<ObserverStatus[]> {
  const { observer } = machine.harness;
  const refused: ObserverStatus[] = [];
  const actions: readonly (() => Promise<unknown>)[] = [
    () => observer.start(),
    () => machine.send("first", [0, 4]),
    () => machine.send("second", [8, 12, 26]),
    () => observer.stop(),
    () => observer.start(),
    () => machine.send("third", [30, 50]),
  ];
  for (const action of actions) {
    await action().catch((error: unknown) => {
      if (!(error instanceof NotRecording)) refused.push(machine.status);
    });
  }
  return refused;
}

describe("a disk that refuses", () => {
  for (const fault of faults) {
    it(`${fault.name}_fromAnyStepOn_isToldInPlainWords_losesNothing_andHealsByItself`, async () => {
      for (const seed of seeds(40)) {
        await withSeed(seed, async (random) => {
          const machine = await FaultyMachine.open(random);
          const from = random.integer(1, 260);
          const lasting = random.pick([1, 5, Number.MAX_SAFE_INTEGER]);
          let steps = 0;
          machine.failing = (step) => {
            if (!fault.hits(step)) return undefined;
            steps += 1;
            return steps >= from && steps < from + lasting ? fault.code : undefined;
          };
          for (const status of await recordThrough(machine)) {
            assert.match(status.lastError ?? "", fault.words);
          }
          await setImmediate();
          const { lastError, analysisBackfillLastError, analysisBackfillBlocked } = machine.status;
          // An entry of which only a part was taken tells no more until the next attempt.
          const words = new RegExp(`${fault.words.source}|The disk is full: .*\\.md`);
          if (analysisBackfillBlocked) assert.match(analysisBackfillLastError ?? "", words);
          if (lastError !== undefined) assert.match(lastError, words);
          machine.failing = () => undefined;
          await machine.passTime();
          assert.equal(machine.status.analysisBackfillBlocked, false);
          assert.equal(machine.status.pendingAnalysisChunks, 0);
          await machine.harness.observer.start();
          await machine.send("last", [60]);
          await machine.harness.observer.stop();
          assert.equal(machine.status.lastError, undefined);
          machine.checkJournal();
        });
      }
    });
  }
});

describe("room for texts alone", () => {
  const picture = Buffer.alloc(3_000, 0xa5).toString("base64");

  it("pictures_thatTheDiskRefuses_areLeftOut_andTheTextsAreKept", async () => {
    for (const seed of seeds(20)) {
      await withSeed(seed, async (random) => {
        const machine = await FaultyMachine.open(random);
        await machine.harness.observer.start();
        machine.failing = ({ call, path }) =>
          call === "write" && path.endsWith("picture") ? "ENOSPC" : undefined;
        await machine.send("first", [0, 4], picture);
        assert.match(machine.status.lastError ?? "", /^2 pictures can't be kept: The disk is full/);
        assert.match(machine.status.lastError ?? "", /Delete some files.*The texts are kept\.$/);
        machine.failing = () => undefined;
        await machine.send("second", [8], picture);
        assert.equal(machine.status.lastError, undefined);
        await machine.harness.observer.stop();
        machine.checkJournal();
      });
    }
  });

  it("diskThatFillsUp_losesPicturesBeforeTexts_andTheTextsBulletsCome", async () => {
    for (const seed of seeds(20)) {
      await withSeed(seed, async (random) => {
        const settings = { inferenceProvider: vertex };
        const quotaBytes = defaultQuotaBytes;
        const machine = await FaultyMachine.open(random, { settings, quotaBytes });
        await machine.harness.observer.start();
        // Too little for the pictures of a few batches, and more than enough for all texts.
        machine.disk.capacityBytes = random.integer(60_000, 70_000);
        for (let batch = 0; batch < 8; batch += 1) {
          const seconds = [0, 2, 4, 6, 8, 10, 12, 14].map((offset) => batch * 16 + offset);
          await machine.send(`batch ${batch}`, seconds, picture);
          assert.match(machine.status.lastError ?? "", /texts are kept|Delete some files/);
        }
        machine.disk.capacityBytes = 1e12;
        machine.harness.observer.replaceSettings({
          ...machine.harness.settings.record,
          inferenceProvider: "ostrel",
        });
        await machine.harness.observer.stop();
        machine.checkJournal();
      });
    }
  });

  it("diskWithoutInodes_letsWaitingPicturesGiveWay_andKeepsEveryBatch", async () => {
    for (const seed of seeds(20)) {
      await withSeed(seed, async (random) => {
        const settings = { inferenceProvider: vertex };
        const machine = await FaultyMachine.open(random, { settings });
        await machine.harness.observer.start();
        const most = random.integer(30, 40);
        machine.failing = ({ call }) =>
          call === "create" && machine.disk.files().size >= most ? "ENOSPC" : undefined;
        for (let batch = 0; batch < 12; batch += 1) {
          const seconds = [0, 2, 4, 6].map((offset) => batch * 12 + offset);
          await machine.send(`batch ${batch}`, seconds, picture);
        }
        assert.match(machine.status.lastError ?? "", /texts are kept/);
        machine.harness.observer.replaceSettings({
          ...machine.harness.settings.record,
          inferenceProvider: "ostrel",
        });
        await machine.harness.observer.stop();
        machine.checkJournal();
      });
    }
  });

  it("diskThatFillsUpWithinABatch_keepsTheBatchWholeOrNotAtAll", async () => {
    let refusals = 0;
    for (const seed of seeds(60)) {
      await withSeed(seed, async (random) => {
        const machine = await FaultyMachine.open(random);
        await machine.harness.observer.start();
        machine.disk.capacityBytes = random.integer(100, 6_000);
        const before = [...machine.disk.files().keys()];
        await machine.send("first", [0, 4, 8, 9], picture).catch(() => {
          refusals += 1;
          assert.deepEqual([...machine.disk.files().keys()], before);
          // Not even the four texts fit.
          assert.ok(machine.disk.freeBytes < 4 * 400);
        });
        machine.disk.capacityBytes = 1e12;
        await machine.passTime();
        await machine.harness.observer.stop();
        machine.checkJournal();
      });
    }
    if (chosenSeed === undefined) assert.ok(refusals > 2, `${refusals} refusals`);
  });
});
