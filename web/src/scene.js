// The 3-D canvases: each scene kind drawn with vtk.js the way the desktop
// front-end draws it with VTK (src/scene/*.cpp), from the shared state.
//
// The state carries what the simulation changes: each object's 4x4 matrix,
// material and shape parameters. What the front-end sets once in its own code
// (which canvas an object is in, the cameras, resolutions, objects the server
// never drives, a polygon's points, colour tables, legends) comes from the
// lab's scene description, when there is one (see describe.js).

import '@kitware/vtk.js/Rendering/Profiles/Geometry';
import vtkGenericRenderWindow from '@kitware/vtk.js/Rendering/Misc/GenericRenderWindow';
import vtkActor from '@kitware/vtk.js/Rendering/Core/Actor';
import vtkMapper from '@kitware/vtk.js/Rendering/Core/Mapper';
import vtkTexture from '@kitware/vtk.js/Rendering/Core/Texture';
import vtkPolyData from '@kitware/vtk.js/Common/DataModel/PolyData';
import vtkDataArray from '@kitware/vtk.js/Common/Core/DataArray';
import vtkLookupTable from '@kitware/vtk.js/Common/Core/LookupTable';
import vtkSphereSource from '@kitware/vtk.js/Filters/Sources/SphereSource';
import vtkCubeSource from '@kitware/vtk.js/Filters/Sources/CubeSource';
import vtkCylinderSource from '@kitware/vtk.js/Filters/Sources/CylinderSource';
import vtkConeSource from '@kitware/vtk.js/Filters/Sources/ConeSource';
import vtkArrowSource from '@kitware/vtk.js/Filters/Sources/ArrowSource';
import vtkPlaneSource from '@kitware/vtk.js/Filters/Sources/PlaneSource';
import vtkRegularPolygonSource from '@kitware/vtk.js/Filters/Sources/RegularPolygonSource';

import { Kind, KIND_NAMES } from './frame.js';
import { meshCells } from './layout.js';

// --- geometry helpers --------------------------------------------------------

/** Polydata from flat point coordinates and polygons (arrays of point ids). */
function polyData(points, polys, lines = []) {
  const pd = vtkPolyData.newInstance();
  pd.getPoints().setData(Float32Array.from(points), 3);
  const cells = (list) => {
    const flat = [];
    for (const c of list) flat.push(c.length, ...c);
    return Uint32Array.from(flat);
  };
  if (polys.length) pd.getPolys().setData(cells(polys));
  if (lines.length) pd.getLines().setData(cells(lines));
  return pd;
}

/** The points and polygons of a polydata, to be copied under a transform. */
function flatten(pd) {
  const pts = pd.getPoints().getData();
  const polys = [];
  const data = pd.getPolys().getData();
  for (let i = 0; i < data.length;) {
    const n = data[i];
    polys.push(Array.from(data.subarray(i + 1, i + 1 + n)));
    i += n + 1;
  }
  return { pts: Array.from(pts), polys };
}

/** A VTK row-major 4x4 matrix in the column-major order vtk.js's actors take. */
function toColumnMajor(m) {
  const out = new Float64Array(16);
  for (let r = 0; r < 4; ++r) for (let c = 0; c < 4; ++c) out[c * 4 + r] = m[r * 4 + c];
  return out;
}

function multiplyRowMajor(a, b) {
  const out = new Float64Array(16);
  for (let r = 0; r < 4; ++r)
    for (let c = 0; c < 4; ++c) {
      let s = 0;
      for (let k = 0; k < 4; ++k) s += a[r * 4 + k] * b[k * 4 + c];
      out[r * 4 + c] = s;
    }
  return out;
}

const translation = (x, y, z) => Float64Array.from([1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1]);

/** A row-major matrix from position, rotations (degrees, applied in order) and scale. */
export function placementMatrix({ position = [0, 0, 0], rotate = [], scale = 1 } = {}) {
  let m = translation(...position);
  for (const [axis, degrees] of rotate) {
    const a = (degrees * Math.PI) / 180;
    const c = Math.cos(a);
    const s = Math.sin(a);
    const r = {
      x: [1, 0, 0, 0, 0, c, -s, 0, 0, s, c, 0, 0, 0, 0, 1],
      y: [c, 0, s, 0, 0, 1, 0, 0, -s, 0, c, 0, 0, 0, 0, 1],
      z: [c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1],
    }[axis];
    m = multiplyRowMajor(m, Float64Array.from(r));
  }
  const sc = Array.isArray(scale) ? scale : [scale, scale, scale];
  return multiplyRowMajor(m, Float64Array.from([sc[0], 0, 0, 0, 0, sc[1], 0, 0, 0, 0, sc[2], 0, 0, 0, 0, 1]));
}

