#!/usr/bin/env node
// A small backend for one camera: shows each of its results once, has the stored ones
// delivered, follows its status and asks requests. docs/integrating.md leads through it.
import { randomUUID } from 'node:crypto';
import { setTimeout as pause } from 'node:timers/promises';
import { parseArgs } from 'node:util';

const USAGE = `usage: backend.mjs HOST:PORT SERIAL_NUMBER [--once RESULTS]
       backend.mjs HOST:PORT SERIAL_NUMBER --ask NAME [BODY] [--timeout SECONDS]
exit codes: 0 done, 1 the camera said no, 2 wrong usage, 3 broker trouble, 4 no response`;

function fail(exitCode, text) {
  console.error(`backend: ${text}`);
  process.exit(exitCode);
}

function readCommandLine() {
  const text = { type: 'string' };
  const known = { once: text, ask: text, timeout: { ...text, default: '10' } };
  try {
    const { values, positionals } = parseArgs({ allowPositionals: true, options: known });
    const [broker, sn, body] = positionals;
    if (!/^[^:/@]+:\d{1,5}$/.test(broker ?? '')) throw new Error(`"${broker}" is no HOST:PORT`);
    if (!/^[^/+#\s]+$/.test(sn ?? '')) throw new Error(`"${sn}" is no serial number`);
    if (positionals.length > (values.ask ? 3 : 2)) throw new Error('too many arguments');
    if (!/^\d+$/.test(values.once ?? '0')) throw new Error('--once takes a number');
    if (!(values.timeout > 0 && values.timeout <= 3600)) throw new Error('--timeout takes up to 3600 seconds');
    return { ...values, broker, sn, body: body && JSON.parse(body) };
  } catch (error) {
    return fail(2, `${error.message}\n${USAGE}`);
  }
}

const options = readCommandLine();
const library = await import('mqtt').catch(() => fail(3, 'needs mqtt: npm ci --prefix examples'));
const base = `cameras/${options.sn}`;
// Two programs with one client id throw each other out, so who only asks has an id of its own.
const clientId = options.ask ? `ask-${randomUUID()}` : `backend-js-${options.sn}`;
const replyTopic = `${base}/response/${clientId}`;

// --- Results: each comes at least once, live (tag 11) or from the camera's store (tag 16) ---
const seen = new Set();
const fromBase64 = (text) => Buffer.from(text, 'base64').toString();

// The library acknowledges the message when this returns. Until then a real backend has
// committed it to a table with a unique index (serial number, plateid, sec, usec): no camera
// gives a plate id twice, and the time tells it from one that had its serial number before.
function onResult({ payload, tag }) {
  const { plateid, license, imagePath, timeStamp } = payload.AlarmInfoPlate.result.PlateResult;
  const { sec, usec } = timeStamp.Timeval; // since 1970, by the camera's clock
  const number = fromBase64(license);
  const picture = fromBase64(imagePath); // empty: it could not be copied
  if (tag === 16) pushedAt = Date.now();
  const key = `${plateid}/${sec}/${usec}`;
  if (seen.has(key)) return;
  seen.add(key);
  const time = new Date(sec * 1000).toISOString().replace('.000', '');
  console.log(time, number, `id ${plateid}`, tag === 16 ? 'stored' : 'live', picture || 'no picture');
  if (seen.size === Number(options.once)) setImmediate(leave, 0);
}

// --- The status, and the delivery of stored results: on command, one every five seconds ---
let pushedAt = 0; // when the push under way was ordered or last brought a result
let statusLine = '';

// {"online": false} is the camera's will, which the broker publishes, or its last message.
function onStatus(status) {
  const { count = '?', oldest_age_s: age_s = 0 } = status.undelivered ?? {};
  const device = status.device ? 'there' : 'not there';
  const line = status.online ? `online, device ${device}, ${count} undelivered` : 'offline';
  if (line !== statusLine && !options.ask) console.log('status:', line);
  statusLine = line;
  // A result of the last seconds may be on its way right now. One push at a time.
  if (age_s > 5 && Date.now() - pushedAt > 60000) deliverStored();
}

async function deliverStored() {
  pushedAt = Date.now();
  const response = await ask('check_offline_record', { enable: 'push', max_count: 20, min_id: 0 });
  if (!response?.result) pushedAt = 0; // the next status tries again
}

// Comes when a push has ended, and when the camera has connected.
function onOfflineRecord(left) {
  console.log('stored results left:', left);
  pushedAt = 0; // the next status orders the next push
}

// --- Requests ---
const waiting = new Map(); // who takes the response, by correlation data

// Resolves to the response, or to undefined. The key stays the same, so the camera carries the
// request out once, also when only its response was lost. After the time-out nobody shall act
// on it: the broker drops it after the message expiry (whole seconds), the camera refuses it
// after expires_ms.
// QoS 0: a library sends a QoS 1 request again when it has reconnected, however late.
async function ask(name, body) {
  const id = randomUUID();
  const expires_ms = Math.ceil(options.timeout * 1000);
  const request = { id, version: '1.0', idempotency_key: randomUUID(), expires_ms, payload: { type: name, body } };
  const properties = {
    responseTopic: replyTopic,
    correlationData: Buffer.from(id),
    messageExpiryInterval: Math.ceil(options.timeout),
  };
  let response;
  for (let attempt = 1; attempt <= 3; ++attempt) {
    const arrival = new Promise((resolve) => waiting.set(id, resolve));
    client.publish(`${base}/request/${name}`, JSON.stringify(request), { qos: 0, properties });
    response = await Promise.race([arrival, pause(expires_ms, undefined, { ref: false })]);
    if (response && response.code !== 'busy') break;
    console.error(`${name}: ${response ? 'busy' : 'no response'}, try ${attempt} of 3`);
    if (response) await pause(1000);
  }
  waiting.delete(id);
  return response;
}

async function askAndLeave() {
  const begin = performance.now();
  const response = await ask(options.ask, options.body);
  if (!response) fail(4, `no response to ${options.ask}; the camera is ${statusLine || 'unknown'}`);
  console.log(JSON.stringify(response));
  console.error(`${response.code ?? 'done'} in ${(performance.now() - begin).toFixed(1)} ms`);
  leave(response.result ? 0 : 1);
}

// --- The connection: a persistent session, in which the broker keeps results meanwhile ---
let isReady = false;

function onConnect() {
  // Without it the kernel holds back a request that follows an acknowledgement, until the
  // broker's kernel has confirmed that one: 44 ms instead of 1.
  client.stream.setNoDelay(true);
  const topics = { [`${base}/status`]: { qos: 0 }, [replyTopic]: { qos: 0 } };
  if (!options.ask) {
    // QoS 1, which the broker keeps for an absent backend, for results only: a status every
    // ten seconds would use up its queue (mosquitto: max_queued_messages, 1000).
    topics[`${base}/message/ivs_result`] = { qos: 1 };
    topics[`${base}/message/offline_record`] = { qos: 0 };
  }
  client.subscribe(topics, (error, granted) => {
    if (error || granted.some(({ qos }) => qos >= 128)) fail(3, 'the broker refuses the subscription');
    if (!options.ask) console.log('listening to', options.sn);
    else if (!isReady) askAndLeave();
    isReady = true;
  });
}

function onMessage(topic, body, packet) {
  const name = topic.slice(base.length + 1);
  try {
    const message = JSON.parse(body);
    if (topic === replyTopic) waiting.get(String(packet.properties.correlationData))?.(message);
    else if (name === 'status') onStatus(message);
    else if (name === 'message/ivs_result') onResult(message);
    else if (name === 'message/offline_record') onOfflineRecord(message.payload.body.offline_record);
  } catch (error) {
    console.error(`not understood: ${topic}: ${error.message}`);
  }
}

function leave(exitCode) {
  client.end(() => process.exit(exitCode));
}

const client = library.default.connect(`mqtt://${options.broker}`, {
  protocolVersion: 5,
  clientId,
  clean: Boolean(options.ask),
  properties: { sessionExpiryInterval: options.ask ? 0 : 7 * 24 * 3600 }, // longer than any absence
  resubscribe: false,
  queueQoSZero: false, // a request is not kept for a broker that is away
  connectTimeout: 10000,
});
client.on('connect', onConnect);
client.on('message', onMessage);
client.on('error', (error) => {
  if (!isReady || typeof error.code === 'number') fail(3, `${options.broker}: ${error.message || error.code}`);
});
client.on('offline', () => {
  if (!isReady) fail(3, `${options.broker} does not answer as an MQTT broker`);
  console.error('broker lost, connecting again');
});
