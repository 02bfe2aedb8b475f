// The viewer page in a real browser: the demo lab shared through nats-server
// (scripts/share-setup, TLS, logins), the page served by nginx with the
// WebSocket passed on to the broker (scripts/web-setup), and Debian's Chromium
// driven headless by puppeteer-core.
//
// A page opened before the lab starts must say so, then follow it; its
// canvases must show pictures; a malformed frame published by the
// administrator must be counted and shown without breaking the page; a page
// opened at cycle 150 must end with the same state as the first; a broker
// restarted mid-run must be said and both pages must follow again by
// themselves; both must hold what the C++ viewer (orlavex-watch) holds at the
// last cycle, their plots the trails' points and their read-outs the
// controller's values; the canvases must start from the controller's
// cameras, turn and zoom with the mouse and come back with "Reset view"; the
// lab's end and the broker's going away must be said. Each canvas is
// compared with the controller's own picture at the last cycle (SSIM). Exits
// 77 (skipped) where Chromium, nginx, nats-server, xvfb-run or openssl is
// missing.
//
// Environment (set by CMake, web/CMakeLists.txt): ORLAVEX_SOURCE_DIR,
// ORLAVEX_WEB_PAGE, ORLAVEX_WEB_NODE_MODULES, ORLAVEX_DEMO_SERVER,
// ORLAVEX_DEMO_CLIENT, ORLAVEX_WATCH, ORLAVEX_WEB_ARTIFACTS (screenshots).

import { spawn, spawnSync } from 'node:child_process';
import { createRequire } from 'node:module';
import { createServer } from 'node:net';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import assert from 'node:assert/strict';

const env = process.env;
const SOURCE = env.ORLAVEX_SOURCE_DIR;
const PAGE = env.ORLAVEX_WEB_PAGE;
const MODULES = env.ORLAVEX_WEB_NODE_MODULES;
const ARTIFACTS = env.ORLAVEX_WEB_ARTIFACTS || mkdtempSync(join(tmpdir(), 'orlavex-web-shots-'));
const CHROMIUM = env.ORLAVEX_CHROMIUM || '/usr/bin/chromium';
const CYCLES = 450; // 15 s of the demo at 30 cycles/s
const SSIM_MIN = 0.9;

function skip(why) {
  console.log(`SKIP: ${why}`);
  process.exit(77);
}

const which = (name) => {
  const r = spawnSync('sh', ['-c', `command -v ${name} || PATH=$PATH:/usr/sbin:/sbin command -v ${name}`], { encoding: 'utf8' });
  return r.status === 0 ? r.stdout.trim().split('\n')[0] : null;
};

for (const v of ['ORLAVEX_SOURCE_DIR', 'ORLAVEX_WEB_PAGE', 'ORLAVEX_WEB_NODE_MODULES', 'ORLAVEX_DEMO_SERVER', 'ORLAVEX_DEMO_CLIENT', 'ORLAVEX_WATCH'])
  if (!env[v]) skip(`${v} is not set (run through ctest)`);
if (!existsSync(CHROMIUM)) skip(`${CHROMIUM} is missing (scripts/install-deps installs chromium)`);
const NGINX = which('nginx');
const NATS = which('nats-server');
const XVFB = which('xvfb-run');
if (!NGINX) skip('nginx is missing (scripts/install-deps)');
if (!NATS) skip('nats-server is missing (scripts/install-deps)');
if (!XVFB) skip('xvfb-run is missing (scripts/install-deps)');
if (!which('openssl')) skip('openssl is missing (scripts/install-deps)');

const require = createRequire(join(MODULES, 'noop.js'));
const puppeteer = require('puppeteer-core');

// --- helpers -----------------------------------------------------------------------

const started = Date.now();
const log = (...a) => console.log(`[${((Date.now() - started) / 1000).toFixed(1)} s]`, ...a);

