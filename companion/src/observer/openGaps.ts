import { errorCode } from "../base/failure.ts";
import type { Gap } from "../spool/records.ts";

/** Why frames are missing; each begins and ends by itself. */
export type GapArea = "disk" | "silence";

/** The stretches of the running recording of which nothing is kept at present. */
export class OpenGaps {
  readonly #open = new Map<GapArea, Pick<Gap, "fromMs" | "cause">>();

  /** While one of the area is open it goes on. */
  begin(area: GapArea, fromMs: number, cause: string): void {
    if (!this.#open.has(area)) this.#open.set(area, { fromMs, cause });
  }

  /** The gap as it ends at that time; undefined when none was open. */
  ending(area: GapArea, toMs: number): Gap | undefined {
    const gap = this.#open.get(area);
    return gap && { ...gap, toMs };
  }

  /** Its line is safe. */
  forget(area: GapArea): void {
    this.#open.delete(area);
  }

  get areas(): readonly GapArea[] {
    return [...this.#open.keys()];
  }
}

const causes = new Map([
  ["ENOSPC", "the disk was full"],
  ["EDQUOT", "the disk quota was used up"],
  ["EROFS", "the disk was read-only"],
  ["EIO", "the disk failed"],
]);

/** Why the disk didn't keep the frames, as a gap's line says it. */
export function diskCause(error: unknown): string {
  return causes.get(errorCode(error) ?? "") ?? "the frames could not be written";
}
