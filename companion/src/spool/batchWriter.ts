import { join } from "node:path";
import { Base64Decoder, Base64Error } from "../frames/base64.ts";
import type { FramePart, FrameRecord } from "../frames/frameReader.ts";
import { writeJson } from "../json/writer.ts";
import { InvalidRecord, parseRecord } from "../wire/schema.ts";
import type { Disk, OpenFile } from "./disk.ts";
import { frameListName, type SpoolLayout, unfinished } from "./layout.ts";
import { pictureName, type Session, SpooledFrame } from "./records.ts";

/**
 * Writes one batch into `incoming/<id>.partial/` as it arrives. `commit` makes it durable as a
 * whole and `abandon` removes it as a whole; one of the two ends every batch.
 */
export class BatchWriter {
  readonly id: number;
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #folder: string;
  readonly #list: OpenFile;
  readonly #decoder = new Base64Decoder();
  readonly #frames: SpooledFrame[] = [];
  #picture: OpenFile | undefined;
  #pictureBytes = 0;

  private constructor(disk: Disk, layout: SpoolLayout, id: number, list: OpenFile) {
    this.id = id;
    this.#disk = disk;
    this.#layout = layout;
    this.#folder = unfinished(layout.batch(id));
    this.#list = list;
  }

  static async begin(disk: Disk, layout: SpoolLayout, id: number, session: Session) {
    const folder = unfinished(layout.batch(id));
    let list: OpenFile | undefined;
    try {
      await disk.makeFolder(folder);
      list = await disk.createFile(join(folder, frameListName));
      await writeLine(list, { version: 1, session });
      return new BatchWriter(disk, layout, id, list);
    } catch (error) {
      await list?.abandon().catch(() => undefined);
      await disk.remove(folder).catch(() => undefined);
      throw error;
    }
  }

  /** Throws InvalidRecord where the picture is not base64 or the time is no date. */
  async take(part: FramePart): Promise<void> {
    switch (part.kind) {
      case "picturePart":
        await this.#writePicture(this.#decoded(() => this.#decoder.push(part.base64)));
        break;
      case "pictureEnd":
        await this.#writePicture(this.#decoded(() => this.#decoder.end()));
        break;
      case "frame":
        await this.#finishFrame(part.record);
        break;
    }
  }

  /** Resolves with the frames once nothing can take them away any more. */
  async commit(): Promise<readonly SpooledFrame[]> {
    await this.#list.finish();
    await this.#disk.syncFolder(this.#folder);
    await this.#disk.move(this.#folder, this.#layout.batch(this.id));
    return this.#frames;
  }

  /** Removes every trace of the batch. What fails here is removed at the next start. */
  async abandon(): Promise<void> {
    await this.#picture?.abandon().catch(() => undefined);
    await this.#list.abandon().catch(() => undefined);
    await this.#disk.remove(this.#folder).catch(() => undefined);
  }

  /** The name of a picture ends by its media type, which may come after the picture itself. */
  #temporaryPicture(): string {
    return join(this.#folder, "picture");
  }

  async #writePicture(bytes: Uint8Array): Promise<void> {
    if (bytes.length === 0) return;
    this.#picture ??= await this.#disk.createFile(this.#temporaryPicture());
    await this.#picture.write(bytes);
    this.#pictureBytes += bytes.length;
  }

  async #finishFrame(record: FrameRecord): Promise<void> {
    const frame = parseRecord(
      SpooledFrame,
      {
        ...record,
        batch: this.id,
        frame: this.#frames.length,
        pictureBytes: this.#pictureBytes,
      },
      ["frames", String(this.#frames.length)],
    );
    const picture = this.#picture;
    this.#picture = undefined;
    this.#pictureBytes = 0;
    if (picture !== undefined) {
      await picture.finish();
      const name = join(this.#folder, pictureName(frame));
      await this.#disk.moveIfThere(this.#temporaryPicture(), name);
    }
    await writeLine(this.#list, frame);
    this.#frames.push(frame);
  }

  #decoded(decode: () => Uint8Array): Uint8Array {
    try {
      return decode();
    } catch (error) {
      if (!(error instanceof Base64Error)) throw error;
      const path = `frames.${this.#frames.length}.videoBase64`;
      throw new InvalidRecord(path, `Invalid input: ${error.message}`);
    }
  }
}

function writeLine(list: OpenFile, record: unknown): Promise<void> {
  return list.write(Buffer.from(`${writeJson(record)}\n`));
}
