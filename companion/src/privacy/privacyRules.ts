import { parseContextText } from "../analysis/contextText.ts";
import { TitleSearch } from "./titleSearch.ts";

/** Which applications, windows and sites are nobody's business. */
export interface PrivacyLists {
  /** Desktop-file ids. */
  readonly applications: readonly string[];
  readonly windowClasses: readonly string[];
  readonly titles: readonly RegExp[];
  /** A host, or a host and the beginning of a path; the host's subdomains are meant, too. */
  readonly sites: readonly string[];
}

/** The most titles of which is remembered what was found. */
const mostRemembered = 2_000;

/**
 * The user's privacy rules as far as a frame's context text lets them be applied. The text knows
 * applications by the names that people see, and of pages the host: so a name is compared with ids and
 * classes, and a rule about a part of a site holds for all of it.
 */
export class PrivacyRules {
  readonly #titles: TitleSearch;
  readonly #names: ReadonlySet<string>;
  readonly #classes: readonly string[];
  readonly #hosts: readonly string[];
  readonly #known = new Map<string, Promise<boolean>>();

  constructor(lists: PrivacyLists) {
    this.#titles = new TitleSearch(lists.titles);
    const classes = lists.windowClasses.map((name) => name.toLowerCase());
    const ids = lists.applications.map((id) => id.toLowerCase());
    this.#names = new Set([...classes, ...ids, ...ids.map((id) => id.split(".").at(-1) ?? "")]);
    this.#classes = classes;
    this.#hosts = lists.sites.map(hostOfSite).filter((host) => host !== "");
  }

  /** Whether the text says that something was in front that is nobody's business. */
  async excludes(text: string | undefined): Promise<boolean> {
    if (text === undefined) return false;
    const known = this.#known.get(text);
    if (known !== undefined) return known;
    const judging = this.#judge(text);
    if (this.#known.size >= mostRemembered) this.#known.clear();
    this.#known.set(text, judging);
    // What failed is no answer: the next one who asks has it tried again.
    judging.catch(() => this.#known.delete(text));
    return judging;
  }

  /** What the user should know of the rules, in a sentence. */
  get complaint(): string | undefined {
    const [first] = this.#titles.givenUp;
    if (first === undefined) return undefined;
    return `A title could not be searched for entry ${first} of excludedTitlePatterns in your privacy rules within a second. Such titles count as private. Write the entry more simply.`;
  }

  async #judge(text: string): Promise<boolean> {
    const facts = parseContextText(text);
    if (facts === undefined) return false;
    const { app, website, page, window } = facts;
    if (app !== undefined && this.#isName(app.toLowerCase())) return true;
    if (website !== undefined && this.#isSite(website)) return true;
    return (await this.#titles.isFound(window ?? "")) || this.#titles.isFound(page ?? "");
  }

  /** A class may also be a name's beginning or end, as it may be a part of a window's class. */
  #isName(app: string): boolean {
    if (this.#names.has(app)) return true;
    return this.#classes.some((name) => app.startsWith(`${name} `) || app.endsWith(` ${name}`));
  }

  #isSite(website: string): boolean {
    const host = hostOfSite(website);
    return this.#hosts.some((site) => host === site || host.endsWith(`.${site}`));
  }
}

/** The host of a site as it is compared: without scheme, port, path and a leading "www.". */
function hostOfSite(site: string): string {
  const [authority = ""] = site
    .trim()
    .toLowerCase()
    .replace(/^[a-z][a-z0-9+.-]*:\/\//, "")
    .split(/[/?#]/, 1);
  return asciiHost(authority.replace(/^\*\./, ""))
    .replace(/^www\./, "")
    .replace(/\.$/, "");
}

/** Names with letters of other scripts may be written in two ways. */
function asciiHost(authority: string): string {
  try {
    return new URL(`https://${authority}`).hostname;
  } catch {
    return authority.replace(/:[0-9]*$/, "");
  }
}
