// What the viewer page costs and gives, against the demo lab shared through
// nats-server and served by nginx, in headless Chromium:
//
// - bytes per second per viewer (everything the page received over its
//   WebSocket: frames, keyframes, status lines), against streaming the
//   controller's window as JPEG at the lab's own frame rate (the window's
//   picture at the end of the run, encoded by the browser at quality 0.75);
// - the time from opening the page to its first complete picture (every
//   canvas drawn), over several openings while the lab runs;
// - the pictures per second each canvas draws, and the frames per second the
//   page receives.
//
//   node bench/bench_web.mjs [--build DIR] [--cycles N] [--openings K]
//
// DIR is the CMake build tree (default: build), with the targets orlavex_web,
// demo_server and demo_client built. Prints one line per figure and writes
// them as JSON to DIR/web/bench-web.json.

import { spawn, spawnSync } from 'node:child_process';
import { createRequire } from 'node:module';
import { createServer, connect } from 'node:net';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '..');
const args = process.argv.slice(2);
const opt = (name, fallback) => {
  const i = args.indexOf(name);
  return i >= 0 && args[i + 1] ? args[i + 1] : fallback;
};
const build = resolve(opt('--build', join(root, 'build')));
const CYCLES = Number(opt('--cycles', '600'));
const OPENINGS = Number(opt('--openings', '5'));
const require = createRequire(join(build, 'web/node_modules/noop.js'));
const puppeteer = require('puppeteer-core');

const which = (name) => {
  const r = spawnSync('sh', ['-c', `PATH=$PATH:/usr/sbin:/sbin command -v ${name}`], { encoding: 'utf8' });
  return r.status === 0 ? r.stdout.trim() : null;
};
const freePort = () => new Promise((res, rej) => {
  const s = createServer();
  s.once('error', rej);
  s.listen(0, '127.0.0.1', () => { const { port } = s.address(); s.close(() => res(port)); });
});
async function waitFor(what, fn, ms = 60000) {
  const deadline = Date.now() + ms;
  for (;;) {
    try { const v = await fn(); if (v) return v; } catch (e) { /* not yet */ }
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
    await new Promise((r) => setTimeout(r, 100));
  }
}
const children = [];
function start(cmd, argv, env = process.env) {
  const out = [];
  const c = spawn(cmd, argv, { stdio: ['ignore', 'pipe', 'pipe'], detached: true, env });
  c.stdout.on('data', (d) => out.push(d));
  c.stderr.on('data', (d) => out.push(d));
  c.output = () => Buffer.concat(out).toString();
  c.exited = new Promise((r) => c.on('exit', r));
  children.push(c);
  return c;
}
const stopAll = () => { for (const c of children.reverse()) if (c.exitCode === null && c.signalCode === null) try { process.kill(-c.pid, 'SIGTERM'); } catch (e) { /* gone */ } };
process.on('exit', stopAll);
const readEnv = (f) => Object.fromEntries(readFileSync(f, 'utf8').split('\n').filter((l) => /^\w+=/.test(l)).map((l) => [l.slice(0, l.indexOf('=')), l.slice(l.indexOf('=') + 1)]));
const median = (v) => { const s = [...v].sort((a, b) => a - b); return s.length ? s[Math.floor(s.length / 2)] : NaN; };