async function waitFor(what, fn, timeoutMs = 60000, everyMs = 100) {
  const deadline = Date.now() + timeoutMs;
  let last;
  for (;;) {
    try {
      last = await fn();
      if (last) return last;
    } catch (e) {
      last = e;
    }
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what} (last: ${last instanceof Error ? last.message : JSON.stringify(last)})`);
    await new Promise((r) => setTimeout(r, everyMs));
  }
}

function freePort() {
  return new Promise((resolve, reject) => {
    const s = createServer();
    s.once('error', reject);
    s.listen(0, '127.0.0.1', () => {
      const { port } = s.address();
      s.close(() => resolve(port));
    });
  });
}

const children = [];
function start(name, cmd, args, options = {}) {
  const out = [];
  const child = spawn(cmd, args, { stdio: ['ignore', 'pipe', 'pipe'], detached: true, ...options });
  child.stdout.on('data', (d) => out.push(d));
  child.stderr.on('data', (d) => out.push(d));
  child.output = () => Buffer.concat(out).toString();
  child.exited = new Promise((r) => child.on('exit', (code, signal) => r({ code, signal })));
  child.name = name;
  children.push(child);
  return child;
}

function stop(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  // Its own process group: xvfb-run's X server and the client go with it.
  try { process.kill(-child.pid, 'SIGTERM'); } catch (e) { /* gone */ }
}

function cleanUp() {
  for (const c of children.reverse()) stop(c);
}
process.on('exit', cleanUp);

const readEnv = (file) => Object.fromEntries(readFileSync(file, 'utf8').split('\n')
  .filter((l) => /^[A-Z0-9_a-z]+=/.test(l)).map((l) => [l.slice(0, l.indexOf('=')), l.slice(l.indexOf('=') + 1)]));

// --- the broker, the web server, the browser -----------------------------------------

const work = mkdtempSync(join(tmpdir(), 'orlavex-web-'));
mkdirSync(ARTIFACTS, { recursive: true });
let failed = false;
try {
  await main();
} catch (e) {
  failed = true;
  console.error(`FAIL: ${e.stack || e}`);
  for (const c of children) console.error(`--- ${c.name} ---\n${c.output().split('\n').slice(-25).join('\n')}`);
} finally {
  cleanUp();
  if (!failed) rmSync(work, { recursive: true, force: true });
}
console.log(failed ? '0 passed, 1 failed' : '1 passed, 0 failed');
process.exit(failed ? 1 : 0);

async function main() {
  const share = join(work, 'share');
  const [port, wsPort, webPort] = [await freePort(), await freePort(), await freePort()];
  let r = spawnSync(join(SOURCE, 'scripts/share-setup'), [share, '--lab', 'demo', '--port', String(port), '--ws-port', String(wsPort)], { encoding: 'utf8' });
  assert.equal(r.status, 0, r.stderr);
  r = spawnSync(join(SOURCE, 'scripts/web-setup'), [join(work, 'web'), '--share', share, '--page', PAGE, '--port', String(webPort)], { encoding: 'utf8' });
  assert.equal(r.status, 0, r.stderr);
  const creds = readEnv(join(share, 'credentials.env'));

  let nats = start('nats-server', NATS, ['-c', join(share, 'nats.conf')]);
  await waitFor('nats-server', () => nats.output().includes('Server is ready'), 30000);
  const nginx = start('nginx', NGINX, ['-p', join(work, 'web'), '-c', join(work, 'web/nginx.conf'), '-g', 'daemon off;']);
  await waitFor('nginx', () => new Promise((res) => {
    const s = require('node:net').connect(webPort, '127.0.0.1', () => { s.destroy(); res(true); });
    s.on('error', () => res(false));
  }), 30000);
  log(`broker on ${port} (WebSocket ${wsPort}), page on https://localhost:${webPort}/`);

  let browser;
  try {
    browser = await puppeteer.launch({
      executablePath: CHROMIUM,
      headless: true,
      // The broker's own CA signed the certificate; the browser is told to
      // trust nothing else than what it would anyway, bar this test CA.
      acceptInsecureCerts: true,
      args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
        '--disable-background-networking', '--disable-component-update', '--disable-sync',
        '--use-angle=swiftshader', '--enable-unsafe-swiftshader',
        `--user-data-dir=${join(work, 'chrome')}`],
      timeout: 60000,
    });
  } catch (e) {
    skip(`Chromium cannot start here: ${e.message.split('\n')[0]}`);
  }
  const errors = [];
  const open = async (name) => {
    const page = await browser.newPage();
    page.on('pageerror', (e) => errors.push(`${name}: ${e.message}`));
    page.on('requestfailed', (q) => { if (!q.url().startsWith('data:')) errors.push(`${name}: request failed ${q.url()}`); });
    page.on('request', (q) => { if (!/^(https:\/\/localhost:|data:|blob:|wss:\/\/localhost:)/.test(q.url())) errors.push(`${name}: fetched ${q.url()}`); });
    await page.setViewport({ width: 1400, height: 1100 });
    const q = new URLSearchParams({ lab: 'demo', user: creds.ORLAVEX_SHARE_VIEWER_USER_demo, password: creds.ORLAVEX_SHARE_VIEWER_demo });
    await page.goto(`https://localhost:${webPort}/?${q}`, { waitUntil: 'load' });
    return page;
  };
  const look = (page) => page.evaluate(() => ({
    message: window.orlavex.message,
    cycle: window.orlavex.state ? window.orlavex.state.cycle : 0,
    stats: window.orlavex.stats ? { ...window.orlavex.stats } : null,
    live: { ...window.orlavex.live },
    status: document.getElementById('status').textContent,
  }));

  // A page opened before the lab: it says so, and waits.
  const first = await open('first page');
  await waitFor('"not started" on the first page', async () => {
    const l = await look(first);
    return l.message && l.message.kind === 'warn' && /has not started/.test(l.message.text);
  }, 30000);
  log('first page: lab not started');

  // The lab, shared; and the C++ viewer beside the pages.
  const watch = start('orlavex-watch', env.ORLAVEX_WATCH, [creds.ORLAVEX_SHARE_URL, 'demo', '--user', creds.ORLAVEX_SHARE_VIEWER_USER_demo, '--ca', creds.ORLAVEX_SHARE_CA, '--print', '--timeout', '240'],
    { env: { ...env, ORLAVEX_SHARE_PASSWORD: creds.ORLAVEX_SHARE_VIEWER_demo } });
  const server = start('demo_server', env.ORLAVEX_DEMO_SERVER, ['--port', '0']);
  const serverPort = await waitFor('the demo server', () => (server.output().match(/listening on port (\d+)/) || [])[1], 30000);
  const desktopShot = join(ARTIFACTS, 'desktop.png');
  const client = start('demo_client', XVFB, ['-a', '-s', '-screen 0 1280x1024x24 -noreset', env.ORLAVEX_DEMO_CLIENT,
    '--port', serverPort, '--cycles', String(CYCLES), '--screenshot', desktopShot, '--share', creds.ORLAVEX_SHARE_URL, 'demo'],
  { env: { ...env, ORLAVEX_SHARE_USER: creds.ORLAVEX_SHARE_PUBLISHER_USER_demo, ORLAVEX_SHARE_PASSWORD: creds.ORLAVEX_SHARE_PUBLISHER_demo, ORLAVEX_SHARE_CA: creds.ORLAVEX_SHARE_CA, QTWEBENGINE_DISABLE_SANDBOX: '1' } });

  await waitFor('cycle 60 on the first page', async () => (await look(first)).cycle >= 60, 120000);
  const early = await look(first);
  log(`first page at cycle ${early.cycle}: ${early.status}`);
  assert.ok(early.live.lagMs !== null && early.live.lagMs < 5000, `lag ${early.live.lagMs}`);
  assert.ok(early.live.bytesPerSecond > 0, 'bytes per second');
  assert.match(early.status, /cycle \d+ · lag \d+ ms · [\d.]+ [kM]?B\/s/);

  // Every canvas shows a picture: more than a sliver differs from its background.
  const canvases = await first.$$('.canvas .view');
  assert.equal(canvases.length, 2, 'two canvases');
  for (const [i, c] of canvases.entries()) {
    const png = await c.screenshot({ path: join(ARTIFACTS, `page-canvas-${i}-early.png`) });
    const filled = await fractionNotBackground(browser, png);
    log(`canvas ${i}: ${(filled * 100).toFixed(1)} % drawn`);
    assert.ok(filled > 0.03, `canvas ${i} is nearly empty (${filled})`);
  }

  // A malformed frame from the administrator: counted, said, and the page goes on.
  const before = await look(first);
  publishAsAdmin(creds, port, 'orlavex.demo.frame', Buffer.concat([Buffer.from('OLXF'), Buffer.from([1, 2, 0, 0]), Buffer.alloc(40, 0xff), Buffer.from('not a body')]));
  await waitFor('the bad frame counted', async () => (await look(first)).stats.bad >= 1, 30000);
  const bad = await first.$eval('#bad', (e) => ({ hidden: e.hidden, text: e.textContent }));
  assert.ok(!bad.hidden && /bad frames: 1/.test(bad.text), JSON.stringify(bad));
  await waitFor('the page going on after the bad frame', async () => (await look(first)).cycle >= before.cycle + 30, 60000);
  log(`malformed frame: ${bad.text}`);

  // A page opened at cycle 150.
  await waitFor('cycle 150 on the first page', async () => (await look(first)).cycle >= 150, 60000);
  const second = await open('second page');
  await waitFor('the second page following', async () => (await look(second)).cycle > 0, 60000);

  // The broker goes away mid-run and comes back: the pages say so, reconnect
  // by themselves and follow the lab again.
  stop(nats);
  await nats.exited;
  await waitFor('"broker gone" on the second page', async () => /broker has gone away/.test(((await look(second)).message || {}).text || ''), 60000);
  const gone = (await look(second)).cycle;
  nats = start('nats-server (again)', NATS, ['-c', join(share, 'nats.conf')]);
  await waitFor('nats-server again', () => nats.output().includes('Server is ready'), 30000);
  for (const [name, page] of [['first', first], ['second', second]])
    await waitFor(`the ${name} page following again`, async () => (await look(page)).cycle >= gone + 30, 60000);
  log(`broker restarted at cycle ${gone}: both pages follow again`);

  const ended = await client.exited;
  assert.equal(ended.code, 0, `demo_client: ${client.output()}`);
  const last = CYCLES;
  for (const [name, page] of [['first', first], ['second', second]])
    await waitFor(`the ${name} page at the last cycle and told the lab ended`, async () => {
      const l = await look(page);
      return l.cycle === last && l.message && /has ended/.test(l.message.text);
    }, 60000);
  log('both pages at the last cycle; the lab has ended');

  // Both pages show the same, and what the C++ viewer holds. A browser draws
  // only the tab in front: each is brought there to draw what it holds.
  for (const p of [second, first]) {
    await p.bringToFront();
    await p.evaluate(() => new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r))));
  }
  const [a, b] = await Promise.all([first, second].map((p) => p.evaluate(() => ({
    summary: window.orlavex.summary(),
    state: window.orlavex.state.objects.map((o) => ({ num: o.num, kind: o.kind, transform: o.transform && Array.from(o.transform), text: o.text, value: o.value, trailX: o.trailX, trailY: o.trailY, cells: o.cells && Array.from(o.cells) })),
  }))));
  for (const s of [a, b]) for (const c of s.summary.canvases) c.renders = 0;
  assert.deepEqual(b.summary, a.summary, 'a page opened later shows the same');
  assert.deepEqual(b.state, a.state, 'a page opened later holds the same state');

  // The canvases start from the controller's cameras and show its fixed
  // objects (the stand and the rail): the page's own description has neither.
  const [pendulum, plate] = a.summary.canvases;
  const near = (got, want, what) => assert.ok(got && want.every((v, i) => Math.abs(got[i] - v) < 1e-3), `${what}: ${got} vs ${want}`);
  near(pendulum.camera && pendulum.camera.position, [1.16, 0.06, 5.45], "the pendulum's camera position");
  near(plate.camera && plate.camera.viewUp, [0, 0.866, 0.5], "the plate's view-up");
  assert.equal(pendulum.static, 6, 'the stand and the rail come from the controller');

  stop(watch);
  await watch.exited;
  const controller = lastPrintedState(watch.output());
  assert.equal(controller.cycle, last, 'the C++ viewer reached the last cycle');
  compareWithController(a, controller);
  log(`${controller.objects.size} objects agree with orlavex-watch at cycle ${last}`);

  // Plots: each series is its trail's points, in order.
  for (const plot of a.summary.plots)
    for (const s of plot.series) {
      const o = a.state.find((x) => x.num === s.num);
      assert.deepEqual(s.x, o.trailX, `plot ${plot.id}, trail ${s.num}: x`);
      assert.deepEqual(s.y, o.trailY, `plot ${plot.id}, trail ${s.num}: y`);
      assert.ok(s.x.length > 0, `trail ${s.num} has points`);
    }

  await first.screenshot({ path: join(ARTIFACTS, 'page.png'), fullPage: true });
  await second.screenshot({ path: join(ARTIFACTS, 'page-late.png'), fullPage: true });

  // The student's own camera: a drag turns it, the wheel zooms it, and
  // "Reset view" brings back the lab's.
  await first.bringToFront();
  const view = await first.$('.canvas .view');
  const box = await view.boundingBox();
  const cameraNow = () => first.evaluate(() => window.orlavex.lab.canvases[0].cameraNow());
  const apart = (a, b) => Math.hypot(...a.map((v, i) => v - b[i]));
  const lab = await cameraNow();
  const [cx, cy] = [box.x + box.width / 2, box.y + box.height / 2];
  await first.mouse.move(cx, cy);
  await first.mouse.down();
  await first.mouse.move(cx + 120, cy + 40, { steps: 10 });
  await first.mouse.up();
  const turned = await cameraNow();
  assert.ok(apart(turned.position, lab.position) > 0.1, `a drag turns the camera: ${turned.position} from ${lab.position}`);
  await first.mouse.wheel({ deltaY: -400 });
  const zoomed = await waitFor('the wheel to zoom', async () => {
    const c = await cameraNow();
    return Math.abs(apart(c.position, c.focalPoint) - apart(turned.position, turned.focalPoint)) > 0.05 && c;
  }, 10000);
  await (await first.$('.canvas .canvas-bar button')).click();
  const reset = await cameraNow();
  assert.ok(apart(reset.position, lab.position) < 1e-6 && apart(reset.focalPoint, lab.focalPoint) < 1e-6,
    `"Reset view" returns to the lab's camera: ${reset.position}`);
  log(`camera: turned by ${apart(turned.position, lab.position).toFixed(2)}, zoomed to ${apart(zoomed.position, zoomed.focalPoint).toFixed(2)}, reset`);

  // Every kind's builder, beyond the kinds the demo uses: each gives actors
  // of the extent along x that the desktop's VTK source gives.
  const square = [0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0];
  const kinds = [
    ['Sphere', { geometry: [0.5] }, [-0.5, 0.5]],
    ['Cube', { geometry: [1, 2, 3] }, [-0.5, 0.5]],
    ['Cylinder', { geometry: [0.5, 2] }, [-0.5, 0.5]],
    ['Cone', { geometry: [0.5, 1] }, [-0.5, 0.5]],
    ['Arrow', {}, [0, 1]],
    ['DiskSource', { geometry: [0.2, 0.5] }, [-0.5, 0.5]],
    ['Plane', {}, [-0.5, 0.5]],
    // VTK's first corner lies along normal x (1, 0, 0): here along +y.
    ['RegularPolygon', { geometry: [0, 0, 1, 0.5], sides: 6 }, [-0.433, 0.433]],
    ['PolygonC', { points: square }, [0, 1]],
    ['HalfPipe', { geometry: [0.5, 1, 2], dimensions: [24, 2, 2] }, [-1, 1]],
    ['File3DSImporter', { mesh: { points: square, polys: [3, 0, 1, 2, 3, 0, 2, 3] } }, [0, 1]],
    ['Line', { points: [0, 0, 0, 1, 2, 3] }, [0, 1]],
    ['VectorText', { text: 'T = 1' }, null],
  ];
  const shapes = await first.evaluate((entries) => window.orlavex.shapes(entries), kinds.map(([kind, d]) => ({ kind, ...d })));
  for (const [i, [kind, , x]] of kinds.entries()) {
    const s = shapes[i];
    assert.ok(s.actors >= 1 && s.bounds.every((b) => b.every(Number.isFinite)), `${kind}: ${JSON.stringify(s)}`);
    if (x) assert.ok(Math.abs(s.bounds[0][0] - x[0]) < 0.02 && Math.abs(s.bounds[0][1] - x[1]) < 0.02, `${kind}: x from ${s.bounds[0][0]} to ${s.bounds[0][1]}, not ${x}`);
  }
  log(`every kind's builder: ${kinds.length} kinds`);

  // Each canvas beside the controller's at the same cycle, size and camera.
  const ssims = await compareWithDesktop(browser, first, desktopShot);
  log(`SSIM against the desktop canvases: ${ssims.map((s) => s.toFixed(3)).join(', ')}`);
  for (const [i, s] of ssims.entries()) assert.ok(s >= SSIM_MIN, `canvas ${i}: SSIM ${s.toFixed(3)} < ${SSIM_MIN}`);

  // The broker goes away: the page says so.
  stop(nats);
  await nats.exited;
  await waitFor('"broker gone" on the first page', async () => /broker has gone away/.test(((await look(first)).message || {}).text || ''), 60000);
  log('broker gone: said');

  assert.deepEqual(errors, [], 'no page errors and nothing fetched from elsewhere');
  await browser.close();
  stop(nginx);
  log(`screenshots in ${ARTIFACTS}`);
}

