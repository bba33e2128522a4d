// The page: one state, drawn at most once a frame.
import {Events} from './events.js';
import {portTo} from './connection.js';
import {Feed} from './feed.js';
import {FleetFeed} from './fleet-feed.js';
import {Ptp} from './ptp.js';
import {Sessions} from './sessions.js';
import {State} from './state.js';
import {SIGNS, classOf, element, levelOf, say, since, speed} from './words.js';

const BEHIND_SHOWN_MS = 5000;
// What the service itself has just told.
const OF_THE_DEVICE = new Set(['session', 'ptp', 'port', 'port-removed', 'device']);

// In a fleet the page shows the device that its address names; its own gateway is far away.
const instance = new URLSearchParams(location.search).get('instance');

const state = new State();
const ptp = new Ptp();
const events = new Events();
const sessions = new Sessions(() => redraw());
const byId = (id) => document.getElementById(id);

let connected = false;
let heard = null;
let behindUntil = 0;
let isDrawPlanned = false;

function redraw() {
  if (isDrawPlanned) return;
  isDrawPlanned = true;
  requestAnimationFrame(() => {
    isDrawPlanned = false;
    draw();
  });
}

// What is shown is only the last that was heard.
function whyOld() {
  if (!connected) return 'reconnecting';
  if (instance && state.broker?.state !== 'live') return 'broker lost';
  if (state.row && state.row.state !== 'online') return 'offline';
  return state.source?.state === 'live' ? '' : `source ${state.source?.state ?? 'lost'}`;
}

function drawHeader() {
  const overall = state.monitors.get('overall');
  let status = state.known ? overall?.status ?? 'inactive' : 'unknown';
  let level = levelOf(status);
  let reason = overall?.message ?? '';
  const away = whyOld();
  if (away && state.known) {
    reason = `was ${status}: ${reason}`;
    [status, level] = [away, 'bad'];
  }
  say(byId('overall'), `${SIGNS[level]} ${status}`, `health ${classOf(level)}`);
  say(byId('device'), [instance, state.device].filter(Boolean).join(' · '));
  say(byId('reason'), reason);
  const levels = [...state.sessions.keys()].map((id) => levelOf(state.monitors.get(`session/${id}`)?.status));
  const healthy = levels.filter((each) => each === 'good').length;
  const not = levels.length - healthy;
  say(byId('summary'), `links ${state.monitors.get('links')?.status ?? '–'} · `
    + `synchronisation ${state.monitors.get('synchronization')?.status ?? '–'} · `
    + `sessions ${healthy} healthy${not ? `, ${not} not` : ''}`);
  document.title = `${SIGNS[level]} ${status} – kaikla`;
}

function drawConnection() {
  const target = byId('connection');
  const source = state.source?.state ?? 'lost';
  const sentence = {'held-up': 'source held up: the service waits for another consumer',
    lost: 'source lost: the service is not there'};
  let name = source;
  let text = sentence[source] ?? 'live';
  if (instance && state.broker?.state !== 'live') [name, text] = ['lost', 'the broker is not there'];
  else if (instance && state.row?.state !== 'online') {
    [name, text] = ['lost', state.row ? 'offline: the device is not at the broker' : 'no such device'];
  }
  if (!connected) [name, text] = ['reconnecting', 'reconnecting'];
  else if (name === 'live' && Date.now() < behindUntil) {
    [name, text] = ['behind', 'behind: events were missed, the state is whole again'];
  }
  if (target.dataset.state !== name) target.dataset.state = name;
  const age = heard && state.source?.age_ms != null
    ? (Date.now() - heard + state.source.age_ms) / 1000 : null;
  const old = age === null ? '' : `, ${age < 10 ? age.toFixed(1) : Math.round(age)} s old`;
  target.replaceChildren(element('span', {}, text), element('span', {ariaLive: 'off'}, old));
}

function drawPorts() {
  const body = document.querySelector('#ports tbody');
  const rows = [...state.ports.values()].map((port) => element('tr', {},
    element('th', {scope: 'row'}, port.name),
    element('td', {className: port.up ? 'up' : 'bad'}, port.up ? `${SIGNS.good} up` : `${SIGNS.bad} DOWN`),
    element('td', {}, speed(port.speed_mbps)), element('td', {}, port.ip),
    element('td', {}, port.sfp ? `${port.sfp.temperature_c} °C` : ''),
    element('td', {className: 'quiet'}, since(port.since, state.started))));
  body.replaceChildren(...(rows.length ? rows : [element('tr', {}, element('td', {}, 'no port has been reported'))]));
}

function draw() {
  drawHeader();
  drawConnection();
  ptp.draw(state);
  drawPorts();
  sessions.draw(state);
  events.draw();
}

async function fetchMonitors() {
  const answer = await fetch('/api/v1/monitors');
  if (answer.ok) state.takeMonitors((await answer.json()).monitors);
  redraw();
}

function take({kind, data, received, connected: isConnected}) {
  if (kind === undefined) {
    connected = isConnected;
  } else {
    events.take(kind, data, state);
    state.apply(kind, data);
    if (data.source) heard = received;
    else if (state.source && OF_THE_DEVICE.has(kind)) [heard, state.source.age_ms] = [received, 0];
    if (kind === 'resync') behindUntil = Date.now() + BEHIND_SHOWN_MS;
    if (instance) {
      if (kind === 'ptp' && data.ptp) ptp.add(data.time, data.ptp);
    } else if (kind === 'snapshot') {
      fetchMonitors().catch(() => {});
      ptp.fetch(3600).catch(() => {});
    }
  }
  redraw();
}

const port = instance ? portTo(new URL('./fleet-worker.js', import.meta.url), () => new FleetFeed())
  : portTo(new URL('./worker.js', import.meta.url), () => new Feed());
port.onmessage = ({data}) => take(data);
if (instance) {
  port.postMessage({instance});
  byId('fleet').hidden = false;
}
setInterval(drawConnection, 500);
setInterval(() => (instance ? ptp.drawChart() : ptp.fetch(15).catch(() => {})), instance ? 2000 : 10_000);
