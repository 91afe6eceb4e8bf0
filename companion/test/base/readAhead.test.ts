import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { readAhead } from "../../src/base/readAhead.ts";

const never = new AbortController().signal;

/** Jobs that end when the test says so. */
class Jobs {
  readonly begun: number[] = [];
  readonly aborted: number[] = [];
  readonly #ends = new Map<number, () => void>();

  readonly start = (item: number, signal: AbortSignal): Promise<string> => {
    this.begun.push(item);
    return new Promise((resolve, reject) => {
      this.#ends.set(item, () => resolve(`result ${item}`));
      signal.addEventListener("abort", () => {
        if (this.#ends.delete(item)) this.aborted.push(item);
        reject(new Error("aborted"));
      });
    });
  };

  end(item: number): void {
    this.#ends.get(item)?.();
    this.#ends.delete(item);
  }
}

describe("reading ahead", () => {
  it("results_comeInTheOrderOfTheItems_whateverEndsFirst", async () => {
    const jobs = new Jobs();
    const results = readAhead([1, 2, 3], 2, jobs.start, never);
    const first = results.next();
    jobs.end(3);
    jobs.end(2);
    jobs.end(1);
    assert.equal((await first).value, "result 1");
    assert.equal((await results.next()).value, "result 2");
    assert.equal((await results.next()).value, "result 3");
    assert.equal((await results.next()).done, true);
  });

  it("noMoreThanAFew_areBegunAhead", async () => {
    const jobs = new Jobs();
    const results = readAhead([1, 2, 3, 4, 5], 2, jobs.start, never);
    const first = results.next();
    assert.deepEqual(jobs.begun, [1, 2, 3]);
    jobs.end(1);
    await first;
    const second = results.next();
    assert.deepEqual(jobs.begun, [1, 2, 3, 4]);
    for (const item of [2, 3, 4]) jobs.end(item);
    await second;
    await results.return(undefined);
  });

  it("failure_isThrownInItsTurn_andEndsWhatHasBeenBegun", async () => {
    const jobs = new Jobs();
    const start = (item: number, signal: AbortSignal) =>
      item === 2 ? Promise.reject(new Error("the second failed")) : jobs.start(item, signal);
    const results = readAhead([1, 2, 3, 4], 3, start, never);
    const first = results.next();
    jobs.end(1);
    assert.equal((await first).value, "result 1");
    await assert.rejects(results.next(), /the second failed/);
    assert.deepEqual(jobs.aborted.sort(), [3, 4]);
    assert.equal((await results.next()).done, true);
  });

  it("callerWhoWantsNoMore_endsWhatHasBeenBegun", async () => {
    const jobs = new Jobs();
    const results = readAhead([1, 2, 3], 1, jobs.start, never);
    const first = results.next();
    jobs.end(1);
    await first;
    await results.return(undefined);
    assert.deepEqual(jobs.aborted, [2]);
  });

  it("abortedSignal_endsThemAll", async () => {
    const jobs = new Jobs();
    const controller = new AbortController();
    const results = readAhead([1, 2], 1, jobs.start, controller.signal);
    const first = results.next();
    controller.abort();
    await assert.rejects(first, /aborted/);
    assert.deepEqual(jobs.aborted.sort(), [1, 2]);
  });
});
