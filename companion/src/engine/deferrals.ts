import type { Clock } from "../base/clock.ts";
import { describeFailure } from "../base/failure.ts";

/** The disk keeps back a waiting chunk, which may well be whole: its turn comes later. */
export class UnreadableChunk extends Error {
  override readonly name = "UnreadableChunk";

  constructor(cause: Error) {
    super(`${describeFailure("A waiting chunk can't be read", cause)}.`, { cause });
  }
}

const firstDelayMs = 5_000;
const greatestDelayMs = 600_000;

/**
 * The waiting chunks that can't be read at present. The others go on without them; after 5 s, doubling
 * to 10 min, they are tried again.
 */
export class Deferrals {
  readonly #clock: Clock;
  readonly #onEnd: () => void;
  readonly #ids = new Set<number>();
  /** Those that are to be tried again; whichever fails is deferred anew. */
  readonly #due = new Set<number>();
  #reason: string | undefined;
  #delayMs = firstDelayMs;
  #cancelEnd: (() => void) | undefined;

  /** `onEnd` is called when the chunks may be tried again. */
  constructor(clock: Clock, onEnd: () => void) {
    this.#clock = clock;
    this.#onEnd = onEnd;
  }

  /** Why chunks are left out, in a sentence; undefined while none is. */
  get reason(): string | undefined {
    return this.#ids.size + this.#due.size > 0 ? this.#reason : undefined;
  }

  has(id: number): boolean {
    return this.#ids.has(id);
  }

  add(id: number, { message }: UnreadableChunk): void {
    this.#due.delete(id);
    this.#ids.add(id);
    this.#reason = message;
    if (this.#cancelEnd !== undefined) return;
    this.#cancelEnd = this.#clock.after(this.#delayMs, () => this.retry());
    this.#delayMs = Math.min(this.#delayMs * 2, greatestDelayMs);
  }

  /** It could be read, or is no more. */
  delete(id: number): void {
    this.#ids.delete(id);
    this.#due.delete(id);
    if (this.#ids.size + this.#due.size === 0) this.close();
  }

  /** They are tried at once. */
  retry(): void {
    this.#cancelEnd?.();
    this.#cancelEnd = undefined;
    for (const id of this.#ids) this.#due.add(id);
    this.#ids.clear();
    this.#onEnd();
  }

  close(): void {
    this.#cancelEnd?.();
    this.#cancelEnd = undefined;
    this.#delayMs = firstDelayMs;
  }
}
