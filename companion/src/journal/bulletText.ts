/** The most code points of foreign text (a title, a label) that one bullet carries. */
export const MAX_TITLE_LENGTH = 140;

/** A bullet as a whole is never longer than this, in code points, whoever composed it. */
export const MAX_BULLET_LENGTH = 2000;

const LINE_BREAKING = /[\p{Cc}\p{Zl}\p{Zp}\s]+/gu;
const LONE_SURROGATE = /\p{Cs}/gu;
// The two joiners stay: emoji sequences and several scripts are written with them. Everything else
// in the category is invisible, and can reorder the line (bidi controls) or hide text in it.
const INVISIBLE = /(?!\u200c|\u200d)\p{Cf}/gu;
const COMMENT_MARK = /<!--|--!?>/g;
const ONLY_JOINERS = /^(?:\u200c|\u200d| )*$/;

/**
 * Makes any text fit into one journal line: no line break or other control character, no invisible
 * or reordering character, no lone surrogate (the file is UTF-8), no comment mark (the line ends with
 * a key comment that nothing may imitate), single blanks, none at the ends. The result may be empty.
 * Applying it twice changes nothing more.
 */
export function plainLine(text: string): string {
  const line = text
    .replace(LONE_SURROGATE, "\ufffd")
    .replace(LINE_BREAKING, " ")
    // Before the comment marks: dropping a character can join the halves of one.
    .replace(INVISIBLE, "")
    // A blank, not nothing: what stands around a mark must not become a new one.
    .replace(COMMENT_MARK, " ")
    .replace(/ {2,}/g, " ")
    .trim();
  return ONLY_JOINERS.test(line) ? "" : line;
}

/** Shortens to at most `limit` code points, the last of them an ellipsis when anything was cut. */
export function clip(text: string, limit: number): string {
  // Code units are never fewer than code points, so most texts need no counting.
  if (text.length <= limit) {
    return text;
  }
  const points = Array.from(text);
  if (points.length <= limit) {
    return text;
  }
  const kept = points.slice(0, limit - 1).join("");
  return `${kept.replace(/(?:\u200c|\u200d|\s)+$/, "")}…`;
}

/** A whole bullet text made fit for its line. Empty when there is nothing to write. */
export function bulletLine(text: string): string {
  return clip(plainLine(text), MAX_BULLET_LENGTH);
}

/**
 * A label for the square brackets that begin a bullet. Brackets are dropped, because the reader ends
 * the label at the first closing one. The result may be empty.
 */
export function bracketLabel(text: string, limit = 60): string {
  return clip(plainLine(text.replace(/[[\]]/g, " ")), limit);
}
