import { isoLocalTime } from "../base/localTime.ts";
import type { Gap } from "../spool/records.ts";

/**
 * The journal's lines about what the journal lacks. They are entries like any other, so every reader
 * of it shows them, under a workspace that no analyser may use:
 *
 *     [Ostrel] Gap: 10:32:05 to 10:40:10, the disk was full
 */
export const ownWorkspace = "Ostrel";

const dateAndBlank = 11;

/** "10:32:05", with its date where that isn't the other's. */
function timeBeside(ms: number, otherMs: number): string {
  const time = isoLocalTime(ms).slice(0, 19).replace("T", " ");
  const isSameDay = time.slice(0, 10) === isoLocalTime(otherMs).slice(0, 10);
  return isSameDay ? time.slice(dateAndBlank) : time;
}

function between(fromMs: number, toMs: number): string {
  const from = isoLocalTime(fromMs).slice(dateAndBlank, 19);
  // A clock that was set back knows no end.
  return toMs < fromMs ? `after ${from}` : `${from} to ${timeBeside(toMs, fromMs)}`;
}

/** A stretch of which no frame was kept. */
export function gapText({ fromMs, toMs, cause }: Gap): string {
  return `[${ownWorkspace}] Gap: ${between(fromMs, toMs)}, ${cause}`;
}

/** A stretch whose frames were kept, and which nobody could describe. */
export function unanalysedText(fromMs: number, toMs: number): string {
  return `[${ownWorkspace}] Gap: ${between(fromMs, toMs)}, the model did not describe it`;
}
