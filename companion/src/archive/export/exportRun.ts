import { createHash } from "node:crypto";
import type { Clock } from "../../base/clock.ts";
import { describeFailure } from "../../base/failure.ts";
import type { ArchiveExportStatus } from "../../wire/records.ts";
import { decrypt } from "../age/age.ts";
import { AgeError } from "../age/sealing.ts";
import type { ClipEntry } from "../clips/records.ts";
import type { Vault } from "../keys/vault.ts";
import type { ArchiveList } from "../manifest/listReader.ts";
import {
  type ArchiveTarget,
  ObjectMissing,
  ObjectUnreadable,
  TargetFailure,
} from "../targets/target.ts";
import { type ExportedDay, type ExportFolder, exportPath } from "./exportFolder.ts";

export interface ExportDependencies {
  readonly clock: Clock;
  readonly target: ArchiveTarget;
  readonly vault: Vault;
  readonly folder: ExportFolder;
  /** Whether the user has had the clip of that name forgotten since. */
  isForgotten(name: string): boolean;
  readList(signal: AbortSignal): Promise<ArchiveList>;
}

type DayOutcome = Pick<ExportedDay, "clips" | "skipped" | "unlisted">;

/** The object isn't the one that was stored. */
class AlteredClip extends Error {
  override readonly name = "AlteredClip";
}

class Cancelled extends Error {
  override readonly name = "Cancelled";
}

/** Between the attempts to read one object. */
const pausesMs = [1_000, 5_000];

/**
 * One export, from the list to the last clip. A clip that is missing or altered in the archive is
 * skipped, and said so in the folder's list; so is one in whose place something else stands.
 */
