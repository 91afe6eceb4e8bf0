import { createPrivateKey, createPublicKey, diffieHellman, generateKeyPairSync } from "node:crypto";
import { decodeBech32, encodeBech32 } from "./bech32.ts";

// Node takes raw keys only inside the fixed frames of RFC 8410.
const secretFrame = Buffer.from("302e020100300506032b656e04220420", "hex");
const publicFrame = Buffer.from("302a300506032b656e032100", "hex");
const keyBytes = 32;

const identityPrefix = "age-secret-key-";
const recipientPrefix = "age";

function publicKeyOf(bytes: Uint8Array) {
  return createPublicKey({
    key: Buffer.concat([publicFrame, bytes]),
    format: "der",
    type: "spki",
  });
}

function checked(bytes: Uint8Array): Buffer {
  if (bytes.length !== keyBytes) throw new Error(`an X25519 key has ${keyBytes} bytes`);
  return Buffer.from(bytes);
}

/** Whom something is encrypted to. */
export class Recipient {
  readonly bytes: Buffer;

  constructor(bytes: Uint8Array) {
    this.bytes = checked(bytes);
  }

  /** The text is of the form "age1..."; throws when it isn't. */
  static parse(text: string): Recipient {
    const { prefix, bytes } = decodeBech32(text.trim());
    if (prefix !== recipientPrefix) throw new Error("this is no age recipient");
    return new Recipient(bytes);
  }

  toString(): string {
    return encodeBech32(recipientPrefix, this.bytes);
  }
}

/** Who can decrypt. The secret shows only where it is asked for by name. */
export class Identity {
  readonly #secret: Buffer;
  readonly recipient: Recipient;

  constructor(secret: Uint8Array) {
    this.#secret = checked(secret);
    const spki = createPublicKey(this.#privateKey()).export({ format: "der", type: "spki" });
    this.recipient = new Recipient(spki.subarray(-keyBytes));
  }

  static generate(): Identity {
    const { privateKey } = generateKeyPairSync("x25519");
    const pkcs8 = privateKey.export({ format: "der", type: "pkcs8" });
    return new Identity(pkcs8.subarray(-keyBytes));
  }

  /** The text is of the form "AGE-SECRET-KEY-1..."; throws when it isn't. */
  static parse(text: string): Identity {
    const { prefix, bytes } = decodeBech32(text.trim());
    if (prefix !== identityPrefix) throw new Error("this is no age identity");
    return new Identity(bytes);
  }

  /** The secret in age's own form. */
  secretText(): string {
    return encodeBech32(identityPrefix, this.#secret).toUpperCase();
  }

  secretBytes(): Buffer {
    return Buffer.from(this.#secret);
  }

  /** Throws where the other key is one with which every secret comes out the same. */
  sharedSecretWith(publicKey: Uint8Array): Buffer {
    return diffieHellman({
      privateKey: this.#privateKey(),
      publicKey: publicKeyOf(checked(publicKey)),
    });
  }

  #privateKey() {
    return createPrivateKey({
      key: Buffer.concat([secretFrame, this.#secret]),
      format: "der",
      type: "pkcs8",
    });
  }
}
