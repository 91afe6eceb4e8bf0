import type { SessionProgress } from "./backlog.ts";
import { Chunker } from "./chunker.ts";
import type { Gap, Session, SpooledFrame } from "./records.ts";
import type { Spool } from "./spool.ts";

/** Frames of one session that were accepted and are in no chunk. */
export interface LooseRun {
  readonly session: Session;
  readonly frames: SpooledFrame[];
}

/** Frames without a chunk and a session without an end: a new session has to wait for both. */
export class Leftovers {
  readonly #spool: Spool;
  readonly #chunkers: Chunker[];
  readonly #last: SessionProgress | undefined;
  /** Of a session without loose frames. */
  #ending: Chunker | undefined;
  /** The one that is told already. */
  #gap: Gap | undefined;

  constructor(spool: Spool, runs: readonly LooseRun[], last: SessionProgress | undefined) {
    this.#spool = spool;
    this.#last = last;
    this.#chunkers = runs.map(({ session, frames }) => {
      const chunker = new Chunker(spool, session);
      chunker.add(frames);
      return chunker;
    });
  }

  /** Those that are in no chunk yet. */
  get frames(): readonly SpooledFrame[] {
    return this.#chunkers.flatMap((chunker) => [...chunker.frames]);
  }

  /**
   * Makes chunks of the frames. A session that a kill has ended ends with its last frame, and with a
   * gap from there until now; `open` is the one that was running, if any. Resolves with that gap.
   * After a failure it may be called again.
   */
  async putRight(
    open: Session | undefined,
    chunkLengthMs: number,
    nowMs: number,
  ): Promise<Gap | undefined> {
    let gap: Gap | undefined;
    const isLoose = this.#chunkers.some((chunker) => chunker.session.id === open?.id);
    if (open !== undefined && !isLoose) gap = await this.#endSession(open, nowMs);
    for (let chunker = this.#chunkers[0]; chunker; chunker = this.#chunkers[0]) {
      await chunker.closeComplete(chunkLengthMs);
      const endMs = chunker.lastFrameAtMs ?? chunker.session.startedAtMs;
      if (chunker.session.id === open?.id) gap = await this.#endWithGap(chunker, endMs, nowMs);
      else await chunker.finish(endMs);
      this.#chunkers.shift();
    }
    return gap;
  }

  /** All its frames are in chunks; the last of these has the end already, or needs one. */
  async #endSession(session: Session, nowMs: number): Promise<Gap | undefined> {
    const hasChunks = this.#last?.sessionId === session.id;
    if (hasChunks && this.#last?.sessionEnded) return undefined;
    const lastFrameAtMs = (hasChunks ? this.#last?.lastFrameAtMs : undefined) ?? 0;
    const endMs = Math.max(lastFrameAtMs, session.startedAtMs);
    this.#ending ??= new Chunker(this.#spool, session);
    return this.#endWithGap(this.#ending, endMs, nowMs);
  }

  async #endWithGap(chunker: Chunker, endMs: number, nowMs: number): Promise<Gap> {
    if (this.#gap === undefined) {
      const gap: Gap = { fromMs: endMs, toMs: nowMs, cause: "the observer ended unexpectedly" };
      await chunker.addGap(gap);
      this.#gap = gap;
    }
    await chunker.finish(endMs);
    return this.#gap;
  }
}
