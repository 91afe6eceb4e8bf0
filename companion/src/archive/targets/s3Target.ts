import { createHash } from "node:crypto";
import type { IncomingMessage } from "node:http";
import { connectionFailure, S3Connection, type S3Options, type S3Request } from "./s3Connection.ts";
import { errorCodeOf, type ListingPage, parseListing } from "./s3Listing.ts";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
  type StoredObject,
  TargetFailure,
  type Upload,
} from "./target.ts";
import type { S3Record } from "./targetRecord.ts";

const sha256Header = "x-amz-meta-sha256";
/** A page of a listing has 1000 entries at most. */
const greatestAnswerBytes = 16 * 1024 * 1024;

/** What the user can do about the errors that don't go away by themselves. */
const advice = new Map([
  ["SignatureDoesNotMatch", "The secret access key is wrong"],
  ["InvalidAccessKeyId", "The access key is not known there"],
  ["AccessDenied", "The access key may not do this there"],
  ["NoSuchBucket", "There is no such bucket"],
  ["RequestTimeTooSkewed", "This machine's clock is wrong"],
  ["PermanentRedirect", "The bucket is in another region"],
  ["AuthorizationHeaderMalformed", "The region is wrong"],
  ["QuotaExceeded", "There is no room left"],
]);

/**
 * Any bucket that speaks S3. Writes are conditional, which not all servers know: some refuse the
 * condition, and some overwrite as if there were none.
 */
export class S3Target implements ArchiveTarget {
  readonly #connection: S3Connection;
  readonly #prefix: string;
  #refusesConditions = false;
  /** It has refused to overwrite something, so that it need not be looked at before each write. */
  #keepsConditions = false;

  constructor(record: S3Record, options: S3Options) {
    this.#connection = new S3Connection(record, options);
    this.#prefix = record.prefix === "" ? "" : `${record.prefix}/`;
  }

