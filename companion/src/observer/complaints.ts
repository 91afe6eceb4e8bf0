/** What is wrong at present: at most one sentence an area, of which the status tells the newest. */
export class Complaints {
  readonly #sentences = new Map<string, string>();
  readonly #lasting: ReadonlySet<string>;

  /** Lasting areas are those that a new recording leaves as they are. */
  constructor(lasting: readonly string[]) {
    this.#lasting = new Set(lasting);
  }

  get newest(): string | undefined {
    return [...this.#sentences.values()].at(-1);
  }

  has(area: string): boolean {
    return this.#sentences.has(area);
  }

  /** Undefined when nothing is wrong there any more. */
  set(area: string, sentence: string | undefined): void {
    this.#sentences.delete(area);
    if (sentence !== undefined) this.#sentences.set(area, sentence);
  }

  /** A new recording begins without what was wrong with the old one. */
  forgetRecording(): void {
    for (const area of this.#sentences.keys()) {
      if (!this.#lasting.has(area)) this.#sentences.delete(area);
    }
  }
}
