import { fstatSync } from "node:fs";
import type { Readable } from "node:stream";
import { parseJson } from "../json/value.ts";
import { Secrets } from "../settings/settingsInUse.ts";
import { parseRecord } from "../wire/schema.ts";

const greatestLineBytes = 64 * 1024;

/** Only a pipe's end means that whoever held the other end is gone. */
export function isPipe(fileDescriptor: number): boolean {
  try {
    const stat = fstatSync(fileDescriptor);
    return stat.isFIFO() || stat.isSocket();
  } catch {
    return false;
  }
}

/** The secrets of the first line; undefined when it is not such a line. */
export function parseSecrets(line: string): Secrets | undefined {
  try {
    return parseRecord(Secrets, parseJson(line));
  } catch {
    return undefined;
  }
}

/**
 * Reads standard input: `onFirstLine` is called once, with undefined when the stream ends before
 * it, and `onEnd` when the stream ends. What follows the first line is thrown away.
 */
export function readStandardInput(
  input: Readable,
  onFirstLine: (line: string | undefined) => void,
  onEnd: () => void,
): void {
  let text = "";
  let hasLine = false;
  const finishLine = (line: string | undefined) => {
    if (hasLine) return;
    hasLine = true;
    text = "";
    onFirstLine(line);
  };
  input.setEncoding("utf8");
  input.on("data", (piece: string) => {
    if (hasLine) return;
    text += piece;
    const end = text.indexOf("\n");
    if (end >= 0) finishLine(text.slice(0, end));
    else if (text.length > greatestLineBytes) finishLine(text);
  });
  const finish = () => {
    finishLine(text === "" ? undefined : text);
    onEnd();
  };
  input.once("end", finish);
  input.once("error", finish);
}
