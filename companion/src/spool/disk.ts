import { constants } from "node:fs";
import { dirname } from "node:path";
import { errorCode } from "../base/failure.ts";
import { type FileSystem, realFileSystem } from "../base/fileSystem.ts";
import { makeFolder } from "../base/makeFolder.ts";
import { syncFolder } from "../base/syncFolder.ts";

/** A file that is being written. */
export interface OpenFile {
  write(bytes: Uint8Array): Promise<void>;
  /** Makes the contents durable and closes; its name is durable once its folder is synced. */
  finish(): Promise<void>;
  /** Closes without any promise about the contents. */
  abandon(): Promise<void>;
}

/**
 * The operations of which the spool is made, each of which a kill leaves done, or not done, or
 * (for `createFile`, `remove` and the folders of `makeFolder`) half done.
 */
export interface Disk {
  /** Makes the folder and its parents, for this user's eyes only. */
  makeFolder(path: string): Promise<void>;
  /** Opens a new file for this user's eyes only; an old one of that name is emptied. */
  createFile(path: string): Promise<OpenFile>;
  /** Replaces the file's contents at once and for good: a reader sees the old or the new. */
  replaceFile(path: string, text: string): Promise<void>;
  /** Renames durably: both folders are synced before it resolves. */
  move(from: string, to: string): Promise<void>;
  /** Renames; the caller syncs. False when there is nothing of that name. */
  moveIfThere(from: string, to: string): Promise<boolean>;
  syncFolder(path: string): Promise<void>;
  /** Removes a file or a folder with all that is in it; nothing there is no error. */
  remove(path: string): Promise<void>;
  /** The names in a folder. */
  list(path: string): Promise<string[]>;
  readText(path: string): Promise<string>;
  /** A file's contents in pieces. */
  read(path: string): AsyncIterable<Uint8Array>;
  /** Bytes of a file; undefined when there is none. */
  size(path: string): Promise<number | undefined>;
  copy(from: string, to: string): Promise<void>;
  /** Bytes that this user may still write on the file system that holds the path. */
  freeBytes(path: string): Promise<number>;
}

const pieceBytes = 256 * 1024;

async function* readPieces(fs: FileSystem, path: string): AsyncGenerator<Uint8Array> {
  const file = await fs.open(path, constants.O_RDONLY);
  try {
    for (let position = 0; ; ) {
      const piece = Buffer.allocUnsafe(pieceBytes);
      const { bytesRead } = await file.read(piece, 0, pieceBytes, position);
      if (bytesRead === 0) return;
      yield piece.subarray(0, bytesRead);
      position += bytesRead;
    }
  } finally {
    await file.close();
  }
}

const NEW = constants.O_WRONLY | constants.O_CREAT | constants.O_TRUNC;

async function createFile(fs: FileSystem, path: string): Promise<OpenFile> {
  const file = await fs.open(path, NEW, 0o600);
  return {
    async write(bytes) {
      let done = 0;
      while (done < bytes.length) {
        done += (await file.write(bytes, done)).bytesWritten;
      }
    },
    async finish() {
      try {
        await file.datasync();
      } finally {
        await file.close();
      }
    },
    abandon: () => file.close(),
  };
}

async function writeWhole(fs: FileSystem, path: string, text: string): Promise<void> {
  const file = await createFile(fs, path);
  try {
    await file.write(Buffer.from(text));
  } catch (error) {
    await file.abandon();
    throw error;
  }
  await file.finish();
}

/** Where the new contents of a file are written; a kill may leave it behind. */
export function replacementOf(path: string): string {
  return `${path}.new`;
}

async function replaceFile(fs: FileSystem, path: string, text: string): Promise<void> {
  const temporary = replacementOf(path);
  try {
    await writeWhole(fs, temporary, text);
    await fs.rename(temporary, path);
  } catch (error) {
    // On a full disk even a half-written file is in the way.
    await fs.rm(temporary, { force: true }).catch(() => undefined);
    throw error;
  }
  await syncFolder(fs, dirname(path));
}

async function move(fs: FileSystem, from: string, to: string): Promise<void> {
  await fs.rename(from, to);
  await syncFolder(fs, dirname(to));
  if (dirname(from) !== dirname(to)) await syncFolder(fs, dirname(from));
}

/** What stands for a file or folder that isn't there. */
export async function unlessMissing<Result, Instead>(task: Promise<Result>, instead: Instead) {
  try {
    return await task;
  } catch (error) {
    if (errorCode(error) === "ENOENT") return instead;
    throw error;
  }
}

export function diskOn(fs: FileSystem): Disk {
  return {
    async makeFolder(path) {
      await makeFolder(path, fs);
    },
    createFile: (path) => createFile(fs, path),
    replaceFile: (path, text) => replaceFile(fs, path, text),
    move: (from, to) => move(fs, from, to),
    moveIfThere: (from, to) =>
      unlessMissing(
        fs.rename(from, to).then(() => true),
        false,
      ),
    syncFolder: (path) => syncFolder(fs, path),
    remove: (path) => fs.rm(path, { recursive: true, force: true }),
    list: (path) => fs.readdir(path),
    readText: (path) => fs.readFile(path, "utf8"),
    read: (path) => readPieces(fs, path),
    async size(path) {
      const stat = await unlessMissing(fs.stat(path, { bigint: true }), undefined);
      return stat === undefined ? undefined : Number(stat.size);
    },
    copy: (from, to) => fs.copyFile(from, to),
    async freeBytes(path) {
      const { bavail, bsize } = await fs.statfs(path);
      return bavail * bsize;
    },
  };
}

export const realDisk: Disk = diskOn(realFileSystem);
