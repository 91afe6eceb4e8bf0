import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { randomBytes } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { decrypt, decryptBytes, encrypt, encryptBytes } from "../../src/archive/age/age.ts";
import { Bech32Error, decodeBech32, encodeBech32 } from "../../src/archive/age/bech32.ts";
import { AgeError } from "../../src/archive/age/sealing.ts";
import { Identity, Recipient } from "../../src/archive/age/x25519.ts";
import { Random } from "../support/random.ts";
import { temporaryHome } from "../support/temporaryHome.ts";

/** Around the sizes at which a file gets another block. */
const sizes = [0, 1, 65_535, 65_536, 65_537, 131_072, 300_001];

async function* inPieces(bytes: Uint8Array, size: number): AsyncGenerator<Uint8Array> {
  for (let start = 0; start < bytes.length; start += size)
    yield bytes.subarray(start, start + size);
}

async function gathered(pieces: AsyncIterable<Uint8Array>): Promise<Buffer> {
  const all: Uint8Array[] = [];
  for await (const piece of pieces) all.push(piece);
  return Buffer.concat(all);
}

function run(program: string, ...given: string[]): string {
  return execFileSync(program, given, { encoding: "utf8", timeout: 30_000, stdio: "pipe" });
}

describe("age's own tool", () => {
  it("file_ofOurs_isOpenedByAge", async () => {
    const home = temporaryHome();
    const identity = Identity.generate();
    writeFileSync(join(home, "key"), identity.secretText());
    for (const size of sizes) {
      const plain = randomBytes(size);
      writeFileSync(join(home, "file.age"), await encryptBytes(plain, identity.recipient));
      // Not by -o: for an empty file the tool makes none.
      const given = ["-d", "-i", join(home, "key"), join(home, "file.age")];
      const opened = execFileSync("age", given, { timeout: 30_000 });
      assert.ok(opened.equals(plain), `${size} bytes`);
    }
  });

  it("file_ofAges_isOpenedByUs", async () => {
    const home = temporaryHome();
    const identity = Identity.generate();
    const other = Identity.generate();
    for (const size of sizes) {
      const plain = randomBytes(size);
      writeFileSync(join(home, "file"), plain);
      const recipients = ["-r", String(other.recipient), "-r", String(identity.recipient)];
      run("age", ...recipients, "-o", join(home, "file.age"), join(home, "file"));
      const opened = await decryptBytes(readFileSync(join(home, "file.age")), identity);
      assert.ok(opened.equals(plain), `${size} bytes`);
    }
  });

  it("keys_ofEither_areTheOthers", () => {
    const home = temporaryHome();
    const made = run("age-keygen");
    const identity = Identity.parse(/AGE-SECRET-KEY-1\w+/.exec(made)?.[0] ?? "");
    assert.match(made, new RegExp(`public key: ${identity.recipient}\n`));
    writeFileSync(join(home, "key"), identity.secretText());
    assert.equal(run("age-keygen", "-y", join(home, "key")).trim(), String(identity.recipient));
  });
});

