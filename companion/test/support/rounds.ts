import { Random } from "./random.ts";

/** `OSTREL_TEST_SEED=<seed> npm test -- <file>` repeats the one case whose failure told the seed. */
export const chosenSeed =
  process.env["OSTREL_TEST_SEED"] === undefined
    ? undefined
    : Number(process.env["OSTREL_TEST_SEED"]);

/** How often a test with random numbers is repeated; `OSTREL_TEST_ROUNDS` says otherwise. */
export function rounds(usual: number): number {
  return Number(process.env["OSTREL_TEST_ROUNDS"] ?? usual);
}

/** The seeds of so many rounds, or the chosen one. */
export function seeds(usual: number): number[] {
  if (chosenSeed !== undefined) return [chosenSeed];
  return Array.from({ length: rounds(usual) }, (_, index) => index + 1);
}

/** Runs the task with random numbers of the seed; what it throws tells the seed. */
export async function withSeed<Result>(
  seed: number,
  task: (random: Random) => Promise<Result> | Result,
): Promise<Result> {
  try {
    return await task(new Random(seed));
  } catch (error) {
    const why = error instanceof Error ? error.stack : String(error);
    throw new Error(`OSTREL_TEST_SEED=${seed}: ${why}`, { cause: error });
  }
}
