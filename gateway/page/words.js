// How things are said and drawn. Colour never stands alone: each health has a sign and a word.

export const SIGNS = {good: '●', warn: '▲', bad: '■', none: '○'};

// Words come from devices: without a prototype, "constructor" is none of these.
const LEVELS = {
  __proto__: null,
  'healthy': 'good', 'all-up': 'good', 'partially-healthy': 'warn', 'some-down': 'warn',
  'unhealthy': 'bad', 'all-down': 'bad',
};
export const levelOf = (status) => LEVELS[status] ?? 'none';
export const rankOf = (level) => ['none', 'good', 'warn', 'bad'].indexOf(level);
export const classOf = (level) => ({good: 'healthy', warn: 'warn', bad: 'bad', none: 'quiet'})[level];

const SEVERITIES = {__proto__: null, critical: 'bad', major: 'bad', minor: 'warn', warning: 'warn'};
export const severityLevel = (severity) => SEVERITIES[severity] ?? 'bad';

const TODAY = new Intl.DateTimeFormat([], {timeStyle: 'medium', hourCycle: 'h23'});
const ANY_DAY = new Intl.DateTimeFormat([], {dateStyle: 'medium', timeStyle: 'medium', hourCycle: 'h23'});

export function clock(text) {
  const time = new Date(text);
  if (Number.isNaN(time.getTime())) return text;
  return (time.toDateString() === new Date().toDateString() ? TODAY : ANY_DAY).format(time);
}

// Since when; what was so when the gateway started has no time of its own.
export function since(time, started) {
  if (time) return `since ${clock(time)}`;
  return started ? `since before ${clock(started)}` : '';
}

export function nanoseconds(value) {
  const size = Math.abs(value);
  const sign = value < 0 ? '−' : '';
  if (size < 10_000) return `${sign}${size} ns`;
  if (size < 10_000_000) return `${sign}${(size / 1000).toFixed(1)} µs`;
  if (size < 10_000_000_000) return `${sign}${(size / 1_000_000).toFixed(1)} ms`;
  return `${sign}${(size / 1_000_000_000).toFixed(1)} s`;
}

export function speed(mbps) {
  return mbps >= 1000 ? `${mbps / 1000} Gb/s` : `${mbps} Mb/s`;
}

// An element with text children; what the device says is never markup.
export function element(name, properties = {}, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children);
  return made;
}

// Only touched when it says something else: screen readers announce, and browsers lay out.
export function say(target, text, className) {
  if (target.textContent !== text) target.textContent = text;
  if (className !== undefined && target.className !== className) target.className = className;
}
