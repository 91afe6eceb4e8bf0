import type { Bullet } from "../analysis/types.ts";
import { describeFailure } from "../base/failure.ts";
import type { FolderKind } from "../forget/writtenFolders.ts";
import type { KeyedBullet } from "../journal/types.ts";
import { expandedAbsolutePath } from "../settings/expandedPath.ts";
import type { ModelProvider, Provider } from "../settings/provider.ts";
import type { SettingsInUse } from "../settings/settingsInUse.ts";
import { type Chunk, type ChunkResult, observed } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { Analyser, Analyst } from "./analyser.ts";
import { gapText } from "./gapText.ts";
import { saveRawInputs, saveRequest } from "./rawInputs.ts";

export interface AnalysisDependencies {
  readonly spool: Spool;
  readonly settings: SettingsInUse;
  readonly analyser: Analyser;
  readonly analyst: Analyst;
  readonly home: string;
  /** To be called before anything is written to a folder of the user's choice. */
  noteFolder(kind: FolderKind, folder: string): Promise<void>;
  bulletKey(atMs: number, chunkId: number, n: number): string;
  /** Something went wrong that doesn't hold up the queue; undefined when it goes right again. */
  onComplaint(area: string, sentence: string | undefined): void;
}

/** Makes of a chunk what is to be stored of it, by the built-in analyser or by a model. */
export class ChunkAnalysis {
  readonly #dependencies: AnalysisDependencies;

  constructor(dependencies: AnalysisDependencies) {
    this.#dependencies = dependencies;
  }

  /** Throws what the analyst throws. */
  async byModel(provider: ModelProvider, chunk: Chunk, signal: AbortSignal): Promise<ChunkResult> {
    const { analyst, analyser, spool, onComplaint } = this.#dependencies;
    const { bullets, remark } = await analyst.analyse(provider, chunk, signal, (request) =>
      this.#save((directory) => saveRequest(spool.disk, directory, chunk.id, request)),
    );
    onComplaint("model", remark);
    // Of what the model was shown the built-in analyser knows nothing, so it can't go on from there.
    const { [analyser.name]: _, ...others } = asStates(spool.queueState?.state);
    return { version: 1, state: others, bullets: this.#keyed(chunk, bullets) };
  }

  /** By the built-in analyser where that is chosen, else only what the chunk says of itself. */
  withoutModel(chunk: Chunk, { kind }: Provider): ChunkResult {
    const gaps = (chunk.gaps ?? []).map((gap) => ({ atMs: gap.fromMs, text: gapText(gap) }));
    if (kind !== "local") {
      return { version: 1, state: undefined, bullets: this.#keyed(chunk, gaps) };
    }
    const { analyser, spool } = this.#dependencies;
    const states = asStates(spool.queueState?.state);
    let { state, bullets } = analyser.analyseChunk(
      this.#knownState(states[analyser.name]),
      chunk.frames.map(observed),
    );
    if (chunk.stoppedAtMs !== undefined) {
      const ending = analyser.finishSession(state, chunk.stoppedAtMs);
      state = ending.state;
      bullets = [...bullets, ...ending.bullets];
    }
    return {
      version: 1,
      state: { ...states, [analyser.name]: state },
      bullets: this.#keyed(chunk, [...bullets, ...gaps]),
    };
  }

  /** Keeps what the chunk has to show, where the settings want it. */
  saveInputs(chunk: Chunk): Promise<void> {
    const { spool } = this.#dependencies;
    return this.#save((directory) => saveRawInputs(spool.disk, spool.layout, directory, chunk));
  }

  async #save(save: (directory: string) => Promise<void>): Promise<void> {
    const { settings, home, noteFolder, onComplaint } = this.#dependencies;
    if (!settings.record.saveRawInputs) return;
    try {
      const directory = expandedAbsolutePath(settings.record.rawInputDirectory, home);
      await noteFolder("rawInputs", directory);
      await save(directory);
      onComplaint("raw inputs", undefined);
    } catch (error) {
      onComplaint("raw inputs", `${describeFailure("The model inputs can't be kept", error)}.`);
    }
  }

  #keyed(chunk: Chunk, bullets: readonly Bullet[]): KeyedBullet[] {
    const { bulletKey } = this.#dependencies;
    return bullets.map(({ atMs, text }, n) => ({ key: bulletKey(atMs, chunk.id, n), atMs, text }));
  }

  #knownState(kept: unknown): unknown {
    const { analyser, onComplaint } = this.#dependencies;
    if (kept === undefined) return analyser.initialState();
    try {
      return analyser.parseState(kept);
    } catch {
      onComplaint("analyser", "What the analyser remembered could not be read; it starts anew.");
      return analyser.initialState();
    }
  }
}

function asStates(state: unknown): Readonly<Record<string, unknown>> {
  return typeof state === "object" && state !== null ? { ...state } : {};
}
