import { clip, MAX_TITLE_LENGTH, plainLine } from "../journal/bulletText.ts";

/** The facts of one context text, each made fit for a journal line; absent facts are undefined. */
export interface ContextFacts {
  readonly app: string | undefined;
  readonly website: string | undefined;
  readonly page: string | undefined;
  readonly window: string | undefined;
}

const HEADING = "Active context:";
const FACT = /^- (App|Website|Page|Window): (.*)$/;

/** A name is not cleaned as a title is, so it is made short enough for a bullet here. */
function appName(text: string): string {
  return clip(plainLine(text), MAX_TITLE_LENGTH);
}

/**
 * Reads the context text that the application attaches to a frame. Without the heading the text is
 * an application's name. Undefined when there is no fact in it at all. The focused control is not
 * read: it says where the keyboard points, not what was done.
 */
export function parseContextText(text: string | undefined): ContextFacts | undefined {
  const trimmed = text?.trim() ?? "";
  if (!trimmed.startsWith(HEADING)) {
    const app = appName(trimmed);
    return app === "" ? undefined : { app, website: undefined, page: undefined, window: undefined };
  }
  const facts = new Map<string, string>();
  for (const line of trimmed.split("\n")) {
    const match = FACT.exec(line);
    const label = match?.[1];
    const raw = match?.[2] ?? "";
    const value = label === "App" ? appName(raw) : plainLine(raw);
    // The first of each counts: the application writes none twice, so a second is not its own.
    if (label !== undefined && value !== "" && !facts.has(label)) {
      facts.set(label, value);
    }
  }
  if (facts.size === 0) {
    return undefined;
  }
  return {
    app: facts.get("App"),
    website: facts.get("Website"),
    page: facts.get("Page"),
    window: facts.get("Window"),
  };
}
