// The lab's layout: what the page draws where, and from which camera.

/**
 * The controller's own scene (the registry's `scene`: per canvas its camera,
 * background, objects, their shape settings and the objects no record
 * moves) completed by the page's description, matched canvas by canvas in
 * order: the description adds titles, legends, colour tables, plots and
 * read-outs; what the controller says wins, so the page starts where the
 * desktop window started.
 */
export function mergeLayout(description, own) {
  const mine = description.canvases || [];
  const canvases = own.canvases.map((c, i) => {
    const d = mine[i] || {};
    const options = { ...(d.options || {}) };
    for (const [num, o] of Object.entries(c.options || {})) options[num] = { ...(options[num] || {}), ...o };
    return { ...d, ...c, id: d.id || c.id, title: d.title || c.title || c.id, options };
  });
  return { ...description, canvases };
}
