// The lab viewer page: logs in to the broker over WebSocket as a viewer of one
// lab, follows the lab's frames and shows its canvases, plots and read-outs.
//
// Everything it needs is in the bundle: it fetches nothing but the lab's
// scene description from its own origin, and that only when the registry
// carries none.

import { wsconnect, createInbox } from '@nats-io/nats-core';
import { Follower } from './follower.js';
import { Kind, isValidLab, subject } from './frame.js';
import { CanvasView, isPlaced, shapesOf } from './scene.js';
import { PlotView } from './plots.js';
import { mergeLayout } from './layout.js';

const NOT_STARTED_AFTER_MS = 4000;

const $ = (id) => document.getElementById(id);

// --- login ----------------------------------------------------------------------

function defaultUrl() {
  // Served by the page's own web server, which passes /nats on to the broker.
  const scheme = location.protocol === 'https:' ? 'wss' : 'ws';
  return `${scheme}://${location.host}/nats`;
}

function loginFromQuery() {
  const q = new URLSearchParams(location.search);
  return {
    url: q.get('url') || (location.protocol.startsWith('http') ? defaultUrl() : ''),
    lab: q.get('lab') || '',
    user: q.get('user') || '',
    password: q.get('password') || '',
    scene: q.get('scene') || '',
  };
}

function showForm(login, problem) {
  const form = $('login');
  form.hidden = false;
  $('login-url').value = login.url || (location.protocol.startsWith('http') ? defaultUrl() : '');
  $('login-lab').value = login.lab;
  $('login-user').value = login.user || (login.lab ? `view-${login.lab}` : '');
  $('login-password').value = login.password;
  $('login-problem').textContent = problem || '';
  form.onsubmit = (e) => {
    e.preventDefault();
    const l = {
      url: $('login-url').value.trim(),
      lab: $('login-lab').value.trim(),
      user: $('login-user').value.trim(),
      password: $('login-password').value,
      scene: login.scene,
    };
    if (!isValidLab(l.lab)) {
      $('login-problem').textContent = 'A lab name is letters, digits and _ only.';
      return;
    }
    // The address bar keeps all but the password, so a reload asks for it only.
    const q = new URLSearchParams({ url: l.url, lab: l.lab, user: l.user });
    if (l.scene) q.set('scene', l.scene);
    history.replaceState(null, '', `?${q}`);
    form.hidden = true;
    start(l);
  };
}

// --- the message line -------------------------------------------------------------

function say(kind, text) {
  const m = $('message');
  m.className = `message ${kind}`;
  m.textContent = text;
  m.hidden = !text;
  window.orlavex.message = { kind, text };
}

// --- the lab's layout -------------------------------------------------------------

/** A layout from the state alone: one canvas, a plot per trail, every read-out. */
function layoutFromState(state, lab) {
  const trails = state.objects.filter((o) => o.kind === Kind.Trail);
  return {
    title: `Lab ${lab}`,
    canvases: state.objects.some((o) => isPlaced(o.kind)) ? [{ id: 'scene', title: 'Scene' }] : [],
    plots: trails.map((t) => ({ id: `trail-${t.num}`, title: `Trail ${t.num}`, trails: [{ num: t.num }] })),
    readouts: state.objects.filter((o) => o.kind === Kind.ReadOut).map((o) => ({ num: o.num, prefix: `record ${o.num}: ` })),
    derived: true,
  };
}

async function fetchDescription(name) {
  if (!name || !/^[A-Za-z0-9_-]+$/.test(name)) return null;
  try {
    const r = await fetch(`labs/${name}.json`, { cache: 'no-cache' });
    if (!r.ok) return null;
    return await r.json();
  } catch (e) {
    return null;
  }
}

class Lab {
  constructor(root, layout) {
    this.layout = layout;
    root.replaceChildren();
    const canvases = document.createElement('div');
    canvases.className = 'canvases';
    const plots = document.createElement('div');
    plots.className = 'plots';
    const readouts = document.createElement('div');
    readouts.className = 'readouts';
    root.append(canvases, plots, readouts);
    if (layout.title) $('title').textContent = layout.title;
    this.canvases = (layout.canvases || []).map((c) => new CanvasView(canvases, c));
    this.plots = (layout.plots || []).map((p) => new PlotView(plots, p));
    this.readouts = new Map();
    for (const r of layout.readouts || []) {
      const el = document.createElement('span');
      el.className = 'readout';
      el.dataset.num = r.num;
      el.textContent = `${r.prefix || ''}–${r.suffix || ''}`;
      readouts.append(el);
      this.readouts.set(r.num, { d: r, el, value: null, text: '' });
    }
    this.frameRequested = false;
    this.firstCompleteMs = null;
  }

