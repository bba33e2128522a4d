// The one connection to the gateway's events, for every tab that shows its page.

// The gateway sends something at least every five seconds.
const SILENCE_MS = 12000;
const RETRY_MS = 3000;

export class Connection {
  #kinds;
  #take;
  #tell;
  #source = null;
  #lastHeard = 0;
  #connected = false;

  // Calls take({kind, data, received}) for each event of these kinds, and tell(connected).
  constructor(kinds, take, tell) {
    this.#kinds = kinds;
    this.#take = take;
    this.#tell = tell;
    this.open();
    setInterval(() => this.#watch(), 1000);
  }

  get connected() { return this.#connected; }

  // Begins anew, with a snapshot.
  open() {
    this.#source?.close();
    this.#lastHeard = Date.now();
    this.#source = new EventSource('/api/v1/events');
    this.#source.onopen = () => this.#setConnected(true);
    this.#source.onerror = () => {
      this.#setConnected(false);
      if (this.#source.readyState === EventSource.CLOSED) setTimeout(() => this.open(), RETRY_MS);
    };
    for (const kind of this.#kinds) {
      this.#source.addEventListener(kind, ({data}) => {
        this.#lastHeard = Date.now();
        this.#setConnected(true);
        this.#take({kind, data: JSON.parse(data), received: this.#lastHeard});
      });
    }
  }

  #watch() {
    if (Date.now() - this.#lastHeard > SILENCE_MS && this.#source.readyState !== EventSource.CLOSED) {
      this.#setConnected(false);
      this.open();
    }
  }

  #setConnected(connected) {
    if (connected === this.#connected) return;
    this.#connected = connected;
    this.#tell(connected);
  }
}

// Browsers allow six connections to a host: where it is possible, all tabs share one worker's.
// Returns a message port to it.
export function portTo(worker, makeFeed) {
  let port = null;
  if (typeof SharedWorker === 'undefined') {
    const {port1, port2} = new MessageChannel();
    makeFeed().add(port2);
    port = port1;
  } else {
    port = new SharedWorker(worker, {type: 'module'}).port;
  }
  addEventListener('pagehide', () => port.postMessage('bye'));
  addEventListener('pageshow', ({persisted}) => { if (persisted) location.reload(); });
  return port;
}
