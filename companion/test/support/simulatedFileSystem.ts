import { constants } from "node:fs";
import { basename, dirname, join } from "node:path";
import { systemFailure } from "../../src/base/failure.ts";
import type { FileStat, FileSystem, OpenHandle } from "../../src/base/fileSystem.ts";
import type { Random } from "./random.ts";

/** A call that changes the disk, or makes a change durable, or opens what is there. */
export interface Step {
  readonly call:
    | "open"
    | "create"
    | "write"
    | "sync"
    | "truncate"
    | "makeFolder"
    | "rename"
    | "remove"
    | "syncFolder";
  readonly path: string;
}

class SimulatedFile {
  /** Replaced, never changed, so that it may be the durable one as well. */
  bytes = Buffer.alloc(0);
  durable = Buffer.alloc(0);
}

class SimulatedFolder {
  names = new Map<string, SimulatedNode>();
  durable = new Map<string, SimulatedNode>();
}

type SimulatedNode = SimulatedFile | SimulatedFolder;

function bytesOf(node: SimulatedNode): number {
  if (node instanceof SimulatedFile) return node.bytes.length;
  return [...node.names.values()].reduce((sum, child) => sum + bytesOf(child), 0);
}

/** What a name stands for from now on; undefined for nothing. */
interface NameChange {
  readonly folder: SimulatedFolder;
  readonly name: string;
  readonly node: SimulatedNode | undefined;
}

function setName(names: Map<string, SimulatedNode>, { name, node }: NameChange): void {
  if (node === undefined) names.delete(name);
  else names.set(name, node);
}

/**
 * A disk in memory that knows which of its contents a power failure would spare: those of files that
 * were synced, under names whose folder was synced.
 */
export class SimulatedDisk {
  readonly root = new SimulatedFolder();
  /** Writes beyond it fail as those on a full disk do. */
  capacityBytes = 1e12;
  readonly #random: Random;
  #unsynced: (readonly NameChange[])[] = [];
  readonly #inodes = new Map<SimulatedNode, bigint>();

  constructor(random: Random) {
    this.#random = random;
  }

  get freeBytes(): number {
    return Math.max(0, this.capacityBytes - bytesOf(this.root));
  }

  inode(node: SimulatedNode): bigint {
    const inode = this.#inodes.get(node) ?? BigInt(this.#inodes.size + 1);
    this.#inodes.set(node, inode);
    return inode;
  }

  find(path: string): SimulatedNode | undefined {
    let node: SimulatedNode | undefined = this.root;
    for (const name of path.split("/").filter((part) => part !== "")) {
      if (!(node instanceof SimulatedFolder)) return undefined;
      node = node.names.get(name);
    }
    return node;
  }

  /** All of the changes or, after a power failure, none. */
  rename(changes: readonly NameChange[]): void {
    for (const change of changes) setName(change.folder.names, change);
    this.#unsynced.push(changes);
  }

  /** Makes durable what the folder took part in, both ends of a rename. */
  syncNames(folder: SimulatedFolder): void {
    let left: (readonly NameChange[])[] = [];
    for (const changes of this.#unsynced) {
      if (!changes.some((change) => change.folder === folder)) {
        left.push(changes);
        continue;
      }
      for (const change of changes) {
        setName(change.folder.durable, change);
        // What came before under the same name counts no more.
        const isOther = ({ folder, name }: NameChange) =>
          folder !== change.folder || name !== change.name;
        left = left.map((earlier) => earlier.filter(isOther));
      }
    }
    this.#unsynced = left;
  }

  /**
   * The power fails. What was not synced is lost, or survives: names all, or up to a moment, or any
   * of them; contents up to any byte.
   */
  failPower(): void {
    const kind = this.#random.pick(["none", "all", "first", "any"]);
    const kept = this.#random.integer(0, this.#unsynced.length);
    this.#unsynced.forEach((changes, index) => {
      const survives =
        kind === "all" ||
        (kind === "first" && index < kept) ||
        (kind === "any" && this.#random.next() < 0.5);
      if (!survives) return;
      for (const change of changes) setName(change.folder.durable, change);
    });
    this.#unsynced = [];
    this.#forgetVolatile(this.root);
  }

  /** Every file with its contents, for tests to look at. */
  files(node: SimulatedNode = this.root, path = "/"): Map<string, string> {
    if (node instanceof SimulatedFile) return new Map([[path, node.bytes.toString("latin1")]]);
    return new Map(
      [...node.names].flatMap(([name, child]) => [...this.files(child, join(path, name))]),
    );
  }

  #forgetVolatile(node: SimulatedNode): void {
    if (node instanceof SimulatedFile) {
      const { bytes, durable } = node;
      const appended = bytes.subarray(0, durable.length).equals(durable);
      node.bytes = appended
        ? bytes.subarray(0, this.#random.integer(durable.length, bytes.length))
        : this.#random.pick([bytes, durable]);
      node.durable = node.bytes;
      return;
    }
    node.names = new Map(node.durable);
    for (const child of node.names.values()) this.#forgetVolatile(child);
  }
}

