import type { AnalysisOutcome, Bullet, ObservedFrame } from "../analysis/types.ts";
import type { ModelRequest } from "../providers/modelRequest.ts";
import type { ShownFrame } from "../providers/pictures.ts";
import type { ModelProvider } from "../settings/provider.ts";
import type { Chunk } from "../spool/records.ts";

/** An analyser whose state the queue keeps for it, as JSON, from one chunk to the next. */
export interface Analyser {
  /** The name under which its state is kept. */
  readonly name: string;
  initialState(): unknown;
  /** Throws when the kept state is none that it knows. */
  parseState(json: unknown): unknown;
  analyseChunk(state: unknown, frames: readonly ObservedFrame[]): AnalysisOutcome<unknown>;
  finishSession(state: unknown, stoppedAtMs: number): AnalysisOutcome<unknown>;
}

/** What a model made of a chunk. */
export interface ModelAnswer {
  readonly bullets: readonly Bullet[];
  /** What the user should know of it, in a sentence. */
  readonly remark: string | undefined;
}

/** Has a model write the bullets. It remembers nothing between chunks but what the journal says. */
export interface Analyst {
  /**
   * Asks the provider about the chunk's frames. Throws ProviderFailure (`retry`, `configuration`,
   * `ceiling` or `badRequest`), or the error of the disk; anything once the signal is aborted. `keep`
   * is given each request as it is sent, but for the pictures, which it names, and for secrets.
   */
  analyse(
    provider: ModelProvider,
    chunk: Chunk,
    signal: AbortSignal,
    keep: (request: string) => Promise<void>,
  ): Promise<ModelAnswer>;

  /** The request that `analyse` would begin with, and where it would go. Sends nothing. */
  preview(provider: ModelProvider, chunk: Chunk): Promise<RequestPreview>;
}

/** A request as it would be sent. */
export interface RequestPreview {
  readonly url: URL;
  readonly request: ModelRequest;
  /** The body but for the pictures, which it names. */
  readonly body: string;
  readonly shown: readonly ShownFrame[];
}

interface TypedAnalyser<State> {
  initialState(): State;
  parseState(json: unknown): State;
  analyseChunk(state: State, frames: readonly ObservedFrame[]): AnalysisOutcome<State>;
  finishSession(state: State, stoppedAtMs: number): AnalysisOutcome<State>;
}

/** Hides the type of the state. Each state passes the parser, so a foreign one can't get in. */
export function asAnalyser<State>(name: string, typed: TypedAnalyser<State>): Analyser {
  return {
    name,
    initialState: () => typed.initialState(),
    parseState: (json) => typed.parseState(json),
    analyseChunk: (state, frames) => typed.analyseChunk(typed.parseState(state), frames),
    finishSession: (state, stoppedAtMs) =>
      typed.finishSession(typed.parseState(state), stoppedAtMs),
  };
}
