import { createHash } from "node:crypto";
import { basename, join } from "node:path";
import { errorCode } from "../../base/failure.ts";
import { parseJson } from "../../json/value.ts";
import { writeJson } from "../../json/writer.ts";
import type { Disk } from "../../spool/disk.ts";
import { chunkFileName, SpoolLayout } from "../../spool/layout.ts";
import { leaveFramesOut, removeAnswers } from "../../spool/leaveFramesOut.ts";
import { discard, setAside } from "../../spool/moves.ts";
import { Chunk, pictureName, type SpooledFrame } from "../../spool/records.ts";
import { parseRecord } from "../../wire/schema.ts";
import { clipPath } from "../clips/packer.ts";
import { PackedChunk } from "../clips/records.ts";
import type { Upload } from "../targets/target.ts";

const clipsFileName = "clips.json";

/**
 * Chunks on their way into the archive, each in a folder of its own. It comes by one rename, holds
 * pictures until its clips and then "clips.json" are durable, and goes by one rename when the list
 * names it. So no kill leaves anything that isn't the one or the other.
 */
export class Items {
  readonly #disk: Disk;
  readonly #layout: SpoolLayout;
  readonly #folder: string;
  /** The bytes of those that have to be packed, in order of arrival. */
  readonly #taken = new Map<string, number>();
  /** In the order in which they were packed. */
  readonly #packed = new Map<string, PackedChunk>();
  #bytes = 0;

  private constructor(disk: Disk, root: string, folder: string) {
    this.#disk = disk;
    this.#layout = new SpoolLayout(root);
    this.#folder = folder;
  }

