import { join } from "node:path";

/** Where everything lies in the state folder. */
export class SpoolLayout {
  readonly root: string;
  readonly incoming: string;
  readonly pending: string;
  readonly trash: string;
  readonly quarantine: string;
  readonly stateFile: string;
  readonly sessionFile: string;
  readonly usageFile: string;
  readonly ownSettingsFile: string;
  readonly momentsFile: string;
  readonly forgottenFile: string;
  readonly foldersFile: string;

  constructor(root: string) {
    this.root = root;
    this.incoming = join(root, "incoming");
    this.pending = join(root, "pending");
    this.trash = join(root, "trash");
    this.quarantine = join(root, "quarantine");
    this.stateFile = join(root, "queue.json");
    this.sessionFile = join(root, "session.json");
    this.usageFile = join(root, "usage.json");
    this.ownSettingsFile = join(root, "settings.json");
    this.momentsFile = join(root, "private.json");
    this.forgottenFile = join(root, "forgotten.json");
    this.foldersFile = join(root, "folders.json");
  }

  batch(id: number): string {
    return join(this.incoming, String(id));
  }

  chunk(id: number): string {
    return join(this.pending, String(id));
  }
}

/** A folder that is being filled; it loses the ending, and counts, when it is complete. */
export function unfinished(folder: string): string {
  return `${folder}.partial`;
}

export function isUnfinished(folder: string): boolean {
  return folder.endsWith(".partial");
}

export const frameListName = "frames.jsonl";
export const chunkFileName = "chunk.json";
/** In a batch that has become a chunk: up to where its frames are in others. */
export const cursorFileName = "cursor.json";
export const resultFileName = "result.json";
export const refusalsFileName = "refusals.json";

/** The ids among the names of a folder, in order: finished ones, and those still being filled. */
export function folderIds(names: readonly string[]): { finished: number[]; partial: number[] } {
  const ids = (pattern: RegExp) =>
    names
      .map((name) => pattern.exec(name)?.[1])
      .filter((id) => id !== undefined)
      .map(Number)
      .sort((a, b) => a - b);
  return { finished: ids(/^([0-9]{1,15})$/), partial: ids(/^([0-9]{1,15})\.partial$/) };
}
