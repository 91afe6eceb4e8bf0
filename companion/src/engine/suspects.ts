import type { ProviderFailure } from "../providers/failures.ts";

/** After so many failures about one chunk in a row another is tried: then it may be that one. */
const mostFailuresInRow = 3;

/**
 * Tells a chunk about which a provider fails from a provider that fails. A server may break down
 * over one picture, and the newest chunk is asked about first: nothing older would ever have its turn.
 */
export class Suspects {
  /** By chunk, failures of which the chunk may be the cause. */
  readonly #failures = new Map<number, number>();
  /** Those that failed where others didn't, and whether others were answered since they last did. */
  readonly #suspects = new Map<number, boolean>();

  /** The one to ask about; undefined when there is none. `ids` are those that wait, the newest first. */
  choose(ids: readonly number[]): number | undefined {
    const [first, second] = ids.filter((id) => !this.#suspects.has(id));
    if (first === undefined) return ids[0];
    return this.#hasFailedMuch(first) ? (second ?? first) : first;
  }

  /** The provider answered about the chunk, so it is not the provider that fails about others. */
  answered(id: number): void {
    for (const other of this.#suspects.keys()) this.#suspects.set(other, true);
    for (const other of this.#failures.keys()) {
      if (this.#hasFailedMuch(other)) this.#suspects.set(other, true);
    }
    this.#failures.clear();
    this.forget(id);
  }

  /** True when the failure can only be the chunk's own: others were answered in the meantime. */
  failed(id: number, { kind, cost }: ProviderFailure): boolean {
    // What never got there, and what was turned away at the door, is not about the chunk.
    if (kind !== "retry" || cost !== "unknown") return false;
    const wereOthersAnswered = this.#suspects.get(id);
    if (wereOthersAnswered !== undefined) {
      this.#suspects.set(id, false);
      return wereOthersAnswered;
    }
    const isAlsoAnother = [...this.#failures.keys()].some(
      (other) => other !== id && this.#hasFailedMuch(other),
    );
    // It is the provider, then; and the newest comes first again.
    if (isAlsoAnother) this.#failures.clear();
    else this.#failures.set(id, (this.#failures.get(id) ?? 0) + 1);
    return false;
  }

  /** The chunk waits no more. */
  forget(id: number): void {
    this.#failures.delete(id);
    this.#suspects.delete(id);
  }

  /** Another provider may be able to do what this one couldn't. */
  clear(): void {
    this.#failures.clear();
    this.#suspects.clear();
  }

  #hasFailedMuch(id: number): boolean {
    return (this.#failures.get(id) ?? 0) >= mostFailuresInRow;
  }
}
