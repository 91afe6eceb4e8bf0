import * as z from "zod/mini";
import { bracketLabel, plainLine } from "../journal/bulletText.ts";
import { parseRecord } from "../wire/schema.ts";

/**
 * What kind of place a workspace is. It decides what a mark in the title means: a leading star is an
 * unsaved change in an editor and an unread message in a chat.
 *
 * - application: nothing more is known
 * - page: a web page
 * - editor: edits files, and marks unsaved ones in the title
 * - terminal: the title is whatever runs in it
 * - mail, chat: titles carry unread counts
 * - call: a meeting; being there with a meeting's title is a call
 */
export const placeKinds = [
  "application",
  "page",
  "editor",
  "terminal",
  "mail",
  "chat",
  "call",
] as const;
export type PlaceKind = (typeof placeKinds)[number];

/** How an editor composes its title, once marks and its own name are gone. */
export type TitleForm = "file - project" | "project - file";

export interface SiteRule {
  /** Lower-case host; its subdomains are meant too. */
  readonly host: string;
  readonly workspace: string;
  readonly kind: PlaceKind;
  /** Titles that end with one of these names are a workspace of that name (one host, many programs). */
  readonly variants?: readonly string[];
  readonly titleForm?: TitleForm;
}

export interface ApplicationRule {
  /** Lower-case names as desktop entries show them; a trailing "*" stands for any ending. */
  readonly names: readonly string[];
  readonly workspace: string;
  readonly kind: PlaceKind;
  readonly titleForm?: TitleForm;
}

/** The tables of the built-in analyser. The first rule that fits is taken. */
export interface Rules {
  readonly sites: readonly SiteRule[];
  readonly applications: readonly ApplicationRule[];
  /** Lower-case application names (a trailing "*" as above) whose windows show web pages. */
  readonly browsers: readonly string[];
  /** Lower-case names that programs append to their titles after a dash. */
  readonly titleSuffixes: readonly string[];
  /** Lower-case application names of which nothing is noted. */
  readonly ignoredApplications: readonly string[];
}

const name = z.string().check(z.trim(), z.minLength(1), z.maxLength(200), z.toLowerCase());
const host = z
  .string()
  .check(z.trim(), z.toLowerCase(), z.maxLength(253), z.regex(/^[^\s/:[\]]+$/, "not a host name"));
const workspace = z.pipe(
  z.string().check(z.maxLength(200)),
  z.pipe(
    z.transform((text: string) => bracketLabel(text)),
    z.string().check(z.minLength(1, "no visible text")),
  ),
);
const kind = z._default(z.enum(placeKinds), "application");

const userRulesSchema = z.strictObject({
  sites: z._default(
    z
      .array(z.strictObject({ host, workspace, kind: z._default(z.enum(placeKinds), "page") }))
      .check(z.maxLength(1000)),
    [],
  ),
  applications: z._default(
    z.array(z.strictObject({ name, workspace, kind })).check(z.maxLength(1000)),
    [],
  ),
  titleSuffixes: z._default(z.array(name).check(z.maxLength(1000)), []),
  ignoredApplications: z._default(z.array(name).check(z.maxLength(1000)), []),
});

/** Rules that the user adds to the built-in ones. */
export type UserRules = z.infer<typeof userRulesSchema>;

/**
 * Validates a parsed rules file:
 * `{"sites": [{"host", "workspace", "kind"?}], "applications": [{"name", "workspace", "kind"?}],
 * "titleSuffixes": [...], "ignoredApplications": [...]}`, every key optional.
 * Throws InvalidRecord with the path of the first wrong field ("rules.sites.0.host"); the caller goes
 * on with the built-in rules and shows path and message.
 */
export function parseUserRules(json: unknown): UserRules {
  return parseRecord(userRulesSchema, json, ["rules"]);
}

/** The base rules with the user's in front of them, so that the user's decide where both fit. */
export function mergeRules(base: Rules, user: UserRules): Rules {
  return {
    sites: [...user.sites, ...base.sites],
    applications: [
      ...user.applications.map((rule) => ({
        names: [rule.name],
        workspace: rule.workspace,
        kind: rule.kind,
      })),
      ...base.applications,
    ],
    browsers: base.browsers,
    titleSuffixes: [...user.titleSuffixes, ...base.titleSuffixes],
    ignoredApplications: [...user.ignoredApplications, ...base.ignoredApplications],
  };
}

/** Whether an application's name is in a list of lower-case names with optional trailing "*". */
export function nameMatches(names: readonly string[], app: string): boolean {
  const lower = plainLine(app).toLowerCase();
  return names.some((entry) =>
    entry.endsWith("*") ? lower.startsWith(entry.slice(0, -1)) : lower === entry,
  );
}
