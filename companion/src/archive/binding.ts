import type { Disk } from "../spool/disk.ts";
import type { ArchiveLayout, ArchiveState, VaultRecord } from "./archiveState.ts";
import { readWhole } from "./clips/chunkClips.ts";
import { noPrevious, sha256Of } from "./manifest/segment.ts";
import { vaultFileName } from "./targets/folderTarget.ts";
import type { ArchiveTarget } from "./targets/target.ts";

export interface BindingDependencies {
  readonly disk: Disk;
  readonly layout: ArchiveLayout;
  readonly state: ArchiveState;
  /** 16 hexadecimal digits that never come twice. */
  randomName(): string;
}

/**
 * Makes a target ready for a vault: stores the vault's file there, so that the recovery key opens
 * whatever follows. Resolves with what has to change in the state for this machine to write there:
 * in another place it is another writer, whose list begins with its first part.
 */
export async function bind(
  { disk, layout, state, randomName }: BindingDependencies,
  target: ArchiveTarget,
  place: string,
  vault: VaultRecord,
  signal: AbortSignal,
) {
  const path = layout.vaultFile(vault.id);
  const bytes = await readWhole(disk, path);
  await target.put(
    {
      name: `${vault.id}/${vaultFileName}`,
      path,
      bytes: bytes.length,
      sha256: sha256Of(bytes),
      read: () => disk.read(path),
    },
    signal,
  );
  const { binding } = state.record;
  const isSame = binding?.place === place && state.record.vault?.id === vault.id;
  if (isSame) return {};
  return {
    binding: { place, writer: randomName(), sequence: 0, head: noPrevious },
    segment: undefined,
  };
}
