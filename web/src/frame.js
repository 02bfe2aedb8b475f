// Decoding of the frames that carry a shared lab's state (docs/share.md,
// "Frame format"). It makes the same checks as the C++ decoder
// (src/share/ShareFrame.cpp) in the same order, so that a frame refused by one
// is refused by the other: a frame is walked once to check it whole, and only
// then applied, so a refused frame leaves the state as it was.
//
// Plain JavaScript without DOM or vtk.js: the page bundles it, and node's
// test runner checks it against frames of its own making.

export const VERSION = 1;
export const HEADER_BYTES = 48;
export const PART_HEADER_BYTES = 28;
export const DEFAULT_MAX_BYTES = 256 * 1024 * 1024;

export const FrameType = Object.freeze({ Key: 1, Delta: 2 });

export const Kind = Object.freeze({
  None: 0, Sphere: 1, Cube: 2, Cylinder: 3, Cone: 4, Arrow: 5, DiskSource: 6, Plane: 7,
  RegularPolygon: 8, PolygonC: 9, HalfPipe: 10, File3DSImporter: 11, VectorText: 12,
  PlanarGrid: 13, Trail: 14, NumberField: 15, ReadOut: 16,
});
export const LAST_KIND = 16;
export const KIND_NAMES = ['none', 'Sphere', 'Cube', 'Cylinder', 'Cone', 'Arrow', 'DiskSource',
  'Plane', 'RegularPolygon', 'PolygonC', 'HalfPipe', 'File3DSImporter', 'VectorText',
  'PlanarGrid', 'TrailQwt', 'NumberField', 'DisplayDouble'];

export const Section = Object.freeze({
  Transform: 1, Material: 2, Geometry: 3, Cells: 4, Vectors: 5, Text: 6, Value: 7, Enabled: 8,
  Trail: 9,
});
export const LAST_SECTION = 9;
export const SECTION_NAMES = ['none', 'transform', 'material', 'geometry', 'cells', 'vectors',
  'text', 'value', 'enabled', 'trail'];

export const FrameError = Object.freeze({
  None: 'none',
  Truncated: 'truncated',
  BadMagic: 'not a frame',
  WrongVersion: 'wrong version',
  Oversized: 'oversized',
  Malformed: 'malformed',
  SequenceGap: 'sequence gap',
  NoBase: 'no keyframe yet',
});

const TRAIL_WHOLE = 0;
const TRAIL_APPEND = 1;
const ENTRY_BYTES = 8;
const TRANSFORM_BYTES = 16 * 8;
const MATERIAL_BYTES = 11 * 8;
const MAGIC = [0x4f, 0x4c, 0x58, 0x46]; // OLXF
const PART_MAGIC = [0x4f, 0x4c, 0x58, 0x50]; // OLXP

const bit = (s) => 1 << s;
const PLACED = bit(Section.Transform) | bit(Section.Material);

export function geometryCount(kind) {
  switch (kind) {
    case Kind.Sphere: return 1;
    case Kind.Cube: case Kind.HalfPipe: return 3;
    case Kind.Cylinder: case Kind.Cone: case Kind.DiskSource: return 2;
    case Kind.RegularPolygon: return 4;
    case Kind.PlanarGrid: return 9;
    default: return 0;
  }
}

/** The sections an object of `kind` may carry, a bit per section; 0 for an unknown kind. */
export function sectionsOf(kind) {
  switch (kind) {
    case Kind.None: return 0;
    case Kind.VectorText: return PLACED | bit(Section.Text);
    case Kind.PlanarGrid:
      return PLACED | bit(Section.Geometry) | bit(Section.Cells) | bit(Section.Vectors);
    case Kind.Trail: return bit(Section.Trail);
    case Kind.NumberField: return bit(Section.Enabled);
    case Kind.ReadOut: return bit(Section.Value);
    default: break;
  }
  if (!(kind >= 1 && kind <= LAST_KIND)) return 0;
  return geometryCount(kind) > 0 ? PLACED | bit(Section.Geometry) : PLACED;
}

export class FrameResult {
  constructor(error = FrameError.None, message = '') {
    this.error = error;
    this.message = message;
  }
  get ok() { return this.error === FrameError.None; }
}
const OK = new FrameResult();
const failure = (error, message) => new FrameResult(error, message);
const malformed = (message) => failure(FrameError.Malformed, message);

