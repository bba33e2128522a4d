// The sessions, worst first.
import {SIGNS, classOf, element, levelOf, rankOf, severityLevel, since} from './words.js';

const MOST = 200;

export class Sessions {
  constructor(redraw) {
    this.list = document.getElementById('session-list');
    this.more = document.getElementById('session-more');
    this.filter = document.getElementById('session-filter');
    this.filter.addEventListener('input', redraw);
  }

  draw(state) {
    const wanted = this.filter.value.trim().toLowerCase();
    const found = [...state.sessions.values()]
      .map((session) => ({session, level: levelOf(state.monitors.get(`session/${session.id}`)?.status)}))
      .filter(({session}) => !wanted || textOf(session).includes(wanted))
      .sort((a, b) => rankOf(b.level) - rankOf(a.level) || compareIds(a.session.id, b.session.id));
    this.list.replaceChildren(...found.slice(0, MOST).map((item) => row(item, state.started)));
    this.more.textContent = found.length > MOST ? `and ${found.length - MOST} more`
      : found.length === 0 ? (wanted ? 'no session fits' : 'no session') : '';
  }
}

const alarmsOf = (session) => [
  ...session.alarms.map((alarm) => ({alarm, where: ''})),
  ...session.streams.flatMap((stream) => stream.alarms.map(
    (alarm) => ({alarm, where: `stream ${stream.id}`})))];

const textOf = (session) => [session.id, session.nmos_id, ...alarmsOf(session).map(
  ({alarm, where}) => `${where} ${alarm.severity} ${alarm.description}`)].join(' ').toLowerCase();

// Ids are numbers of any size, as texts.
const compareIds = (a, b) => a.length - b.length || (a < b ? -1 : a > b ? 1 : 0);

function row({session, level}, started) {
  const item = element('li', {}, element('span', {className: classOf(level)},
    `${SIGNS[level]} ${session.id}`), ' ', element('span', {className: 'quiet'}, session.nmos_id));
  const alarms = alarmsOf(session);
  if (alarms.length === 0) {
    item.append(` ${session.streams.length} stream${session.streams.length === 1 ? '' : 's'}`);
  }
  for (const {alarm, where} of alarms) {
    item.append(element('div', {className: 'alarm'}, `${where} `,
      element('span', {className: classOf(severityLevel(alarm.severity))}, alarm.severity),
      ` ${alarm.description} (${alarm.type}) `,
      element('span', {className: 'quiet'}, since(alarm.since, started))));
  }
  return item;
}
