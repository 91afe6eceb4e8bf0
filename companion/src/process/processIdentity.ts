import { readFileSync } from "node:fs";

/**
 * When a process began, in the kernel's ticks since boot; undefined when there is no such process.
 * With it a pid stands for one process only, although pids are used again. Read at once, because
 * /proc never waits for a disk, and every step of an asynchronous reading would wake two threads.
 */
export function processStart(pid: number): string | undefined {
  try {
    const stat = readFileSync(`/proc/${pid}/stat`, "latin1");
    // The command in parentheses may hold blanks and parentheses; the 22nd field is the start.
    const fields = stat.slice(stat.lastIndexOf(")") + 2).split(" ");
    const isGone = fields[0] === "Z" || fields[0] === "X";
    return isGone ? undefined : fields[19];
  } catch {
    return undefined;
  }
}
