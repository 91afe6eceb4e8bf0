/**
 * The grammar by which the application reads a journal file, written down a second time so that the
 * tests hold the writer against the reader's rules and not against the writer's own.
 */
export interface ReadEntry {
  readonly id: string;
  readonly time: string;
  readonly text: string;
}

export interface ReadSession {
  readonly id: string;
  readonly startTime: string;
  readonly entries: readonly ReadEntry[];
}

const NEWLINES = /[\n\r\v\f\u0085\u2028\u2029]/;
// Qt's notion of white space; JavaScript's trim() would also take U+FEFF and leave U+0085.
const EDGE_SPACE = /^[\s\u0085]+|[\s\u0085]+$/gu;
const HEADING = "## Session ";
const START_TIME = "start_time:";

const trimmed = (text: string): string => text.replace(EDGE_SPACE, "");

export function parseEntry(line: string, sessionId: string | undefined): ReadEntry | undefined {
  const close = line.indexOf("]");
  if (!line.startsWith("- [") || close < 0) return undefined;
  const time = line.slice(3, close);
  const text = trimmed(trimmed(line.slice(close + 1)).replace(/\s*<!--\s*key:[^>]*-->\s*$/, ""));
  if (time === "" || text === "") return undefined;
  return { id: `${sessionId ?? "session"}:${time}:${text}`, time, text };
}

/** The sessions of a day's file. Throws when it is not valid UTF-8: such a day would not be shown. */
export function readDay(file: Uint8Array): ReadSession[] {
  const content = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true }).decode(file);
  const sessions: ReadSession[] = [];
  let id: string | undefined;
  let startTime = "";
  let entries: ReadEntry[] = [];
  const finish = (): void => {
    if (id === undefined) return;
    sessions.push({ id, startTime, entries });
    id = undefined;
    startTime = "";
    entries = [];
  };
  for (const raw of content.split(NEWLINES)) {
    const line = trimmed(raw);
    if (raw.trimStart().startsWith(HEADING)) {
      finish();
      id = raw.trimStart().slice(HEADING.length).trimEnd();
    } else if (line.startsWith(START_TIME)) {
      startTime = trimmed(line.replaceAll(START_TIME, ""));
    } else {
      const entry = parseEntry(line, id);
      if (entry !== undefined) entries.push(entry);
    }
  }
  finish();
  return sessions;
}

/** The label and the action of an entry's text, as the journal screen shows them. */
export function parsedWorkspace(text: string): { label: string; action: string } | undefined {
  const close = text.indexOf("]");
  if (!text.startsWith("[") || close < 0) return undefined;
  const label = trimmed(text.slice(1, close));
  let action = trimmed(text.slice(close + 1));
  if (action.toLowerCase().startsWith("action:")) action = trimmed(action.slice(7));
  return label === "" || action === "" ? undefined : { label, action };
}
