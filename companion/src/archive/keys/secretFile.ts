import { dirname, join } from "node:path";
import { errorCode } from "../../base/failure.ts";
import type { Disk } from "../../spool/disk.ts";
import type { SecretStore } from "./secretStore.ts";

/** Files that only the user can read, for machines without anything better. */
export class SecretFileStore implements SecretStore {
  readonly #disk: Disk;
  readonly #folder: string;

  constructor(disk: Disk, folder: string) {
    this.#disk = disk;
    this.#folder = folder;
  }

  async read(account: string): Promise<string | undefined> {
    try {
      return (await this.#disk.readText(this.#path(account))).trim();
    } catch (error) {
      if (errorCode(error) === "ENOENT") return undefined;
      throw error;
    }
  }

  async write(account: string, secret: string): Promise<void> {
    const path = this.#path(account);
    await this.#disk.makeFolder(dirname(path));
    await this.#disk.replaceFile(path, `${secret}\n`);
  }

  remove(account: string): Promise<void> {
    return this.#disk.remove(this.#path(account));
  }

  #path(account: string): string {
    return join(this.#folder, account);
  }
}