function publishAsAdmin(creds, port, subj, payload) {
  const script = `
import sys
sys.path.insert(0, ${JSON.stringify(join(SOURCE, 'tests/share'))})
from natsproto import Client
c = Client("127.0.0.1", ${port}, "admin", ${JSON.stringify(creds.ORLAVEX_SHARE_ADMIN)}, cafile=${JSON.stringify(creds.ORLAVEX_SHARE_CA)})
c.connect()
c.pub(${JSON.stringify(subj)}, bytes.fromhex(${JSON.stringify(payload.toString('hex'))}))
c.flush()
c.close()
`;
  const r = spawnSync('python3', ['-c', script], { encoding: 'utf8', env: { ...env, PYTHONDONTWRITEBYTECODE: '1' } });
  assert.equal(r.status, 0, r.stderr);
}

/** The last state `orlavex-watch --print` printed: per record, what it showed. */
function lastPrintedState(text) {
  const lines = text.split('\n');
  let start = -1;
  for (let i = lines.length - 1; i >= 0; --i) if (/^cycle \d+ \(frame \d+\)$/.test(lines[i])) { start = i; break; }
  assert.ok(start >= 0, 'orlavex-watch printed a state');
  const cycle = Number(lines[start].match(/^cycle (\d+)/)[1]);
  const objects = new Map();
  for (let i = start + 1; i < lines.length; ++i) {
    const m = lines[i].match(/^\s+(\d+) (\S+)\s+(.*)$/);
    if (!m) break;
    const o = { kind: m[2], text: m[3] };
    const at = m[3].match(/at \(([^)]*)\)/);
    if (at) o.position = at[1].split(' ').map(Number);
    const t = m[3].match(/text "(.*)"/);
    if (t) o.label = t[1];
    const v = m[3].match(/value (\S+)/);
    if (v) o.value = Number(v[1].replace(/,$/, ''));
    const p = m[3].match(/(\d+) points/);
    if (p) o.points = Number(p[1]);
    const lp = m[3].match(/last \(([^,]+), ([^)]+)\)/);
    if (lp) o.last = [Number(lp[1]), Number(lp[2])];
    objects.set(Number(m[1]), o);
  }
  return { cycle, objects };
}

