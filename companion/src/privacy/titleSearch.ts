import { createContext, Script } from "node:vm";
import { Worker } from "node:worker_threads";
import { Mutex } from "../base/mutex.ts";

/** Searching both ends is enough: what marks a private window stands at one of them. */
const searchedEnd = 2_000;
/** Titles take microseconds. What takes longer must not keep the frames waiting. */
const greatestWaitMs = 10;
/** A title that can't be decided upon in so long counts as found, as it does in the application. */
const greatestSearchMs = 1_000;
/** After so many titles at which it was given up a pattern never again keeps anything waiting. */
const mostGivenUp = 3;

const found = new Script("patterns.some((pattern) => pattern.test(title))");
/** Only in a context of its own can a search be ended that would go on for ever. */
const context = createContext({ patterns: [], title: "" });

const workerSource = `
  const { parentPort } = require("node:worker_threads");
  parentPort.on("message", ({ pattern, title }) => parentPort.postMessage(pattern.test(title)));
`;

/** By its code alone: it comes from the context, whose errors are not of our classes. */
function isTimeout(error: unknown): boolean {
  const code = typeof error === "object" && error !== null && "code" in error ? error.code : "";
  return code === "ERR_SCRIPT_EXECUTION_TIMEOUT";
}

/** Undefined where it would take too long to find out here. */
function isFoundAtOnce(patterns: readonly RegExp[], title: string): boolean | undefined {
  Object.assign(context, { patterns, title });
  try {
    return found.runInContext(context, { timeout: greatestWaitMs }) === true;
  } catch (error) {
    if (isTimeout(error)) return undefined;
    throw error;
  }
}

/** The same on a thread of its own; undefined when that took too long, and was ended. */
async function isFoundInTime(pattern: RegExp, title: string): Promise<boolean | undefined> {
  const worker = new Worker(workerSource, { eval: true, env: {}, stdin: false });
  worker.unref();
  let cancel = () => {};
  try {
    return await new Promise<boolean | undefined>((resolve, reject) => {
      worker.once("error", reject);
      worker.once("message", (isFound: boolean) => resolve(isFound));
      // The time is the search's own, without that of starting a thread on a busy machine.
      worker.once("online", () => {
        const timer = setTimeout(() => resolve(undefined), greatestSearchMs);
        cancel = () => clearTimeout(timer);
        worker.postMessage({ pattern, title });
      });
    });
  } finally {
    cancel();
    await worker.terminate();
  }
}

/** Searches titles for any of the user's patterns, without ever holding up anything else for long. */
export class TitleSearch {
  readonly #patterns: readonly RegExp[];
  /** At how many titles each pattern was given up. */
  readonly #givenUp = new Map<RegExp, number>();
  readonly #turns = new Mutex();

  constructor(patterns: readonly RegExp[]) {
    this.#patterns = patterns;
  }

  /** Numbers, from 1, of the patterns that were given up at some title. */
  get givenUp(): readonly number[] {
    return this.#patterns.flatMap((pattern, index) =>
      this.#givenUp.has(pattern) ? [index + 1] : [],
    );
  }

  /** A search that takes too long has found it. */
  async isFound(title: string): Promise<boolean> {
    if (this.#patterns.length === 0 || title === "") return false;
    const searched = searchedPart(title);
    const quick = this.#patterns.filter((pattern) => !this.#isSlow(pattern));
    const isFound = isFoundAtOnce(quick, searched);
    if (isFound === true) return true;
    const rest = isFound === undefined ? this.#patterns : this.#patterns.filter(this.#isSlow);
    return this.#turns.run(() => this.#isFoundAside(rest, searched));
  }

  /** One after the other, so that it is known which one it is that takes so long. */
  async #isFoundAside(patterns: readonly RegExp[], title: string): Promise<boolean> {
    for (const pattern of patterns) {
      const isFound = this.#isSlow(pattern) ? undefined : isFoundAtOnce([pattern], title);
      if (isFound === true) return true;
      if (isFound === false) continue;
      const isFoundLater = await isFoundInTime(pattern, title);
      if (isFoundLater === undefined) {
        this.#givenUp.set(pattern, (this.#givenUp.get(pattern) ?? 0) + 1);
      }
      if (isFoundLater !== false) return true;
    }
    return false;
  }

  readonly #isSlow = (pattern: RegExp): boolean => (this.#givenUp.get(pattern) ?? 0) >= mostGivenUp;
}

function searchedPart(title: string): string {
  return title.length <= 2 * searchedEnd
    ? title
    : title.slice(0, searchedEnd) + title.slice(-searchedEnd);
}
