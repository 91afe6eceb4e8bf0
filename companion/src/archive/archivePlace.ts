import type { TimeRange } from "../spool/records.ts";
import { ArchiveNotReady, noTargetChosen } from "./archiveErrors.ts";
import type { ArchiveState, VaultRecord } from "./archiveState.ts";
import { type BindingDependencies, bind } from "./binding.ts";
import type { RequestTime } from "./requestTime.ts";
import { type ArchiveTarget, TargetFailure } from "./targets/target.ts";
import { TargetFile } from "./targets/targetFile.ts";
import { placeOf, type TargetRecord, withKeptSecret } from "./targets/targetRecord.ts";

export interface PlaceDependencies extends BindingDependencies {
  readonly time: RequestTime;
  /** Undefined where the record chooses none. */
  openTarget(record: TargetRecord): ArchiveTarget | undefined;
}

type StateChange = Awaited<ReturnType<typeof bind>>;

/** Where the archive lies: what the user has chosen, and this machine as a writer there. */
export class ArchivePlace {
  readonly #dependencies: PlaceDependencies;
  readonly #state: ArchiveState;
  readonly #file: TargetFile;
  #record: TargetRecord = { kind: "none", lossless: false };
  #target: ArchiveTarget | undefined;

  constructor(dependencies: PlaceDependencies) {
    this.#dependencies = dependencies;
    this.#state = dependencies.state;
    this.#file = new TargetFile(dependencies.disk, dependencies.layout.targetFile);
  }

  get record(): TargetRecord {
    return this.#record;
  }

  /** The same text for the same place. */
  get name(): string {
    return placeOf(this.#record);
  }

  /** The user may have edited the file. While the archive is on, another place waits for a start. */
  async load(): Promise<void> {
    const record = await this.#file.read();
    const isOther = placeOf(record) !== this.name;
    if (isOther && this.#target !== undefined && this.#state.record.enabled) return;
    this.#record = record;
    this.#target = this.#dependencies.openTarget(record);
  }

  /** Throws ArchiveNotReady where none is chosen. */
  async require(): Promise<ArchiveTarget> {
    await this.load();
    if (this.#target === undefined) throw new ArchiveNotReady(noTargetChosen);
    return this.#target;
  }

  /** Ready for this machine's list, as the file may have been edited while the observer was not running. */
  async ready(vault: VaultRecord, signal: AbortSignal): Promise<ArchiveTarget> {
    const target = this.#target;
    if (target === undefined) throw new TargetFailure(noTargetChosen);
    if (this.#state.record.binding?.place !== this.name) {
      const change = await bind(this.#dependencies, target, this.name, vault, signal);
      await this.#state.change(change);
    }
    return target;
  }

  /** What has to change in the state for this machine to write for the vault here. */
  bound(target: ArchiveTarget, vault: VaultRecord): Promise<StateChange> {
    return this.#bound(target, this.#record, vault);
  }

  /** Another place; where the archive is on, the place has to take it at once. */
  async change(given: TargetRecord, pause: (task: () => Promise<void>) => Promise<void>) {
    const kept = await this.#file.read().catch(() => this.#record);
    const record = withKeptSecret(given, kept);
    const target = this.#dependencies.openTarget(record);
    await pause(async () => {
      const { enabled, vault } = this.#state.record;
      if (enabled && vault !== undefined) {
        if (target === undefined) {
          throw new ArchiveNotReady("The archive is on and needs a place. Turn it off first.");
        }
        await this.#state.change(await this.#bound(target, record, vault));
      }
      await this.#file.write(record);
      this.#record = record;
      this.#target = target;
    });
  }

  /** Where footage of that time may lie besides: archives that were in use, and are not now. */
  formerPlaces({ fromMs }: TimeRange): string[] {
    const { formerPlaces = [] } = this.#state.record;
    return formerPlaces.filter(({ untilMs }) => fromMs <= untilMs).map(({ place }) => place);
  }

  #bound(target: ArchiveTarget, record: TargetRecord, vault: VaultRecord): Promise<StateChange> {
    return this.#dependencies.time.run((signal) =>
      bind(this.#dependencies, target, placeOf(record), vault, signal),
    );
  }
}
