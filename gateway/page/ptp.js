// The PTP clock: in words, and its offset over the last hour with unlocked times shaded.
import {SIGNS, classOf, element, nanoseconds, since} from './words.js';

const HOUR_S = 3600;

export class Ptp {
  #rows = new Map();
  #graph = null;
  span = 'last hour';

  constructor() {
    this.words = document.getElementById('ptp-words');
    this.note = document.getElementById('chart-note');
    this.chart = document.getElementById('chart');
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
      this.#graph?.destroy();
      this.#graph = null;
      this.drawChart();
    });
  }

  draw(state) {
    const {ptp} = state;
    if (!ptp) {
      this.words.replaceChildren('no PTP status has been reported');
      return;
    }
    const level = ptp.locked ? 'good' : 'bad';
    const states = ptp.ports.map((port) => `port ${port.number} ${port.state}`).join(', ');
    this.words.replaceChildren(
      element('span', {className: classOf(level)},
        `${SIGNS[level]} ${ptp.locked ? 'locked' : 'NOT LOCKED'}`),
      ` ${since(ptp.since, state.started)}   offset ${nanoseconds(ptp.offset_ns)}   `,
      `path delay ${nanoseconds(ptp.mean_path_delay_ns)}   `,
      element('span', {className: 'quiet'},
        `grandmaster ${ptp.grandmaster_id} · ${ptp.profile.name} · domain ${ptp.profile.domain}`
        + (states ? ` · ${states}` : '')));
  }

  // Rows as the gateway has them: [time, min, max, last, locked].
  async fetch(seconds) {
    const answer = await fetch(`/api/v1/ptp/history?seconds=${seconds}`);
    if (!answer.ok) return;
    const {rows} = await answer.json();
    for (const row of rows) this.#rows.set(row[0], row);
    this.#trim(rows.at(-1)?.[0] ?? 0);
    this.drawChart();
  }

  // A row of what this page has seen itself, where nobody is there who could be asked for more.
  add(time, {offset_ns: offset, locked}) {
    const second = Math.floor(Date.parse(time) / 1000);
    const [, least, most, , all] = this.#rows.get(second) ?? [second, offset, offset, offset, true];
    this.#rows.set(second, [second, Math.min(least, offset), Math.max(most, offset), offset, all && locked]);
    this.#trim(second);
    this.span = 'since this page was opened';
  }

  #trim(newest) {
    for (const time of this.#rows.keys()) {
      if (time > newest - HOUR_S) break;
      this.#rows.delete(time);
    }
  }

  drawChart() {
    const rows = [...this.#rows.values()].sort((a, b) => a[0] - b[0]);
    const seconds = rows.filter((row) => !row[4]).length;
    this.note.textContent = rows.length === 0 ? 'no offset has been seen yet'
      : `offset in ns, ${this.span}; ${seconds ? `${seconds} s not locked (shaded)` : 'locked throughout'}`;
    if (rows.length === 0 || typeof Dygraph === 'undefined') return;
    const points = [];
    rows.forEach((row, index) => {
      // A gap: the service was not heard.
      if (index > 0 && row[0] - rows[index - 1][0] > 2) points.push([new Date(row[0] * 1000 - 1), [NaN, NaN, NaN]]);
      points.push([new Date(row[0] * 1000), [row[1], row[3], row[2]]]);
    });
    if (this.#graph) {
      this.#graph.updateOptions({file: points});
      return;
    }
    // The legend writes style attributes, which the page's policy refuses.
    Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);
    const style = getComputedStyle(document.documentElement);
    const colour = (name) => style.getPropertyValue(name).trim();
    this.#graph = new Dygraph(this.chart, points, {
      customBars: true, labels: ['time', 'offset'], colors: [colour('--accent')], 
      axisLineColor: colour('--line'), gridLineColor: colour('--line'), strokeWidth: 1.5,
      axes: {x: {axisLabelWidth: 70}, y: {axisLabelWidth: 60}}, drawHighlightPointCallback: () => {},
      underlayCallback: (canvas, area, graph) => {
        canvas.fillStyle = colour('--shade');
        for (const [time, , , , locked] of this.#rows.values()) {
          if (!locked) {
            const left = graph.toDomXCoord((time - 1) * 1000);
            canvas.fillRect(left, area.y, Math.max(1, graph.toDomXCoord(time * 1000) - left), area.h);
          }
        }
      },
    });
  }
}
