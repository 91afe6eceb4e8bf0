import type { Clock } from "../base/clock.ts";
import { processStart } from "./processIdentity.ts";

/** The parent's standard input tells its end at once; this is for where that isn't a pipe. */
const pollMs = 5_000;

/** Calls `onGone` once when the process is gone, or another has its pid. The result ends the watch. */
export async function watchParent(
  pid: number,
  clock: Clock,
  onGone: () => void,
  startOf: (pid: number) => Promise<string | undefined> = processStart,
): Promise<() => void> {
  const start = await startOf(pid);
  let cancel = () => {};
  let isWatching = true;
  const look = async () => {
    const now = await startOf(pid);
    if (!isWatching) return;
    if (start === undefined || now !== start) onGone();
    else cancel = clock.after(pollMs, () => void look());
  };
  await look();
  return () => {
    isWatching = false;
    cancel();
  };
}
