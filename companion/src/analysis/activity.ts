import { bracketLabel } from "../journal/bulletText.ts";
import type { Activity } from "./localState.ts";
import { durationText } from "./summaries.ts";
import { MAX_GAP_CREDIT_MS, MERGE_WINDOW_MS, NOTE_AFTER_MS, type Step } from "./timeline.ts";
import type { Bullet } from "./types.ts";

/** A bullet says for how long, so it is written at the end; a long run is told in pieces of this. */
export const LONGEST_ACTIVITY_MS = 600_000;
const MAX_NAMED_DISPLAYS = 4;

/** The bullet for a run of pictures without context text, if it lasted long enough to be noted. */
export function activityBullet(activity: Activity | null): Bullet | undefined {
  if (activity === null || activity.creditMs < NOTE_AFTER_MS) {
    return undefined;
  }
  const named = activity.displays.slice(0, MAX_NAMED_DISPLAYS);
  const last = activity.displays.length > MAX_NAMED_DISPLAYS ? "others" : named.pop();
  const displays = named.length === 0 ? last : `${named.join(", ")} and ${last}`;
  const duration = durationText(activity.creditMs);
  return { atMs: activity.startedAtMs, text: `[Screen] Activity: ${displays} for ${duration}` };
}

/** Whether a frame at this step no longer belongs to the run. */
export function endsActivity(activity: Activity, step: Step): boolean {
  return (
    step.clockSetBack || step.gapMs > MERGE_WINDOW_MS || activity.spanMs >= LONGEST_ACTIVITY_MS
  );
}

/**
 * Adds a picture without context text to the run, or begins one. A gap too long for a credit counts
 * nothing here: nobody knows of an application in front, and a still picture is no activity.
 */
export function withPicture(activity: Activity | null, step: Step, displayLabel: string): Activity {
  const label = bracketLabel(displayLabel);
  const display = label === "" ? "a display" : label;
  if (activity === null) {
    return { startedAtMs: step.atMs, spanMs: 0, creditMs: 0, displays: [display] };
  }
  const known = activity.displays.includes(display);
  return {
    startedAtMs: activity.startedAtMs,
    spanMs: activity.spanMs + step.gapMs,
    creditMs: activity.creditMs + (step.gapMs <= MAX_GAP_CREDIT_MS ? step.gapMs : 0),
    // One more than can be named is enough to know that there are others.
    displays:
      known || activity.displays.length > MAX_NAMED_DISPLAYS
        ? activity.displays
        : [...activity.displays, display],
  };
}
