import { resolve } from "node:path";
import * as z from "zod/mini";
import { errorCode } from "../base/failure.ts";
import { Mutex } from "../base/mutex.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { Disk } from "../spool/disk.ts";
import { parseRecord } from "../wire/schema.ts";

const FoldersFile = z.object({
  version: z.literal(1),
  journals: z.array(z.string()),
  rawInputs: z.array(z.string()),
});
type FoldersFile = z.infer<typeof FoldersFile>;

/** What the observer writes outside its own folder. */
export type FolderKind = "journals" | "rawInputs";

/** The file was there and could not be read; what it tells must not be passed over. */
export class UnreadableFolders extends Error {
  override readonly name = "UnreadableFolders";
}

/**
 * All folders of the user's choice that the observer has ever written to. The settings tell only the
 * present ones, and what is to be forgotten may lie in former ones.
 */
export class WrittenFolders {
  readonly #disk: Disk;
  readonly #path: string;
  readonly #turns = new Mutex();
  #record: FoldersFile;

  private constructor(disk: Disk, path: string, record: FoldersFile) {
    this.#disk = disk;
    this.#path = path;
    this.#record = record;
  }

  static async open(disk: Disk, path: string): Promise<WrittenFolders> {
    try {
      const record = parseRecord(FoldersFile, parseJson(await disk.readText(path)));
      return new WrittenFolders(disk, path, record);
    } catch (error) {
      if (errorCode(error) === "ENOENT") {
        return new WrittenFolders(disk, path, { version: 1, journals: [], rawInputs: [] });
      }
      const why = error instanceof Error ? error.message : String(error);
      throw new UnreadableFolders(
        `${path} can't be read (${why}); delete it to go on without it, and nothing is looked for in former folders`,
      );
    }
  }

  /** To be called before something is written there: durable when it resolves, at once where it is known. */
  async note(kind: FolderKind, path: string): Promise<void> {
    const folder = resolve(path);
    if (this.#record[kind].includes(folder)) return;
    await this.#turns.run(async () => {
      if (this.#record[kind].includes(folder)) return;
      const record = { ...this.#record, [kind]: [...this.#record[kind], folder] };
      await this.#disk.replaceFile(this.#path, `${writeJson(record)}\n`);
      this.#record = record;
    });
  }

  /** As `note`, where the folder is there: who was here before us has noted nothing. */
  async noteIfThere(kind: FolderKind, folder: string): Promise<void> {
    if ((await this.#disk.size(folder)) !== undefined) await this.note(kind, folder);
  }

  /** The folders that are there, and those that are not at present. */
  async of(kind: FolderKind): Promise<{ there: string[]; gone: string[] }> {
    const [there, gone]: [string[], string[]] = [[], []];
    for (const folder of this.#record[kind]) {
      const isThere = (await this.#disk.size(folder)) !== undefined;
      (isThere ? there : gone).push(folder);
    }
    return { there, gone };
  }
}