/** HSV to RGB as vtkMath::HSVToRGB computes it, for the same table colours. */
function hsvToRgb(h, s, v) {
  const third = 1 / 3;
  const sixth = 1 / 6;
  let r;
  let g;
  let b;
  if (h > sixth && h <= third) { g = 1; r = (third - h) / sixth; b = 0; }
  else if (h > third && h <= 0.5) { g = 1; b = (h - third) / sixth; r = 0; }
  else if (h > 0.5 && h <= 2 * third) { b = 1; g = (2 * third - h) / sixth; r = 0; }
  else if (h > 2 * third && h <= 5 * sixth) { b = 1; r = (h - 2 * third) / sixth; g = 0; }
  else if (h > 5 * sixth && h <= 1) { r = 1; b = (1 - h) / sixth; g = 0; }
  else { r = 1; g = h / sixth; b = 0; }
  return [(s * r + (1 - s)) * v, (s * g + (1 - s)) * v, (s * b + (1 - s)) * v];
}

/** A colour table as ColourTable::configure builds it (linear ramp and scale). */
export class ColourTable {
  constructor({ hue = [0.667, 0], saturation = [1, 1], value = [1, 1], alpha = [1, 1], range = [0, 1], colours = 256 } = {}) {
    this.range = range;
    this.table = [];
    const n = colours;
    for (let i = 0; i < n; ++i) {
      const t = n > 1 ? i / (n - 1) : 0;
      const rgb = hsvToRgb(hue[0] + t * (hue[1] - hue[0]), saturation[0] + t * (saturation[1] - saturation[0]), value[0] + t * (value[1] - value[0]));
      this.table.push([...rgb, alpha[0] + t * (alpha[1] - alpha[0])]);
    }
    this.vtk = vtkLookupTable.newInstance({ numberOfColors: n });
    this.vtk.setHueRange(hue[0], hue[1]);
    this.vtk.setSaturationRange(saturation[0], saturation[1]);
    this.vtk.setValueRange(value[0], value[1]);
    this.vtk.setAlphaRange(alpha[0], alpha[1]);
    this.vtk.setMappingRange(range[0], range[1]);
    this.vtk.build();
  }

  colour(v) {
    const [lo, hi] = this.range;
    let t = hi > lo ? (v - lo) / (hi - lo) : 0;
    if (!Number.isFinite(t)) t = 0;
    const i = Math.max(0, Math.min(this.table.length - 1, Math.floor(t * this.table.length)));
    return this.table[i];
  }
}

// --- object builders ------------------------------------------------------------

/** Lines have no kind in the frames (their records are ignored): fixed ones only. */
const LINE = 'Line';

function makeActor(pd) {
  const mapper = vtkMapper.newInstance();
  mapper.setInputData(pd);
  const actor = vtkActor.newInstance();
  actor.setMapper(mapper);
  return { actor, mapper };
}

function applyMaterial(actor, material, ambient) {
  if (!material) return;
  const p = actor.getProperty();
  p.setColor(material[0], material[1], material[2]);
  p.setDiffuse(material[3]);
  p.setSpecular(material[4]);
  p.setSpecularPower(material[5]);
  p.setOpacity(material[6]);
  p.setEdgeVisibility(material[7] > 0.5);
  p.setEdgeColor(material[8], material[9], material[10]);
  p.setAmbient(ambient);
  // VTK's ambient light takes the object's colour as its own.
  p.setAmbientColor(material[0], material[1], material[2]);
}

