import { readFile, stat } from "node:fs/promises";
import { describeFailure, errorCode } from "../base/failure.ts";
import { JsonError } from "../json/tokenizer.ts";
import { parseJson } from "../json/value.ts";
import {
  builtInApplications,
  builtInTitlePatterns,
  builtInWindowClasses,
} from "./builtInPrivacyRules.ts";
import { PrivacyRules } from "./privacyRules.ts";
import { titlePattern } from "./titlePatterns.ts";

/**
 * The user's privacy rules can't be known, so nothing may go anywhere. The message is a sentence for
 * the user that says what is wrong and what to do.
 */
export class PrivacyUnreadable extends Error {
  override readonly name = "PrivacyUnreadable";
}

/** Nobody's list is longer. */
const greatestFileBytes = 1_000_000;
const mostEntries = 1_000;
const longestEntry = 1_000;

/** Where somebody gives the rules as they are now; throws PrivacyUnreadable. */
export type RulesNow = () => Promise<PrivacyRules>;

/**
 * `~/.ostrel/privacy.json`, the application's own file, read again when it has changed. A list that is
 * left out is the built-in one, and so are all where there is no file. Other than the application,
 * which goes on with the rules that it can use, this refuses a file of which any part can't be used.
 */
export class PrivacyFile {
  readonly #path: string;
  #stamp: string | undefined;
  #rules: PrivacyRules | PrivacyUnreadable | undefined;

  constructor(path: string) {
    this.#path = path;
  }

  /** Costs one question to the file system while the file stays as it is. Throws PrivacyUnreadable. */
  async rules(): Promise<PrivacyRules> {
    // Before the file is read: what is written meanwhile makes it another one again.
    const stamp = await this.#stampNow();
    if (this.#rules === undefined || stamp !== this.#stamp) {
      this.#rules = await this.#read();
      this.#stamp = stamp;
    }
    if (this.#rules instanceof PrivacyUnreadable) throw this.#rules;
    return this.#rules;
  }

  async #stampNow(): Promise<string> {
    try {
      const { dev, ino, size, mtimeNs, ctimeNs } = await stat(this.#path, { bigint: true });
      return [dev, ino, size, mtimeNs, ctimeNs].join(" ");
    } catch (error) {
      return errorCode(error) ?? "unknown";
    }
  }

  async #read(): Promise<PrivacyRules | PrivacyUnreadable> {
    try {
      const bytes = await readFile(this.#path);
      if (bytes.length > greatestFileBytes) throw new Misunderstood("it is longer than 1 MB");
      return parsePrivacyRules(bytes);
    } catch (error) {
      if (errorCode(error) === "ENOENT") return parsePrivacyRules(Buffer.from("{}"));
      return new PrivacyUnreadable(
        `Your privacy rules can't be applied, so nothing leaves the waiting frames: ${this.#reason(error)}. Mend the file, or delete it to have the built-in rules.`,
        { cause: error },
      );
    }
  }

  #reason(error: unknown): string {
    if (error instanceof JsonError) return `${this.#path} is not JSON (${error.message})`;
    if (error instanceof Misunderstood) return `in ${this.#path} ${error.message}`;
    return describeFailure("the file can't be read", error);
  }
}

class Misunderstood extends Error {
  override readonly name = "Misunderstood";
}

function parsePrivacyRules(bytes: Uint8Array): PrivacyRules {
  const json = parseJson(bytes);
  if (typeof json !== "object" || json === null || Array.isArray(json)) {
    throw new Misunderstood("there is no JSON object");
  }
  const lists = new Map(Object.entries(json));
  const list = (key: string, otherwise: readonly string[]) =>
    entries(lists.get(key), key, otherwise);
  return new PrivacyRules({
    applications: list("excludedApplications", builtInApplications),
    windowClasses: list("excludedWindowClasses", builtInWindowClasses),
    titles: list("excludedTitlePatterns", builtInTitlePatterns).map(usablePattern),
    sites: list("excludedSites", []),
  });
}

function entries(value: unknown, key: string, otherwise: readonly string[]): readonly string[] {
  if (value === undefined) return otherwise;
  if (!Array.isArray(value)) throw new Misunderstood(`${key} is no list`);
  if (value.length > mostEntries) {
    throw new Misunderstood(`${key} has more than ${mostEntries} entries`);
  }
  return value.map((entry: unknown, index) => {
    if (typeof entry === "string" && entry !== "" && entry.length <= longestEntry) return entry;
    throw new Misunderstood(`entry ${index + 1} of ${key} is no text, an empty one or too long`);
  });
}

function usablePattern(pattern: string, index: number): RegExp {
  try {
    return titlePattern(pattern);
  } catch (error) {
    const why = error instanceof Error ? error.message : String(error);
    throw new Misunderstood(
      `entry ${index + 1} of excludedTitlePatterns is no regular expression that the observer understands (${why})`,
    );
  }
}
