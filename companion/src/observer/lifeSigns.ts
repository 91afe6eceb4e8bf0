import type { Clock } from "../base/clock.ts";
import { isoLocalTime } from "../base/localTime.ts";

/** What is done about an application that is silent while it records. */
export interface SilenceListener {
  isRecording(): boolean;
  silenceBegins(sinceMs: number, sentence: string): void;
  silenceEnds(): void;
}

/** An application that lives asks every 1.5 s; two looks without a request are 20 to 30 s. */
const lookEveryMs = 10_000;
const silentLooks = 2;

/**
 * Notices when the application asks for nothing any more although it records: it is frozen, or stopped
 * by somebody. Looks are counted instead of comparing times, because a clock may be set, and a machine
 * that sleeps is not silent.
 */
export class LifeSigns {
  readonly #clock: Clock;
  readonly #listener: SilenceListener;
  #lastSignMs: number;
  #looksSince = 0;
  #isSilent = false;
  #cancelLook: (() => void) | undefined;

  constructor(clock: Clock, listener: SilenceListener) {
    this.#clock = clock;
    this.#listener = listener;
    this.#lastSignMs = clock.nowMs();
  }

  /** A request has come. */
  sign(): void {
    this.#lastSignMs = this.#clock.nowMs();
    this.#looksSince = 0;
    if (this.#isSilent) {
      this.#isSilent = false;
      this.#listener.silenceEnds();
    }
    this.#cancelLook ??= this.#lookLater();
  }

  stop(): void {
    this.#cancelLook?.();
    this.#cancelLook = undefined;
  }

  #lookLater(): () => void {
    return this.#clock.after(lookEveryMs, () => this.#look());
  }

  /** Goes on for as long as somebody records or asks; the next request begins it anew. */
  #look(): void {
    this.#cancelLook = undefined;
    this.#looksSince += 1;
    if (!this.#listener.isRecording() || this.#isSilent) return;
    if (this.#looksSince >= silentLooks) {
      this.#isSilent = true;
      const since = isoLocalTime(this.#lastSignMs).slice(11, 19);
      const sentence = `The application has asked for nothing since ${since}, although it records.`;
      this.#listener.silenceBegins(this.#lastSignMs, sentence);
      return;
    }
    this.#cancelLook = this.#lookLater();
  }
}
