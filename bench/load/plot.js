// Draws the figures of a benchmark as SVG. Usage: node plot.js FIGURES DIRECTORY
// FIGURES is the file that quorvel_bench writes; the plots go to DIRECTORY as benchmark-*.svg.

import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

const SERVERS = [
  { name: 'service', title: 'service', color: '#1f5fa8' },
  { name: 'bare', title: 'bare libwebsockets', color: '#7a7a7a' },
  { name: 'node', title: 'Node.js ws', color: '#c2571a' },
];
const PANEL = { width: 360, height: 240, left: 62, right: 14, top: 34, bottom: 44 };

const [figuresPath, directory] = process.argv.slice(2);
const figures = readFileSync(figuresPath, 'utf8').trim().split('\n').map((line) => {
  const [series, x, server, metric, value] = line.split('\t');
  return { series, x: Number(x), server, metric, value: Number(value) };
});

function points(series, metric, server) {
  return figures
    .filter((f) => f.series === series && f.metric === metric && f.server === server)
    .sort((a, b) => a.x - b.x);
}

const short = (value) => (value >= 1000 ? `${value / 1000}k` : String(value));

/** A scale from values to pixels and the values at which it is marked. */
function logarithmic(values, from, to) {
  const low = Math.floor(Math.log10(Math.min(...values)));
  const high = Math.ceil(Math.log10(Math.max(...values)));
  const place = (value) => from + ((Math.log10(value) - low) / (high - low)) * (to - from);
  const marks = Array.from({ length: high - low + 1 }, (_, index) => 10 ** (low + index));
  return { place, marks };
}

function linear(values, from, to) {
  const most = Math.max(...values);
  const step = [1, 2, 5, 10].map((n) => n * 10 ** Math.floor(Math.log10(most / 5))).find((n) => most / n <= 6);
  const top = Math.ceil(most / step) * step;
  const marks = Array.from({ length: Math.round(top / step) + 1 }, (_, index) => index * step);
  return { place: (value) => from + (value / top) * (to - from), marks };
}

/** Equal steps for the places on the axis, whatever their values. */
function categories(values, from, to) {
  const marks = [...new Set(values)].sort((a, b) => a - b);
  const step = (to - from) / Math.max(marks.length - 1, 1);
  return { place: (value) => from + marks.indexOf(value) * step, marks };
}

function panel({ title, axis, series, metric, scale }, index) {
  const { width, height, left, right, top, bottom } = PANEL;
  const lines = SERVERS.map((server) => ({ ...server, points: points(series, metric, server.name) }));
  const all = lines.flatMap((line) => line.points);
  const x = categories(all.map((p) => p.x), left, width - right);
  const y = scale(all.map((p) => p.value), height - bottom, top);
  const parts = [`<g transform="translate(${index * width},24)">`,
    `<text x="${left}" y="18" class="title">${title}</text>`,
    `<text x="${(left + width - right) / 2}" y="${height - 8}" text-anchor="middle">${axis}</text>`];
  for (const mark of y.marks) {
    const at = y.place(mark).toFixed(1);
    parts.push(`<path d="M${left} ${at}H${width - right}" class="grid"/>`,
      `<text x="${left - 6}" y="${at}" dy="4" text-anchor="end">${short(mark)}</text>`);
  }
  for (const mark of x.marks)
    parts.push(`<text x="${x.place(mark).toFixed(1)}" y="${height - bottom + 16}" text-anchor="middle">${short(mark)}</text>`);
  for (const line of lines) {
    const places = line.points.map((p) => `${x.place(p.x).toFixed(1)},${y.place(p.value).toFixed(1)}`);
    parts.push(`<polyline points="${places.join(' ')}" stroke="${line.color}" class="line"/>`);
    for (const place of places) {
      const [cx, cy] = place.split(',');
      parts.push(`<circle cx="${cx}" cy="${cy}" r="3" fill="${line.color}"/>`);
    }
  }
  return [...parts, '</g>'].join('\n');
}

function plot(name, panels) {
  const width = panels.length * PANEL.width;
  const legend = SERVERS.map(({ title, color }, index) =>
    `<g transform="translate(${PANEL.left + index * 150},14)"><path d="M0 0H22" stroke="${color}" class="line"/><text x="28" dy="4">${title}</text></g>`);
  const svg = `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${width} ${PANEL.height + 24}" font-family="sans-serif" font-size="11">
<style>.title{font-weight:bold;font-size:12px}.grid{stroke:#ddd}.line{fill:none;stroke-width:2}text{fill:#333}</style>
<rect width="100%" height="100%" fill="#fff"/>
${legend.join('\n')}
${panels.map(panel).join('\n')}
</svg>
`;
  writeFileSync(join(directory, `benchmark-${name}.svg`), svg);
}

plot('connections', [
  { title: 'Requests/s', axis: 'connections', series: 'connections', metric: 'rps', scale: linear },
  { title: 'Latency, 99th percentile, µs', axis: 'connections', series: 'connections', metric: 'p99_us', scale: logarithmic },
  { title: 'Resident memory, MB', axis: 'connections', series: 'connections', metric: 'resident_mb', scale: linear },
]);
plot('cost', [
  { title: 'CPU time of a request in 1 frame, µs', axis: 'bytes', series: 'size_whole', metric: 'cpu_us', scale: logarithmic },
  { title: 'CPU time of a request in 10 frames, µs', axis: 'bytes', series: 'size_fragments', metric: 'cpu_us', scale: logarithmic },
  { title: 'CPU time beside idle connections, µs', axis: 'idle connections', series: 'idle', metric: 'cpu_us', scale: logarithmic },
]);