  /** Finds what is there; what can't be read is put aside. `root` has the trash. */
  static async open(disk: Disk, root: string, folder: string): Promise<Items> {
    const items = new Items(disk, root, folder);
    await disk.makeFolder(folder);
    await disk.syncFolder(folder);
    await disk.syncFolder(root);
    await disk.remove(items.#layout.trash);
    for (const name of (await disk.list(folder)).sort(byNumber)) await items.#find(name);
    return items;
  }

  get bytes(): number {
    return this.#bytes;
  }

  get isEmpty(): boolean {
    return this.#taken.size === 0 && this.#packed.size === 0;
  }

  /** The names of those that have to be packed, in order of arrival. */
  get taken(): string[] {
    return [...this.#taken.keys()];
  }

  /** Those that are packed, oldest first; they may come and go while it is gone through. */
  get packed(): Iterable<[name: string, chunk: PackedChunk]> {
    return this.#packed.entries();
  }

  packedOf(name: string): PackedChunk | undefined {
    return this.#packed.get(name);
  }

  /** Takes a chunk's folder over; false where it has no picture. Nothing there is no error. */
  async take(folder: string): Promise<boolean> {
    const chunk = await this.#readChunk(folder).catch(missing);
    const bytes = chunk === undefined ? 0 : bytesOf(chunk);
    if (bytes === 0) return false;
    await this.#disk.makeFolder(this.#folder);
    const name = await this.#freeName(basename(folder));
    try {
      await this.#disk.move(folder, this.folderOf(name));
    } finally {
      // A move that failed at its very end has been made all the same.
      const isHere = (await this.#disk.size(this.folderOf(name))) !== undefined;
      if (isHere) this.#set(name, bytes);
    }
    return true;
  }

  folderOf(name: string): string {
    return join(this.#folder, name);
  }

  readChunk(name: string): Promise<Chunk> {
    return this.#readChunk(this.folderOf(name));
  }

  /** From now on the clips are all that counts; the pictures go. */
  async storeClips(name: string, packed: PackedChunk): Promise<void> {
    const folder = this.folderOf(name);
    await this.#disk.replaceFile(join(folder, clipsFileName), writeJson(packed));
    this.#set(name, packed);
    await this.#removePictures(folder);
  }

  /** The item's clips as what is to be stored, under the vault's folder. */
  uploads(name: string, packed: PackedChunk): Upload[] {
    return packed.clips.map((clip, number) => {
      const path = clipPath(this.folderOf(name), number);
      const { bytes, sha256 } = clip;
      const read = () => this.#disk.read(path);
      return { name: `${packed.vault}/${clip.name}`, path, bytes, sha256, read };
    });
  }

  /** Whether the clips can still be read, and are what was made. */
  async areClipsWhole(name: string, packed: PackedChunk): Promise<boolean> {
    for (const { read, sha256 } of this.uploads(name, packed)) {
      const hash = createHash("sha256");
      try {
        for await (const piece of read()) hash.update(piece);
      } catch (error) {
        if (errorCode(error) === "ENOENT" || errorCode(error) === "EIO") return false;
        throw error;
      }
      if (hash.digest("hex") !== sha256) return false;
    }
    return true;
  }

  /** Takes frames out of an item that isn't packed, and resolves with how many there were. */
  async leaveOut(name: string, goes: (frame: SpooledFrame) => boolean): Promise<number> {
    const chunk = await this.readChunk(name);
    await removeAnswers(this.#disk, this.folderOf(name));
    const rest = await leaveFramesOut(this.#disk, this.folderOf(name), chunk, goes);
    const bytes = bytesOf(rest);
    if (bytes === 0) await this.discard(name);
    else this.#set(name, bytes);
    return chunk.frames.length - rest.frames.length;
  }

  /** Nothing there is no error. */
  async discard(name: string): Promise<void> {
    await discard(this.#disk, this.#layout, this.folderOf(name));
    this.#drop(name);
  }

  async setAside(name: string, nowMs: number): Promise<void> {
    await setAside(this.#disk, this.#layout, this.folderOf(name), `item-${name}-${nowMs}`);
    this.#drop(name);
  }

  /** As a chunk of pictures of so many bytes, or as clips. One that has its place already keeps it. */
  #set(name: string, item: number | PackedChunk): void {
    this.#bytes -= this.#bytesOf(name);
    if (typeof item === "number") {
      this.#taken.set(name, item);
    } else {
      this.#taken.delete(name);
      this.#packed.set(name, item);
    }
    this.#bytes += this.#bytesOf(name);
  }

  #drop(name: string): void {
    this.#bytes -= this.#bytesOf(name);
    this.#taken.delete(name);
    this.#packed.delete(name);
  }

  #bytesOf(name: string): number {
    const packed = this.#packed.get(name);
    return packed === undefined ? (this.#taken.get(name) ?? 0) : clipBytes(packed);
  }

  async #find(name: string): Promise<void> {
    const folder = this.folderOf(name);
    const packed = await this.#readPacked(folder);
    if (packed !== undefined) {
      this.#set(name, packed);
      await this.#removePictures(folder);
      return;
    }
    try {
      this.#set(name, bytesOf(await this.#readChunk(folder)));
    } catch {
      await setAside(this.#disk, this.#layout, folder, `item-${name}`);
    }
  }

  async #readPacked(folder: string): Promise<PackedChunk | undefined> {
    try {
      const text = await this.#disk.readText(join(folder, clipsFileName));
      return parseRecord(PackedChunk, parseJson(text));
    } catch (error) {
      if (errorCode(error) !== "ENOENT" && errorCode(error) !== undefined) throw error;
      return undefined;
    }
  }

  async #readChunk(folder: string): Promise<Chunk> {
    const text = await this.#disk.readText(join(folder, chunkFileName));
    return parseRecord(Chunk, parseJson(text));
  }

  async #removePictures(folder: string): Promise<void> {
    const stays = (name: string) => name.endsWith(".age") || name === clipsFileName;
    for (const name of await this.#disk.list(folder)) {
      if (!stays(name)) await this.#disk.remove(join(folder, name));
    }
  }

  /** Ids of chunks are unique, unless somebody has deleted the file that counts them. */
  async #freeName(id: string): Promise<string> {
    for (let turn = 0; ; turn += 1) {
      const name = turn === 0 ? id : `${id}-${turn}`;
      if ((await this.#disk.size(join(this.#folder, name))) === undefined) return name;
    }
  }
}

function bytesOf(chunk: Chunk): number {
  const known = new Set<string>();
  return chunk.frames.reduce((sum, frame) => {
    const isNew = !known.has(pictureName(frame));
    known.add(pictureName(frame));
    return isNew ? sum + frame.pictureBytes : sum;
  }, 0);
}

function clipBytes(packed: PackedChunk): number {
  return packed.clips.reduce((sum, clip) => sum + clip.bytes, 0);
}

function byNumber(a: string, b: string): number {
  return Number.parseInt(a, 10) - Number.parseInt(b, 10) || (a < b ? -1 : 1);
}

function missing(error: unknown): undefined {
  if (errorCode(error) !== "ENOENT") throw error;
  return undefined;
}
