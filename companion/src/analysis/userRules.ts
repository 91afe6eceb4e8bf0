import { readFile } from "node:fs/promises";
import { describeFailure, errorCode } from "../base/failure.ts";
import { JsonError } from "../json/tokenizer.ts";
import { parseJson } from "../json/value.ts";
import { InvalidRecord } from "../wire/schema.ts";
import { builtInRules } from "./builtInRules.ts";
import { mergeRules, parseUserRules, type Rules } from "./rules.ts";

/** The rules to analyse by, and why the user's are not among them where that is so. */
export interface LoadedRules {
  readonly rules: Rules;
  readonly complaint: string | undefined;
}

/** The built-in rules with those of the user's file in front; a file that isn't there adds none. */
export async function loadRules(path: string): Promise<LoadedRules> {
  try {
    const user = parseUserRules(parseJson(await readFile(path)));
    return { rules: mergeRules(builtInRules, user), complaint: undefined };
  } catch (error) {
    if (errorCode(error) === "ENOENT") return { rules: builtInRules, complaint: undefined };
    return { rules: builtInRules, complaint: `Your rules are not in use: ${reason(path, error)}.` };
  }
}

function reason(path: string, error: unknown): string {
  if (error instanceof InvalidRecord) return `${path}, ${error.path}: ${error.message}`;
  if (error instanceof JsonError) return `${path} is not JSON: ${error.message}`;
  return describeFailure("they can't be read", error);
}
