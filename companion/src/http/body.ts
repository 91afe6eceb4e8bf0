import type { IncomingMessage } from "node:http";
import { JsonError } from "../json/tokenizer.ts";
import { type JsonValue, parseJson } from "../json/value.ts";
import { RequestError } from "./errors.ts";

/** Enough for every record; frames are read as a stream instead. */
export const greatestBodyBytes = 1024 * 1024;

/**
 * The pieces of a body, which has to be there by the deadline, counted from the first read. Throws
 * RequestError when it isn't and when the sender goes away. The request is not destroyed where the
 * reader stops early: the answer that says why still has to get out.
 */
export async function* bodyPieces(
  request: IncomingMessage,
  deadlineMs: number,
): AsyncGenerator<Uint8Array> {
  const pieces = request.iterator({ destroyOnReturn: false });
  const late = new RequestError("bodyTimeout", "The body took too long to arrive.");
  const cutOff = new RequestError("bodyCutOff", "The body ended too early.");
  let isLate = false;
  // Not a race with one promise for the deadline: that would hold every piece until the last.
  let failRead: (error: Error) => void = () => {};
  const timer = setTimeout(() => {
    isLate = true;
    failRead(late);
  }, deadlineMs);
  try {
    while (!isLate) {
      const { done, value } = await new Promise<IteratorResult<unknown>>((resolve, reject) => {
        failRead = reject;
        pieces.next().then(resolve, () => reject(cutOff));
      });
      if (done) return;
      yield value as Uint8Array;
    }
    throw late;
  } finally {
    clearTimeout(timer);
    // Not waited for: it lets go of the request, unless a read that came too late still hangs.
    void pieces.return?.();
  }
}

/** The body as a value; throws RequestError when it is too large or no JSON. */
export async function readJson(request: IncomingMessage, deadlineMs: number): Promise<JsonValue> {
  const tooLarge = new RequestError("bodyTooLarge", "The body is larger than 1 MiB.");
  if (Number(request.headers["content-length"] ?? 0) > greatestBodyBytes) throw tooLarge;
  const pieces: Uint8Array[] = [];
  let length = 0;
  for await (const piece of bodyPieces(request, deadlineMs)) {
    length += piece.length;
    if (length > greatestBodyBytes) throw tooLarge;
    pieces.push(piece);
  }
  try {
    return parseJson(Buffer.concat(pieces));
  } catch (error) {
    if (!(error instanceof JsonError)) throw error;
    throw new RequestError("invalidJson", `The body is not JSON: ${error.message}.`);
  }
}
