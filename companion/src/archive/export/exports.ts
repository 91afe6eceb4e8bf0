import type { Clock } from "../../base/clock.ts";
import type { FileSystem } from "../../base/fileSystem.ts";
import { expandedAbsolutePath } from "../../settings/expandedPath.ts";
import type { ArchiveExportEstimate, ArchiveExportStatus } from "../../wire/records.ts";
import { ArchiveNotReady } from "../archiveErrors.ts";
import type { DayRange } from "../archiveRequests.ts";
import { type ListSource, readList } from "../manifest/listReader.ts";
import type { RequestTime } from "../requestTime.ts";
import { ExportFolder } from "./exportFolder.ts";
import { ExportRun } from "./exportRun.ts";

export interface ExportsDependencies {
  readonly fileSystem: FileSystem;
  readonly clock: Clock;
  readonly home: string;
  readonly time: RequestTime;
  /** Everything that it takes to read the archive; throws where there is none, or it can't be read. */
  source(): Promise<ListSource>;
  /** Brings what waits into the list, as far as that can be done now. */
  flush(): Promise<void>;
  /** Whether the user has had the clip of that name forgotten since. */
  isForgotten(name: string): boolean;
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

/** Brings footage back: how much there is, and one export at a time. */
export class Exports {
  readonly #dependencies: ExportsDependencies;
  #run: ExportRun | undefined;

  constructor(dependencies: ExportsDependencies) {
    this.#dependencies = dependencies;
  }

  get status(): ArchiveExportStatus {
    return this.#run?.status ?? idle;
  }

  async estimate(range: DayRange): Promise<ArchiveExportEstimate> {
    const { time, source } = this.#dependencies;
    await this.#flush();
    const { count, bytes } = await time.run(async (signal) =>
      readList(await source(), range, false, signal),
    );
    return { clips: count, bytes };
  }

  /** Throws where the destination can't be used; what else goes wrong the status tells. */
  async start(destination: string, range: DayRange): Promise<ArchiveExportStatus> {
    if (this.status.state === "running") {
      throw new ArchiveNotReady("An export is running. Cancel it, or wait for its end.");
    }
    const { fileSystem, home, clock, source, isForgotten } = this.#dependencies;
    const { target, vault } = await source();
    const root = expandedAbsolutePath(destination, home);
    const folder = await ExportFolder.open(fileSystem, root, vault.id);
    const list = async (signal: AbortSignal) => {
      await this.#flush();
      return readList(await source(), range, true, signal);
    };
    this.#run = new ExportRun({ clock, target, vault, folder, isForgotten, readList: list });
    return this.#run.status;
  }

  async cancel(): Promise<ArchiveExportStatus> {
    await this.#run?.cancel();
    return this.status;
  }

  /** What isn't in the list when the time is up comes later. */
  async #flush(): Promise<void> {
    const { clock, flush } = this.#dependencies;
    let cancel = () => {};
    const timeIsUp = new Promise<void>((resolve) => {
      cancel = clock.after(flushPatienceMs, resolve);
    });
    await Promise.race([flush(), timeIsUp]);
    cancel();
  }
}
