import { createHash } from "node:crypto";
import * as z from "zod/mini";
import { outputOf, ProgramFailed, ProgramMissing, runProgram } from "../../base/runProgram.ts";
import { parseJson } from "../../json/value.ts";
import { parseRecord } from "../../wire/schema.ts";
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

const Listing = z.array(z.object({ Path: z.string(), Size: z.number() }));
type Listing = z.infer<typeof Listing>;

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

  /**
   * Looks first, because of single files rclone overwrites also what it is told to leave. Older ones
   * write some places' files in place, so that a kill leaves the beginning of one under its name.
   */
  async put(upload: Upload, signal: AbortSignal): Promise<void> {
    const copy = ["copyto", upload.path, this.#path(upload.name)];
    const there = await this.#sizeOf(upload.name, signal);
    if (there === undefined) {
      await this.#run([...copy, "--immutable"], signal);
    } else {
      const isOurs = there <= upload.bytes && (await this.#holdsFirst(there, upload, signal));
      if (!isOurs) throw new ObjectConflict(upload.name);
      if (there < upload.bytes) await this.#run(copy, signal);
    }
    // A transfer that rclone believes in is not yet one that the other side tells of.
    if ((await this.#sizeOf(upload.name, signal)) !== upload.bytes) {
      throw new TargetFailure("rclone has stored a file, and the other side doesn't show it.");
    }
  }

  /** Looks first: what is there no more is an error to rclone, like others. */
  async remove(name: string, signal: AbortSignal): Promise<void> {
    if ((await this.#sizeOf(name, signal)) === undefined) return;
    await this.#run(["deletefile", this.#path(name)], signal);
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

  /** Whether so many bytes are there, and are those with which the upload begins. */
  async #holdsFirst(bytes: number, upload: Upload, signal: AbortSignal): Promise<boolean> {
    const [theirs, ours] = [createHash("sha256"), createHash("sha256")];
    for await (const piece of this.read(upload.name, signal)) theirs.update(piece);
    let left = bytes;
    for await (const piece of upload.read()) {
      ours.update(piece.subarray(0, left));
      left -= Math.min(left, piece.length);
    }
    return theirs.digest("hex") === ours.digest("hex");
  }

  async #listed(name: string, options: readonly string[], signal: AbortSignal): Promise<Listing> {
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

function parseListed(text: string): Listing {
  try {
    return parseRecord(Listing, parseJson(text));
  } catch (cause) {
    throw new TargetFailure("rclone's answer can't be understood.", { cause });
  }
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
