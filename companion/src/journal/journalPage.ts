import { isoLocalTime } from "../base/localTime.ts";
import { bulletLine } from "./bulletText.ts";
import type { JournalSession, KeyedBullet } from "./types.ts";

const WEEKDAYS = [
  "Sunday",
  "Monday",
  "Tuesday",
  "Wednesday",
  "Thursday",
  "Friday",
  "Saturday",
] as const;

const SESSION_HEADING = "## Session ";
const ANY_HEADING = /^\s*#{1,6}\s/;
const LINE_BREAK = /[\n\r\v\f\u0085\u2028\u2029]/;
const KEY_COMMENT = /<!--\s*key:([0-9a-z-]+)\s*-->/g;
const NEWLINE = 0x0a;
/** Shorter unfinished lines are not surely ours: "- [10:32] [" is the least that nobody types. */
const LEAST_TORN_LINE = 11;

/** The local calendar date of a moment, "2026-11-21". */
export function localDay(ms: number): string {
  return isoLocalTime(ms).slice(0, 10);
}

function dayTitle(ms: number): string {
  return `# ${localDay(ms)}, ${WEEKDAYS[new Date(ms).getDay()]}\n\n`;
}

function startTimeLine(session: JournalSession): string {
  return `start_time: ${isoLocalTime(session.startedAtMs)}`;
}

function bulletText(bullet: KeyedBullet): string {
  const clock = isoLocalTime(bullet.atMs).slice(11, 16);
  return `- [${clock}] ${bulletLine(bullet.text)} <!-- key:${bullet.key} -->\n`;
}

/** The bullets that the page does not hold yet. */
function missingFrom(page: string, bullets: readonly KeyedBullet[]): KeyedBullet[] {
  const keys = new Set(Array.from(page.matchAll(KEY_COMMENT), (match) => match[1]));
  return bullets.filter((bullet) => {
    if (keys.has(bullet.key)) return false;
    keys.add(bullet.key);
    return true;
  });
}

/** Whether what is appended to the page falls under the session's own, complete heading. */
function endsInSession(page: string, session: JournalSession): boolean {
  const lines = page.split(LINE_BREAK).map((line) => line.trim());
  for (let index = lines.length - 1; index >= 0; index -= 1) {
    if (!ANY_HEADING.test(`${lines[index]} `)) continue;
    const next = lines.slice(index + 1).find((line) => line !== "");
    const heading = `${SESSION_HEADING}${session.id}`;
    return lines[index] === heading && next === startTimeLine(session);
  }
  return false;
}

function block(page: string, session: JournalSession, missing: readonly KeyedBullet[]): string {
  const bullets = missing.map(bulletText).join("");
  if (endsInSession(page, session)) return bullets;
  const heading = `${SESSION_HEADING}${session.id}\n${startTimeLine(session)}\n\n`;
  if (page === "") return dayTitle(missing[0]?.atMs ?? session.startedAtMs) + heading + bullets;
  return (/\n\r?\n$/.test(page) ? "" : "\n") + heading + bullets;
}

/**
 * What to append to a day's page so that it holds each of the bullets once, under the session's
 * heading; empty when it does already. All bullets are of the page's day and have visible text.
 * Nothing that stands there needs to change for it: an unfinished last line that begins what is to
 * be written (a write that a power failure tore) is completed, any other gets its missing line end.
 */
export function pageAddition(
  page: Buffer,
  session: JournalSession,
  bullets: readonly KeyedBullet[],
): Buffer {
  const missing = missingFrom(page.toString("utf8"), bullets);
  if (missing.length === 0) return Buffer.alloc(0);
  const tailStart = page.lastIndexOf(NEWLINE) + 1;
  const finished = page.subarray(0, tailStart).toString("utf8");
  const tail = page.subarray(tailStart);
  const addition = Buffer.from(block(finished, session, missing));
  if (tail.length === 0) return addition;
  if (tail.length >= LEAST_TORN_LINE && addition.subarray(0, tail.length).equals(tail)) {
    return addition.subarray(tail.length);
  }
  const whole = `${page.toString("utf8")}\n`;
  return Buffer.from(`\n${block(whole, session, missing)}`);
}