function close6(a, b) { return Math.abs(a - b) <= 5e-6 * Math.max(Math.abs(a), Math.abs(b)) + 1e-300 || Number(a.toPrecision(6)) === b; }

function compareWithController(page, controller) {
  const kinds = ['none', 'Sphere', 'Cube', 'Cylinder', 'Cone', 'Arrow', 'DiskSource', 'Plane', 'RegularPolygon', 'PolygonC', 'HalfPipe', 'File3DSImporter', 'VectorText', 'PlanarGrid', 'TrailQwt', 'NumberField', 'DisplayDouble'];
  assert.equal(page.state.length, controller.objects.size, 'as many objects as the controller');
  const drawn = new Map();
  for (const c of page.summary.canvases) for (const o of c.objects) drawn.set(o.num, o);
  for (const o of page.state) {
    const c = controller.objects.get(o.num);
    assert.ok(c, `object ${o.num} on the controller`);
    assert.equal(kinds[o.kind], c.kind, `object ${o.num}: kind`);
    if (c.position) {
      const mine = [o.transform[3], o.transform[7], o.transform[11]];
      mine.forEach((v, i) => assert.ok(close6(v, c.position[i]), `object ${o.num}: position ${mine} vs ${c.position}`));
      const d = drawn.get(o.num);
      assert.ok(d && d.actors > 0, `object ${o.num} is drawn`);
      d.position.forEach((v, i) => assert.ok(close6(v, c.position[i]), `object ${o.num}: drawn at ${d.position} vs ${c.position}`));
    }
    if (c.label !== undefined) assert.equal(o.text, c.label, `object ${o.num}: text`);
    if (c.value !== undefined) {
      assert.ok(Math.abs(o.value - c.value) <= 1e-9 * Math.max(1, Math.abs(c.value)), `object ${o.num}: value ${o.value} vs ${c.value}`);
      const r = page.summary.readouts.find((x) => x.num === o.num);
      assert.ok(r && r.value === o.value && r.text.length > 0, `read-out ${o.num} shows its value`);
    }
    if (c.points !== undefined) {
      assert.equal(o.trailX.length, c.points, `trail ${o.num}: points`);
      assert.ok(close6(o.trailX.at(-1), c.last[0]) && close6(o.trailY.at(-1), c.last[1]), `trail ${o.num}: last point`);
    }
  }
}

