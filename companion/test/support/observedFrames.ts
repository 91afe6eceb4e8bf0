import type { ObservedFrame } from "../../src/analysis/types.ts";

export interface ContextLines {
  readonly app?: string;
  readonly website?: string;
  readonly page?: string;
  readonly window?: string;
  readonly focus?: string;
}

/** The context text that the application composes of these facts. */
export function contextText(lines: ContextLines): string {
  const all: readonly (readonly [string, string | undefined])[] = [
    ["App", lines.app],
    ["Website", lines.website],
    ["Page", lines.page],
    ["Window", lines.window],
    ["Focus", lines.focus],
  ];
  const present = all.filter(([, value]) => value !== undefined);
  return ["Active context:", ...present.map(([label, value]) => `- ${label}: ${value}`)].join("\n");
}

/** 09:00 UTC on a Saturday. */
export const START_MS = Date.UTC(2026, 10, 21, 9);

/** A frame `seconds` after START_MS; without a text the application in front was not known. */
export function frameAt(seconds: number, text?: string, display = "1"): ObservedFrame {
  return {
    receivedAtMs: START_MS + Math.round(seconds * 1000),
    displayId: display,
    displayLabel: display === "1" ? "Display 1 (main)" : `Display ${display}`,
    ...(text === undefined ? {} : { text }),
  };
}

/** Frames every `every` seconds in [from, until). */
export function framesBetween(
  from: number,
  until: number,
  text: string | undefined | ((index: number) => string | undefined),
  every = 2,
): ObservedFrame[] {
  const frames: ObservedFrame[] = [];
  for (let index = 0; from + index * every < until; index += 1) {
    frames.push(frameAt(from + index * every, typeof text === "function" ? text(index) : text));
  }
  return frames;
}

export const windowOf = (app: string, window: string): string => contextText({ app, window });

export const pageOf = (website: string, page: string): string =>
  contextText({ app: "Google Chrome", website, page });
