/**
 * The user's regular expressions are written for the application, whose dialect is PCRE's. What both
 * dialects have is searched for here; what only that one has is an error rather than another meaning.
 */

/** Characters that may be escaped in this dialect; of others the escape changes nothing. */
const syntax = new Set("^$\\.*+?()[]{}|/");
const sameEscapes = new Set("bBdDfnrtwW0123456789kpP");
/** That dialect's blanks and line ends, of which this one has more, fewer or others. */
const blanks = " \\t\\n\\v\\f\\r";
const horizontal = "\\t \\xa0\\u1680\\u180e\\u2000-\\u200a\\u202f\\u205f\\u3000";
const vertical = "\\n\\v\\f\\r\\x85\\u2028\\u2029";
/** What the escapes mean that only look alike, as the inside of a class. */
const classes = new Map([
  ["s", blanks],
  ["h", horizontal],
  ["v", vertical],
]);
const translated = new Map([
  ["A", "(?<![^])"],
  ["z", "(?![^])"],
  ["Z", "(?=\\n?(?![^]))"],
  ["S", `[^${blanks}]`],
  ["H", `[^${horizontal}]`],
  ["V", `[^${vertical}]`],
]);

/** Throws SyntaxError where the pattern can't be used. */
export function titlePattern(pattern: string): RegExp {
  const leading = /^\(\?([ims]+)\)/.exec(pattern);
  const flags = [...new Set(leading?.[1] ?? "")].join("");
  const rest = pattern.slice(leading?.[0].length ?? 0);
  return new RegExp(inThisDialect(rest, flags), `u${flags}`);
}

function inThisDialect(pattern: string, flags: string): string {
  let result = "";
  let isInClass = false;
  for (let at = 0; at < pattern.length; at += 1) {
    const character = pattern[at] ?? "";
    if (character === "\\") {
      const { text, length } = escaped(pattern.slice(at + 1), isInClass);
      // Of several members, which here stand in its place, none is the end of a range.
      if (isInClass && text.length > 2 && isInRange(result, pattern.slice(at + 1 + length))) {
        throw new SyntaxError("a range between escapes is not understood here");
      }
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
    result += isInClass ? character : unescaped(character, flags);
  }
  return result;
}

function isInRange(before: string, after: string): boolean {
  return /[^[^\\]-$/.test(before) || /^-[^\]]/.test(after);
}

/** Of the line ends that a title may have only one stops a dot, or may follow the end. */
function unescaped(character: string, flags: string): string {
  if (character === "." && !flags.includes("s")) return "[^\\n]";
  if (character === "$" && !flags.includes("m")) return "(?=\\n?$)";
  return character;
}

/** What stands behind a backslash, and how much of it was read. */
function escaped(rest: string, isInClass: boolean): { text: string; length: number } {
  const code = /^x\{([0-9A-Fa-f]{1,6})\}/.exec(rest);
  if (code !== null) return { text: `\\u{${code[1]}}`, length: code[0].length };
  const short = /^x[0-9A-Fa-f]{2}/.exec(rest);
  if (short !== null) return { text: `\\${short[0]}`, length: short[0].length };
  const [character = ""] = rest;
  const members = classes.get(character);
  if (members !== undefined) return { text: isInClass ? members : `[${members}]`, length: 1 };
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
