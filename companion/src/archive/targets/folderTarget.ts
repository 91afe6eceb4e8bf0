import { createHash } from "node:crypto";
import { dirname, join } from "node:path";
import { describeFailure, errorCode, isSystemError } from "../../base/failure.ts";
import type { FileSystem } from "../../base/fileSystem.ts";
import { makeFolder } from "../../base/makeFolder.ts";
import { publish } from "../../base/publish.ts";
import { syncFolder } from "../../base/syncFolder.ts";
import { type Disk, diskOn } from "../../spool/disk.ts";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
  ObjectUnreadable,
  type StoredObject,
  TargetFailure,
  type Upload,
} from "./target.ts";

/** The name of the vault's file in its folder. */
export const vaultFileName = "vault.age";

const unread = "The archive's folder can't be read";
const nothingThere = new Set(["ENOENT", "ENOTDIR", "ELOOP"]);

/**
 * A folder, perhaps of another machine's disk. The folder itself is never made: where a disk isn't
 * connected, its mount point would take the footage instead.
 */
export class FolderTarget implements ArchiveTarget {
  readonly #fs: FileSystem;
  readonly #disk: Disk;
  readonly #root: string;
  /** Folders whose names are durable, up to the root. */
  readonly #durable = new Set<string>();

  constructor(fs: FileSystem, root: string) {
    this.#fs = fs;
    this.#disk = diskOn(fs);
    this.#root = root;
  }

  put(upload: Upload, signal: AbortSignal): Promise<void> {
    return this.#told("The archive's folder can't be written", async () => {
      await this.#requireRoot();
      await this.#requireVault(upload.name);
      const path = this.#path(upload.name);
      await this.#makeDurable(dirname(path));
      const temporary = join(dirname(path), `.${path.slice(dirname(path).length + 1)}.part`);
      const isPublished =
        !(await this.#isThere(path)) && (await this.#write(upload, temporary, path, signal));
      if (!isPublished && !(await this.#holds(path, upload))) throw new ObjectConflict(upload.name);
      await this.#disk.remove(temporary);
      // It may have been stored by one who was killed before its name was durable.
      await syncFolder(this.#fs, dirname(path));
    });
  }

  remove(name: string): Promise<void> {
    return this.#told("The archive's folder can't be written", async () => {
      await this.#requireRoot();
      // Of another disk's folder, where nothing of that name is, it would be believed.
      await this.#requireVault(name);
      const path = this.#path(name);
      await this.#disk.remove(path);
      if ((await this.#disk.size(dirname(path))) === undefined) return;
      await syncFolder(this.#fs, dirname(path));
    });
  }

  async *read(name: string, signal: AbortSignal): AsyncGenerator<Uint8Array> {
    // What is there and is no file could be one that keeps its reader waiting for ever.
    if ((await this.#look(name))?.isFile() !== true) {
      await this.#told(unread, () => this.#requireRoot());
      throw new ObjectMissing(name);
    }
    try {
      for await (const piece of this.#disk.read(this.#path(name))) {
        signal.throwIfAborted();
        yield piece;
      }
    } catch (error) {
      if (errorCode(error) !== "EIO") throw asFailure(unread, error);
      await this.#told(unread, () => this.#requireRoot());
      const sentence = `${describeFailure(unread, error)}.`;
      throw new ObjectUnreadable(sentence, { cause: error });
    }
  }

  async *list(folder: string, signal: AbortSignal): AsyncGenerator<StoredObject> {
    await this.#told(unread, () => this.#requireRoot());
    for (const name of await this.#names(folder)) {
      signal.throwIfAborted();
      const path = `${folder}/${name}`;
      const stat = await this.#look(path);
      // Gone meanwhile, or a link that leads nowhere.
      if (stat === undefined) continue;
      if (stat.isDirectory()) yield* this.list(path, signal);
      else yield { name: path, bytes: Number(stat.size) };
    }
  }

  /** Undefined where nothing is behind the name. */
  async #look(name: string) {
    try {
      return await this.#fs.stat(this.#path(name), { bigint: true });
    } catch (error) {
      if (nothingThere.has(errorCode(error) ?? "")) return undefined;
      throw asFailure(unread, error);
    }
  }

  async topFolders(): Promise<string[]> {
    await this.#told(unread, () => this.#requireRoot());
    return this.#names("");
  }

  #path(name: string): string {
    return join(this.#root, name);
  }

  /** What begins with a dot is on its way, or somebody else's. */
  async #names(folder: string): Promise<string[]> {
    try {
      const names = await this.#fs.readdir(this.#path(folder));
      return names.filter((name) => !name.startsWith(".")).sort();
    } catch (error) {
      const code = errorCode(error);
      if (code === "ENOENT" || code === "ENOTDIR") return [];
      throw asFailure(unread, error);
    }
  }

  async #requireRoot(): Promise<void> {
    try {
      if ((await this.#fs.stat(this.#root, { bigint: true })).isDirectory()) return;
    } catch (error) {
      if (errorCode(error) !== "ENOENT") throw error;
    }
    throw new TargetFailure(
      `There is no folder ${this.#root}. Make it, or connect the disk that it is on.`,
    );
  }

  /** The first thing stored is the vault's file; without it this is another disk, or an empty one. */
  async #requireVault(name: string): Promise<void> {
    const [top = ""] = name.split("/");
    const vaultFile = `${top}/${vaultFileName}`;
    if (name === vaultFile) return;
    if ((await this.#disk.size(this.#path(vaultFile))) !== undefined) return;
    throw new TargetFailure(`The archive is not in ${this.#root}. Connect the disk that it is on.`);
  }

  /** False when something stands there already. */
  async #write(
    upload: Upload,
    temporary: string,
    path: string,
    signal: AbortSignal,
  ): Promise<boolean> {
    // Whoever shares the folder may have put a link there, which would lead to a file of ours.
    await this.#disk.remove(temporary);
    const file = await this.#disk.createFile(temporary);
    try {
      for await (const piece of upload.read()) {
        signal.throwIfAborted();
        await file.write(piece);
      }
    } catch (error) {
      await file.abandon();
      await this.#disk.remove(temporary).catch(() => undefined);
      throw error;
    }
    await file.finish();
    return publish(this.#fs, temporary, path);
  }

  async #isThere(path: string): Promise<boolean> {
    const size = await this.#disk.size(path);
    // A file without contents is the mark of one who was about to publish.
    return size !== undefined && size > 0;
  }

  async #holds(path: string, upload: Upload): Promise<boolean> {
    if ((await this.#disk.size(path)) !== upload.bytes) return false;
    const hash = createHash("sha256");
    for await (const piece of this.#disk.read(path)) hash.update(piece);
    return hash.digest("hex") === upload.sha256;
  }

  /** Once in a process: a former one may have been killed before the names were durable. */
  async #makeDurable(folder: string): Promise<void> {
    await makeFolder(folder, this.#fs);
    if (this.#durable.has(folder)) return;
    for (let at = folder; at.length > this.#root.length; at = dirname(at)) {
      await syncFolder(this.#fs, dirname(at));
    }
    this.#durable.add(folder);
  }

  async #told<Result>(tried: string, task: () => Promise<Result>): Promise<Result> {
    try {
      return await task();
    } catch (error) {
      throw asFailure(tried, error);
    }
  }
}

function asFailure(tried: string, error: unknown): unknown {
  return isSystemError(error)
    ? new TargetFailure(`${describeFailure(tried, error)}.`, { cause: error })
    : error;
}
