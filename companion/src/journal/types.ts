import type { Bullet } from "../analysis/types.ts";

/** One recording as the journal names it. `id` is one line without blanks at its ends. */
export interface JournalSession {
  readonly id: string;
  /** UTC milliseconds. */
  readonly startedAtMs: number;
}

/** A bullet with the identity under which it is written at most once. */
export interface KeyedBullet extends Bullet {
  /** `<utcMs>-<chunk>-<n>`, of the characters 0-9, a-z and hyphen only. See `bulletKey`. */
  readonly key: string;
}
