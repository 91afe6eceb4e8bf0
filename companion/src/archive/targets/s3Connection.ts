import { createHash } from "node:crypto";
import * as http from "node:http";
import * as https from "node:https";
import type { Clock } from "../../base/clock.ts";
import { loopbackLookup } from "../../base/loopback.ts";
import { encodePart, encodeQuery, signedHeaders } from "./signature.ts";
import { TargetFailure, type Upload } from "./target.ts";
import type { S3Record } from "./targetRecord.ts";

export interface S3Request {
  readonly method: "GET" | "HEAD" | "PUT" | "DELETE";
  /** Without the prefix; empty for the bucket itself. */
  readonly key: string;
  readonly query?: ReadonlyMap<string, string>;
  readonly headers?: Readonly<Record<string, string>>;
  readonly upload?: Upload;
}

export interface S3Options {
  readonly clock: Clock;
  /** How long nothing may come or go before the connection counts as dead. */
  readonly idleMs: number;
}

const nothing = createHash("sha256").digest("hex");

/** One bucket over HTTP: signs, sends and waits for the answer's head. */
export class S3Connection {
  readonly #record: S3Record;
  readonly #options: S3Options;
  readonly #endpoint: URL;

  constructor(record: S3Record, options: S3Options) {
    this.#record = record;
    this.#options = options;
    this.#endpoint = new URL(record.endpoint);
  }

  /** Resolves with any answer, whose body the caller reads; throws TargetFailure without one. */
  async send(request: S3Request, signal: AbortSignal): Promise<http.IncomingMessage> {
    signal.throwIfAborted();
    try {
      return await this.#exchange(request, signal);
    } catch (error) {
      throw connectionFailure(error, signal);
    }
  }

  async #exchange(request: S3Request, signal: AbortSignal): Promise<http.IncomingMessage> {
    const { path, host } = this.#address(request.key);
    const query = encodeQuery(request.query ?? new Map());
    const isSecure = this.#endpoint.protocol === "https:";
    const { idleMs } = this.#options;
    const options = {
      // The bucket's own name where it is part of the host's; loopback names all lead here.
      hostname: withoutBrackets(isSecure ? host.replace(/:[0-9]+$/, "") : this.#endpoint.hostname),
      port: this.#endpoint.port,
      path: query === "" ? path : `${path}?${query}`,
      method: request.method,
      headers: this.#headers(request, path, host),
      signal,
      // A connection of its own, by no proxy and to no server that can't prove its name.
      agent: false as const,
    };
    const sent = isSecure
      ? https.request({ ...options, rejectUnauthorized: true })
      : http.request({ ...options, lookup: loopbackLookup });
    sent.setTimeout(idleMs, () => sent.destroy(new Error("nothing came for too long")));
    const answered = new Promise<http.IncomingMessage>((resolve, reject) => {
      sent.once("response", resolve);
      sent.once("error", reject);
    });
    answered.catch(() => undefined);
    try {
      // A server may refuse before it has read all of the body.
      await Promise.race([sendBody(sent, request.upload), answered]);
      return await answered;
    } catch (error) {
      // What was to be sent can't be read: half of it must not wait for the rest.
      sent.destroy();
      throw error;
    }
  }

  #headers(
    { method, query, headers, upload }: S3Request,
    path: string,
    host: string,
  ): Record<string, string> {
    const length = upload === undefined ? {} : { "content-length": String(upload.bytes) };
    return signedHeaders(
      {
        method,
        host,
        path,
        query: query ?? new Map(),
        headers: { ...headers, ...length },
        bodySha256: upload?.sha256 ?? nothing,
        region: this.#record.region,
        atMs: this.#options.clock.nowMs(),
      },
      this.#record,
    );
  }

  #address(key: string): { path: string; host: string } {
    const { bucket, prefix, pathStyle } = this.#record;
    const whole = prefix === "" || key === "" ? key : `${prefix}/${key}`;
    const encoded = whole.split("/").map(encodePart).join("/");
    if (!pathStyle) return { path: `/${encoded}`, host: `${bucket}.${this.#endpoint.host}` };
    const path = encoded === "" ? `/${bucket}` : `/${bucket}/${encoded}`;
    return { path, host: this.#endpoint.host };
  }
}

/** Of an IPv6 address, which has them in URLs and in headers only. */
function withoutBrackets(hostname: string): string {
  return hostname.replace(/^\[(.*)\]$/, "$1");
}

async function sendBody(request: http.ClientRequest, upload: Upload | undefined): Promise<void> {
  if (upload === undefined) {
    request.end();
    return;
  }
  let isOver = false;
  let wake = () => {};
  const onWake = () => wake();
  const finish = () => {
    isOver = true;
    wake();
  };
  request.on("drain", onWake);
  for (const event of ["response", "error", "close"]) request.once(event, finish);
  for await (const piece of upload.read()) {
    if (isOver) return;
    if (request.write(piece)) continue;
    await new Promise<void>((resolve) => {
      wake = resolve;
      if (isOver) resolve();
    });
  }
  request.end();
}

/** An abort stays what it is; everything else is a sentence. */
export function connectionFailure(error: unknown, signal: AbortSignal): unknown {
  if (signal.aborted) return signal.reason;
  if (error instanceof TargetFailure) return error;
  const why = error instanceof Error ? error.message : String(error);
  return new TargetFailure(`The archive's server can't be reached: ${why}.`, { cause: error });
}
