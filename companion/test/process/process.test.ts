import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import { createServer as createHttpServer } from "node:http";
import { createServer } from "node:net";
import { join } from "node:path";
import { Readable } from "node:stream";
import { describe, it } from "node:test";
import type { Clock } from "../../src/base/clock.ts";
import { listen } from "../../src/process/listen.ts";
import { watchParent } from "../../src/process/parentWatch.ts";
import { processStart } from "../../src/process/processIdentity.ts";
import { parseSecrets, readStandardInput } from "../../src/process/standardInput.ts";
import { StateLock } from "../../src/process/stateLock.ts";
import { ManualClock } from "../support/manualClock.ts";
import { freePort } from "../support/observerProcess.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** Lets every wait pass at once, and counts them. */
class ImpatientClock implements Clock {
  waitedMs = 0;
  readonly #onWait: () => void;

  constructor(onWait: () => void = () => {}) {
    this.#onWait = onWait;
  }

  nowMs(): number {
    return this.waitedMs;
  }

  after(delayMs: number, task: () => void): () => void {
    this.waitedMs += delayMs;
    this.#onWait();
    const immediate = setImmediate(task);
    return () => clearImmediate(immediate);
  }
}

async function deadPid(): Promise<number> {
  const child = spawn("true");
  await once(child, "exit");
  assert.ok(child.pid);
  return child.pid;
}

describe("state lock", () => {
  it("lock_heldByALivingProcess_isWaitedForAndThenGivenUp", async () => {
    const folder = temporaryHome();
    assert.ok(await StateLock.acquire(folder, new ImpatientClock(), 0, process.ppid));
    const clock = new ImpatientClock();
    assert.equal(await StateLock.acquire(folder, clock, 3_000), undefined);
    assert.ok(clock.waitedMs >= 3_000);
    assert.equal(readdirSync(join(folder, "lock")).length, 1);
  });

  it("lock_letGo_passesToTheSuccessor", async () => {
    const folder = temporaryHome();
    const unlock = await StateLock.acquire(folder, new ImpatientClock(), 0, process.ppid);
    assert.ok(unlock);
    const clock = new ImpatientClock(() => {
      if (clock.waitedMs === 500) void unlock();
    });
    assert.ok(await StateLock.acquire(folder, clock, 60_000));
    assert.ok(clock.waitedMs >= 500);
  });

  it("lock_ofDeadOrReusedOrForeignProcesses_countsForNothing", async () => {
    const folder = temporaryHome();
    mkdirSync(join(folder, "lock"));
    const boot = readFileSync("/proc/sys/kernel/random/boot_id", "latin1").trim();
    const start = processStart(process.ppid);
    for (const name of [
      `${await deadPid()}.1.${boot}`,
      `${process.ppid}.${Number(start) + 1}.${boot}`,
      `${process.ppid}.${start}.another-boot`,
      "rubbish",
    ]) {
      writeFileSync(join(folder, "lock", name), "");
    }
    assert.ok(await StateLock.acquire(folder, new ImpatientClock(), 0));
    assert.equal(readdirSync(join(folder, "lock")).length, 1);
  });

  it("lock_twoAtTheSameTime_onlyOneHasIt", async () => {
    for (let round = 0; round < 20; round += 1) {
      const folder = join(temporaryHome(), String(round));
      const contenders = [process.pid, process.ppid, 1];
      const locks = await Promise.all(
        contenders.map((pid) => StateLock.acquire(folder, new ImpatientClock(), 5_000, pid)),
      );
      assert.equal(locks.filter((lock) => lock !== undefined).length, 1);
    }
  });
});

describe("parent", () => {
  it("parent_alive_isAskedForEveryFiveSeconds", async () => {
    const clock = new ManualClock();
    const asked: number[] = [];
    const startOf = (pid: number) => {
      asked.push(pid);
      return "100";
    };
    watchParent(7, clock, () => assert.fail("gone"), startOf);
    assert.equal(clock.nextDelayMs, 5_000);
    clock.advance(5_000);
    assert.deepEqual(asked, [7, 7]);
    assert.equal(clock.nextDelayMs, 5_000);
  });

  for (const [name, later] of [
    ["gone", undefined],
    ["replacedByAnotherProcess", "200"],
  ] as const) {
    it(`parent_${name}_isToldOnce`, async () => {
      const clock = new ManualClock();
      let start: string | undefined = "100";
      let goneCount = 0;
      watchParent(
        7,
        clock,
        () => (goneCount += 1),
        () => start,
      );
      start = later;
      clock.advance(5_000);
      assert.equal(goneCount, 1);
      assert.equal(clock.timerCount, 0);
    });
  }

  it("parent_goneFromTheStart_isToldAtOnce", async () => {
    let goneCount = 0;
    const pid = await deadPid();
    watchParent(pid, new ManualClock(), () => (goneCount += 1));
    assert.equal(goneCount, 1);
  });
});

describe("port", () => {
  it("port_thatComesFree_isTaken", async (test) => {
    const port = await freePort();
    const holder = createServer().listen(port, "127.0.0.1");
    await once(holder, "listening");
    const clock = new ImpatientClock(() => {
      if (clock.waitedMs === 1_000) holder.close();
    });
    const server = createHttpServer();
    test.after(() => server.close());
    assert.equal(await listen(server, port, clock, 5_000), true);
    assert.ok(clock.waitedMs >= 1_000);
  });

  it("port_thatStaysTaken_isGivenUpAfterFiveSeconds", async (test) => {
    const port = await freePort();
    const holder = createServer().listen(port, "127.0.0.1");
    await once(holder, "listening");
    test.after(() => holder.close());
    const clock = new ImpatientClock();
    assert.equal(await listen(createHttpServer(), port, clock, 5_000), false);
    assert.equal(clock.waitedMs, 5_000);
  });
});

describe("standard input", () => {
  async function read(pieces: readonly string[]): Promise<(string | undefined)[]> {
    const lines: (string | undefined)[] = [];
    const input = Readable.from(pieces, { objectMode: false });
    await new Promise<void>((resolve) => {
      readStandardInput(input, (line) => lines.push(line), resolve);
    });
    return lines;
  }

  it("firstLine_inPieces_isToldOnce", async () => {
    assert.deepEqual(await read(['{"a"', ':"b"}\n{"c"', ":1}\n"]), ['{"a":"b"}']);
    assert.deepEqual(await read(["\n", "x\n"]), [""]);
  });

  it("firstLine_withoutLineBreak_countsAtTheEnd", async () => {
    assert.deepEqual(await read(["{}"]), ["{}"]);
  });

  it("firstLine_missing_meansNone", async () => {
    assert.deepEqual(await read([]), [undefined]);
  });

  it("secrets_ofTheFirstLine_areRead", () => {
    assert.deepEqual(parseSecrets('{"analysisApiToken":"t","byokGoogleVertexApiKey":null,"x":1}'), {
      analysisApiToken: "t",
      byokGoogleVertexApiKey: "",
    });
    assert.deepEqual(parseSecrets("{}"), { analysisApiToken: "", byokGoogleVertexApiKey: "" });
    for (const line of ["", "x", "[]", '{"analysisApiToken":1}']) {
      assert.equal(parseSecrets(line), undefined);
    }
  });
});
