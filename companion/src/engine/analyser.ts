import type { AnalysisOutcome, ObservedFrame } from "../analysis/types.ts";

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
