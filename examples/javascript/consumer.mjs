#!/usr/bin/env node
// Prints one line for each message of kaikla until Ctrl-C or SIGTERM.
//
//     node consumer.mjs [ADDRESS [SERVICE]]
//
// ADDRESS is where the service reaches this consumer, such as tcp://192.0.2.10:7000, an address of
// this machine; by default a free port of the loopback interface. SERVICE is the service's command
// interface, tcp://127.0.0.1:5580 by default. `npm install` fetches the ZeroMQ binding.

import process from "node:process";
import { Pull, Request } from "zeromq";

const ADD_CONSUMER = 1;
const REMOVE_CONSUMER = 2;
const TIMEOUT_MS = 5000;
const QUIET_MS = 200;

const [bindTo = "tcp://127.0.0.1:*", service = "tcp://127.0.0.1:5580"] = process.argv.slice(2);

function fail(reason) {
  console.error(reason);
  process.exit(1);
}

async function command(commandId, address) {
  const client = new Request({ linger: 0, receiveTimeout: TIMEOUT_MS });
  client.connect(service);
  await client.send(JSON.stringify({ command_id: commandId, payload: { address } }));
  const [text] = await client.receive().catch(() => fail(`${service} does not answer`));
  client.close();
  const reply = JSON.parse(text);
  if (reply.result < 0) {
    fail(`refused: ${reply.error}`);
  }
}

function sessionLine(session) {
  const streams = session.stream ?? [];
  const alarms = [session, ...streams].flatMap((holder) => holder.alarms ?? []);
  const line = `session ${session.id}: ${streams.length} streams, ${alarms.length} alarms`;
  return [line, ...alarms.map((alarm) => `${alarm.severity}: ${alarm.description}`)].join("; ");
}

function deviceLine(status) {
  const ports = (status.eths ?? []).map((port) => `${port.name} ${port.state ? "up" : "down"}`);
  const ptp = status.ptp.locked ? "locked" : "not locked";
  // Ids above Number.MAX_SAFE_INTEGER lose digits in JSON.parse.
  const sessions = (status.sessions ?? []).map((session) => session.id);
  return (
    `device ${status.device_id}: PTP ${ptp}, ports ${ports.join(", ") || "none"}, ` +
    `sessions ${sessions.join(", ") || "none"}`
  );
}

function show(text) {
  const { command_name: kind, payload } = JSON.parse(text);
  if (kind === "status-all") {
    console.log(deviceLine(payload));
  } else if (kind === "status-session") {
    console.log(sessionLine(payload));
  }
}

const messages = new Pull({ receiveTimeout: QUIET_MS });
// First bind, then register: the service connects to this address at once.
await messages.bind(bindTo);
const address = messages.lastEndpoint;
await command(ADD_CONSUMER, address);

let leaving = false;
let removed = false;
async function leave() {
  // A second signal changes nothing: it would leave the consumer registered.
  if (!leaving) {
    leaving = true;
    await command(REMOVE_CONSUMER, address);
    removed = true;
  }
}
process.on("SIGINT", leave);
// A service manager ends its programs with SIGTERM.
process.on("SIGTERM", leave);

for (;;) {
  // After the removal, until nothing comes: what is left on its way would stay with the service for
  // the next one at this address.
  const last = removed;
  try {
    const [text] = await messages.receive();
    show(text);
  } catch (error) {
    if (error.code !== "EAGAIN") {
      throw error;
    }
    if (last) {
      break;
    }
  }
}
messages.close();
