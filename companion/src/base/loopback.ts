import { lookup } from "node:dns";
import type { LookupFunction } from "node:net";

/** Names of this machine; others may be given its address, but may be given another just as well. */
export function isLoopback(hostname: string): boolean {
  // URL writes every form of an IPv4 address as four numbers.
  return hostname === "localhost" || hostname === "[::1]" || /^127(\.[0-9]+){3}$/.test(hostname);
}

/** Whatever the hosts file says of the name: what may go openly stays on this machine. */
export const loopbackLookup: LookupFunction = (hostname, options, callback) => {
  lookup(hostname, { all: true }, (error, addresses) => {
    const own = (addresses ?? [])
      .filter(({ address }) => address === "::1" || address.startsWith("127."))
      // Older versions of Node try one address only, and most local servers listen on this kind.
      .sort((a, b) => a.family - b.family);
    const [first] = own;
    if (error !== null || first === undefined) {
      callback(error ?? new Error(`"${hostname}" is not this machine`), "", 4);
    } else if (options.all === true) {
      (callback as unknown as (error: null, all: typeof own) => void)(null, own);
    } else {
      callback(null, first.address, first.family);
    }
  });
};
