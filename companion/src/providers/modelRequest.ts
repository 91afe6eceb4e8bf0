import { randomUUID } from "node:crypto";
import type { BodyPiece } from "./httpCall.ts";

/** A picture of a request, and the name under which it lies beside the chunk. */
export interface Picture {
  readonly name: string;
  readonly mimeType: string;
  readonly bytes: Uint8Array;
  readonly width: number;
  readonly height: number;
}

export type RequestPart =
  | { readonly kind: "text"; readonly text: string }
  | { readonly kind: "picture"; readonly picture: Picture };

/** What a model is asked, whatever the protocol. */
export interface ModelRequest {
  readonly model: string;
  readonly instructions: string;
  readonly parts: readonly RequestPart[];
  readonly maxOutputTokens: number;
  /** Both as in the settings, empty for the model's own choice. */
  readonly thinkingLevel: string;
  readonly mediaResolution: string;
}

/** What a model said, whatever the protocol. */
export interface ModelText {
  readonly text: string;
  /** The limit of tokens cut it short. */
  readonly isCut: boolean;
  /** The provider's word for why it describes nothing; the same again would bring the same. */
  readonly blockedBy: string | undefined;
  /** See `countedTokens`. */
  readonly tokens: number | undefined;
}

/**
 * A provider's count of tokens. Servers that don't count say nothing, 0 or nonsense; then what was
 * set aside for the request stays counted.
 */
export function countedTokens(told: unknown): number | undefined {
  const tokens = typeof told === "number" ? Math.ceil(told) : Number.NaN;
  return tokens > 0 && Number.isSafeInteger(tokens) ? tokens : undefined;
}

/** Where a request goes. */
export interface Endpoint {
  readonly url: URL;
  readonly headers: Readonly<Record<string, string>>;
  /** What of the headers nobody may read anywhere. */
  readonly secret: string;
  /** "The analysis server 127.0.0.1:11434". */
  readonly who: string;
  /** The headers are from a sign-in of before, which may have been taken back since. */
  readonly isKept?: boolean;
}

/** How one provider is asked. */
export interface Protocol {
  /** Where requests go. Signs nobody in; throws ProviderFailure where that can't be known. */
  url(): Promise<URL>;
  /** Throws ProviderFailure where the user can't be signed in; nothing is sent to the model then. */
  endpoint(signal: AbortSignal): Promise<Endpoint>;
  /** `unknownParameters` are those that the provider has refused. */
  body(request: ModelRequest, unknownParameters: ReadonlySet<string>): RequestBody;
  /** Reads the body of a successful answer. Throws ProviderFailure. */
  parse(text: string): ModelText;
  /** The provider didn't accept the headers. */
  forgetSignIn(): void;
}

/** A body whose pictures are written in their places, once as they are sent and once by name. */
export interface RequestBody {
  readonly pieces: readonly BodyPiece[];
  readonly withoutPictures: string;
}

/**
 * Writes the record that `compose` makes, which puts `place(picture)` where the base64 goes. The
 * places can't be imitated by any text in the record.
 */
export function requestBody(
  compose: (place: (picture: Picture) => string) => unknown,
): RequestBody {
  const secret = randomUUID();
  const pictures: Picture[] = [];
  const json = JSON.stringify(compose((picture) => `${secret}:${pictures.push(picture) - 1}:`));
  const parts = json.split(new RegExp(`${secret}:([0-9]+):`));
  const pieces = parts.map((part, index) =>
    index % 2 === 0 ? part : (pictures[Number(part)]?.bytes ?? ""),
  );
  const named = parts.map((part, index) =>
    index % 2 === 0 ? part : `(${pictures[Number(part)]?.name})`,
  );
  return { pieces, withoutPictures: named.join("") };
}
