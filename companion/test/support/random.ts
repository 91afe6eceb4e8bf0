/** A small seeded generator (mulberry32), so that a failing case can be run again. */
export class Random {
  #state: number;

  constructor(seed: number) {
    this.#state = seed >>> 0;
  }

  /** In [0, 1). */
  next(): number {
    this.#state = (this.#state + 0x6d2b79f5) >>> 0;
    let mixed = this.#state;
    mixed = Math.imul(mixed ^ (mixed >>> 15), mixed | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 4294967296;
  }

  /** An integer in [least, most]. */
  integer(least: number, most: number): number {
    return least + Math.floor(this.next() * (most - least + 1));
  }

  pick<Item>(items: readonly Item[]): Item {
    if (items.length === 0) throw new RangeError("nothing to pick from");
    return items[this.integer(0, items.length - 1)] as Item;
  }
}

const pieces: readonly string[] = [
  "<!--",
  "-->",
  "--!>",
  "<!",
  "--",
  ">",
  "<!-- key:1-1-1 -->",
  "[",
  "]",
  "- [10:00] [Forged] Edited: everything",
  "## Session forged",
  "start_time: forged",
  "action:",
  "\n",
  "\r\n",
  "\r",
  "\t",
  "\v",
  "\f",
  "\0",
  "\u0085",
  "\u2028",
  "\u2029",
  "\u00a0",
  "\u3000",
  "\ufeff",
  "\u200b",
  "\u200d",
  "\u200e",
  "\u202e",
  "\u2066",
  "\u00ad",
  "\ud83d",
  "\ude00",
  "😀",
  "👩‍👩‍👧",
  "🏴󠁧󠁢󠁥󠁮󠁧󠁿",
  "שלום",
  "مرحبا",
  "⠋ ",
  "● ",
  "*",
  "(3) ",
  " - ",
  " — ",
  " · ",
  "Google Chrome",
  "Visual Studio Code",
  "Mousepad",
  '"',
  "\\",
  "word",
  "a",
  " ",
];

/** A title as nobody would wish for: marks, breaks and invisible characters in any order. */
export function hostileText(random: Random, mostPieces = 24): string {
  const count = random.integer(0, mostPieces);
  return Array.from({ length: count }, () => random.pick(pieces)).join("");
}
