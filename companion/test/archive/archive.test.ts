import assert from "node:assert/strict";
import { join } from "node:path";
import { describe, it } from "node:test";
import { ArchiveNotReady } from "../../src/archive/archiveErrors.ts";
import { RecoveryKeyError } from "../../src/archive/keys/recoveryKey.ts";
import { SecretStoreFailure } from "../../src/archive/keys/secretStore.ts";
import { ArchiveHarness } from "../support/archiveHarness.ts";
import {
  anyFolder,
  archiveTurnedOn,
  archiveWithTwoChunks,
  day,
  filesIn,
  frames,
  survivors,
} from "../support/footage.ts";
import { MemoryTarget } from "../support/memoryTarget.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

describe("wizard", () => {
  it("status_beforeAnything_isOffAndWithoutAVault", async () => {
    const { archive } = await ArchiveHarness.open();
    const status = archive.status();
    assert.deepEqual(
      [status.archiveEnabled, status.archiveVaultId, status.hasRecoveryKey, status.recoveryKey],
      [false, "", false, undefined],
    );
  });

  it("prepare_withoutATarget_saysWhatToDoFirst", async () => {
    const { archive } = await ArchiveHarness.open();
    await assert.rejects(archive.prepare(), /No place for the archive is chosen yet/);
  });

  it("prepare_twice_makesTwoKeysOfWhichTheLastOpens", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    const first = await harness.archive.prepare();
    const second = await harness.archive.prepare();
    assert.notEqual(first.recoveryKey, second.recoveryKey);
    assert.equal(second.archiveEnabled, false);
    assert.equal(harness.keyring.secrets.size, 1);
    await harness.archive.enable();
    await assert.rejects(harness.archive.recover(first.recoveryKey ?? ""), RecoveryKeyError);
    await harness.archive.recover(second.recoveryKey ?? "");
  });

  it("enable_withoutPrepare_isRefused", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    await assert.rejects(harness.archive.enable(), ArchiveNotReady);
  });

  it("prepare_onceEnabled_neitherRotatesNorTellsTheKey", async () => {
    const { harness, target, recoveryKey } = await archiveTurnedOn();
    const before = [...target.objects];
    for (const pausedFirst of [false, true]) {
      if (pausedFirst) await harness.archive.disable();
      const status = await harness.archive.prepare();
      assert.equal(status.recoveryKey, undefined);
      assert.equal(status.hasRecoveryKey, true);
    }
    assert.deepEqual([...target.objects], before);
    await harness.archive.recover(recoveryKey);
  });

  it("vault_overARestart_staysTheSameAndOn", async () => {
    const options = survivors();
    const first = await ArchiveHarness.open(options);
    await first.turnOn(anyFolder);
    const { archiveVaultId } = first.archive.settings;
    assert.match(archiveVaultId, /^[0-9a-f]{20}$/);
    await first.archive.close();
    const second = await ArchiveHarness.open(options);
    assert.deepEqual(second.archive.settings, { archiveEnabled: true, archiveVaultId });
    await second.archive.disable();
    const third = await ArchiveHarness.open(options);
    assert.deepEqual(third.archive.settings, { archiveEnabled: false, archiveVaultId });
  });

  it("prepared_overARestart_canBeEnabled", async () => {
    const options = survivors();
    const first = await ArchiveHarness.open(options);
    await first.archive.setTarget(anyFolder);
    const { recoveryKey } = await first.archive.prepare();
    const second = await ArchiveHarness.open(options);
    assert.equal((await second.archive.enable()).archiveEnabled, true);
    await second.archive.recover(recoveryKey ?? "");
  });

  it("enable_withTheTargetGone_leavesThePreparedKeyToBeShownAgain", async () => {
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ target });
    await harness.archive.setTarget(anyFolder);
    await harness.archive.prepare();
    target.fail();
    await assert.rejects(harness.archive.enable(), /can't be reached/);
    assert.equal(harness.archive.status().archiveEnabled, false);
    target.mend();
    assert.notEqual((await harness.archive.prepare()).recoveryKey, undefined);
  });

  it("keyring_thatIsLocked_refusesPrepareInItsOwnWords", async () => {
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    harness.keyring.failure = new SecretStoreFailure("The keyring is locked.");
    await assert.rejects(harness.archive.prepare(), /keyring is locked/);
  });

  it("recoveryKey_isKeptNowhere", async () => {
    const home = temporaryHome();
    const target = new MemoryTarget();
    const harness = await ArchiveHarness.open({ home, target });
    const recoveryKey = await harness.turnOn(anyFolder);
    await harness.finish(1, frames(0, 3));
    await harness.archive.settled();
    const secret = recoveryKey.slice("ostrel-vault_AGE-SECRET-KEY-1".length);
    const everything = [...filesIn(home).values(), ...target.objects.values()];
    for (const text of [...harness.keyring.secrets.values(), ...everything.map(String)]) {
      assert.ok(!text.toLowerCase().includes(secret.toLowerCase()));
    }
    const vaultKey = [...harness.keyring.secrets.values()][0] ?? "";
    for (const bytes of everything) assert.ok(!bytes.includes(vaultKey));
  });
});

describe("recovery", () => {
  it("recover_onAnotherMachine_exportsWhatTheFirstHasStored", async () => {
    const { target, recoveryKey, harness } = await archiveWithTwoChunks();
    const other = await ArchiveHarness.open({ target });
    await other.archive.setTarget(anyFolder);
    const status = await other.archive.recover(`  ${recoveryKey}\n`);
    assert.equal(status.archiveEnabled, true);
    assert.equal(status.archiveVaultId, harness.archive.settings.archiveVaultId);
    const exported = await other.export(join(other.home, "out"), day, day);
    assert.deepEqual([exported.state, exported.exported], ["done", 3]);
    // And goes on with a list of its own.
    await other.finish(1, frames(20, 2));
    assert.equal((await other.archive.estimate({ fromDate: day, toDate: day })).clips, 4);
    assert.equal((await harness.archive.estimate({ fromDate: day, toDate: day })).clips, 4);
  });

  it("recover_withAnotherVaultsKey_changesNothing", async () => {
    const { harness } = await archiveWithTwoChunks();
    const stranger = await ArchiveHarness.open({ target: new MemoryTarget() });
    const foreignKey = await stranger.turnOn(anyFolder);
    const before = harness.archive.status();
    await assert.rejects(harness.archive.recover(foreignKey), /does not open the archive/);
    await assert.rejects(harness.archive.recover(`${foreignKey.slice(0, -1)}?`), RecoveryKeyError);
    assert.deepEqual(harness.archive.status(), before);
  });

  it("recover_whereNothingLies_saysSo", async () => {
    const { recoveryKey } = await archiveWithTwoChunks();
    const harness = await ArchiveHarness.open({ target: new MemoryTarget() });
    await harness.archive.setTarget(anyFolder);
    await assert.rejects(harness.archive.recover(recoveryKey), /There is no archive/);
  });

  it("recover_beforeFootageOfAnotherVaultIsStored_isRefused", async () => {
    const { target, recoveryKey } = await archiveWithTwoChunks();
    const harness = await ArchiveHarness.open({ target });
    await harness.turnOn(anyFolder);
    target.onCall = (call) => assert.doesNotMatch(call, /^put .*clips/);
    await harness.finish(1, frames(0, 2));
    await harness.archive.settled();
    await assert.rejects(harness.archive.recover(recoveryKey), /still waits for the archive/);
  });
});
