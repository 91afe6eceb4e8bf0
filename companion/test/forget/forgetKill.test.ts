import assert from "node:assert/strict";
import { it, type TestContext } from "node:test";
import { journalFilesOn } from "../../src/journal/journalFiles.ts";
import { JournalWriter } from "../../src/journal/journalWriter.ts";
import { PrivacyRules } from "../../src/privacy/privacyRules.ts";
import { diskOn } from "../../src/spool/disk.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { ManualClock } from "../support/manualClock.ts";
import { ObserverHarness } from "../support/observerHarness.ts";
import { framePayload } from "../support/payloads.ts";
import type { Random } from "../support/random.ts";
import { chosenSeed, rounds, withSeed } from "../support/rounds.ts";
import { Mortality, SimulatedDisk, SimulatedFileSystem } from "../support/simulatedFileSystem.ts";

const startMs = 1_795_250_000_000;
const never = Number.MAX_SAFE_INTEGER;
const home = "/home";
const range: TimeRange = { fromMs: startMs + 5_000, toMs: startMs + 24_999 };
const secret = "Diary";

/** Where a forgetting comes by: each has to be among the steps at which the process died. */
const stages = [
  "rename observer/forgotten.json",
  "remove observer/pending/N/N.jpg",
  "rename observer/pending/N/chunk.json",
  "remove raw/N/N.jpg",
  "remove raw/N/time.json",
  "rename journal/N.md",
];

/** A machine on whose disk one observer lives after the other. */
class Machine {
  readonly disk: SimulatedDisk;
  /** What the archive was asked to remove. */
  readonly inArchive: TimeRange[] = [];
  readonly #random: Random;

  constructor(random: Random) {
    this.#random = random;
    this.disk = new SimulatedDisk(random);
  }

  open(mortality: Mortality, isAnalysing: boolean): Promise<ObserverHarness> {
    const fs = new SimulatedFileSystem(this.disk, this.#random, mortality.step);
    const writer = new JournalWriter({
      outputDirectory: `${home}/journal`,
      files: journalFilesOn(fs),
    });
    const lists = { applications: [], windowClasses: [secret], titles: [], sites: [] };
    return ObserverHarness.open({
      home,
      disk: diskOn(fs),
      clock: new ManualClock(startMs + 100_000),
      isAnalysing,
      settings: {
        chunkSizeMs: 10_000,
        saveRawInputs: true,
        rawInputDirectory: `${home}/raw`,
        outputDirectory: `${home}/journal`,
      },
      privacyRules: async () => new PrivacyRules(lists),
      appendToJournal: (_, session, bullets) => writer.append(session, bullets),
      forgetInJournal: (_, wanted) => writer.forget(wanted),
      forgetInArchive: async (wanted) => {
        this.inArchive.push(wanted);
        return { clips: 0, frames: 0 };
      },
    });
  }

  endLife(): void {
    if (this.#random.next() < 0.5) this.disk.failPower();
  }

  texts(): string {
    return [...this.disk.files()].map(([path, text]) => `${path}\n${text}`).join("\n");
  }
}

/** A first session is in the journal, and a second one waits when the time is forgotten. */
async function prepare(machine: Machine): Promise<void> {
  const first = await machine.open(new Mortality(never), true);
  await first.observer.start();
  await first.send([at(0), at(6)]);
  await first.observer.stop();
  await first.observer.close();
  const second = await machine.open(new Mortality(never), false);
  await second.observer.start();
  await second.send([at(12), at(20), at(21, secret), at(30)]);
  await second.observer.close();
}

function at(seconds: number, text = `at ${seconds}`) {
  return framePayload(startMs + seconds * 1000, { text });
}

/** The step without what tells one chunk from another. */
function kindOf({ call, path }: { call: string; path: string }): string {
  return `${call} ${path.slice(home.length + 1).replace(/[0-9]+(-[0-9]+)*/g, "N")}`;
}

/** Forgets, dies on the way, and looks at what the next start has left; the step of the death. */
function story(seed: number, step: number): Promise<string | undefined> {
  return withSeed(seed, async (random) => {
    const machine = new Machine(random);
    await prepare(machine);
    const mortality = new Mortality(step);
    let isAcknowledged = false;
    try {
      const harness = await machine.open(mortality, false);
      await harness.observer.forget(range);
      isAcknowledged = true;
    } catch (error) {
      if (!mortality.isDead) throw error;
    }
    mortality.die();
    machine.endLife();
    const last = await machine.open(new Mortality(never), true);
    await last.observer.settled();
    const isNoted = machine.inArchive.length > 0;
    assert.ok(isNoted || !isAcknowledged, "what was acknowledged is forgotten");
    if (isNoted) check(machine);
    assert.doesNotMatch(machine.texts(), new RegExp(secret), "private by the rules");
    return mortality.last && kindOf(mortality.last);
  });
}

/** Nothing of the time is left, and all of the rest. */
function check(machine: Machine): void {
  for (const gone of ["at 6", "at 12", "at 20"]) {
    const left = [...machine.disk.files()].find(([, text]) => text.match(`${gone}(?![0-9])`));
    assert.equal(left, undefined, `${gone} is left`);
  }
  const journal = [...machine.disk.files()]
    .filter(([path]) => path.startsWith(`${home}/journal/`))
    .map(([, text]) => text)
    .join();
  for (const kept of ["at 0 ", "at 30 "]) assert.ok(journal.includes(kept), `${kept} is lost`);
  const pictures = [...machine.disk.files().keys()].filter((path) => path.endsWith(".jpg"));
  // Of the first chunk all inputs went, since they are one folder.
  assert.deepEqual(pictures, [`${home}/raw/3/2-3.jpg`]);
}

async function dieEverywhere(test: TestContext, turns: number): Promise<void> {
  const deaths = new Map<string, number>();
  for (let turn = 1; turn <= turns; turn += 1) {
    for (let step = 1; ; step += 1) {
      const kind = await story(turn * 1_000 + step, step);
      if (kind === undefined) break;
      deaths.set(kind, (deaths.get(kind) ?? 0) + 1);
    }
  }
  test.diagnostic(`deaths at ${deaths.size} kinds of steps`);
  for (const kind of stages) assert.ok(deaths.has(kind), `${kind}; ${[...deaths.keys()]}`);
}

it("forget_deathAtEveryStep_isBroughtToItsEndByTheNextStart", async (test) => {
  if (chosenSeed === undefined) await dieEverywhere(test, rounds(4));
  else await story(chosenSeed, chosenSeed % 1_000);
});
