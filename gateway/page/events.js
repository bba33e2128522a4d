// The last events in words, newest first. They can be stopped and searched.
import {clock, element, nanoseconds} from './words.js';

const MOST = 200;

export class Events {
  #kept = [];
  #shown = null;

  constructor() {
    this.list = document.getElementById('event-list');
    this.search = document.getElementById('event-search');
    this.stop = document.getElementById('event-stop');
    this.search.addEventListener('input', () => this.draw());
    this.stop.addEventListener('click', () => {
      this.#shown = this.#shown ? null : [...this.#kept];
      this.stop.setAttribute('aria-pressed', String(this.#shown !== null));
      this.stop.textContent = this.#shown ? 'go on' : 'stop';
      this.draw();
    });
  }

  take(kind, data, before) {
    const words = wordsOf(kind, data, before);
    if (!words) return;
    this.#kept.unshift({time: data.time, words});
    this.#kept.length = Math.min(this.#kept.length, MOST);
  }

  draw() {
    const wanted = this.search.value.trim().toLowerCase();
    const fitting = (this.#shown ?? this.#kept).filter(
      ({words}) => words.toLowerCase().includes(wanted));
    this.list.replaceChildren(...fitting.map(({time, words}) =>
      element('li', {}, element('time', {dateTime: time}, clock(time)), ` ${words}`)));
  }
}

const alarmTexts = (session) => [
  ...(session?.alarms ?? []).map((alarm) => `${alarm.severity}: ${alarm.description} (${alarm.type})`),
  ...(session?.streams ?? []).flatMap((stream) => stream.alarms.map((alarm) =>
    `stream ${stream.id} ${alarm.severity}: ${alarm.description} (${alarm.type})`))];

function sessionWords(session, before) {
  const now = alarmTexts(session);
  const then = alarmTexts(before);
  const raised = now.filter((text) => !then.includes(text)).map((text) => `alarm ${text}`);
  const cleared = then.filter((text) => !now.includes(text)).map((text) => `cleared ${text}`);
  const parts = before ? [] : [`new, ${session.streams.length} streams`];
  return `session ${session.id} ${[...parts, ...raised, ...cleared].join('; ') || 'changed'}`;
}

function ptpWords(ptp, before) {
  const parts = [];
  if (ptp.locked !== before?.locked) {
    parts.push(ptp.locked ? `locked, offset ${nanoseconds(ptp.offset_ns)}` : 'lost its lock');
  }
  if (before && ptp.grandmaster_id !== before.grandmaster_id) {
    parts.push(`grandmaster ${ptp.grandmaster_id}`);
  }
  // The chart shows the offset.
  return parts.length ? `PTP ${parts.join('; ')}` : '';
}

function wordsOf(kind, data, before) {
  switch (kind) {
    case 'session': return sessionWords(data.session, before.sessions.get(data.session.id));
    case 'session-removed': return `session ${data.id} removed`;
    case 'ptp': return ptpWords(data.ptp, before.ptp);
    case 'port': return data.port.up === before.ports.get(data.port.name)?.up
      ? '' : `port ${data.port.name} ${data.port.up ? 'up' : 'down'}`;
    case 'port-removed': return `port ${data.name} removed`;
    case 'device': return `device ${data.id}`;
    case 'monitor': return data.name === 'overall' ? `overall ${data.status}: ${data.message}` : '';
    case 'source': return `source ${data.source.state}`;
    case 'resync': return `${data.dropped} events missed (${data.reason}); the whole state follows`;
    default: return '';
  }
}
