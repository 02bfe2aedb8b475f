// Follows a shared lab from its messages as ShareViewer does (docs/share.md,
// "What a viewer does"): keyframes replace the state, deltas must follow it,
// anything it cannot use is counted and makes it ask for a keyframe. It knows
// nothing of NATS: the page hands it each message and gives it a function that
// sends a request, so node's tests can drive it without a broker.

import {
  applyFrame, Assembler, emptyState, FrameError, FrameType, readHeader,
} from './frame.js';

const MAX_PENDING_FRAMES = 256;
const MAX_PENDING_BYTES = 64 * 1024 * 1024;
const RESYNC_AFTER_MS = 1000;

export class Follower {
  /**
   * `ask(kind)` sends a request on the lab's sync subject: kind 'key' for a
   * keyframe, 'registry' for the registry; it returns nothing, the answer
   * comes back through `message`. `now()` gives milliseconds.
   */
  constructor({ ask, now = () => Date.now(), maxBytes } = {}) {
    this.ask = ask;
    this.now = now;
    this.maxBytes = maxBytes;
    this.state = emptyState();
    this.registry = null;
    this.status = null;
    this.assemblers = new Map();
    this.pending = []; // deltas kept until a keyframe they follow arrives
    this.pendingBytes = 0;
    this.needKey = true;
    this.askedAt = -Infinity;
    this.stats = {
      frames: 0, keyframes: 0, deltas: 0, bad: 0, gaps: 0, ignored: 0, requests: 0,
      bytes: 0, lastError: '', lastErrorKind: '', lastPublishedUs: 0, lastLagMs: null,
    };
    this.listeners = { state: [], bad: [], registry: [], status: [] };
  }

  on(event, fn) { this.listeners[event].push(fn); }
  emit(event, ...args) { for (const fn of this.listeners[event]) fn(...args); }

  /** Asks for the registry and a keyframe, as after (re)connecting. */
  start() {
    this.ask('registry');
    this.requestKey(true);
  }

  requestKey(force = false) {
    this.needKey = true;
    const t = this.now();
    if (!force && t - this.askedAt < RESYNC_AFTER_MS) return;
    this.askedAt = t;
    this.stats.requests += 1;
    this.ask('key');
  }

  /** One message from the broker: `leaf` is frame, key, registry, status or reply. */
  message(leaf, data) {
    const bytes = data instanceof Uint8Array ? data : new Uint8Array(data);
    this.stats.bytes += bytes.length;
    if (leaf === 'status') {
      this.takeStatus(bytes);
      return;
    }
    // The registry comes whole or, when larger than the broker takes in one
    // message (a lab with a large model), in parts like a frame's.
    let assembler = this.assemblers.get(leaf);
    if (!assembler) {
      assembler = new Assembler(this.maxBytes);
      this.assemblers.set(leaf, assembler);
    }
    const { result, frame } = assembler.take(bytes);
    if (!result.ok) this.bad(result, leaf);
    if (!frame) return;
    if (frame[0] === 0x7b /* { */) {
      if (leaf === 'registry' || leaf === 'reply') this.takeRegistry(frame);
    } else if (leaf !== 'registry') {
      this.frame(frame, leaf);
    }
  }

  takeRegistry(bytes) {
    try {
      this.registry = JSON.parse(new TextDecoder().decode(bytes));
      this.emit('registry', this.registry);
    } catch (e) {
      this.bad({ error: FrameError.Malformed, message: `registry: ${e.message}` }, 'registry');
    }
  }

