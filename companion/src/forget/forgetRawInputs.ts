import { dirname, join } from "node:path";
import { errorCode, isSystemError } from "../base/failure.ts";
import { RawRecord, rawRecordName, requestFileName } from "../engine/rawInputs.ts";
import { greatestTailAgeMs } from "../journal/journalTail.ts";
import { parseJson } from "../json/value.ts";
import { type Disk, replacementOf } from "../spool/disk.ts";
import { overlaps, type TimeRange } from "../spool/records.ts";
import { parseRecord } from "../wire/schema.ts";

/** What became of the kept inputs of models. */
export interface ForgottenRawInputs {
  /** Folders of a chunk that are no more. */
  readonly removed: number;
  /** Folders that don't tell of when they are, and were left. */
  readonly unknown: number;
}

/**
 * Removes the folders of chunks that have to do with that time, and the requests of those after it,
 * which may quote the journal's lines about it. What is not of a chunk is left alone.
 */
export async function forgetRawInputs(
  disk: Disk,
  directory: string,
  range: TimeRange,
): Promise<ForgottenRawInputs> {
  let [removed, unknown] = [0, 0];
  for (const name of await namesIn(disk, directory)) {
    if (!/^[0-9]{1,15}$/.test(name)) continue;
    const folder = join(directory, name);
    const extent = await extentOf(disk, folder);
    if (extent === "unknown") {
      unknown += 1;
    } else if (overlaps(extent, range)) {
      await removeFolder(disk, folder);
      removed += 1;
    } else if (overlaps({ fromMs: extent.fromMs - greatestTailAgeMs, toMs: extent.toMs }, range)) {
      await removeRequest(disk, folder);
    }
  }
  return { removed, unknown };
}

async function namesIn(disk: Disk, folder: string): Promise<string[]> {
  try {
    return await disk.list(folder);
  } catch (error) {
    if (errorCode(error) === "ENOENT") return [];
    throw error;
  }
}

async function extentOf(disk: Disk, folder: string): Promise<TimeRange | "unknown"> {
  try {
    const text = await disk.readText(join(folder, rawRecordName));
    return parseRecord(RawRecord, parseJson(text)).extent;
  } catch (error) {
    const isOthers = errorCode(error) === "ENOENT" || errorCode(error) === "ENOTDIR";
    if (isSystemError(error) && !isOthers) throw error;
    return "unknown";
  }
}

async function removeRequest(disk: Disk, folder: string): Promise<void> {
  const path = join(folder, requestFileName);
  await disk.remove(replacementOf(path));
  if ((await disk.size(path)) === undefined) return;
  await disk.remove(path);
  await disk.syncFolder(folder);
}

/** The record last: while anything is left it has to tell of when that is. */
async function removeFolder(disk: Disk, folder: string): Promise<void> {
  for (const name of await disk.list(folder)) {
    if (name !== rawRecordName) await disk.remove(join(folder, name));
  }
  await disk.syncFolder(folder);
  await disk.remove(folder);
  await disk.syncFolder(dirname(folder));
}
