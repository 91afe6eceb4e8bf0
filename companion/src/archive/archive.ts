import type { Clock } from "../base/clock.ts";
import type { FileSystem } from "../base/fileSystem.ts";
import { Mutex } from "../base/mutex.ts";
import type { ForgottenFootage } from "../forget/forgetting.ts";
import { type Disk, diskOn } from "../spool/disk.ts";
import type { TimeRange } from "../spool/records.ts";
import type { ArchiveExportEstimate, ArchiveExportStatus, ArchiveStatus } from "../wire/records.ts";
import { Identity } from "./age/x25519.ts";
import { ArchiveNotReady, noVault } from "./archiveErrors.ts";
import { ArchivePlace } from "./archivePlace.ts";
import type { DayRange } from "./archiveRequests.ts";
import { type ArchiveLayout, ArchiveState, type VaultRecord } from "./archiveState.ts";
import type { VideoEncoder } from "./clips/videoEncoder.ts";
import { makeDurable } from "./durableFolder.ts";
import { Exports } from "./export/exports.ts";
import { FootageForgetting } from "./forgetFootage.ts";
import { Keyring } from "./keyring.ts";
import { formatRecoveryKey, parseRecoveryKey } from "./keys/recoveryKey.ts";
import type { SecretStore } from "./keys/secretStore.ts";
import { Vault, wrapVault } from "./keys/vault.ts";
import { Heads } from "./manifest/heads.ts";
import type { ListSource } from "./manifest/listReader.ts";
import { Mirror } from "./manifest/mirror.ts";
import { Items } from "./outbox/items.ts";
import { ListWriter } from "./outbox/listWriter.ts";
import { Outbox } from "./outbox/outbox.ts";
import { findVault } from "./recovery.ts";
import { RequestTime } from "./requestTime.ts";
import { fullSentence } from "./room.ts";
import type { ArchiveTarget } from "./targets/target.ts";
import { type TargetRecord, told } from "./targets/targetRecord.ts";

export interface ArchiveDependencies {
  readonly fileSystem: FileSystem;
  readonly clock: Clock;
  readonly home: string;
  /** Its own part of the state folder. */
  readonly layout: ArchiveLayout;
  readonly secrets: SecretStore;
  readonly encodeVideo: VideoEncoder | undefined;
  /** Undefined where the record chooses none. */
  openTarget(record: TargetRecord): ArchiveTarget | undefined;
  /** 16 hexadecimal digits that never come twice. */
  randomName(): string;
  /** How many bytes may wait, given the bytes that are free without them. */
  outboxBytes(freeBytes: number): number;
  /** What is wrong in an area at present; undefined when nothing is any more. */
  onComplaint(area: string, sentence: string | undefined): void;
}

/** How long a forgetting lets an upload come to its end: one that is cut off may still get there after it. */
const uploadPatienceMs = 10_000;

/**
 * The encrypted archive: takes over the pictures of finished chunks, and answers what the
 * application asks about it. Requests that change something take turns.
 */
export class Archive {
  readonly #dependencies: ArchiveDependencies;
  readonly #disk: Disk;
  readonly #state: ArchiveState;
  readonly #items: Items;
  readonly #heads: Heads;
  readonly #keyring: Keyring;
  readonly #place: ArchivePlace;
  readonly #mirror: Mirror;
  readonly #outbox: Outbox;
  readonly #forgetting: FootageForgetting;
  readonly #exports: Exports;
  readonly #turns = new Mutex();
  readonly #time: RequestTime;

