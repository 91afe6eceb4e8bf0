import { clip, MAX_TITLE_LENGTH, plainLine } from "../journal/bulletText.ts";
import type { PlaceKind } from "./rules.ts";

/** A title without what comes and goes in it. */
export interface CleanTitle {
  /** At most MAX_TITLE_LENGTH code points; empty when the title said no more than a program's name. */
  readonly text: string;
  /** Whether the title carried its program's mark of unsaved changes. */
  readonly unsaved: boolean;
}

const SPINNER = /^(?:[\u2800-\u28ff◐-◓◴-◷◜-◟✱✲✳✶✻✽✢·∙⏳⌛]\s*)+/u;
const UNREAD_COUNT = /^(?:\(\d{1,3}(?:[.,]\d{3})*\+?\)|\[\d{1,3}(?:[.,]\d{3})*\+?\])\s*/;
const INNER_COUNT = /\s\(\d[\d.,]*\+?\)(?=\s[-–—|]|$)/g;
const NEW_ITEMS = /\s[-–—|]\s\d+ new (?:items?|messages?)$/i;
const MORE_PAGES = / and \d+ more pages?$/i;
const LEADING_STAR = /^[*•●!]\s+/u;
// Editors write the mark with or without a blank. "*.txt" and "**bold" are titles, not marks.
const LEADING_UNSAVED = /^(?:\*(?![*.])|[•●])\s*/u;
const TRAILING_UNSAVED_WORD = /\s[[(](?:modified|unsaved|\+|\*)[\])]$/i;
const TRAILING_UNSAVED = /\s[*•●]$|(?<=\.\w{1,8})\*$/u;
const TRAILING_UNSAVED_EDITOR = /\s?[*•●]$/u;
/** The marks that no program is known to use for anything but unsaved changes. */
const SURELY_UNSAVED = /^\*[^\s*.]|\.\w{1,8}\*$|\s[[(](?:modified|unsaved)[\])]$/iu;
const SEPARATOR_BEFORE_SUFFIX = /\s[-–—|·]\s$/u;
const MAX_ROUNDS = 8;

function stripSuffix(title: string, names: readonly string[]): string {
  for (const name of names) {
    const start = title.length - name.length;
    if (start < 0 || title.slice(start).toLowerCase() !== name) {
      continue;
    }
    const before = title.slice(0, start);
    if (before === "") {
      return "";
    }
    if (SEPARATOR_BEFORE_SUFFIX.test(before)) {
      return before.slice(0, -3).trimEnd();
    }
  }
  return title;
}

function stripUnreadMarks(title: string, kind: PlaceKind): string {
  let rest = title.replace(LEADING_STAR, "");
  if (kind !== "terminal") {
    rest = rest.replace(UNREAD_COUNT, "").replace(MORE_PAGES, "");
  }
  if (kind === "mail" || kind === "chat") {
    rest = rest.replace(NEW_ITEMS, "").replace(INNER_COUNT, "");
  }
  return rest;
}

function stripUnsavedMarks(title: string, kind: PlaceKind): string {
  return title
    .replace(LEADING_UNSAVED, "")
    .replace(TRAILING_UNSAVED_WORD, "")
    .replace(kind === "editor" ? TRAILING_UNSAVED_EDITOR : TRAILING_UNSAVED, "");
}

/**
 * Strips spinners, unread counts, unsaved marks and the names of programs from a title. Which marks
 * mean what follows from the kind of place. `names` are the lower-case names that count as a
 * program's, and the title is an empty text when nothing else is left of it.
 */
export function cleanTitle(raw: string, kind: PlaceKind, names: readonly string[]): CleanTitle {
  const marksAreUnsaved = kind === "editor" || kind === "application";
  let title = plainLine(raw);
  let unsaved = false;
  // Marks hide behind suffixes and the other way round, so until nothing more is found.
  for (let round = 0; round < MAX_ROUNDS; round += 1) {
    const before = title;
    title = stripSuffix(title.replace(SPINNER, ""), names);
    if (marksAreUnsaved) {
      const unmarked = stripUnsavedMarks(title, kind);
      // In a program that nobody knows, a star or a dot may as well mean an unread message.
      unsaved ||= unmarked !== title && (kind === "editor" || SURELY_UNSAVED.test(title));
      title = unmarked;
    } else {
      title = stripUnreadMarks(title, kind);
    }
    title = title.trim();
    if (title === before) {
      break;
    }
  }
  return { text: clip(title, MAX_TITLE_LENGTH), unsaved };
}

const VOLATILE =
  /^\d{1,3}(?:\.\d+)?\s?%|\d{1,3}(?:\.\d+)?\s?%$|^\d{1,2}:\d\d(?::\d\d)?|\d{1,2}:\d\d:\d\d$/g;

/** The title as it identifies a segment: a progress figure or a running clock does not make a new one. */
export function titleIdentity(title: string): string {
  return title.toLowerCase().replace(VOLATILE, "#");
}
