import assert from "node:assert/strict";
import { it } from "node:test";
import type { ArchiveHarness, TestFrame } from "../support/archiveHarness.ts";
import { kindOf, Machine, nas, never, untilDeath } from "../support/archiveMachine.ts";
import { chosenSeed, rounds, withSeed } from "../support/rounds.ts";
import { Mortality } from "../support/simulatedFileSystem.ts";

const startMs = new Date(2026, 10, 21, 23, 59, 0).getTime();
const [day, nextDay] = ["2026-11-21", "2026-11-22"];
const range = { fromDate: day, toDate: nextDay };
const chunkCount = 3;

/** Where a clip comes by on its way: each has to be among the steps at which the process died. */
const stages = [
  "rename home/observer/archive/items/N",
  "syncFolder home/observer/archive/items",
  "create home/observer/archive/items/N/N.age",
  "sync home/observer/archive/items/N/N.age",
  "rename home/observer/archive/items/N/clips.json",
  "remove home/observer/archive/items/N/N.jpg",
  "write nas/V/clips/D/.C.mkv.age.part",
  "rename nas/V/clips/D/C.mkv.age",
  "syncFolder nas/V/clips/D",
  "write home/observer/archive/manifest/L.age",
  "rename home/observer/archive/state.json",
  "rename nas/V/manifest/D/L.age",
  "rename home/observer/archive/trash/items-N",
  "remove home/observer/archive/trash/items-N/N.age",
];

/** The second chunk crosses midnight, and the third is of the next day. */
function framesOf(id: number): TestFrame[] {
  return [0, 1].map((index) => ({
    atMs: startMs + id * 29_000 + index * 2_000,
    picture: Buffer.from(`<picture ${id} ${index}>`),
    displayId: String(index),
    displayLabel: `Display ${index}`,
  }));
}

async function takeAll(harness: ArchiveHarness): Promise<void> {
  for (let id = 1; id <= chunkCount; id += 1) {
    await harness.archive.take(harness.layout.chunk(id));
    if (id % 2 === 0) await harness.archive.settled();
  }
  await harness.archive.estimate(range);
}

/** The last life takes what is left, and everything was archived, once. */
async function checkArchive(machine: Machine): Promise<void> {
  const harness = await machine.open(new Mortality(never));
  machine.clock.advance(3_600_000);
  await takeAll(harness);
  assert.deepEqual([...harness.complaints.values()], []);
  const status = await harness.export("/out", day, nextDay);
  assert.equal(status.error, undefined);
  assert.deepEqual([status.state, status.skipped], ["done", 0]);
  assert.equal(status.exported, chunkCount * 2);
  const files = [...machine.disk.files()];
  const clips = files.filter(([path]) => path.endsWith(".mkv"));
  for (let id = 1; id <= chunkCount; id += 1) {
    for (const index of [0, 1]) {
      const holding = clips.filter(([, text]) => text.includes(`<picture ${id} ${index}>`));
      assert.equal(holding.length, 1, `picture ${id} ${index} is in ${holding.length} clips`);
    }
  }
  const waiting = files.filter(([path]) => /\/(items|pending|trash)\//.test(path));
  assert.deepEqual(
    waiting.map(([path]) => path),
    [],
  );
  const halves = files.filter(([path]) => path.startsWith("/nas") && path.endsWith(".part"));
  assert.deepEqual(
    halves.map(([path]) => path),
    [],
  );
}

/** More than any life has. */
const mostSteps = 1_000;

/** A whole story with a death at a step that the seed tells; undefined when there was none. */
function story(seed: number): Promise<string | undefined> {
  return withSeed(seed, async (random) => {
    const machine = new Machine(random);
    await machine.makeFolders();
    const setUp = await machine.open(new Mortality(never));
    await setUp.turnOn(nas);
    for (let id = 1; id <= chunkCount; id += 1) await setUp.writeChunk(id, framesOf(id));
    await setUp.archive.close();
    const first = new Mortality(seed % mostSteps);
    await untilDeath(first, async () => takeAll(await machine.open(first)));
    machine.endLife();
    // Every other time the next one dies, too, somewhere on its way.
    const second = new Mortality(random.pick([never, random.integer(1, 80)]));
    await untilDeath(second, async () => takeAll(await machine.open(second)));
    machine.endLife();
    await checkArchive(machine);
    return first.last && kindOf(first.last);
  });
}

it("outbox_deathAtEveryStep_archivesEveryChunkOnce", async (test) => {
  if (chosenSeed !== undefined) {
    await story(chosenSeed);
    return;
  }
  const wanted = rounds(1);
  const deaths = new Map<string, number>();
  const stepsOf = new Map<string, number[]>();
  let nextRound = mostSteps;
  const dieAt = async (step: number) => {
    const kind = await story(nextRound + step);
    if (kind !== undefined) deaths.set(kind, (deaths.get(kind) ?? 0) + 1);
    return kind;
  };
  for (let step = 1, kind = await dieAt(1); kind !== undefined; kind = await dieAt(step)) {
    stepsOf.set(kind, [...(stepsOf.get(kind) ?? []), step]);
    step += 1;
  }
  for (const [kind, steps] of stepsOf) {
    for (let turn = 0; (deaths.get(kind) ?? 0) < wanted && turn < wanted * 3; turn += 1) {
      nextRound += mostSteps;
      await dieAt(steps[turn % steps.length] ?? 1);
    }
  }
  const total = [...deaths.values()].reduce((sum, count) => sum + count, 0);
  test.diagnostic(`${total} deaths at ${deaths.size} kinds of steps`);
  for (const kind of stages) assert.ok((deaths.get(kind) ?? 0) > 0, kind);
});

it("enable_deathAtEveryStep_endsWithAnArchiveThatItsKeyOpens", async () => {
  let step = 1;
  for (let hasDied = true; hasDied; step += 1) {
    hasDied = await withSeed(step, async (random) => {
      const machine = new Machine(random);
      await machine.makeFolders();
      const first = new Mortality(step);
      let told: string | undefined;
      await untilDeath(first, async () => {
        const harness = await machine.open(first);
        await harness.archive.setTarget(nas);
        told = (await harness.archive.prepare()).recoveryKey;
        await harness.archive.enable();
      });
      machine.endLife();
      const harness = await machine.open(new Mortality(never));
      // What the wizard does when it is opened again.
      await harness.archive.setTarget(nas);
      const again = await harness.archive.prepare();
      await harness.archive.enable();
      const status = await harness.archive.recover(again.recoveryKey ?? told ?? "");
      assert.equal(status.archiveEnabled, true);
      return first.last !== undefined;
    });
  }
  assert.ok(step > 30, `${step} steps`);
});

it("disk_fullWhilePacking_isSaidAndTheClipComesLater", async () => {
  await withSeed(1, async (random) => {
    const machine = new Machine(random);
    await machine.makeFolders();
    const harness = await machine.open(new Mortality(never));
    await harness.turnOn(nas);
    for (let id = 1; id <= chunkCount; id += 1) await harness.writeChunk(id, framesOf(id));
    const room = machine.disk.freeBytes;
    machine.disk.capacityBytes = 1e12 - room + 300;
    for (let id = 1; id <= chunkCount; id += 1) {
      await harness.archive.take(harness.layout.chunk(id));
    }
    await harness.archive.settled();
    assert.match(harness.complaints.get("archive") ?? "", /The disk is full.*Delete some files/);
    machine.disk.capacityBytes = 1e12;
    await harness.archive.close();
    await checkArchive(machine);
  });
});
