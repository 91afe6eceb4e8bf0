import { readFileSync } from "node:fs";
import { join } from "node:path";
import { encryptBytes } from "../../src/archive/age/age.ts";
import { Identity } from "../../src/archive/age/x25519.ts";
import { ArchiveHarness } from "./archiveHarness.ts";
import { anyFolder, day, startMs } from "./footage.ts";
import { MemoryTarget } from "./memoryTarget.ts";

const dayMs = 24 * 3600 * 1000;
export const nextDay = "2026-11-22";

export interface Day {
  readonly clips: readonly { file: string; contentSha256: string }[];
  readonly skipped: readonly { name: string; why: string }[];
  readonly unlisted: readonly string[];
}

interface Manifest {
  readonly problems: readonly string[];
  readonly days: Record<string, { clips: number; skipped: number; unlisted: number }>;
}

/** An archive of two days with two chunks each, each in a part of the list of its own. */
export class ArchivedDays {
  readonly target = new MemoryTarget();
  readonly out: string;

  private constructor(
    readonly harness: ArchiveHarness,
    target: MemoryTarget,
  ) {
    this.target = target;
    this.out = join(harness.home, "out");
  }

  static async make(): Promise<ArchivedDays> {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    for (let id = 1; id <= 4; id += 1) {
      const atMs = startMs + id * 20_000 + (id > 2 ? dayMs : 0);
      await harness.finish(id, [
        { atMs, picture: Buffer.from(`picture ${id} `.repeat(1000)) },
        { atMs: atMs + 2_000, picture: Buffer.from(`another ${id}`) },
      ]);
      await harness.archive.estimate({ fromDate: day, toDate: nextDay });
    }
    return new ArchivedDays(harness, target);
  }

  export(from = day, to = nextDay) {
    return this.harness.export(this.out, from, to);
  }

  get manifest(): Manifest {
    return JSON.parse(readFileSync(join(this.out, "manifest.json"), "utf8")) as Manifest;
  }

  /** The list in a day's folder. */
  dayManifest(day: string): Day {
    return JSON.parse(readFileSync(join(this.out, day, "manifest.json"), "utf8")) as Day;
  }

  get clips(): string[] {
    return this.target.names("/clips/");
  }

  get parts(): string[] {
    return this.target.names("/manifest/");
  }

  alter(name: string): void {
    const bytes = Buffer.from(this.target.objects.get(name) ?? "");
    bytes[bytes.length - 20] = (bytes.at(-20) ?? 0) ^ 1;
    this.target.objects.set(name, bytes);
  }

  /** Another machine of the same vault, which knows nothing but the recovery key. */
  async stranger(): Promise<ArchivedDays> {
    const keyring = this.harness.keyring;
    const identity = Identity.parse([...keyring.secrets.values()][0] ?? "");
    const harness = await ArchiveHarness.open({ target: this.target });
    await harness.archive.setTarget(anyFolder);
    const vaultFile = this.target.names("vault.age")[0] ?? "";
    const recoveryKey = Identity.generate();
    const wrapped = await encryptBytes(
      Buffer.from(`${identity.secretText()}\n`),
      recoveryKey.recipient,
    );
    this.target.objects.set(vaultFile, wrapped);
    await harness.archive.recover(`ostrel-vault_${recoveryKey.secretText()}`);
    return new ArchivedDays(harness, this.target);
  }
}
