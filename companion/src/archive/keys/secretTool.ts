import { ProgramFailed, ProgramMissing, runProgram } from "../../base/runProgram.ts";
import { NoSecretStore, type SecretStore, SecretStoreFailure } from "./secretStore.ts";
import { sessionBusAddress } from "./sessionBus.ts";

const service = "com.tamsk.ostrel.observer";
/** A locked keyring asks the user, who may take a while; our own caller gives up after 60 s. */
const patienceMs = 25_000;
/** What is said where nobody serves secrets on this machine. */
const isNobody =
  /not provided by any \.service|ServiceUnknown|Cannot autolaunch|Could not connect|Connection refused|No such file or directory/;

/** What a program needs to find the user's own bus and, for the question, screen. */
const passedOn = [
  "PATH",
  "HOME",
  "DBUS_SESSION_BUS_ADDRESS",
  "XDG_RUNTIME_DIR",
  "DISPLAY",
  "WAYLAND_DISPLAY",
  "XAUTHORITY",
];

/** The Secret Service of the desktop, by `secret-tool`. Secrets pass through pipes only. */
export class SecretToolStore implements SecretStore {
  readonly #environment: Record<string, string | undefined>;
  readonly #patienceMs: number;

  constructor(environment: Readonly<Record<string, string | undefined>>, patience = patienceMs) {
    this.#environment = { LC_ALL: "C" };
    for (const name of passedOn) this.#environment[name] = environment[name];
    this.#patienceMs = patience;
  }

  async read(account: string): Promise<string | undefined> {
    try {
      return await this.#run("lookup", account);
    } catch (error) {
      // It says nothing where there is nothing of that name, nor where the user was not asked.
      if (!isSilent(error)) throw asFailure(error);
      if ((await this.#search(account)) === "") return undefined;
      throw new SecretStoreFailure("The keyring is locked. Unlock it: the archive's key is in it.");
    }
  }

  async write(account: string, secret: string): Promise<void> {
    try {
      await this.#run("store", account, secret);
    } catch (error) {
      throw asFailure(error);
    }
  }

  async remove(account: string): Promise<void> {
    try {
      await this.#run("clear", account);
    } catch (error) {
      if (!isSilent(error)) throw asFailure(error);
    }
  }

  /** What it finds without asking the user for anything. */
  async #search(account: string): Promise<string> {
    try {
      return await this.#run("search", account);
    } catch (error) {
      throw asFailure(error);
    }
  }

  async #run(
    verb: "lookup" | "store" | "clear" | "search",
    account: string,
    input?: string,
  ): Promise<string> {
    const bus = await sessionBusAddress(this.#environment);
    if (bus === undefined)
      throw new NoSecretStore("There is no session bus, and no keyring on it.");
    const label = verb === "store" ? ["--label=Ostrel archive key"] : [];
    return runProgram({
      path: "secret-tool",
      arguments: [verb, ...label, "service", service, "account", account],
      environment: { ...this.#environment, DBUS_SESSION_BUS_ADDRESS: bus },
      timeoutMs: this.#patienceMs,
      input: input === undefined ? undefined : pieceOf(input),
    });
  }
}

async function* pieceOf(text: string): AsyncGenerator<Uint8Array> {
  yield Buffer.from(text);
}

function isSilent(error: unknown): boolean {
  return error instanceof ProgramFailed && error.exitCode === 1 && error.words === "";
}

function asFailure(error: unknown): unknown {
  if (error instanceof ProgramMissing) return new NoSecretStore(error.message);
  if (!(error instanceof ProgramFailed)) return error;
  if (isNobody.test(error.words)) return new NoSecretStore(error.words);
  const why = error.exitCode === undefined ? "it did not answer; unlock it" : error.words;
  return new SecretStoreFailure(`The keyring can't be used for the archive's key: ${why}.`);
}
