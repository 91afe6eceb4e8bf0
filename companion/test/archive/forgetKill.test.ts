import assert from "node:assert/strict";
import { it } from "node:test";
import type { TimeRange } from "../../src/spool/records.ts";
import type { ArchiveHarness, TestFrame } from "../support/archiveHarness.ts";
import { kindOf, Machine, nas, never, untilDeath } from "../support/archiveMachine.ts";
import { chosenSeed, withSeed } from "../support/rounds.ts";
import { Mortality } from "../support/simulatedFileSystem.ts";

const startMs = new Date(2026, 10, 21, 9, 30, 0).getTime();
const day = "2026-11-21";
const today = { fromDate: day, toDate: day };
/** Of the chunks one minute each, the second and the fourth. */
const ranges: readonly TimeRange[] = [minute(2), minute(4)];
/** More than any life has. */
const mostSteps = 1_000;

/** Where a forgetting comes by: each has to be among the steps at which the process died. */
const stages = [
  "remove nas/V/clips/D/C.mkv.age",
  "syncFolder nas/V/clips/D",
  "write home/observer/archive/manifest/L.age",
  "rename home/observer/archive/state.json",
  "rename nas/V/manifest/D/L.age",
  "rename home/observer/archive/trash/items-N",
];

function minute(id: number): TimeRange {
  return { fromMs: startMs + id * 60_000, toMs: startMs + id * 60_000 + 59_999 };
}

function framesOf(id: number): TestFrame[] {
  return [5, 10].map((second) => ({
    atMs: startMs + id * 60_000 + second * 1_000,
    picture: Buffer.from(`<picture of ${id} at ${second}>`),
    displayId: "1",
    displayLabel: "Display 1",
  }));
}

/** Two chunks are in the list, and two are stored and wait for it. */
async function prepare(machine: Machine): Promise<void> {
  const harness = await machine.open(new Mortality(never));
  await harness.turnOn(nas);
  for (const id of [1, 2, 3, 4]) {
    await harness.finish(id, framesOf(id));
    await harness.archive.settled();
    if (id === 2) await harness.archive.estimate(today);
  }
  await harness.archive.close();
}

async function forgetAll({ archive }: ArchiveHarness): Promise<void> {
  for (const range of ranges) await archive.forget(range);
}

/** What is left is what was not meant, and the list knows of nothing else. */
async function check(machine: Machine): Promise<void> {
  const harness = await machine.open(new Mortality(never));
  await forgetAll(harness);
  const status = await harness.export("/out", day, day);
  assert.equal(status.error, undefined);
  assert.deepEqual([status.state, status.exported, status.skipped], ["done", 2, 0]);
  const files = [...machine.disk.files()];
  const stored = files.filter(([path]) => path.startsWith("/nas/") && path.includes("/clips/"));
  assert.equal(stored.length, 2, stored.map(([path]) => path).join());
  const exported = files.filter(([path]) => path.endsWith(".mkv")).map(([, text]) => text);
  for (const id of [1, 3]) assert.ok(exported.join().includes(`<picture of ${id} at 5>`), `${id}`);
  for (const id of [2, 4]) assert.ok(!exported.join().includes(`<picture of ${id} `), `${id}`);
}

function story(seed: number): Promise<string | undefined> {
  return withSeed(seed, async (random) => {
    const machine = new Machine(random);
    await machine.makeFolders();
    await prepare(machine);
    const mortality = new Mortality(seed % mostSteps);
    await untilDeath(mortality, async () => forgetAll(await machine.open(mortality)));
    machine.endLife();
    await check(machine);
    return mortality.last && kindOf(mortality.last);
  });
}

it("forgetting_deathAtEveryStep_isBroughtToItsEndByTheNextAttempt", async (test) => {
  if (chosenSeed !== undefined) {
    await story(chosenSeed);
    return;
  }
  const deaths = new Map<string, number>();
  for (let step = 1; ; step += 1) {
    const kind = await story(mostSteps + step);
    if (kind === undefined) break;
    deaths.set(kind, (deaths.get(kind) ?? 0) + 1);
  }
  test.diagnostic(`deaths at ${deaths.size} kinds of steps`);
  for (const kind of stages)
    assert.ok(deaths.has(kind), `${kind}; ${[...deaths.keys()].join(", ")}`);
});
