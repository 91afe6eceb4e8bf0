import { bracketLabel } from "../journal/bulletText.ts";
import type { ContextFacts } from "./contextText.ts";
import { nameMatches, type PlaceKind, type Rules, type SiteRule, type TitleForm } from "./rules.ts";
import { type CleanTitle, cleanTitle } from "./titles.ts";

/** Where the user was, as far as a context text says. */
export interface Place {
  /** The text for the square brackets; never empty, without brackets. */
  readonly workspace: string;
  readonly kind: PlaceKind;
  /** The application's name, when the text had one. */
  readonly app: string | undefined;
  /** Whether the workspace came from a website. */
  readonly isSite: boolean;
  readonly titleForm: TitleForm | undefined;
  readonly title: CleanTitle;
}

type Resolved = Omit<Place, "title">;

const UNKNOWN_WORKSPACE = "Unknown";
const TITLE_SEPARATOR = /\s[-–—|·]\s/u;

/** A host in lower case without scheme, port, path, leading "www." and trailing dot. */
export function normaliseHost(website: string): string {
  return website
    .toLowerCase()
    .replace(/^[a-z][a-z0-9+.-]*:\/\//, "")
    .replace(/[/?#].*$/, "")
    .replace(/:\d+$/, "")
    .replace(/^www\./, "")
    .replace(/\.$/, "");
}

function findSite(rules: Rules, host: string): SiteRule | undefined {
  return rules.sites.find((rule) => host === rule.host || host.endsWith(`.${rule.host}`));
}

/** A host that serves several programs is told apart by the name nearest to the title's end. */
function siteWorkspace(site: SiteRule, rawTitle: string): string {
  const names = [site.workspace, ...(site.variants ?? [])];
  for (const part of rawTitle.split(TITLE_SEPARATOR).reverse()) {
    const found = names.find((name) => name.toLowerCase() === part.toLowerCase());
    if (found !== undefined) {
      return found;
    }
  }
  return site.workspace;
}

function resolve(facts: ContextFacts, rules: Rules): Resolved {
  const app = facts.app;
  const host = facts.website === undefined ? "" : normaliseHost(facts.website);
  const site = host === "" ? undefined : findSite(rules, host);
  if (site !== undefined) {
    const workspace = siteWorkspace(site, facts.page ?? facts.window ?? "");
    return { workspace, kind: site.kind, app, isSite: true, titleForm: site.titleForm };
  }
  const rule = rules.applications.find((entry) => nameMatches(entry.names, app ?? ""));
  if (rule !== undefined) {
    const { workspace, kind, titleForm } = rule;
    return { workspace, kind, app, isSite: false, titleForm };
  }
  const bareHost = bracketLabel(host);
  if (bareHost !== "") {
    return { workspace: bareHost, kind: "page", app, isSite: true, titleForm: undefined };
  }
  const shown = bracketLabel(app ?? "");
  const kind =
    facts.page !== undefined || nameMatches(rules.browsers, shown) ? "page" : "application";
  return {
    workspace: shown === "" ? UNKNOWN_WORKSPACE : shown,
    kind,
    app,
    isSite: false,
    titleForm: undefined,
  };
}

/** The names that mean nothing at the end of a title here: known programs, this one, this site. */
function ownNames(resolved: Resolved, rules: Rules): string[] {
  const own = [resolved.workspace, resolved.app ?? ""].map((name) => name.toLowerCase());
  return [...own.filter((name) => name !== ""), ...rules.titleSuffixes];
}

/** Finds the workspace and the title of a context text's facts by the tables. */
export function describePlace(facts: ContextFacts, rules: Rules): Place {
  const resolved = resolve(facts, rules);
  const names = ownNames(resolved, rules);
  const title = cleanTitle(facts.page ?? facts.window ?? "", resolved.kind, names);
  if (title.unsaved || facts.page === undefined || facts.window === undefined) {
    return { ...resolved, title };
  }
  // A page's editor may mark the change in the window's title alone.
  const unsaved = cleanTitle(facts.window, resolved.kind, names).unsaved;
  return { ...resolved, title: { text: title.text, unsaved } };
}

/** Whether nothing is to be noted of this application. */
export function isIgnored(facts: ContextFacts, rules: Rules): boolean {
  return facts.app !== undefined && nameMatches(rules.ignoredApplications, facts.app);
}
