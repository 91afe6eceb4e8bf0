import { constants } from "node:fs";
import * as fs from "node:fs/promises";
import { dirname } from "node:path";
import { errorCode } from "../base/failure.ts";
import { makeFolder } from "../base/makeFolder.ts";

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
 * (for `createFile` and `remove`) half done. Tests put a disk in between that dies at a given one.
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
  /** Bytes of a file; undefined when there is none. */
  size(path: string): Promise<number | undefined>;
  copy(from: string, to: string): Promise<void>;
  /** Bytes that this user may still write on the file system that holds the path. */
  freeBytes(path: string): Promise<number>;
}

async function syncFolder(path: string): Promise<void> {
  const folder = await fs.open(path, constants.O_RDONLY | constants.O_DIRECTORY);
  try {
    await folder.sync();
  } finally {
    await folder.close();
  }
}

async function createFile(path: string): Promise<OpenFile> {
  const file = await fs.open(path, "w", 0o600);
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

async function writeWhole(path: string, text: string): Promise<void> {
  const file = await createFile(path);
  try {
    await file.write(Buffer.from(text));
  } catch (error) {
    await file.abandon();
    throw error;
  }
  await file.finish();
}

async function replaceFile(path: string, text: string): Promise<void> {
  const temporary = `${path}.new`;
  try {
    await writeWhole(temporary, text);
    await fs.rename(temporary, path);
  } catch (error) {
    // On a full disk even a half-written file is in the way.
    await fs.rm(temporary, { force: true }).catch(() => undefined);
    throw error;
  }
  await syncFolder(dirname(path));
}

async function moveIfThere(from: string, to: string): Promise<boolean> {
  try {
    await fs.rename(from, to);
    return true;
  } catch (error) {
    if (errorCode(error) === "ENOENT") return false;
    throw error;
  }
}

export const realDisk: Disk = {
  async makeFolder(path) {
    await makeFolder(path);
  },
  createFile,
  replaceFile,
  async move(from, to) {
    await fs.rename(from, to);
    await syncFolder(dirname(to));
    if (dirname(from) !== dirname(to)) await syncFolder(dirname(from));
  },
  moveIfThere,
  syncFolder,
  remove: (path) => fs.rm(path, { recursive: true, force: true }),
  list: (path) => fs.readdir(path),
  readText: (path) => fs.readFile(path, "utf8"),
  async size(path) {
    try {
      return (await fs.stat(path)).size;
    } catch (error) {
      if (errorCode(error) === "ENOENT") return undefined;
      throw error;
    }
  },
  copy: (from, to) => fs.copyFile(from, to),
  async freeBytes(path) {
    const { bavail, bsize } = await fs.statfs(path);
    return bavail * bsize;
  },
};
