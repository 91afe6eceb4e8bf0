import { join } from "node:path";
import { isSystemError } from "../base/failure.ts";
import { Base64Decoder, Base64Error } from "../frames/base64.ts";
import type { FramePart, FrameRecord } from "../frames/frameReader.ts";
import { writeJson } from "../json/writer.ts";
import { InvalidRecord, parseRecord } from "../wire/schema.ts";
import type { Disk, OpenFile } from "./disk.ts";
import { frameListName, type SpoolLayout, unfinished } from "./layout.ts";
import { pictureName, type Session, SpooledFrame } from "./records.ts";

/** Pictures of a batch that the disk refused, and its last reason. */
export interface LostPictures {
  readonly count: number;
  readonly reason: Error;
}

/** How many pictures of a batch may be on their way to the disk at the same time. */
const mostOpenPictures = 16;

/**
 * Writes one batch into `incoming/<id>.partial/` as it arrives. `commit` makes it durable as a
 * whole, or it is abandoned as a whole; one of the two ends every batch. A picture that the
 * disk refuses is left out, because the text of its frame is worth more and may still find room.
 */
export class BatchWriter {
  readonly id: number;
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #folder: string;
  readonly #session: Session;
  #list: OpenFile;
  readonly #decoder = new Base64Decoder();
  readonly #frames: SpooledFrame[] = [];
  #picture: OpenFile | undefined;
  #pictureBytes = 0;
  /** Why the rest of the picture at hand is passed over. */
  #refusal: Error | undefined;
  #lostPictures: LostPictures | undefined;
  /** Pictures that the disk is taking while the next ones arrive: waiting for each takes far longer. */
  readonly #syncing = new Set<Promise<void>>();
  /** Those of them, by their frames, that it refused. */
  readonly #refused = new Map<number, unknown>();

  private constructor(
    disk: Disk,
    layout: SpoolLayout,
    id: number,
    session: Session,
    list: OpenFile,
  ) {
    this.id = id;
    this.#disk = disk;
    this.#layout = layout;
    this.#folder = unfinished(layout.batch(id));
    this.#session = session;
    this.#list = list;
  }

  /** Undefined while every picture has found room. */
  get lostPictures(): LostPictures | undefined {
    return this.#lostPictures;
  }

