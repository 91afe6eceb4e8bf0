import { Bech32Error, decodeBech32 } from "../age/bech32.ts";
import { Identity } from "../age/x25519.ts";

const prefix = "ostrel-vault_";
const keyBeginning = "AGE-SECRET-KEY-1";
/** Of the part behind the prefix. */
const keyLength = keyBeginning.length + 58;

/** What was given is no recovery key; the message is for the user. */
export class RecoveryKeyError extends Error {
  override readonly name = "RecoveryKeyError";
}

/**
 * The key as it is shown to the user, once. Behind our prefix stands an age identity as it is, so
 * that the archive can be opened without us.
 */
export function formatRecoveryKey(identity: Identity): string {
  return `${prefix}${identity.secretText()}`;
}

/** Takes it with the blanks and line ends of a paste, and in any case. Throws RecoveryKeyError. */
export function parseRecoveryKey(given: string): Identity {
  const text = given.replace(/\s+/g, "");
  if (!text.toLowerCase().startsWith(prefix)) {
    throw new RecoveryKeyError(`This is no recovery key: one begins with "${prefix}".`);
  }
  const key = text.slice(prefix.length).toUpperCase();
  if (!key.startsWith(keyBeginning)) {
    throw new RecoveryKeyError(
      `The recovery key has a typing error at its beginning: it begins with "${prefix}${keyBeginning}".`,
    );
  }
  if (key.length !== keyLength) {
    throw new RecoveryKeyError(
      `The recovery key has ${text.length} characters, and a whole one has ${prefix.length + keyLength}.`,
    );
  }
  try {
    return new Identity(decodeBech32(key).bytes);
  } catch (error) {
    const position = error instanceof Bech32Error ? error.position : undefined;
    throw new RecoveryKeyError(
      position === undefined
        ? "The recovery key has typing errors. Compare it with the one that you keep."
        : `The recovery key has a typing error: character ${prefix.length + position + 1} is wrong. Compare it with the one that you keep.`,
    );
  }
}
