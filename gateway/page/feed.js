// The one connection to the gateway, for every tab that shows the page. Tabs are message ports: each
// is told a snapshot first, then every event, and how the connection is.

const KINDS = ['snapshot', 'session', 'session-removed', 'ptp', 'port', 'port-removed', 'device',
  'monitor', 'source', 'resync', 'heartbeat'];
// The gateway sends something at least every five seconds.
const SILENCE_MS = 12000;
const RETRY_MS = 3000;

export class Feed {
  #ports = new Set();
  #source = null;
  #lastHeard = 0;
  #connected = false;
  #events = [];

  constructor() {
    this.#open();
    setInterval(() => this.#watch(), 1000);
  }

  add(port) {
    this.#ports.add(port);
    port.onmessage = ({data}) => {
      if (data === 'bye') this.#ports.delete(port);
    };
    // A snapshot and what has come since then; a new one is fetched when that has become much.
    for (const event of this.#events) port.postMessage(event);
    port.postMessage({connected: this.#connected});
  }

  #open() {
    this.#source?.close();
    this.#lastHeard = Date.now();
    this.#source = new EventSource('/api/v1/events');
    this.#source.onopen = () => this.#setConnected(true);
    this.#source.onerror = () => {
      this.#setConnected(false);
      if (this.#source.readyState === EventSource.CLOSED) setTimeout(() => this.#open(), RETRY_MS);
    };
    for (const kind of KINDS) {
      this.#source.addEventListener(kind, ({data}) => this.#take(kind, JSON.parse(data)));
    }
  }

  #take(kind, data) {
    const event = {kind, data, received: Date.now()};
    this.#lastHeard = event.received;
    this.#setConnected(true);
    if (kind === 'snapshot') this.#events = [];
    if (kind !== 'heartbeat') this.#events.push(event);
    for (const port of this.#ports) port.postMessage(event);
    const longestTail = 2000;
    if (this.#events.length > longestTail) this.#open();
  }

  #watch() {
    if (Date.now() - this.#lastHeard > SILENCE_MS && this.#source.readyState !== EventSource.CLOSED) {
      this.#setConnected(false);
      this.#open();
    }
  }

  #setConnected(connected) {
    if (connected === this.#connected) return;
    this.#connected = connected;
    for (const port of this.#ports) port.postMessage({connected});
  }
}
