interface Words {
  readonly what: string;
  /** What the user can do about it; whatever failed is tried again by itself. */
  readonly advice: string;
}

const makeRoom = "Delete some files on that disk to make room";
const allow = "Allow yourself to write there";
const clear = "Move away what stands there, or choose another folder";

/** The errors that a user can do something about. */
const words = new Map<string, Words>([
  ["ENOSPC", { what: "The disk is full", advice: makeRoom }],
  ["EDQUOT", { what: "The disk quota is used up", advice: makeRoom }],
  ["EACCES", { what: "Permission denied", advice: allow }],
  ["EPERM", { what: "Permission denied", advice: allow }],
  ["EROFS", { what: "The file system is read-only", advice: "Mount it for writing" }],
  ["ENOENT", { what: "No such file or folder", advice: "Make its folder, or choose another" }],
  ["ENOTDIR", { what: "A part of the path is not a folder", advice: clear }],
  ["EISDIR", { what: "A folder stands where a file should be", advice: clear }],
  ["EEXIST", { what: "Something else stands in its place", advice: clear }],
  ["ELOOP", { what: "The symbolic links lead in a circle", advice: clear }],
  ["EMFILE", { what: "Too many files are open", advice: "Start the application again" }],
  ["ENFILE", { what: "Too many files are open", advice: "Close some programs" }],
  ["EIO", { what: "The disk could not be read or written", advice: "Check the disk" }],
]);

export function errorCode(error: unknown): string | undefined {
  if (!(error instanceof Error) || !("code" in error)) return undefined;
  return typeof error.code === "string" ? error.code : undefined;
}

/** Whether the system, not our own code, refused something. */
export function isSystemError(error: unknown): error is Error {
  return /^E[A-Z0-9]+$/.test(errorCode(error) ?? "");
}

/** Whether the disk keeps back what may well be whole: damage is what is there and makes no sense. */
export function isRefusal(error: unknown): error is Error {
  const isGone = ["ENOENT", "ENOTDIR", "EISDIR"].includes(errorCode(error) ?? "");
  return isSystemError(error) && !isGone;
}

/**
 * What was tried, what happened, where known to which path, and what the user can do about it: plain
 * sentences without the last full stop.
 */
export function describeFailure(tried: string, error: unknown): string {
  const known = words.get(errorCode(error) ?? "");
  if (known === undefined) {
    return `${tried}: ${error instanceof Error ? error.message : String(error)}`;
  }
  const path = error instanceof Error && "path" in error ? `: ${String(error.path)}` : "";
  return `${tried}: ${known.what}${path}. ${known.advice}`;
}

export function isDiskFull(error: unknown): boolean {
  const code = errorCode(error);
  return code === "ENOSPC" || code === "EDQUOT";
}

/** An error like the system's own. */
export function systemFailure(code: string, path: string): Error {
  return Object.assign(new Error(`${code}: ${words.get(code)?.what ?? "failed"}`), { code, path });
}
