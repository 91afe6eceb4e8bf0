import { once } from "node:events";
import type { Server } from "node:http";
import type { Clock } from "../base/clock.ts";
import { errorCode } from "../base/failure.ts";

const pollMs = 200;

async function tryListen(server: Server, port: number): Promise<void> {
  server.listen({ port, host: "127.0.0.1", exclusive: true });
  await once(server, "listening");
}

/** Listens on the loopback address. False when the port is still taken after the time. */
export async function listen(
  server: Server,
  port: number,
  clock: Clock,
  patienceMs: number,
): Promise<boolean> {
  for (let waitedMs = 0; ; waitedMs += pollMs) {
    try {
      await tryListen(server, port);
      return true;
    } catch (error) {
      if (errorCode(error) !== "EADDRINUSE") throw error;
      if (waitedMs >= patienceMs) return false;
    }
    await new Promise<void>((resolve) => clock.after(pollMs, resolve));
  }
}
