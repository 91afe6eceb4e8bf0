import { open } from "node:fs/promises";
import { join } from "node:path";
import { clip } from "./bulletText.ts";
import { localDay } from "./journalPage.ts";

/** Enough for hundreds of lines. */
const greatestTailBytes = 65_536;
const greatestLineLength = 500;
const ownLine = /^- (\[[^\]]*\] .*?)\s*<!--\s*key:([0-9]+)-[0-9a-z-]+\s*-->\s*$/;
const oneDayMs = 86_400_000;
/** So long before a chunk may the lines be: two days, of which either may have an hour more. */
export const greatestTailAgeMs = 50 * 3_600_000;

/**
 * The last lines of the journal about the time before `beforeMs`, oldest first, without their keys:
 * at most `count`, of that day and the one before. Only lines with our keys, for what the user has
 * added is nobody's business. A journal that can't be read has none.
 */
export async function journalTail(
  directory: string,
  beforeMs: number,
  count: number,
): Promise<string[]> {
  const lines: { readonly atMs: number; readonly text: string }[] = [];
  for (const dayMs of [beforeMs, beforeMs - oneDayMs]) {
    if (count <= 0 || lines.length >= count) break;
    for (const line of (await endOf(join(directory, `${localDay(dayMs)}.md`))).split("\n")) {
      const match = ownLine.exec(line);
      const atMs = Number(match?.[2]);
      if (atMs < beforeMs) lines.push({ atMs, text: clip(match?.[1] ?? "", greatestLineLength) });
    }
  }
  // Of a day without network the newest were written first.
  lines.sort((a, b) => a.atMs - b.atMs);
  return lines.slice(-count).map(({ text }) => text);
}

async function endOf(path: string): Promise<string> {
  try {
    const file = await open(path);
    try {
      const { size } = await file.stat();
      const bytes = Buffer.alloc(Math.min(size, greatestTailBytes));
      const { bytesRead } = await file.read(bytes, 0, bytes.length, size - bytes.length);
      return bytes.toString("utf8", 0, bytesRead);
    } finally {
      await file.close();
    }
  } catch {
    return "";
  }
}
