import assert from "node:assert/strict";
import { chmodSync, mkdtempSync, readFileSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { describe, it } from "node:test";
import {
  builtInApplications,
  builtInTitlePatterns,
  builtInWindowClasses,
} from "../../src/privacy/builtInPrivacyRules.ts";
import { PrivacyFile, PrivacyUnreadable } from "../../src/privacy/privacyFile.ts";
import type { PrivacyRules } from "../../src/privacy/privacyRules.ts";
import { contextText, pageOf, windowOf } from "../support/frames.ts";

declare const TEST_FIXTURES_PATH: string;

function privacyPath(text?: string): string {
  const path = join(mkdtempSync(join(tmpdir(), "privacy-")), "privacy.json");
  if (text !== undefined) writeFileSync(path, text);
  return path;
}

function rules(text: string): Promise<PrivacyRules> {
  return new PrivacyFile(privacyPath(text)).rules();
}

async function excludes(file: PrivacyFile, text: string): Promise<boolean> {
  return (await file.rules()).excludes(text);
}

async function refusal(text: string): Promise<string> {
  try {
    await rules(text);
  } catch (error) {
    assert.ok(error instanceof PrivacyUnreadable);
    return error.message;
  }
  return "not refused";
}

describe("privacy rules", () => {
  it("builtIn_areThoseThatTheApplicationWritesIntoTheFile", () => {
    const file = JSON.parse(readFileSync(join(TEST_FIXTURES_PATH, "privacy.json"), "utf8"));
    assert.deepEqual(file, {
      excludedApplications: builtInApplications,
      excludedWindowClasses: builtInWindowClasses,
      excludedTitlePatterns: builtInTitlePatterns,
      excludedSites: [],
    });
  });

  it("noFile_theBuiltInRulesHold", async () => {
    const builtIn = await new PrivacyFile(privacyPath()).rules();
    assert.ok(await builtIn.excludes(windowOf("KeePassXC", "Passwords")));
    assert.ok(await builtIn.excludes("KeePassXC"), "the name alone, as it comes without consent");
    assert.ok(
      await builtIn.excludes(windowOf("Firefox", "Bank — Mozilla Firefox Private Browsing")),
    );
    assert.ok(await builtIn.excludes(windowOf("Edge", "New - [InPrivate] - Microsoft Edge")));
    assert.ok(!(await builtIn.excludes(windowOf("Editor", "notes.txt"))));
    assert.ok(!(await builtIn.excludes(undefined)));
  });

  it("listThatIsLeftOut_isTheBuiltInOne", async () => {
    const some = await rules('{"excludedWindowClasses": [], "excludedTitlePatterns": []}');
    assert.ok(await some.excludes("KeePassXC"));
    assert.ok(!(await some.excludes("Seahorse")), "of the empty list");
    assert.ok(
      !(await some.excludes(windowOf("Firefox", "Bank — Mozilla Firefox Private Browsing"))),
    );
  });

  it("application_isComparedWithoutCaseWithIdItsLastPartAndClass", async () => {
    const some = await rules(
      '{"excludedApplications": ["org.example.Diary"], "excludedWindowClasses": ["Proton Pass"]}',
    );
    for (const app of ["diary", "Diary", "org.example.Diary", "proton pass", "Proton Pass Beta"]) {
      assert.ok(await some.excludes(windowOf(app, "x")), app);
    }
    assert.ok(!(await some.excludes(windowOf("Diaryland", "x"))), "a part is a whole word");
    assert.ok(
      !(await some.excludes(windowOf("Travel Diary", "x"))),
      "an id's last part is a whole name",
    );
  });

  it("site_meansItsSubdomainsAndAllOfItsPages", async () => {
    const some = await rules(
      '{"excludedSites": ["https://www.Bank.example/accounts", "*.clinic.example:8443", "müller.example"]}',
    );
    for (const site of ["bank.example", "www.bank.example", "my.bank.example", "clinic.example"]) {
      assert.ok(await some.excludes(pageOf(site, "x")), site);
    }
    assert.ok(
      await some.excludes(pageOf("xn--mller-kva.example", "x")),
      "written in the other way",
    );
    assert.ok(!(await some.excludes(pageOf("notbank.example", "x"))));
    assert.ok(!(await some.excludes(pageOf("example", "x"))));
  });

  it("pageTitle_countsAsTheWindowsDoes", async () => {
    const some = await rules('{"excludedTitlePatterns": ["^Payslip"]}');
    assert.ok(
      await some.excludes(contextText({ app: "Chrome", page: "Payslip of May", window: "x" })),
    );
    assert.ok(
      !(await some.excludes(contextText({ app: "Chrome", page: "My Payslip", window: "x" }))),
    );
  });

  it("changedFile_isReadAgain", async () => {
    const path = privacyPath('{"excludedWindowClasses": ["One"]}');
    const file = new PrivacyFile(path);
    assert.ok(await excludes(file, "One"));
    writeFileSync(path, '{"excludedWindowClasses": ["Another"]}');
    assert.ok(await excludes(file, "Another"));
    assert.ok(!(await excludes(file, "One")));
  });

  it("damagedFile_saysWhatIsWrongAndWhatToDo", async () => {
    assert.match(await refusal("{"), /is not JSON .*Mend the file, or delete it/);
    assert.match(await refusal("[]"), /there is no JSON object/);
    assert.match(await refusal('{"excludedSites": "x"}'), /excludedSites is no list/);
    assert.match(await refusal('{"excludedSites": ["x", 1]}'), /entry 2 of excludedSites/);
    assert.match(
      await refusal('{"excludedApplications": [""]}'),
      /entry 1 of excludedApplications/,
    );
    assert.match(
      await refusal('{"excludedTitlePatterns": ["("]}'),
      /entry 1 of excludedTitlePatterns is no regular expression/,
    );
  });

  it("fileThatMayNotBeRead_isNoFileThatIsMissing", async () => {
    const path = privacyPath("{}");
    chmodSync(path, 0o000);
    // Whoever may read everything sees a file without rules of its own.
    const isAllowed = process.getuid?.() === 0;
    const outcome = await new PrivacyFile(path).rules().catch((error: unknown) => error);
    assert.equal(outcome instanceof PrivacyUnreadable, !isAllowed);
  });
});
