import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { randomBytes } from "node:crypto";
import { existsSync, readFileSync, statSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { inspect } from "node:util";
import { Identity } from "../../src/archive/age/x25519.ts";
import {
  formatRecoveryKey,
  parseRecoveryKey,
  RecoveryKeyError,
} from "../../src/archive/keys/recoveryKey.ts";
import { SecretFileStore } from "../../src/archive/keys/secretFile.ts";
import {
  FallbackSecretStore,
  NoSecretStore,
  type SecretStore,
  SecretStoreFailure,
} from "../../src/archive/keys/secretStore.ts";
import { SecretToolStore } from "../../src/archive/keys/secretTool.ts";
import { sessionBusAddress } from "../../src/archive/keys/sessionBus.ts";
import { unwrapVault, Vault, wrapVault } from "../../src/archive/keys/vault.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { Random } from "../support/random.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

function messageOf(given: string): string {
  try {
    parseRecoveryKey(given);
  } catch (error) {
    assert.ok(error instanceof RecoveryKeyError, String(error));
    return error.message;
  }
  return "none";
}

describe("recovery key", () => {
  it("recoveryKey_asShown_isRead", () => {
    const identity = Identity.generate();
    const shown = formatRecoveryKey(identity);
    assert.match(shown, /^ostrel-vault_AGE-SECRET-KEY-1[0-9A-Z]{58}$/);
    for (const given of [
      shown,
      shown.toLowerCase(),
      `  ${shown}\n`,
      shown.replace("KEY", "KEY\n"),
    ]) {
      assert.equal(parseRecoveryKey(given).secretText(), identity.secretText());
    }
  });

  it("recoveryKey_withOneTypingErrorAnywhere_isRefusedAndSaysWhere", () => {
    const shown = formatRecoveryKey(Identity.generate());
    const random = new Random(11);
    for (let at = 0; at < shown.length; at += 1) {
      const others = "QPZRY9X8GF2TVDW0S3JN54KHCE6MUA7L".replace(
        (shown[at] ?? "").toUpperCase(),
        "",
      );
      const given = shown.slice(0, at) + random.pick([...others]) + shown.slice(at + 1);
      const message = messageOf(given);
      if (at >= 29) assert.match(message, new RegExp(`typing error: character ${at + 1} is wrong`));
      else assert.match(message, /begins with "ostrel-vault_/);
    }
  });

  it("recoveryKey_withACharacterTooManyOrTooFew_saysSo", () => {
    const shown = formatRecoveryKey(Identity.generate());
    assert.match(messageOf(`${shown}Q`), /has 88 characters, and a whole one has 87/);
    assert.match(messageOf(shown.slice(0, -1)), /has 86 characters/);
  });

  it("recoveryKey_ofSomethingElse_isRefused", () => {
    for (const given of ["", "hello", "ostrel-vault_", Identity.generate().secretText()]) {
      assert.match(messageOf(given), /begins with/);
    }
    assert.match(messageOf(`ostrel-vault_AGE-SECRET-KEY-1${"b".repeat(58)}`), /character 30/);
  });

  it("recoveryKey_refused_isNotInTheMessage", () => {
    const shown = formatRecoveryKey(Identity.generate());
    assert.ok(!messageOf(`${shown}Q`).includes(shown.slice(30, 40)));
  });
});

describe("vault", () => {
  it("vault_wrapped_isOpenedByItsRecoveryKeyOnly", async () => {
    const vault = new Vault(Identity.generate());
    const recoveryKey = Identity.generate();
    const file = await wrapVault(vault, recoveryKey.recipient);
    const opened = await unwrapVault(file, recoveryKey);
    assert.equal(opened.id, vault.id);
    assert.equal(opened.identity.secretText(), vault.identity.secretText());
    await assert.rejects(unwrapVault(file, Identity.generate()));
  });

  it("vaultFile_withTheRecoveryKeysRest_isOpenedByAge", async () => {
    const home = temporaryHome();
    const vault = new Vault(Identity.generate());
    const recoveryKey = Identity.generate();
    const shown = formatRecoveryKey(recoveryKey);
    writeFileSync(join(home, "vault.age"), await wrapVault(vault, recoveryKey.recipient));
    writeFileSync(join(home, "recovery"), shown.slice("ostrel-vault_".length));
    const given = ["-d", "-i", join(home, "recovery"), join(home, "vault.age")];
    const text = execFileSync("age", given, { encoding: "utf8" });
    assert.ok(text.includes(vault.identity.secretText()));
  });

  it("secrets_ofAVaultThatIsPrinted_dontShow", () => {
    const vault = new Vault(Identity.generate());
    const shown = `${inspect(vault.identity, { showHidden: true, depth: 9 })} ${JSON.stringify(vault.identity)}`;
    const secret = vault.identity.secretBytes();
    for (const form of ["hex", "base64"] as const)
      assert.ok(!shown.includes(secret.toString(form)));
    assert.ok(!shown.includes(vault.identity.secretText()));
  });
});

class MemoryStore implements SecretStore {
  readonly secrets = new Map<string, string>();
  isThere = true;

  async read(account: string) {
    if (!this.isThere) throw new NoSecretStore("nobody");
    return this.secrets.get(account);
  }

  async write(account: string, secret: string) {
    if (!this.isThere) throw new NoSecretStore("nobody");
    this.secrets.set(account, secret);
  }

  async remove(account: string) {
    this.secrets.delete(account);
  }
}

describe("secret store", () => {
  it("secret_withAKeyring_neverComesIntoAFile", async () => {
    const [keyring, file] = [new MemoryStore(), new MemoryStore()];
    await new FallbackSecretStore(keyring, file).write("a", "s");
    assert.deepEqual([keyring.secrets.get("a"), file.secrets.size], ["s", 0]);
  });

  it("secret_withoutAKeyring_isInAFileForTheUserAlone", async () => {
    const folder = join(temporaryHome(), "keys");
    const keyring = new MemoryStore();
    keyring.isThere = false;
    const store = new FallbackSecretStore(keyring, new SecretFileStore(realDisk, folder));
    await store.write("a", "s");
    assert.equal(await store.read("a"), "s");
    assert.equal(statSync(join(folder, "a")).mode & 0o777, 0o600);
    assert.equal(statSync(folder).mode & 0o777, 0o700);
    await store.remove("a");
    assert.equal(await store.read("a"), undefined);
  });

  it("keyring_thatForgets_isNotBelieved", async () => {
    const forgetful = new MemoryStore();
    forgetful.write = async () => {};
    const store = new FallbackSecretStore(forgetful, new MemoryStore());
    await assert.rejects(store.write("a", "s"), SecretStoreFailure);
  });

  it("secretTool_thatIsNotInstalled_isNoStore", async () => {
    const bus = { DBUS_SESSION_BUS_ADDRESS: "unix:path=/nonexistent" };
    const store = new SecretToolStore({ ...bus, PATH: temporaryHome() });
    await assert.rejects(store.read("a"), NoSecretStore);
    await assert.rejects(store.write("a", "s"), NoSecretStore);
  });

  it("secret_onItsWayIntoTheKeyring_isInNoArgument", async () => {
    const folder = temporaryHome();
    const script = `#!/bin/sh\necho "$@" >${folder}/arguments\nenv >${folder}/environment\ncat >${folder}/input\n`;
    writeFileSync(join(folder, "secret-tool"), script, { mode: 0o755 });
    const path = `${folder}:${process.env["PATH"]}`;
    const bus = { DBUS_SESSION_BUS_ADDRESS: "unix:path=/nonexistent" };
    const store = new SecretToolStore({ ...bus, PATH: path, OSTREL_LOCAL_API_TOKEN: "token" });
    await store.write("vault-a", "the-secret");
    const said = (name: string) => readFileSync(join(folder, name), "utf8");
    assert.equal(said("input"), "the-secret");
    assert.match(said("arguments"), /^store .*account vault-a\n$/);
    assert.doesNotMatch(said("arguments") + said("environment"), /the-secret|token/);
  });

  it("secretTool_withAScreenButNoBus_isNotLetStartABusOfItsOwn", async () => {
    const folder = temporaryHome();
    writeFileSync(join(folder, "secret-tool"), `#!/bin/sh\necho >${folder}/ran\n`, { mode: 0o755 });
    const desktop = { PATH: `${folder}:${process.env["PATH"]}`, DISPLAY: ":0" };
    for (const DBUS_SESSION_BUS_ADDRESS of [undefined, "", "autolaunch:", "disabled:"]) {
      for (const XDG_RUNTIME_DIR of [undefined, folder]) {
        const store = new SecretToolStore({
          ...desktop,
          DBUS_SESSION_BUS_ADDRESS,
          XDG_RUNTIME_DIR,
        });
        await assert.rejects(store.read("a"), NoSecretStore);
        await assert.rejects(store.write("a", "s"), NoSecretStore);
        await assert.rejects(store.remove("a"), NoSecretStore);
      }
    }
    assert.equal(existsSync(join(folder, "ran")), false);
  });

  it("bus_thatIsNotNamed_isFoundInTheRuntimeFolder", async () => {
    const folder = temporaryHome();
    writeFileSync(join(folder, "bus"), "");
    assert.equal(
      await sessionBusAddress({ XDG_RUNTIME_DIR: folder }),
      `unix:path=${join(folder, "bus")}`,
    );
  });

  it("secretTool_withoutABus_isNoStore", async () => {
    const path = process.env["PATH"];
    for (const address of [undefined, "unix:path=/nonexistent"]) {
      const environment = { PATH: path, DBUS_SESSION_BUS_ADDRESS: address };
      const store = new SecretToolStore({ ...environment, XDG_RUNTIME_DIR: temporaryHome() });
      await assert.rejects(store.read("a"), NoSecretStore);
      await assert.rejects(store.write("a", randomBytes(8).toString("hex")), NoSecretStore);
    }
  });
});