  apply(state, changed) {
    for (const o of state.objects) {
      if (changed && !changed.has(o.num)) continue;
      if (isPlaced(o.kind)) {
        for (const c of this.canvases) if (c.wants(o)) c.update(o);
      } else if (o.kind === Kind.Trail) {
        for (const p of this.plots) if (p.has(o.num)) p.update(o);
      } else if (o.kind === Kind.ReadOut && (o.sections >> 7) & 1) {
        const r = this.readouts.get(o.num);
        if (r) {
          r.value = o.value;
          r.text = `${r.d.prefix || ''}${formatValue(o.value, r.d.decimals)}${r.d.suffix || ''}`;
          r.el.textContent = r.text;
        }
      }
    }
    this.draw();
  }

  draw() {
    if (this.frameRequested) return;
    this.frameRequested = true;
    requestAnimationFrame(() => {
      this.frameRequested = false;
      for (const c of this.canvases) c.render();
      for (const p of this.plots) p.flush();
      requestAnimationFrame(() => {
        if (this.firstCompleteMs === null && this.canvases.every((c) => c.renders > 0 || c.objects.size === 0)) {
          this.firstCompleteMs = performance.now();
          window.orlavex.firstCompleteMs = this.firstCompleteMs;
        }
      });
    });
  }

  summary() {
    return {
      canvases: this.canvases.map((c) => c.summary()),
      plots: this.plots.map((p) => p.summary()),
      readouts: [...this.readouts.values()].map((r) => ({ num: r.d.num, value: r.value, text: r.text })),
    };
  }
}

/** As DisplayDouble shows it: fixed decimals ('f' format), or as it comes. */
function formatValue(v, decimals) {
  if (!Number.isFinite(v)) return String(v);
  return Number.isInteger(decimals) ? v.toFixed(decimals) : String(v);
}

// --- the connection ----------------------------------------------------------------

let current = null;

async function start(login) {
  if (current) await current.stop();
  current = new Session(login);
  current.run();
}

class Session {
  constructor(login) {
    this.login = login;
    this.follower = null;
    this.nc = null;
    this.stopped = false;
    this.lab = null;
    this.layoutPending = null;
    this.seenLab = false;
    this.ended = false;
    this.bytesWindow = [];
    this.statusTimer = null;
    this.renders = [];
  }

  async stop() {
    this.stopped = true;
    clearInterval(this.statusTimer);
    if (this.nc) await this.nc.close().catch(() => {});
  }

  async run() {
    const { lab } = this.login;
    const follower = new Follower({
      ask: (what) => this.ask(what),
    });
    this.follower = follower;
    window.orlavex.follower = follower;
    follower.on('registry', () => this.ensureLayout());
    follower.on('state', (state, changed) => this.onState(state, changed));
    follower.on('bad', (text) => {
      $('bad').textContent = `bad frames: ${follower.stats.bad} (last: ${text}); asked for a keyframe`;
      $('bad').hidden = false;
    });
    follower.on('status', (s) => this.onStatus(s));
    this.statusTimer = setInterval(() => this.statusLine(), 500);

    say('info', `Connecting to ${this.login.url} …`);
    let delay = 500;
    while (!this.stopped) {
      try {
        this.nc = await wsconnect({
          servers: this.login.url,
          user: this.login.user,
          pass: this.login.password,
          name: `orlavex-web ${lab}`,
          maxReconnectAttempts: -1,
          reconnectTimeWait: 1000,
          reconnectJitter: 200,
          pingInterval: 20000,
          timeout: 5000,
        });
        break;
      } catch (e) {
        if (/Authorization|authentication|Permissions/i.test(String(e && e.message))) {
          say('error', `The broker refused the login of ${this.login.user}: check the user and password given for lab ${lab}.`);
          showForm(this.login, 'Login refused.');
          return;
        }
        say('error', `Broker not reachable at ${this.login.url} (${e && e.message ? e.message : e}); trying again …`);
        await new Promise((r) => setTimeout(r, delay));
        delay = Math.min(delay * 2, 8000);
      }
    }
    if (this.stopped) return;
    this.connectedAt = performance.now();
    this.watchStatus();
    this.inbox = createInbox();
    this.replies = 0;
    const sub = (leaf, subj) => this.nc.subscribe(subj, {
      callback: (err, msg) => {
        if (err) return;
        this.bytesWindow.push([performance.now(), msg.data.length]);
        follower.message(leaf, msg.data);
      },
    });
    for (const leaf of ['frame', 'key', 'registry', 'status']) sub(leaf, subject(lab, leaf));
    sub('reply', `${this.inbox}.*`);
    await this.nc.flush();
    say('info', `Connected to the broker; waiting for lab ${lab} …`);
    follower.start();
    this.notStartedTimer = setTimeout(() => {
      if (!this.seenLab)
        say('warn', `Lab ${lab} has not started: no front-end is sharing it yet. The page follows it as soon as it starts.`);
    }, NOT_STARTED_AFTER_MS);
  }

  ask(what) {
    if (!this.nc || this.nc.isClosed()) return;
    this.replies += 1;
    try {
      this.nc.publish(subject(this.login.lab, 'sync'), what === 'registry' ? 'registry' : '', { reply: `${this.inbox}.${this.replies}` });
    } catch (e) { /* disconnected: asked again once reconnected */ }
  }