export function emptyState() {
  return { publisher: 0n, sequence: 0n, cycle: 0, objects: [] };
}

export function newObject(num, kind) {
  return {
    num, kind, sections: 0,
    transform: null, material: null, geometry: null, cells: null, vectors: null,
    text: '', value: 0, enabled: false,
    trailFirst: 0n, trailX: [], trailY: [],
  };
}

export const hasSection = (o, s) => ((o.sections >>> s) & 1) === 1;

export function findObject(state, num) {
  let lo = 0;
  let hi = state.objects.length;
  while (lo < hi) {
    const mid = (lo + hi) >> 1;
    if (state.objects[mid].num < num) lo = mid + 1; else hi = mid;
  }
  const o = state.objects[lo];
  return o && o.num === num ? o : null;
}

const asBytes = (data) => {
  if (data instanceof Uint8Array) return data;
  if (data instanceof ArrayBuffer) return new Uint8Array(data);
  if (ArrayBuffer.isView(data)) return new Uint8Array(data.buffer, data.byteOffset, data.byteLength);
  throw new TypeError('frame data must be bytes');
};

const littleEndianHost = new Uint8Array(new Uint16Array([1]).buffer)[0] === 1;

/** A copy of `n` little-endian values: aligned, so typed arrays can view it. */
function copyArray(bytes, at, n, Type) {
  const size = Type.BYTES_PER_ELEMENT;
  if (littleEndianHost) {
    const copy = bytes.slice(at, at + n * size);
    return new Type(copy.buffer, 0, n);
  }
  const view = new DataView(bytes.buffer, bytes.byteOffset + at, n * size);
  const out = new Type(n);
  for (let i = 0; i < n; ++i)
    out[i] = size === 8 ? view.getFloat64(i * 8, true) : view.getFloat32(i * 4, true);
  return out;
}

/** Bytes consumed front to back; every read is checked against what is left. */
class Reader {
  constructor(bytes, at, size) {
    this.bytes = bytes;
    this.view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    this.at = at;
    this.end = at + size;
  }
  left() { return this.end - this.at; }
  has(n) { return this.left() >= n; }
  u8() { const v = this.bytes[this.at]; this.at += 1; return v; }
  u16() { const v = this.view.getUint16(this.at, true); this.at += 2; return v; }
  u32() { const v = this.view.getUint32(this.at, true); this.at += 4; return v; }
  i32() { const v = this.view.getInt32(this.at, true); this.at += 4; return v; }
  u64() { const v = this.view.getBigUint64(this.at, true); this.at += 8; return v; }
  take(n) {
    if (n < 0 || n > this.left()) return -1;
    const at = this.at;
    this.at += n;
    return at;
  }
}

const U64_MAX = (1n << 64n) - 1n;

/**
 * Reads and checks the header alone: `{result, header}`; the header has
 * `type, publisher (BigInt), sequence (BigInt), cycle, publishedUs, objects, bodyBytes`.
 */
export function readHeader(data, maxBytes = DEFAULT_MAX_BYTES) {
  const p = asBytes(data);
  const size = p.length;
  if (size > maxBytes)
    return { result: failure(FrameError.Oversized, `${size} bytes, more than the ${maxBytes} accepted`) };
  // A few bytes that begin like a frame are a frame cut short; anything else
  // is no frame at all.
  const magicBytes = Math.min(size, 4);
  for (let i = 0; i < magicBytes; ++i)
    if (p[i] !== MAGIC[i])
      return { result: failure(FrameError.BadMagic, 'not an Orlavex share frame') };
  if (size < 5) return { result: failure(FrameError.Truncated, `${size} bytes, no header`) };
  if (p[4] !== VERSION)
    return { result: failure(FrameError.WrongVersion, `frame format version ${p[4]}, this reader knows ${VERSION}`) };
  if (size < HEADER_BYTES)
    return { result: failure(FrameError.Truncated, `${size} bytes, the header alone has ${HEADER_BYTES}`) };
  const view = new DataView(p.buffer, p.byteOffset, p.byteLength);
  const type = p[5];
  if (type !== FrameType.Key && type !== FrameType.Delta)
    return { result: malformed(`unknown frame type ${type}`) };
  if (view.getUint16(6, true) !== 0) return { result: malformed('reserved header bits set') };
  const header = {
    type,
    publisher: view.getBigUint64(8, true),
    sequence: view.getBigUint64(16, true),
    cycle: Number(view.getBigInt64(24, true)),
    publishedUs: Number(view.getBigInt64(32, true)),
    objects: view.getUint32(40, true),
    bodyBytes: view.getUint32(44, true),
  };
  if (header.publisher === 0n) return { result: malformed('publisher 0') };
  if (header.sequence === 0n) return { result: malformed('frame number 0') };
  if (header.bodyBytes + HEADER_BYTES > maxBytes)
    return { result: failure(FrameError.Oversized, `announces ${header.bodyBytes + HEADER_BYTES} bytes, more than the ${maxBytes} accepted`) };
  if (size - HEADER_BYTES < header.bodyBytes)
    return { result: failure(FrameError.Truncated, `${size - HEADER_BYTES} of ${header.bodyBytes} body bytes`) };
  if (size - HEADER_BYTES > header.bodyBytes)
    return { result: malformed(`${size - HEADER_BYTES - header.bodyBytes} bytes after the body`) };
  return { result: OK, header };
}

