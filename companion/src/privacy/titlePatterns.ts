import { createContext, Script } from "node:vm";

/**
 * The user's regular expressions are written for the application, whose dialect is PCRE's. What both
 * dialects have is searched for here; what only that one has is an error rather than another meaning.
 */

/** Searching both ends is enough: what marks a private window stands at one of them. */
const searchedEnd = 2_000;
/** A title that can't be decided upon in so much work counts as found, as it does in the application. */
const greatestWorkMs = 200;
/** After so long it is looked how much of the time was work: on a busy machine it may be next to none. */
const lookAfterMs = 100;

/** Characters that may be escaped in this dialect; of others the escape changes nothing. */
const syntax = new Set("^$\\.*+?()[]{}|/");
const sameEscapes = new Set("bBdDfnrsStvwW0123456789kpP");
const translated = new Map([
  ["A", "^"],
  ["z", "$"],
  ["Z", "$"],
  ["h", "[ \\t]"],
]);

/** Throws SyntaxError where the pattern can't be used. */
export function titlePattern(pattern: string): RegExp {
  const leading = /^\(\?([ims]+)\)/.exec(pattern);
  const flags = [...new Set(leading?.[1] ?? "")].join("");
  return new RegExp(inThisDialect(pattern.slice(leading?.[0].length ?? 0)), `u${flags}`);
}

function inThisDialect(pattern: string): string {
  let result = "";
  let isInClass = false;
  for (let at = 0; at < pattern.length; at += 1) {
    const character = pattern[at] ?? "";
    if (character === "\\") {
      const { text, length } = escaped(pattern.slice(at + 1), isInClass);
      result += text;
      at += length;
      continue;
    }
    if (isInClass && character === "[") {
      if (pattern[at + 1] === ":") throw new SyntaxError("named classes are not understood here");
      result += "\\[";
      continue;
    }
    if (character === "[") isInClass = true;
    else if (character === "]") isInClass = false;
    result += character;
  }
  return result;
}

/** What stands behind a backslash, and how much of it was read. */
function escaped(rest: string, isInClass: boolean): { text: string; length: number } {
  const code = /^x\{([0-9A-Fa-f]{1,6})\}/.exec(rest);
  if (code !== null) return { text: `\\u{${code[1]}}`, length: code[0].length };
  const short = /^x[0-9A-Fa-f]{2}/.exec(rest);
  if (short !== null) return { text: `\\${short[0]}`, length: short[0].length };
  const [character = ""] = rest;
  const instead = isInClass ? undefined : translated.get(character);
  if (instead !== undefined) return { text: instead, length: 1 };
  if (syntax.has(character) || sameEscapes.has(character) || (isInClass && character === "-")) {
    return { text: `\\${character}`, length: 1 };
  }
  if (character === "" || /[A-Za-z]/.test(character)) {
    throw new SyntaxError(`\\${character} is not understood here`);
  }
  return { text: character, length: character.length };
}

const search = new Script("patterns.some((pattern) => pattern.test(title))");

/** By its code alone: it comes from the context, whose errors are not of our classes. */
function isTimeout(error: unknown): boolean {
  const code = typeof error === "object" && error !== null && "code" in error ? error.code : "";
  return code === "ERR_SCRIPT_EXECUTION_TIMEOUT";
}

/** Whether one of the patterns is found in the title. A search that takes too long has found it. */
export function isTitleFound(patterns: readonly RegExp[], title: string): boolean {
  if (patterns.length === 0 || title === "") return false;
  const searched =
    title.length <= 2 * searchedEnd
      ? title
      : title.slice(0, searchedEnd) + title.slice(-searchedEnd);
  // Only there can a search be ended that would go on for ever.
  const context = createContext({ patterns, title: searched });
  for (let workMs = 0; workMs < greatestWorkMs; ) {
    const before = process.cpuUsage();
    try {
      return search.runInContext(context, { timeout: lookAfterMs }) === true;
    } catch (error) {
      if (!isTimeout(error)) throw error;
    }
    const { user, system } = process.cpuUsage(before);
    // At least a little, so that it ends where nobody counts.
    workMs += Math.max((user + system) / 1000, 1);
  }
  return true;
}