function shapeOf(kind, geometry, options) {
  const g = geometry || [];
  switch (kind) {
    case Kind.Sphere:
      return vtkSphereSource.newInstance({
        radius: g[0] ?? 0.5,
        center: options.center ?? [0, 0, 0],
        thetaResolution: options.thetaResolution ?? 8,
        phiResolution: options.phiResolution ?? 8,
        startTheta: options.startTheta ?? 0,
        endTheta: options.endTheta ?? 360,
        startPhi: options.startPhi ?? 0,
        endPhi: options.endPhi ?? 180,
      }).getOutputData();
    case Kind.Cube:
      return vtkCubeSource.newInstance({ xLength: g[0] ?? 1, yLength: g[1] ?? 1, zLength: g[2] ?? 1, center: options.center ?? [0, 0, 0] }).getOutputData();
    case Kind.Cylinder:
      return vtkCylinderSource.newInstance({
        radius: g[0] ?? 0.5, height: g[1] ?? 1, resolution: options.resolution ?? 6,
        center: options.center ?? [0, 0, 0], capping: options.capping ?? true,
      }).getOutputData();
    case Kind.Cone:
      return vtkConeSource.newInstance({ radius: g[0] ?? 0.5, height: g[1] ?? 1, resolution: options.resolution ?? 6, capping: options.capping ?? true }).getOutputData();
    case Kind.Arrow:
      return arrowShape(options);
    case Kind.DiskSource:
      return diskShape(g[0] ?? 0.25, g[1] ?? 0.5, options.radialResolution ?? 1, options.circumferentialResolution ?? 6);
    case Kind.Plane:
      // VTK's default plane when the scene does not say: centred on the origin.
      return vtkPlaneSource.newInstance(options.plane || { origin: [-0.5, -0.5, 0], point1: [0.5, -0.5, 0], point2: [-0.5, 0.5, 0] }).getOutputData();
    case Kind.RegularPolygon:
      return vtkRegularPolygonSource.newInstance({
        normal: [g[0] ?? 0, g[1] ?? 0, g[2] ?? 1],
        radius: g[3] ?? 0.5,
        center: options.center ?? [0, 0, 0],
        numberOfSides: options.sides ?? 6,
        generatePolygon: options.polygon ?? true,
        generatePolyline: options.polyline ?? false,
      }).getOutputData();
    case Kind.PolygonC:
      return polygonShape(options.points || []);
    case Kind.HalfPipe:
      return halfPipeShape(g[0] ?? 0.5, g[1] ?? 1, g[2] ?? 1, options.dimensions || [24, 2, 2]);
    case Kind.File3DSImporter:
      // The model file is the front-end's own: the controller sends its mesh
      // with the scene (up to a size); without it there is nothing to draw.
      if (options.mesh) return meshShape(options.mesh);
      return options.points ? polygonShape(options.points) : null;
    case LINE:
      return lineShape(options.points || []);
    default:
      return null;
  }
}

/** VTK's arrow: along +x from 0 to 1 (vtk.js centres its arrow on 0). */
function arrowShape(options) {
  const tipLength = options.tipLength ?? 0.35;
  const src = vtkArrowSource.newInstance({
    tipLength,
    tipRadius: options.tipRadius ?? 0.1,
    shaftRadius: options.shaftRadius ?? 0.03,
    tipResolution: options.tipResolution ?? 24,
    shaftResolution: options.shaftResolution ?? 24,
  });
  const pd = src.getOutputData();
  const shifted = pd.getPoints().getData().slice();
  // vtk.js puts the arrow between -0.5 + tipLength/2 and 0.5 + tipLength/2.
  for (let i = 0; i < shifted.length; i += 3) shifted[i] += 0.5 - tipLength * 0.5;
  const out = vtkPolyData.newInstance();
  out.getPoints().setData(shifted, 3);
  out.getPolys().setData(pd.getPolys().getData().slice());
  return out;
}

function diskShape(inner, outer, radial, around) {
  const pts = [];
  const polys = [];
  for (let i = 0; i < around; ++i) {
    const a = (2 * Math.PI * i) / around;
    for (let j = 0; j <= radial; ++j) {
      const r = inner + ((outer - inner) * j) / radial;
      pts.push(r * Math.cos(a), r * Math.sin(a), 0);
    }
  }
  const per = radial + 1;
  for (let i = 0; i < around; ++i) {
    const n = (i + 1) % around;
    for (let j = 0; j < radial; ++j) polys.push([i * per + j, i * per + j + 1, n * per + j + 1, n * per + j]);
  }
  return polyData(pts, polys);
}

/** A model's mesh as the controller sends it. */
function meshShape(mesh) {
  const m = meshCells(mesh);
  return m ? polyData(m.points, m.cells) : null;
}

/** A fixed line (the desktop draws a `Line` as its code set it): a polyline through its points. */
function lineShape(points) {
  const n = Math.floor(points.length / 3);
  if (n < 2) return null;
  return polyData(points.slice(0, 3 * n), [], [Array.from({ length: n }, (_, i) => i)]);
}

function polygonShape(points) {
  const n = Math.floor(points.length / 3);
  if (n < 3) return null;
  return polyData(points.slice(0, 3 * n), [Array.from({ length: n }, (_, i) => i)]);
}

