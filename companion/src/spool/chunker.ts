import type { Gap, Session, SpooledFrame } from "./records.ts";
import type { Spool } from "./spool.ts";

const greatestGapMs = 60_000;

/** How far around a private frame others are private, too: what it shows comes and goes with time. */
export const privateMarginMs = 1_000;

/** Whether a chunk that runs from `first` to `last` closes before `next`. */
function closesBefore(
  first: SpooledFrame,
  last: SpooledFrame,
  next: SpooledFrame,
  greatestLengthMs: number,
): boolean {
  const gapMs = next.receivedAtMs - last.receivedAtMs;
  const lengthMs = next.receivedAtMs - first.receivedAtMs;
  return gapMs < 0 || gapMs > greatestGapMs || lengthMs >= greatestLengthMs;
}

/** The frames of one session that are in no chunk yet, and the rule by which chunks close. */
export class Chunker {
  readonly session: Session;
  readonly #spool: Spool;
  #frames: SpooledFrame[] = [];
  #closedCount = 0;
  #lastFrameAtMs: number | undefined;
  #isFinished = false;

  constructor(spool: Spool, session: Session) {
    this.#spool = spool;
    this.session = session;
  }

  /** How many chunks of the session are closed: the index of the one that is open. */
  get closedCount(): number {
    return this.#closedCount;
  }

  /** Those that are in no chunk yet. */
  get frames(): readonly SpooledFrame[] {
    return this.#frames;
  }

  get hasFrames(): boolean {
    return this.#frames.length > 0;
  }

  get pictureBytes(): number {
    return this.#frames.reduce((sum, frame) => sum + frame.pictureBytes, 0);
  }

  get lastFrameAtMs(): number | undefined {
    return this.#lastFrameAtMs;
  }

  /** Adds committed frames in their order of arrival. */
  add(frames: readonly SpooledFrame[]): void {
    this.#frames.push(...frames);
    this.#lastFrameAtMs = frames.at(-1)?.receivedAtMs ?? this.#lastFrameAtMs;
  }

  /** Closes every chunk that is complete. What fails stays open and is tried again next time. */
  async closeComplete(lengthMs: number): Promise<void> {
    for (let end = this.#firstEnd(lengthMs); end > 0; end = this.#firstEnd(lengthMs)) {
      await this.#close(end);
    }
    await this.#spool.finishClosing();
  }

  /** Closes what is open, however short. */
  async closeOpen(): Promise<void> {
    if (this.#frames.length > 0) await this.#close(this.#frames.length);
    await this.#spool.finishClosing();
  }

  /**
   * Closes the session's last chunk, which bears the stop even when it has no frame. After a failure
   * it may be called again; there is only one last chunk.
   */
  async finish(stoppedAtMs: number): Promise<void> {
    if (!this.#isFinished) await this.#close(this.#frames.length, stoppedAtMs);
    this.#isFinished = true;
    await this.#spool.finishClosing();
  }

  /**
   * Closes what is open, and behind it a chunk that tells the gap. Once this has resolved the gap is
   * durable; `closeOpen` does the rest, and has to follow.
   */
  async addGap(gap: Gap): Promise<void> {
    await this.closeOpen();
    await this.#close(0, undefined, [gap]);
  }

  #firstEnd(lengthMs: number): number {
    const [first] = this.#frames;
    if (first === undefined) return 0;
    for (let index = 1; index < this.#frames.length; index += 1) {
      const [last, next] = [this.#frames[index - 1], this.#frames[index]];
      if (!last || !next || !closesBefore(first, last, next, lengthMs)) continue;
      return this.#hasComeAfter(last) ? index : 0;
    }
    return 0;
  }

  /** Whether all is there that could make the frame private by following it closely. */
  #hasComeAfter(frame: SpooledFrame): boolean {
    const newest = this.#frames.at(-1)?.receivedAtMs ?? frame.receivedAtMs;
    return newest < frame.receivedAtMs || newest >= frame.receivedAtMs + privateMarginMs;
  }

  async #close(frameCount: number, stoppedAtMs?: number, gaps?: readonly Gap[]): Promise<void> {
    const frames = this.#frames.slice(0, frameCount);
    await this.#spool.closeChunk(this.session, frames, stoppedAtMs, gaps);
    this.#frames = this.#frames.slice(frameCount);
    this.#closedCount += 1;
  }
}
