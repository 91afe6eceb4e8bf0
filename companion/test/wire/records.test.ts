import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import type * as z from "zod/mini";
import { TargetRecord } from "../../src/archive/targets/targetRecord.ts";
import { parseJson } from "../../src/json/value.ts";
import { writeJson } from "../../src/json/writer.ts";
import * as records from "../../src/wire/records.ts";

interface Fixture {
  readonly record: string;
  readonly cases: readonly {
    readonly name: string;
    readonly json: string;
    readonly valid: boolean;
    readonly encoded?: string;
  }[];
}

const schemas: Readonly<Record<string, z.ZodMiniType>> = {
  ObserverStatus: records.ObserverStatus,
  CapturedFramePayload: records.CapturedFramePayload,
  ArchiveStatus: records.ArchiveStatus,
  ArchiveTarget: TargetRecord,
  ArchiveExportStatus: records.ArchiveExportStatus,
  ArchiveExportEstimate: records.ArchiveExportEstimate,
  ForgetReport: records.ForgetReport,
  ObserverSettings: records.ObserverSettings,
};

/** The text that the record encodes to, or undefined where it is refused. */
function reencoded(schema: z.ZodMiniType, json: string): string | undefined {
  try {
    return writeJson(schema.parse(parseJson(json)));
  } catch {
    return undefined;
  }
}

const folder = join(TEST_FIXTURES_PATH, "wire");
const fixtures = readdirSync(folder).map(
  (name) => JSON.parse(readFileSync(join(folder, name), "utf8")) as Fixture,
);

it("wireFixtures_everyRecord_hasOne", () => {
  assert.deepEqual(fixtures.map((fixture) => fixture.record).sort(), Object.keys(schemas).sort());
});

for (const fixture of fixtures) {
  describe(fixture.record, () => {
    const schema = schemas[fixture.record];
    for (const { name, json, valid, encoded } of fixture.cases) {
      it(name, () => {
        assert.ok(schema);
        assert.equal(valid, encoded !== undefined);
        assert.equal(reencoded(schema, json), encoded);
      });
    }
  });
}
