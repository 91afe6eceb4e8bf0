import type { LocalState, Segment } from "./localState.ts";
import type { Bullet } from "./types.ts";

/** A segment is noted after this long in front ... */
export const NOTE_AFTER_MS = 10_000;
/** ... within this window, so that a glance elsewhere does not start it anew. */
export const MERGE_WINDOW_MS = 120_000;
/** A noted segment is not noted again until it was out of sight for this long. */
export const SILENCE_MS = 600_000;
/** How much of the time without a frame counts for what was in front before it. */
export const MAX_GAP_CREDIT_MS = 15_000;
/** Frames of several displays may arrive this much out of order; further back, the clock was set. */
export const REORDER_LIMIT_MS = 5_000;
/** How many frame times are remembered, to know a repeated frame. Two chunks at the highest rate. */
export const REMEMBERED_FRAMES = 1024;
/** A bound on the state, should titles change with every frame. */
const MAX_SEGMENTS = 200;

type Mutable<T> = { -readonly [K in keyof T]: T[K] };

/** What a frame's time means on the timeline. */
export interface Step {
  /** The wall time at which something that begins with this frame began. */
  readonly atMs: number;
  /** Time since the frame before, 0 when the clock stood or went back. */
  readonly gapMs: number;
  /** The wall clock was set back: what began before it began in the future. */
  readonly clockSetBack: boolean;
}

/**
 * The one timeline of a recording: which segment is in front, since when, and how long in all. Every
 * stretch between two frames is credited once, to the segment that was in front at its beginning, so
 * frames of several displays count no time twice. A working copy for the length of one call.
 */
export class Timeline {
  readonly bullets: Bullet[] = [];
  readonly #state: Mutable<LocalState>;
  readonly #segments: Map<string, Segment>;
  readonly #noted: Map<string, number>;
  readonly #recent: Set<number>;

  constructor(state: LocalState) {
    this.#state = { ...state };
    this.#segments = new Map(state.segments.map((segment) => [segment.key, segment]));
    this.#noted = new Map(state.noted.map(({ key, seenMs }) => [key, seenMs]));
    this.#recent = new Set(state.recentFrameMs);
  }

  /**
   * Moves on to a frame's time and credits what was in front until then. Undefined for a frame that
   * was analysed before (chunks overlap, and a chunk may come again after a crash).
   */
  advance(frameMs: number): Step | undefined {
    const lastMs = this.#state.lastFrameMs ?? frameMs;
    if (frameMs < lastMs && this.#recent.has(frameMs)) {
      return undefined;
    }
    this.#recent.add(frameMs);
    const gapMs = frameMs - lastMs;
    if (gapMs < 0 && gapMs >= -REORDER_LIMIT_MS) {
      return { atMs: lastMs, gapMs: 0, clockSetBack: false };
    }
    this.#state.lastFrameMs = frameMs;
    if (gapMs < 0) {
      this.#state.open = null;
      return { atMs: frameMs, gapMs: 0, clockSetBack: true };
    }
    this.#credit(gapMs);
    this.#state.clockMs += gapMs;
    return { atMs: frameMs, gapMs, clockSetBack: false };
  }

  /** Puts a segment in front. `text` composes its bullet, given whether it ever had unsaved changes. */
  visit(step: Step, key: string, unsaved: boolean, text: (unsaved: boolean) => string): void {
    const stays = this.#state.open?.key === key && step.gapMs <= MERGE_WINDOW_MS;
    if (!stays) {
      this.#state.open = { key, startedAtMs: step.atMs };
    }
    if (this.#isSilent(key)) {
      this.#noted.set(key, this.#state.clockMs);
      return;
    }
    this.#noted.delete(key);
    const before = this.#segments.get(key);
    const kept = this.#recentVisits(before);
    const started = { untilMs: this.#state.clockMs, creditMs: 0 };
    const visits = stays && kept.length > 0 ? kept : [...kept, started];
    const everUnsaved = unsaved || (kept.length > 0 && before?.unsaved === true);
    // Taken out first, so that the newest segment is the last to fall to the bound on the state.
    this.#segments.delete(key);
    this.#segments.set(key, { key, text: text(everUnsaved), unsaved: everUnsaved, visits });
  }

  /** Nothing that is to be noted is in front. */
  leave(): void {
    this.#state.open = null;
  }

  /** The recording stopped: credits what is in front until then, and forgets all but the time. */
  finish(stoppedAtMs: number): void {
    const gapMs = Math.max(0, stoppedAtMs - (this.#state.lastFrameMs ?? stoppedAtMs));
    this.#credit(gapMs);
    this.#state.clockMs += gapMs;
    this.#state.open = null;
    this.#segments.clear();
    this.#noted.clear();
  }

  /** The state after this call, without what no longer matters. */
  result(): LocalState {
    const segments = [...this.#segments.values()]
      .map((segment) => ({ ...segment, visits: this.#recentVisits(segment) }))
      .filter((segment) => segment.visits.length > 0)
      .slice(-MAX_SEGMENTS);
    const noted = [...this.#noted]
      .filter(([key]) => this.#isSilent(key))
      .map(([key, seenMs]) => ({ key, seenMs }));
    const recentFrameMs = [...this.#recent].slice(-REMEMBERED_FRAMES);
    return { ...this.#state, segments, noted, recentFrameMs };
  }

  #credit(gapMs: number): void {
    const open = this.#state.open;
    if (open === null) {
      return;
    }
    const creditMs = Math.min(gapMs, MAX_GAP_CREDIT_MS);
    const untilMs = this.#state.clockMs + creditMs;
    if (this.#noted.has(open.key)) {
      this.#noted.set(open.key, untilMs);
      return;
    }
    const segment = this.#segments.get(open.key);
    const visit = segment?.visits.at(-1);
    if (segment === undefined || visit === undefined) {
      return;
    }
    const visits = [
      ...segment.visits.slice(0, -1),
      { untilMs, creditMs: visit.creditMs + creditMs },
    ];
    this.#segments.set(open.key, { ...segment, visits });
    if (creditWithinWindow(visits, untilMs) >= NOTE_AFTER_MS) {
      this.bullets.push({ atMs: open.startedAtMs, text: segment.text });
      this.#noted.set(open.key, untilMs);
      this.#segments.delete(open.key);
    }
  }

  #isSilent(key: string): boolean {
    const seenMs = this.#noted.get(key);
    return seenMs !== undefined && this.#state.clockMs - seenMs < SILENCE_MS;
  }

  #recentVisits(segment: Segment | undefined): Segment["visits"] {
    const windowStartMs = this.#state.clockMs - MERGE_WINDOW_MS;
    return (segment?.visits ?? []).filter((visit) => visit.untilMs > windowStartMs);
  }
}

/** How much of the visits' credit lies in the window that ends at `nowMs`. */
function creditWithinWindow(visits: Segment["visits"], nowMs: number): number {
  const windowStartMs = nowMs - MERGE_WINDOW_MS;
  let sumMs = 0;
  for (const visit of visits) {
    sumMs += Math.min(visit.creditMs, Math.max(0, visit.untilMs - windowStartMs));
  }
  return sumMs;
}
