import assert from "node:assert/strict";
import { it } from "node:test";
import {
  outputOf,
  type Program,
  ProgramFailed,
  ProgramMissing,
  runProgram,
} from "../../src/base/runProgram.ts";

function shell(script: string, more: Partial<Program> = {}): Program {
  return {
    path: "/bin/sh",
    arguments: ["-c", script],
    environment: { PATH: process.env["PATH"] },
    timeoutMs: 20_000,
    ...more,
  };
}

async function* pieces(count: number): AsyncGenerator<Uint8Array> {
  for (let index = 0; index < count; index += 1) yield Buffer.alloc(100_000, "x");
}

it("program_withInput_answersWithItsOutput", async () => {
  assert.equal(await runProgram(shell("wc -c", { input: pieces(30) })), "3000000\n");
});

it("program_getsOnlyTheGivenEnvironment", async () => {
  process.env["OSTREL_TEST_VARIABLE"] = "secret";
  const output = await runProgram(shell("env"));
  delete process.env["OSTREL_TEST_VARIABLE"];
  assert.doesNotMatch(output, /OSTREL_TEST_VARIABLE|HOME=/);
});

it("program_thatFails_tellsItsCodeAndItsLastWords", async () => {
  const running = runProgram(shell("echo out; echo why >&2; exit 3"));
  await assert.rejects(running, (error: unknown) => {
    assert.ok(error instanceof ProgramFailed);
    assert.deepEqual([error.exitCode, error.words], [3, "why"]);
    return true;
  });
});

it("program_thatIsNotThere_isMissing", async () => {
  for (const path of ["/nonexistent/program", "no-such-program", "/etc/passwd"]) {
    await assert.rejects(runProgram({ ...shell(""), path }), ProgramMissing, path);
  }
});

it("program_thatTakesTooLong_isKilled", async () => {
  const running = runProgram(shell("exec sleep 60", { timeoutMs: 50 }));
  await assert.rejects(running, /took more than 0.05 s/);
});

it("program_cancelled_isKilled", async () => {
  const controller = new AbortController();
  const running = runProgram(shell("exec sleep 60", { signal: controller.signal }));
  controller.abort();
  await assert.rejects(running, /was cancelled/);
});

it("program_thatDoesNotReadItsInput_endsAllTheSame", async () => {
  assert.equal(await runProgram(shell("echo done", { input: pieces(50) })), "done\n");
});

it("input_thatFails_endsTheProgramWithItsError", async () => {
  async function* broken(): AsyncGenerator<Uint8Array> {
    yield Buffer.from("x");
    throw new Error("the source is gone");
  }
  await assert.rejects(runProgram(shell("cat", { input: broken() })), /the source is gone/);
});

it("reader_thatStops_endsTheProgram", async () => {
  for await (const piece of outputOf(shell("yes"))) {
    assert.ok(piece.length > 0);
    break;
  }
});