/** The surface of HalfPipe's structured grid (src/scene/HalfPipe.cpp). */
function halfPipeShape(rMin, rMax, length, [nTheta, nR, nZ]) {
  const pts = [];
  const dz = length / Math.max(nZ - 1, 1);
  const dr = (rMax - rMin) / Math.max(nR - 1, 1);
  const steps = Math.max(nTheta - 1, 1);
  for (let k = 0; k < nZ; ++k) {
    const x = k * dz - length * 0.5;
    for (let j = 0; j < nR; ++j) {
      const r = j * dr + rMin;
      for (let i = 0; i < nTheta; ++i) {
        const t = ((i * 180) / steps) * (Math.PI / 180) + Math.PI;
        pts.push(x, Math.cos(t) * r, Math.sin(t) * r);
      }
    }
  }
  const id = (i, j, k) => i + nTheta * j + nTheta * nR * k;
  const polys = [];
  const face = (a, b, c, d) => polys.push([a, b, c, d]);
  for (let i = 0; i + 1 < nTheta; ++i)
    for (let k = 0; k + 1 < nZ; ++k) {
      face(id(i, 0, k), id(i + 1, 0, k), id(i + 1, 0, k + 1), id(i, 0, k + 1));
      face(id(i, nR - 1, k), id(i, nR - 1, k + 1), id(i + 1, nR - 1, k + 1), id(i + 1, nR - 1, k));
    }
  for (let i = 0; i + 1 < nTheta; ++i)
    for (let j = 0; j + 1 < nR; ++j) {
      face(id(i, j, 0), id(i, j + 1, 0), id(i + 1, j + 1, 0), id(i + 1, j, 0));
      face(id(i, j, nZ - 1), id(i + 1, j, nZ - 1), id(i + 1, j + 1, nZ - 1), id(i, j + 1, nZ - 1));
    }
  for (let j = 0; j + 1 < nR; ++j)
    for (let k = 0; k + 1 < nZ; ++k) {
      face(id(0, j, k), id(0, j, k + 1), id(0, j + 1, k + 1), id(0, j + 1, k));
      face(id(nTheta - 1, j, k), id(nTheta - 1, j + 1, k), id(nTheta - 1, j + 1, k + 1), id(nTheta - 1, j, k + 1));
    }
  return polyData(pts, polys);
}

/** Text as vtkVectorText sets it: letters one unit high, from the origin along +x. */
function textActor(text, options) {
  const lines = String(text).split('\n');
  const px = 96;
  const canvas = document.createElement('canvas');
  const ctx = canvas.getContext('2d');
  const font = `${px}px ${options.font || 'sans-serif'}`;
  ctx.font = font;
  const width = Math.max(1, ...lines.map((l) => ctx.measureText(l).width));
  // Padding above and below for accents and descenders: the quad covers
  // them, so that a letter's baseline sits at the object's origin.
  const lineHeight = px * 1.25;
  canvas.width = Math.ceil(width + 8);
  canvas.height = Math.ceil(lineHeight * lines.length + px * 0.4);
  ctx.font = font;
  ctx.fillStyle = 'white';
  ctx.textBaseline = 'alphabetic';
  lines.forEach((l, i) => ctx.fillText(l, 4, px * 0.95 + i * lineHeight));
  // vtkVectorText's capitals are about one unit tall; a canvas font's
  // capitals about 0.72 of its size.
  const unit = px * 0.72;
  const w = canvas.width / unit;
  const h = canvas.height / unit;
  const top = (px * 0.95 - px * 0.72) / unit; // from the top edge to the first cap line
  const y1 = 1 + top - 0; // the quad's top, above the first line's baseline
  const y0 = y1 - h;
  const pd = vtkPolyData.newInstance();
  pd.getPoints().setData(Float32Array.from([0, y0, 0, w, y0, 0, w, y1, 0, 0, y1, 0]), 3);
  pd.getPolys().setData(Uint32Array.from([4, 0, 1, 2, 3]));
  const tc = vtkDataArray.newInstance({ name: 'tc', numberOfComponents: 2, values: Float32Array.from([0, 0, 1, 0, 1, 1, 0, 1]) });
  pd.getPointData().setTCoords(tc);
  const texture = vtkTexture.newInstance();
  texture.setInterpolate(true);
  texture.setCanvas(canvas);
  const { actor } = makeActor(pd);
  actor.addTexture(texture);
  actor.getProperty().setLighting(false);
  return actor;
}

