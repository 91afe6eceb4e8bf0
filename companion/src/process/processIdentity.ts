import { readFile } from "node:fs/promises";

/**
 * When a process began, in the kernel's ticks since boot; undefined when there is no such process.
 * With it a pid stands for one process only, although pids are used again.
 */
export async function processStart(pid: number): Promise<string | undefined> {
  try {
    const stat = await readFile(`/proc/${pid}/stat`, "latin1");
    // The command in parentheses may hold blanks and parentheses; the 22nd field is the start.
    const fields = stat.slice(stat.lastIndexOf(")") + 2).split(" ");
    const isGone = fields[0] === "Z" || fields[0] === "X";
    return isGone ? undefined : fields[19];
  } catch {
    return undefined;
  }
}