// --- pictures -------------------------------------------------------------------

/** Runs `fn` on PNG images decoded by the browser itself (no image package needed). */
async function withImages(browser, pngs, fn, arg) {
  const page = await browser.newPage();
  try {
    return await page.evaluate(async (urls, source, a) => {
      const images = await Promise.all(urls.map((u) => new Promise((res, rej) => {
        const img = new Image();
        img.onload = () => res(img);
        img.onerror = rej;
        img.src = u;
      })));
      const pixels = images.map((img) => {
        const c = document.createElement('canvas');
        c.width = img.width;
        c.height = img.height;
        const ctx = c.getContext('2d');
        ctx.drawImage(img, 0, 0);
        return ctx.getImageData(0, 0, img.width, img.height);
      });
      // eslint-disable-next-line no-new-func
      return new Function('pixels', 'arg', source)(pixels, a);
    }, pngs.map((p) => `data:image/png;base64,${Buffer.from(p).toString('base64')}`), fn, arg);
  } finally {
    await page.close();
  }
}

async function fractionNotBackground(browser, png) {
  return withImages(browser, [png], `
    const d = pixels[0].data;
    const bg = [d[0], d[1], d[2]];
    let n = 0;
    for (let i = 0; i < d.length; i += 4)
      if (Math.abs(d[i] - bg[0]) + Math.abs(d[i + 1] - bg[1]) + Math.abs(d[i + 2] - bg[2]) > 24) ++n;
    return n / (d.length / 4);`);
}

