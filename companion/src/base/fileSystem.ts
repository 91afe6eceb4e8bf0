import * as fs from "node:fs/promises";

/** What is asked of a file or folder; bigints, because an inode's number may be beyond 2^53. */
export interface FileStat {
  readonly ino: bigint;
  readonly dev: bigint;
  readonly size: bigint;
  isFile(): boolean;
  isDirectory(): boolean;
}

/** An open file, or a folder that is open to be synced. */
export interface OpenHandle {
  write(bytes: Uint8Array, offset?: number): Promise<{ readonly bytesWritten: number }>;
  read(
    into: Uint8Array,
    offset: number,
    length: number,
    position: number,
  ): Promise<{ readonly bytesRead: number }>;
  readFile(): Promise<Buffer>;
  stat(options: { readonly bigint: true }): Promise<FileStat>;
  truncate(size: number): Promise<void>;
  datasync(): Promise<void>;
  sync(): Promise<void>;
  close(): Promise<void>;
}

/**
 * The calls of the system of which everything on the disk is made, by Node's own names. Tests put a
 * file system in their place that fails or dies at a chosen one.
 */
export interface FileSystem {
  open(path: string, flags: number, mode?: number): Promise<OpenHandle>;
  mkdir(path: string, options: { readonly mode: number }): Promise<unknown>;
  rename(from: string, to: string): Promise<void>;
  link(from: string, to: string): Promise<void>;
  unlink(path: string): Promise<void>;
  rm(path: string, options: { readonly recursive?: boolean; readonly force: true }): Promise<void>;
  readdir(path: string): Promise<string[]>;
  /** The path without symbolic links. */
  realpath(path: string): Promise<string>;
  readFile(path: string, encoding: "utf8"): Promise<string>;
  stat(path: string, options: { readonly bigint: true }): Promise<FileStat>;
  statfs(path: string): Promise<{ readonly bavail: number; readonly bsize: number }>;
  copyFile(from: string, to: string): Promise<void>;
}

export const realFileSystem: FileSystem = fs;
