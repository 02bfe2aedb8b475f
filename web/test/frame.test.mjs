// The page's frame decoder against frames written here byte by byte, as
// src/share/ShareFrame.cpp writes them: every section, trails appended and
// dropped, parts, and each kind of bad input, which must leave the state as
// it was and say why.
import test from 'node:test';
import assert from 'node:assert/strict';

import {
  applyFrame, Assembler, emptyState, FrameError, Kind, Section, findObject, readHeader,
} from '../src/frame.js';
import { Follower } from '../src/follower.js';

// --- a writer like the C++ encoder's ---------------------------------------------

class Writer {
  constructor() { this.bytes = []; }
  u8(v) { this.bytes.push(v & 0xff); }
  u16(v) { this.u8(v); this.u8(v >> 8); }
  u32(v) { const b = new Uint8Array(4); new DataView(b.buffer).setUint32(0, v, true); this.bytes.push(...b); }
  i32(v) { const b = new Uint8Array(4); new DataView(b.buffer).setInt32(0, v, true); this.bytes.push(...b); }
  u64(v) { const b = new Uint8Array(8); new DataView(b.buffer).setBigUint64(0, BigInt(v), true); this.bytes.push(...b); }
  i64(v) { const b = new Uint8Array(8); new DataView(b.buffer).setBigInt64(0, BigInt(v), true); this.bytes.push(...b); }
  f64s(a) { const b = new Uint8Array(Float64Array.from(a).buffer); this.bytes.push(...b); }
  f32s(a) { const b = new Uint8Array(Float32Array.from(a).buffer); this.bytes.push(...b); }
  raw(a) { this.bytes.push(...a); }
  get length() { return this.bytes.length; }
  patch32(at, v) { const b = new Uint8Array(4); new DataView(b.buffer).setUint32(0, v, true); for (let i = 0; i < 4; ++i) this.bytes[at + i] = b[i]; }
  done() { return Uint8Array.from(this.bytes); }
}

/** A section's bytes: [id, payload writer function]. */
function frame({ type = 1, publisher = 7, sequence = 1, cycle = 1, publishedUs = 0, objects }) {
  const w = new Writer();
  w.raw([0x4f, 0x4c, 0x58, 0x46]);
  w.u8(1);
  w.u8(type);
  w.u16(0);
  w.u64(publisher);
  w.u64(sequence);
  w.i64(cycle);
  w.i64(publishedUs);
  w.u32(objects.length);
  const bodyAt = w.length;
  w.u32(0);
  for (const o of objects) {
    w.i32(o.num);
    w.u8(o.kind);
    w.u8(o.sections.length);
    w.u16(0);
    for (const [id, write] of o.sections) {
      w.u8(id);
      const lengthAt = w.length;
      w.u32(0);
      const start = w.length;
      write(w);
      w.patch32(lengthAt, w.length - start);
    }
  }
  w.patch32(bodyAt, w.length - 48);
  return w.done();
}

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
const material = [0.2, 0.3, 1, 1, 0, 1, 1, 0, 0, 0, 0];
const transform = (m) => [Section.Transform, (w) => w.f64s(m)];
const mat = (m) => [Section.Material, (w) => w.f64s(m)];
const geom = (g) => [Section.Geometry, (w) => w.f64s(g)];
const trailWhole = (first, xs, ys) => [Section.Trail, (w) => { w.u8(0); w.u64(first); w.u32(xs.length); w.f64s(xs); w.f64s(ys); }];
const trailAppend = (first, count, xs, ys) => [Section.Trail, (w) => { w.u8(1); w.u64(first); w.u32(count); w.u32(xs.length); w.f64s(xs); w.f64s(ys); }];
const value = (v) => [Section.Value, (w) => w.f64s([v])];

function keyframe(extra = {}) {
  return frame({
    objects: [
      { num: 1, kind: Kind.Sphere, sections: [transform(identity), mat(material), geom([0.5])] },
      { num: 6, kind: Kind.VectorText, sections: [transform(identity), mat(material), [Section.Text, (w) => w.raw([...new TextEncoder().encode('t = 1.5 s')])]] },
      {
        num: 7, kind: Kind.PlanarGrid, sections: [transform(identity), mat(material),
          geom([1.2, 0.8, 0, 0, 0, 0, 2, 1, 0]), [Section.Cells, (w) => w.f32s([10, 20])],
          [Section.Vectors, (w) => w.f32s([0.5, 1, 0, 0, 0, 1, 0, 0, 0.1])]],
      },
      { num: 9, kind: Kind.Trail, sections: [trailWhole(0, [0, 1], [5, 6])] },
      { num: 13, kind: Kind.ReadOut, sections: [value(42.5)] },
      { num: 19, kind: Kind.NumberField, sections: [[Section.Enabled, (w) => w.u8(1)]] },
    ],
    ...extra,
  });
}

