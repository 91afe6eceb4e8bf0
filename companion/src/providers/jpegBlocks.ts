/**
 * The coarse picture inside a JPEG: the mean brightness of each block of 8 by 8 pixels, read from the
 * entropy-coded data without decoding the picture itself. That takes a fraction of the time, and it
 * is enough to tell whether two pictures show the same.
 */
export interface Blocks {
  readonly columns: number;
  readonly rows: number;
  /** Brightness of each block, from 0 to about 255, row by row. */
  readonly means: Float32Array;
}

interface Component {
  readonly id: number;
  readonly horizontal: number;
  readonly vertical: number;
  readonly quantiser: number;
}

interface Scanned extends Component {
  readonly dc: HuffmanTable;
  readonly ac: HuffmanTable;
  predictor: number;
}

/** For each 16 bits that may follow: the length of the code they begin with, and its symbol. */
type HuffmanTable = Uint16Array;

class NotBaseline extends Error {}

const marker = 0xff;
const startOfImage = 0xd8;
const startOfScan = 0xda;
const quantisers = 0xdb;
const huffmanTables = 0xc4;
const restartInterval = 0xdd;
const symbolBits = 8;
const blockSide = 8;
const levelShift = 128;

/**
 * The blocks of a baseline JPEG's brightness; undefined for every other kind of picture, and for one
 * that is damaged.
 */
export function jpegBlocks(jpeg: Uint8Array): Blocks | undefined {
  try {
    return new JpegReader(jpeg).read();
  } catch (error) {
    if (error instanceof NotBaseline) return undefined;
    throw error;
  }
}

class JpegReader {
  readonly #data: Uint8Array;
  #at = 0;
  readonly #firstQuantisers = new Map<number, number>();
  readonly #tables = new Map<number, HuffmanTable>();
  #components: readonly Component[] = [];
  #width = 0;
  #height = 0;
  #restartEvery = 0;

  constructor(data: Uint8Array) {
    this.#data = data;
  }

  read(): Blocks {
    if (this.#word() !== ((marker << 8) | startOfImage)) throw new NotBaseline();
    for (;;) {
      const code = this.#nextMarker();
      const end = this.#at + this.#word();
      if (end > this.#data.length) throw new NotBaseline();
      if (code === startOfScan) return this.#scan(end);
      this.#segment(code, end);
      this.#at = end;
    }
  }

  #byte(): number {
    const byte = this.#data[this.#at];
    if (byte === undefined) throw new NotBaseline();
    this.#at += 1;
    return byte;
  }

  #word(): number {
    return (this.#byte() << 8) | this.#byte();
  }

  #nextMarker(): number {
    if (this.#byte() !== marker) throw new NotBaseline();
    let code = this.#byte();
    while (code === marker) code = this.#byte();
    return code;
  }

  #segment(code: number, end: number): void {
    // Of the frame types only the sequential ones by Huffman's codes are read.
    if (code === 0xc0 || code === 0xc1) this.#frame();
    else if (code === huffmanTables) this.#huffmanTables(end);
    else if (code >= 0xc2 && code <= 0xcf) throw new NotBaseline();
    else if (code === quantisers) this.#quantisers(end);
    else if (code === restartInterval) this.#restartEvery = this.#word();
  }

