import type { Clock } from "../base/clock.ts";
import { TargetFailure } from "./targets/target.ts";

/** The caller gives up after 60 s. */
const patienceMs = 45_000;

/** How long a request may wait for the place of the archive. */
export class RequestTime {
  readonly #clock: Clock;
  readonly #closing = new AbortController();

  constructor(clock: Clock) {
    this.#clock = clock;
  }

  /** Runs what ends with the observer, and before the caller gives up. */
  async run<Result>(task: (signal: AbortSignal) => Promise<Result>): Promise<Result> {
    const controller = new AbortController();
    const late = new TargetFailure("The place of the archive took too long to answer.");
    const cancel = this.#clock.after(patienceMs, () => controller.abort(late));
    const close = () => controller.abort(this.#closing.signal.reason);
    this.#closing.signal.addEventListener("abort", close);
    try {
      return await task(controller.signal);
    } finally {
      cancel();
      this.#closing.signal.removeEventListener("abort", close);
    }
  }

  /** Everything that waits ends with an error. */
  close(): void {
    this.#closing.abort(new TargetFailure("The observer is shutting down."));
  }
}
