import type { ObservedFrame } from "../../src/analysis/types.ts";

/** The time that the tests' seconds count from; on a full minute. */
export const START_MS = 1_795_250_040_000;

export interface ContextParts {
  readonly app?: string;
  readonly website?: string;
  readonly page?: string;
  readonly window?: string;
  readonly focus?: string;
}

const LABELS: readonly (readonly [keyof ContextParts, string])[] = [
  ["app", "App"],
  ["website", "Website"],
  ["page", "Page"],
  ["window", "Window"],
  ["focus", "Focus"],
];

/** The text that the application attaches to a frame; absent parts have no line. */
export function contextText(parts: ContextParts): string {
  const lines = LABELS.filter(([part]) => parts[part] !== undefined).map(
    ([part, label]) => `- ${label}: ${parts[part]}`,
  );
  return ["Active context:", ...lines].join("\n");
}

/** A window in front, of an application that is no browser. */
export function windowOf(app: string, window: string): string {
  return contextText({ app, window });
}

/** A page in front of a browser. */
export function pageOf(website: string, page: string): string {
  return contextText({
    app: "Google Chrome",
    website,
    page,
    window: `${page} - Google Chrome`,
  });
}

/** A frame so many seconds after the start. */
export function frameAt(seconds: number, text?: string, displayId = "1"): ObservedFrame {
  return {
    receivedAtMs: START_MS + Math.round(seconds * 1000),
    displayId,
    displayLabel: `Display ${displayId}`,
    ...(text !== undefined && { text }),
  };
}

/** Frames from the one second up to, and without, the other. */
export function framesBetween(
  from: number,
  to: number,
  text: string | undefined | ((index: number) => string),
  stepSeconds = 2,
): ObservedFrame[] {
  const frames: ObservedFrame[] = [];
  for (let index = 0; from + index * stepSeconds < to - 1e-9; index += 1) {
    const current = typeof text === "function" ? text(index) : text;
    frames.push(frameAt(from + index * stepSeconds, current));
  }
  return frames;
}
