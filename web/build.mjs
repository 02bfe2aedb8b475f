// Bundles the viewer page into one directory: index.html, viewer.js,
// viewer.css (with uPlot's styles) and the lab descriptions in labs/.
//
//   node build.mjs [OUTDIR] [NODE_MODULES]
//
// OUTDIR defaults to dist; NODE_MODULES, where `npm ci` installed the
// packages, to the one beside this file (the CMake build keeps its own in the
// build tree, so that the source tree stays clean).
import { createRequire } from 'node:module';
import { cpSync, existsSync, mkdirSync, readFileSync, writeFileSync, readdirSync } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const out = resolve(process.argv[2] || join(here, 'dist'));
const modules = resolve(process.argv[3] || join(here, 'node_modules'));
const esbuild = createRequire(join(modules, 'noop.js'))('esbuild');
mkdirSync(join(out, 'labs'), { recursive: true });

await esbuild.build({
  entryPoints: [join(here, 'src/main.js')],
  bundle: true,
  format: 'iife',
  target: ['chrome100', 'firefox100', 'safari15'],
  minify: true,
  sourcemap: false,
  legalComments: 'none',
  logLevel: 'warning',
  outfile: join(out, 'viewer.js'),
  nodePaths: [modules],
});

const uplotCss = readFileSync(join(modules, 'uplot/dist/uPlot.min.css'), 'utf8');
const ownCss = readFileSync(join(here, 'public/viewer.css'), 'utf8');
writeFileSync(join(out, 'viewer.css'), `${uplotCss}\n${ownCss}`);
cpSync(join(here, 'public/index.html'), join(out, 'index.html'));
// Descriptions that complete or retitle a lab's own scene (docs/share.md).
const labs = join(here, 'labs');
if (existsSync(labs)) for (const f of readdirSync(labs)) if (f.endsWith('.json')) cpSync(join(labs, f), join(out, 'labs', f));
console.log(`orlavex-web: built ${out}`);
