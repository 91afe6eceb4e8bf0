import { join } from "node:path";
import { errorCode, isRefusal, isSystemError } from "../base/failure.ts";
import { parseJson } from "../json/value.ts";
import { type Disk, replacementOf } from "../spool/disk.ts";
import { chunkFileName, resultFileName, type SpoolLayout } from "../spool/layout.ts";
import { leaveFramesOut, removeAnswers } from "../spool/leaveFramesOut.ts";
import { discard } from "../spool/moves.ts";
import { Chunk, isWithin, overlaps, type SpooledFrame, type TimeRange } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import { parseRecord } from "../wire/schema.ts";

/**
 * Takes the frames of that time out of the waiting chunks, with the lines that were made of them and
 * wait for the journal. Nothing else may be at work on the chunks. Resolves with how many frames went;
 * throws the error of the disk, and then has gone through all that could be read.
 */
export async function forgetWaiting(spool: Spool, range: TimeRange): Promise<number> {
  let count = 0;
  const refusals: Error[] = [];
  for (const { id, extent } of [...spool.pendingChunks]) {
    try {
      await forgetAnswer(spool, id, range);
      if (extent !== undefined && overlaps(extent, range))
        count += await leaveOut(spool, id, range);
    } catch (error) {
      // One chunk that the disk keeps back keeps none of the others.
      if (!isRefusal(error)) throw error;
      refusals.push(error);
    }
  }
  await spool.forgetStates();
  if (refusals[0] !== undefined) throw refusals[0];
  return count;
}

async function leaveOut(spool: Spool, id: number, range: TimeRange): Promise<number> {
  const chunk = await spool.readChunk(id);
  const rest = await spool.leaveOut(chunk, isOf(range));
  return chunk.frames.length - rest.frames.length;
}

/** An answer may tell of a time that its frames don't reach: that of an activity's beginning. */
async function forgetAnswer(spool: Spool, id: number, range: TimeRange): Promise<void> {
  // A kill may have left half an answer.
  await spool.disk.remove(replacementOf(join(spool.layout.chunk(id), resultFileName)));
  const result = await spool.readResult(id);
  if (result === undefined) return;
  const bullets = result.bullets.filter(({ atMs }) => !isWithin(atMs, range));
  await spool.storeResult(id, { version: 1, state: undefined, bullets });
}

/**
 * The same in the chunks that were put aside. Those whose record can't be read can't tell of when they
 * are, and go when they were put aside at that time or later.
 */
export async function forgetPutAside(
  disk: Disk,
  layout: SpoolLayout,
  range: TimeRange,
): Promise<number> {
  const names = await disk.list(layout.quarantine).catch((error: unknown) => {
    if (errorCode(error) === "ENOENT") return [];
    throw error;
  });
  let count = 0;
  for (const name of names) {
    const folder = join(layout.quarantine, name);
    const chunk = await readChunk(disk, folder);
    if (chunk !== undefined) {
      await removeAnswers(disk, folder);
      const rest = await leaveFramesOut(disk, folder, chunk, isOf(range));
      count += chunk.frames.length - rest.frames.length;
      continue;
    }
    if (Number(/-([0-9]+)$/.exec(name)?.[1] ?? 0) < range.fromMs) continue;
    await discard(disk, layout, folder);
    count += 1;
  }
  return count;
}

async function readChunk(disk: Disk, folder: string): Promise<Chunk | undefined> {
  try {
    return parseRecord(Chunk, parseJson(await disk.readText(join(folder, chunkFileName))));
  } catch (error) {
    if (isSystemError(error) && errorCode(error) !== "ENOENT") throw error;
    return undefined;
  }
}

export function isOf(range: TimeRange) {
  return ({ receivedAtMs }: SpooledFrame) => isWithin(receivedAtMs, range);
}
