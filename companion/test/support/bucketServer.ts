import { createHash, createHmac } from "node:crypto";
import { once } from "node:events";
import * as http from "node:http";
import type { AddressInfo } from "node:net";
import type { TestContext } from "node:test";

export interface Fault {
  /** Of which request, counted from now on; 0 is the next. Looks at single objects don't count. */
  readonly after?: number;
  readonly kind:
    | "drop before"
    | "drop after"
    | "truncate"
    | "stall"
    | "repeat"
    | { readonly status: number; readonly code: string };
}

const keys = { id: "AKTEST", secret: "the/secret+of-the-tests" };
const region = "eu-test-1";

const hmac = (key: string | Buffer, text: string) =>
  createHmac("sha256", key).update(text).digest();
const sha256 = (bytes: Uint8Array | string) => createHash("sha256").update(bytes).digest("hex");

/**
 * A bucket by HTTP that believes nothing: it works out every signature from what it received, by
 * the rules as they are published and not by our own code, and refuses bodies of another hash.
 */
export class BucketServer {
  readonly objects = new Map<string, { bytes: Buffer; sha256: string | undefined }>();
  /** "PUT name 200" and so on, in order. */
  readonly log: string[] = [];
  readonly port: number;
  pageSize = 1000;
  /** What it does with a condition to a write: servers are of all three sorts. */
  conditions: "keep" | "refuse" | "ignore" = "keep";
  /** Whether it keeps what is told of an object along with it. */
  keepsMetadata = true;
  /** Whether the key may ask for single objects. */
  mayLook = true;
  /** In place of the tokens by which a listing goes on. */
  nextToken: (() => string) | undefined;
  /** Called once, when a write has come and before it is done. */
  beforeNextPut: (() => void) | undefined;
  #fault: Fault | undefined;
  readonly #server: http.Server;

  private constructor(server: http.Server, port: number) {
    this.#server = server;
    this.port = port;
    server.on("request", (request, response) => {
      void this.#handle(request, response).catch(() => response.destroy());
    });
  }

  static async start(test: TestContext): Promise<BucketServer> {
    const server = http.createServer();
    server.listen(0, "127.0.0.1");
    await once(server, "listening");
    test.after(() => {
      server.closeAllConnections();
      server.close();
    });
    return new BucketServer(server, (server.address() as AddressInfo).port);
  }

  get credentials() {
    return { accessKeyId: keys.id, secretAccessKey: keys.secret };
  }

  get record() {
    return {
      kind: "s3",
      lossless: true,
      endpoint: `http://localhost:${this.port}`,
      region,
      bucket: "footage",
      prefix: "my/archive",
      pathStyle: true,
      ...this.credentials,
    } as const;
  }

  fail(fault: Fault): void {
    this.#fault = fault;
  }

  cutAll(): void {
    this.#server.closeAllConnections();
  }

