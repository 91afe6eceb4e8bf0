import type { StoredObject } from "./target.ts";

export interface ListingPage {
  readonly objects: readonly StoredObject[];
  readonly folders: readonly string[];
  /** Where the next page begins; undefined on the last one. */
  readonly next: string | undefined;
}

const entities = new Map([
  ["amp", "&"],
  ["lt", "<"],
  ["gt", ">"],
  ["quot", '"'],
  ["apos", "'"],
]);

function unescaped(text: string): string {
  return text.replace(/&(#x?[0-9A-Fa-f]+|[a-z]+);/g, (whole, name: string) => {
    if (name.startsWith("#x")) return String.fromCodePoint(Number.parseInt(name.slice(2), 16));
    if (name.startsWith("#")) return String.fromCodePoint(Number(name.slice(1)));
    return entities.get(name) ?? whole;
  });
}

function contentOf(xml: string, element: string): string | undefined {
  const match = new RegExp(`<${element}(?: [^>]*)?>([^<]*)</${element}>`).exec(xml);
  return match?.[1] === undefined ? undefined : unescaped(match[1]);
}

function elementsOf(xml: string, element: string): string[] {
  const pattern = new RegExp(`<${element}>(.*?)</${element}>`, "gs");
  return [...xml.matchAll(pattern)].map((match) => match[1] ?? "");
}

/** One page of "ListObjectsV2"; throws where it is none. */
export function parseListing(xml: string): ListingPage {
  if (!/<ListBucketResult[ >]/.test(xml) || !xml.trimEnd().endsWith("</ListBucketResult>")) {
    throw new Error("the answer is no listing");
  }
  const objects = elementsOf(xml, "Contents").map((entry) => {
    const [name, bytes] = [contentOf(entry, "Key"), Number(contentOf(entry, "Size"))];
    if (name === undefined || !Number.isSafeInteger(bytes)) throw new Error("an entry has no name");
    return { name, bytes };
  });
  const folders = elementsOf(xml, "CommonPrefixes").map(
    (entry) => contentOf(entry, "Prefix") ?? "",
  );
  const isTruncated = contentOf(xml, "IsTruncated") === "true";
  const next = isTruncated ? contentOf(xml, "NextContinuationToken") : undefined;
  if (isTruncated && next === undefined) throw new Error("the listing has no continuation");
  return { objects, folders, next };
}

/** The code of an error answer; undefined where it has none. */
export function errorCodeOf(xml: string): string | undefined {
  return contentOf(xml, "Code");
}
