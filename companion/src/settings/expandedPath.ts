import { join } from "node:path";

/** "~" and "~/..." in the home folder; every other path as it stands. */
export function expandedPath(path: string, home: string): string {
  if (path === "~") return home;
  return path.startsWith("~/") ? join(home, path.slice(2)) : path;
}
