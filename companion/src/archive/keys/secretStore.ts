/** Where the vault's identity lies between two runs. */
export interface SecretStore {
  /** Undefined when there is none of that name. */
  read(account: string): Promise<string | undefined>;
  write(account: string, secret: string): Promise<void>;
  /** None there is no error. */
  remove(account: string): Promise<void>;
}

/** This machine has no such store at all. */
export class NoSecretStore extends Error {
  override readonly name = "NoSecretStore";
}

/** The store is there and refuses; the message is a sentence for the user. */
export class SecretStoreFailure extends Error {
  override readonly name = "SecretStoreFailure";
}

/** The first store, and the second one only where there is no such thing as the first. */
export class FallbackSecretStore implements SecretStore {
  readonly #first: SecretStore;
  readonly #second: SecretStore;

  constructor(first: SecretStore, second: SecretStore) {
    this.#first = first;
    this.#second = second;
  }

  async read(account: string): Promise<string | undefined> {
    const found = await this.#ifThere(() => this.#first.read(account));
    return found ?? this.#second.read(account);
  }

  async write(account: string, secret: string): Promise<void> {
    const isWritten = await this.#ifThere(async () => {
      await this.#first.write(account, secret);
      return true;
    });
    if (isWritten !== true) await this.#second.write(account, secret);
    // A store may answer that it keeps something and not do it.
    if ((await this.read(account)) !== secret) {
      throw new SecretStoreFailure("The keyring did not keep the archive's key.");
    }
  }

  async remove(account: string): Promise<void> {
    await this.#ifThere(() => this.#first.remove(account));
    await this.#second.remove(account);
  }

  async #ifThere<Result>(task: () => Promise<Result>): Promise<Result | undefined> {
    try {
      return await task();
    } catch (error) {
      if (error instanceof NoSecretStore) return undefined;
      throw error;
    }
  }
}