  private constructor(
    dependencies: ArchiveDependencies,
    state: ArchiveState,
    items: Items,
    heads: Heads,
  ) {
    const { fileSystem, layout, secrets, clock, randomName } = dependencies;
    this.#dependencies = dependencies;
    this.#disk = diskOn(fileSystem);
    this.#state = state;
    this.#items = items;
    this.#heads = heads;
    this.#keyring = new Keyring(secrets);
    this.#time = new RequestTime(clock);
    this.#mirror = new Mirror(this.#disk, layout.mirror);
    this.#place = new ArchivePlace({ ...dependencies, state, disk: this.#disk, time: this.#time });
    const list = new ListWriter({ mirror: this.#mirror, state, randomName });
    const shared = {
      items,
      state,
      list,
      target: (signal: AbortSignal) => this.#place.ready(this.#vaultInUse(), signal),
    };
    this.#forgetting = new FootageForgetting({
      ...shared,
      disk: this.#disk,
      layout,
      source: () => this.#source(),
    });
    this.#exports = new Exports({
      ...dependencies,
      time: this.#time,
      source: () => this.#source(),
      flush: async () => {
        if (state.record.enabled) await this.#outbox.flush();
      },
      isForgotten: (name) => this.#forgetting.isForgotten(name),
    });
    this.#outbox = new Outbox({
      ...shared,
      clock,
      packer: () => this.#packer(),
      vault: () => this.#keyring.vault(this.#vaultInUse().id),
      onTrouble: (sentence) => dependencies.onComplaint("archive", sentence),
      onLoss: (sentence) => dependencies.onComplaint("archive loss", sentence),
    });
  }

  /** The caller holds the lock of the state folder. Throws where the folder can't be used. */
  static async open(dependencies: ArchiveDependencies): Promise<Archive> {
    const { fileSystem, layout } = dependencies;
    const disk = diskOn(fileSystem);
    await makeDurable(disk, layout.root);
    const state = await ArchiveState.open(disk, layout.stateFile);
    const items = await Items.open(disk, layout.root, layout.items);
    const heads = await Heads.open(disk, layout.headsFile);
    const archive = new Archive(dependencies, state, items, heads);
    await archive.#place.load().catch((error: unknown) => {
      if (!(error instanceof ArchiveNotReady)) throw error;
      dependencies.onComplaint("archive", error.message);
    });
    archive.#outbox.wake();
    return archive;
  }

  /** What the settings are to say of it. */
  get settings(): { readonly archiveEnabled: boolean; readonly archiveVaultId: string } {
    const { enabled, vault } = this.#state.record;
    return { archiveEnabled: enabled, archiveVaultId: vault?.id ?? "" };
  }

  status(): ArchiveStatus {
    const { vault, prepared } = this.#state.record;
    const hasRecoveryKey = vault !== undefined || prepared !== undefined;
    return { ...this.settings, hasRecoveryKey, recoveryKey: undefined };
  }

  /**
   * Makes a vault and its recovery key, which only this answer tells. Where a vault is in use its
   * recovery key stays the one that it has, and none is told.
   */
  prepare(): Promise<ArchiveStatus> {
    return this.#turns.run(async () => {
      if (this.#state.record.vault !== undefined) return this.status();
      await this.#place.require();
      const vault = new Vault(Identity.generate());
      const recoveryKey = Identity.generate();
      const former = this.#state.record.prepared;
      await this.#keyring.keep(vault);
      await this.#keepVaultFile(vault.id, await wrapVault(vault, recoveryKey.recipient));
      await this.#state.change({ prepared: recordOf(vault) });
      if (former !== undefined) await this.#forget(former);
      return { ...this.status(), recoveryKey: formatRecoveryKey(recoveryKey) };
    });
  }

  enable(): Promise<ArchiveStatus> {
    return this.#turns.run(async () => {
      const vault = this.#state.record.vault ?? this.#state.record.prepared;
      if (vault === undefined) {
        throw new ArchiveNotReady("There is no recovery key yet. Prepare the archive first.");
      }
      const target = await this.#place.require();
      await this.#keyring.vault(vault.id);
      await this.#outbox.whilePaused(() => this.#use(vault, target));
      return this.status();
    });
  }

  /** What waits goes on waiting; what comes meanwhile is not archived. */
  disable(): Promise<ArchiveStatus> {
    return this.#turns.run(async () => {
      await this.#outbox.whilePaused(() => this.#state.change({ enabled: false }));
      this.#dependencies.onComplaint("archive", undefined);
      return this.status();
    });
  }

  /** Throws RecoveryKeyError, ArchiveNotReady, TargetFailure or SecretStoreFailure. */
  recover(recoveryKey: string): Promise<ArchiveStatus> {
    return this.#turns.run(async () => {
      const identity = parseRecoveryKey(recoveryKey);
      const target = await this.#place.require();
      const { vault, file } = await this.#time.run((signal) => findVault(target, identity, signal));
      await this.#outbox.whilePaused(async () => {
        if ([...this.#items.packed].some(([, { vault: id }]) => id !== vault.id)) {
          throw new ArchiveNotReady(
            "Footage still waits for the archive that was in use before. Turn that one on until it is stored, or delete what waits.",
          );
        }
        await this.#keyring.keep(vault);
        await this.#keepVaultFile(vault.id, file);
        await this.#use(recordOf(vault), target);
      });
      return this.status();
    });
  }

  target(): Promise<TargetRecord> {
    return this.#turns.run(async () => {
      await this.#place.load();
      return told(this.#place.record);
    });
  }

  /** Another place for the archive; where it is on, the place has to take it at once. */
  setTarget(given: TargetRecord): Promise<TargetRecord> {
    return this.#turns.run(async () => {
      await this.#place.change(given, (task) => this.#outbox.whilePaused(task));
      return told(this.#place.record);
    });
  }

  /** Takes over a finished chunk's folder, by one rename; false leaves it where it is. */
  async take(folder: string): Promise<boolean> {
    if (!this.#state.record.enabled) return false;
    if (!(await this.#hasRoom())) return false;
    const isTaken = await this.#items.take(folder);
    if (isTaken) this.#outbox.wake();
    return isTaken;
  }

  estimate(range: DayRange): Promise<ArchiveExportEstimate> {
    return this.#exports.estimate(range);
  }

  /** Throws where the destination can't be used; what else goes wrong the status tells. */
  startExport(destination: string, range: DayRange): Promise<ArchiveExportStatus> {
    return this.#turns.run(() => this.#exports.start(destination, range));
  }

  exportStatus(): ArchiveExportStatus {
    return this.#exports.status;
  }

  cancelExport(): Promise<ArchiveExportStatus> {
    return this.#exports.cancel();
  }

  /**
   * Removes footage of that time, whole clips where it is in clips. Throws TargetFailure or
   * SecretStoreFailure; what was removed until then is, and the call may be repeated.
   */
  forget(range: TimeRange): Promise<ForgottenFootage> {
    return this.#turns.run(async () => {
      await this.#place.load();
      return this.#outbox.whilePaused(async () => {
        const frames = await this.#forgetting.unpacked(range);
        const clips = await this.#time.run((signal) => this.#forgetting.clips(range, signal));
        const elsewhere = this.#place.formerPlaces(range);
        return { clips, frames, ...(elsewhere.length > 0 && { elsewhere }) };
      }, uploadPatienceMs);
    });
  }

  /** Resolves when there is nothing more to do for now. */
  settled(): Promise<void> {
    return this.#outbox.settled();
  }

  /** What is under way ends where it is; the next start goes on. */
  async close(): Promise<void> {
    this.#time.close();
    await Promise.all([this.#exports.cancel(), this.#outbox.close()]);
  }

  #packer() {
    const { encodeVideo, randomName } = this.#dependencies;
    const isLossless = this.#place.record.lossless;
    return { disk: this.#disk, encodeVideo: isLossless ? undefined : encodeVideo, randomName };
  }

  #vaultInUse(): VaultRecord {
    const { vault } = this.#state.record;
    if (vault === undefined) throw new ArchiveNotReady(noVault);
    return vault;
  }

  async #use(vault: VaultRecord, target: ArchiveTarget): Promise<void> {
    const change = await this.#place.bound(target, vault);
    await this.#state.change({ ...change, vault, enabled: true, prepared: undefined });
  }

  async #keepVaultFile(id: string, file: Buffer): Promise<void> {
    // As bytes: the file is binary, and what replaces files takes text.
    const path = this.#dependencies.layout.vaultFile(id);
    const temporary = `${path}.new`;
    const open = await this.#disk.createFile(temporary);
    await open.write(file);
    await open.finish();
    await this.#disk.move(temporary, path);
  }

  /** A vault whose recovery key was shown and is now worth nothing. */
  async #forget({ id }: VaultRecord): Promise<void> {
    await this.#disk.remove(this.#dependencies.layout.vaultFile(id));
    await this.#keyring.forget(id).catch(() => undefined);
  }

  async #hasRoom(): Promise<boolean> {
    const { layout, outboxBytes, onComplaint } = this.#dependencies;
    const free = (await this.#disk.freeBytes(layout.root)) + this.#items.bytes;
    const hasRoom = this.#items.bytes < outboxBytes(free);
    onComplaint("archive room", hasRoom ? undefined : fullSentence(this.#items.bytes));
    return hasRoom;
  }

  /** Everything that it takes to read the archive. */
  async #source(): Promise<ListSource> {
    const target = await this.#place.require();
    const vault = await this.#keyring.vault(this.#vaultInUse().id);
    const place = this.#place.name;
    const { binding } = this.#state.record;
    const ownHead = binding?.place === place ? { ...binding, sha256: binding.head } : undefined;
    return { mirror: this.#mirror, heads: this.#heads, target, place, vault, ownHead };
  }
}

function recordOf(vault: Vault): VaultRecord {
  return { id: vault.id, recipient: String(vault.identity.recipient) };
}
