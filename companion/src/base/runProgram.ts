import { type ChildProcess, spawn } from "node:child_process";
import { constants, setPriority } from "node:os";
import { errorCode } from "./failure.ts";

export interface Program {
  readonly path: string;
  /** Never secrets: everybody on the machine may read them. */
  readonly arguments: readonly string[];
  /** Nothing of our own environment is added. */
  readonly environment: Readonly<Record<string, string | undefined>>;
  /** After it the program is killed. */
  readonly timeoutMs: number;
  readonly signal?: AbortSignal | undefined;
  /** Written to standard input, which is then closed. */
  readonly input?: AsyncIterable<Uint8Array> | undefined;
  /** Lets everything else go first. */
  readonly isNice?: boolean;
}

/** The program isn't there. */
export class ProgramMissing extends Error {
  override readonly name = "ProgramMissing";
}

/** It ended with something else than 0, or had to be killed. */
export class ProgramFailed extends Error {
  override readonly name = "ProgramFailed";
  readonly exitCode: number | undefined;
  /** The end of what it said on standard error. */
  readonly words: string;

  constructor(path: string, exitCode: number | undefined, words: string, why?: string) {
    const how = why ?? (exitCode === undefined ? "was killed" : `ended with ${exitCode}`);
    super(`${path} ${how}${words === "" ? "" : `: ${words}`}`);
    this.exitCode = exitCode;
    this.words = words;
  }
}

const greatestWords = 4_096;

/**
 * The program's standard output in pieces. Throws ProgramMissing, and ProgramFailed unless it ends
 * with 0; who stops reading ends it.
 */
export async function* outputOf(program: Program): AsyncGenerator<Buffer> {
  const child = spawn(program.path, [...program.arguments], {
    env: { ...program.environment },
    stdio: ["pipe", "pipe", "pipe"],
  });
  const ending = watch(child, program);
  try {
    const isFed = feed(child, program.input);
    // It may fail long before the output ends; it is told then.
    isFed.catch(() => undefined);
    for await (const piece of child.stdout) yield piece as Buffer;
    await isFed;
    await ending.ended;
  } finally {
    ending.stop();
  }
}

/** The same for an output that fits into memory. */
export async function runProgram(program: Program): Promise<string> {
  const pieces: Buffer[] = [];
  for await (const piece of outputOf(program)) pieces.push(piece);
  return Buffer.concat(pieces).toString("utf8");
}

function watch(child: ChildProcess, program: Program) {
  let words = "";
  let why: string | undefined;
  const kill = (reason: string | undefined) => {
    why ??= reason;
    child.kill("SIGKILL");
  };
  child.stderr?.setEncoding("utf8").on("data", (text: string) => {
    words = `${words}${text}`.slice(-greatestWords);
  });
  const timer = setTimeout(
    () => kill(`took more than ${program.timeoutMs / 1000} s`),
    program.timeoutMs,
  );
  const abort = () => kill("was cancelled");
  program.signal?.addEventListener("abort", abort, { once: true });
  if (program.signal?.aborted === true) abort();
  const ended = new Promise<void>((resolve, reject) => {
    child.once("error", (error) => {
      const isMissing = errorCode(error) === "ENOENT" || errorCode(error) === "EACCES";
      reject(isMissing ? new ProgramMissing(`${program.path} is not installed`) : error);
    });
    child.once("close", (code) => {
      if (code === 0 && why === undefined) resolve();
      else reject(new ProgramFailed(program.path, code ?? undefined, words.trim(), why));
    });
  });
  // Whoever stops reading half way doesn't come to waiting for it.
  ended.catch(() => undefined);
  if (program.isNice === true) lowerPriority(child.pid);
  const stop = () => {
    clearTimeout(timer);
    program.signal?.removeEventListener("abort", abort);
    if (child.exitCode === null) child.kill("SIGKILL");
  };
  return { ended, stop };
}

function lowerPriority(pid: number | undefined): void {
  try {
    if (pid !== undefined) setPriority(pid, constants.priority.PRIORITY_LOW);
  } catch {
    // It has ended already, or may not be lowered; it works all the same.
  }
}

/** A program that doesn't read to the end tells by its exit code whether it minds. */
async function feed(child: ChildProcess, input: Program["input"]): Promise<void> {
  const stdin = child.stdin;
  if (stdin === null) return;
  let isBroken = false;
  let wake = () => {};
  stdin.on("error", () => {
    isBroken = true;
    wake();
  });
  stdin.on("close", () => wake());
  stdin.on("drain", () => wake());
  try {
    for await (const piece of input ?? []) {
      if (isBroken || stdin.destroyed) return;
      if (stdin.write(piece)) continue;
      await new Promise<void>((resolve) => {
        wake = resolve;
      });
    }
  } catch (error) {
    child.kill("SIGKILL");
    throw error;
  } finally {
    stdin.end();
  }
}