test('a keyframe gives every object and section', () => {
  const s = emptyState();
  const { result, header, changed } = applyFrame(keyframe({ publishedUs: 1234 }), s);
  assert.ok(result.ok, result.message);
  assert.equal(header.publishedUs, 1234);
  assert.equal(s.objects.length, 6);
  assert.equal(s.sequence, 1n);
  assert.equal(findObject(s, 1).geometry[0], 0.5);
  assert.equal(findObject(s, 6).text, 't = 1.5 s');
  assert.deepEqual(Array.from(findObject(s, 7).cells), [10, 20]);
  assert.equal(findObject(s, 7).vectors.length, 9);
  assert.deepEqual(findObject(s, 9).trailY, [5, 6]);
  assert.equal(findObject(s, 13).value, 42.5);
  assert.equal(findObject(s, 19).enabled, true);
  assert.equal(changed.size, 6);
});

test('deltas change only what they carry; trails drop and append', () => {
  const s = emptyState();
  assert.ok(applyFrame(keyframe(), s).result.ok);
  const moved = identity.slice();
  moved[3] = 2;
  const d = frame({
    type: 2, sequence: 2, cycle: 2, objects: [
      { num: 1, kind: Kind.Sphere, sections: [transform(moved)] },
      { num: 9, kind: Kind.Trail, sections: [trailAppend(1, 2, [2], [7])] },
    ],
  });
  const { result, changed } = applyFrame(d, s);
  assert.ok(result.ok, result.message);
  assert.equal(findObject(s, 1).transform[3], 2);
  assert.equal(findObject(s, 1).geometry[0], 0.5);
  assert.deepEqual(findObject(s, 9).trailX, [1, 2]);
  assert.deepEqual(findObject(s, 9).trailY, [6, 7]);
  assert.equal(findObject(s, 9).trailFirst, 1n);
  assert.deepEqual([...changed], [1, 9]);
  assert.equal(s.cycle, 2);
});

function refused(bytes, error, pattern, base = null) {
  const s = emptyState();
  if (base) assert.ok(applyFrame(base, s).result.ok);
  const before = JSON.stringify(s, (k, v) => (typeof v === 'bigint' ? v.toString() : v));
  const { result } = applyFrame(bytes, s);
  assert.equal(result.error, error, result.message);
  if (pattern) assert.match(result.message, pattern);
  assert.equal(JSON.stringify(s, (k, v) => (typeof v === 'bigint' ? v.toString() : v)), before, 'state untouched');
}