describe("encryption", () => {
  it("pieces_ofAnySize_makeTheSameContents", async () => {
    const identity = Identity.generate();
    const plain = randomBytes(200_000);
    for (const size of [1_000, 65_536, 65_537, 200_000]) {
      const file = await gathered(encrypt(inPieces(plain, size), identity.recipient));
      for (const cut of [777, 65_552, file.length]) {
        assert.ok((await gathered(decrypt(inPieces(file, cut), identity))).equals(plain));
      }
    }
  });

  it("sameContents_twice_areTwoDifferentFiles", async () => {
    const { recipient } = Identity.generate();
    const [one, two] = [
      await encryptBytes(Buffer.from("x"), recipient),
      await encryptBytes(Buffer.from("x"), recipient),
    ];
    assert.ok(!one.equals(two));
  });

  it("file_forSomebodyElse_isRefused", async () => {
    const file = await encryptBytes(Buffer.from("x"), Identity.generate().recipient);
    await assert.rejects(decryptBytes(file, Identity.generate()), AgeError);
  });

  it("file_cutAnywhere_isRefused", async () => {
    const identity = Identity.generate();
    const file = await encryptBytes(randomBytes(131_072), identity.recipient);
    const header = file.length - 131_072 - 2 * 16;
    const ends = [0, 10, header - 20, header, header + 1, header + 65_552, file.length - 1];
    for (const end of ends) {
      await assert.rejects(decryptBytes(file.subarray(0, end), identity), AgeError, `${end}`);
    }
  });

  it("file_withOneBitFlippedAnywhere_isRefused", async () => {
    const identity = Identity.generate();
    const random = new Random(7);
    const file = await encryptBytes(randomBytes(70_000), identity.recipient);
    const header = file.length - 70_000 - 2 * 16;
    const places = Array.from({ length: 40 }, () => random.integer(0, file.length - 1));
    for (let place = 0; place < header; place += 1) places.push(place);
    for (const place of places) {
      const altered = Buffer.from(file);
      altered[place] = (altered[place] ?? 0) ^ (1 << random.integer(0, 7));
      await assert.rejects(decryptBytes(altered, identity), AgeError, `at ${place}`);
    }
  });

  it("file_withMoreBehindItsEnd_isRefused", async () => {
    const identity = Identity.generate();
    for (const size of [10, 65_536]) {
      const file = await encryptBytes(randomBytes(size), identity.recipient);
      for (const more of [1, 16, 70_000]) {
        const longer = Buffer.concat([file, randomBytes(more)]);
        await assert.rejects(decryptBytes(longer, identity), AgeError);
      }
    }
  });

  it("file_withItsBlocksExchanged_isRefused", async () => {
    const identity = Identity.generate();
    const file = await encryptBytes(randomBytes(3 * 65_536), identity.recipient);
    const start = file.length - 3 * 65_552;
    const block = (n: number) => file.subarray(start + n * 65_552, start + (n + 1) * 65_552);
    const exchanged = Buffer.concat([file.subarray(0, start), block(1), block(0), block(2)]);
    await assert.rejects(decryptBytes(exchanged, identity), AgeError);
  });

  it("noAgeFile_isRefusedWithoutReadingAllOfIt", async () => {
    let count = 0;
    async function* endless(): AsyncGenerator<Uint8Array> {
      for (;;) {
        count += 1;
        yield Buffer.alloc(65_536, "a");
      }
    }
    await assert.rejects(gathered(decrypt(endless(), Identity.generate())), AgeError);
    assert.ok(count < 5, `${count} pieces`);
  });

  it("encryption_ofALargeFile_holdsLittleAtATime", async () => {
    const identity = Identity.generate();
    const zeros = Buffer.alloc(1_000_000);
    async function* large(): AsyncGenerator<Uint8Array> {
      for (let count = 0; count < 100; count += 1) yield zeros;
    }
    let total = 0;
    for await (const piece of decrypt(encrypt(large(), identity.recipient), identity)) {
      assert.ok(piece.length <= 65_536);
      total += piece.length;
    }
    assert.equal(total, 100_000_000);
  });
});

describe("bech32", () => {
  it("encoding_ofAnyBytes_isReversed", () => {
    for (let length = 0; length < 70; length += 1) {
      const bytes = randomBytes(length);
      const text = encodeBech32("some-prefix-", bytes);
      assert.deepEqual(decodeBech32(text), { prefix: "some-prefix-", bytes });
      assert.deepEqual(decodeBech32(text.toUpperCase()).bytes, bytes);
    }
  });

  it("oneWrongCharacter_isFoundWhereItIs", () => {
    const text = encodeBech32("age", randomBytes(32));
    for (let at = 4; at < text.length; at += 1) {
      const wrong = text[at] === "q" ? "p" : "q";
      const given = text.slice(0, at) + wrong + text.slice(at + 1);
      assert.throws(
        () => decodeBech32(given),
        (error: unknown) => error instanceof Bech32Error && error.position === at,
      );
    }
  });

  it("mixedCaseAndForeignCharacters_areRefused", () => {
    const text = encodeBech32("age", randomBytes(32));
    for (const given of ["", "1", "age", "age1", `A${text.slice(1)}`, `${text}b`, `${text}ü`]) {
      assert.throws(() => decodeBech32(given), Bech32Error, given);
    }
  });

  it("recipient_thatIsAnIdentity_isRefused", () => {
    const identity = Identity.generate();
    assert.throws(() => Recipient.parse(identity.secretText()));
    assert.throws(() => Identity.parse(String(identity.recipient)));
  });
});
