import type { Clock } from "../base/clock.ts";
import type { FileSystem } from "../base/fileSystem.ts";
import { Mutex } from "../base/mutex.ts";
import type { ForgottenFootage } from "../forget/forgetting.ts";
import { expandedAbsolutePath } from "../settings/expandedPath.ts";
import { type Disk, diskOn } from "../spool/disk.ts";
import type { TimeRange } from "../spool/records.ts";
import type { ArchiveExportEstimate, ArchiveExportStatus, ArchiveStatus } from "../wire/records.ts";
import { Identity } from "./age/x25519.ts";
import { ArchiveNotReady, noTargetChosen, noVault } from "./archiveErrors.ts";
import type { DayRange } from "./archiveRequests.ts";
import { type ArchiveLayout, ArchiveState, type VaultRecord } from "./archiveState.ts";
import { bind } from "./binding.ts";
import type { VideoEncoder } from "./clips/videoEncoder.ts";
import { makeDurable } from "./durableFolder.ts";
import { ExportFolder } from "./export/exportFolder.ts";
import { ExportRun } from "./export/exportRun.ts";
import { FootageForgetting } from "./forgetFootage.ts";
import { Keyring } from "./keyring.ts";
import { formatRecoveryKey, parseRecoveryKey } from "./keys/recoveryKey.ts";
import type { SecretStore } from "./keys/secretStore.ts";
import { Vault, wrapVault } from "./keys/vault.ts";
import { Heads } from "./manifest/heads.ts";
import { type ListSource, readList } from "./manifest/listReader.ts";
import { Mirror } from "./manifest/mirror.ts";
import { Items } from "./outbox/items.ts";
import { ListWriter } from "./outbox/listWriter.ts";
import { Outbox } from "./outbox/outbox.ts";
import { findVault } from "./recovery.ts";
import { RequestTime } from "./requestTime.ts";
import { fullSentence } from "./room.ts";
import { type ArchiveTarget, TargetFailure } from "./targets/target.ts";
import { TargetFile } from "./targets/targetFile.ts";
import { placeOf, type TargetRecord, told, withKeptSecret } from "./targets/targetRecord.ts";

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

const idle: ArchiveExportStatus = {
  state: "idle",
  exported: 0,
  total: 0,
  skipped: 0,
  currentDay: undefined,
  error: undefined,
};

