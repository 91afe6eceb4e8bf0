import { Identity } from "./age/x25519.ts";
import { type SecretStore, SecretStoreFailure } from "./keys/secretStore.ts";
import { Vault } from "./keys/vault.ts";

/** The vaults whose keys this machine has. A key that was read once is not asked for again. */
export class Keyring {
  readonly #secrets: SecretStore;
  readonly #known = new Map<string, Vault>();

  constructor(secrets: SecretStore) {
    this.#secrets = secrets;
  }

  /** Throws SecretStoreFailure where the key isn't there, or the keyring refuses. */
  async vault(id: string): Promise<Vault> {
    const known = this.#known.get(id);
    if (known !== undefined) return known;
    const text = await this.#secrets.read(accountOf(id));
    const vault = text === undefined ? undefined : parsed(text);
    if (vault?.id !== id) {
      throw new SecretStoreFailure(
        "The archive's key is not in the keyring any more. Use your recovery key.",
      );
    }
    this.#known.set(id, vault);
    return vault;
  }

  async keep(vault: Vault): Promise<void> {
    await this.#secrets.write(accountOf(vault.id), vault.identity.secretText());
    this.#known.set(vault.id, vault);
  }

  async forget(id: string): Promise<void> {
    this.#known.delete(id);
    await this.#secrets.remove(accountOf(id));
  }
}

function accountOf(id: string): string {
  return `vault-${id}`;
}

function parsed(text: string): Vault | undefined {
  try {
    return new Vault(Identity.parse(text));
  } catch {
    return undefined;
  }
}
