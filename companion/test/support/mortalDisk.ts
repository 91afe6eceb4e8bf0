import { readdir, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { type Disk, type OpenFile, realDisk } from "../../src/spool/disk.ts";

export class Killed extends Error {
  override readonly name = "Killed";
}

/**
 * A disk whose process dies at a chosen step. A step lies before each operation, and in the middle
 * of each one that a kill can leave half done. After it nothing is done any more.
 */
export class MortalDisk implements Disk {
  readonly #killAt: number;
  #stepCount = 0;

  /** Steps count from 1. */
  constructor(killAt: number) {
    this.#killAt = killAt;
  }

  get isDead(): boolean {
    return this.#stepCount >= this.#killAt;
  }

  /** Also for the steps of others who share the process. */
  step(): void {
    this.#stepCount += 1;
    if (this.isDead) throw new Killed(`killed at step ${this.#killAt}`);
  }

  async makeFolder(path: string): Promise<void> {
    this.step();
    await realDisk.makeFolder(path);
  }

  async createFile(path: string): Promise<OpenFile> {
    this.step();
    const file = await realDisk.createFile(path);
    return {
      write: async (bytes) => {
        this.step();
        await file.write(bytes.subarray(0, bytes.length / 2));
        this.step();
        await file.write(bytes.subarray(bytes.length / 2));
      },
      finish: async () => {
        // The descriptor goes with the process, whatever else happens.
        await file.finish();
        this.step();
      },
      abandon: async () => {
        await file.abandon();
        this.step();
      },
    };
  }

  async replaceFile(path: string, text: string): Promise<void> {
    this.step();
    await writeFile(`${path}.new`, text.slice(0, text.length / 2));
    this.step();
    await realDisk.replaceFile(path, text);
  }

  async move(from: string, to: string): Promise<void> {
    this.step();
    await realDisk.move(from, to);
  }

  async moveIfThere(from: string, to: string): Promise<boolean> {
    this.step();
    return realDisk.moveIfThere(from, to);
  }

  async syncFolder(path: string): Promise<void> {
    this.step();
    await realDisk.syncFolder(path);
  }

  async remove(path: string): Promise<void> {
    this.step();
    const [first] = await readdir(path).catch(() => []);
    if (first !== undefined) await realDisk.remove(join(path, first));
    this.step();
    await realDisk.remove(path);
  }

  async list(path: string): Promise<string[]> {
    this.step();
    return realDisk.list(path);
  }

  async readText(path: string): Promise<string> {
    this.step();
    return realDisk.readText(path);
  }

  async size(path: string): Promise<number | undefined> {
    this.step();
    return realDisk.size(path);
  }

  async copy(from: string, to: string): Promise<void> {
    this.step();
    await realDisk.copy(from, to);
  }

  async freeBytes(path: string): Promise<number> {
    this.step();
    return realDisk.freeBytes(path);
  }
}
