// The table of all devices, worst first: one state, drawn at most once a frame. Rows are changed in
// place.
import {portTo} from './connection.js';
import {FleetFeed} from './fleet-feed.js';
import {SIGNS, classOf, element, levelOf, nanoseconds, rankOf, say} from './words.js';

// More are found by the search.
const MOST = 500;
const BEHIND_SHOWN_MS = 5000;
const SEVERITIES = ['critical', 'major', 'minor', 'warning', 'other'];

const byId = (id) => document.getElementById(id);
const body = document.querySelector('#devices tbody');
const search = byId('device-search');

const devices = new Map();
let source = null;
let ahead = 0;
let connected = false;
let behindUntil = 0;
let isDrawPlanned = false;
let isOrderOld = true;

// What counts is whether the device is there, then whether its service is, then how it is.
function healthOf(row) {
  if (row.state !== 'online') return ['bad', row.state ?? 'not heard of'];
  if (row.source !== 'live') return ['bad', `source ${row.source ?? 'unknown'}`];
  return [levelOf(row.overall), row.overall];
}

// One device: its row of the table, what it is sorted by and what it is found by.
class Device {
  constructor(name) {
    this.name = name;
    // "stage-9" stands before "stage-10".
    this.place = name.replace(/\d+/g, (digits) => digits.padStart(20, '0'));
    this.link = element('a', {href: `/device?instance=${name}`}, name);
    this.health = element('span');
    this.reason = element('span', {className: 'quiet'});
    [this.ptp, this.ports, this.alarms, this.age] = ['PTP', 'ports', 'alarms', 'heard'].map((label) => {
      const cell = element('td');
      cell.dataset.label = label;
      return cell;
    });
    this.line = element('tr', {}, element('th', {scope: 'row'}, this.link),
      element('td', {}, this.health, ' ', this.reason), this.ptp, this.ports, this.alarms, this.age);
  }

  take(row) {
    const [level, word] = healthOf(row);
    const alarms = row.alarms ?? {};
    const rank = [row.state === 'online' ? rankOf(level) : rankOf('bad') + 1,
      ...SEVERITIES.map((severity) => alarms[severity] ?? 0)];
    const text = `${this.name} ${row.id ?? ''} ${word} ${row.reason ?? ''}`.toLowerCase();
    if (text !== this.text || String(rank) !== String(this.rank)) isOrderOld = true;
    Object.assign(this, {row, level, rank, text, isDrawn: false});
  }

  draw() {
    if (this.isDrawn) return;
    this.isDrawn = true;
    const {row, level} = this;
    say(this.health, `${SIGNS[level]} ${healthOf(row)[1]}`, classOf(level));
    const isLive = row.state === 'online' && row.source === 'live';
    const reason = isLive ? row.reason : row.overall ? `was ${row.overall}` : '';
    say(this.reason, [reason, row.complete ? '' : 'more has been told than is taken'].filter(Boolean).join('; '));
    say(this.ptp, !row.ptp ? '–' : row.ptp.locked ? `${SIGNS.good} ${nanoseconds(row.ptp.offset_ns)}`
      : `${SIGNS.bad} NOT LOCKED`, row.ptp && !row.ptp.locked ? 'bad' : '');
    const {up, down} = row.ports;
    say(this.ports, down ? `${SIGNS.bad} ${down} DOWN, ${up} up` : up ? `${up} up` : '–', down ? 'bad' : '');
    say(this.alarms, SEVERITIES.filter((severity) => row.alarms?.[severity])
      .map((severity) => `${row.alarms[severity]} ${severity}`).join(', ') || (row.alarms ? 'none' : '–'));
  }

  drawAge(now) {
    say(this.age, this.row.heard ? ageOf((now - Date.parse(this.row.heard)) / 1000) : '–');
  }
}

function ageOf(seconds) {
  if (seconds < 100) return `${Math.max(0, Math.round(seconds))} s ago`;
  if (seconds < 6000) return `${Math.round(seconds / 60)} min ago`;
  const hours = seconds / 3600;
  return hours < 100 ? `${Math.round(hours)} h ago` : `${Math.round(hours / 24)} days ago`;
}

