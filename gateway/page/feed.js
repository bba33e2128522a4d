// A device's events for every tab. Tabs are message ports: each is told a snapshot first, then every
// event, and how the connection is.
import {Connection} from './connection.js';

const KINDS = ['snapshot', 'session', 'session-removed', 'ptp', 'port', 'port-removed', 'device',
  'monitor', 'source', 'resync', 'heartbeat'];

export class Feed {
  #ports = new Set();
  #events = [];
  #connection = new Connection(KINDS, (event) => this.#take(event),
    (connected) => this.#post({connected}));

  add(port) {
    this.#ports.add(port);
    port.onmessage = ({data}) => {
      if (data === 'bye') this.#ports.delete(port);
    };
    // A snapshot and what has come since then; a new one is fetched when that has become much.
    for (const event of this.#events) port.postMessage(event);
    port.postMessage({connected: this.#connection.connected});
  }

  #take(event) {
    if (event.kind === 'snapshot') this.#events = [];
    if (event.kind !== 'heartbeat') this.#events.push(event);
    this.#post(event);
    const longestTail = 2000;
    if (this.#events.length > longestTail) this.#connection.open();
  }

  #post(message) {
    for (const port of this.#ports) port.postMessage(message);
  }
}
