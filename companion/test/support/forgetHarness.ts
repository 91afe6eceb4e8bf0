import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { Journals } from "../../src/engine/journals.ts";
import type { TimeRange } from "../../src/spool/records.ts";
import { ManualClock } from "./manualClock.ts";
import { type HarnessOptions, ObserverHarness } from "./observerHarness.ts";
import { framePayload } from "./payloads.ts";
import { temporaryHome } from "./temporaryHome.ts";

export const startMs = 1_795_250_000_000;

export function at(seconds: number) {
  return framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });
}

export function seconds(from: number, to: number): TimeRange {
  return { fromMs: startMs + from * 1000, toMs: startMs + to * 1000 };
}

/** An observer with the real journal, below the home folder, at 100 s after `startMs`. */
export async function open(options: HarnessOptions = {}) {
  const home = options.home ?? temporaryHome();
  const outputDirectory = join(home, "journal");
  const journals = new Journals();
  const harness = await ObserverHarness.open({
    appendToJournal: (...entry) => journals.append(...entry),
    forgetInJournal: (...place) => journals.forget(...place),
    clock: new ManualClock(startMs + 100_000),
    ...options,
    home,
    settings: { chunkSizeMs: 10_000, outputDirectory, ...options.settings },
  });
  const pages = () =>
    readdirSync(outputDirectory).map((name) => readFileSync(join(outputDirectory, name), "utf8"));
  return { harness, outputDirectory, pages };
}