export class ExportRun {
  readonly #dependencies: ExportDependencies;
  readonly #cancelling = new AbortController();
  readonly done: Promise<void>;
  #status: ArchiveExportStatus = {
    state: "running",
    exported: 0,
    total: 0,
    skipped: 0,
    currentDay: undefined,
    error: undefined,
  };

  constructor(dependencies: ExportDependencies) {
    this.#dependencies = dependencies;
    this.done = this.#run();
  }

  get status(): ArchiveExportStatus {
    return this.#status;
  }

  /** Resolves when nothing is written any more. */
  async cancel(): Promise<void> {
    this.#cancelling.abort(new Cancelled());
    await this.done;
  }

  async #run(): Promise<void> {
    try {
      const problems = await this.#exportAll(this.#cancelling.signal);
      if (problems.length === 0) this.#update({ state: "done", currentDay: undefined });
      else this.#fail(problemSentence(problems, Number(this.#status.exported)));
    } catch (error) {
      if (error instanceof Cancelled) this.#update({ state: "cancelled", currentDay: undefined });
      else this.#fail(sentenceFor(error));
    }
  }

  async #exportAll(signal: AbortSignal): Promise<readonly string[]> {
    const { folder, readList } = this.#dependencies;
    const list = await this.#withRetries(() => readList(signal), signal);
    const { days, problems } = list;
    this.#update({ total: list.count });
    for (const day of days) {
      this.#update({ currentDay: day });
      await folder.beginDay(day);
      const clips = await list.clipsOf(day);
      await folder.finishDay(day, await this.#exportDay(day, clips, signal));
    }
    await folder.finish(problems);
    return problems;
  }

  async #exportDay(
    day: string,
    clips: readonly ClipEntry[],
    signal: AbortSignal,
  ): Promise<DayOutcome> {
    const unlisted = await this.#unlisted(day, clips, signal);
    const outcome: DayOutcome = { clips: [], skipped: [], unlisted };
    for (const clip of clips) {
      signal.throwIfAborted();
      const why = await this.#exportClip(clip, signal);
      if (why !== undefined && this.#dependencies.isForgotten(clip.name)) {
        // As if it had never been in the list.
        this.#update({ total: Number(this.#status.total) - 1 });
        continue;
      }
      if (why === undefined) outcome.clips.push({ ...clip, file: exportPath(clip) });
      else outcome.skipped.push({ name: clip.name, why });
      this.#update(
        why === undefined
          ? { exported: Number(this.#status.exported) + 1 }
          : { skipped: Number(this.#status.skipped) + 1 },
      );
    }
    return outcome;
  }

  /** Why it was skipped; undefined when it stands in the folder. */
  async #exportClip(clip: ClipEntry, signal: AbortSignal): Promise<string | undefined> {
    const { folder } = this.#dependencies;
    const there = await folder.look(clip);
    if (there === "itself") return undefined;
    if (there === "something else") return "something else stands in its place";
    try {
      const isWritten = await this.#withRetries(
        () => folder.write(clip, this.#contents(clip, signal)),
        signal,
      );
      return isWritten ? undefined : "something else stands in its place";
    } catch (error) {
      if (error instanceof ObjectMissing) return "it is missing in the archive";
      if (error instanceof ObjectUnreadable) return `it can't be read: ${error.message}`;
      if (error instanceof AlteredClip) return `it was altered in the archive: ${error.message}`;
      throw error;
    }
  }

  /** The decrypted clip; throws AlteredClip at the end at the latest unless it is what was stored. */
  async *#contents(clip: ClipEntry, signal: AbortSignal): AsyncGenerator<Uint8Array> {
    const { target, vault } = this.#dependencies;
    const stored = createHash("sha256");
    let bytes = 0;
    async function* object(): AsyncGenerator<Uint8Array> {
      for await (const piece of target.read(`${vault.id}/${clip.name}`, signal)) {
        bytes += piece.length;
        if (bytes > clip.bytes) throw new AlteredClip("it is larger than it was");
        stored.update(piece);
        yield piece;
      }
    }
    const content = createHash("sha256");
    try {
      for await (const piece of decrypt(object(), vault.identity)) {
        content.update(piece);
        yield piece;
      }
    } catch (error) {
      if (error instanceof AgeError) throw new AlteredClip(error.message);
      throw error;
    }
    const isWhole =
      stored.digest("hex") === clip.sha256 && content.digest("hex") === clip.contentSha256;
    if (!isWhole) throw new AlteredClip("another clip stands in its place");
  }

  /** Objects of that day that nobody has listed: still on their way, or put there by others. */
  async #unlisted(
    day: string,
    clips: readonly ClipEntry[],
    signal: AbortSignal,
  ): Promise<string[]> {
    const { target, vault } = this.#dependencies;
    const names = new Set(clips.map((clip) => clip.name));
    const unlisted: string[] = [];
    for await (const object of target.list(`${vault.id}/clips/${day}`, signal)) {
      const name = object.name.slice(vault.id.length + 1);
      if (!names.has(name)) unlisted.push(name);
    }
    return unlisted;
  }

  /** A server that doesn't answer for a moment doesn't end an export of hours. */
  async #withRetries<Result>(task: () => Promise<Result>, signal: AbortSignal): Promise<Result> {
    for (let attempt = 0; ; attempt += 1) {
      try {
        return await task();
      } catch (error) {
        const pauseMs = pausesMs[attempt];
        const isForGood = !(error instanceof TargetFailure) || error instanceof ObjectMissing;
        if (isForGood || pauseMs === undefined) throw error;
        await pause(this.#dependencies.clock, pauseMs, signal);
      }
    }
  }

  #update(change: Partial<ArchiveExportStatus>): void {
    this.#status = { ...this.#status, ...change };
  }

  #fail(error: string): void {
    this.#update({ state: "failed", error, currentDay: undefined });
  }
}

function pause(clock: Clock, delayMs: number, signal: AbortSignal): Promise<void> {
  return new Promise((resolve, reject) => {
    const cancel = clock.after(delayMs, resolve);
    signal.addEventListener(
      "abort",
      () => {
        cancel();
        reject(signal.reason);
      },
      { once: true },
    );
  });
}

function problemSentence(problems: readonly string[], exported: number): string {
  const more = problems.length > 1 ? ` And ${problems.length - 1} more, in manifest.json.` : "";
  return `${exported} clips were exported, but the archive is not as it was stored. ${problems[0]}${more}`;
}

function sentenceFor(error: unknown): string {
  if (error instanceof TargetFailure) return error.message;
  return `${describeFailure("The export can't go on", error)}.`;
}