  async put(upload: Upload, signal: AbortSignal): Promise<void> {
    if (!this.#keepsConditions && (await this.#isSeen(upload, signal))) return;
    const isConditional = !this.#refusesConditions;
    const headers = {
      "content-type": "application/octet-stream",
      [sha256Header]: upload.sha256,
      ...(isConditional && { "if-none-match": "*" }),
    };
    const answer = await this.#send({ method: "PUT", key: upload.name, headers, upload }, signal);
    const status = answer.statusCode ?? 0;
    if (status === 200) {
      await textOf(answer, signal);
      return;
    }
    if (status === 412 && isConditional) {
      await textOf(answer, signal);
      this.#keepsConditions = true;
      if (!(await this.#isStored(upload, signal))) throw new ObjectConflict(upload.name);
      return;
    }
    if (status === 501 && isConditional) {
      await textOf(answer, signal);
      this.#refusesConditions = true;
      return this.put(upload, signal);
    }
    throw await refusal(answer, signal);
  }

  async remove(name: string, signal: AbortSignal): Promise<void> {
    const answer = await this.#send({ method: "DELETE", key: name }, signal);
    const status = answer.statusCode ?? 0;
    if (status !== 200 && status !== 204 && status !== 404) throw await refusal(answer, signal);
    await textOf(answer, signal);
  }

  async *read(name: string, signal: AbortSignal): AsyncGenerator<Uint8Array> {
    const answer = await this.#send({ method: "GET", key: name }, signal);
    if (answer.statusCode !== 200) {
      const failure = await refusal(answer, signal);
      throw failure.code === "NoSuchKey" ? new ObjectMissing(name) : failure;
    }
    yield* bodyOf(answer, signal);
  }

  async *list(folder: string, signal: AbortSignal): AsyncGenerator<StoredObject> {
    const pages = this.#pages(new Map([["prefix", `${this.#prefix}${folder}/`]]), signal);
    for await (const { objects } of pages) {
      for (const { name, bytes } of objects) {
        yield { name: name.slice(this.#prefix.length), bytes };
      }
    }
  }

  async topFolders(signal: AbortSignal): Promise<string[]> {
    const names: string[] = [];
    const query = new Map([
      ["prefix", this.#prefix],
      ["delimiter", "/"],
    ]);
    for await (const { folders } of this.#pages(query, signal)) {
      names.push(...folders.map((folder) => folder.slice(this.#prefix.length, -1)));
    }
    return names;
  }

  async *#pages(
    wanted: ReadonlyMap<string, string>,
    signal: AbortSignal,
  ): AsyncGenerator<ListingPage> {
    const begun = new Set<string>();
    let next: string | undefined;
    do {
      const query = new Map([...wanted, ["list-type", "2"]]);
      if (next !== undefined) query.set("continuation-token", next);
      const answer = await this.#send({ method: "GET", key: "", query }, signal);
      if (answer.statusCode !== 200) throw await refusal(answer, signal);
      const page = asListing(await textOf(answer, signal));
      yield page;
      next = page.next;
      if (next !== undefined && begun.has(next)) throw new TargetFailure(endlessListing);
      if (next !== undefined) begun.add(next);
    } while (next !== undefined);
  }

  /** As `isStored`; a key that may write and not read can't look, and has to trust the condition. */
  async #isSeen(upload: Upload, signal: AbortSignal): Promise<boolean> {
    try {
      return await this.#isStored(upload, signal);
    } catch (error) {
      if (error instanceof Refusal && error.status === 403 && !this.#refusesConditions)
        return false;
      throw error;
    }
  }

  /** Whether exactly these bytes are there; throws ObjectConflict where others are. */
  async #isStored(upload: Upload, signal: AbortSignal): Promise<boolean> {
    const answer = await this.#send({ method: "HEAD", key: upload.name }, signal);
    answer.resume();
    if (answer.statusCode === 404) return false;
    if (answer.statusCode !== 200) throw await this.#refusalOfLook(upload.name, answer, signal);
    const told = answer.headers[sha256Header];
    const isSame =
      Number(answer.headers["content-length"]) === upload.bytes &&
      (told ?? (await this.#sha256Of(upload.name, signal))) === upload.sha256;
    if (!isSame) throw new ObjectConflict(upload.name);
    return true;
  }

  /** An answer to HEAD has no body, and so doesn't say why; the same question by GET does. */
  async #refusalOfLook(
    name: string,
    answer: IncomingMessage,
    signal: AbortSignal,
  ): Promise<Refusal> {
    const mute = await refusal(answer, signal);
    const headers = { range: "bytes=0-0" };
    const asked = await this.#send({ method: "GET", key: name, headers }, signal);
    if (asked.statusCode === answer.statusCode) return refusal(asked, signal);
    asked.destroy();
    return mute;
  }

  /** For servers that don't keep what they are told of an object. */
  async #sha256Of(name: string, signal: AbortSignal): Promise<string> {
    const hash = createHash("sha256");
    for await (const piece of this.read(name, signal)) hash.update(piece);
    return hash.digest("hex");
  }

  #send(request: S3Request, signal: AbortSignal): Promise<IncomingMessage> {
    return this.#connection.send(request, signal);
  }
}

const endlessListing = "The archive's server lists without an end.";

class Refusal extends TargetFailure {
  readonly status: number;
  readonly code: string | undefined;

  constructor(status: number, code: string | undefined) {
    const why = advice.get(code ?? "") ?? `It answered ${status}${code ? ` (${code})` : ""}`;
    super(`The archive's server refused: ${why}.`);
    this.status = status;
    this.code = code;
  }
}

async function refusal(answer: IncomingMessage, signal: AbortSignal): Promise<Refusal> {
  const text = await textOf(answer, signal);
  const status = answer.statusCode ?? 0;
  return new Refusal(status, errorCodeOf(text));
}

function asListing(text: string): ListingPage {
  try {
    return parseListing(text);
  } catch (error) {
    const why = error instanceof Error ? error.message : String(error);
    throw new TargetFailure(`The archive's server can't be understood: ${why}.`);
  }
}

/** Throws TargetFailure where the body ends before the length that was announced. */
async function* bodyOf(answer: IncomingMessage, signal: AbortSignal): AsyncGenerator<Uint8Array> {
  try {
    for await (const piece of answer) {
      signal.throwIfAborted();
      yield piece as Uint8Array;
    }
  } catch (error) {
    throw connectionFailure(error, signal);
  } finally {
    answer.destroy();
  }
}

async function textOf(answer: IncomingMessage, signal: AbortSignal): Promise<string> {
  const pieces: Uint8Array[] = [];
  let bytes = 0;
  for await (const piece of bodyOf(answer, signal)) {
    bytes += piece.length;
    if (bytes > greatestAnswerBytes) throw new TargetFailure("The archive's server says too much.");
    pieces.push(piece);
  }
  return Buffer.concat(pieces).toString("utf8");
}
