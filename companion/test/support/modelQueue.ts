import type { TestContext } from "node:test";
import { setImmediate } from "node:timers/promises";
import type { ObserverSettings } from "../../src/wire/records.ts";
import { chatSettings, type ModelHarnessOptions, openModelHarness } from "./modelHarness.ts";
import { completion, ModelServer, type Reply } from "./modelServer.ts";
import type { ObserverHarness } from "./observerHarness.ts";
import { framePayload } from "./payloads.ts";

export const startMs = 1_795_250_000_000;
export const at = (seconds: number) =>
  framePayload(startMs + seconds * 1000, { text: `at ${seconds}` });

export const unavailable: Reply = { status: 503, body: { error: { message: "Loading model" } } };
export const noted = (text: string) => completion(`[Editor] ${text}`);

export interface Recording {
  readonly server: ModelServer;
  readonly harness: ObserverHarness;
}

export async function record(
  test: TestContext,
  replies: readonly Reply[],
  seconds: readonly number[] = [0],
  options: ModelHarnessOptions & { readonly fields?: Partial<ObserverSettings> } = {},
): Promise<Recording> {
  const server = await ModelServer.start(test, ...replies);
  const settings = chatSettings(server.origin, options.fields);
  const harness = await openModelHarness({ ...options, settings });
  await harness.observer.start();
  await harness.send(seconds.map(at));
  return { server, harness };
}

/** The texts of the frames that each request was about. */
export function asked(server: ModelServer): string[] {
  return server.requests.map(({ text }) =>
    [...text.matchAll(/context: \\"(at [0-9]+)\\"/g)].map((match) => match[1]).join(", "),
  );
}

export function pictures(server: ModelServer): number[] {
  return server.requests.map(({ text }) => text.split("base64,").length - 1);
}

/** Ends the recording first and lets the analysis begin then; resolves with the stop's answer. */
export async function stopThenAnalyse(harness: ObserverHarness, chunks: number) {
  const stopped = harness.observer.stop();
  while (harness.observer.status().pendingAnalysisChunks !== chunks) await setImmediate();
  harness.observer.beginAnalysis();
  return stopped;
}

/** Ends an observer whose question nobody answers, which takes it some time. */
export async function closeInTime(harness: ObserverHarness): Promise<void> {
  let isClosed = false;
  const closing = harness.observer.close().then(() => {
    isClosed = true;
  });
  while (!isClosed) {
    await setImmediate();
    harness.clock.advance(100);
  }
  await closing;
}

/** Lets the pause come to its end, and what then can be done be done. */
export async function pass(harness: ObserverHarness, ms: number): Promise<void> {
  harness.clock.advance(ms);
  await harness.observer.settled();
}