  takeStatus(bytes) {
    let status;
    try {
      status = JSON.parse(new TextDecoder().decode(bytes));
    } catch (e) {
      return; // a status line is advice only
    }
    this.status = status;
    this.emit('status', status);
    // A lab that went quiet just after we missed a frame would never say so
    // otherwise.
    if (this.state.sequence === 0n) {
      if (status.state === 'sharing') this.requestKey();
      return;
    }
    let publisher = null;
    try {
      publisher = BigInt(`0x${String(status.publisher).replace(/^0x/, '')}`);
    } catch (e) { /* no publisher named */ }
    const sequence = Number.isFinite(status.sequence) ? BigInt(status.sequence) : 0n;
    if ((publisher !== null && publisher !== this.state.publisher) || sequence > this.state.sequence)
      this.requestKey();
  }

  bad(result, leaf) {
    this.stats.bad += 1;
    this.stats.lastError = `${leaf}: ${result.error}: ${result.message}`;
    this.stats.lastErrorKind = result.error;
    this.emit('bad', this.stats.lastError);
    this.requestKey(true);
  }

  frame(frame, leaf) {
    const { result, header } = readHeader(frame, this.maxBytes);
    if (!result.ok) {
      this.bad(result, leaf);
      return;
    }
    this.stats.frames += 1;
    if (header.type === FrameType.Key) {
      this.stats.keyframes += 1;
      const s = this.state;
      // The same state again is news only after something went wrong.
      if (header.publisher === s.publisher && header.sequence <= s.sequence && !this.needKey) {
        this.stats.ignored += 1;
        return;
      }
      if (header.publisher === s.publisher && header.sequence < s.sequence) {
        this.stats.ignored += 1;
        return;
      }
      this.applyAndReport(frame, header, leaf);
      if (this.state.sequence === header.sequence && this.state.publisher === header.publisher) {
        this.needKey = false;
        this.drainPending();
      }
      return;
    }
    this.stats.deltas += 1;
    const s = this.state;
    if (s.sequence === 0n) {
      this.keep(frame, header);
      this.requestKey();
      return;
    }
    if (header.publisher === s.publisher && header.sequence <= s.sequence) {
      this.stats.ignored += 1;
      return;
    }
    if (header.publisher !== s.publisher || header.sequence !== s.sequence + 1n) {
      this.stats.gaps += 1;
      this.keep(frame, header);
      this.requestKey();
      return;
    }
    this.applyAndReport(frame, header, leaf);
    this.drainPending();
  }

  applyAndReport(frame, header, leaf) {
    const { result, changed } = applyFrame(frame, this.state, this.maxBytes);
    if (!result.ok) {
      if (result.error === FrameError.SequenceGap || result.error === FrameError.NoBase) {
        this.stats.gaps += 1;
        this.requestKey();
      } else {
        this.bad(result, leaf);
      }
      return;
    }
    this.stats.lastPublishedUs = header.publishedUs;
    // At arrival: once the lab stops, the last frame's lag stays what it was.
    this.stats.lastLagMs = header.publishedUs > 0 ? Date.now() - header.publishedUs / 1000 : null;
    this.emit('state', this.state, changed, header);
  }

  keep(frame, header) {
    this.pending.push({ frame, header });
    this.pendingBytes += frame.length;
    while (this.pending.length > MAX_PENDING_FRAMES || this.pendingBytes > MAX_PENDING_BYTES) {
      const dropped = this.pending.shift();
      this.pendingBytes -= dropped.frame.length;
    }
  }

  drainPending() {
    const kept = this.pending;
    this.pending = [];
    this.pendingBytes = 0;
    kept.sort((a, b) => (a.header.sequence < b.header.sequence ? -1 : 1));
    for (const { frame, header } of kept) {
      const s = this.state;
      if (header.publisher !== s.publisher || header.sequence <= s.sequence) continue;
      if (header.sequence !== s.sequence + 1n) {
        this.keep(frame, header);
        continue;
      }
      this.applyAndReport(frame, header, 'frame');
    }
  }

  /** Forgets everything, as for a new connection. */
  reset() {
    this.state = emptyState();
    this.assemblers.clear();
    this.pending = [];
    this.pendingBytes = 0;
    this.needKey = true;
    this.askedAt = -Infinity;
  }
}