  async #handle(request: http.IncomingMessage, response: http.ServerResponse): Promise<void> {
    const fault = request.method === "HEAD" ? undefined : this.#takeFault();
    if (fault?.kind === "drop before") {
      request.socket.destroy();
      return;
    }
    const pieces: Buffer[] = [];
    for await (const piece of request) pieces.push(piece as Buffer);
    const body = Buffer.concat(pieces);
    const [path = "", search = ""] = (request.url ?? "").split("?");
    const refused = this.#refusal(request, path, search, body);
    if (refused !== undefined) {
      this.#error(request, response, 403, refused);
      return;
    }
    if (fault?.kind === "stall") return;
    if (typeof fault?.kind === "object") {
      this.#error(request, response, fault.kind.status, fault.kind.code);
      return;
    }
    this.#answer(request, response, path, search, body, fault);
  }

  #takeFault(): Fault | undefined {
    const fault = this.#fault;
    if (fault === undefined) return undefined;
    if ((fault.after ?? 0) > 0) {
      this.#fault = { ...fault, after: (fault.after ?? 0) - 1 };
      return undefined;
    }
    this.#fault = undefined;
    return fault;
  }

  #refusal(
    request: http.IncomingMessage,
    path: string,
    search: string,
    body: Buffer,
  ): string | undefined {
    const { authorization = "" } = request.headers;
    const match =
      /^AWS4-HMAC-SHA256 Credential=([^/]+)\/([0-9]{8})\/([^/]+)\/s3\/aws4_request, ?SignedHeaders=([^,]+), ?Signature=([0-9a-f]{64})$/.exec(
        authorization,
      );
    const [, id, day = "", givenRegion, names = "", signature] = match ?? [];
    if (id !== keys.id) return "InvalidAccessKeyId";
    if (givenRegion !== region) return "AuthorizationHeaderMalformed";
    if (!names.split(";").includes("host")) return "AccessDenied";
    const bodyHash = String(request.headers["x-amz-content-sha256"]);
    if (bodyHash !== "UNSIGNED-PAYLOAD" && bodyHash !== sha256(body))
      return "XAmzContentSHA256Mismatch";
    const query = search
      .split("&")
      .filter((part) => part !== "")
      .sort();
    const canonical = [
      request.method,
      path,
      query.join("&"),
      ...names.split(";").map((name) => `${name}:${String(request.headers[name]).trim()}`),
      "",
      names,
      bodyHash,
    ].join("\n");
    const time = String(request.headers["x-amz-date"]);
    const scope = `${day}/${region}/s3/aws4_request`;
    const toSign = ["AWS4-HMAC-SHA256", time, scope, sha256(canonical)].join("\n");
    const key = [region, "s3", "aws4_request"].reduce<Buffer>(
      (before, part) => hmac(before, part),
      hmac(`AWS4${keys.secret}`, day),
    );
    return hmac(key, toSign).toString("hex") === signature ? undefined : "SignatureDoesNotMatch";
  }

  #answer(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    path: string,
    search: string,
    body: Buffer,
    fault: Fault | undefined,
  ): void {
    const name = this.#nameOf(request, path);
    if (name === undefined) this.#error(request, response, 404, "NoSuchBucket");
    else if (request.method === "HEAD" && !this.mayLook) {
      this.#error(request, response, 403, "AccessDenied");
    } else if (request.method === "PUT") this.#put(request, response, name, body, fault);
    else if (request.method === "DELETE") {
      this.objects.delete(name);
      this.#send(request, response, name, 204, Buffer.alloc(0), {});
    } else if (name === "") this.#list(request, response, new URLSearchParams(search));
    else this.#get(request, response, name, fault);
  }

  /** Undefined for another bucket than the one that there is. */
  #nameOf(request: http.IncomingMessage, path: string): string | undefined {
    const isVirtual = request.headers.host?.startsWith("footage.") === true;
    const whole = decodeURIComponent(isVirtual ? `/footage${path}` : path);
    if (whole !== "/footage" && !whole.startsWith("/footage/")) return undefined;
    return whole.slice("/footage/".length);
  }

  #put(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    name: string,
    body: Buffer,
    fault: Fault | undefined,
  ): void {
    this.beforeNextPut?.();
    this.beforeNextPut = undefined;
    if (request.headers["if-none-match"] !== undefined && this.conditions === "refuse") {
      this.#error(request, response, 501, "NotImplemented");
      return;
    }
    const isConditional = request.headers["if-none-match"] === "*" && this.conditions === "keep";
    if (isConditional && this.objects.has(name)) {
      this.#error(request, response, 412, "PreconditionFailed");
      return;
    }
    const hash = this.keepsMetadata ? request.headers["x-amz-meta-sha256"] : undefined;
    this.objects.set(name, { bytes: body, sha256: typeof hash === "string" ? hash : undefined });
    if (fault?.kind === "drop after") {
      this.log.push(`PUT ${name} dropped`);
      request.socket.destroy();
      return;
    }
    this.#send(request, response, name, 200, Buffer.alloc(0), {
      etag: `"${createHash("md5").update(body).digest("hex")}"`,
    });
  }

  #get(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    name: string,
    fault: Fault | undefined,
  ): void {
    const object = this.objects.get(name);
    if (object === undefined) {
      this.#error(request, response, 404, "NoSuchKey");
      return;
    }
    const headers = {
      etag: `"${createHash("md5").update(object.bytes).digest("hex")}"`,
      "last-modified": "Sat, 21 Nov 2026 09:00:00 GMT",
      ...(object.sha256 !== undefined && { "x-amz-meta-sha256": object.sha256 }),
    };
    if (fault?.kind === "truncate") {
      response.writeHead(200, { ...headers, "content-length": object.bytes.length });
      response.write(object.bytes.subarray(0, object.bytes.length >> 1), () =>
        request.socket.destroy(),
      );
      return;
    }
    const bytes =
      fault?.kind === "repeat" ? Buffer.concat([object.bytes, object.bytes]) : object.bytes;
    this.#send(request, response, name, 200, bytes, headers);
  }

  #list(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    query: URLSearchParams,
  ): void {
    const prefix = query.get("prefix") ?? "";
    const delimiter = query.get("delimiter") || null;
    const after = query.get("continuation-token") ?? query.get("marker") ?? "";
    const entries = new Map<string, number | undefined>();
    for (const [name, { bytes }] of [...this.objects].sort(([a], [b]) => (a < b ? -1 : 1))) {
      if (!name.startsWith(prefix)) continue;
      const end = delimiter === null ? -1 : name.indexOf(delimiter, prefix.length);
      if (end >= 0) entries.set(name.slice(0, end + 1), undefined);
      else entries.set(name, bytes.length);
    }
    const rest = [...entries].filter(([name]) => name > after);
    const page = rest.slice(0, this.pageSize);
    const isTruncated = this.nextToken !== undefined || rest.length > page.length;
    const items = page.map(([name, bytes]) =>
      bytes === undefined
        ? `<CommonPrefixes><Prefix>${name}</Prefix></CommonPrefixes>`
        : `<Contents><Key>${name}</Key><LastModified>2026-11-21T09:00:00.000Z</LastModified><ETag>&quot;x&quot;</ETag><Size>${bytes}</Size></Contents>`,
    );
    const last = this.nextToken?.() ?? page.at(-1)?.[0] ?? "";
    const next = isTruncated
      ? `<NextContinuationToken>${last}</NextContinuationToken><NextMarker>${last}</NextMarker>`
      : "";
    const xml = `<?xml version="1.0" encoding="UTF-8"?>\n<ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/"><Name>footage</Name><IsTruncated>${isTruncated}</IsTruncated>${next}${items.join("")}</ListBucketResult>`;
    this.#send(request, response, `list ${prefix}`, 200, Buffer.from(xml), {
      "content-type": "application/xml",
    });
  }

  #error(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    status: number,
    code: string,
  ): void {
    const xml = `<?xml version="1.0"?><Error><Code>${code}</Code><Message>no</Message></Error>`;
    this.#send(request, response, code, status, Buffer.from(xml), {
      "content-type": "application/xml",
    });
  }

  #send(
    request: http.IncomingMessage,
    response: http.ServerResponse,
    name: string,
    status: number,
    body: Buffer,
    headers: Record<string, string>,
  ): void {
    this.log.push(`${request.method} ${name} ${status}`);
    response.writeHead(status, { ...headers, "content-length": body.length });
    response.end(request.method === "HEAD" ? undefined : body);
  }
}