/** How long an export waits for footage of the last minutes to get into the list. */
const flushPatienceMs = 10_000;

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
  readonly #targetFile: TargetFile;
  readonly #mirror: Mirror;
  readonly #outbox: Outbox;
  readonly #forgetting: FootageForgetting;
  readonly #turns = new Mutex();
  readonly #time: RequestTime;
  #record: TargetRecord = { kind: "none", lossless: false };
  #target: ArchiveTarget | undefined;
  #export: ExportRun | undefined;

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
    this.#targetFile = new TargetFile(this.#disk, layout.targetFile);
    const list = new ListWriter({ mirror: this.#mirror, state, randomName });
    const shared = {
      items,
      state,
      list,
      target: (signal: AbortSignal) => this.#readyTarget(signal),
    };
    this.#forgetting = new FootageForgetting({
      ...shared,
      disk: this.#disk,
      layout,
      source: () => this.#source(),
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
    await archive.#loadTarget().catch((error: unknown) => {
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
      await this.#requireTarget();
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
      const target = await this.#requireTarget();
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
      const target = await this.#requireTarget();
      const { vault, file } = await this.#time.run((signal) => findVault(target, identity, signal));
      await this.#outbox.whilePaused(async () => {
        if (this.#items.packed.some(([, { vault: id }]) => id !== vault.id)) {
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
      await this.#loadTarget();
      return told(this.#record);
    });
  }

  /** Another place for the archive; where it is on, the place has to take it at once. */
  setTarget(given: TargetRecord): Promise<TargetRecord> {
    return this.#turns.run(async () => {
      const kept = await this.#targetFile.read().catch(() => this.#record);
      const record = withKeptSecret(given, kept);
      const target = this.#dependencies.openTarget(record);
      await this.#outbox.whilePaused(async () => {
        const { enabled, vault } = this.#state.record;
        if (enabled && vault !== undefined) {
          if (target === undefined) {
            throw new ArchiveNotReady("The archive is on and needs a place. Turn it off first.");
          }
          await this.#bindTo(target, record, vault);
        }
        await this.#targetFile.write(record);
        this.#record = record;
        this.#target = target;
      });
      return told(record);
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

  async estimate(range: DayRange): Promise<ArchiveExportEstimate> {
    await this.#flush();
    const { clips } = await this.#time.run(async (signal) =>
      readList(await this.#source(), range, false, signal),
    );
    return { clips: clips.length, bytes: clips.reduce((sum, clip) => sum + clip.bytes, 0) };
  }

  /** Throws where the destination can't be used; what else goes wrong the status tells. */
  startExport(destination: string, range: DayRange): Promise<ArchiveExportStatus> {
    return this.#turns.run(async () => {
      if (this.#export?.status.state === "running") {
        throw new ArchiveNotReady("An export is running. Cancel it, or wait for its end.");
      }
      const { fileSystem, home, clock } = this.#dependencies;
      const { target, vault } = await this.#source();
      const root = expandedAbsolutePath(destination, home);
      const folder = await ExportFolder.open(fileSystem, root, vault.id);
      const list = async (signal: AbortSignal) => {
        await this.#flush();
        return readList(await this.#source(), range, true, signal);
      };
      this.#export = new ExportRun({ clock, target, vault, folder, readList: list });
      return this.#export.status;
    });
  }

  exportStatus(): ArchiveExportStatus {
    return this.#export?.status ?? idle;
  }

  async cancelExport(): Promise<ArchiveExportStatus> {
    await this.#export?.cancel();
    return this.exportStatus();
  }

  /**
   * Removes footage of that time, whole clips where it is in clips. Throws TargetFailure or
   * SecretStoreFailure; what was removed until then is, and the call may be repeated.
   */
  forget(range: TimeRange): Promise<ForgottenFootage> {
    return this.#turns.run(async () => {
      await this.#loadTarget();
      return this.#outbox.whilePaused(async () => {
        const frames = await this.#forgetting.unpacked(range);
        const clips = await this.#time.run((signal) => this.#forgetting.clips(range, signal));
        return { clips, frames };
      });
    });
  }

  /** Resolves when there is nothing more to do for now. */
  settled(): Promise<void> {
    return this.#outbox.settled();
  }

  /** What is under way ends where it is; the next start goes on. */
  async close(): Promise<void> {
    this.#time.close();
    await Promise.all([this.#export?.cancel(), this.#outbox.close()]);
  }

  #packer() {
    const { encodeVideo, randomName } = this.#dependencies;
    const isLossless = this.#record.lossless;
    return { disk: this.#disk, encodeVideo: isLossless ? undefined : encodeVideo, randomName };
  }

  #vaultInUse(): VaultRecord {
    const { vault } = this.#state.record;
    if (vault === undefined) throw new ArchiveNotReady(noVault);
    return vault;
  }

  async #requireTarget(): Promise<ArchiveTarget> {
    await this.#loadTarget();
    if (this.#target === undefined) throw new ArchiveNotReady(noTargetChosen);
    return this.#target;
  }

  /** The user may have edited the file. While the archive is on, another place waits for a start. */
  async #loadTarget(): Promise<void> {
    const record = await this.#targetFile.read();
    const isOther = placeOf(record) !== placeOf(this.#record);
    if (isOther && this.#target !== undefined && this.#state.record.enabled) return;
    this.#record = record;
    this.#target = this.#dependencies.openTarget(record);
  }

  /** For the outbox: the file may have been edited while the observer was not running. */
  async #readyTarget(signal: AbortSignal): Promise<ArchiveTarget> {
    const target = this.#target;
    if (target === undefined) throw new TargetFailure(noTargetChosen);
    const { binding } = this.#state.record;
    if (binding?.place !== placeOf(this.#record)) {
      const place = placeOf(this.#record);
      await this.#state.change(
        await bind(this.#binding(), target, place, this.#vaultInUse(), signal),
      );
    }
    return target;
  }

  #binding() {
    const { layout, randomName } = this.#dependencies;
    return { disk: this.#disk, layout, state: this.#state, randomName };
  }

  async #bindTo(target: ArchiveTarget, record: TargetRecord, vault: VaultRecord): Promise<void> {
    await this.#state.change(await this.#bound(target, record, vault));
  }

  async #use(vault: VaultRecord, target: ArchiveTarget): Promise<void> {
    const change = await this.#bound(target, this.#record, vault);
    await this.#state.change({ ...change, vault, enabled: true, prepared: undefined });
  }

  #bound(target: ArchiveTarget, record: TargetRecord, vault: VaultRecord) {
    const place = placeOf(record);
    return this.#time.run((signal) => bind(this.#binding(), target, place, vault, signal));
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

  /** What isn't in the list when the time is up comes later. */
  async #flush(): Promise<void> {
    if (!this.#state.record.enabled) return;
    const { clock } = this.#dependencies;
    let cancel = () => {};
    const timeIsUp = new Promise<void>((resolve) => {
      cancel = clock.after(flushPatienceMs, resolve);
    });
    await Promise.race([this.#outbox.flush(), timeIsUp]);
    cancel();
  }

  /** Everything that it takes to read the archive. */
  async #source(): Promise<ListSource> {
    const target = await this.#requireTarget();
    const vault = await this.#keyring.vault(this.#vaultInUse().id);
    const place = placeOf(this.#record);
    const { binding } = this.#state.record;
    const ownHead = binding?.place === place ? { ...binding, sha256: binding.head } : undefined;
    return { mirror: this.#mirror, heads: this.#heads, target, place, vault, ownHead };
  }
}

function recordOf(vault: Vault): VaultRecord {
  return { id: vault.id, recipient: String(vault.identity.recipient) };
}