function wrongLength(num, s, length) {
  return malformed(`object ${num}: ${SECTION_NAMES[s]} section of ${length} bytes`);
}

function trailSection(p, at, length, key, existing, target, num) {
  const r = new Reader(p, at, length);
  if (!r.has(1 + 8 + 4)) return malformed(`object ${num}: trail section cut short`);
  const mode = r.u8();
  const first = r.u64();
  const count = r.u32();
  if (first > U64_MAX - BigInt(count)) return malformed(`object ${num}: trail point index overflows`);
  let appended = count;
  let keep = 0;
  if (mode === TRAIL_APPEND) {
    if (key) return malformed(`object ${num}: a keyframe trail must be whole`);
    if (!r.has(4)) return malformed(`object ${num}: trail append count amiss`);
    appended = r.u32();
    if (appended > count) return malformed(`object ${num}: trail append count amiss`);
    if (!hasSection(existing, Section.Trail))
      return malformed(`object ${num}: points appended to a trail the state lacks`);
    if (first < existing.trailFirst)
      return malformed(`object ${num}: trail goes back from point ${existing.trailFirst} to ${first}`);
    const end = existing.trailFirst + BigInt(existing.trailX.length);
    keep = end > first ? Number(end - first) : 0;
    if (keep + appended !== count)
      return malformed(`object ${num}: trail keeps ${keep} points and appends ${appended}, but should hold ${count}`);
  } else if (mode !== TRAIL_WHOLE) {
    return malformed(`object ${num}: unknown trail mode ${mode}`);
  }
  const bytes = appended * 8;
  const xs = r.take(bytes);
  const ys = xs < 0 ? -1 : r.take(bytes);
  if (xs < 0 || ys < 0 || r.left() !== 0) return wrongLength(num, Section.Trail, length);
  if (!target) return OK;
  const newX = copyArray(p, xs, appended, Float64Array);
  const newY = copyArray(p, ys, appended, Float64Array);
  if (mode === TRAIL_WHOLE) {
    target.trailX = Array.from(newX);
    target.trailY = Array.from(newY);
  } else {
    const drop = target.trailX.length - keep;
    target.trailX.splice(0, drop);
    target.trailY.splice(0, drop);
    for (let i = 0; i < appended; ++i) {
      target.trailX.push(newX[i]);
      target.trailY.push(newY[i]);
    }
  }
  target.trailFirst = first;
  return OK;
}

function section(s, kind, p, at, length, key, existing, target, num) {
  switch (s) {
    case Section.Transform:
      if (length !== TRANSFORM_BYTES) return wrongLength(num, s, length);
      if (target) target.transform = copyArray(p, at, 16, Float64Array);
      break;
    case Section.Material:
      if (length !== MATERIAL_BYTES) return wrongLength(num, s, length);
      if (target) target.material = copyArray(p, at, 11, Float64Array);
      break;
    case Section.Geometry:
      if (length !== 8 * geometryCount(kind)) return wrongLength(num, s, length);
      if (target) target.geometry = copyArray(p, at, length / 8, Float64Array);
      break;
    case Section.Cells:
      if (length % 4 !== 0) return wrongLength(num, s, length);
      if (target) target.cells = copyArray(p, at, length / 4, Float32Array);
      break;
    case Section.Vectors:
      // n magnitudes, 3n components and the scale: 4n + 1 floats.
      if (length % 4 !== 0 || (length / 4) % 4 !== 1) return wrongLength(num, s, length);
      if (target) target.vectors = copyArray(p, at, length / 4, Float32Array);
      break;
    case Section.Text:
      if (target) target.text = new TextDecoder('utf-8').decode(p.subarray(at, at + length));
      break;
    case Section.Value:
      if (length !== 8) return wrongLength(num, s, length);
      if (target) target.value = copyArray(p, at, 1, Float64Array)[0];
      break;
    case Section.Enabled:
      if (length !== 1 || p[at] > 1) return malformed(`object ${num}: enabled state is not 0 or 1`);
      if (target) target.enabled = p[at] === 1;
      break;
    case Section.Trail: {
      const ok = trailSection(p, at, length, key, existing, target, num);
      if (!ok.ok) return ok;
      break;
    }
    default:
      break;
  }
  if (target) target.sections |= bit(s);
  return OK;
}

