#!/usr/bin/env node
// The plate-result path of the agent and its plug-in, as one would write it in JavaScript.
//
// Takes each result from the device bus, publishes it at QoS 1 as the agent does, and has the
// camera's store mark it as delivered when the broker has acknowledged it. One result is under
// way at a time; up to 64 wait, the others stay in the store.
//
// What it leaves out, and the agent does: requests, the retained status, re-delivery,
// lane-control results, inputs and serial data, following changes of name, address and user data
// (they are read once), making room among the pictures, telling from the acknowledgement whether
// anybody has heard the result, and a log of what it does. Both libraries connect again by
// themselves.
import { Buffer } from "node:buffer";
import { randomBytes } from "node:crypto";
import { mkdirSync } from "node:fs";
import { copyFile, rename } from "node:fs/promises";
import path from "node:path";
import { pathToFileURL } from "node:url";
import { parseArgs } from "node:util";

import mqtt from "mqtt";
import { connect as connectBus, StringCodec } from "nats";

const RESULT_TOPIC = "BUS_SRV_IVS_RESULT";
const STORE_QUEUE = "BUS_GET_IVS_INFO";
const CONFIRMATION_TIMEOUT_MS = 5000;
const MAX_WAITING = 64;
const RECORD_SIZE = 552;

const texts = StringCodec();

const toBase64 = (text) => Buffer.from(text).toString("base64");

// What each message says of the camera. Read once, where the plug-in reads its copy of the
// databases for each result.
async function deviceInfo(servers, sn) {
  const connection = await connectBus({ servers });
  const views = connection.jetstream().views;
  const get = async (database, key) => {
    const entry = await (await views.kv(database)).get(key);
    return entry ? entry.string() : "";
  };
  const info = {
    user_data: await get("usr_data_kvdb", "bus_cipher_data"),
    serialno: sn,
    deviceName: (await get("skvdb", "dev_name")) || toBase64("IVS"),
    ipaddr: JSON.parse((await get("skvdb", "net_rj45")) || "{}").ip ?? "",
    channel: 0,
  };
  await connection.close();
  return info;
}

// A text ends at a NUL; one that fills its field runs on, to the record's end at most.
function textAt(record, offset) {
  const end = record.indexOf(0, offset);
  return record.subarray(offset, end < 0 ? record.length : end);
}

// As the plug-in reads it: C's strtol(), 64 bits, of which the lower 32 stay.
function colorNumber(bytes) {
  const [, sign, digits] = /^[ \t\n\v\f\r]*([+-]?)(?:0[xX])?([0-9a-fA-F]*)/.exec(
    bytes.toString("latin1"));
  if (digits.length <= 8) {
    return Number.parseInt(`${sign}0${digits}`, 16) | 0;
  }
  let number = BigInt(`0x${digits}`);
  const highest = (1n << 63n) - 1n;
  if (sign === "-") {
    number = number > highest ? -highest - 1n : -number;
  } else if (number > highest) {
    number = highest;
  }
  return Number(BigInt.asIntN(32, number));
}

function rectAt(record, offset) {
  return {
    RECT: {
      left: record.readInt32LE(offset),
      top: record.readInt32LE(offset + 4),
      right: record.readInt32LE(offset + 8),
      bottom: record.readInt32LE(offset + 12),
    },
  };
}

// Copies that the cloud can fetch. None is ever removed.
class Pictures {
  constructor(directory) {
    this.directory = path.resolve(directory);
    mkdirSync(this.directory, { recursive: true });
    this.url = `${pathToFileURL(this.directory).href}/`;
  }

  // The URL of a copy; empty without one.
  async store(source, name) {
    if (source.length === 0) {
      return "";
    }
    const { name: stem, ext } = path.parse(name);
    const unique = `${stem}_${randomBytes(4).toString("hex")}${ext}`;
    const temporary = path.join(this.directory, `.${unique}.part`);
    try {
      await copyFile(source, temporary);
      await rename(temporary, path.join(this.directory, unique));
    } catch (error) {
      process.stderr.write(`picture ${source} cannot be copied: ${error.code}\n`);
      return "";
    }
    return this.url + encodeURIComponent(unique);
  }
}

class Adapter {
  constructor(options, sn, info, bus, broker) {
    this.sn = sn;
    this.info = info;
    this.bus = bus;
    this.broker = broker;
    this.topic = `${options.root}/${sn}/message/ivs_result`;
    this.maxInFlight = Number(options["results-in-flight"]);
    this.pictures = new Pictures(options["picture-dir"]);
    this.pictureCount = 0;
    this.inFlight = 0;
    this.waiting = [];
  }

