/**
 * What to do about a failure:
 * - `retry`: the provider or the way to it is at fault for now; the same again later.
 * - `configuration`: nothing changes until the user changes something, here or at the provider.
 * - `ceiling`: the user's own limit; nothing more until it allows it.
 * - `shrink`: the same with half the pictures.
 * - `noVision`: the same without pictures.
 * - `parameter`: the same without the parameter of that name.
 * - `badRequest`: this chunk, as it is, will not do.
 */
export type FailureKind =
  | "retry"
  | "configuration"
  | "ceiling"
  | "shrink"
  | "noVision"
  | "parameter"
  | "badRequest";

/** What a failed request has cost: nothing was sent, it was refused, or that can't be known. */
export type FailureCost = "notSent" | "refused" | "unknown";

export interface FailureDetails {
  /** How long the provider wants to be left alone. */
  readonly retryAfterMs?: number | undefined;
  /** Which parameter it doesn't know. */
  readonly parameter?: string | undefined;
  readonly cost?: FailureCost;
  readonly cause?: unknown;
}

/** A request that brought no answer. The message is a sentence for the user, full stop included. */
export class ProviderFailure extends Error {
  override readonly name = "ProviderFailure";
  readonly kind: FailureKind;
  readonly retryAfterMs: number | undefined;
  readonly parameter: string | undefined;
  readonly cost: FailureCost;

  constructor(kind: FailureKind, message: string, details: FailureDetails = {}) {
    super(message, { cause: details.cause });
    this.kind = kind;
    this.retryAfterMs = details.retryAfterMs;
    this.parameter = details.parameter;
    this.cost = details.cost ?? "unknown";
  }
}
