import { isRefusal, isSystemError } from "../base/failure.ts";
import type { JournalSession, KeyedBullet } from "../journal/types.ts";
import { PrivacyUnreadable } from "../privacy/privacyFile.ts";
import { expandedAbsolutePath } from "../settings/expandedPath.ts";
import type { Provider } from "../settings/provider.ts";
import type { Chunk, ChunkResult } from "../spool/records.ts";
import { type AnalysisDependencies, ChunkAnalysis } from "./chunkAnalysis.ts";
import { UnreadableChunk } from "./deferrals.ts";
import { unanalysedText } from "./gapText.ts";
import type { Sieve } from "./sieve.ts";

export interface ChunkWorkDependencies extends AnalysisDependencies {
  /** Appends to the journal in the directory; the same keys again change nothing. */
  appendToJournal(
    directory: string,
    session: JournalSession,
    bullets: readonly KeyedBullet[],
  ): Promise<void>;
  /** Does the task, again and again where the disk is full as long as something can give way. */
  withRoom(task: () => Promise<void>): Promise<void>;
  /** Lines were appended. */
  onWritten(lineCount: number): void;
}

/** The chunk can never be analysed, so the ones behind it must not wait for it. */
export class UnusableChunk extends Error {
  override readonly name = "UnusableChunk";
}

/** The journal's folder refused, which the user can do something about. */
export class JournalFailure extends Error {
  override readonly name = "JournalFailure";
}

/** Has the question asked in a way in which it can be taken back. */
export type Ask = (question: (signal: AbortSignal) => Promise<ChunkResult>) => Promise<ChunkResult>;

/**
 * Takes one chunk through its stages, each of which may be repeated after a kill: what is private
 * leaves it, analysis, stored result, journal, stored queue state, removal.
 */
export class ChunkWork {
  readonly #dependencies: ChunkWorkDependencies;
  readonly #analysis: ChunkAnalysis;
  readonly #sieve: Sieve;
  /** Chunks that are not done, but whose lines stand in the journal: what the user then deletes stays so. */
  readonly #appended = new Set<number>();

  constructor(dependencies: ChunkWorkDependencies, sieve: Sieve) {
    this.#dependencies = dependencies;
    this.#analysis = new ChunkAnalysis(dependencies);
    this.#sieve = sieve;
  }

  /**
   * Throws UnreadableChunk or UnusableChunk where it is the chunk's fault, JournalFailure,
   * PrivacyUnreadable, what the analyst throws, or the error of the disk.
   */
  async process(id: number, chosen: Provider, ask: Ask): Promise<void> {
    const { spool, withRoom, onWritten } = this.#dependencies;
    const chunk = await this.#sifted(await readable("read", () => spool.readChunk(id)));
    const stored = await readable("read the result of", () => spool.readResult(id));
    // Somebody has deleted the answer for which it has its turn, and there is nobody to ask.
    if (stored === undefined && chosen.kind === "unavailable" && chunk.frames.length > 0) return;
    const result = stored ?? (await this.#analyse(chunk, chosen, ask));
    if (result.bullets.length > 0 && !this.#appended.has(id)) {
      await this.#append(chunk, result.bullets);
      this.#appended.add(id);
    }
    const state = result.state === undefined ? spool.queueState?.state : result.state;
    await withRoom(() => spool.complete(chunk, state));
    this.#appended.delete(id);
    if (result.bullets.length > 0) onWritten(result.bullets.length);
  }

  /** Notes in the journal that nobody could describe the chunk. */
  async noteUndescribed(id: number): Promise<void> {
    const { spool, bulletKey } = this.#dependencies;
    const chunk = await spool.readChunk(id);
    const [first, last] = [chunk.frames[0], chunk.frames.at(-1)];
    if (first === undefined || last === undefined) return;
    const atMs = first.receivedAtMs;
    const text = unanalysedText(atMs, last.receivedAtMs);
    await this.#append(chunk, [{ key: bulletKey(atMs, id, 0), atMs, text }]);
  }

  /** Without what is nobody's business. Before this nothing of a chunk may go anywhere. */
  async #sifted(chunk: Chunk): Promise<Chunk> {
    const { withRoom, onComplaint } = this.#dependencies;
    let rest = chunk;
    try {
      await withRoom(async () => {
        rest = await this.#sieve.sift(chunk);
      });
      onComplaint("privacy", undefined);
      onComplaint("privacy patterns", this.#sieve.rulesComplaint);
    } catch (error) {
      if (error instanceof PrivacyUnreadable) onComplaint("privacy", error.message);
      throw error;
    }
    return rest;
  }

  async #append(chunk: Chunk, bullets: readonly KeyedBullet[]): Promise<void> {
    const { settings, home, appendToJournal, noteFolder } = this.#dependencies;
    try {
      const directory = expandedAbsolutePath(settings.record.outputDirectory, home);
      await noteFolder("journals", directory);
      await appendToJournal(directory, chunk.session, bullets);
    } catch (error) {
      throw new JournalFailure("the journal can't be written", { cause: error });
    }
  }

  async #analyse(chunk: Chunk, chosen: Provider, ask: Ask): Promise<ChunkResult> {
    const { spool, withRoom } = this.#dependencies;
    await this.#analysis.saveInputs(chunk);
    const result =
      chosen.kind === "model" && chunk.frames.length > 0
        ? await ask((signal) => this.#analysis.byModel(chosen.provider, chunk, signal))
        : await usable("analyse", async () => this.#analysis.withoutModel(chunk, chosen));
    await withRoom(() => spool.storeResult(chunk.id, result));
    return result;
  }
}

/** What the disk keeps back may pass; every other failure condemns the chunk. */
async function readable<Result>(doing: string, task: () => Promise<Result>): Promise<Result> {
  try {
    return await task();
  } catch (error) {
    throw isRefusal(error) ? new UnreadableChunk(error) : unusable(doing, error);
  }
}

/** Failures of the disk pass through, and are tried again; every other condemns the chunk. */
async function usable<Result>(doing: string, task: () => Promise<Result>): Promise<Result> {
  try {
    return await task();
  } catch (error) {
    throw isSystemError(error) ? error : unusable(doing, error);
  }
}

function unusable(doing: string, error: unknown): UnusableChunk {
  const why = error instanceof Error ? error.message : String(error);
  return new UnusableChunk(`could not ${doing} it (${why})`);
}
