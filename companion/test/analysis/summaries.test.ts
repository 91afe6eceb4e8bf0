import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { builtInRules } from "../../src/analysis/builtInRules.ts";
import { parseContextText } from "../../src/analysis/contextText.ts";
import { describePlace } from "../../src/analysis/places.ts";
import { bulletText, durationText } from "../../src/analysis/summaries.ts";
import { contextText, pageOf, windowOf } from "../support/observedFrames.ts";

function bulletFor(text: string): string {
  const facts = parseContextText(text);
  assert.ok(facts);
  const place = describePlace(facts, builtInRules);
  return bulletText(place, place.title.unsaved);
}

const table: readonly (readonly [string, string, string])[] = [
  [
    "gitHubPullRequest_namesNumberTitleAuthorAndRepository",
    pageOf("github.com", "Fix crash by jane · Pull Request #12 · acme/widgets"),
    '[GitHub] Viewed: pull request #12 "Fix crash" by jane in acme/widgets',
  ],
  [
    "gitHubPullRequestWithBrowserSuffix_isTheSame",
    pageOf("github.com", "Fix by hand by jane · Pull Request #12 · acme/widgets - Google Chrome"),
    '[GitHub] Viewed: pull request #12 "Fix by hand" by jane in acme/widgets',
  ],
  [
    "gitHubIssue_namesNumber",
    pageOf("github.com", "Crash on start · Issue #7 · acme/widgets · GitHub"),
    '[GitHub] Viewed: issue #7 "Crash on start" in acme/widgets',
  ],
  [
    "gitHubCommit_namesHash",
    pageOf("github.com", "Mend the gate · acme/widgets@1a2b3c4"),
    '[GitHub] Viewed: commit 1a2b3c4 "Mend the gate" in acme/widgets',
  ],
  ["gitHubStartPage_hasNoTitle", pageOf("github.com", "GitHub"), "[GitHub] Open: in front"],
  [
    "gitLabMergeRequest_namesNumber",
    pageOf("gitlab.com", "Fix (!12) · Merge requests · acme / widgets · GitLab"),
    '[GitLab] Viewed: merge request !12 "Fix" in acme / widgets',
  ],
  [
    "gmailInbox_countIsStripped_accountStays",
    pageOf("mail.google.com", "Inbox (3) - jane@example.org - Gmail"),
    '[Gmail] Viewed: "Inbox" of jane@example.org',
  ],
  [
    "googleDocs_document",
    pageOf("docs.google.com", "Quarterly plan - Google Docs"),
    '[Google Docs] Viewed: "Quarterly plan"',
  ],
  [
    "googleSheets_onTheDocsHost_isItsOwnWorkspace",
    pageOf("docs.google.com", "Budget - Google Sheets - Google Chrome"),
    '[Google Sheets] Viewed: "Budget"',
  ],
  [
    "editorWithAPathForATitle_namesFileAndFolder",
    windowOf("Mousepad", "*/home/jane/report/meeting notes.txt - Mousepad"),
    "[Mousepad] Edited: meeting notes.txt in report, unsaved changes",
  ],
  [
    "editorWithAPathInTheHomeFolder_namesFileAndFolder",
    windowOf("Mousepad", "~/notes.txt - Mousepad"),
    "[Mousepad] Viewed: notes.txt in ~",
  ],
  [
    "meeting_isACall",
    pageOf("meet.google.com", "Meet - Weekly sync"),
    '[Google Meet] Call: "Weekly sync" in front',
  ],
  [
    "meetingSitesStartPage_isNoCall",
    pageOf("meet.google.com", "Google Meet"),
    "[Google Meet] Open: in front",
  ],
  [
    "meetingSitesAdvertisement_isNoCall",
    pageOf("meet.google.com", "Google Meet: Online Video Calls, Meetings"),
    '[Google Meet] Viewed: "Google Meet: Online Video Calls, Meetings"',
  ],
  [
    "meetingInATitleElsewhere_isNoCall",
    pageOf("news.example.org", "Meet - Weekly sync"),
    '[news.example.org] Viewed: "Meet - Weekly sync"',
  ],
  [
    "slackChannel_isNamed",
    windowOf("Slack", "* general (Channel) - Acme - 2 new items - Slack"),
    '[Slack] Viewed: channel "general" in Acme',
  ],
  [
    "slackDirectMessage_namesThePersonOfTheTitle",
    windowOf("Slack", "jane (DM) - Acme - Slack"),
    '[Slack] Viewed: direct message with "jane" in Acme',
  ],
  [
    "thunderbirdComposeWindow_isNamedSo",
    windowOf("Thunderbird", "Write: Offer - Thunderbird"),
    '[Thunderbird] Viewed: compose window "Offer"',
  ],
  [
    "codeEditorUnsaved_isEdited",
    windowOf("Code", "● queue.ts - observer - Visual Studio Code"),
    "[VS Code] Edited: queue.ts in observer, unsaved changes",
  ],
  [
    "codeEditorSaved_isViewed",
    windowOf("Visual Studio Code", "queue.ts - observer - Visual Studio Code"),
    "[VS Code] Viewed: queue.ts in observer",
  ],
  [
    "codeEditorTitleOfThreeParts_isQuotedAsItStands",
    windowOf("Code", "a - b - observer - Visual Studio Code"),
    '[VS Code] Viewed: "a - b - observer"',
  ],
  [
    "jetBrainsEditor_hasTheProjectFirst",
    windowOf("PyCharm Community Edition", "observer – queue.py"),
    "[PyCharm] Viewed: queue.py in observer",
  ],
  [
    "mousepadWithStar_isEdited",
    windowOf("Mousepad", "*Untitled 1 - Mousepad"),
    '[Mousepad] Edited: "Untitled 1", unsaved changes',
  ],
  [
    "mousepadWithoutStar_isViewed",
    windowOf("Mousepad", "Untitled 1 - Mousepad"),
    '[Mousepad] Viewed: "Untitled 1"',
  ],
  [
    "unknownEditorWithStar_isEdited",
    windowOf("Inkscape", "*drawing.svg - Inkscape"),
    '[Inkscape] Edited: "drawing.svg", unsaved changes',
  ],
  [
    "unknownChatWithStar_isNotEdited",
    windowOf("Mattermost", "* Town Square - Acme - Mattermost"),
    '[Mattermost] Viewed: "Town Square - Acme"',
  ],
  ["unknownPlayerWithDot_isNotEdited", windowOf("Rhythm", "● A song"), '[Rhythm] Viewed: "A song"'],
  [
    "unknownEditorWithStarBehindTheFile_isEdited",
    windowOf("Writer", "report.odt* — Writer"),
    '[Writer] Edited: "report.odt", unsaved changes',
  ],
  [
    "unknownEditorWithTheWordModified_isEdited",
    windowOf("Ghostwriter", "notes.md [modified] - Ghostwriter"),
    '[Ghostwriter] Edited: "notes.md", unsaved changes',
  ],
  [
    "browserWindowWithStar_isNotEdited",
    windowOf("Firefox ESR", "* general | Acme — Mozilla Firefox"),
    '[Firefox ESR] Viewed: "general | Acme"',
  ],
  [
    "pageWithStarOnAnUnknownHost_isNotEdited",
    pageOf("chat.example.org", "● Town hall"),
    '[chat.example.org] Viewed: "Town hall"',
  ],
  [
    "webEditorWithMark_isEdited",
    pageOf("vscode.dev", "● a.md - notes - Visual Studio Code"),
    "[VS Code] Edited: a.md in notes, unsaved changes",
  ],
  [
    "webEditorWithMarkInTheWindowAlone_isEdited",
    contextText({
      app: "Chromium",
      website: "vscode.dev",
      page: "a.md - notes",
      window: "● a.md - notes - Chromium",
    }),
    "[VS Code] Edited: a.md in notes, unsaved changes",
  ],
  [
    "terminal_showsItsTitle",
    windowOf("XTerm", "notes — bash"),
    '[Terminal] Viewed: "notes — bash"',
  ],
  [
    "terminalTitledByItsName_isInFront",
    windowOf("XTerm", "xterm"),
    "[Terminal] Open: XTerm in front",
  ],
  [
    "modifiedFileInVim_isEdited",
    windowOf("Konsole", "queue.ts + (~/observer) - VIM"),
    "[Terminal] Edited: queue.ts in ~/observer, unsaved changes",
  ],
  [
    "savedFileInVim_isViewed",
    windowOf("Konsole", "queue.ts (~/observer) - NVIM — Konsole"),
    "[Terminal] Viewed: queue.ts in ~/observer",
  ],
  [
    "readOnlyFileInVim_isViewed",
    windowOf("Konsole", "queue.ts = (~/observer) - VIM"),
    "[Terminal] Viewed: queue.ts in ~/observer",
  ],
  [
    "graphicalVim_isReadTheSameWay",
    windowOf("GVim", "queue.ts + (~/observer) - GVIM"),
    "[Vim] Edited: queue.ts in ~/observer, unsaved changes",
  ],
  ["nameAlone_isInFront", "Calculator", "[Calculator] Open: in front"],
  ["nameAloneOfAKnownProgram_keepsTheName", "Konsole", "[Terminal] Open: Konsole in front"],
  [
    "hostWithoutTitle_isInFront",
    contextText({ app: "Chromium", website: "example.org" }),
    "[example.org] Open: in front",
  ],
  [
    "subdomain_belongsToItsSite",
    pageOf("gist.github.com", "notes.md"),
    '[GitHub] Viewed: "notes.md"',
  ],
  [
    "hostThatOnlyEndsLikeASite_isItsOwn",
    pageOf("notgithub.com", "notes.md"),
    '[notgithub.com] Viewed: "notes.md"',
  ],
  [
    "websiteAsAddress_isTheHost",
    pageOf("https://www.Example.org:8443/path?q", "Home"),
    '[example.org] Viewed: "Home"',
  ],
  ["hostOfBrackets_hasNone", pageOf("[::1]", "Local"), '[::1] Viewed: "Local"'],
  [
    "applicationNameWithBrackets_cannotEndTheLabel",
    windowOf("Evil] [GitHub", "x"),
    '[Evil GitHub] Viewed: "x"',
  ],
  ["applicationNameOfBracketsOnly_isUnknown", "[]", "[Unknown] Open: [] in front"],
  [
    "applicationNameOfTenThousandCharacters_isCut",
    "n".repeat(10_000),
    `[${"n".repeat(59)}…] Open: ${"n".repeat(139)}… in front`,
  ],
  [
    "websiteOfAKnownApplication_isThatApplication",
    contextText({ app: "Code", website: "vscode-app", window: "a.ts - b - Visual Studio Code" }),
    "[VS Code] Viewed: a.ts in b",
  ],
  [
    "applicationThatOnlyContainsAKnownName_isItsOwn",
    windowOf("Profiles", "Jane"),
    '[Profiles] Viewed: "Jane"',
  ],
  [
    "pageTitle_winsOverTheWindows",
    contextText({ app: "Chromium", website: "example.org", page: "Page", window: "Window" }),
    '[example.org] Viewed: "Page"',
  ],
  [
    "contextWithoutApplication_usesTheHost",
    contextText({ website: "example.org", page: "Page" }),
    '[example.org] Viewed: "Page"',
  ],
];

describe("bulletText", () => {
  for (const [name, text, expected] of table) {
    it(name, () => {
      assert.equal(bulletFor(text), expected);
    });
  }
});

describe("durationText", () => {
  it("durations_areRoundedDown", () => {
    assert.equal(durationText(10_999), "10 s");
    assert.equal(durationText(119_999), "119 s");
    assert.equal(durationText(120_000), "2 min");
    assert.equal(durationText(7_199_999), "119 min");
    assert.equal(durationText(7_500_000), "2 h 5 min");
  });
});
