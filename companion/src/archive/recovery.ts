import type { Identity } from "./age/x25519.ts";
import { ArchiveNotReady } from "./archiveErrors.ts";
import { RecoveryKeyError } from "./keys/recoveryKey.ts";
import { unwrapVault, type Vault } from "./keys/vault.ts";
import { vaultFileName } from "./targets/folderTarget.ts";
import { type ArchiveTarget, ObjectMissing } from "./targets/target.ts";

const greatestVaultFileBytes = 64 * 1024;

export interface FoundVault {
  readonly vault: Vault;
  /** The vault's file as it lies there. */
  readonly file: Buffer;
}

/**
 * The vault in the target that the key opens. Throws RecoveryKeyError where it opens none of them,
 * and ArchiveNotReady where there is none.
 */
export async function findVault(
  target: ArchiveTarget,
  recoveryKey: Identity,
  signal: AbortSignal,
): Promise<FoundVault> {
  let count = 0;
  for (const folder of await target.topFolders(signal)) {
    if (!/^[0-9a-f]{20}$/.test(folder)) continue;
    const file = await readVaultFile(target, `${folder}/${vaultFileName}`, signal);
    if (file === undefined) continue;
    count += 1;
    const vault = await unwrapVault(file, recoveryKey).catch(() => undefined);
    if (vault?.id === folder) return { vault, file };
  }
  if (count === 0) throw new ArchiveNotReady("There is no archive in the place that is chosen.");
  throw new RecoveryKeyError(
    count === 1
      ? "This recovery key is well-formed, but it does not open the archive in the place that is chosen."
      : `This recovery key is well-formed, but it opens none of the ${count} archives in the place that is chosen.`,
  );
}

async function readVaultFile(
  target: ArchiveTarget,
  name: string,
  signal: AbortSignal,
): Promise<Buffer | undefined> {
  const pieces: Uint8Array[] = [];
  let bytes = 0;
  try {
    for await (const piece of target.read(name, signal)) {
      bytes += piece.length;
      if (bytes > greatestVaultFileBytes) return undefined;
      pieces.push(piece);
    }
  } catch (error) {
    if (error instanceof ObjectMissing) return undefined;
    throw error;
  }
  return Buffer.concat(pieces);
}
