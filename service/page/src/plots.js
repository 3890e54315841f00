// The overview's plots over time. Lines differ in dash as well as in colour; each plot comes with
// its figures as a table.

import uPlot from "uplot";
import { el, table } from "./dom.js";
import { count, duration, time } from "./format.js";

const DASHES = [[], [8, 4], [2, 3], [10, 3, 2, 3], [5, 5], [1, 4]];
const STEP = { minute: 60, hour: 3600, day: 86400 };
const MIN_POINTS = 15;

// Half an event is none.
const WHOLE_STEPS = Array.from({ length: 12 }, (_, power) => [1, 2, 5].map((step) => step * 10 ** power)).flat();

const style = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

/** Every moment of the series, none left out, and at least a quarter of an hour. */
function moments(series) {
  const step = STEP[series.unit];
  const seen = series.points.map((point) => Date.parse(point.time) / 1000);
  if (seen.length === 0) return [];
  const last = Math.max(...seen);
  const first = Math.min(Math.min(...seen), last - (MIN_POINTS - 1) * step);
  return Array.from({ length: (last - first) / step + 1 }, (_, at) => first + at * step);
}

function line(series, times, name, measure, value, names, otherwise = 0) {
  const values = new Array(times.length).fill(otherwise);
  const step = STEP[series.unit];
  for (const point of series.points) {
    if (point.measure !== measure || (names && !names.includes(point.name))) continue;
    const at = (Date.parse(point.time) / 1000 - times[0]) / step;
    values[at] = value(point, values[at]);
  }
  return { name, values };
}

const sum = (field) => (point, before) => before + point[field];

/** Names by their count, the rarest together as "other". */
function grouped(series, measure, most) {
  const totals = new Map();
  for (const point of series.points) {
    if (point.measure !== measure) continue;
    totals.set(point.name, (totals.get(point.name) ?? 0) + point.count);
  }
  const names = [...totals].sort((a, b) => b[1] - a[1]).map(([name]) => name);
  const groups = names.slice(0, most).map((name) => [name, [name]]);
  if (names.length > most) groups.push(["other", names.slice(most)]);
  return groups;
}

export function figuresOf(series) {
  const times = moments(series);
  const byName = (measure, most, label) =>
    grouped(series, measure, most).map(([name, names]) =>
      line(series, times, label(name), measure, sum("count"), names));
  const latency = (name, value) => line(series, times, name, "request", value, null, null);
  const means = new Map();
  const mean = (point) => {
    const all = means.get(point.time) ?? { sum: 0, count: 0 };
    all.sum += point.first_sum;
    all.count += point.count;
    means.set(point.time, all);
    return all.sum / all.count;
  };
  return [
    { title: `Events a ${series.unit}, by kind`, show: count, lines: byName("event", 5, (name) => name || "(none)") },
    {
      title: `Tokens a ${series.unit}`,
      show: count,
      lines: [
        line(series, times, "tokens in", "tokens", sum("first_sum")),
        line(series, times, "tokens out", "tokens", sum("second_sum")),
      ],
    },
    {
      title: `Requests a ${series.unit}, by status`,
      show: count,
      lines: byName("request", 5, (name) => (name === "0" ? "no answer" : `status ${name}`)),
    },
    {
      title: "Time to answer a request",
      show: (value) => (value === null ? "–" : duration(Math.round(value))),
      lines: [
        latency("mean", mean),
        latency("slowest", (point, before) => Math.max(before ?? 0, point.peak)),
      ],
    },
  ].map((figure) => ({ ...figure, times }));
}

function legend(figure) {
  return el("ul.legend", {}, figure.lines.map(({ name }, at) => el("li", {}, swatch(at), name)));
}

function swatch(at) {
  const canvas = el("canvas.swatch", { width: 28, height: 8, "aria-hidden": "true" });
  const pen = canvas.getContext("2d");
  pen.strokeStyle = style(`--series-${at + 1}`);
  pen.lineWidth = 2.5;
  pen.setLineDash(DASHES[at]);
  pen.beginPath();
  pen.moveTo(0, 4);
  pen.lineTo(28, 4);
  pen.stroke();
  return canvas;
}

const clock = (_, ticks, __, ___, step) => ticks.map((tick) => {
  const text = time(new Date(tick * 1000).toISOString());
  return step >= 86400 ? text.slice(5, 10) : text.slice(11, 16);
});

function options(figure, width) {
  const ink = style("--muted");
  const axis = { stroke: ink, grid: { stroke: style("--line"), width: 1 }, ticks: { show: false }, font: "12px system-ui, sans-serif" };
  return {
    width,
    height: 170,
    legend: { show: false },
    cursor: { drag: { x: false, y: false }, points: { size: 6 } },
    scales: { y: { range: (_, low, high) => [0, Math.max(high * 1.08, 1)] } },
    axes: [{ ...axis, size: 30, values: clock }, { ...axis, size: 62, space: 28, incrs: WHOLE_STEPS, values: (_, ticks) => ticks.map((tick) => figure.show(tick)) }],
    series: [
      {},
      ...figure.lines.map(({ name }, at) => ({
        label: name,
        stroke: style(`--series-${at + 1}`),
        width: 2,
        dash: DASHES[at],
        spanGaps: true,
        points: { show: figure.times.length <= 40, size: 5 },
      })),
    ],
  };
}

const TABLE_ROWS = 60;

function asTable(figure) {
  const places = figure.times
    .map((_, at) => at)
    .filter((at) => figure.lines.some(({ values }) => values[at]))
    .slice(-TABLE_ROWS);
  return table(
    `${figure.title}: the latest figures`,
    [["time"], ...figure.lines.map(({ name }) => [name, "number"])],
    places.map((at) => [
      time(new Date(figure.times[at] * 1000).toISOString()),
      ...figure.lines.map(({ values }) => figure.show(values[at])),
    ]),
  );
}

/** A panel that keeps its plot up to date. */
export class Plot {
  constructor() {
    this.canvas = el("div.plot", { "aria-hidden": "true" });
    this.title = el("h2");
    this.key = el("div");
    this.table = el("div");
    this.details = el("details", { ontoggle: () => this.fillTable() }, el("summary", {}, "Show the figures"), this.table);
    this.node = el("section.panel.figure", {}, this.title, this.key, this.canvas, this.details);
    new ResizeObserver(() => this.plot?.setSize({ width: this.canvas.clientWidth, height: 170 })).observe(this.canvas);
  }

  fillTable() {
    this.table.replaceChildren(...(this.details.open && this.figure ? [asTable(this.figure)] : []));
  }

  show(figure) {
    this.figure = figure;
    this.title.textContent = figure.title;
    const data = [figure.times, ...figure.lines.map(({ values }) => values)];
    const names = figure.lines.map(({ name }) => name).join("|") + style("--ink") + figure.times.length;
    if (this.names === names) {
      this.plot.setData(data);
    } else {
      this.names = names;
      this.plot?.destroy();
      this.key.replaceChildren(legend(figure));
      this.plot = new uPlot(options(figure, this.canvas.clientWidth || 400), data, this.canvas);
    }
    this.fillTable();
  }
}
