import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { join } from "node:path";
import { it, type TestContext } from "node:test";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { SecretToolStore } from "../../src/archive/keys/secretTool.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** A private bus with an unlocked keyring on it; the result is the environment to reach it by. */
async function startKeyring(test: TestContext): Promise<Record<string, string>> {
  const home = temporaryHome();
  const bus = spawn("dbus-daemon", ["--session", "--print-address", "--nofork"], {
    stdio: ["ignore", "pipe", "ignore"],
  });
  test.after(() => bus.kill("SIGKILL"));
  const [address] = (await once(bus.stdout, "data")) as [Buffer];
  const environment = {
    PATH: process.env["PATH"] ?? "",
    HOME: home,
    XDG_RUNTIME_DIR: home,
    XDG_DATA_HOME: join(home, "data"),
    DBUS_SESSION_BUS_ADDRESS: String(address).trim(),
  };
  const given = ["--unlock", "--foreground", "--components=secrets"];
  const daemon = spawn("gnome-keyring-daemon", given, {
    env: environment,
    stdio: ["pipe", "ignore", "ignore"],
  });
  test.after(() => daemon.kill("SIGKILL"));
  daemon.stdin.end("password");
  return environment;
}

it("keyring_ofTheDesktop_keepsTheKeyAndALockedOneIsToldInWords", async (test) => {
  const environment = await startKeyring(test);
  const store = new SecretToolStore(environment);
  const secret = "AGE-SECRET-KEY-1TEST";
  // It comes onto the bus when it has come up, for which it may take 10 s.
  for (let turn = 0; ; turn += 1) {
    try {
      await store.write("vault-a", secret);
      break;
    } catch (error) {
      if (turn > 100) throw error;
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
  }
  assert.equal(await store.read("vault-a"), secret);
  assert.equal(await store.read("vault-b"), undefined);
  await store.write("vault-a", "another");
  assert.equal(await store.read("vault-a"), "another");
  await store.remove("vault-a");
  await store.remove("vault-a");
  assert.equal(await store.read("vault-a"), undefined);

  await store.write("vault-a", secret);
  const options = { env: environment, timeout: 10_000 };
  const service = ["--dest=org.freedesktop.secrets", "--object-path=/org/freedesktop/secrets"];
  const method = "--method=org.freedesktop.Secret.Service.Lock";
  const collections = "['/org/freedesktop/secrets/collection/login']";
  execFileSync("gdbus", ["call", "--session", ...service, method, collections], options);
  const impatient = new SecretToolStore(environment, 1_500);
  await assert.rejects(impatient.read("vault-a"), (error: unknown) => {
    assert.ok(error instanceof SecretStoreFailure, String(error));
    assert.ok(!error.message.includes(secret));
    return /keyring is locked|keyring can't be used/.test(error.message);
  });
});
