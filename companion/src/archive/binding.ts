import type { Clock } from "../base/clock.ts";
import type { Disk } from "../spool/disk.ts";
import type { ArchiveLayout, ArchiveState, FormerPlace, VaultRecord } from "./archiveState.ts";
import { readWhole } from "./clips/chunkClips.ts";
import { noPrevious, sha256Of } from "./manifest/segment.ts";
import { vaultFileName } from "./targets/folderTarget.ts";
import type { ArchiveTarget } from "./targets/target.ts";

export interface BindingDependencies {
  readonly disk: Disk;
  readonly layout: ArchiveLayout;
  readonly state: ArchiveState;
  readonly clock: Clock;
  /** 16 hexadecimal digits that never come twice. */
  randomName(): string;
}

/**
 * Makes a target ready for a vault: stores the vault's file there, so that the recovery key opens
 * whatever follows. Resolves with what has to change in the state for this machine to write there:
 * in another place it is another writer, whose list begins with its first part.
 */
export async function bind(
  { disk, layout, state, clock, randomName }: BindingDependencies,
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
    formerPlaces: formerPlaces(state, { place, vault: vault.id, untilMs: clock.nowMs() }),
  };
}

/** Those that this machine has stored in, without the one that comes and with the one that goes. */
function formerPlaces({ record }: ArchiveState, next: FormerPlace): FormerPlace[] {
  const { binding, vault, formerPlaces: before = [] } = record;
  const isOther = (one: FormerPlace) => one.place !== next.place || one.vault !== next.vault;
  if (binding === undefined || vault === undefined) return before.filter(isOther);
  const left = { place: binding.place, vault: vault.id, untilMs: next.untilMs };
  const isNew = (one: FormerPlace) => one.place !== left.place || one.vault !== left.vault;
  return [...before.filter(isNew), left].filter(isOther);
}
