import { createHash } from "node:crypto";
import { outputOf, ProgramFailed, ProgramMissing, runProgram } from "../../base/runProgram.ts";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
  type StoredObject,
  TargetFailure,
  type Upload,
} from "./target.ts";

const passedOn = ["PATH", "HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS"];
/** Its exit codes for what isn't there: a folder, and a file. */
const missing = new Set([3, 4]);
/** The slowest line that is worth an archive, for the largest clip. */
const timeoutMs = 30 * 60_000;

interface Listed {
  readonly Path: string;
  readonly Size: number;
}

/**
 * Everything that `rclone` can reach, by a remote of the user's own configuration. The credentials
 * are rclone's; nothing of our environment could change what it does.
 */
export class RcloneTarget implements ArchiveTarget {
  readonly #root: string;
  readonly #environment: Record<string, string | undefined> = { LC_ALL: "C" };

  constructor(remote: string, environment: Readonly<Record<string, string | undefined>>) {
    this.#root = remote.replace(/\/+$/, "");
    for (const name of passedOn) this.#environment[name] = environment[name];
  }

  /** Looks first, because of single files rclone overwrites also what it is told to leave. */
  async put(upload: Upload, signal: AbortSignal): Promise<void> {
    const there = await this.#sizeOf(upload.name, signal);
    if (there === undefined) {
      await this.#run(["copyto", "--immutable", upload.path, this.#path(upload.name)], signal);
    } else if (there !== upload.bytes || !(await this.#holds(upload, signal))) {
      throw new ObjectConflict(upload.name);
    }
    // A transfer that rclone believes in is not yet one that the other side tells of.
    if ((await this.#sizeOf(upload.name, signal)) !== upload.bytes) {
      throw new TargetFailure("rclone has stored a file, and the other side doesn't show it.");
    }
  }

  async *read(name: string, signal: AbortSignal): AsyncGenerator<Uint8Array> {
    try {
      yield* outputOf(this.#program(["cat", this.#path(name)], signal));
    } catch (error) {
      const failure = asFailure(error, signal);
      throw isMissing(error) ? new ObjectMissing(name) : failure;
    }
  }

  async *list(folder: string, signal: AbortSignal): AsyncGenerator<StoredObject> {
    for (const { Path, Size } of await this.#listed(folder, ["-R", "--files-only"], signal)) {
      yield { name: `${folder}/${Path}`, bytes: Size };
    }
  }

  async topFolders(signal: AbortSignal): Promise<string[]> {
    return (await this.#listed("", ["--dirs-only"], signal)).map(({ Path }) => Path);
  }

  #path(name: string): string {
    if (name === "") return this.#root;
    return this.#root.endsWith(":") ? `${this.#root}${name}` : `${this.#root}/${name}`;
  }

  async #sizeOf(name: string, signal: AbortSignal): Promise<number | undefined> {
    return (await this.#listed(name, [], signal))[0]?.Size;
  }

  async #holds(upload: Upload, signal: AbortSignal): Promise<boolean> {
    const hash = createHash("sha256");
    for await (const piece of this.read(upload.name, signal)) hash.update(piece);
    return hash.digest("hex") === upload.sha256;
  }

  async #listed(
    name: string,
    options: readonly string[],
    signal: AbortSignal,
  ): Promise<readonly Listed[]> {
    const given = ["lsjson", "--no-modtime", "--no-mimetype", ...options, this.#path(name)];
    try {
      return parseListed(await this.#run(given, signal));
    } catch (error) {
      if (error instanceof TargetFailure && isMissing(error.cause)) return [];
      throw error;
    }
  }

  async #run(given: readonly string[], signal: AbortSignal): Promise<string> {
    try {
      return await runProgram(this.#program(given, signal));
    } catch (error) {
      throw asFailure(error, signal);
    }
  }

  #program(given: readonly string[], signal: AbortSignal) {
    const [verb = "", ...rest] = given;
    return {
      path: "rclone",
      arguments: [verb, "--retries=1", "--ask-password=false", ...rest],
      environment: this.#environment,
      timeoutMs,
      signal,
    };
  }
}

function isMissing(error: unknown): boolean {
  return error instanceof ProgramFailed && missing.has(error.exitCode ?? 0);
}

function parseListed(text: string): readonly Listed[] {
  const value: unknown = JSON.parse(text);
  if (Array.isArray(value)) return value as readonly Listed[];
  throw new TargetFailure("rclone's answer can't be understood.");
}

function asFailure(error: unknown, signal: AbortSignal): unknown {
  if (signal.aborted) return signal.reason;
  if (error instanceof ProgramMissing) return new TargetFailure("rclone is not installed.");
  if (!(error instanceof ProgramFailed)) return error;
  const last = error.words
    .split("\n")
    .at(-1)
    ?.replace(/^[0-9/]+ [0-9:]+ /, "");
  const why = last === undefined || last === "" ? error.message : last;
  return new TargetFailure(`rclone failed: ${why}.`, { cause: error });
}
