import { isAbsolute, join } from "node:path";

/** "~" and "~/..." in the home folder; every other path as it stands. */
export function expandedPath(path: string, home: string): string {
  if (path === "~") return home;
  return path.startsWith("~/") ? join(home, path.slice(2)) : path;
}

/** The expanded path; throws where it would depend on the folder that the program was started in. */
export function expandedAbsolutePath(path: string, home: string): string {
  const expanded = expandedPath(path, home);
  if (isAbsolute(expanded)) return expanded;
  throw new Error(`"${path}" is not an absolute path`);
}
