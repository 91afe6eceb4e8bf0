import type { Bullet } from "../analysis/types.ts";
import { isoLocalTime } from "../base/localTime.ts";
import { ownWorkspace } from "../engine/gapText.ts";
import { bracketLabel, bulletLine, clip } from "../journal/bulletText.ts";

/** What could be made of a model's answer. */
export interface ParsedAnswer {
  readonly bullets: readonly Bullet[];
  /** Lines that are no bullets, and were left out. */
  readonly refusedLines: number;
  /** The answer said, by bullets or by NOOP, what it was asked for. */
  readonly isUnderstood: boolean;
}

/** No stretch of a recording that is analysed at once holds more to note. */
const mostBullets = 20;
const greatestSummaryLength = 400;

/** At the beginning of a line only: in the middle of one stands a title that holds such a mark. */
const thoughts = /^[ \t]*<think(?:ing)?>[\s\S]*?(?:<\/think(?:ing)?>|(?![\s\S]))/gim;
/** What some models think has an end but no beginning, which their prompt has given them already. */
const beginningThoughts = /^[\s\S]*^[ \t]*<\/think(?:ing)?>[ \t\r]*$/im;
const fence = /^```[a-z]*$/i;
const noop = /^["'`*([]*noop["'`*)\].!]*$/i;
const listMark = /^(?:[-*•–]|[0-9]{1,2}[.)])\s+/;
const time = /^[[(]?([0-9]{1,2}):([0-9]{2})(?::([0-9]{2}))?[\])]?(?:\s*[-–—:|]\s*|\s+)/;
const bullet = /^\[([^[\]]{1,100})\]\s*:?\s*(.+)$/;

/**
 * Reads an answer by the journal's grammar: bullets or NOOP. Whatever else stands in it is refused
 * line by line, for it may have been put there by what was on the screen. `isCut` says that the
 * last line may be torn. `frameTimes` are those of the frames that were shown, in UTC milliseconds.
 */
export function parseAnswer(
  text: string,
  isCut: boolean,
  frameTimes: readonly number[],
): ParsedAnswer {
  const lines = text
    .replace(thoughts, "\n")
    .replace(beginningThoughts, "\n")
    .split(/[\n\r\u0085\u2028\u2029]/)
    .map((line) => line.replaceAll("**", "").trim())
    .filter((line) => line !== "" && !fence.test(line));
  if (isCut) lines.pop();
  const bullets: Bullet[] = [];
  let refusedLines = 0;
  let saysNoop = false;
  let lastAtMs = frameTimes[0] ?? 0;
  for (const line of lines) {
    if (noop.test(line.replace(listMark, ""))) {
      saysNoop = true;
      continue;
    }
    const found = parseBullet(line, frameTimes);
    if (found === undefined || bullets.length === mostBullets) {
      refusedLines += 1;
      continue;
    }
    if (bullets.some((other) => other.text === found.text)) continue;
    // Bullets are in time order, whatever the model says.
    lastAtMs = Math.max(lastAtMs, found.atMs);
    bullets.push({ atMs: lastAtMs, text: found.text });
  }
  return { bullets, refusedLines, isUnderstood: saysNoop || bullets.length > 0 };
}

function parseBullet(line: string, frameTimes: readonly number[]): Bullet | undefined {
  const unmarked = line.replace(listMark, "");
  const clock = time.exec(unmarked);
  const match = bullet.exec(unmarked.slice(clock?.[0].length ?? 0));
  const label = inert(bracketLabel(match?.[1] ?? ""));
  const summary = inert(bulletLine(match?.[2] ?? ""));
  // A workspace has a name; "[x]" is a list of things to do, and our own name is for our own lines.
  if (!/[\p{L}\p{N}]{2}/u.test(label) || label.toLowerCase() === ownWorkspace.toLowerCase()) {
    return undefined;
  }
  if (!/[\p{L}\p{N}]/u.test(summary)) return undefined;
  const text = `[${label}] ${clip(summary, greatestSummaryLength)}`;
  return { atMs: frameTimeAt(clock, frameTimes), text };
}

/** The time of the frame that shows that clock time, or nearly; the first frame's without one. */
function frameTimeAt(clock: RegExpExecArray | null, frameTimes: readonly number[]): number {
  const first = frameTimes[0] ?? 0;
  if (clock === null) return first;
  const [, hour, minute, second] = clock;
  const wanted = secondOfDay(Number(hour), Number(minute), Number(second ?? 0));
  const tolerance = second === undefined ? 60 : 30;
  let best = first;
  let bestDistance = tolerance + 1;
  for (const atMs of frameTimes) {
    const iso = isoLocalTime(atMs);
    const [h, m, s] = [iso.slice(11, 13), iso.slice(14, 16), iso.slice(17, 19)].map(Number);
    const distance = Math.abs(secondOfDay(h ?? 0, m ?? 0, s ?? 0) - wanted);
    if (distance < bestDistance) [best, bestDistance] = [atMs, distance];
  }
  return best;
}

function secondOfDay(hour: number, minute: number, second: number): number {
  return (hour * 60 + minute) * 60 + second;
}

/**
 * Without what a viewer of Markdown would act upon: a picture in the journal would tell its host
 * when it is read, and a model that was talked into it could put into its address what it saw.
 */
function inert(text: string): string {
  return text
    .replace(/!(?=\[)/g, "")
    .replace(/\](?=[([:])/g, "] ")
    .replace(/<(?=[a-z/!?])/gi, "< ");
}
