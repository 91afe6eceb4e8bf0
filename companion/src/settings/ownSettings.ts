import { readFile } from "node:fs/promises";
import * as z from "zod/mini";
import { describeFailure, errorCode } from "../base/failure.ts";
import { JsonError } from "../json/tokenizer.ts";
import { parseJson } from "../json/value.ts";
import { InvalidRecord, optional, parseRecord } from "../wire/schema.ts";

/**
 * The observer's own settings, `~/.ostrel/observer/settings.json`: what the application's file has
 * no place for. Each part of the program has a key of its own there, and reads nothing else.
 */
const limit = optional(z.int("Invalid input: expected a whole number").check(z.nonnegative()));

export const AnalysisLimits = z.object({
  /** Requests to a model in a calendar month; absent for as many as there are. */
  monthlyRequests: limit,
  /** Tokens that a model counts in a calendar month, both ways. */
  monthlyTokens: limit,
});
export type AnalysisLimits = z.infer<typeof AnalysisLimits>;

const OwnSettings = z.object({ analysis: optional(AnalysisLimits) });

/** The file can't be understood, so no limit in it can be kept either. A sentence for the user. */
export class UnreadableLimits extends Error {
  override readonly name = "UnreadableLimits";
}

/** The limits as the file has them now; none where there is no file. Throws UnreadableLimits. */
export async function readAnalysisLimits(path: string): Promise<AnalysisLimits> {
  const none: AnalysisLimits = { monthlyRequests: undefined, monthlyTokens: undefined };
  try {
    return parseRecord(OwnSettings, parseJson(await readFile(path))).analysis ?? none;
  } catch (error) {
    if (errorCode(error) === "ENOENT") return none;
    throw new UnreadableLimits(`${reason(path, error)}.`, { cause: error });
  }
}

function reason(path: string, error: unknown): string {
  const tried = "Your limits can't be read, so no model is asked";
  if (error instanceof InvalidRecord) return `${tried}: ${path}, ${error.path}: ${error.message}`;
  if (error instanceof JsonError) return `${tried}: ${path} is not JSON: ${error.message}`;
  return describeFailure(tried, error);
}