  /** Makes the folder; when it throws, some of it may be there. */
  static async begin(disk: Disk, layout: SpoolLayout, id: number, session: Session) {
    const folder = unfinished(layout.batch(id));
    await disk.makeFolder(folder);
    const list = await beginList(disk, folder, session);
    return new BatchWriter(disk, layout, id, session, list);
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
    await Promise.all(this.#syncing);
    if (this.#refused.size > 0) await this.#leaveRefusedOut();
    await this.#list.finish();
    await this.#disk.syncFolder(this.#folder);
    await this.#disk.move(this.#folder, this.#layout.batch(this.id));
    return this.#frames;
  }

  /** Closes what is open. The folder is the caller's to remove. */
  async abandon(): Promise<void> {
    await Promise.all(this.#syncing);
    await this.#picture?.abandon().catch(() => undefined);
    await this.#list.abandon().catch(() => undefined);
  }

  /** The name of a picture ends by its media type, which may come after the picture itself. */
  #temporaryPicture(): string {
    return join(this.#folder, "picture");
  }

  async #writePicture(bytes: Uint8Array): Promise<void> {
    if (bytes.length === 0 || this.#refusal !== undefined) return;
    try {
      this.#picture ??= await this.#disk.createFile(this.#temporaryPicture());
      await this.#picture.write(bytes);
      this.#pictureBytes += bytes.length;
    } catch (error) {
      await this.#leavePictureOut(error);
    }
  }

  async #finishFrame(record: FrameRecord): Promise<void> {
    const frame = this.#spooled({ ...record, pictureBytes: this.#pictureBytes });
    const hasPicture = await this.#finishPicture(frame);
    this.#frames.push(hasPicture ? frame : { ...frame, pictureBytes: 0 });
    this.#pictureBytes = 0;
    this.#refusal = undefined;
    try {
      await writeLine(this.#list, this.#frames.at(-1));
    } catch (error) {
      if (!isSystemError(error)) throw error;
      await this.#keepTextsOnly(error);
    }
  }

  #spooled(fields: FrameRecord & { readonly pictureBytes: number }): SpooledFrame {
    const index = this.#frames.length;
    const identity = { batch: this.id, frame: index };
    return parseRecord(SpooledFrame, { ...fields, ...identity }, ["frames", String(index)]);
  }

  /** False when there is no picture. */
  async #finishPicture(frame: SpooledFrame): Promise<boolean> {
    const picture = this.#picture;
    if (picture === undefined) return false;
    try {
      const name = join(this.#folder, pictureName(frame));
      const isThere = await this.#disk.moveIfThere(this.#temporaryPicture(), name);
      this.#picture = undefined;
      await this.#syncLater(picture, frame.frame);
      return isThere;
    } catch (error) {
      await this.#leavePictureOut(error);
      return false;
    }
  }

  async #syncLater(picture: OpenFile, frame: number): Promise<void> {
    const sync: Promise<void> = picture.finish().then(
      () => void this.#syncing.delete(sync),
      (error: unknown) => {
        this.#syncing.delete(sync);
        this.#refused.set(frame, error);
      },
    );
    this.#syncing.add(sync);
    if (this.#syncing.size >= mostOpenPictures) await Promise.race(this.#syncing);
  }

  /** Nobody knows what the disk has of these. */
  async #leaveRefusedOut(): Promise<void> {
    for (const [index, error] of this.#refused) {
      if (!isSystemError(error)) throw error;
      await this.#leaveOut(index, error);
    }
    await this.#writeListAnew();
  }

  async #leavePictureOut(error: unknown): Promise<void> {
    if (!isSystemError(error)) throw error;
    this.#refusal = error;
    this.#countLost(1, error);
    await this.#picture?.abandon().catch(() => undefined);
    this.#picture = undefined;
    this.#pictureBytes = 0;
    // Half a picture takes up the room that the text needs.
    await this.#disk.remove(this.#temporaryPicture()).catch(() => undefined);
  }

  /** The last resort of a batch: without any of its pictures there may be room for its texts. */
  async #keepTextsOnly(reason: Error): Promise<void> {
    await Promise.all(this.#syncing);
    this.#refused.clear();
    for (const index of this.#frames.keys()) await this.#leaveOut(index, reason);
    await this.#writeListAnew();
  }

  async #leaveOut(index: number, reason: Error): Promise<void> {
    const frame = this.#frames[index];
    if (frame === undefined || frame.pictureBytes === 0) return;
    await this.#disk.remove(join(this.#folder, pictureName(frame)));
    this.#frames[index] = { ...frame, pictureBytes: 0 };
    this.#countLost(1, reason);
  }

  async #writeListAnew(): Promise<void> {
    await this.#list.abandon().catch(() => undefined);
    this.#list = await beginList(this.#disk, this.#folder, this.#session);
    for (const frame of this.#frames) await writeLine(this.#list, frame);
  }

  #countLost(count: number, reason: Error): void {
    this.#lostPictures = { count: (this.#lostPictures?.count ?? 0) + count, reason };
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

async function beginList(disk: Disk, folder: string, session: Session): Promise<OpenFile> {
  const list = await disk.createFile(join(folder, frameListName));
  try {
    await writeLine(list, { version: 1, session });
    return list;
  } catch (error) {
    await list.abandon().catch(() => undefined);
    throw error;
  }
}

function writeLine(list: OpenFile, record: unknown): Promise<void> {
  return list.write(Buffer.from(`${writeJson(record)}\n`));
}