  async watchStatus() {
    for await (const s of this.nc.status()) {
      if (this.stopped) return;
      switch (s.type) {
        case 'disconnect':
          say('error', 'The broker has gone away; reconnecting …');
          break;
        case 'reconnecting':
          break;
        case 'reconnect':
          say('info', 'Reconnected to the broker; catching up …');
          // Frames went by meanwhile: ask for the whole state again.
          this.follower.start();
          break;
        case 'error':
          if (/Authorization|Permissions/i.test(String(s.error || s.data)))
            say('error', `The broker refused: ${s.error || s.data}`);
          break;
        default:
          break;
      }
    }
  }

  onStatus(s) {
    if (s.state === 'closed') {
      this.ended = true;
      this.statusLine(); // the last cycle, not the one of the last tick
      say('warn', `Lab ${this.login.lab} has ended (cycle ${s.cycle}). The page shows its last state and follows it again if it restarts.`);
    } else if (s.state === 'sharing') {
      this.seenLab = true;
      if (this.ended) {
        this.ended = false;
        say('info', '');
      }
    }
  }

  async ensureLayout() {
    if (this.lab || this.layoutPending) return this.layoutPending;
    this.layoutPending = (async () => {
      const reg = this.follower.registry;
      const own = reg && reg.scene && Array.isArray(reg.scene.canvases) ? reg.scene : null;
      let layout = mergeLayout(await fetchDescription(this.login.scene || this.login.lab), own);
      if (!own && !layout.canvases) {
        // Neither the controller nor a description says: the state decides,
        // once it has come.
        if (this.follower.state.sequence === 0n) {
          this.layoutPending = null;
          return;
        }
        layout = layoutFromState(this.follower.state, this.login.lab);
      }
      try {
        this.lab = new Lab($('lab'), layout);
      } catch (e) {
        say('error', `This browser cannot show the lab: ${e.message}`);
        throw e;
      }
      window.orlavex.lab = this.lab;
      this.lab.apply(this.follower.state, null);
    })();
    return this.layoutPending;
  }

  async onState(state, changed) {
    this.seenLab = true;
    if (!this.ended && window.orlavex.message && window.orlavex.message.kind !== 'info') say('info', '');
    else if (window.orlavex.message && /waiting|Connected|catching/.test(window.orlavex.message.text)) say('info', '');
    if (!this.lab) {
      await this.ensureLayout();
      return;
    }
    this.lab.apply(state, changed);
  }

  statusLine() {
    const f = this.follower;
    if (!f) return;
    const now = performance.now();
    this.bytesWindow = this.bytesWindow.filter(([t]) => now - t <= 2000);
    const span = Math.min(2000, now - (this.connectedAt ?? now)) / 1000;
    const bytes = this.bytesWindow.reduce((s, [, n]) => s + n, 0);
    const rate = span > 0.2 ? bytes / span : 0;
    const lagMs = f.stats.lastLagMs;
    const renders = this.lab ? this.lab.canvases.reduce((s, c) => s + c.renders, 0) : 0;
    this.renders.push([now, renders]);
    this.renders = this.renders.filter(([t]) => now - t <= 2000);
    const [t0, r0] = this.renders[0];
    const fps = now > t0 ? ((renders - r0) * 1000) / (now - t0) / Math.max(1, this.lab ? this.lab.canvases.length : 1) : 0;
    const parts = [
      `cycle ${f.state.cycle || '–'}`,
      `lag ${lagMs === null ? '–' : `${Math.max(0, lagMs).toFixed(0)} ms`}`,
      `${formatBytes(rate)}/s`,
      `${fps.toFixed(1)} pictures/s`,
      `frames ${f.stats.frames}`,
    ];
    if (f.stats.bad) parts.push(`bad ${f.stats.bad}`);
    $('status').textContent = parts.join(' · ');
    Object.assign(window.orlavex.live, { cycle: f.state.cycle, lagMs, bytesPerSecond: rate, fps });
  }
}

function formatBytes(n) {
  if (n >= 1e6) return `${(n / 1e6).toFixed(2)} MB`;
  if (n >= 1e3) return `${(n / 1e3).toFixed(1)} kB`;
  return `${n.toFixed(0)} B`;
}

// --- start ---------------------------------------------------------------------------

window.orlavex = {
  message: null,
  live: {},
  firstCompleteMs: null,
  get state() { return current && current.follower ? current.follower.state : null; },
  get stats() { return current && current.follower ? current.follower.stats : null; },
  summary() { return current && current.lab ? current.lab.summary() : null; },
  shapes: (entries) => shapesOf(entries),
};

const login = loginFromQuery();
if (login.url && isValidLab(login.lab) && login.user && login.password) start(login);
else showForm(login, login.lab && !isValidLab(login.lab) ? 'A lab name is letters, digits and _ only.' : '');
