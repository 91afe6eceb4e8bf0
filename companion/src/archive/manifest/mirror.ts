import { join } from "node:path";
import { errorCode } from "../../base/failure.ts";
import type { Disk } from "../../spool/disk.ts";
import { readWhole } from "../clips/chunkClips.ts";
import type { SegmentName } from "./segment.ts";

/**
 * The parts of lists that this machine has written or read, as they lie in the archive: encrypted,
 * and so no more to be believed than there. They spare reading them again, and tell what was there.
 */
export class Mirror {
  readonly #disk: Disk;
  readonly #folder: string;

  constructor(disk: Disk, folder: string) {
    this.#disk = disk;
    this.#folder = folder;
  }

  pathOf({ writer, sequence, day }: SegmentName): string {
    return join(this.#folder, `${writer}-${sequence}-${day}.age`);
  }

  /** Everything that is kept. */
  async names(): Promise<SegmentName[]> {
    const names = await this.#disk.list(this.#folder).catch(missing);
    return (names ?? []).flatMap((name) => {
      const match = /^([0-9a-f]{16})-([0-9]+)-([0-9-]{10})\.age$/.exec(name);
      const [, writer, sequence, day] = match ?? [];
      if (writer === undefined || day === undefined) return [];
      return [{ writer, sequence: Number(sequence), day }];
    });
  }

  /** Undefined where it isn't kept. */
  read(name: SegmentName): Promise<Buffer | undefined> {
    return readWhole(this.#disk, this.pathOf(name)).catch(missing);
  }

  /** Durable when it resolves. */
  async keep(name: SegmentName, object: Uint8Array): Promise<void> {
    await this.#disk.makeFolder(this.#folder);
    const file = await this.#disk.createFile(this.pathOf(name));
    try {
      await file.write(object);
    } catch (error) {
      await file.abandon();
      throw error;
    }
    await file.finish();
    await this.#disk.syncFolder(this.#folder);
  }

  /** Of a part that was never stored, and never will be. */
  async remove(name: SegmentName): Promise<void> {
    await this.#disk.remove(this.pathOf(name));
  }

  /** The part that is kept, as something to store. */
  upload(name: SegmentName) {
    const path = this.pathOf(name);
    return { path, read: () => this.#disk.read(path) };
  }
}

function missing(error: unknown): undefined {
  if (errorCode(error) !== "ENOENT") throw error;
  return undefined;
}
