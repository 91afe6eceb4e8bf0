import { errorCode, isRefusal } from "../base/failure.ts";
import { PrivacyUnreadable } from "../privacy/privacyFile.ts";
import { ProviderFailure } from "../providers/failures.ts";
import type { RequestPart } from "../providers/modelRequest.ts";
import type { ShownFrame } from "../providers/pictures.ts";
import type { ModelProvider, Provider } from "../settings/provider.ts";
import type { SpooledFrame } from "../spool/records.ts";
import type { Spool } from "../spool/spool.ts";
import type { Preview, PreviewFrame } from "../wire/records.ts";
import type { Analyst, RequestPreview } from "./analyser.ts";
import { UnreadableChunk } from "./deferrals.ts";
import type { Sieve, Sifted } from "./sieve.ts";

export interface PreviewDependencies {
  readonly chosen: Provider;
  readonly sieve: Sieve;
  readonly spool: Spool;
  readonly analyst: Analyst;
  /** The chunk that somebody would be asked about. */
  next(): number | undefined;
  /** Why nobody is asked at present. */
  waitsFor(): string | undefined;
  isUnderWay(): boolean;
  readonly withPictures: boolean;
  /** What nobody may read anywhere, should the screen have shown it; empty ones count for nothing. */
  readonly secrets: readonly string[];
}

const nothing: Preview = {
  reason: undefined,
  recipient: undefined,
  instructions: undefined,
  prompt: [],
  request: undefined,
  frames: [],
};

/** What the next request would be, made by what makes it when it is sent. */
export async function previewOf(dependencies: PreviewDependencies): Promise<Preview> {
  const { chosen } = dependencies;
  if (chosen.kind === "local") {
    return {
      ...nothing,
      reason: "Nothing is sent: the lines are written on this machine, by rules.",
    };
  }
  if (chosen.kind === "unavailable") return { ...nothing, reason: chosen.reason };
  try {
    return withoutSecrets(
      await previewForModel(dependencies, chosen.provider),
      dependencies.secrets,
    );
  } catch (error) {
    if (error instanceof PrivacyUnreadable || error instanceof ProviderFailure) {
      return { ...nothing, reason: error.message };
    }
    if (error instanceof UnreadableChunk) return { ...nothing, reason: error.message };
    if (isRefusal(error)) return { ...nothing, reason: new UnreadableChunk(error).message };
    throw error;
  }
}

async function previewForModel(
  dependencies: PreviewDependencies,
  provider: ModelProvider,
): Promise<Preview> {
  const { sieve, spool, analyst, next, waitsFor, isUnderWay, withPictures } = dependencies;
  for (let id = next(); id !== undefined; id = next()) {
    try {
      const chunk = await spool.readChunk(id);
      const sifted = await sieve.judge(chunk);
      const rest = { ...chunk, frames: [...sifted.kept] };
      const made = rest.frames.length > 0 ? await analyst.preview(provider, rest) : undefined;
      // It may have been done, and let go of, while its pictures were read.
      if (!spool.pendingChunks.has(id)) continue;
      const isSent = made?.shown.some(({ frame, picture }) => picture ?? frame.text) === true;
      const reason = isSent ? waitsFor() : "Nothing is left to send of the frames that wait next.";
      return {
        ...nothing,
        reason: isSent && isUnderWay() ? undefined : reason,
        frames: framesOf(chunk.frames, sifted, isSent ? made : undefined, withPictures),
        ...(isSent && made !== undefined && requestOf(made, provider)),
      };
    } catch (error) {
      if (errorCode(error) !== "ENOENT" && spool.pendingChunks.has(id)) {
        throw error;
      }
      if (next() === id) throw error;
    }
  }
  return { ...nothing, reason: "Nothing waits to be sent." };
}

/** Told as `<redacted>`, where a text holds them as they are or as JSON writes them. */
function withoutSecrets(preview: Preview, secrets: readonly string[]): Preview {
  const hidden = secrets
    .filter((secret) => secret !== "")
    // The prompt quotes what the screen shows, and the body quotes the prompt.
    .flatMap((secret) => [secret, quoted(secret), quoted(quoted(secret))]);
  const told = <Text extends string | undefined>(text: Text) =>
    hidden.reduce<Text | string>(
      (rest, secret) => rest?.replaceAll(secret, "<redacted>") ?? rest,
      text,
    ) as Text;
  return {
    ...preview,
    instructions: told(preview.instructions),
    prompt: preview.prompt.map(told),
    request: told(preview.request),
    frames: preview.frames.map((frame) => ({ ...frame, text: told(frame.text) })),
  };
}

function quoted(text: string): string {
  return JSON.stringify(text).slice(1, -1);
}

function requestOf({ url, request, body }: RequestPreview, { model }: ModelProvider) {
  return {
    recipient: { url: url.href, host: url.host, model },
    instructions: request.instructions,
    prompt: request.parts.map(textOf),
    request: body,
  };
}

function textOf(part: RequestPart): string {
  return part.kind === "text" ? part.text : `(${part.picture.name})`;
}

function framesOf(
  frames: readonly SpooledFrame[],
  sifted: Sifted,
  made: RequestPreview | undefined,
  withPictures: boolean,
): PreviewFrame[] {
  const secret = new Set(sifted.secret);
  const forgotten = new Set(sifted.forgotten);
  const shownOf = new Map(made?.shown.map((shown) => [shown.frame, shown]));
  return frames.map((frame) => {
    if (forgotten.has(frame)) return leftOut(frame, "you have had that time forgotten");
    if (secret.has(frame)) return leftOut(frame, "the privacy rules exclude it");
    const shown = shownOf.get(frame);
    return shown === undefined
      ? leftOut(frame, "there are more frames than a request takes")
      : sent(shown, withPictures);
  });
}

function factsOf({
  receivedAtMs,
  displayId,
  displayLabel,
  displayWidth,
  displayHeight,
}: SpooledFrame) {
  return {
    atMs: receivedAtMs,
    displayId,
    displayLabel,
    width: displayWidth,
    height: displayHeight,
  };
}

function leftOut(frame: SpooledFrame, why: string): PreviewFrame {
  return { ...factsOf(frame), isSent: false, text: undefined, picture: undefined, leftOut: why };
}

function sent({ frame, picture, isAsBefore }: ShownFrame, withPictures: boolean): PreviewFrame {
  const { text } = frame;
  const facts = { ...factsOf(frame), isSent: true, text };
  if (picture === undefined) {
    return { ...facts, picture: undefined, leftOut: whyWithoutPicture(frame, isAsBefore) };
  }
  const { name, mimeType, bytes } = picture;
  const base64 = withPictures ? Buffer.from(bytes).toString("base64") : undefined;
  return {
    ...facts,
    picture: { name, mimeType, bytes: bytes.length, base64 },
    leftOut: undefined,
  };
}

function whyWithoutPicture({ pictureBytes }: SpooledFrame, isAsBefore: boolean): string {
  if (isAsBefore) return "the picture shows nearly the same as the one before";
  if (pictureBytes === 0) return "there is no picture";
  return "the picture is left out, since the model takes none, or no more of them, or it is gone";
}
