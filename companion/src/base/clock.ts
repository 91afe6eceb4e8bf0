/** Time, injected so that tests can hold it. */
export interface Clock {
  /** Wall-clock milliseconds since 1970. */
  nowMs(): number;
  /** Runs the task once after the delay, on the monotonic clock; the result cancels it. */
  after(delayMs: number, task: () => void): () => void;
}

export const systemClock: Clock = {
  nowMs: () => Date.now(),
  after(delayMs, task) {
    const timer = setTimeout(task, delayMs);
    return () => clearTimeout(timer);
  },
};