/**
 * What one process sees of the disk. Each step is told before it is done; a write has two, so that
 * it can be torn. Calls take turns that the random numbers decide.
 */
export class SimulatedFileSystem implements FileSystem {
  readonly #disk: SimulatedDisk;
  readonly #random: Random;
  /** Throws to make a step fail, or the process die. */
  readonly #onStep: (step: Step) => void;

  constructor(disk: SimulatedDisk, random: Random, onStep: (step: Step) => void = () => {}) {
    this.#disk = disk;
    this.#random = random;
    this.#onStep = onStep;
  }

  async open(path: string, flags: number): Promise<OpenHandle> {
    await this.#turn();
    let node = this.#disk.find(path);
    if (node !== undefined && (flags & constants.O_EXCL) !== 0) throw systemFailure("EEXIST", path);
    if (node === undefined) {
      if ((flags & constants.O_CREAT) === 0) throw systemFailure("ENOENT", path);
      const folder = this.#folderOf(path);
      this.#onStep({ call: "create", path });
      node = new SimulatedFile();
      this.#disk.rename([{ folder, name: basename(path), node }]);
    } else {
      this.#onStep({ call: "open", path });
      if ((flags & constants.O_TRUNC) !== 0 && node instanceof SimulatedFile) {
        this.#onStep({ call: "truncate", path });
        node.bytes = Buffer.alloc(0);
      }
    }
    return node instanceof SimulatedFile
      ? this.#fileHandle(node, path)
      : this.#folderHandle(node, path);
  }

  async mkdir(path: string): Promise<void> {
    await this.#turn();
    const folder = this.#folderOf(path);
    if (folder.names.has(basename(path))) throw systemFailure("EEXIST", path);
    this.#onStep({ call: "makeFolder", path });
    this.#disk.rename([{ folder, name: basename(path), node: new SimulatedFolder() }]);
  }

