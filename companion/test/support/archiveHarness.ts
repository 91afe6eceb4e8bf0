import { randomBytes } from "node:crypto";
import { dirname, join } from "node:path";
import { Archive, type ArchiveDependencies } from "../../src/archive/archive.ts";
import { ArchiveLayout } from "../../src/archive/archiveState.ts";
import type { SecretStore } from "../../src/archive/keys/secretStore.ts";
import { openTarget } from "../../src/archive/targets/openTarget.ts";
import type { ArchiveTarget } from "../../src/archive/targets/target.ts";
import type { TargetRecord } from "../../src/archive/targets/targetRecord.ts";
import { type FileSystem, realFileSystem } from "../../src/base/fileSystem.ts";
import { writeJson } from "../../src/json/writer.ts";
import { diskOn } from "../../src/spool/disk.ts";
import { chunkFileName, SpoolLayout } from "../../src/spool/layout.ts";
import { pictureName, type SpooledFrame } from "../../src/spool/records.ts";
import { ManualClock } from "./manualClock.ts";
import { temporaryHome } from "./temporaryHome.ts";

export interface TestFrame {
  readonly atMs: number;
  readonly picture: Uint8Array;
  readonly displayId?: string;
  readonly displayLabel?: string;
  readonly text?: string;
  readonly width?: number;
  readonly height?: number;
}

/** A keyring that a test can look into, and lock. */
export class TestKeyring implements SecretStore {
  readonly secrets = new Map<string, string>();
  failure: Error | undefined;

  async read(account: string): Promise<string | undefined> {
    if (this.failure !== undefined) throw this.failure;
    return this.secrets.get(account);
  }

  async write(account: string, secret: string): Promise<void> {
    if (this.failure !== undefined) throw this.failure;
    this.secrets.set(account, secret);
  }

  async remove(account: string): Promise<void> {
    this.secrets.delete(account);
  }
}

export interface ArchiveHarnessOptions {
  readonly home?: string;
  readonly fileSystem?: FileSystem;
  readonly clock?: ManualClock;
  readonly keyring?: TestKeyring;
  readonly encodeVideo?: ArchiveDependencies["encodeVideo"];
  readonly outboxBytes?: (freeBytes: number) => number;
  /** In place of the one that the record chooses. */
  readonly target?: ArchiveTarget;
  readonly randomName?: () => string;
}

export function spooledFrame(frame: TestFrame, batch: number, index: number): SpooledFrame {
  return {
    batch,
    frame: index,
    pictureBytes: frame.picture.length,
    receivedAtMs: frame.atMs,
    frameIndex: index,
    videoMimeType: "image/jpeg",
    text: frame.text,
    displayId: frame.displayId ?? "1",
    displayLabel: frame.displayLabel ?? "Display 1 (main)",
    displayWidth: frame.width ?? 1920,
    displayHeight: frame.height ?? 1080,
    activeDisplayId: undefined,
    activeDisplayLabel: undefined,
    activeDisplayReason: undefined,
  };
}

/** An archive without the observer around it. */
export class ArchiveHarness {
  readonly home: string;
  readonly clock: ManualClock;
  readonly keyring: TestKeyring;
  readonly archive: Archive;
  readonly complaints: ReadonlyMap<string, string>;
  readonly layout: SpoolLayout;
  readonly #fileSystem: FileSystem;

  private constructor(
    options: ArchiveHarnessOptions & { readonly home: string },
    parts: {
      readonly clock: ManualClock;
      readonly keyring: TestKeyring;
      readonly archive: Archive;
      readonly complaints: ReadonlyMap<string, string>;
    },
  ) {
    this.home = options.home;
    this.clock = parts.clock;
    this.keyring = parts.keyring;
    this.archive = parts.archive;
    this.complaints = parts.complaints;
    this.layout = new SpoolLayout(join(options.home, "observer"));
    this.#fileSystem = options.fileSystem ?? realFileSystem;
  }

  static async open(options: ArchiveHarnessOptions = {}): Promise<ArchiveHarness> {
    const home = options.home ?? temporaryHome();
    const clock = options.clock ?? new ManualClock();
    const keyring = options.keyring ?? new TestKeyring();
    const fileSystem = options.fileSystem ?? realFileSystem;
    const complaints = new Map<string, string>();
    const archive = await Archive.open({
      fileSystem,
      clock,
      home,
      layout: new ArchiveLayout(join(home, "observer", "archive")),
      secrets: keyring,
      encodeVideo: options.encodeVideo,
      openTarget: (record) =>
        options.target !== undefined && record.kind !== "none"
          ? options.target
          : openTarget(record, { clock, home, fileSystem, environment: process.env }),
      randomName: options.randomName ?? (() => randomBytes(8).toString("hex")),
      outboxBytes: options.outboxBytes ?? (() => Number.MAX_SAFE_INTEGER),
      onComplaint: (area, sentence) => {
        if (sentence === undefined) complaints.delete(area);
        else complaints.set(area, sentence);
      },
    });
    return new ArchiveHarness({ ...options, home }, { clock, keyring, archive, complaints });
  }

  /** Chooses the target and turns the archive on; the result is the recovery key. */
  async turnOn(record: TargetRecord): Promise<string> {
    await this.archive.setTarget(record);
    const { recoveryKey } = await this.archive.prepare();
    await this.archive.enable();
    if (recoveryKey === undefined) throw new Error("there was a vault already");
    return recoveryKey;
  }

  /** A chunk whose lines stand in the journal, as the queue hands it on; whether it was taken. */
  async finish(id: number, frames: readonly TestFrame[]): Promise<boolean> {
    return this.archive.take(await this.writeChunk(id, frames));
  }

  async writeChunk(id: number, frames: readonly TestFrame[]): Promise<string> {
    const disk = diskOn(this.#fileSystem);
    const folder = this.layout.chunk(id);
    await disk.makeFolder(folder);
    const spooled = frames.map((frame, index) => spooledFrame(frame, id, index));
    for (const [index, frame] of frames.entries()) {
      const name = pictureName(spooled[index] as SpooledFrame);
      const file = await disk.createFile(join(folder, name));
      await file.write(frame.picture);
      await file.finish();
    }
    const chunk = {
      version: 1,
      id,
      session: { id: "session-1", startedAtMs: frames[0]?.atMs ?? 0 },
      through: { batch: id, frame: frames.length - 1 },
      frames: spooled,
    };
    await disk.replaceFile(join(folder, chunkFileName), writeJson(chunk));
    await disk.replaceFile(join(folder, "result.json"), "{}");
    for (const path of [folder, dirname(folder), this.layout.root]) await disk.syncFolder(path);
    return folder;
  }

  /** Exports and resolves with the last status. */
  async export(destination: string, fromDate: string, toDate: string) {
    await this.archive.startExport(destination, { fromDate, toDate });
    await until(() => this.archive.exportStatus().state !== "running");
    return this.archive.exportStatus();
  }
}

const greatestTurns = 2_000_000;

/** Lets everything else happen until it is so. */
export async function until(isSo: () => boolean): Promise<void> {
  for (let turn = 0; !isSo(); turn += 1) {
    if (turn > greatestTurns) throw new Error("it never came");
    await new Promise((resolve) => setImmediate(resolve));
  }
}
