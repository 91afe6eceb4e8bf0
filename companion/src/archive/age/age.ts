import { randomBytes } from "node:crypto";
import { blocksOf } from "./blocks.ts";
import { greatestHeaderBytes, readHeader, writeHeader } from "./header.ts";
import { AgeError, derivedKey, seal, tagBytes, unseal } from "./sealing.ts";
import type { Identity, Recipient } from "./x25519.ts";

const blockBytes = 64 * 1024;
const nonceBytes = 16;

/** Numbers the blocks of a file; the last one bears a mark, so that a cut file doesn't pass. */
class BlockNonce {
  readonly #bytes = Buffer.alloc(12);
  #count = 0n;

  next(isLast: boolean): Buffer {
    this.#bytes.writeBigUInt64BE(this.#count, 3);
    this.#bytes[11] = isLast ? 1 : 0;
    this.#count += 1n;
    return this.#bytes;
  }
}

/**
 * An age v1 file (age-encryption.org/v1) to one X25519 recipient, in pieces as they come. Twice the
 * same gives two different files.
 */
export async function* encrypt(
  plain: AsyncIterable<Uint8Array>,
  recipient: Recipient,
): AsyncGenerator<Buffer> {
  const fileKey = randomBytes(16);
  const salt = randomBytes(nonceBytes);
  yield Buffer.concat([writeHeader(fileKey, recipient), salt]);
  const key = derivedKey(fileKey, salt, "payload");
  const nonce = new BlockNonce();
  for await (const { bytes, isLast } of blocksOf(plain, blockBytes)) {
    yield seal(key, nonce.next(isLast), bytes);
  }
}

/**
 * The contents of an age v1 file, in pieces that are authentic each; only when this ends without
 * an error are they whole. Throws AgeError.
 */
export async function* decrypt(
  file: AsyncIterable<Uint8Array>,
  identity: Identity,
): AsyncGenerator<Buffer> {
  const reader = new PrefixReader(file);
  const fileKey = readHeader(await reader.readHeader(), identity);
  const salt = await reader.readExactly(nonceBytes);
  const key = derivedKey(fileKey, salt, "payload");
  const nonce = new BlockNonce();
  let isFirst = true;
  for await (const { bytes, isLast } of blocksOf(reader.rest(), blockBytes + tagBytes)) {
    const plain = unseal(key, nonce.next(isLast), bytes);
    if (plain.length === 0 && !isFirst) throw new AgeError("its last block is empty");
    isFirst = false;
    yield plain;
  }
}

/** Reads the beginning of a stream bit by bit, and then hands on what is left. */
class PrefixReader {
  readonly #source: AsyncIterator<Uint8Array>;
  #held = Buffer.alloc(0);

  constructor(source: AsyncIterable<Uint8Array>) {
    this.#source = source[Symbol.asyncIterator]();
  }

  async readHeader(): Promise<string> {
    for (;;) {
      const mac = this.#held.indexOf("\n--- ");
      const end = mac < 0 ? -1 : this.#held.indexOf("\n", mac + 1);
      if (end >= 0) return this.#take(end + 1).toString("latin1");
      if (this.#held.length > greatestHeaderBytes) throw new AgeError("it is no age file");
      await this.#more();
    }
  }

  async readExactly(count: number): Promise<Buffer> {
    while (this.#held.length < count) await this.#more();
    return this.#take(count);
  }

  async *rest(): AsyncGenerator<Uint8Array> {
    try {
      yield this.#held;
      for (;;) {
        const { done, value } = await this.#source.next();
        if (done) return;
        yield value;
      }
    } finally {
      await this.#source.return?.();
    }
  }

  #take(count: number): Buffer {
    const taken = this.#held.subarray(0, count);
    this.#held = this.#held.subarray(count);
    return taken;
  }

  async #more(): Promise<void> {
    const { done, value } = await this.#source.next();
    if (done) throw new AgeError("it ends too early");
    this.#held = Buffer.concat([this.#held, value]);
  }
}

async function* one(bytes: Uint8Array): AsyncGenerator<Uint8Array> {
  yield bytes;
}

async function gathered(pieces: AsyncIterable<Uint8Array>): Promise<Buffer> {
  const all: Uint8Array[] = [];
  for await (const piece of pieces) all.push(piece);
  return Buffer.concat(all);
}

/** The same for what fits into memory. */
export function encryptBytes(plain: Uint8Array, recipient: Recipient): Promise<Buffer> {
  return gathered(encrypt(one(plain), recipient));
}

export function decryptBytes(file: Uint8Array, identity: Identity): Promise<Buffer> {
  return gathered(decrypt(one(file), identity));
}