test('bad input is refused whole and leaves the state', () => {
  const k = keyframe();
  refused(new Uint8Array([1, 2, 3]), FrameError.BadMagic);
  refused(k.subarray(0, 3), FrameError.Truncated);
  refused(k.subarray(0, 40), FrameError.Truncated);
  refused(k.subarray(0, k.length - 1), FrameError.Truncated);
  const longer = new Uint8Array(k.length + 1);
  longer.set(k);
  refused(longer, FrameError.Malformed, /after the body/);
  const v2 = k.slice();
  v2[4] = 2;
  refused(v2, FrameError.WrongVersion);
  const t3 = k.slice();
  t3[5] = 3;
  refused(t3, FrameError.Malformed, /unknown frame type/);
  // a header announcing more than is accepted
  assert.equal(readHeader(k, 60).result.error, FrameError.Oversized);
  refused(frame({ publisher: 0, objects: [] }), FrameError.Malformed, /publisher 0/);
  refused(frame({ sequence: 0, objects: [] }), FrameError.Malformed, /frame number 0/);
  refused(frame({ objects: [{ num: 2, kind: 1, sections: [] }, { num: 2, kind: 1, sections: [] }] }), FrameError.Malformed, /out of order/);
  refused(frame({ objects: [{ num: 2, kind: 99, sections: [] }] }), FrameError.Malformed, /unknown kind/);
  refused(frame({ objects: [{ num: 2, kind: Kind.Sphere, sections: [geom([1]), transform(identity)] }] }), FrameError.Malformed, /out of order or unknown/);
  refused(frame({ objects: [{ num: 2, kind: Kind.Sphere, sections: [geom([1, 2])] }] }), FrameError.Malformed, /geometry section of 16 bytes/);
  refused(frame({ objects: [{ num: 2, kind: Kind.Sphere, sections: [value(1)] }] }), FrameError.Malformed, /has no value/);
  refused(frame({ objects: [{ num: 2, kind: Kind.Trail, sections: [trailAppend(0, 1, [1], [1])] }] }), FrameError.Malformed, /keyframe trail must be whole/);
  refused(frame({ objects: [{ num: 2, kind: Kind.NumberField, sections: [[Section.Enabled, (w) => w.u8(2)]] }] }), FrameError.Malformed, /not 0 or 1/);
  // a delta for an object the state lacks, and one that does not follow
  refused(frame({ type: 2, sequence: 2, objects: [{ num: 3, kind: Kind.Sphere, sections: [geom([1])] }] }), FrameError.Malformed, /does not hold/, k);
  refused(frame({ type: 2, sequence: 3, objects: [] }), FrameError.SequenceGap, /does not follow/, k);
  refused(frame({ type: 2, sequence: 2, publisher: 8, objects: [] }), FrameError.SequenceGap, /another publisher/, k);
  refused(frame({ type: 2, sequence: 2, objects: [] }), FrameError.NoBase);
  // a trail that claims more points than it keeps and appends
  refused(frame({ type: 2, sequence: 2, objects: [{ num: 9, kind: Kind.Trail, sections: [trailAppend(0, 5, [2], [7])] }] }), FrameError.Malformed, /should hold/, k);
  refused(frame({ type: 2, sequence: 2, objects: [{ num: 1, kind: Kind.Sphere, sections: [transform(identity)] }, { num: 9, kind: Kind.Trail, sections: [trailAppend(0, 3, [2], [7]), value(1)] }] }), FrameError.Malformed, /out of order or unknown/, k);
  // every truncation of a good frame is refused, none throws
  for (let n = 0; n < k.length; ++n) assert.ok(!applyFrame(k.subarray(0, n), emptyState()).result.ok);
});

test('random bytes never throw', () => {
  let seed = 12345;
  const rnd = () => { seed = (seed * 1103515245 + 12345) & 0x7fffffff; return seed; };
  const k = keyframe();
  for (let i = 0; i < 3000; ++i) {
    const b = k.slice();
    for (let j = 0; j < 1 + (rnd() % 4); ++j) b[48 + (rnd() % (b.length - 48))] = rnd() & 0xff;
    const s = emptyState();
    const { result } = applyFrame(b, s);
    if (!result.ok) assert.equal(s.objects.length, 0);
  }
});

function parts(bytes, room, sequence = 1n) {
  const count = Math.ceil(bytes.length / room);
  const out = [];
  for (let i = 0; i < count; ++i) {
    const w = new Writer();
    w.raw([0x4f, 0x4c, 0x58, 0x50]);
    w.u8(1); w.u8(0); w.u16(0);
    w.u64(sequence); w.u32(i); w.u32(count); w.u32(bytes.length);
    w.raw(bytes.subarray(i * room, (i + 1) * room));
    out.push(w.done());
  }
  return out;
}

test('parts come together; a lost part discards the frame', () => {
  const k = keyframe();
  const a = new Assembler();
  const ps = parts(k, 100);
  let whole = null;
  for (const p of ps) {
    const { result, frame: f } = a.take(p);
    assert.ok(result.ok, result.message);
    if (f) whole = f;
  }
  assert.deepEqual(whole, k);
  const b = new Assembler();
  b.take(ps[0]);
  const { result } = b.take(ps[2]);
  assert.equal(result.error, FrameError.SequenceGap);
  const c = new Assembler(50);
  assert.equal(c.take(ps[0]).result.error, FrameError.Oversized);
});

