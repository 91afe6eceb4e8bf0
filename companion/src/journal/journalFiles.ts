import { constants } from "node:fs";
import { dirname } from "node:path";
import { errorCode } from "../base/failure.ts";
import { type FileSystem, type OpenHandle, realFileSystem } from "../base/fileSystem.ts";
import { makeFolder } from "../base/makeFolder.ts";
import { syncFolder } from "../base/syncFolder.ts";
import { diskOn, unlessMissing } from "../spool/disk.ts";

/** One day's file, open for reading and appending. */
export interface JournalFile {
  /** Whether opening made it. */
  readonly created: boolean;
  read(): Promise<Buffer>;
  /** One write at the file's end, wherever that is by then; answers how many bytes it took. */
  append(bytes: Buffer): Promise<number>;
  size(): Promise<number>;
  truncate(size: number): Promise<void>;
  /** Makes the contents durable. */
  sync(): Promise<void>;
  /** Whether this is the file that now stands at the path: editors save by replacing it. */
  standsAt(path: string): Promise<boolean>;
  close(): Promise<void>;
}

/** The file operations of which the journal is made. Errors of the system are passed on as they are. */
export interface JournalFiles {
  /** Makes the folder and its parents durably, for this user's eyes only; one that exists stays as it is. */
  makeFolder(path: string): Promise<void>;
  /** Opens the file, or makes it, for this user's eyes only. */
  open(path: string): Promise<JournalFile>;
  remove(path: string): Promise<void>;
  syncFolder(path: string): Promise<void>;
  /** The names in a folder; none where there is no such folder. */
  list(path: string): Promise<string[]>;
  /** A file's contents; undefined where there is none. */
  read(path: string): Promise<string | undefined>;
  /** Replaces the contents at once and for good, those of what a link at the path leads to. */
  replace(path: string, text: string): Promise<void>;
  /** Removes the file and, where a link at the path leads to it, the link. */
  removeWhole(path: string): Promise<void>;
}

// Without blocking, because opening a named pipe would wait for somebody at its other end.
const OPEN = constants.O_RDWR | constants.O_APPEND | constants.O_NONBLOCK;
const CREATE = OPEN | constants.O_CREAT | constants.O_EXCL;

async function openOrCreate(fs: FileSystem, path: string): Promise<OpenedFile> {
  const existing = async () => new OpenedFile(fs, await fs.open(path, OPEN), false);
  try {
    return await existing();
  } catch (error) {
    if (errorCode(error) !== "ENOENT") throw error;
  }
  try {
    return new OpenedFile(fs, await fs.open(path, CREATE, 0o600), true);
  } catch (error) {
    // Somebody else made it in between.
    if (errorCode(error) !== "EEXIST") throw error;
    return existing();
  }
}

class OpenedFile implements JournalFile {
  readonly created: boolean;
  readonly #fs: FileSystem;
  readonly #handle: OpenHandle;

  constructor(fs: FileSystem, handle: OpenHandle, created: boolean) {
    this.#fs = fs;
    this.#handle = handle;
    this.created = created;
  }

  async isRegular(): Promise<boolean> {
    return (await this.#handle.stat({ bigint: true })).isFile();
  }

  read(): Promise<Buffer> {
    return this.#handle.readFile();
  }

  async append(bytes: Buffer): Promise<number> {
    return (await this.#handle.write(bytes)).bytesWritten;
  }

  async size(): Promise<number> {
    return Number((await this.#handle.stat({ bigint: true })).size);
  }

  truncate(size: number): Promise<void> {
    return this.#handle.truncate(size);
  }

  sync(): Promise<void> {
    return this.#handle.sync();
  }

  async standsAt(path: string): Promise<boolean> {
    const own = await this.#handle.stat({ bigint: true });
    try {
      const there = await this.#fs.stat(path, { bigint: true });
      return there.ino === own.ino && there.dev === own.dev;
    } catch (error) {
      if (errorCode(error) === "ENOENT") return false;
      throw error;
    }
  }

  close(): Promise<void> {
    return this.#handle.close();
  }
}

async function makeDurableFolder(fs: FileSystem, path: string): Promise<void> {
  const firstMade = await makeFolder(path, fs);
  if (firstMade === undefined) return;
  // A new name is durable once the folder that holds it is.
  const top = dirname(firstMade);
  for (let folder = dirname(path); folder.length >= top.length; folder = dirname(folder)) {
    await syncFolder(fs, folder);
    if (folder === dirname(folder)) return;
  }
}

export function journalFilesOn(fs: FileSystem): JournalFiles {
  const disk = diskOn(fs);
  return {
    makeFolder: (path) => makeDurableFolder(fs, path),
    async open(path) {
      const file = await openOrCreate(fs, path);
      if (await file.isRegular()) return file;
      await file.close();
      throw new Error(`Not a regular file: ${path}`);
    },
    remove: (path) => fs.unlink(path),
    syncFolder: (path) => syncFolder(fs, path),
    list: (path) => unlessMissing(disk.list(path), []),
    read: (path) => unlessMissing(disk.readText(path), undefined),
    replace: async (path, text) => disk.replaceFile(await fs.realpath(path), text),
    removeWhole: async (path) => {
      const file = await fs.realpath(path);
      for (const name of new Set([file, path])) {
        await disk.remove(name);
        await disk.syncFolder(dirname(name));
      }
    },
  };
}

export const realJournalFiles = journalFilesOn(realFileSystem);