/** Planar grid: cells coloured through the table, arrows on the glyph points. */
class GridView {
  constructor(options) {
    this.options = options;
    this.lut = new ColourTable(options.lut || {});
    this.vectorLut = new ColourTable(options.vectorLut || { hue: [0, 0], saturation: [0, 0], value: [0.55, 0], range: [0, 1] });
    this.cellPoints = options.cellPoints || [0.5, 0.5, 0.5];
    this.cells = makeActor(vtkPolyData.newInstance());
    this.cells.mapper.setLookupTable(this.lut.vtk);
    this.cells.mapper.setScalarModeToUseCellData();
    this.cells.mapper.setUseLookupTableScalarRange(true);
    this.cells.mapper.setScalarVisibility(true);
    this.glyphs = makeActor(vtkPolyData.newInstance());
    this.glyphs.mapper.setScalarVisibility(true);
    this.glyphs.mapper.setColorModeToDirectScalars();
    this.glyphs.mapper.setScalarModeToUsePointData();
    const arrowOptions = { tipLength: 0.35, tipRadius: 0.1, shaftRadius: 0.03, tipResolution: 6, shaftResolution: 6, ...(options.arrow || {}) };
    this.arrow = flatten(arrowShape(arrowOptions));
    this.key = '';
    this.actors = [this.cells.actor, this.glyphs.actor];
  }

  update(o) {
    const g = o.geometry;
    if (!g) return;
    const [lx, ly, lz, x0, y0, z0] = g;
    const n = [g[6], g[7], g[8]].map((v) => Math.max(0, Math.round(v)));
    const key = g.join(',');
    const d = n.map((c, i) => (c > 0 ? [lx, ly, lz][i] / c : 0));
    if (key !== this.key) {
      this.key = key;
      const pts = [];
      const polys = [];
      const [nx, ny, nz] = n.map((c) => Math.max(c, 1));
      const nodesX = n[0] + 1;
      const nodesY = n[1] + 1;
      for (let k = 0; k <= n[2]; ++k)
        for (let j = 0; j <= n[1]; ++j)
          for (let i = 0; i <= n[0]; ++i) pts.push(i * d[0] + x0, j * d[1] + y0, k * d[2] + z0);
      const id = (i, j, k) => i + nodesX * (j + nodesY * k);
      for (let k = 0; k < nz; ++k)
        for (let j = 0; j < ny; ++j)
          for (let i = 0; i < nx; ++i) {
            const kk = Math.min(k, n[2]);
            polys.push([id(i, j, kk), id(Math.min(i + 1, n[0]), j, kk), id(Math.min(i + 1, n[0]), Math.min(j + 1, n[1]), kk), id(i, Math.min(j + 1, n[1]), kk)]);
          }
      this.cellCount = nx * ny * nz;
      this.cells.mapper.setInputData(polyData(pts, polys));
    }
    const pd = this.cells.mapper.getInputData();
    if (o.cells) {
      const values = new Float32Array(this.cellCount);
      values.set(o.cells.subarray(0, Math.min(o.cells.length, this.cellCount)));
      pd.getCellData().setScalars(vtkDataArray.newInstance({ name: 'scalars', values }));
      pd.modified();
    }
    if (o.transform) this.cells.actor.setUserMatrix(toColumnMajor(o.transform));
    this.updateGlyphs(o, n, d, [x0, y0, z0]);
  }

  updateGlyphs(o, n, d, origin) {
    const v = o.vectors;
    if (!v || v.length < 1) {
      this.glyphs.actor.setVisibility(false);
      return;
    }
    this.glyphs.actor.setVisibility(this.options.arrows !== false);
    const count = (v.length - 1) / 4;
    const scale = v[4 * count];
    const rows = n.map((c) => Math.max(c - 1, 1));
    const pts = [];
    const polys = [];
    const colours = [];
    const { pts: ap, polys: apolys } = this.arrow;
    let id = 0;
    for (let i = 0; i < rows[0]; ++i)
      for (let j = 0; j < rows[1]; ++j)
        for (let k = 0; k < rows[2]; ++k, ++id) {
          if (id >= count) break;
          const m = v[id];
          const s = m * scale;
          if (!(s > 0)) continue;
          const vx = v[count + 3 * id];
          const vy = v[count + 3 * id + 1];
          const vz = v[count + 3 * id + 2];
          const p = [(i + this.cellPoints[0]) * d[0] + origin[0], (j + this.cellPoints[1]) * d[1] + origin[1], (k + this.cellPoints[2]) * d[2] + origin[2]];
          const basis = rotationFromX(vx, vy, vz);
          const base = pts.length / 3;
          for (let q = 0; q < ap.length; q += 3) {
            const x = ap[q] * s;
            const y = ap[q + 1] * s;
            const z = ap[q + 2] * s;
            pts.push(p[0] + basis[0] * x + basis[3] * y + basis[6] * z,
              p[1] + basis[1] * x + basis[4] * y + basis[7] * z,
              p[2] + basis[2] * x + basis[5] * y + basis[8] * z);
            const c = this.vectorLut.colour(m);
            colours.push(c[0] * 255, c[1] * 255, c[2] * 255);
          }
          for (const poly of apolys) polys.push(poly.map((q) => q + base));
        }
    const pd = polyData(pts, polys);
    pd.getPointData().setScalars(vtkDataArray.newInstance({ name: 'colours', numberOfComponents: 3, values: Uint8Array.from(colours) }));
    this.glyphs.mapper.setInputData(pd);
  }
}

