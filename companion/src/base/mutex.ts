/** Runs tasks one after the other, in the order in which they came. */
export class Mutex {
  #last: Promise<unknown> = Promise.resolve();

  /** Resolves or rejects with the task; a failed task doesn't hold up the next one. */
  run<Result>(task: () => Promise<Result>): Promise<Result> {
    const result = this.#last.then(task, task);
    this.#last = result.catch(() => undefined);
    return result;
  }
}