/**
 * Walks a frame's body: first only checking (`commit` false), then, once
 * everything was found sound, writing into the state. `changed` collects the
 * record numbers written, so the page redraws only those.
 */
function run(h, p, state, commit, changed) {
  const key = h.type === FrameType.Key;
  const r = new Reader(p, HEADER_BYTES, h.bodyBytes);
  if (h.objects > Math.floor(r.left() / ENTRY_BYTES))
    return malformed(`${h.objects} objects cannot fit in ${r.left()} bytes`);
  const fresh = key && commit ? new Array(h.objects) : null;
  let lastNum = -Infinity;
  for (let k = 0; k < h.objects; ++k) {
    if (!r.has(ENTRY_BYTES)) return malformed(`object entry ${k} is cut short`);
    const num = r.i32();
    const kind = r.u8();
    const sections = r.u8();
    const reserved = r.u16();
    if (num <= lastNum) return malformed(`object ${num} out of order or repeated (after ${lastNum})`);
    lastNum = num;
    if (reserved !== 0) return malformed(`object ${num}: reserved bits set`);
    const allowed = sectionsOf(kind);
    if (allowed === 0) return malformed(`object ${num}: unknown kind ${kind}`);
    let target = null;
    let existing = null;
    if (key) {
      if (commit) {
        target = newObject(num, kind);
        fresh[k] = target;
      }
    } else {
      existing = findObject(state, num);
      if (!existing || existing.kind !== kind)
        return malformed(`a delta for object ${num} (${KIND_NAMES[kind] ?? 'unknown'}), which the state does not hold`);
      if (commit) target = existing;
    }
    if (commit && changed) changed.add(num);
    let lastSection = 0;
    for (let j = 0; j < sections; ++j) {
      if (!r.has(5)) return malformed(`object ${num}: section ${j} is cut short`);
      const id = r.u8();
      const length = r.u32();
      if (id <= lastSection || id > LAST_SECTION)
        return malformed(`object ${num}: section id ${id} out of order or unknown`);
      lastSection = id;
      if (!((allowed >>> id) & 1))
        return malformed(`object ${num}: a ${KIND_NAMES[kind]} has no ${SECTION_NAMES[id]} section`);
      const at = r.take(length);
      if (at < 0)
        return malformed(`object ${num}: ${SECTION_NAMES[id]} section of ${length} bytes, ${r.left()} left`);
      const ok = section(id, kind, p, at, length, key, existing, target, num);
      if (!ok.ok) return ok;
    }
  }
  if (r.left() !== 0) return malformed(`${r.left()} bytes after the last object`);
  if (commit) {
    if (key) state.objects = fresh;
    state.publisher = h.publisher;
    state.sequence = h.sequence;
    state.cycle = h.cycle;
  }
  return OK;
}

/**
 * Applies a frame to `state`: a keyframe replaces it, a delta must follow it.
 * On error the state is left exactly as it was. Returns `{result, header,
 * changed}`, `changed` the set of record numbers the frame wrote.
 */
export function applyFrame(data, state, maxBytes = DEFAULT_MAX_BYTES) {
  const p = asBytes(data);
  const { result, header } = readHeader(p, maxBytes);
  if (!result.ok) return { result };
  if (header.type === FrameType.Delta) {
    if (state.sequence === 0n)
      return { result: failure(FrameError.NoBase, `delta ${header.sequence} before any keyframe`), header };
    if (header.publisher !== state.publisher)
      return { result: failure(FrameError.SequenceGap, `delta ${header.sequence} of another publisher`), header };
    if (header.sequence !== state.sequence + 1n)
      return { result: failure(FrameError.SequenceGap, `delta ${header.sequence} does not follow frame ${state.sequence}`), header };
  }
  const checked = run(header, p, state, false, null);
  if (!checked.ok) return { result: checked, header };
  const changed = new Set();
  return { result: run(header, p, state, true, changed), header, changed };
}

