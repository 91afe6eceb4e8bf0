import * as http from "node:http";
import * as https from "node:https";
import type { Clock } from "../base/clock.ts";
import { errorCode } from "../base/failure.ts";
import { isLoopback, loopbackLookup } from "../base/loopback.ts";
import { ProviderFailure } from "./failures.ts";

/** A piece of a body: text as it stands, or bytes that are written as base64. */
export type BodyPiece = string | Uint8Array;

export interface HttpCall {
  readonly url: URL;
  readonly headers: Readonly<Record<string, string>>;
  readonly body: readonly BodyPiece[];
  /** Who is called, as a sentence begins: "The analysis server 127.0.0.1:11434". */
  readonly who: string;
}

export interface HttpAnswer {
  readonly status: number;
  readonly headers: http.IncomingHttpHeaders;
  readonly text: string;
}

/** A model on a small machine takes minutes for its first answer; none takes this long. */
const deadlineMs = 600_000;
/** After these nothing of the request has left this machine. */
const notConnected: ReadonlySet<string> = new Set([
  "ECONNREFUSED",
  "ENOTFOUND",
  "EAI_AGAIN",
  "EHOSTUNREACH",
  "ENETUNREACH",
]);
const greatestAnswerBytes = 4 * 1024 * 1024;

/** What the user can make of the system's words for a connection that failed. */
const networkWords = new Map([
  ["ECONNREFUSED", "doesn't run: nothing listens at that address"],
  ["ENOTFOUND", "can't be found: its name has no address. Is this machine online?"],
  ["EAI_AGAIN", "can't be found: no name server answers. Is this machine online?"],
  ["ETIMEDOUT", "doesn't answer"],
  ["EHOSTUNREACH", "can't be reached. Is this machine online?"],
  ["ENETUNREACH", "can't be reached. Is this machine online?"],
  ["ECONNRESET", "cut the connection"],
  ["EPIPE", "cut the connection"],
  ["CERT_NOT_YET_VALID", "shows a certificate of the future. Is this machine's clock right?"],
  ["CERT_HAS_EXPIRED", "shows a certificate that has expired. Is this machine's clock right?"],
]);

/**
 * Sends the body by POST and resolves with the whole answer, whatever its status. It goes to the
 * host of the URL and nowhere else: no redirect is followed and no proxy asked. Throws
 * ProviderFailure (`retry`, or `configuration` where it may not be sent at all), or the signal's
 * reason.
 */
export async function post(call: HttpCall, clock: Clock, signal: AbortSignal): Promise<HttpAnswer> {
  const { url, who } = call;
  // Checked here too, where there is no way round it.
  if (url.protocol !== "https:" && !(url.protocol === "http:" && isLoopback(url.hostname))) {
    throw new ProviderFailure("configuration", `${who} can't be used without https://.`);
  }
  const ending = new AbortController();
  const end = () => ending.abort();
  signal.addEventListener("abort", end);
  const cancelDeadline = clock.after(deadlineMs, end);
  try {
    signal.throwIfAborted();
    return await exchange(call, ending.signal);
  } catch (error) {
    signal.throwIfAborted();
    if (error instanceof ProviderFailure) throw error;
    if (ending.signal.aborted) throw late(who);
    throw networkFailure(who, error);
  } finally {
    cancelDeadline();
    signal.removeEventListener("abort", end);
  }
}

function late(who: string): ProviderFailure {
  return new ProviderFailure("retry", `${who} has not answered within 10 minutes.`);
}

function networkFailure(who: string, cause: unknown): ProviderFailure {
  const code = errorCode(cause) ?? "";
  const words = networkWords.get(code);
  const why = cause instanceof Error ? cause.message : String(cause);
  const sentence = words === undefined ? `${who} can't be reached (${why}).` : `${who} ${words}`;
  const cost = notConnected.has(code) ? "notSent" : "unknown";
  return new ProviderFailure("retry", sentence.replace(/([^.?])$/, "$1."), { cause, cost });
}

async function exchange(call: HttpCall, signal: AbortSignal): Promise<HttpAnswer> {
  const request = open(call, signal);
  const response = await new Promise<http.IncomingMessage>((resolve, reject) => {
    request.once("response", resolve);
    // Stays for good: after an early answer the rest of the body may find the connection closed.
    request.on("error", reject);
    sendBody(request, call.body).catch(reject);
  });
  try {
    return {
      status: response.statusCode ?? 0,
      headers: response.headers,
      text: await readText(response, call.who),
    };
  } finally {
    request.destroy();
  }
}

function open({ url, headers, body }: HttpCall, signal: AbortSignal): http.ClientRequest {
  const options = {
    method: "POST",
    headers: { "Content-Type": "application/json", ...headers, "Content-Length": length(body) },
    // A connection of its own: between two chunks a kept one may be closed by the other side.
    agent: false as const,
    signal,
  };
  if (url.protocol === "https:") {
    return https.request(url, { ...options, rejectUnauthorized: true });
  }
  return http.request(url, { ...options, lookup: loopbackLookup });
}

function length(body: readonly BodyPiece[]): number {
  return body.reduce(
    (sum, piece) =>
      sum +
      (typeof piece === "string" ? Buffer.byteLength(piece) : Math.ceil(piece.length / 3) * 4),
    0,
  );
}

/** A picture at a time is base64, so that a request needs little more than its pictures. */
async function sendBody(request: http.ClientRequest, body: readonly BodyPiece[]): Promise<void> {
  for (const piece of body) {
    if (request.destroyed) return;
    const text = typeof piece === "string" ? piece : Buffer.from(piece).toString("base64");
    if (request.write(text)) continue;
    await drained(request);
  }
  request.end();
}

function drained(request: http.ClientRequest): Promise<void> {
  return new Promise((resolve) => {
    const goOn = () => {
      request.off("drain", goOn);
      request.off("close", goOn);
      resolve();
    };
    request.on("drain", goOn);
    request.on("close", goOn);
  });
}

async function readText(response: http.IncomingMessage, who: string): Promise<string> {
  const pieces: Buffer[] = [];
  let size = 0;
  for await (const piece of response) {
    pieces.push(piece as Buffer);
    size += (piece as Buffer).length;
    if (size > greatestAnswerBytes) {
      throw new ProviderFailure("retry", `${who} answered with more than a model would.`);
    }
  }
  return Buffer.concat(pieces).toString("utf8");
}
