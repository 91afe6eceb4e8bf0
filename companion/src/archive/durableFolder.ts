import { dirname } from "node:path";
import type { Disk } from "../spool/disk.ts";

/**
 * Makes a folder whose name outlives a power failure: a folder is as durable as its own name and
 * those above it. The home folder, three steps up, is there for good.
 */
export async function makeDurable(disk: Disk, folder: string): Promise<void> {
  await disk.makeFolder(folder);
  const above = [dirname(folder), dirname(dirname(folder)), dirname(dirname(dirname(folder)))];
  for (const path of [folder, ...above]) await disk.syncFolder(path);
}