/**
 * Puts frames sent as parts back together, for one subject. A whole frame
 * passes straight through; a part must continue the frame under way, and
 * anything else discards that frame with an error. Memory grows only with
 * the bytes received, never with what a part announces.
 */
export class Assembler {
  constructor(maxBytes = DEFAULT_MAX_BYTES) {
    this.maxBytes = maxBytes;
    this.reset();
    this.sequence = 0n;
  }

  reset() {
    this.chunks = [];
    this.received = 0;
    this.next = 0;
    this.count = 0;
    this.total = 0;
  }

  /** Takes one message: `{result, frame}`, `frame` null while parts are missing. */
  take(data) {
    const p = asBytes(data);
    const isPart = p.length >= 4 && PART_MAGIC.every((b, i) => p[i] === b);
    if (!isPart) {
      // A whole frame (or no frame: applying it says which); a frame under
      // way has lost the rest of its parts.
      const lost = this.count > 0;
      const sequence = this.sequence;
      this.reset();
      return {
        result: lost ? failure(FrameError.SequenceGap, `frame ${sequence} lost its last parts`) : OK,
        frame: p,
      };
    }
    if (p.length < PART_HEADER_BYTES) {
      this.reset();
      return { result: failure(FrameError.Truncated, `a part of ${p.length} bytes`), frame: null };
    }
    if (p[4] !== VERSION) {
      this.reset();
      return { result: failure(FrameError.WrongVersion, `part of format version ${p[4]}`), frame: null };
    }
    const view = new DataView(p.buffer, p.byteOffset, p.byteLength);
    if (p[5] !== 0 || view.getUint16(6, true) !== 0) {
      this.reset();
      return { result: malformed('reserved part bits set'), frame: null };
    }
    const sequence = view.getBigUint64(8, true);
    const index = view.getUint32(16, true);
    const count = view.getUint32(20, true);
    const total = view.getUint32(24, true);
    const bytes = p.length - PART_HEADER_BYTES;
    let gap = OK;
    if (index === 0) {
      if (this.count > 0) gap = failure(FrameError.SequenceGap, `frame ${this.sequence} lost its last parts`);
      this.reset();
      if (total > this.maxBytes)
        return { result: failure(FrameError.Oversized, `parts announce ${total} bytes, more than the ${this.maxBytes} accepted`), frame: null };
      if (count < 2 || count > total)
        return { result: malformed(`${count} parts for ${total} bytes`), frame: null };
      this.sequence = sequence;
      this.count = count;
      this.total = total;
    } else if (this.count === 0 || sequence !== this.sequence || index !== this.next ||
               count !== this.count || total !== this.total) {
      const under = this.count > 0;
      this.reset();
      return {
        result: failure(under ? FrameError.SequenceGap : FrameError.Malformed,
          `part ${index} of frame ${sequence} out of place`),
        frame: null,
      };
    }
    if (bytes <= 0 || this.received + bytes > this.total) {
      this.reset();
      return { result: malformed(`parts of frame ${sequence} exceed its ${this.total} bytes`), frame: null };
    }
    this.chunks.push(p.slice(PART_HEADER_BYTES));
    this.received += bytes;
    this.next = index + 1;
    if (this.next < this.count) return { result: gap, frame: null };
    if (this.received !== this.total) {
      this.reset();
      return { result: failure(FrameError.Truncated, `parts of frame ${sequence} fall short of its ${total} bytes`), frame: null };
    }
    const frame = new Uint8Array(this.total);
    let at = 0;
    for (const c of this.chunks) {
      frame.set(c, at);
      at += c.length;
    }
    this.reset();
    return { result: gap, frame };
  }
}

/** The NATS subject `orlavex.<lab>.<leaf>`. */
export const subject = (lab, leaf) => `orlavex.${lab}.${leaf}`;

/** A lab name is one subject token of letters, digits and '_'. */
export const isValidLab = (lab) => typeof lab === 'string' && /^[A-Za-z0-9_]{1,64}$/.test(lab);
