import { readdirSync } from "node:fs";
import { join } from "node:path";
import type { ObservedFrame } from "../../src/analysis/types.ts";
import { type Analyser, type Analyst, asAnalyser } from "../../src/engine/analyser.ts";
import { Journals } from "../../src/engine/journals.ts";
import { bulletKey } from "../../src/journal/journalWriter.ts";
import type { JournalSession, KeyedBullet } from "../../src/journal/types.ts";
import { Observer, type ObserverDependencies } from "../../src/observer/observer.ts";
import { PrivacyRules } from "../../src/privacy/privacyRules.ts";
import { SettingsInUse } from "../../src/settings/settingsInUse.ts";
import { type Disk, realDisk } from "../../src/spool/disk.ts";
import { SpoolLayout } from "../../src/spool/layout.ts";
import {
  type CapturedFramePayload,
  defaultSettings,
  type ObserverSettings,
} from "../../src/wire/records.ts";
import { ManualClock } from "./manualClock.ts";
import { temporaryHome } from "./temporaryHome.ts";

interface EchoState {
  readonly frames: number;
}

let answerCount = 0;

/**
 * Writes one line a frame, and one at a session's end that says how many frames it has counted. As
 * with a model no two answers are alike: the lines' times, and so their keys, differ.
 */
export const echoAnalyser: Analyser = asAnalyser<EchoState>("echo", {
  initialState: () => ({ frames: 0 }),
  parseState(json) {
    const frames = (json as { frames?: unknown }).frames;
    if (typeof frames !== "number") throw new Error("not a state");
    return { frames };
  },
  analyseChunk(state, frames: readonly ObservedFrame[]) {
    answerCount += 1;
    return {
      state: { frames: state.frames + frames.length },
      bullets: frames.map((frame) => ({
        atMs: frame.receivedAtMs + (answerCount % 1000),
        text: frame.text ?? "-",
      })),
    };
  },
  finishSession: (state, stoppedAtMs) => ({
    state: { frames: 0 },
    bullets: [{ atMs: stoppedAtMs, text: `end of ${state.frames}` }],
  }),
});

/** Nobody expects a model to be asked. */
export const unexpectedAnalyst: Analyst = {
  analyse: () => {
    throw new Error("nobody expected a model to be asked");
  },
  preview: () => {
    throw new Error("nobody expected a preview");
  },
};

export interface JournalCall {
  readonly directory: string;
  readonly session: JournalSession;
  readonly bullets: readonly KeyedBullet[];
}

export interface HarnessOptions {
  readonly home?: string;
  readonly settings?: Partial<ObserverSettings>;
  /** Instead of those, for who shares them. */
  readonly settingsInUse?: SettingsInUse;
  readonly disk?: Disk;
  readonly clock?: ManualClock;
  readonly analyser?: Analyser;
  readonly analyst?: Analyst;
  /** Whether analysis may begin at once, as it may unless told. */
  readonly isAnalysing?: boolean;
  readonly readAtOnce?: number;
  readonly quotaBytes?: (free: number) => number;
  /** "real" for the files themselves; without it the calls are recorded. */
  readonly appendToJournal?: ObserverDependencies["appendToJournal"] | "real";
  readonly finishedChunks?: ObserverDependencies["finishedChunks"];
  /** None unless told. */
  readonly privacyRules?: ObserverDependencies["privacyRules"];
  /** Nothing is in the journal, and nothing in the archive, unless told. */
  readonly forgetInJournal?: ObserverDependencies["forgetInJournal"];
  readonly forgetInArchive?: ObserverDependencies["forgetInArchive"];
}

const noRules = new PrivacyRules({ applications: [], windowClasses: [], titles: [], sites: [] });

export function observerFolder(home: string): string {
  return join(home, "observer");
}

function journalOf(
  { appendToJournal }: HarnessOptions,
  calls: JournalCall[],
): ObserverDependencies["appendToJournal"] {
  const journals = new Journals();
  if (appendToJournal === "real") return (...entry) => journals.append(...entry);
  return (
    appendToJournal ??
    (async (directory, session, bullets) => {
      calls.push({ directory, session, bullets });
    })
  );
}

/** An observer without its server, on a folder of its own, with a clock that stands still. */
export class ObserverHarness {
  readonly home: string;
  readonly layout: SpoolLayout;
  readonly clock: ManualClock;
  readonly settings: SettingsInUse;
  readonly journal: readonly JournalCall[];
  /** What was said to the log. */
  readonly notices: readonly string[];
  readonly observer: Observer;

  private constructor(
    home: string,
    clock: ManualClock,
    settings: SettingsInUse,
    journal: readonly JournalCall[],
    notices: readonly string[],
    observer: Observer,
  ) {
    this.home = home;
    this.layout = new SpoolLayout(observerFolder(home));
    this.clock = clock;
    this.settings = settings;
    this.journal = journal;
    this.notices = notices;
    this.observer = observer;
  }

  /** Opens it as a start of the program does. */
  static async open(options: HarnessOptions = {}): Promise<ObserverHarness> {
    const home = options.home ?? temporaryHome();
    const clock = options.clock ?? new ManualClock();
    const settings =
      options.settingsInUse ?? new SettingsInUse({ ...defaultSettings, ...options.settings });
    const calls: JournalCall[] = [];
    const notices: string[] = [];
    const observer = await Observer.open({
      settings,
      clock,
      home,
      bulletKey,
      disk: options.disk ?? realDisk,
      layout: new SpoolLayout(observerFolder(home)),
      analyser: options.analyser ?? echoAnalyser,
      analyst: options.analyst ?? unexpectedAnalyst,
      onGap: (sentence) => notices.push(sentence),
      random: () => 1,
      readAtOnce: options.readAtOnce,
      finishedChunks: options.finishedChunks,
      privacyRules: options.privacyRules ?? (async () => noRules),
      forgetInJournal: options.forgetInJournal ?? (async () => 0),
      forgetInArchive: options.forgetInArchive ?? (async () => ({ clips: 0, frames: 0 })),
      quotaBytes: options.quotaBytes ?? (() => Number.MAX_SAFE_INTEGER),
      appendToJournal: journalOf(options, calls),
    });
    if (options.isAnalysing ?? true) observer.beginAnalysis();
    return new ObserverHarness(home, clock, settings, calls, notices, observer);
  }

  /** The texts in the order in which they were written. */
  get lines(): string[] {
    return this.journal.flatMap((call) => call.bullets.map((bullet) => bullet.text));
  }

  send(frames: readonly CapturedFramePayload[]) {
    return this.observer.receiveFrames(body(JSON.stringify({ frames })));
  }

  /** The names in a folder of the state folder; none when it isn't there. */
  names(...path: string[]): string[] {
    try {
      return readdirSync(join(this.layout.root, ...path)).sort();
    } catch {
      return [];
    }
  }
}

/** A body in pieces of the size. */
export async function* body(
  text: string | Uint8Array,
  pieceBytes = 65_536,
): AsyncGenerator<Uint8Array> {
  const bytes = Buffer.from(text);
  for (let start = 0; start < bytes.length; start += pieceBytes) {
    yield bytes.subarray(start, start + pieceBytes);
  }
}
