import assert from "node:assert/strict";
import {
  existsSync,
  mkdirSync,
  readdirSync,
  readFileSync,
  renameSync,
  writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { UnreadableFolders, WrittenFolders } from "../../src/forget/writtenFolders.ts";
import { realDisk } from "../../src/spool/disk.ts";
import { at, open, seconds } from "../support/forgetHarness.ts";
import type { ObserverHarness } from "../support/observerHarness.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** One recording with the folders as they are set, and one with others. */
async function recordInTwoPlaces() {
  const { harness, outputDirectory } = await open({ settings: { saveRawInputs: true } });
  const later = join(harness.home, "later");
  await record(harness, [0, 20]);
  harness.observer.replaceSettings({
    ...harness.settings.record,
    outputDirectory: join(later, "journal"),
    rawInputDirectory: join(later, "raw"),
  });
  await record(harness, [40, 60]);
  const former = [outputDirectory, join(harness.home, "ostrel", "model-input")] as const;
  const present = [join(later, "journal"), join(later, "raw")] as const;
  return { harness, former, present };
}

async function record(harness: ObserverHarness, times: readonly number[]): Promise<void> {
  await harness.observer.start();
  await harness.send(times.map(at));
  await harness.observer.stop();
}

function pages(folder: string): string {
  return readdirSync(folder)
    .map((name) => readFileSync(join(folder, name), "utf8"))
    .join();
}

describe("folders that the settings named before", () => {
  it("linesAndInputs_inFormerFolders_goToo", async () => {
    const { harness, former, present } = await recordInTwoPlaces();
    const report = await harness.observer.forget(seconds(20, 41));
    assert.deepEqual([report.journalLines, report.rawInputs], [2, 2]);
    assert.equal(report.notSearched, undefined);
    assert.match(pages(former[0]), /at 0 /);
    assert.doesNotMatch(pages(former[0]), /at 20 /);
    assert.match(pages(present[0]), /at 60 /);
    assert.doesNotMatch(pages(present[0]), /at 40 /);
    for (const raw of [former[1], present[1]]) assert.equal(readdirSync(raw).length, 1);
  });

  it("formerFolders_areKnownAfterARestart", async () => {
    const { harness, former, present } = await recordInTwoPlaces();
    await harness.observer.close();
    const settings = { outputDirectory: present[0], rawInputDirectory: present[1] };
    const { harness: second } = await open({ home: harness.home, settings });
    assert.equal((await second.observer.forget(seconds(0, 100))).journalLines, 6);
    assert.deepEqual(readdirSync(former[0]), []);
  });

  it("formerFolder_thatIsNotThere_isToldAndTheOthersAreSearched", async () => {
    const { harness, former, present } = await recordInTwoPlaces();
    renameSync(former[0], `${former[0]}-unplugged`);
    const report = await harness.observer.forget(seconds(0, 100));
    assert.match(report.notSearched ?? "", /This folder was written to before .*\/journal\. /);
    assert.equal(report.rawInputs, 4);
    assert.deepEqual(readdirSync(present[0]), []);
    assert.equal(existsSync(former[0]), false, "it is not made");
    renameSync(`${former[0]}-unplugged`, former[0]);
    const again = await harness.observer.forget(seconds(0, 100));
    assert.equal(again.notSearched, undefined);
    assert.deepEqual(readdirSync(former[0]), []);
  });

  it("folder_ofAVersionThatNotedNothing_isNotedAtTheStart", async () => {
    const { harness, former } = await recordInTwoPlaces();
    await harness.observer.close();
    const list = join(harness.layout.root, "folders.json");
    writeFileSync(list, '{"version":1,"journals":[],"rawInputs":[]}');
    const { harness: second } = await open({ home: harness.home });
    assert.deepEqual(JSON.parse(readFileSync(list, "utf8")).journals, [former[0]]);
    await second.observer.close();
  });

  it("present_folder_whereNothingWasWrittenYet_isNoReasonToComplain", async () => {
    const { harness } = await open();
    assert.equal((await harness.observer.forget(seconds(0, 9))).notSearched, undefined);
  });
});

describe("list of written folders", () => {
  it("folder_writtenInSeveralWays_isOne", async () => {
    const path = join(temporaryHome(), "folders.json");
    const folders = await WrittenFolders.open(realDisk, path);
    await Promise.all(["/a/b", "/a/b/", "/a/c/../b"].map((one) => folders.note("journals", one)));
    assert.deepEqual(JSON.parse(readFileSync(path, "utf8")).journals, ["/a/b"]);
  });

  it("folder_thatIsKnown_costsNoWrite", async () => {
    const home = temporaryHome();
    const folders = await WrittenFolders.open(realDisk, join(home, "folders.json"));
    await folders.note("journals", "/a");
    writeFileSync(join(home, "folders.json"), "changed");
    await folders.note("journals", "/a");
    assert.equal(readFileSync(join(home, "folders.json"), "utf8"), "changed");
  });

  it("list_thatCantBeRead_isNotPassedOver", async () => {
    const home = temporaryHome();
    mkdirSync(join(home, "observer"));
    writeFileSync(join(home, "observer", "folders.json"), "{");
    await assert.rejects(open({ home }), UnreadableFolders);
  });
});