/** Columns of a rotation taking +x to (vx, vy, vz), as vtkGlyph3D turns its glyphs. */
function rotationFromX(vx, vy, vz) {
  const len = Math.hypot(vx, vy, vz);
  if (!(len > 0)) return [1, 0, 0, 0, 1, 0, 0, 0, 1];
  const x = [vx / len, vy / len, vz / len];
  const helper = Math.abs(x[2]) < 0.9 ? [0, 0, 1] : [0, 1, 0];
  let y = [helper[1] * x[2] - helper[2] * x[1], helper[2] * x[0] - helper[0] * x[2], helper[0] * x[1] - helper[1] * x[0]];
  const ly = Math.hypot(...y);
  y = y.map((c) => c / ly);
  const z = [x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]];
  return [...x, ...y, ...z];
}

// --- the canvas -----------------------------------------------------------------

/** One object of a canvas, kept in step with its entry in the state. */
class ObjectView {
  constructor(kind, options, ambient) {
    this.kind = kind;
    this.options = options;
    this.ambient = options.ambient ?? ambient;
    this.actors = [];
    this.shapeKey = null;
    this.text = null;
    if (kind === Kind.PlanarGrid) {
      this.grid = new GridView(options);
      this.actors = this.grid.actors;
    }
  }

  /** Applies an object's state; returns the actors to add when they changed. */
  update(o) {
    if (this.grid) {
      this.grid.update(o);
      if (o.material) {
        const p = this.grid.cells.actor.getProperty();
        p.setOpacity(o.material[6]);
        p.setEdgeVisibility(o.material[7] > 0.5);
        p.setEdgeColor(o.material[8], o.material[9], o.material[10]);
        p.setAmbient(this.ambient);
      }
      return null;
    }
    let replaced = null;
    if (this.kind === Kind.VectorText) {
      if (o.text !== this.text) {
        this.text = o.text;
        replaced = this.actors;
        this.actors = [textActor(o.text, this.options)];
      }
    } else {
      const key = o.geometry ? Array.from(o.geometry).join(',') : '-';
      if (key !== this.shapeKey) {
        this.shapeKey = key;
        const pd = shapeOf(this.kind, o.geometry, this.options);
        if (pd) {
          if (this.actors.length) this.actors[0].getMapper().setInputData(pd);
          else {
            replaced = [];
            this.actors = [makeActor(pd).actor];
          }
        }
      }
    }
    for (const actor of this.actors) {
      if (o.transform) actor.setUserMatrix(toColumnMajor(o.transform));
      if (this.kind === Kind.VectorText) {
        if (o.material) {
          const p = actor.getProperty();
          p.setColor(o.material[0], o.material[1], o.material[2]);
          p.setOpacity(o.material[6]);
        }
      } else {
        applyMaterial(actor, o.material, this.ambient);
      }
    }
    return replaced;
  }
}

const kindByName = Object.fromEntries(KIND_NAMES.map((n, i) => [n, i]));
kindByName.Line = LINE;
kindByName.Trail = Kind.Trail;
kindByName.ReadOut = Kind.ReadOut;

/** A static object of the description as a state entry, so one code path draws both. */
export function staticObject(d) {
  const kind = kindByName[d.kind];
  const m = d.material || {};
  const colour = m.colour || [1, 1, 1];
  return {
    kind,
    geometry: d.geometry ? Float64Array.from(d.geometry) : null,
    transform: d.transform ? Float64Array.from(d.transform) : placementMatrix(d),
    material: Float64Array.from([...colour, m.diffuse ?? 1, m.specular ?? 0, m.specularPower ?? 1,
      m.opacity ?? 1, m.edges ? 1 : 0, ...(m.edgeColour || [0, 0, 0])]),
    text: d.text ?? '',
    cells: null,
    vectors: null,
  };
}

