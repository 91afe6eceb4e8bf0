import { createHash } from "node:crypto";
import { decryptBytes, encryptBytes } from "../age/age.ts";
import { derivedKey } from "../age/sealing.ts";
import { Identity, type Recipient } from "../age/x25519.ts";

/** Names a vault without telling anything of its secret. */
export function vaultIdOf(recipient: Recipient): string {
  return createHash("sha256").update(`ostrel vault ${recipient}`).digest("hex").slice(0, 20);
}

/** The keys by which an archive is written and read; all come from the one identity. */
export class Vault {
  readonly identity: Identity;
  readonly id: string;
  /** Authenticates the lists: whoever has it has the identity. */
  readonly manifestKey: Buffer;

  constructor(identity: Identity) {
    this.identity = identity;
    this.id = vaultIdOf(identity.recipient);
    this.manifestKey = derivedKey(identity.secretBytes(), Buffer.alloc(0), "ostrel archive lists");
  }
}

/** The vault's identity as an age identity file, encrypted to the recovery key. */
export function wrapVault(vault: Vault, recoveryKey: Recipient): Promise<Buffer> {
  const text = `# vault ${vault.id}\n${vault.identity.secretText()}\n`;
  return encryptBytes(Buffer.from(text), recoveryKey);
}

/** Throws where the key doesn't open the file, or the file holds no identity. */
export async function unwrapVault(file: Uint8Array, recoveryKey: Identity): Promise<Vault> {
  const text = (await decryptBytes(file, recoveryKey)).toString("latin1");
  const line = text.split("\n").find((candidate) => candidate.startsWith("AGE-SECRET-KEY-1"));
  if (line === undefined) throw new Error("it holds no identity");
  return new Vault(Identity.parse(line));
}
