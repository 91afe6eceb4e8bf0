import { createHash, createHmac } from "node:crypto";

export interface Credentials {
  readonly accessKeyId: string;
  readonly secretAccessKey: string;
}

export interface SignedRequest {
  readonly method: string;
  readonly host: string;
  /** As it is sent: each segment encoded by `encodePart`. */
  readonly path: string;
  readonly query: ReadonlyMap<string, string>;
  /** Names in small letters; all of them are signed. */
  readonly headers: Readonly<Record<string, string>>;
  readonly bodySha256: string;
  readonly region: string;
  readonly atMs: number;
}

const algorithm = "AWS4-HMAC-SHA256";

function hmac(key: string | Buffer, text: string): Buffer {
  return createHmac("sha256", key).update(text).digest();
}

/** Everything but letters, digits and "-._~", as the signature wants it. */
export function encodePart(text: string): string {
  return encodeURIComponent(text).replace(
    /[!'()*]/g,
    (character) => `%${character.charCodeAt(0).toString(16).toUpperCase()}`,
  );
}

/** The query as it is sent and signed: sorted, after encoding. */
export function encodeQuery(query: ReadonlyMap<string, string>): string {
  return [...query]
    .map(([name, value]) => `${encodePart(name)}=${encodePart(value)}`)
    .sort((a, b) => (a < b ? -1 : 1))
    .join("&");
}

/** All headers to send: the given ones, with the signature (version 4) of service "s3". */
export function signedHeaders(
  request: SignedRequest,
  { accessKeyId, secretAccessKey }: Credentials,
): Record<string, string> {
  const time = new Date(request.atMs).toISOString().replace(/[:-]|\.[0-9]{3}/g, "");
  const headers: Record<string, string> = {
    ...request.headers,
    host: request.host,
    "x-amz-content-sha256": request.bodySha256,
    "x-amz-date": time,
  };
  const names = Object.keys(headers).sort();
  const canonical = [
    request.method,
    request.path,
    encodeQuery(request.query),
    ...names.map((name) => `${name}:${(headers[name] ?? "").trim().replace(/ +/g, " ")}`),
    "",
    names.join(";"),
    request.bodySha256,
  ].join("\n");
  const day = time.slice(0, 8);
  const scope = `${day}/${request.region}/s3/aws4_request`;
  const hash = createHash("sha256").update(canonical).digest("hex");
  const dayKey = hmac(`AWS4${secretAccessKey}`, day);
  const key = hmac(hmac(hmac(dayKey, request.region), "s3"), "aws4_request");
  const signature = hmac(key, [algorithm, time, scope, hash].join("\n")).toString("hex");
  return {
    ...headers,
    authorization: `${algorithm} Credential=${accessKeyId}/${scope}, SignedHeaders=${names.join(";")}, Signature=${signature}`,
  };
}