/**
 * What the page builds for fixed objects of the scene's form, without
 * drawing them: per object its kind, its actors and their bounds. For
 * checking every kind's builder in a real browser, beyond the kinds a lab
 * at hand happens to use.
 */
export function shapesOf(entries) {
  return entries.map((d) => {
    const view = new ObjectView(kindByName[d.kind], d, 0);
    view.update(staticObject(d));
    return { kind: d.kind, actors: view.actors.length, bounds: view.actors.map((a) => a.getBounds()) };
  });
}

/** A 3-D canvas: its own WebGL view, the user's camera, a reset button, a legend. */
export class CanvasView {
  constructor(parent, description) {
    this.description = description;
    this.element = document.createElement('section');
    this.element.className = 'canvas';
    this.element.dataset.canvas = description.id;
    const title = document.createElement('h2');
    title.textContent = description.title || description.id;
    const reset = document.createElement('button');
    reset.type = 'button';
    reset.textContent = 'Reset view';
    reset.title = 'Back to the lab\'s own camera';
    reset.addEventListener('click', () => this.resetCamera());
    const bar = document.createElement('div');
    bar.className = 'canvas-bar';
    bar.append(title, reset);
    this.view = document.createElement('div');
    this.view.className = 'view';
    this.element.append(bar, this.view);
    parent.append(this.element);

    this.window = vtkGenericRenderWindow.newInstance({ background: description.background || [0.97, 0.97, 0.99], listenWindowResize: true });
    this.window.setContainer(this.view);
    this.renderer = this.window.getRenderer();
    this.renderWindow = this.window.getRenderWindow();
    this.objects = new Map(); // record number -> ObjectView
    this.framed = false;
    this.renders = 0;
    this.pending = false;
    for (const d of description.static || []) {
      const view = new ObjectView(kindByName[d.kind], d, description.ambient ?? 0);
      view.update(staticObject(d));
      for (const a of view.actors) this.renderer.addActor(a);
    }
    this.legends = (description.legends || []).map((l) => new Legend(this.view, l));
    new ResizeObserver(() => this.window.resize()).observe(this.view);
  }

  /** The record numbers this canvas draws; null: whatever 3-D object comes. */
  get records() { return this.description.objects || null; }

  wants(o) {
    const list = this.records;
    return list ? list.includes(o.num) : placedKinds.has(o.kind);
  }

  update(o) {
    let view = this.objects.get(o.num);
    if (!view) {
      const options = (this.description.options || {})[o.num] || {};
      view = new ObjectView(o.kind, options, this.description.ambient ?? 0);
      this.objects.set(o.num, view);
      for (const a of view.actors) this.renderer.addActor(a);
    }
    const replaced = view.update(o);
    if (replaced) {
      for (const a of replaced) this.renderer.removeActor(a);
      for (const a of view.actors) this.renderer.addActor(a);
    }
  }

  /**
   * The lab's own camera when the description gives one, else everything in
   * view; everything in view too when the controller frames its scenes on
   * start (`frame`), as the desktop window then does.
   */
  resetCamera() {
    const c = this.description.frame ? null : this.description.camera;
    const camera = this.renderer.getActiveCamera();
    if (c) {
      camera.setPosition(...c.position);
      camera.setFocalPoint(...c.focalPoint);
      camera.setViewUp(...c.viewUp);
      camera.setViewAngle(c.viewAngle ?? 30);
      this.renderer.resetCameraClippingRange();
    } else {
      this.renderer.resetCamera();
    }
    this.render();
  }

  /** Where the camera is now, the student's turns and zooms included. */
  cameraNow() {
    const c = this.renderer.getActiveCamera();
    return { position: c.getPosition(), focalPoint: c.getFocalPoint(), viewUp: c.getViewUp() };
  }

  /** Draws at the next animation frame: many state changes, one picture. */
  render() {
    if (!this.framed && this.objects.size > 0) {
      this.framed = true;
      this.resetCamera();
      return;
    }
    if (this.pending) return;
    this.pending = true;
    requestAnimationFrame(() => {
      this.pending = false;
      this.renderer.resetCameraClippingRange();
      this.renderWindow.render();
      this.renders += 1;
    });
  }

