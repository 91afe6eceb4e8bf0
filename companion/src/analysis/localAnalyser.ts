import { activityBullet, endsActivity, withPicture } from "./activity.ts";
import { builtInRules } from "./builtInRules.ts";
import { parseContextText } from "./contextText.ts";
import { type Activity, initialState, type LocalState, parseState } from "./localState.ts";
import { describePlace, isIgnored, type Place } from "./places.ts";
import type { Rules } from "./rules.ts";
import { bulletText } from "./summaries.ts";
import { type Step, Timeline } from "./timeline.ts";
import { titleIdentity } from "./titles.ts";
import type { AnalysisOutcome, ObservedFrame } from "./types.ts";

export { initialState, type LocalState, parseState };

function segmentKey(place: Place): string {
  return `${place.workspace.toLowerCase()}\n${titleIdentity(place.title.text)}`;
}

class Analysis {
  readonly #timeline: Timeline;
  #activity: Activity | null;

  constructor(state: LocalState) {
    this.#timeline = new Timeline(state);
    this.#activity = state.activity;
  }

  addFrame(frame: ObservedFrame, rules: Rules): void {
    const step = this.#timeline.advance(frame.receivedAtMs);
    if (step === undefined) {
      return;
    }
    const facts = parseContextText(frame.text);
    if (facts === undefined) {
      this.#addPicture(frame, step);
      return;
    }
    this.#endActivity();
    if (isIgnored(facts, rules)) {
      this.#timeline.leave();
      return;
    }
    const place = describePlace(facts, rules);
    this.#timeline.visit(step, segmentKey(place), place.title.unsaved, (unsaved) =>
      bulletText(place, unsaved),
    );
  }

  finish(stoppedAtMs: number): AnalysisOutcome<LocalState> {
    this.#timeline.finish(stoppedAtMs);
    this.#endActivity();
    return this.outcome();
  }

  outcome(): AnalysisOutcome<LocalState> {
    const state = { ...this.#timeline.result(), activity: this.#activity };
    return { state, bullets: this.#timeline.bullets };
  }

  #addPicture(frame: ObservedFrame, step: Step): void {
    this.#timeline.leave();
    if (this.#activity !== null && endsActivity(this.#activity, step)) {
      this.#endActivity();
    }
    this.#activity = withPicture(this.#activity, step, frame.displayLabel);
  }

  #endActivity(): void {
    const bullet = activityBullet(this.#activity);
    this.#activity = null;
    if (bullet !== undefined) {
      this.#timeline.bullets.push(bullet);
    }
  }
}

/**
 * Analyses the next frames of a recording, in the order of their arrival. Frames that were analysed
 * before (overlapping or repeated chunks) change nothing. Pure: the same state and frames give the
 * same outcome, and the given state stays as it is.
 *
 * The bullets are in time order and none lies before one of an earlier outcome, unless the wall clock
 * itself was set back: each bears the beginning of the stay that made its segment worth noting, and
 * stays follow one another.
 */
export function analyseChunk(
  state: LocalState,
  frames: readonly ObservedFrame[],
  rules: Rules = builtInRules,
): AnalysisOutcome<LocalState> {
  const analysis = new Analysis(state);
  for (const frame of frames) {
    analysis.addFrame(frame, rules);
  }
  return analysis.outcome();
}

/**
 * Ends a recording at `stoppedAtMs` (UTC milliseconds): what is in front is credited until then, at
 * most as a gap between frames is, and noted if that suffices. The state that comes back notes
 * everything anew, since the next recording is a session of its own in the journal; it still knows
 * the frames that were analysed.
 */
export function finishSession(state: LocalState, stoppedAtMs: number): AnalysisOutcome<LocalState> {
  return new Analysis(state).finish(stoppedAtMs);
}

/** The built-in analyser by the given rules. */
export function analyserWith(rules: Rules) {
  return {
    initialState,
    parseState,
    finishSession,
    analyseChunk: (state: LocalState, frames: readonly ObservedFrame[]) =>
      analyseChunk(state, frames, rules),
  };
}
