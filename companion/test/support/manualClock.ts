import type { Clock } from "../../src/base/clock.ts";

interface Timer {
  readonly atMs: number;
  readonly task: () => void;
}

/** Stands still until a test moves it on. */
export class ManualClock implements Clock {
  #nowMs: number;
  /** What the wall clock shows beyond it; timers don't mind. */
  #wallOffsetMs = 0;
  #timers: Timer[] = [];

  constructor(nowMs = 1_795_250_000_000) {
    this.#nowMs = nowMs;
  }

  get timerCount(): number {
    return this.#timers.length;
  }

  /** How long until the next timer. */
  get nextDelayMs(): number | undefined {
    const times = this.#timers.map((timer) => timer.atMs);
    return times.length === 0 ? undefined : Math.min(...times) - this.#nowMs;
  }

  nowMs(): number {
    return this.#nowMs + this.#wallOffsetMs;
  }

  /** Sets the wall clock, as a user or a time server does. */
  setWall(ms: number): void {
    this.#wallOffsetMs = ms - this.#nowMs;
  }

  after(delayMs: number, task: () => void): () => void {
    const timer = { atMs: this.#nowMs + delayMs, task };
    this.#timers.push(timer);
    return () => {
      this.#timers = this.#timers.filter((other) => other !== timer);
    };
  }

  /** Moves on and runs what has come due, in order. */
  advance(ms: number): void {
    this.#nowMs += ms;
    const due = this.#timers.filter((timer) => timer.atMs <= this.#nowMs);
    this.#timers = this.#timers.filter((timer) => timer.atMs > this.#nowMs);
    due.sort((a, b) => a.atMs - b.atMs);
    for (const timer of due) timer.task();
  }
}
