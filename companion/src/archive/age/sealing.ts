import { createCipheriv, createDecipheriv, hkdfSync } from "node:crypto";

export const tagBytes = 16;

const algorithm = "chacha20-poly1305";
const options = { authTagLength: tagBytes };

/** A file is not what it claims to be: torn, altered, or for somebody else. */
export class AgeError extends Error {
  override readonly name = "AgeError";
}

export function seal(key: Uint8Array, nonce: Uint8Array, plain: Uint8Array): Buffer {
  const cipher = createCipheriv(algorithm, key, nonce, options);
  const body = cipher.update(plain);
  const rest = cipher.final();
  return Buffer.concat([body, rest, cipher.getAuthTag()], plain.length + tagBytes);
}

/** Throws AgeError when the box was not sealed so. */
export function unseal(key: Uint8Array, nonce: Uint8Array, box: Uint8Array): Buffer {
  if (box.length < tagBytes) throw new AgeError("it ends too early");
  const decipher = createDecipheriv(algorithm, key, nonce, options);
  decipher.setAuthTag(box.subarray(box.length - tagBytes));
  try {
    const plain = decipher.update(box.subarray(0, box.length - tagBytes));
    decipher.final();
    return plain;
  } catch {
    throw new AgeError("it was altered, or is encrypted to another key");
  }
}

export function derivedKey(secret: Uint8Array, salt: Uint8Array, info: string): Buffer {
  return Buffer.from(hkdfSync("sha256", secret, salt, info, 32));
}
