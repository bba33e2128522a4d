// The events of all devices for every tab. A tab says what it shows: the table, or one device's
// instance. The table is told the rows that have changed, ten times a second at most; a device's view
// is told what its own gateway would tell it.
import {Connection} from './connection.js';

const OF_A_DEVICE = ['session', 'session-removed', 'ptp', 'port', 'port-removed', 'device', 'monitor',
  'source', 'row', 'row-removed'];
const KINDS = ['snapshot', 'resync', 'heartbeat', ...OF_A_DEVICE];
const BATCH_MS = 100;

export class FleetFeed {
  // Message ports; of a view also its instance, and what has come while its device is fetched.
  #tables = new Set();
  #views = new Map();
  #rows = new Map();
  #changed = new Set();
  #source = null;
  // How far this clock is ahead of the server's.
  #ahead = 0;
  #isWhole = false;
  #missed = false;
  #timer = null;
  #connection = new Connection(KINDS, (event) => this.#take(event), (connected) => {
    for (const port of [...this.#tables, ...this.#views.keys()]) port.postMessage({connected});
  });

  add(port) {
    port.onmessage = ({data}) => {
      if (data === 'bye') {
        this.#tables.delete(port);
        this.#views.delete(port);
        return;
      }
      port.postMessage({connected: this.#connection.connected});
      if (data.instance) {
        this.#views.set(port, {instance: data.instance});
        this.#begin(port);
      } else {
        this.#tables.add(port);
        port.postMessage(this.#table([...this.#rows.values()], [], true));
      }
    };
  }

  #table(rows, removed, isWhole) {
    return {rows, removed, isWhole, missed: this.#missed, source: this.#source, ahead: this.#ahead};
  }

  #take(event) {
    const {kind, data} = event;
    if (data.source && !data.instance) this.#source = data.source;
    if (kind === 'resync') this.#missed = true;
    if (kind === 'snapshot') {
      this.#ahead = event.received - Date.parse(data.time);
      this.#rows = new Map(data.devices.map((row) => [row.instance, row]));
      this.#isWhole = true;
      for (const port of this.#views.keys()) this.#begin(port);
    } else if (data.instance) {
      this.#takeRow(kind, data);
    }
    this.#tellViews(event);
    this.#timer ??= setTimeout(() => this.#tellTables(), BATCH_MS);
  }

  #takeRow(kind, data) {
    const row = this.#rows.get(data.instance);
    if (kind === 'row') {
      this.#rows.set(data.instance, data.row);
    } else if (kind === 'row-removed') {
      this.#rows.delete(data.instance);
    } else if (kind === 'ptp' && data.ptp && row) {
      row.ptp = {locked: data.ptp.locked, offset_ns: data.ptp.offset_ns};
      row.heard = data.time;
    } else {
      return;
    }
    this.#changed.add(data.instance);
  }

  #tellTables() {
    this.#timer = null;
    const names = this.#isWhole ? [...this.#rows.keys()] : [...this.#changed];
    const message = this.#table(names.map((name) => this.#rows.get(name)).filter(Boolean),
      names.filter((name) => !this.#rows.has(name)), this.#isWhole);
    this.#changed.clear();
    this.#isWhole = this.#missed = false;
    for (const port of this.#tables) port.postMessage(message);
  }

  // A view begins with the whole device; what has come before that is known is kept back.
  async #begin(port) {
    const view = this.#views.get(port);
    const waiting = view.waiting = [];
    const answer = await fetch(`/api/v1/devices/${view.instance}`).catch(() => null);
    if (view.waiting !== waiting) return;
    view.waiting = null;
    const data = answer?.ok ? await answer.json()
      : {seq: 0, device: null, monitors: {}, source: null, row: null};
    port.postMessage({kind: 'snapshot', data, received: Date.now()});
    this.#postBroker(port);
    for (const event of waiting) {
      if (event.data.seq > data.seq) port.postMessage(event);
    }
  }

  #postBroker(port) {
    port.postMessage({kind: 'broker', data: {broker: this.#source}, received: Date.now()});
  }

  #tellViews(event) {
    const {kind, data} = event;
    for (const [port, view] of this.#views) {
      if (kind === 'resync') port.postMessage(event);
      else if (!data.instance) this.#postBroker(port);
      else if (data.instance === view.instance) {
        if (view.waiting) view.waiting.push(event);
        else port.postMessage(event);
      }
    }
  }
}
