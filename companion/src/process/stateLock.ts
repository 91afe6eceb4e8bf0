import { readdir, readFile, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";
import type { Clock } from "../base/clock.ts";
import { makeFolder } from "../base/makeFolder.ts";
import { processStart } from "./processIdentity.ts";

const pollMs = 100;

/** Lets go of the folder. */
export type Unlock = () => Promise<void>;

function pause(clock: Clock): Promise<void> {
  return new Promise((resolve) => clock.after(pollMs, resolve));
}

/**
 * The lock of a state folder: a folder of claims, each an empty file that names its process. Who
 * has made a claim and then sees no other living one holds the lock. Every claim is made before
 * its maker looks, so of two at least one sees the other, and both cannot hold it. Claims of dead
 * processes count for nothing, so a kill leaves no lock behind.
 */
export class StateLock {
  readonly #folder: string;
  readonly #clock: Clock;
  readonly #claim: string;

  private constructor(folder: string, clock: Clock, claim: string) {
    this.#folder = folder;
    this.#clock = clock;
    this.#claim = claim;
  }

  /** Waits for a holder to go; undefined when it is still there after the time. */
  static async acquire(
    stateFolder: string,
    clock: Clock,
    patienceMs: number,
    pid: number = process.pid,
  ): Promise<Unlock | undefined> {
    const folder = join(stateFolder, "lock");
    await makeFolder(folder);
    const boot = (await readFile("/proc/sys/kernel/random/boot_id", "latin1")).trim();
    const claim = `${pid}.${processStart(pid)}.${boot}`;
    return new StateLock(folder, clock, claim).#acquire(boot, patienceMs);
  }

  async #acquire(boot: string, patienceMs: number): Promise<Unlock | undefined> {
    const path = join(this.#folder, this.#claim);
    for (let waitedMs = 0; waitedMs <= patienceMs; waitedMs += pollMs) {
      if ((await this.#others(boot)).length === 0) {
        await writeFile(path, "", { mode: 0o600 });
        const rivals = await this.#others(boot);
        if (rivals.length === 0) return () => rm(path, { force: true });
        // Both have just claimed: the first name stays and wins in its next round.
        if (rivals.some((rival) => rival < this.#claim)) await rm(path, { force: true });
      }
      await pause(this.#clock);
    }
    await rm(path, { force: true });
    return undefined;
  }

  /** The claims of other living processes; those of dead ones are cleared away. */
  async #others(boot: string): Promise<string[]> {
    const living: string[] = [];
    for (const name of await readdir(this.#folder)) {
      if (name === this.#claim) continue;
      const [pid = "", start, claimBoot] = name.split(".");
      const isLiving = claimBoot === boot && processStart(Number(pid)) === start;
      if (isLiving) living.push(name);
      else await rm(join(this.#folder, name), { force: true });
    }
    return living;
  }
}
