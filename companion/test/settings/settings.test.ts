import assert from "node:assert/strict";
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { parseJson } from "../../src/json/value.ts";
import { expandedPath } from "../../src/settings/expandedPath.ts";
import { loadSettings } from "../../src/settings/loadSettings.ts";
import { Secrets, SettingsInUse } from "../../src/settings/settingsInUse.ts";
import { defaultSettings, type ObserverSettings } from "../../src/wire/records.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

interface Fixture {
  readonly name: string;
  readonly primary: string | null;
  readonly legacy: string | null;
  readonly loaded: Partial<ObserverSettings>;
}

function writeFile(home: string, folder: string, text: string | null): void {
  if (text === null) return;
  mkdirSync(join(home, folder));
  writeFileSync(join(home, folder, "settings.json"), text);
}

describe("settings files shared with the application", () => {
  const folder = join(TEST_FIXTURES_PATH, "settings");
  for (const file of readdirSync(folder)) {
    const fixture = parseJson(readFileSync(join(folder, file))) as unknown as Fixture;
    it(fixture.name, async () => {
      const home = temporaryHome();
      writeFile(home, ".ostrel", fixture.primary);
      writeFile(home, ".moravel", fixture.legacy);
      const before = readdirSync(home);
      const settings = new SettingsInUse(await loadSettings(home));
      // The application takes the secrets out of the file and tells them on standard input.
      assert.equal(settings.record.analysisApiToken, "");
      assert.equal(settings.record.byokGoogleVertexApiKey, "");
      settings.applySecrets(Secrets.parse(fixture.loaded));
      const { archiveEnabled, archiveVaultId, ...loaded } = fixture.loaded;
      assert.deepEqual(settings.record, { ...defaultSettings, ...loaded });
      assert.deepEqual(readdirSync(home), before);
      for (const [place, text] of [
        [".ostrel", fixture.primary],
        [".moravel", fixture.legacy],
      ] as const) {
        if (text === null) continue;
        assert.equal(readFileSync(join(home, place, "settings.json"), "utf8"), text);
      }
    });
  }
});

describe("settings files that can't be read", () => {
  it("settingsFile_directoryInItsPlace_legacyIsUsed", async () => {
    const home = temporaryHome();
    mkdirSync(join(home, ".ostrel", "settings.json"), { recursive: true });
    writeFile(home, ".moravel", '{"localPort":9002}');
    assert.equal((await loadSettings(home)).localPort, 9002);
  });

  it("settingsFile_notUtf8_legacyIsUsed", async () => {
    const home = temporaryHome();
    mkdirSync(join(home, ".ostrel"));
    writeFileSync(
      join(home, ".ostrel", "settings.json"),
      Buffer.from([0x7b, 0x22, 0xff, 0x22, 0x3a, 0x31, 0x7d]),
    );
    writeFile(home, ".moravel", '{"localPort":9002}');
    assert.equal((await loadSettings(home)).localPort, 9002);
  });
});

describe("settings in use", () => {
  it("put_everyField_isInUse", () => {
    const settings = new SettingsInUse(defaultSettings);
    settings.replace({ ...defaultSettings, model: "m", localPort: 2n ** 62n });
    assert.equal(settings.answer.model, "m");
    assert.equal(settings.answer.localPort, 2n ** 62n);
  });

  it("put_archiveFields_areAnsweredWithTheObserversOwn", () => {
    const settings = new SettingsInUse({ ...defaultSettings, archiveEnabled: true });
    assert.equal(settings.record.archiveEnabled, false);
    settings.replace({ ...defaultSettings, archiveEnabled: true, archiveVaultId: "v" });
    assert.equal(settings.answer.archiveEnabled, false);
    assert.equal(settings.answer.archiveVaultId, "");
  });

  it("put_secrets_areTrimmedAndToldAsRedacted", () => {
    const settings = new SettingsInUse(defaultSettings);
    settings.replace({ ...defaultSettings, analysisApiToken: " token\n" });
    assert.equal(settings.record.analysisApiToken, "token");
    assert.equal(settings.answer.analysisApiToken, "<redacted>");
    assert.equal(settings.answer.byokGoogleVertexApiKey, "");
  });

  it("put_redactedSecret_leavesTheOneInUseAlone", () => {
    const settings = new SettingsInUse(defaultSettings);
    settings.applySecrets({ analysisApiToken: "token", byokGoogleVertexApiKey: "key" });
    settings.replace({ ...defaultSettings, analysisApiToken: " <redacted> " });
    assert.equal(settings.record.analysisApiToken, "token");
    assert.equal(settings.record.byokGoogleVertexApiKey, "");
  });

  it("secrets_redacted_areNone", () => {
    const settings = new SettingsInUse(defaultSettings);
    settings.applySecrets({ analysisApiToken: "<redacted>", byokGoogleVertexApiKey: "" });
    assert.equal(settings.record.analysisApiToken, "");
  });
});

it("expandedPath_tilde_isTheHomeFolder", () => {
  assert.equal(expandedPath("~", "/home/me"), "/home/me");
  assert.equal(expandedPath("~/a/b", "/home/me"), "/home/me/a/b");
  assert.equal(expandedPath("~me/a", "/home/me"), "~me/a");
  assert.equal(expandedPath("/a/~", "/home/me"), "/a/~");
});
