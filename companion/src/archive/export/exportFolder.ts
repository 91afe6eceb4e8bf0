import { createHash } from "node:crypto";
import { basename, dirname, join } from "node:path";
import * as z from "zod/mini";
import { errorCode } from "../../base/failure.ts";
import type { FileSystem } from "../../base/fileSystem.ts";
import { publish } from "../../base/publish.ts";
import { syncFolder } from "../../base/syncFolder.ts";
import { parseJson } from "../../json/value.ts";
import { writeJson } from "../../json/writer.ts";
import { type Disk, diskOn } from "../../spool/disk.ts";
import { parseRecord } from "../../wire/schema.ts";
import { ArchiveNotReady } from "../archiveErrors.ts";
import { ClipEntry, dayText } from "../clips/records.ts";

const format = z.literal("ostrel-export");
const version = z.literal(1);
const count = z.int().check(z.nonnegative());

/** What became of the clips of one day: the list in its folder. */
export const ExportedDay = z.object({
  format,
  version,
  vault: z.string(),
  day: dayText,
  clips: z.array(z.extend(ClipEntry, { file: z.string() })),
  skipped: z.array(z.object({ name: z.string(), why: z.string() })),
  /** Objects in the archive that its list doesn't name. */
  unlisted: z.array(z.string()),
});
export type ExportedDay = z.infer<typeof ExportedDay>;

/** The list at the top: what every day's list comes to. */
const ExportManifest = z.object({
  format,
  version,
  vault: z.string(),
  /** What is wrong with the archive's list, as of the last export. */
  problems: z.array(z.string()),
  days: z.record(dayText, z.object({ clips: count, skipped: count, unlisted: count })),
});
type ExportManifest = z.infer<typeof ExportManifest>;

const manifestName = "manifest.json";
const greatestNameLength = 80;

/** A name for a folder, from a text of anybody's. */
export function folderName(text: string): string {
  const safe = text
    .replace(/[^\p{L}\p{N} ._()+-]/gu, "_")
    .slice(0, greatestNameLength)
    .replace(/^[. ]+|[. ]+$/g, "");
  if (safe === manifestName) return `${safe}_`;
  return safe === "" ? "display" : safe;
}

/** Where a clip is exported to: two displays of one label don't mix. */
export function exportPath(clip: ClipEntry): string {
  const label = folderName(clip.displayLabel);
  const id = folderName(clip.displayId);
  const display = label.includes(id) ? label : `${label} ${id}`;
  return join(clip.day, display, basename(clip.name, ".age"));
}

/** A folder of exported footage. It may hold anything else as well, which stays as it is. */
export class ExportFolder {
  readonly #fs: FileSystem;
  readonly #disk: Disk;
  readonly #root: string;
  #manifest: ExportManifest;

  private constructor(fs: FileSystem, root: string, manifest: ExportManifest) {
    this.#fs = fs;
    this.#disk = diskOn(fs);
    this.#root = root;
    this.#manifest = manifest;
  }

  /** Makes the folder; throws ArchiveNotReady where the list in it isn't one of this vault. */
  static async open(fs: FileSystem, root: string, vault: string): Promise<ExportFolder> {
    const disk = diskOn(fs);
    await disk.makeFolder(root);
    const path = join(root, manifestName);
    const empty: ExportManifest = {
      format: "ostrel-export",
      version: 1,
      vault,
      problems: [],
      days: {},
    };
    const manifest = await ownManifest(disk, path, ExportManifest, vault);
    return new ExportFolder(fs, root, manifest ?? empty);
  }

  /** Throws ArchiveNotReady where the list in the day's folder isn't one of this vault. */
  async beginDay(day: string): Promise<void> {
    await ownManifest(this.#disk, this.#dayManifest(day), ExportedDay, this.#manifest.vault);
  }

  /** What stands there in the clip's place: itself, nothing, or something else. */
  async look(clip: ClipEntry): Promise<"itself" | "nothing" | "something else"> {
    const path = join(this.#root, exportPath(clip));
    const size = await this.#disk.size(path);
    // An empty file is what a kill has left where the file system has no links.
    if (size === undefined || size === 0) return "nothing";
    if (size !== clip.contentBytes) return "something else";
    const hash = createHash("sha256");
    for await (const piece of this.#disk.read(path)) hash.update(piece);
    return hash.digest("hex") === clip.contentSha256 ? "itself" : "something else";
  }

  /**
   * Writes the clip; it gets its name when the pieces have come without an error, unless something
   * has come there first: false.
   */
  async write(clip: ClipEntry, pieces: AsyncIterable<Uint8Array>): Promise<boolean> {
    const path = join(this.#root, exportPath(clip));
    await this.#disk.makeFolder(dirname(path));
    const temporary = join(dirname(path), `.${basename(path)}.part`);
    const file = await this.#disk.createFile(temporary);
    try {
      for await (const piece of pieces) await file.write(piece);
    } catch (error) {
      await file.abandon();
      await this.#disk.remove(temporary).catch(() => undefined);
      throw error;
    }
    await file.finish();
    const isPublished = await publish(this.#fs, temporary, path);
    if (!isPublished) await this.#disk.remove(temporary);
    await syncFolder(this.#fs, dirname(path));
    return isPublished;
  }

  /** Writes down what became of a day; other days stay as they are. */
  async finishDay(
    day: string,
    outcome: Pick<ExportedDay, "clips" | "skipped" | "unlisted">,
  ): Promise<void> {
    const { vault, days } = this.#manifest;
    const list: ExportedDay = { format: "ostrel-export", version: 1, vault, day, ...outcome };
    await this.#disk.makeFolder(join(this.#root, day));
    await this.#disk.replaceFile(this.#dayManifest(day), `${writeJson(list)}\n`);
    const counts = {
      clips: outcome.clips.length,
      skipped: outcome.skipped.length,
      unlisted: outcome.unlisted.length,
    };
    await this.#write({ ...this.#manifest, days: { ...days, [day]: counts } });
  }

  async finish(problems: readonly string[]): Promise<void> {
    await this.#write({ ...this.#manifest, problems: [...problems] });
  }

  #dayManifest(day: string): string {
    return join(this.#root, day, manifestName);
  }

  async #write(manifest: ExportManifest): Promise<void> {
    await this.#disk.replaceFile(join(this.#root, manifestName), `${writeJson(manifest)}\n`);
    this.#manifest = manifest;
  }
}

/** Undefined where there is none; throws ArchiveNotReady where it is somebody else's. */
async function ownManifest<Manifest extends { readonly vault: string }>(
  disk: Disk,
  path: string,
  schema: z.ZodMiniType<Manifest>,
  vault: string,
): Promise<Manifest | undefined> {
  let text: string;
  try {
    text = await disk.readText(path);
  } catch (error) {
    if (errorCode(error) !== "ENOENT") throw error;
    return undefined;
  }
  const manifest = parsed(schema, text);
  if (manifest?.vault === vault) return manifest;
  throw new ArchiveNotReady(
    `${path} is not of an export of this archive, and stays as it is. Choose another folder.`,
  );
}

function parsed<Manifest>(schema: z.ZodMiniType<Manifest>, text: string): Manifest | undefined {
  try {
    return parseRecord(schema, parseJson(text));
  } catch {
    return undefined;
  }
}
