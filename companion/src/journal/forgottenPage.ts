import { isWithin, type TimeRange } from "../spool/records.ts";

const OWN_LINE = /<!--\s*key:([0-9]+)-[0-9a-z-]+\s*-->\s*$/;
const SESSION = /^## Session /;
const START_TIME = /^start_time: /;
const ANY_HEADING = /^\s*#{1,6}\s/;
const DAY_TITLE = /^# [0-9]{4}-[0-9]{2}-[0-9]{2}, [A-Z][a-z]+\s*$/;

/** A heading and what stands below it, up to the next one; the first may have no heading. */
interface Section {
  readonly lines: readonly string[];
  readonly count: number;
}

/**
 * A day's page without our lines about that time. A session's heading goes with its last line; of a
 * page on which nothing but its title is left nothing stays. Every other byte is as it was.
 */
export function pageWithout(page: string, range: TimeRange): { rest: string; count: number } {
  const sections = sectionsOf(page.split("\n")).map((section) => withoutTime(section, range));
  const count = sections.reduce((sum, section) => sum + section.count, 0);
  if (count === 0) return { rest: page, count };
  const kept = sections.filter((section) => section.count === 0 || !isEmptied(section));
  const lines = kept.flatMap((section) => section.lines);
  const isBare = lines.every((line) => line.trim() === "" || DAY_TITLE.test(line));
  if (isBare) return { rest: "", count };
  const rest = lines.join("\n");
  return { rest: page.endsWith("\n") && !rest.endsWith("\n") ? `${rest}\n` : rest, count };
}

function sectionsOf(lines: readonly string[]): string[][] {
  const sections: string[][] = [[]];
  for (const line of lines) {
    if (ANY_HEADING.test(`${line} `)) sections.push([]);
    sections.at(-1)?.push(line);
  }
  return sections;
}

function withoutTime(lines: readonly string[], range: TimeRange): Section {
  const kept = lines.filter((line) => {
    const atMs = Number(OWN_LINE.exec(line)?.[1]);
    return Number.isNaN(atMs) || !isWithin(atMs, range);
  });
  return { lines: kept, count: lines.length - kept.length };
}

/** Whether all that is left is what was written for the lines that went. */
function isEmptied({ lines }: Section): boolean {
  const [heading = "", ...rest] = lines;
  if (!SESSION.test(heading)) return false;
  return rest.every((line) => line.trim() === "" || START_TIME.test(line));
}