  onResult(record) {
    if (record.length !== RECORD_SIZE) {
      process.stderr.write(`not a record: ${record.length} bytes\n`);
    } else if (this.waiting.length < MAX_WAITING) {
      this.waiting.push(record);
      this.publishWaiting();
    }
  }

  publishWaiting() {
    while (this.waiting.length > 0 && this.inFlight < this.maxInFlight) {
      this.inFlight += 1;
      this.deliver(this.waiting.shift()).catch((error) => {
        process.stderr.write(`a result stays in the store: ${error.message}\n`);
      }).finally(() => {
        this.inFlight -= 1;
        this.publishWaiting();
      });
    }
  }

  async deliver(record) {
    const message = await this.message(record);
    await this.broker.publishAsync(this.topic, JSON.stringify(message), { qos: 1 });
    const request = {
      type: "STP_SET_MQTT_OFFLINE_STATUS",
      body: { plate_id: record.readUInt32LE(80), push_status: 0 },
    };
    await this.bus.request(STORE_QUEUE, texts.encode(JSON.stringify(request)),
                           { timeout: CONFIRMATION_TIMEOUT_MS });
  }

  async picture(record, offset, kind) {
    const name = `${record.readUInt32LE(64)}_${this.sn}_${record.readUInt32LE(80)}_` +
      `${this.pictureCount}_${kind}.jpg`;
    this.pictureCount += 1;
    return toBase64(await this.pictures.store(textAt(record, offset), name));
  }

  async message(record) {
    const timeUsed = record.readInt32LE(60);
    const plate = {
      plateid: record.readUInt32LE(80),
      license: textAt(record, 0).toString("base64"),
      license_ext_type: record[144],
      isoffline: 0,
      type: record.readInt32LE(28),
      colorType: record.readInt32LE(24),
      colorValue: colorNumber(textAt(record, 16)),
      direction: record.readInt32LE(40),
      triggerType: record.readUInt32LE(72),
      confidence: record.readInt32LE(32),
      bright: record.readInt32LE(36),
      carBright: record[76],
      carColor: record[77],
      car_brand: { brand: record[120], type: record[121], year: record.readUInt16LE(122) },
      location: rectAt(record, 44),
      car_location: rectAt(record, 104),
      plate_true_width: record[101],
      plate_distance: record[102],
      is_fake_plate: record[103],
      timeUsed,
      clean_time: timeUsed & 0x0fffffff,
      timeStamp: {
        Timeval: {
          decyear: record.readUInt32LE(92),
          decmon: record[88],
          decday: record[87],
          dechour: record[86],
          decmin: record[85],
          decsec: record[84],
          sec: record.readUInt32LE(64),
          usec: record.readUInt32LE(68),
        },
      },
      imagePath: await this.picture(record, 296, "full"),
      imageFragmentPath: await this.picture(record, 424, "clip"),
      gioouts: [],
      feature_code: true,
    };
    return {
      version: "1.0",
      tag: 11,
      payload: { AlarmInfoPlate: { ...this.info, result: { PlateResult: plate } } },
    };
  }
}

const { values: options } = parseArgs({
  options: {
    broker: { type: "string", default: "127.0.0.1:1883" },
    root: { type: "string", default: "cameras" },
    "picture-dir": { type: "string", default: "pictures" },
    "results-in-flight": { type: "string", default: "1" },
  },
});
const sn = process.env.TARVEX_SERIAL_NUMBER;
const info = await deviceInfo(process.env.TARVEX_KV_ADDRESS ?? "127.0.0.1:6102", sn);
const bus = await connectBus({ servers: process.env.TARVEX_BUS_ADDRESS ?? "127.0.0.1:6101" });
const broker = await mqtt.connectAsync(`mqtt://${options.broker}`,
                                       { clientId: `${sn}-node`, protocolVersion: 5 });
broker.stream.setNoDelay(true);
const adapter = new Adapter(options, sn, info, bus, broker);
bus.subscribe(RESULT_TOPIC, {
  callback: (error, message) => {
    if (error) {
      process.stderr.write(`bus: ${error.message}\n`);
    } else {
      adapter.onResult(Buffer.from(message.data));
    }
  },
});
await bus.flush();
console.log("ready");
