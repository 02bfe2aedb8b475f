// Time plots: each PlottingPanelQwt of the front-end as a uPlot chart, each of
// its TrailQwt curves as a series with the points the trail retains.

import uPlot from 'uplot';

const DEFAULT_COLOURS = ['#c82828', '#1e5ac8', '#dc6400', '#7828a0', '#288c3c', '#505050'];

export class PlotView {
  constructor(parent, description) {
    this.description = description;
    this.element = document.createElement('section');
    this.element.className = 'plot';
    this.element.dataset.plot = description.id;
    parent.append(this.element);
    this.trails = description.trails.map((t, i) => ({
      num: t.num,
      label: t.label || `trail ${t.num}`,
      colour: t.colour || DEFAULT_COLOURS[i % DEFAULT_COLOURS.length],
      markers: !!t.markers,
      x: [],
      y: [],
    }));
    this.dirty = false;
    this.chart = null;
    this.points = 0;
    new ResizeObserver(() => this.resize()).observe(this.element);
  }

  size() {
    const w = Math.max(200, this.element.clientWidth);
    const h = Math.max(160, this.element.clientHeight - 70);
    return { width: w, height: h };
  }

  build() {
    const { width, height } = this.size();
    const series = [{ label: this.description.xTitle || 'x' }];
    for (const t of this.trails)
      series.push({
        label: t.label,
        stroke: t.colour,
        width: 2,
        spanGaps: true,
        points: { show: t.markers, size: 6, fill: t.colour, stroke: t.colour },
      });
    this.chart = new uPlot({
      title: this.description.title || '',
      width,
      height,
      series,
      scales: { x: { time: false } },
      axes: [{ label: this.description.xTitle || '' }, {}],
      legend: { show: true },
    }, this.data(), this.element);
  }

  resize() {
    if (this.chart) this.chart.setSize(this.size());
  }

  has(num) { return this.trails.some((t) => t.num === num); }

  update(o) {
    const t = this.trails.find((tr) => tr.num === o.num);
    if (!t) return;
    t.x = o.trailX;
    t.y = o.trailY;
    this.dirty = true;
  }

  /** The trails on one x axis: uPlot wants shared x values, each trail gaps elsewhere. */
  data() {
    const tables = this.trails.map((t) => {
      // uPlot needs ascending x; a trail's points come in order of time or
      // position, and only a trail that turns back is sorted here.
      let xs = t.x;
      let ys = t.y;
      for (let i = 1; i < xs.length; ++i)
        if (!(xs[i] >= xs[i - 1])) {
          const order = xs.map((_, k) => k).sort((a, b) => xs[a] - xs[b]);
          xs = order.map((k) => t.x[k]);
          ys = order.map((k) => t.y[k]);
          break;
        }
      return [xs, ys];
    });
    if (tables.length === 1) return [tables[0][0].slice(), tables[0][1].slice()];
    return uPlot.join(tables);
  }

  /** Redraws once per animation frame at most, with whatever came meanwhile. */
  flush() {
    if (!this.dirty) return;
    this.dirty = false;
    const data = this.data();
    this.points = data[0].length;
    if (!this.chart) this.build();
    else this.chart.setData(data);
  }

  /** The points each series shows, read back from the chart's own data. */
  summary() {
    const out = { id: this.description.id, title: this.description.title, series: [] };
    if (!this.chart) return out;
    const data = this.chart.data;
    this.trails.forEach((t, i) => {
      const xs = [];
      const ys = [];
      for (let k = 0; k < data[0].length; ++k) {
        const y = data[i + 1][k];
        if (y !== null && y !== undefined) {
          xs.push(data[0][k]);
          ys.push(y);
        }
      }
      out.series.push({ num: t.num, label: t.label, x: xs, y: ys });
    });
    return out;
  }
}