  /** What the test and the status line read: object counts and positions. */
  summary() {
    const objects = [];
    for (const [num, view] of this.objects) {
      const m = view.grid ? view.grid.cells.actor.getUserMatrix() : view.actors[0]?.getUserMatrix();
      objects.push({ num, kind: KIND_NAMES[view.kind], actors: view.actors.length, position: m ? [m[12], m[13], m[14]] : null });
    }
    return { id: this.description.id, objects, static: (this.description.static || []).length, camera: this.description.frame ? null : this.description.camera || null, renders: this.renders };
  }
}

const placedKinds = new Set([Kind.Sphere, Kind.Cube, Kind.Cylinder, Kind.Cone, Kind.Arrow,
  Kind.DiskSource, Kind.Plane, Kind.RegularPolygon, Kind.PolygonC, Kind.HalfPipe,
  Kind.File3DSImporter, Kind.VectorText, Kind.PlanarGrid]);
export const isPlaced = (kind) => placedKinds.has(kind);

/** ScalarBar: a colour legend laid over the canvas in viewport fractions. */
class Legend {
  constructor(parent, d) {
    this.d = d;
    this.table = new ColourTable(d.lut || {});
    this.canvas = document.createElement('canvas');
    this.canvas.className = 'legend';
    parent.append(this.canvas);
    new ResizeObserver(() => this.draw()).observe(parent);
  }

  draw() {
    const parent = this.canvas.parentElement;
    const W = parent.clientWidth;
    const H = parent.clientHeight;
    if (!W || !H) return;
    const { position = [0.1, 0.02], size = [0.8, 0.14], labels = 5, decimals = 0, title = '' } = this.d;
    const w = Math.max(1, Math.round(size[0] * W));
    const h = Math.max(1, Math.round(size[1] * H));
    Object.assign(this.canvas.style, { left: `${position[0] * W}px`, bottom: `${position[1] * H}px`, width: `${w}px`, height: `${h}px` });
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = w * ratio;
    this.canvas.height = h * ratio;
    const ctx = this.canvas.getContext('2d');
    ctx.scale(ratio, ratio);
    const horizontal = w >= h;
    const font = Math.max(9, Math.min(16, Math.round((horizontal ? h : w) * 0.3)));
    ctx.font = `${font}px sans-serif`;
    ctx.fillStyle = 'black';
    ctx.textAlign = 'center';
    const [lo, hi] = this.table.range;
    if (horizontal) {
      // As vtkScalarBarActor lays a horizontal bar out: the title on top,
      // the labels under it, the colours at the bottom.
      ctx.font = `italic bold ${font}px sans-serif`;
      const barH = Math.max(4, Math.round(h * 0.35));
      const barTop = h - barH;
      ctx.textBaseline = 'alphabetic';
      ctx.fillText(title, w / 2, Math.min(font, barTop - font - 2));
      for (let x = 0; x < w; ++x) {
        const c = this.table.colour(lo + ((hi - lo) * (x + 0.5)) / w);
        ctx.fillStyle = `rgb(${c[0] * 255},${c[1] * 255},${c[2] * 255})`;
        ctx.fillRect(x, barTop, 1, barH);
      }
      ctx.fillStyle = 'black';
      for (let i = 0; i < labels; ++i) {
        const t = labels > 1 ? i / (labels - 1) : 0;
        const text = (lo + t * (hi - lo)).toFixed(decimals);
        const tw = ctx.measureText(text).width;
        ctx.textAlign = 'left';
        ctx.fillText(text, Math.max(0, Math.min(w - tw, t * w - tw / 2)), barTop - 3);
      }
    } else {
      ctx.fillText(title, w / 2, font);
      const barTop = font + 4;
      const barW = Math.max(4, w * 0.4);
      const barH = h - barTop - 2;
      for (let y = 0; y < barH; ++y) {
        const c = this.table.colour(hi - ((hi - lo) * (y + 0.5)) / barH);
        ctx.fillStyle = `rgb(${c[0] * 255},${c[1] * 255},${c[2] * 255})`;
        ctx.fillRect(0, barTop + y, barW, 1);
      }
      ctx.fillStyle = 'black';
      ctx.textAlign = 'left';
      for (let i = 0; i < labels; ++i) {
        const t = labels > 1 ? i / (labels - 1) : 0;
        ctx.fillText((hi - t * (hi - lo)).toFixed(decimals), barW + 3, barTop + t * barH + font / 2);
      }
    }
  }
}
