import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { describe, it, type TestContext } from "node:test";
import {
  type ArchiveTarget,
  ObjectConflict,
  ObjectMissing,
} from "../../src/archive/targets/target.ts";
import { contents, forever, listed, uploadOf, vault } from "./uploads.ts";

/** Somewhere to archive to, as a test finds it: empty. */
export interface Place {
  readonly target: ArchiveTarget;
  /** Puts other bytes under the name, as nobody should. */
  exchange(name: string, bytes: Buffer): void | Promise<void>;
}

/** What holds for every kind of target. */
export function describeTarget(
  kind: string,
  makePlace: (test: TestContext) => Place | Promise<Place>,
): void {
  describe(`target: ${kind}`, () => {
    it("object_stored_isThereAsItWas", async (test) => {
      const { target } = await makePlace(test);
      for (const size of [1, 65_536, 3_000_001]) {
        const bytes = randomBytes(size);
        await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
        await target.put(uploadOf(`clips/2026-11-21/${size}.age`, bytes), forever);
        assert.ok((await contents(target, `clips/2026-11-21/${size}.age`)).equals(bytes));
      }
    });

    it("sameObject_storedAgain_isConfirmed", async (test) => {
      const { target } = await makePlace(test);
      const upload = uploadOf("vault.age", randomBytes(1000));
      await target.put(upload, forever);
      await target.put(upload, forever);
      assert.deepEqual(await listed(target, vault), { [`${vault}/vault.age`]: 1000 });
    });

    it("otherObject_underTheSameName_isRefusedAndTheFirstStays", async (test) => {
      const { target } = await makePlace(test);
      const first = randomBytes(1000);
      await target.put(uploadOf("vault.age", first), forever);
      for (const size of [1000, 10]) {
        const other = uploadOf("vault.age", randomBytes(size));
        await assert.rejects(target.put(other, forever), ObjectConflict);
      }
      assert.ok((await contents(target, "vault.age")).equals(first));
    });

    it("objects_areListedByFolder", async (test) => {
      const { target } = await makePlace(test);
      for (const name of ["vault.age", "clips/2026-11-20/a.age", "clips/2026-11-21/b.age"]) {
        await target.put(uploadOf(name, Buffer.from(name)), forever);
      }
      assert.deepEqual(await listed(target, `${vault}/clips/2026-11-21`), {
        [`${vault}/clips/2026-11-21/b.age`]: 22,
      });
      assert.deepEqual(Object.keys(await listed(target, `${vault}/clips`)).length, 2);
      assert.deepEqual(await listed(target, `${vault}/manifest`), {});
      assert.deepEqual(await target.topFolders(forever), [vault]);
    });

    it("objectThatIsNotThere_isMissing", async (test) => {
      const { target } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      await assert.rejects(contents(target, "clips/none.age"), ObjectMissing);
    });

    it("object_removed_isThereNoMoreAndNotMissedTheSecondTime", async (test) => {
      const { target } = await makePlace(test);
      for (const name of ["vault.age", "clips/2026-11-21/a.age", "clips/2026-11-21/b.age"]) {
        await target.put(uploadOf(name, Buffer.from(name)), forever);
      }
      for (let turn = 0; turn < 2; turn += 1) {
        await target.remove(`${vault}/clips/2026-11-21/a.age`, forever);
        const left = Object.keys(await listed(target, `${vault}/clips`));
        assert.deepEqual(left, [`${vault}/clips/2026-11-21/b.age`]);
      }
      await target.remove(`${vault}/clips/2000-01-01/none.age`, forever);
    });

    it("abort_endsWhatIsUnderWay", async (test) => {
      const { target } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      const controller = new AbortController();
      controller.abort(new Error("enough"));
      const upload = uploadOf("clips/x.age", randomBytes(1000));
      await assert.rejects(target.put(upload, controller.signal), /enough/);
      assert.deepEqual(await listed(target, `${vault}/clips`), {});
    });

    it("object_altered_isReadAsItIs", async (test) => {
      const { target, exchange } = await makePlace(test);
      await target.put(uploadOf("vault.age", Buffer.from("v")), forever);
      await exchange("vault.age", Buffer.from("w"));
      assert.equal(String(await contents(target, "vault.age")), "w");
    });
  });
}