function worseFirst(a, b) {
  for (let i = 0; i < a.rank.length; ++i) {
    if (a.rank[i] !== b.rank[i]) return b.rank[i] - a.rank[i];
  }
  return a.place < b.place ? -1 : 1;
}

let shown = [];

function order() {
  isOrderOld = false;
  const wanted = search.value.trim().toLowerCase();
  const found = [...devices.values()].filter(({text}) => text.includes(wanted)).sort(worseFirst);
  shown = found.slice(0, MOST);
  shown.forEach(({line}, index) => {
    if (body.children[index] !== line) body.insertBefore(line, body.children[index] ?? null);
  });
  while (body.children.length > shown.length) body.lastChild.remove();
  say(byId('device-more'), found.length > MOST ? `the worst ${MOST} of ${found.length}`
    : wanted ? `${found.length} of ${devices.size}` : devices.size ? '' : 'no device has been heard of');
}

function drawHeader() {
  const count = {bad: 0, warn: 0, good: 0, none: 0};
  for (const {level} of devices.values()) ++count[level];
  const words = {bad: 'unhealthy or away', warn: 'partially healthy', good: 'healthy', none: 'unknown'};
  const parts = Object.keys(count).filter((level) => count[level])
    .map((level) => [level, `${SIGNS[level]} ${count[level]} ${words[level]}`]);
  const text = parts.map(([, part]) => part).join('  ') || 'no device';
  if (byId('overall').textContent !== text) {
    byId('overall').replaceChildren(...parts.flatMap(([level, part], index) =>
      [index ? '  ' : '', element('span', {className: `health ${classOf(level)}`}, part)]));
    if (!parts.length) byId('overall').textContent = text;
    document.title = `${parts[0]?.[1] ?? text} – kaikla devices`;
  }
}

function drawConnection() {
  let [name, text] = ['live', 'live'];
  if (!connected) [name, text] = ['reconnecting', 'reconnecting'];
  else if (source?.state !== 'live') [name, text] = ['lost', 'the broker is not there; the table is old'];
  else if (Date.now() < behindUntil) {
    [name, text] = ['behind', 'behind: events were missed, the table is whole again'];
  }
  const target = byId('connection');
  if (target.dataset.state !== name) target.dataset.state = name;
  say(target, text);
}

function draw() {
  isDrawPlanned = false;
  if (isOrderOld) order();
  for (const device of shown) device.draw();
  drawHeader();
  drawConnection();
}

function redraw() {
  if (isDrawPlanned) return;
  isDrawPlanned = true;
  requestAnimationFrame(draw);
}

function take(message) {
  if ('connected' in message) {
    connected = message.connected;
  } else {
    ({source, ahead} = message);
    if (message.missed) behindUntil = Date.now() + BEHIND_SHOWN_MS;
    if (message.isWhole) {
      const present = new Set(message.rows.map((row) => row.instance));
      message.removed = [...devices.keys()].filter((name) => !present.has(name));
    }
    for (const row of message.rows) {
      if (!devices.has(row.instance)) devices.set(row.instance, new Device(row.instance));
      devices.get(row.instance).take(row);
    }
    for (const name of message.removed) isOrderOld = devices.delete(name) || isOrderOld;
  }
  redraw();
}

function drawAges() {
  const now = Date.now() - ahead;
  for (const device of shown) device.drawAge(now);
  drawConnection();
}

search.addEventListener('input', () => {
  isOrderOld = true;
  redraw();
});
body.addEventListener('click', ({target}) => {
  if (!target.closest('a')) target.closest('tr')?.querySelector('a').click();
});

const port = portTo(new URL('./fleet-worker.js', import.meta.url), () => new FleetFeed());
port.onmessage = ({data}) => take(data);
port.postMessage({});
setInterval(drawAges, 1000);
