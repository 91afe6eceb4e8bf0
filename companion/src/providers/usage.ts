import { dirname } from "node:path";
import * as z from "zod/mini";
import type { Clock } from "../base/clock.ts";
import { errorCode, isSystemError } from "../base/failure.ts";
import { isoLocalTime } from "../base/localTime.ts";
import { Mutex } from "../base/mutex.ts";
import { parseJson } from "../json/value.ts";
import { writeJson } from "../json/writer.ts";
import type { AnalysisLimits } from "../settings/ownSettings.ts";
import type { Disk } from "../spool/disk.ts";
import { parseRecord } from "../wire/schema.ts";
import { ProviderFailure } from "./failures.ts";

const count = z.int().check(z.nonnegative());
const Month = z.object({ requests: count, tokens: count });
type Month = z.infer<typeof Month>;
const Usage = z.object({ version: z.literal(1), months: z.record(z.string(), Month) });
type Usage = z.infer<typeof Usage>;

/** Older months are forgotten; a clock that was set wrong for a while must find its month again. */
const mostMonths = 24;

/** A request that was counted: the tokens that it has set aside, and the month that it is in. */
export interface Reservation {
  readonly month: string;
  readonly tokens: number;
}

/**
 * What models have been asked for, by calendar month, in `usage.json`. A request is counted, on the
 * disk, before it is sent, and with the most tokens that it can take; what it didn't take is given
 * back afterwards. So the user's limits hold whatever ends the program at whatever moment.
 */
export class UsageLedger {
  readonly #disk: Disk;
  readonly #path: string;
  readonly #clock: Clock;
  /** Each reads what the one before has written: two at a time would count as one. */
  readonly #turns = new Mutex();
  #usage: Usage | undefined;

  constructor(disk: Disk, path: string, clock: Clock) {
    this.#disk = disk;
    this.#path = path;
    this.#clock = clock;
  }

  /**
   * Counts one request. Throws ProviderFailure (`ceiling`) where the limits don't allow it, and the
   * error of the disk; then nothing may be sent.
   */
  reserve(limits: AnalysisLimits, tokens: number): Promise<Reservation> {
    return this.#turns.run(() => this.#reserve(limits, tokens));
  }

  /** Gives back the tokens that were not taken. */
  settle(reservation: Reservation, taken: number): Promise<void> {
    return this.#turns.run(() => this.#settle(reservation, taken));
  }

  /** Gives back all of it: the request was never sent. */
  release(reservation: Reservation): Promise<void> {
    return this.#turns.run(() => this.#release(reservation));
  }

  async #reserve(limits: AnalysisLimits, tokens: number): Promise<Reservation> {
    const usage = await this.#read();
    const month = isoLocalTime(this.#clock.nowMs()).slice(0, 7);
    const { requests, tokens: taken } = usage.months[month] ?? { requests: 0, tokens: 0 };
    const { monthlyRequests, monthlyTokens } = limits;
    if (monthlyRequests !== undefined && requests >= monthlyRequests) {
      throw ceiling(`${monthlyRequests} requests`, month);
    }
    if (monthlyTokens !== undefined && taken + tokens > monthlyTokens) {
      throw ceiling(`${monthlyTokens} tokens`, month);
    }
    await this.#write(usage, month, { requests: requests + 1, tokens: taken + tokens });
    return { month, tokens };
  }

  async #settle({ month, tokens }: Reservation, taken: number): Promise<void> {
    const usage = await this.#read();
    const { requests, tokens: counted } = usage.months[month] ?? { requests: 1, tokens };
    const rest = Math.max(0, counted - tokens + Math.max(0, Math.ceil(taken)));
    await this.#write(usage, month, { requests, tokens: rest });
  }

  async #release({ month, tokens }: Reservation): Promise<void> {
    const usage = await this.#read();
    const { requests, tokens: counted } = usage.months[month] ?? { requests: 1, tokens };
    const rest = { requests: Math.max(0, requests - 1), tokens: Math.max(0, counted - tokens) };
    await this.#write(usage, month, rest);
  }

  async #read(): Promise<Usage> {
    this.#usage ??= await this.#readFile();
    return this.#usage;
  }

  async #readFile(): Promise<Usage> {
    try {
      return parseRecord(Usage, parseJson(await this.#disk.readText(this.#path)));
    } catch (error) {
      if (errorCode(error) === "ENOENT") return { version: 1, months: {} };
      if (isSystemError(error)) throw error;
      // Counting anew would let a limit be passed; whoever damaged the file can remove it.
      const message = `The count of this month's requests is damaged, so no model is asked. Remove ${this.#path} to count anew.`;
      throw new ProviderFailure("ceiling", message, { cause: error });
    }
  }

  async #write(usage: Usage, month: string, counted: Month): Promise<void> {
    const months = Object.entries({ ...usage.months, [month]: counted })
      .sort(([a], [b]) => (a < b ? -1 : 1))
      .slice(-mostMonths);
    const next: Usage = { version: 1, months: Object.fromEntries(months) };
    // Somebody may have deleted the folder under us.
    await this.#disk.makeFolder(dirname(this.#path));
    await this.#disk.replaceFile(this.#path, writeJson(next));
    this.#usage = next;
  }
}

function ceiling(limit: string, month: string): ProviderFailure {
  const [year = 0, number = 0] = month.split("-").map(Number);
  const next = number === 12 ? `${year + 1}-01` : `${year}-${String(number + 1).padStart(2, "0")}`;
  return new ProviderFailure(
    "ceiling",
    `Your monthly limit of ${limit} is reached. The frames are kept, and the analysis goes on on ${next}-01, or when you raise the limit.`,
  );
}
