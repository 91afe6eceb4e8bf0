/**
 * Writes a value as compact JSON, keys in their own order; a bigint is printed in full and a key
 * whose value is undefined is left out. Throws TypeError for what JSON can't say.
 */
export function writeJson(value: unknown): string {
  if (typeof value === "bigint") return value.toString();
  if (value === null || typeof value === "boolean" || typeof value === "string") {
    return JSON.stringify(value);
  }
  if (typeof value === "number" && Number.isFinite(value)) return JSON.stringify(value);
  if (Array.isArray(value)) return `[${value.map(writeJson).join(",")}]`;
  if (typeof value === "object") {
    const members = Object.entries(value)
      .filter(([, member]) => member !== undefined)
      .map(([key, member]) => `${JSON.stringify(key)}:${writeJson(member)}`);
    return `{${members.join(",")}}`;
  }
  throw new TypeError(`a ${typeof value} has no JSON form`);
}