/**
 * Finds each 3-D canvas in the controller's window picture (the canvases'
 * background colour, 0.97 0.97 0.99, in the top half), shows the page's
 * canvas at the same pixel size with the lab's camera, and returns the SSIM
 * of the two in grey levels.
 *
 * SSIM rather than a pixel difference: the two renderers differ in
 * anti-aliasing, tessellation and text rasterising by a pixel here and
 * there, which a per-pixel measure punishes as much as a misplaced object;
 * SSIM compares local structure (means, contrasts and correlation over 8x8
 * windows), so it stays high for the same scene drawn slightly differently and
 * drops when an object is missing, moved or differently coloured.
 */
async function compareWithDesktop(browser, page, desktopPng) {
  const boxes = await withImages(browser, [readFileSync(desktopPng)], `
    const { width, height, data } = pixels[0];
    const bg = (x, y) => { const i = 4 * (y * width + x); return Math.abs(data[i] - 247) <= 1 && Math.abs(data[i + 1] - 247) <= 1 && Math.abs(data[i + 2] - 252) <= 1; };
    const top = Math.floor(height / 2);
    const cols = [];
    for (let x = 0; x < width; ++x) { let n = 0; for (let y = 0; y < top; ++y) if (bg(x, y)) ++n; cols.push(n > 40); }
    const runs = [];
    for (let x = 0; x < width;) {
      if (!cols[x]) { ++x; continue; }
      let e = x; while (e < width && cols[e]) ++e;
      if (e - x > 100) runs.push([x, e]);
      x = e;
    }
    return runs.map(([x0, x1]) => {
      const mid = Math.floor((x0 + x1) / 2);
      let y0 = 0; while (y0 < top && !bg(mid, y0)) ++y0;
      let y1 = y0; while (y1 < height && (bg(mid, y1) || bg(x0 + 2, y1) || bg(x1 - 3, y1))) ++y1;
      return { x: x0, y: y0, w: x1 - x0, h: y1 - y0 };
    });`);
  assert.equal(boxes.length, 2, `two canvases in the desktop picture: ${JSON.stringify(boxes)}`);
  const out = [];
  const views = await page.$$('.canvas .view');
  for (const [i, box] of boxes.entries()) {
    await page.bringToFront(); // a tab behind another draws nothing
    await page.evaluate((k, w, h) => {
      const v = document.querySelectorAll('.canvas .view')[k];
      v.style.width = `${w}px`;
      v.style.height = `${h}px`;
      v.style.flex = 'none';
      window.orlavex.lab.canvases[k].resetCamera();
    }, i, box.w, box.h);
    const k = i;
    await waitFor('the resized canvas drawn', async () => page.evaluate((n) => {
      const c = window.orlavex.lab.canvases[n];
      const r = c.view.getBoundingClientRect();
      return r.width > 0 && c.renders > 0;
    }, k), 10000);
    await new Promise((r) => setTimeout(r, 0));
    await page.evaluate(() => new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r))));
    const png = await views[i].screenshot({ path: join(ARTIFACTS, `page-canvas-${i}.png`) });
    const s = await withImages(browser, [readFileSync(desktopPng), png], `
      const [desk, web] = pixels;
      const { x, y, w, h } = arg;
      const W = Math.min(w, web.width), H = Math.min(h, web.height);
      const grey = (img, ox, oy) => { const g = new Float64Array(W * H); for (let j = 0; j < H; ++j) for (let i = 0; i < W; ++i) { const p = 4 * ((j + oy) * img.width + i + ox); g[j * W + i] = 0.299 * img.data[p] + 0.587 * img.data[p + 1] + 0.114 * img.data[p + 2]; } return g; };
      const a = grey(desk, x, y), b = grey(web, 0, 0);
      const C1 = (0.01 * 255) ** 2, C2 = (0.03 * 255) ** 2;
      let sum = 0, n = 0;
      for (let j = 0; j + 8 <= H; j += 4) for (let i = 0; i + 8 <= W; i += 4) {
        let ma = 0, mb = 0;
        for (let v = 0; v < 8; ++v) for (let u = 0; u < 8; ++u) { ma += a[(j + v) * W + i + u]; mb += b[(j + v) * W + i + u]; }
        ma /= 64; mb /= 64;
        let va = 0, vb = 0, cov = 0;
        for (let v = 0; v < 8; ++v) for (let u = 0; u < 8; ++u) { const da = a[(j + v) * W + i + u] - ma, db = b[(j + v) * W + i + u] - mb; va += da * da; vb += db * db; cov += da * db; }
        va /= 63; vb /= 63; cov /= 63;
        sum += ((2 * ma * mb + C1) * (2 * cov + C2)) / ((ma * ma + mb * mb + C1) * (va + vb + C2));
        ++n;
      }
      return sum / n;`, box);
    out.push(s);
  }
  writeFileSync(join(ARTIFACTS, 'ssim.json'), JSON.stringify({ boxes, ssim: out }, null, 1));
  return out;
}
