import { diskOn } from "../../src/spool/disk.ts";
import { ArchiveHarness, TestKeyring } from "./archiveHarness.ts";
import { ManualClock } from "./manualClock.ts";
import type { Random } from "./random.ts";
import { type Mortality, SimulatedDisk, SimulatedFileSystem } from "./simulatedFileSystem.ts";

export const never = Number.MAX_SAFE_INTEGER;
export const nas = { kind: "folder", path: "/nas", lossless: true } as const;
const home = "/home";

/** A machine, and what is plugged into it, on which one archive lives after the other. */
export class Machine {
  readonly disk: SimulatedDisk;
  readonly keyring = new TestKeyring();
  readonly clock = new ManualClock();
  readonly #random: Random;
  #names = 0;

  constructor(random: Random) {
    this.#random = random;
    this.disk = new SimulatedDisk(random);
  }

  open(mortality: Mortality): Promise<ArchiveHarness> {
    return ArchiveHarness.open({
      home,
      keyring: this.keyring,
      clock: this.clock,
      fileSystem: new SimulatedFileSystem(this.disk, this.#random, mortality.step),
      randomName: () => {
        this.#names += 1;
        return this.#names.toString(16).padStart(16, "0");
      },
    });
  }

  async makeFolders(): Promise<void> {
    const disk = diskOn(new SimulatedFileSystem(this.disk, this.#random));
    await disk.makeFolder(nas.path);
    await disk.makeFolder(home);
    await disk.syncFolder("/");
  }

  /** Half of the processes that die are killed; with the others the power goes. */
  endLife(): void {
    if (this.#random.next() < 0.5) this.disk.failPower();
  }
}

/** Runs a life that a death at the mortality's step may cut short. */
export async function untilDeath(
  mortality: Mortality,
  task: () => Promise<unknown>,
): Promise<void> {
  await task().catch((error: unknown) => {
    if (!mortality.isDead) throw error;
  });
  mortality.die();
}

/** The step without what tells one chunk from another. */
export function kindOf({ call, path }: { call: string; path: string }): string {
  const kind = path
    .slice(1)
    .replace(/[0-9a-f]{20}/g, "V")
    .replace(/[0-9]{2}-[0-9]{2}-[0-9]{2}-[0-9a-f]{16}/g, "C")
    .replace(/[0-9a-f]{16}-[0-9]+(-[0-9-]{10})?/g, "L")
    .replace(/[0-9]{4}-[0-9]{2}-[0-9]{2}/g, "D")
    .replace(/[0-9]+(-[0-9]+)*/g, "N");
  return `${call} ${kind}`;
}
