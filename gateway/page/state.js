// What the page knows: the last snapshot with every event since then.

export class State {
  constructor() {
    this.known = false;
    this.monitors = new Map();
    this.sessions = new Map();
    this.ports = new Map();
    this.device = null;
    this.ptp = null;
    this.source = null;
    this.started = null;
    // Of a device in a fleet: its row there, and how the broker is.
    this.row = null;
    this.broker = null;
  }

  // Takes one event in.
  apply(kind, data) {
    switch (kind) {
      case 'snapshot': this.#takeSnapshot(data); break;
      case 'session':
        this.sessions.set(data.session.id, data.session);
        if (data.status) this.monitors.set(`session/${data.session.id}`, {status: data.status});
        break;
      case 'session-removed':
        this.sessions.delete(data.id);
        this.monitors.delete(`session/${data.id}`);
        break;
      case 'ptp': this.ptp = data.ptp; break;
      case 'port': this.ports.set(data.port.name, data.port); break;
      case 'port-removed': this.ports.delete(data.name); break;
      case 'device': this.device = data.id; break;
      case 'monitor':
        this.known = true;
        this.monitors.set(data.name, data);
        break;
      case 'row': this.row = data.row; break;
      case 'row-removed': this.row = null; break;
      case 'broker': this.broker = data.broker; break;
      case 'source':
      case 'heartbeat': this.source = data.source; break;
    }
  }

  // The monitors' messages, which a snapshot does not hold.
  takeMonitors(list) {
    for (const monitor of list) {
      if (this.monitors.get(monitor.name)?.status === monitor.status) {
        this.monitors.set(monitor.name, monitor);
      }
    }
  }

  #takeSnapshot(data) {
    const device = data.device ?? {};
    this.known = data.device !== null;
    // In a fleet, what was so at the start of the device's own gateway.
    this.started = data.instance ? null : data.started;
    this.source = data.source;
    this.device = device.id ?? null;
    this.ptp = device.ptp ?? null;
    this.ports = new Map((device.ports ?? []).map((port) => [port.name, port]));
    this.sessions = new Map((device.sessions ?? []).map((session) => [session.id, session]));
    this.monitors = new Map(Object.entries(data.monitors ?? {}).map(
      ([name, status]) => [name, {name, status, message: '', ...this.#sameMonitor(name, status)}]));
    this.row = data.row ?? null;
    if (this.row) Object.assign(this.monitors.get('overall') ?? {}, {message: this.row.reason});
  }

  #sameMonitor(name, status) {
    const before = this.monitors.get(name);
    return before?.status === status ? before : {};
  }
}
