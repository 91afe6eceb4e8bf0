/** What an analyser knows of one frame without its picture. */
export interface ObservedFrame {
  /** UTC milliseconds at which the picture was taken, by the application's clock. */
  readonly receivedAtMs: number;
  readonly displayId: string;
  readonly displayLabel: string;
  /** The context text: an application's name alone, or the lines under "Active context:". */
  readonly text?: string;
  readonly activeDisplayId?: string;
  readonly activeDisplayLabel?: string;
  readonly activeDisplayReason?: string;
}

/** One entry for the journal. */
export interface Bullet {
  /** UTC milliseconds of what the entry is about, not of its writing. */
  readonly atMs: number;
  /** One line, "[Workspace] Action: summary". */
  readonly text: string;
}

/** What an analyser makes of a chunk: its next state, and the bullets in time order. */
export interface AnalysisOutcome<State> {
  readonly state: State;
  readonly bullets: readonly Bullet[];
}
