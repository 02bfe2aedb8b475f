// The lab's layout: what the page draws where, and from which camera.

/**
 * The controller's own scene (the registry's `scene`: the window's title;
 * per canvas its camera, background, objects, their shape settings and
 * colour tables, the objects no record moves and the colour legends; the
 * plots with their trails; the read-outs) with what a description file
 * beside the page adds, matched canvas by canvas in order. The description
 * may rename and retitle, and give its own legends, plots and read-outs;
 * cameras, objects and shapes are the controller's, so the page starts
 * where the desktop window started.
 */
export function mergeLayout(description, own) {
  const d = description || {};
  if (!own) return d;
  const mine = d.canvases || [];
  const canvases = own.canvases.map((c, i) => {
    const m = mine[i] || {};
    const options = { ...(m.options || {}) };
    for (const [num, o] of Object.entries(c.options || {})) options[num] = { ...(options[num] || {}), ...o };
    return { ...m, ...c, id: m.id || c.id, title: m.title || c.title || c.id, legends: m.legends || c.legends, options };
  });
  return {
    ...own,
    ...d,
    title: d.title || own.title,
    plots: d.plots || own.plots || [],
    readouts: d.readouts || own.readouts || [],
    canvases,
  };
}

/**
 * A model's mesh as the controller sends it (points, then polygons in VTK's
 * cell layout: a count, then that many point indices) as a list of cells;
 * null when nothing usable came. A cell that runs past the end or names a
 * point that is not there ends the list: what came before it is kept.
 */
export function meshCells({ points = [], polys = [] } = {}) {
  const n = Math.floor(points.length / 3);
  const cells = [];
  for (let i = 0; i < polys.length;) {
    const count = polys[i];
    const ids = polys.slice(i + 1, i + 1 + count);
    if (!(count > 0) || ids.length < count || ids.some((id) => !(Number.isInteger(id) && id >= 0 && id < n))) break;
    cells.push(ids);
    i += 1 + count;
  }
  return n && cells.length ? { points: points.slice(0, 3 * n), cells } : null;
}
