import type { Clock } from "../base/clock.ts";
import { processStart } from "./processIdentity.ts";

/** The parent's standard input tells its end at once; this is for where that isn't a pipe. */
const pollMs = 5_000;

/** Calls `onGone` once when the process is gone, or another has its pid. */
export function watchParent(
  pid: number,
  clock: Clock,
  onGone: () => void,
  startOf: (pid: number) => string | undefined = processStart,
): void {
  const start = startOf(pid);
  const look = (now: string | undefined) => {
    if (now === undefined || now !== start) onGone();
    else clock.after(pollMs, () => look(startOf(pid)));
  };
  look(start);
}
