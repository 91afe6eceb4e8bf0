import type { Clock } from "../base/clock.ts";
import { isoLocalTime } from "../base/localTime.ts";
import type { ProviderFailure } from "../providers/failures.ts";

interface Delays {
  readonly firstMs: number;
  readonly greatestMs: number;
}

const forNow: Delays = { firstMs: 5_000, greatestMs: 600_000 };
/** What the user has to put right may be put right elsewhere: a model fetched, a key renewed. */
const untilMended: Delays = { firstMs: 60_000, greatestMs: 3_600_000 };
/** A provider that wants to be left alone for longer is asked again once a day all the same. */
const greatestRetryAfterMs = 86_400_000;
/** Shorter waits are over before anybody has read when they end. */
const leastAnnouncedMs = 60_000;

/**
 * The time in which no model is asked, because it failed. A failure of the provider's ends by itself,
 * after 5 s, doubling to 10 min, and not before the provider said. One of the settings ends with these;
 * where the provider turned the question away at its door it is asked again as well, after a minute,
 * doubling to an hour.
 */
export class ModelPause {
  readonly #clock: Clock;
  readonly #random: () => number;
  readonly #onEnd: () => void;
  #failure: ProviderFailure | undefined;
  #reason: string | undefined;
  #cancelEnd: (() => void) | undefined;
  #failuresInRow = 0;

  /** `random` is at least 0 and below 1; `onEnd` is called when the time is over. */
  constructor(clock: Clock, random: () => number, onEnd: () => void) {
    this.#clock = clock;
    this.#random = random;
    this.#onEnd = onEnd;
  }

  /** Why no model is asked, in a sentence; undefined while one may be. */
  get reason(): string | undefined {
    return this.#reason;
  }

  /** The first failure of a provider is mostly over after its 5 s, and nothing to act upon. */
  get isBlocking(): boolean {
    if (this.#failure === undefined) return false;
    return this.#failure.kind !== "retry" || this.#failuresInRow > 1;
  }

  begin(failure: ProviderFailure): void {
    this.end();
    this.#failure = failure;
    this.#reason = failure.message;
    this.#failuresInRow += 1;
    const delayMs = this.#delayMs(failure);
    if (delayMs === undefined) return;
    if (failure.kind !== "ceiling" && delayMs >= leastAnnouncedMs) {
      const time = isoLocalTime(this.#clock.nowMs() + delayMs);
      const day = delayMs > 43_200_000 ? ` on ${time.slice(0, 10)}` : "";
      this.#reason = `${failure.message} It is tried again at ${time.slice(11, 16)}${day}.`;
    }
    this.#cancelEnd = this.#clock.after(delayMs, () => {
      this.end();
      this.#onEnd();
    });
  }

  /** The model may be asked at once; how often it has failed is remembered. */
  end(): void {
    this.#cancelEnd?.();
    this.#cancelEnd = undefined;
    this.#failure = undefined;
    this.#reason = undefined;
  }

  /** The model has answered, or is another one: the next failure is the first. */
  forget(): void {
    this.end();
    this.#failuresInRow = 0;
  }

  /** Ends it where only the settings or what they name are at fault: somebody has come back. */
  endConfiguration(): void {
    if (this.#failure?.kind === "configuration") this.end();
  }

  /** Undefined where only the user can end it: asking again may cost what the last time has cost. */
  #delayMs({ kind, cost, retryAfterMs }: ProviderFailure): number | undefined {
    const isSetting = kind === "configuration";
    if (isSetting && cost === "unknown") return undefined;
    const { firstMs, greatestMs } = isSetting ? untilMended : forNow;
    const asked = Math.min(retryAfterMs ?? 0, greatestRetryAfterMs);
    const doubled = firstMs * 2 ** Math.min(this.#failuresInRow - 1, 10);
    // Between three quarters and the whole: many clients of one server shall not come at once.
    const own = Math.round(Math.min(doubled, greatestMs) * (0.75 + 0.25 * this.#random()));
    // A server that says "at once", and goes on saying it, is not asked without a pause.
    return Math.max(asked, own);
  }
}
