/** The words of the errors that a user can do something about. */
const words = new Map<string, string>([
  ["ENOSPC", "The disk is full"],
  ["EDQUOT", "The disk quota is used up"],
  ["EACCES", "Permission denied"],
  ["EPERM", "Permission denied"],
  ["EROFS", "The file system is read-only"],
  ["ENOENT", "No such file or folder"],
  ["ENOTDIR", "A part of the path is not a folder"],
  ["EISDIR", "A folder stands where a file should be"],
  ["EEXIST", "Something else stands in its place"],
  ["EIO", "The disk could not be read or written"],
]);

export function errorCode(error: unknown): string | undefined {
  if (!(error instanceof Error) || !("code" in error)) return undefined;
  return typeof error.code === "string" ? error.code : undefined;
}

/** Whether the system, not our own code, refused something. */
export function isSystemError(error: unknown): error is Error {
  return /^E[A-Z0-9]+$/.test(errorCode(error) ?? "");
}

/** One plain sentence that says what was tried, what happened and, where known, to which path. */
export function describeFailure(tried: string, error: unknown): string {
  const code = errorCode(error);
  const known = code === undefined ? undefined : words.get(code);
  const what = known ?? (error instanceof Error ? error.message : String(error));
  const path = error instanceof Error && "path" in error ? `: ${String(error.path)}` : "";
  return known === undefined ? `${tried}: ${what}` : `${tried}: ${what}${path}`;
}

export function isDiskFull(error: unknown): boolean {
  const code = errorCode(error);
  return code === "ENOSPC" || code === "EDQUOT";
}

/** An error like the system's own. */
export function systemFailure(code: string, path: string): Error {
  return Object.assign(new Error(`${code}: ${words.get(code) ?? "failed"}`), { code, path });
}
