import { bulletLine } from "../journal/bulletText.ts";
import type { Place } from "./places.ts";

interface Pattern {
  /** Workspaces it holds for. */
  readonly workspaces: readonly string[];
  readonly title: RegExp;
  /** Composes the summary of the groups, in order; an absent group is an empty text. */
  readonly summary: (...groups: readonly string[]) => string;
}

const inRepository = (repository = ""): string => (repository === "" ? "" : ` in ${repository}`);

/** What some programs' titles literally say. The groups are quoted from the title, nothing is added. */
const patterns: readonly Pattern[] = [
  {
    workspaces: ["GitHub"],
    title: /^(.+) by (\S+) · Pull Request #(\d+)(?: · (\S+))?$/u,
    summary: (title, author, number, repository) =>
      `pull request #${number} "${title}" by ${author}${inRepository(repository)}`,
  },
  {
    workspaces: ["GitHub"],
    title: /^(.+) · Issue #(\d+)(?: · (\S+))?$/u,
    summary: (title, number, repository) =>
      `issue #${number} "${title}"${inRepository(repository)}`,
  },
  {
    workspaces: ["GitHub"],
    title: /^(.+) · ([^\s@]+)@([0-9a-f]{7,40})$/u,
    summary: (title, repository, commit) =>
      `commit ${commit} "${title}"${inRepository(repository)}`,
  },
  {
    workspaces: ["GitLab"],
    title: /^(.+) \(!(\d+)\) · Merge requests · (.+)$/iu,
    summary: (title, number, repository) =>
      `merge request !${number} "${title}"${inRepository(repository)}`,
  },
  {
    workspaces: ["GitLab"],
    title: /^(.+) \(#(\d+)\) · (?:Issues|Work items) · (.+)$/iu,
    summary: (title, number, repository) =>
      `issue #${number} "${title}"${inRepository(repository)}`,
  },
  {
    workspaces: ["Gmail"],
    title: /^(.+) - (\S+@\S+)$/,
    summary: (title, account) => `"${title}" of ${account}`,
  },
  {
    workspaces: ["Thunderbird"],
    title: /^Write: (.+)$/,
    summary: (subject) => `compose window "${subject}"`,
  },
  {
    workspaces: ["Slack"],
    title: /^(.+) \(Channel\) - (.+)$/,
    summary: (channel, team) => `channel "${channel}" in ${team}`,
  },
  {
    workspaces: ["Slack"],
    title: /^(.+) \(DM\) - (.+)$/,
    summary: (person, team) => `direct message with "${person}" in ${team}`,
  },
];

// Vim's own title: file, flags ("+" modified, "=" read-only, "-" not modifiable), folder, name.
// "/home/jane/report/notes.txt", "~/notes.txt"
const FILE_PATH = /^(?=[~/])(?:[^/]*\/)*?([^/]+)\/([^/]+)$/;
const VIM_TITLE = /^(.+?)(?: (=?\+|=|-))? \((.+)\) - N?VIM$/i;
const MEETING_PREFIX = /^(?:Google )?Meet\s[-–—]\s/i;
const LANDING_PAGE = /^(?:google meet|zoom|jitsi meet|whereby)\b/i;

function matched(place: Place): string | undefined {
  for (const pattern of patterns) {
    const match = pattern.workspaces.includes(place.workspace)
      ? pattern.title.exec(place.title.text)
      : null;
    if (match !== null) {
      return pattern.summary(...match.slice(1).map((group) => group ?? ""));
    }
  }
  return undefined;
}

function fileInProject(place: Place): string | undefined {
  const parts = place.title.text.split(/\s[-–—]\s/u);
  const [first, second] = parts;
  if (place.titleForm === undefined || parts.length !== 2 || !first || !second) {
    return undefined;
  }
  return place.titleForm === "file - project" ? `${first} in ${second}` : `${second} in ${first}`;
}

function viewedOrEdited(summary: string, unsaved: boolean): string {
  return unsaved ? `Edited: ${summary}, unsaved changes` : `Viewed: ${summary}`;
}

/** Some editors title their window with the whole path; its last two names say what a reader looks for. */
function fileByPath(place: Place): string | undefined {
  const isDocument = place.kind === "editor" || place.kind === "application";
  const [, folder, file] = (isDocument && FILE_PATH.exec(place.title.text)) || [];
  return folder === undefined || file === undefined ? undefined : `${file} in ${folder}`;
}

function fileInVim(place: Place): string | undefined {
  // In Vim's own window its name is already stripped from the title; in a terminal it is the proof.
  const title = place.workspace === "Vim" ? `${place.title.text} - VIM` : place.title.text;
  const match = place.kind === "terminal" ? VIM_TITLE.exec(title) : null;
  const [, file, flags, folder] = match ?? [];
  return file === undefined
    ? undefined
    : viewedOrEdited(`${file} in ${folder}`, flags?.endsWith("+") ?? false);
}

function callOrView(title: string): string {
  const meeting = title.replace(MEETING_PREFIX, "");
  // The service's own start page is no meeting.
  return meeting === title && LANDING_PAGE.test(title)
    ? `Viewed: "${title}"`
    : `Call: "${meeting}" in front`;
}

function action(place: Place, unsaved: boolean): string {
  const title = place.title.text;
  if (title === "") {
    const alias = !place.isSite && place.app !== undefined && place.app !== place.workspace;
    return alias ? `Open: ${place.app} in front` : "Open: in front";
  }
  if (place.kind === "call") {
    return callOrView(title);
  }
  return (
    fileInVim(place) ??
    viewedOrEdited(
      matched(place) ?? fileByPath(place) ?? fileInProject(place) ?? `"${title}"`,
      unsaved,
    )
  );
}

/**
 * The bullet for a place, "[Workspace] Action: summary". It claims only what the title says: "Edited"
 * needs an unsaved mark (`unsaved`: seen at any time in the segment), "Call" a meeting site; the rest
 * was viewed, or, without a title, open in front.
 */
export function bulletText(place: Place, unsaved: boolean): string {
  return bulletLine(`[${place.workspace}] ${action(place, unsaved)}`);
}

/** "40 s", "12 min", "2 h 5 min": rounded down, because more would be a claim. */
export function durationText(ms: number): string {
  const seconds = Math.floor(ms / 1000);
  if (seconds < 120) {
    return `${seconds} s`;
  }
  const minutes = Math.floor(seconds / 60);
  return minutes < 120 ? `${minutes} min` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}
