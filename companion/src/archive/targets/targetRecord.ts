import * as z from "zod/mini";
import { isLoopback } from "../../base/loopback.ts";
import { defaulting } from "../../wire/schema.ts";

/** Stands where a secret is not told; given as a secret, it leaves the one that is kept alone. */
export const redacted = "<redacted>";

const lossless = defaulting(z.boolean(), false);

/** A part of a path in the archive: no empty segment, and none that leads upwards. */
const prefix = defaulting(
  z
    .string()
    .check(
      z.regex(
        /^(?:[A-Za-z0-9_-][A-Za-z0-9._-]*(?:\/[A-Za-z0-9_-][A-Za-z0-9._-]*)*)?$/,
        "Invalid input: expected names of letters, digits, dots, dashes and underscores, with slashes between them",
      ),
    ),
  "",
);

const noTarget = z.object({ kind: z.literal("none"), lossless });

const folder = z.object({
  kind: z.literal("folder"),
  lossless,
  path: z.string().check(z.regex(/^\/|^~\//, "Invalid input: expected an absolute path")),
});

const s3 = z.object({
  kind: z.literal("s3"),
  lossless,
  endpoint: z
    .string()
    .check(
      z.refine(isSafeEndpoint, "Invalid input: expected https://<host>, and nothing behind it"),
    ),
  region: defaulting(z.string().check(z.regex(/^[a-z0-9-]{1,64}$/)), "us-east-1"),
  bucket: z.string().check(z.regex(/^[a-z0-9][a-z0-9.-]{1,61}[a-z0-9]$/)),
  prefix,
  /** The bucket as the first part of the path, not of the host's name. */
  pathStyle: defaulting(z.boolean(), false),
  accessKeyId: z.string().check(z.regex(/^[!-~]{1,256}$/)),
  secretAccessKey: z.string().check(z.regex(/^[!-~]{1,256}$/)),
});

const rclone = z.object({
  kind: z.literal("rclone"),
  lossless,
  /** "<remote>:<path>" of the user's own configuration; never one made up on the spot. */
  remote: z
    .string()
    .check(
      z.regex(
        /^[A-Za-z0-9_][A-Za-z0-9_ -]*:(?!-)[^\n\r\0]*$/,
        'Invalid input: expected "<remote>:<path>" of a remote in your rclone configuration',
      ),
    ),
});

/** Where the archive is to lie, and whether pictures go there bit for bit. */
export const TargetRecord = z.discriminatedUnion("kind", [noTarget, folder, s3, rclone]);
export type TargetRecord = z.infer<typeof TargetRecord>;
export type S3Record = z.infer<typeof s3>;

/** Encrypted as the footage is, it stays off the wires that others can read; so do signatures. */
function isSafeEndpoint(text: string): boolean {
  try {
    const { protocol, hostname, pathname, search, hash, username, password } = new URL(text);
    const isBare = pathname === "/" && `${search}${hash}${username}${password}` === "";
    const isSafe = protocol === "https:" || (protocol === "http:" && isLoopback(hostname));
    return isBare && isSafe;
  } catch {
    return false;
  }
}

/** The record as it may be told to others. */
export function told(record: TargetRecord): TargetRecord {
  return record.kind === "s3" ? { ...record, secretAccessKey: redacted } : record;
}

/** The given record, with the kept secret where the given one is not told. */
export function withKeptSecret(given: TargetRecord, kept: TargetRecord): TargetRecord {
  if (given.kind !== "s3" || given.secretAccessKey !== redacted || kept.kind !== "s3") return given;
  // A secret is for the place that it was given for, and for no other.
  const isSame = given.endpoint === kept.endpoint && given.accessKeyId === kept.accessKeyId;
  return isSame ? { ...given, secretAccessKey: kept.secretAccessKey } : given;
}

/** The same text for the same place, whoever is let in there. */
export function placeOf(record: TargetRecord): string {
  switch (record.kind) {
    case "none":
      return "none";
    case "folder":
      return `folder ${record.path}`;
    case "s3":
      return `s3 ${record.endpoint} ${record.bucket} ${record.prefix}`;
    case "rclone":
      return `rclone ${record.remote}`;
  }
}
