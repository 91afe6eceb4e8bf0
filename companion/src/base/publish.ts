import { constants } from "node:fs";
import { errorCode } from "./failure.ts";
import type { FileSystem } from "./fileSystem.ts";

/** What file systems without links answer: FAT, and some of other machines. */
const noLinks = new Set(["EPERM", "ENOTSUP", "EOPNOTSUPP", "ENOSYS", "EMLINK"]);

/**
 * Gives a finished file its name, unless something stands there already: false. Only an empty file
 * gives way, because one is what a kill leaves where there are no links. The caller syncs.
 */
export async function publish(fs: FileSystem, from: string, to: string): Promise<boolean> {
  try {
    await fs.link(from, to);
  } catch (error) {
    const code = errorCode(error);
    if (code !== "EEXIST" && !noLinks.has(code ?? "")) throw error;
    if (!(await reserve(fs, to))) return false;
    await fs.rename(from, to);
    return true;
  }
  await fs.unlink(from);
  return true;
}

/** Makes sure that what stands there is an empty file; false when it is something else. */
async function reserve(fs: FileSystem, path: string): Promise<boolean> {
  const { O_WRONLY, O_CREAT, O_EXCL } = constants;
  try {
    await (await fs.open(path, O_WRONLY | O_CREAT | O_EXCL, 0o600)).close();
    return true;
  } catch (error) {
    if (errorCode(error) !== "EEXIST") throw error;
    const stat = await fs.stat(path, { bigint: true });
    return stat.isFile() && stat.size === 0n;
  }
}
