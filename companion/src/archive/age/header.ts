import { createHmac, timingSafeEqual } from "node:crypto";
import { AgeError, derivedKey, seal, unseal } from "./sealing.ts";
import { Identity, type Recipient } from "./x25519.ts";

const versionLine = "age-encryption.org/v1";
const keyInfo = "age-encryption.org/v1/X25519";
const fileKeyBytes = 16;
const bodyColumns = 64;
const noNonce = Buffer.alloc(12);
const noSalt = Buffer.alloc(0);

/** More than any header has that is meant for a handful of recipients. */
export const greatestHeaderBytes = 64 * 1024;

interface Stanza {
  readonly arguments: readonly string[];
  readonly body: Buffer;
}

function encoded(bytes: Uint8Array): string {
  return Buffer.from(bytes).toString("base64").replace(/=+$/, "");
}

/** Takes only the one spelling that there is of each value. */
function decoded(text: string): Buffer {
  const bytes = Buffer.from(text, "base64");
  if (encoded(bytes) !== text) throw new AgeError("its header is not well-formed");
  return bytes;
}

function macOf(fileKey: Uint8Array, signed: string): Buffer {
  return createHmac("sha256", derivedKey(fileKey, noSalt, "header"))
    .update(signed)
    .digest();
}

function wrappingKey(shared: Uint8Array, ephemeral: Uint8Array, recipient: Uint8Array): Buffer {
  return derivedKey(shared, Buffer.concat([ephemeral, recipient]), keyInfo);
}

/** The header of a file with this key, to the one recipient. */
export function writeHeader(fileKey: Uint8Array, recipient: Recipient): Buffer {
  const ephemeral = Identity.generate();
  const share = ephemeral.recipient.bytes;
  const shared = ephemeral.sharedSecretWith(recipient.bytes);
  const box = seal(wrappingKey(shared, share, recipient.bytes), noNonce, fileKey);
  const signed = `${versionLine}\n-> X25519 ${encoded(share)}\n${encoded(box)}\n---`;
  return Buffer.from(`${signed} ${encoded(macOf(fileKey, signed))}\n`);
}

/** The file's key out of a whole header, its last newline included. Throws AgeError. */
export function readHeader(header: string, identity: Identity): Buffer {
  const lines = header.split("\n");
  if (lines[0] !== versionLine) throw new AgeError("it is no age file");
  const macLine = lines.at(-2) ?? "";
  const fileKey = stanzasOf(lines.slice(1, -2))
    .map((stanza) => openedBy(identity, stanza))
    .find((key) => key !== undefined);
  if (fileKey === undefined) throw new AgeError("it is encrypted to another key");
  const signed = header.slice(0, header.length - macLine.length - 1 + "---".length);
  const mac = decoded(macLine.slice("--- ".length));
  const expected = macOf(fileKey, signed);
  if (mac.length !== expected.length || !timingSafeEqual(mac, expected)) {
    throw new AgeError("its header was altered");
  }
  return fileKey;
}

function stanzasOf(lines: readonly string[]): Stanza[] {
  const stanzas: Stanza[] = [];
  for (let index = 0; index < lines.length; ) {
    const [arrow, ...given] = (lines[index] ?? "").split(" ");
    if (arrow !== "->" || given.length === 0) throw new AgeError("its header is not well-formed");
    let body = "";
    let line: string | undefined;
    do {
      index += 1;
      line = lines[index];
      if (line === undefined || line.length > bodyColumns) {
        throw new AgeError("its header is not well-formed");
      }
      body += line;
    } while (line.length === bodyColumns);
    index += 1;
    stanzas.push({ arguments: given, body: decoded(body) });
  }
  return stanzas;
}

/** Undefined where the stanza is for somebody else. */
function openedBy(identity: Identity, stanza: Stanza): Buffer | undefined {
  const [type, text, ...more] = stanza.arguments;
  if (type !== "X25519") return undefined;
  const share = decoded(text ?? "");
  if (more.length > 0 || share.length !== 32 || stanza.body.length !== fileKeyBytes + 16) {
    throw new AgeError("its header is not well-formed");
  }
  try {
    const shared = identity.sharedSecretWith(share);
    const key = wrappingKey(shared, share, identity.recipient.bytes);
    return unseal(key, noNonce, stanza.body);
  } catch {
    return undefined;
  }
}