const work = mkdtempSync(join(tmpdir(), 'orlavex-bench-web-'));
try {
  const [port, wsPort, webPort] = [await freePort(), await freePort(), await freePort()];
  const share = join(work, 'share');
  spawnSync(join(root, 'scripts/share-setup'), [share, '--lab', 'demo', '--port', `${port}`, '--ws-port', `${wsPort}`], { stdio: 'ignore' });
  const s = spawnSync(join(root, 'scripts/web-setup'), [join(work, 'web'), '--share', share, '--page', join(build, 'web/page'), '--port', `${webPort}`], { encoding: 'utf8' });
  if (s.status !== 0) throw new Error(s.stderr);
  const creds = readEnv(join(share, 'credentials.env'));
  const nats = start(which('nats-server'), ['-c', join(share, 'nats.conf')]);
  await waitFor('nats-server', () => nats.output().includes('Server is ready'));
  start(which('nginx'), ['-p', join(work, 'web'), '-c', join(work, 'web/nginx.conf'), '-g', 'daemon off;']);
  await waitFor('nginx', () => new Promise((r) => { const c = connect(webPort, '127.0.0.1', () => { c.destroy(); r(true); }); c.on('error', () => r(false)); }));

  const server = start(join(build, 'examples/demo/demo_server'), ['--port', '0']);
  const serverPort = await waitFor('demo_server', () => (server.output().match(/listening on port (\d+)/) || [])[1]);
  const shot = join(work, 'desktop.png');
  const client = start(which('xvfb-run'), ['-a', '-s', '-screen 0 1280x1024x24 -noreset', join(build, 'examples/demo/demo_client'),
    '--port', serverPort, '--cycles', `${CYCLES}`, '--screenshot', shot, '--share', creds.ORLAVEX_SHARE_URL, 'demo'],
  { ...process.env, QTWEBENGINE_DISABLE_SANDBOX: '1', ORLAVEX_SHARE_USER: creds.ORLAVEX_SHARE_PUBLISHER_USER_demo, ORLAVEX_SHARE_PASSWORD: creds.ORLAVEX_SHARE_PUBLISHER_demo, ORLAVEX_SHARE_CA: creds.ORLAVEX_SHARE_CA });

  const browser = await puppeteer.launch({
    executablePath: '/usr/bin/chromium', headless: true, acceptInsecureCerts: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--use-angle=swiftshader', '--enable-unsafe-swiftshader', `--user-data-dir=${join(work, 'chrome')}`],
  });
  const url = `https://localhost:${webPort}/?${new URLSearchParams({ lab: 'demo', user: creds.ORLAVEX_SHARE_VIEWER_USER_demo, password: creds.ORLAVEX_SHARE_VIEWER_demo })}`;
  const open = async () => {
    const page = await browser.newPage();
    await page.setViewport({ width: 1400, height: 1100 });
    await page.goto(url, { waitUntil: 'load' });
    return page;
  };
  const state = (page) => page.evaluate(() => ({ cycle: window.orlavex.state ? window.orlavex.state.cycle : 0, bytes: window.orlavex.stats ? window.orlavex.stats.bytes : 0, frames: window.orlavex.stats ? window.orlavex.stats.frames : 0, first: window.orlavex.firstCompleteMs, renders: window.orlavex.lab ? window.orlavex.lab.canvases.map((c) => c.renders) : [] }));

  // Time to the first complete picture, each opening a fresh page while the lab runs.
  const main = await open();
  await waitFor('the lab running', async () => (await state(main)).cycle > 30, 120000);
  const firsts = [];
  for (let i = 0; i < OPENINGS; ++i) {
    const p = await open();
    firsts.push(await waitFor('a first complete picture', async () => (await state(p)).first, 60000));
    await p.close();
  }
  await main.bringToFront();

  // Steady state: bytes, frames and pictures over a window of the run.
  const a = await state(main);
  const t0 = Date.now();
  await waitFor('a window of the run', async () => Date.now() - t0 >= 8000 || (await state(main)).cycle >= CYCLES - 5, 60000);
  const b = await state(main);
  const seconds = (Date.now() - t0) / 1000;
  const bytesPerSecond = (b.bytes - a.bytes) / seconds;
  const framesPerSecond = (b.frames - a.frames) / seconds;
  const picturesPerSecond = b.renders.map((r, i) => (r - a.renders[i]) / seconds);

  await client.exited;
  // The controller's window as one JPEG frame of a stream at the lab's rate.
  const jpeg = await main.evaluate(async (png) => {
    const img = new Image();
    await new Promise((res, rej) => { img.onload = res; img.onerror = rej; img.src = png; });
    const c = document.createElement('canvas');
    c.width = img.width;
    c.height = img.height;
    c.getContext('2d').drawImage(img, 0, 0);
    const url75 = c.toDataURL('image/jpeg', 0.75);
    return { width: img.width, height: img.height, bytes: Math.round(((url75.length - 'data:image/jpeg;base64,'.length) * 3) / 4) };
  }, `data:image/png;base64,${readFileSync(shot).toString('base64')}`);
  const jpegPerSecond = jpeg.bytes * framesPerSecond;
  await browser.close();

  const result = {
    cycles: CYCLES,
    bytesPerSecondPerViewer: Math.round(bytesPerSecond),
    framesPerSecondReceived: Number(framesPerSecond.toFixed(1)),
    jpegBytesPerFrame: jpeg.bytes,
    jpegWindow: `${jpeg.width}x${jpeg.height}`,
    jpegBytesPerSecond: Math.round(jpegPerSecond),
    jpegOverPage: Number((jpegPerSecond / bytesPerSecond).toFixed(1)),
    firstCompletePictureMs: { median: Math.round(median(firsts)), all: firsts.map(Math.round) },
    picturesPerSecondPerCanvas: picturesPerSecond.map((v) => Number(v.toFixed(1))),
  };
  console.log(`bytes per second per viewer: ${(bytesPerSecond / 1000).toFixed(1)} kB/s at ${framesPerSecond.toFixed(1)} frames/s`);
  console.log(`the window as JPEG (q 0.75, ${jpeg.width}x${jpeg.height}): ${(jpeg.bytes / 1000).toFixed(1)} kB/frame, ${(jpegPerSecond / 1000).toFixed(1)} kB/s: ${result.jpegOverPage}x the page's`);
  console.log(`opening to first complete picture: median ${result.firstCompletePictureMs.median} ms (${result.firstCompletePictureMs.all.join(', ')} ms)`);
  console.log(`pictures per second per canvas: ${result.picturesPerSecondPerCanvas.join(', ')}`);
  writeFileSync(join(build, 'web/bench-web.json'), `${JSON.stringify(result, null, 1)}\n`);
} finally {
  stopAll();
  rmSync(work, { recursive: true, force: true });
}
