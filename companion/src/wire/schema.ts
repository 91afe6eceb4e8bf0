import * as z from "zod/mini";
import english from "zod/v4/locales/en.js";

z.config(english());

const least = -(2n ** 63n);
const greatest = 2n ** 63n - 1n;

/** A signed 64-bit integer: a number where that is exact, else a bigint. */
export const int64 = z.union(
  [z.int(), z.bigint().check(z.gte(least), z.lte(greatest))],
  "Invalid input: expected a signed 64-bit integer",
);

/** A double. An integer beyond 2^53 is rounded, as every reader of doubles does. */
export const double = z.union(
  [z.number(), z.pipe(z.bigint(), z.transform(Number))],
  "Invalid input: expected a number",
);

/** A key that may be absent or null; both mean the same. */
export function optional<Schema extends z.ZodMiniType>(schema: Schema) {
  return z.pipe(
    z.nullish(schema),
    z.transform((value) => value ?? undefined),
  );
}

/** A key that may be absent or null and then takes the default. */
export function defaulting<Value>(schema: z.ZodMiniType<Value>, value: Value) {
  return z.pipe(
    z.nullish(schema),
    z.transform((given) => given ?? value),
  );
}

/** A value doesn't fit its schema: the first fault, and where it lies ("frames.3.displayId"). */
export class InvalidRecord extends Error {
  override readonly name = "InvalidRecord";
  readonly path: string;

  constructor(path: string, message: string) {
    super(message);
    this.path = path;
  }
}

/** The value as the schema's record; throws InvalidRecord with a path that begins at `prefix`. */
export function parseRecord<Output>(
  schema: z.ZodMiniType<Output>,
  value: unknown,
  prefix: readonly string[] = [],
): Output {
  const result = schema.safeParse(value);
  if (result.success) return result.data;
  const issue = result.error.issues[0];
  const path = [...prefix, ...(issue?.path ?? []).map(String)].join(".");
  throw new InvalidRecord(path, issue?.message ?? "Invalid input");
}
