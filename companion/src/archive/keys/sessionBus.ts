import { access } from "node:fs/promises";
import { join } from "node:path";

/**
 * Where the bus of the user's session listens; undefined where there is none. Libraries would then
 * have a bus of their own started, for which they wait up to a minute, and find nothing on it.
 */
export async function sessionBusAddress(
  environment: Readonly<Record<string, string | undefined>>,
): Promise<string | undefined> {
  const address = environment["DBUS_SESSION_BUS_ADDRESS"] ?? "";
  if (/^(autolaunch|disabled):/.test(address)) return undefined;
  if (address !== "") return address;
  const runtimeFolder = environment["XDG_RUNTIME_DIR"] ?? "";
  if (runtimeFolder === "") return undefined;
  const socket = join(runtimeFolder, "bus");
  try {
    await access(socket);
    return `unix:path=${socket}`;
  } catch {
    return undefined;
  }
}