test('the follower asks for a keyframe after a bad frame and goes on', () => {
  const asked = [];
  let t = 0;
  const f = new Follower({ ask: (w) => asked.push(w), now: () => t });
  f.start();
  assert.deepEqual(asked, ['registry', 'key']);
  const d2 = frame({ type: 2, sequence: 2, cycle: 2, objects: [{ num: 13, kind: Kind.ReadOut, sections: [value(1)] }] });
  f.message('frame', d2); // before any keyframe: kept
  f.message('reply', keyframe());
  assert.equal(f.state.sequence, 2n, 'the kept delta follows the keyframe');
  assert.equal(findObject(f.state, 13).value, 1);
  t += 5000;
  f.message('frame', new Uint8Array([0x4f, 0x4c, 0x58, 0x46, 1, 9]));
  assert.equal(f.stats.bad, 1);
  assert.equal(asked.at(-1), 'key');
  f.message('key', frame({ sequence: 2, cycle: 2, objects: [{ num: 13, kind: Kind.ReadOut, sections: [value(1)] }] }));
  assert.equal(f.needKey, false);
  f.message('frame', frame({ type: 2, sequence: 3, cycle: 3, objects: [{ num: 13, kind: Kind.ReadOut, sections: [value(3)] }] }));
  assert.equal(findObject(f.state, 13).value, 3);
  f.message('registry', new TextEncoder().encode('{"format":"orlavex-registry"}'));
  assert.equal(f.registry.format, 'orlavex-registry');
  // A registry larger than one broker message comes in parts, on its
  // subject or as the answer to a request.
  const big = new TextEncoder().encode(JSON.stringify({ format: 'orlavex-registry', scene: { mesh: Array(400).fill(1) } }));
  for (const leaf of ['registry', 'reply']) {
    f.registry = null;
    for (const p of parts(big, 300, 7n)) f.message(leaf, p);
    assert.equal(f.registry.scene.mesh.length, 400, leaf);
  }
  assert.equal(f.stats.bad, 1, 'nothing more counted as bad');
});

// --- the layout: the controller's scene completed by the page's description ------

test('the controller decides cameras, objects and shapes; a description may retitle', async () => {
  const { mergeLayout } = await import('../src/layout.js');
  const own = {
    title: 'Desk', plots: [{ id: 'p0' }], readouts: [{ num: 3 }],
    canvases: [
      { id: 'canvas-1', title: 'canvas-1', frame: false, camera: { position: [1, 2, 3], focalPoint: [0, 0, 0], viewUp: [0, 1, 0], viewAngle: 30 },
        objects: [1], options: { 1: { resolution: 16 } }, static: [{ kind: 'Cube' }], legends: [{ title: 'T' }] },
      { id: 'canvas-2', title: 'canvas-2', frame: true, objects: [7], options: { 7: { ambient: 0 } }, static: [], legends: [] },
    ],
  };
  // The controller alone.
  assert.deepEqual(mergeLayout(null, own).plots, [{ id: 'p0' }]);
  assert.equal(mergeLayout(null, own).title, 'Desk');
  const description = {
    title: 'Lab', plots: [{ id: 'p' }],
    canvases: [{ id: 'pendulum', title: 'Pendulum', camera: { position: [9, 9, 9] }, options: { 1: { resolution: 4, extra: 1 } } }],
  };
  const l = mergeLayout(description, own);
  assert.equal(l.title, 'Lab');
  assert.deepEqual(l.plots, [{ id: 'p' }]);
  assert.deepEqual(l.readouts, [{ num: 3 }]);
  assert.deepEqual([l.canvases[0].id, l.canvases[0].title], ['pendulum', 'Pendulum']);
  assert.deepEqual(l.canvases[0].camera.position, [1, 2, 3]);
  assert.deepEqual(l.canvases[0].options[1], { resolution: 16, extra: 1 });
  assert.deepEqual(l.canvases[0].static, [{ kind: 'Cube' }]);
  assert.deepEqual(l.canvases[0].legends, [{ title: 'T' }]);
  assert.deepEqual([l.canvases[1].id, l.canvases[1].title, l.canvases[1].frame], ['canvas-2', 'canvas-2', true]);
  // Neither: the page waits for the state.
  assert.equal(mergeLayout(null, null).canvases, undefined);
});

test("a model's mesh: cells in VTK's layout, bad ones end the list", async () => {
  const { meshCells } = await import('../src/layout.js');
  const square = [0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0];
  const rows = [
    [{ points: square, polys: [3, 0, 1, 2, 3, 0, 2, 3] }, [[0, 1, 2], [0, 2, 3]]],
    [{ points: square, polys: [3, 0, 1, 2, 3, 0, 2, 9] }, [[0, 1, 2]]], // a point that is not there
    [{ points: square, polys: [3, 0, 1, 2, 4, 0, 2] }, [[0, 1, 2]]],    // runs past the end
    [{ points: square, polys: [0, 1, 2] }, null],                        // a count of 0
    [{ points: [], polys: [3, 0, 1, 2] }, null],
    [{}, null],
  ];
  for (const [mesh, cells] of rows) {
    const m = meshCells(mesh);
    assert.deepEqual(m && m.cells, cells, JSON.stringify(mesh));
  }
});
