/**
 * The results of slow jobs in the order of their items, with a few jobs begun ahead of the one that is waited for.
 * The first failure is thrown when its turn comes; then, or when the caller wants no more, what has been begun is
 * aborted and waited for.
 */
export async function* readAhead<Item, Result>(
  items: Iterable<Item>,
  ahead: number,
  job: (item: Item, signal: AbortSignal) => Promise<Result>,
  signal: AbortSignal,
): AsyncGenerator<Result, undefined> {
  const controller = new AbortController();
  const begun: Promise<Result>[] = [];
  const abort = () => controller.abort(signal.reason);
  signal.addEventListener("abort", abort);
  if (signal.aborted) abort();
  try {
    for (const item of items) {
      const result = job(item, controller.signal);
      result.catch(() => undefined); // it is thrown to whoever waits for it, and to nobody else
      begun.push(result);
      if (begun.length > ahead) yield await take(begun);
    }
    while (begun.length > 0) yield await take(begun);
  } finally {
    signal.removeEventListener("abort", abort);
    controller.abort();
    await Promise.allSettled(begun);
  }
}

function take<Result>(begun: Promise<Result>[]): Promise<Result> {
  const first = begun.shift();
  if (first === undefined) throw new RangeError("nothing has been begun");
  return first;
}