  #frame(): void {
    if (this.#byte() !== 8) throw new NotBaseline();
    this.#height = this.#word();
    this.#width = this.#word();
    const components: Component[] = [];
    for (let left = this.#byte(); left > 0; left -= 1) {
      const id = this.#byte();
      const sampling = this.#byte();
      const [horizontal, vertical] = [sampling >> 4, sampling & 15];
      if (horizontal < 1 || horizontal > 4 || vertical < 1 || vertical > 4) throw new NotBaseline();
      components.push({ id, horizontal, vertical, quantiser: this.#byte() });
    }
    if (this.#width === 0 || this.#height === 0 || components.length === 0) throw new NotBaseline();
    this.#components = components;
  }

  #quantisers(end: number): void {
    while (this.#at < end) {
      const info = this.#byte();
      const isWide = info >> 4 !== 0;
      this.#firstQuantisers.set(info & 15, isWide ? this.#word() : this.#byte());
      this.#at += isWide ? 126 : 63;
    }
  }

  #huffmanTables(end: number): void {
    while (this.#at < end) {
      const place = this.#byte();
      const counts = Array.from({ length: 16 }, () => this.#byte());
      const symbols = counts.map((count) => Array.from({ length: count }, () => this.#byte()));
      this.#tables.set(place, huffmanTable(symbols));
    }
  }

  #scan(end: number): Blocks {
    const scanned: Scanned[] = [];
    const count = this.#byte();
    if (count !== this.#components.length) throw new NotBaseline();
    for (const component of this.#components) {
      if (this.#byte() !== component.id) throw new NotBaseline();
      const places = this.#byte();
      const dc = this.#tables.get(places >> 4);
      const ac = this.#tables.get(0x10 | (places & 15));
      if (dc === undefined || ac === undefined) throw new NotBaseline();
      scanned.push({ ...component, dc, ac, predictor: 0 });
    }
    return this.#decode(scanned, new BitReader(this.#data, end));
  }

  #decode(scanned: readonly Scanned[], bits: BitReader): Blocks {
    const [brightness] = scanned;
    if (brightness === undefined) throw new NotBaseline();
    // The parts of an image with one component alone come block by block.
    const isAlone = scanned.length === 1;
    const [across, down] = isAlone ? [1, 1] : [brightness.horizontal, brightness.vertical];
    const widest = isAlone ? 1 : Math.max(...scanned.map(({ horizontal }) => horizontal));
    const tallest = isAlone ? 1 : Math.max(...scanned.map(({ vertical }) => vertical));
    if (!isAlone && (across !== widest || down !== tallest)) throw new NotBaseline();
    const unitColumns = Math.ceil(this.#width / (blockSide * widest));
    const unitRows = Math.ceil(this.#height / (blockSide * tallest));
    const columns = unitColumns * across;
    const rows = unitRows * down;
    const scale = (this.#firstQuantisers.get(brightness.quantiser) ?? 1) / blockSide;
    const means = new Float32Array(columns * rows);
    for (let unit = 0; unit < unitColumns * unitRows; unit += 1) {
      if (this.#restartEvery > 0 && unit > 0 && unit % this.#restartEvery === 0) {
        bits.restart();
        for (const component of scanned) component.predictor = 0;
      }
      const left = (unit % unitColumns) * across;
      const top = Math.floor(unit / unitColumns) * down;
      for (const component of scanned) {
        const blocks = isAlone ? 1 : component.horizontal * component.vertical;
        for (let block = 0; block < blocks; block += 1) {
          const level = bits.skipBlock(component);
          if (component !== brightness) continue;
          const at = (top + Math.floor(block / across)) * columns + left + (block % across);
          means[at] = level * scale + levelShift;
        }
      }
    }
    return { columns, rows, means };
  }
}

/** Each code's entry stands at every number that begins with it. */
function huffmanTable(symbols: readonly (readonly number[])[]): HuffmanTable {
  const table = new Uint16Array(1 << 16);
  let next = 0;
  symbols.forEach((ofLength, index) => {
    const length = index + 1;
    for (const symbol of ofLength) {
      const end = next + (1 << (16 - length));
      if (end > table.length) throw new NotBaseline();
      table.fill((length << symbolBits) | symbol, next, end);
      next = end;
    }
  });
  return table;
}

class BitReader {
  readonly #data: Uint8Array;
  #at: number;
  #bits = 0;
  #count = 0;

  constructor(data: Uint8Array, at: number) {
    this.#data = data;
    this.#at = at;
  }

  /** Reads one block's level, from which the next ones differ, and passes over the rest of it. */
  skipBlock(component: Scanned): number {
    component.predictor += this.#signed(this.#symbol(component.dc));
    for (let index = 1; index < 64; index += 1) {
      const symbol = this.#symbol(component.ac);
      const size = symbol & 15;
      if (symbol === 0) break;
      index += symbol >> 4;
      if (this.#count < size) this.#fill();
      this.#count -= size;
    }
    return component.predictor;
  }

  /** Goes on behind the next marker, which has to be one of a restart. */
  restart(): void {
    this.#bits = 0;
    this.#count = 0;
    const code = this.#data[this.#at + 1] ?? 0;
    if (this.#data[this.#at] !== marker || code < 0xd0 || code > 0xd7) throw new NotBaseline();
    this.#at += 2;
  }

  #symbol(table: HuffmanTable): number {
    if (this.#count < 16) this.#fill();
    const entry = table[(this.#bits >>> (this.#count - 16)) & 0xffff] ?? 0;
    const length = entry >> symbolBits;
    if (length === 0) throw new NotBaseline();
    this.#count -= length;
    return entry & 0xff;
  }

  #signed(size: number): number {
    if (size === 0) return 0;
    if (size > 15) throw new NotBaseline();
    if (this.#count < size) this.#fill();
    this.#count -= size;
    const value = (this.#bits >>> this.#count) & ((1 << size) - 1);
    return value < 1 << (size - 1) ? value - (1 << size) + 1 : value;
  }

  /** At least 25 bits; behind the end, and before a marker, they are zeros. */
  #fill(): void {
    while (this.#count <= 24) {
      let byte = this.#data[this.#at] ?? 0;
      if (byte !== marker) this.#at += 1;
      // A zero behind it says that it is no marker.
      else if (this.#data[this.#at + 1] === 0) this.#at += 2;
      else byte = 0;
      this.#bits = (this.#bits << 8) | byte;
      this.#count += 8;
    }
  }
}
