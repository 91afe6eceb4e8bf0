import * as z from "zod/mini";

/** The bodies of the archive's requests. */

function isDay(text: string): boolean {
  const match = /^([0-9]{4})-([0-9]{2})-([0-9]{2})$/.exec(text);
  if (match === null) return false;
  const [year, month, day] = match.slice(1).map(Number) as [number, number, number];
  const date = new Date(Date.UTC(year, month - 1, day));
  return date.getUTCMonth() === month - 1 && date.getUTCDate() === day;
}

const day = z.string().check(z.refine(isDay, "Invalid input: expected a day, yyyy-mm-dd"));

/** Days as the application writes them, both inclusive. */
export interface DayRange {
  readonly fromDate: string;
  readonly toDate: string;
}

const inOrder = z.refine<DayRange>(({ fromDate, toDate }) => fromDate <= toDate, {
  error: "Invalid input: the first day is after the last one",
  path: ["fromDate"],
});

export const RecoverRequest = z.object({ recoveryKey: z.string() });

export const EstimateRequest = z.object({ fromDate: day, toDate: day }).check(inOrder);

export const ExportRequest = z
  .object({
    destinationDirectory: z
      .string()
      .check(z.regex(/^\/|^~(?:\/|$)/, "Invalid input: expected an absolute path")),
    fromDate: day,
    toDate: day,
  })
  .check(inOrder);