  async rename(from: string, to: string): Promise<void> {
    await this.#turn();
    const node = this.#existing(from);
    const target = this.#folderOf(to);
    const there = this.#disk.find(to);
    if (there instanceof SimulatedFolder && there.names.size > 0) {
      throw systemFailure("ENOTEMPTY", to);
    }
    this.#onStep({ call: "rename", path: to });
    this.#disk.rename([
      { folder: this.#folderOf(from), name: basename(from), node: undefined },
      { folder: target, name: basename(to), node },
    ]);
  }

  async link(from: string, to: string): Promise<void> {
    await this.#turn();
    const node = this.#existing(from);
    const folder = this.#folderOf(to);
    if (this.#disk.find(to) !== undefined) throw systemFailure("EEXIST", to);
    this.#onStep({ call: "rename", path: to });
    this.#disk.rename([{ folder, name: basename(to), node }]);
  }

  unlink(path: string): Promise<void> {
    this.#existing(path);
    return this.rm(path);
  }

  /** One name after the other, the deepest first, as the real one does. */
  async rm(path: string): Promise<void> {
    await this.#turn();
    const node = this.#disk.find(path);
    if (node === undefined) return;
    if (node instanceof SimulatedFolder) {
      for (const name of node.names.keys()) await this.rm(join(path, name));
    }
    this.#onStep({ call: "remove", path });
    this.#disk.rename([{ folder: this.#folderOf(path), name: basename(path), node: undefined }]);
  }

  async readdir(path: string): Promise<string[]> {
    await this.#turn();
    const node = this.#existing(path);
    if (node instanceof SimulatedFile) throw systemFailure("ENOTDIR", path);
    return [...node.names.keys()];
  }

  /** There are no links. */
  async realpath(path: string): Promise<string> {
    this.#existing(path);
    return path;
  }

  async readFile(path: string): Promise<string> {
    await this.#turn();
    const node = this.#existing(path);
    this.#onStep({ call: "open", path });
    if (node instanceof SimulatedFolder) throw systemFailure("EISDIR", path);
    return node.bytes.toString("utf8");
  }

  async stat(path: string): Promise<FileStat> {
    await this.#turn();
    return this.#statOf(this.#existing(path));
  }

  async statfs(path: string): Promise<{ bavail: number; bsize: number }> {
    await this.#turn();
    this.#existing(path);
    return { bavail: this.#disk.freeBytes, bsize: 1 };
  }

  async copyFile(from: string, to: string): Promise<void> {
    const bytes = Buffer.from(await this.readFile(from));
    const file = await this.open(to, constants.O_CREAT | constants.O_TRUNC);
    await file.write(bytes);
  }

  #fileHandle(file: SimulatedFile, path: string): OpenHandle {
    const sync = async () => {
      await this.#turn();
      this.#onStep({ call: "sync", path });
      file.durable = file.bytes;
    };
    return {
      write: (bytes, offset = 0) => this.#write(file, path, bytes.subarray(offset)),
      readFile: async () => file.bytes,
      read: async (into, offset, length, position) => {
        await this.#turn();
        const piece = file.bytes.subarray(position, position + length);
        into.set(piece, offset);
        return { bytesRead: piece.length };
      },
      stat: async () => this.#statOf(file),
      datasync: sync,
      sync,
      truncate: async (size) => {
        this.#onStep({ call: "truncate", path });
        file.bytes = file.bytes.subarray(0, size);
      },
      close: async () => {},
    };
  }

  #folderHandle(folder: SimulatedFolder, path: string): OpenHandle {
    const no = () => Promise.reject(systemFailure("EISDIR", path));
    const sync = async () => {
      await this.#turn();
      this.#onStep({ call: "syncFolder", path });
      this.#disk.syncNames(folder);
    };
    const stat = async () => this.#statOf(folder);
    return {
      write: no,
      read: no,
      readFile: no,
      truncate: no,
      datasync: sync,
      sync,
      stat,
      close: async () => {},
    };
  }

  /** Always at the end: nothing of ours ever writes elsewhere. */
  async #write(file: SimulatedFile, path: string, bytes: Uint8Array) {
    await this.#turn();
    const append = (from: number, to: number) => {
      this.#onStep({ call: "write", path });
      const room = Math.min(to - from, this.#disk.freeBytes);
      if (room === 0 && to > from) throw systemFailure("ENOSPC", path);
      file.bytes = Buffer.concat([file.bytes, bytes.subarray(from, from + room)]);
      return room;
    };
    const half = this.#random.integer(0, bytes.length);
    const first = append(0, half);
    if (first < half) return { bytesWritten: first };
    try {
      return { bytesWritten: half + append(half, bytes.length) };
    } catch (error) {
      // A failure half way is told by the next write.
      if (half === 0 || error instanceof Killed) throw error;
      return { bytesWritten: half };
    }
  }

  /** Lets others go first, as the system's threads would. */
  async #turn(): Promise<void> {
    for (let count = this.#random.integer(0, 3); count > 0; count -= 1) await undefined;
  }

  #existing(path: string): SimulatedNode {
    const node = this.#disk.find(path);
    if (node === undefined) throw systemFailure("ENOENT", path);
    return node;
  }

  #folderOf(path: string): SimulatedFolder {
    const node = this.#existing(dirname(path));
    if (node instanceof SimulatedFolder) return node;
    throw systemFailure("ENOTDIR", path);
  }

  #statOf(node: SimulatedNode): FileStat {
    const isFile = node instanceof SimulatedFile;
    return {
      ino: this.#disk.inode(node),
      dev: 1n,
      size: BigInt(isFile ? node.bytes.length : 0),
      isFile: () => isFile,
      isDirectory: () => !isFile,
    };
  }
}

/** The process ends at a step. Everything that it had under way ends with it. */
export class Killed extends Error {
  override readonly name = "Killed";
}

/** When a process dies: at a step, counted from 1, or when told. It stays dead. */
export class Mortality {
  #killAt: number;
  #count = 0;
  #last: Step | undefined;

  constructor(killAt: number) {
    this.#killAt = killAt;
  }

  get isDead(): boolean {
    return this.#count >= this.#killAt;
  }

  /** The step at which it died, unless it was told to. */
  get last(): Step | undefined {
    return this.#last;
  }

  die(): void {
    this.#killAt = 0;
  }

  /** For a file system's `onStep`. */
  readonly step = (step: Step): void => {
    if (this.isDead) throw new Killed("dead");
    // Whether it dies before or after it has only looked makes no difference.
    if (step.call === "open") return;
    this.#count += 1;
    if (!this.isDead) return;
    this.#last = step;
    throw new Killed(`killed at ${step.call} ${step.path}`);
  };
}
