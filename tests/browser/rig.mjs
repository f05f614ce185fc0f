// The whole desk as real processes, on free ports of 127.0.0.1 and in a temporary directory, ended
// by process id.
import {execFile, spawn} from "node:child_process";
import {createSocket} from "node:dgram";
import {once} from "node:events";
import {closeSync, mkdirSync, mkdtempSync, openSync, readFileSync, rmSync, writeFileSync} from "node:fs";
import {createConnection, createServer} from "node:net";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {setTimeout as wait} from "node:timers/promises";
import {promisify} from "node:util";

export const root = new URL("../..", import.meta.url).pathname;
const build = process.env.DESK_BUILD ?? join(root, "build/dev");
const program = (name) => join(build, "bin", name);

/// Waits for a condition; its value.
export async function until(condition, what, seconds = 30) {
  for (const deadline = Date.now() + seconds * 1000; ; await wait(50)) {
    const value = await condition();
    if (value) {
      return value;
    }
    if (Date.now() > deadline) {
      throw new Error(`${what} did not come within ${seconds} s`);
    }
  }
}

// A port below those that outgoing connections get. The UDP port of the same number is taken until
// the tests are over: that tells tests that run at the same time that it is not theirs.
async function freePort() {
  for (;;) {
    const port = 10000 + Math.floor(Math.random() * 22000);
    const server = createServer();
    const is_free = await new Promise((resolve) => {
      server.once("error", () => resolve(false));
      server.listen(port, "127.0.0.1", () => resolve(true));
    });
    server.close();
    if (is_free && await reserve(port)) {
      return port;
    }
  }
}

function reserve(port) {
  const mark = createSocket("udp4").unref();
  return new Promise((resolve) => {
    mark.once("error", () => resolve(false));
    mark.bind({port, address: "127.0.0.1", exclusive: true}, () => resolve(true));
  });
}

const answers = (port) =>
  new Promise((resolve) => {
    const socket = createConnection(port, "127.0.0.1");
    socket.once("connect", () => resolve(true) ?? socket.destroy());
    socket.once("error", () => resolve(false));
  });

class Part {
  constructor(command, args, environment, log) {
    const output = openSync(log, "a");
    this.log = log;
    this.command = command;
    // It ends with the tests, also when these are killed.
    this.process = spawn("setpriv", ["--pdeathsig", "TERM", command, ...args], {
      cwd: root,
      env: {...process.env, ...environment},
      stdio: ["ignore", output, output],
    });
    closeSync(output);
  }

  says(text) {
    return until(() => {
      if (this.process.exitCode !== null) {
        throw new Error(`${this.command} ended:\n${readFileSync(this.log)}`);
      }
      return readFileSync(this.log, "utf8").includes(text);
    }, `"${text}" of ${this.command}`);
  }

  async end(signal) {
    if (this.process.exitCode === null && this.process.signalCode === null) {
      const ended = once(this.process, "exit");
      this.process.kill(signal);
      await ended;
    }
  }
}

export class Rig {
  sn = "DESK0001";
  parts = new Map();

  /// Starts everything, with a second camera beside the first one if that is asked for.
  static async start({second_sn = null} = {}) {
    const rig = new Rig();
    rig.directory = mkdtempSync(join(tmpdir(), "browser-"));
    rig.second_sn = second_sn;
    try {
      for (const name of ["mqtt", "page", "link", "bus", "kv"]) {
        rig[`${name}_port`] = await freePort();
      }
      rig.address = `http://127.0.0.1:${rig.page_port}`;
      for (const name of ["bus", "kv", "broker", "console", "camera", "agent"]) {
        await rig.start(name);
      }
      if (second_sn) {
        await rig.start("camera", second_sn);
        await rig.start("agent", second_sn);
      }
    } catch (error) {
      await rig.end();
      throw error;
    }
    return rig;
  }

  /// Starts a part and waits until it is ready.
  async start(name, sn = this.sn) {
    const [command, args, ready] = this.#commandOf(name, sn);
    const part = new Part(command, args, this.#environment(sn), this.path(`${name}-${sn}.log`));
    this.parts.set(this.#key(name, sn), part);
    writeFileSync(this.path(`${name}-${sn}.pid`), String(part.process.pid));
    await (typeof ready === "number" ? until(() => answers(ready), name) : part.says(ready));
  }

  async stop(name, signal = "SIGKILL", sn = this.sn) {
    await this.parts.get(this.#key(name, sn)).end(signal);
  }

  /// Waits until a part has ended by itself.
  hasEnded(name, sn = this.sn) {
    const {process} = this.parts.get(this.#key(name, sn));
    return until(() => process.exitCode !== null || process.signalCode !== null, `end of ${name}`);
  }

  /// camera_ctl in the first camera, or another.
  async ctl(args, sn = this.sn) {
    const options = {env: {...process.env, ...this.#environment(sn)}};
    return (await promisify(execFile)(program("camera_ctl"), args, options)).stdout;
  }

  /// Publishes at the broker what an agent elsewhere would, retained or not.
  async publish(topic, payload, retained = false) {
    await promisify(execFile)("mosquitto_pub", [
      "-p", String(this.mqtt_port), "-q", "1", "-t", `cameras/${topic}`, "-m", JSON.stringify(payload),
      ...(retained ? ["-r"] : [])]);
  }

  publishStatus(sn, status) {
    return this.publish(`${sn}/status`, status, true);
  }

  publishResult(sn, plateid, plate) {
    const PlateResult = {plateid, license: Buffer.from(plate).toString("base64")};
    return this.publish(`${sn}/message/ivs_result`,
                        {version: "1.0", tag: 11, payload: {AlarmInfoPlate: {result: {PlateResult}}}});
  }

  /// camera_ctl that writes the next announced record to a file; resolves to its bytes.
  async nextRecord() {
    const file = this.path("record");
    const recorder = new Part(
      program("camera_ctl"), ["records", file, "--count", "1"], this.#environment(this.sn),
      this.path("record.log"));
    this.parts.set("recorder", recorder);
    await recorder.says("recording to");
    return async () => {
      await until(() => recorder.process.exitCode !== null, "the record");
      return readFileSync(file);
    };
  }

  async end() {
    for (const part of [...this.parts.values()].reverse()) {
      await part.end("SIGKILL");
    }
    rmSync(this.directory, {recursive: true});
  }

  path(name) {
    return join(this.directory, name);
  }

  #key(name, sn) {
    return `${name} ${sn}`;
  }

  #environment(sn) {
    return {
      TARVEX_BUS_ADDRESS: `127.0.0.1:${this.bus_port}`,
      TARVEX_KV_ADDRESS: `127.0.0.1:${this.kv_port}`,
      TARVEX_SERIAL_NUMBER: sn,
      TARVEX_SUBJECT_PREFIX: sn,
      // The five seconds between two stored results pass in 50 ms.
      TARVEX_CLOCK_SCALE: "100",
    };
  }

  /// Command, arguments, and what shows that it is ready: a text that it prints, or its port.
  #commandOf(name, sn) {
    const cameras = [this.sn, this.second_sn].filter(Boolean);
    const pictures = (whose) => this.path(`pictures-${whose}`);
    switch (name) {
      case "bus":
        return ["nats-server", ["-a", "127.0.0.1", "-p", this.bus_port], this.bus_port];
      case "kv":
        return ["nats-server", ["-a", "127.0.0.1", "-p", this.kv_port, "-js", "-sd", this.path("kv")],
                this.kv_port];
      case "broker":
        writeFileSync(this.path("mosquitto.conf"),
          readFileSync(join(root, "scripts/mosquitto.conf.in"), "utf8").replace("@PORT@", this.mqtt_port));
        return ["/usr/sbin/mosquitto", ["-c", this.path("mosquitto.conf")], this.mqtt_port];
      case "console":
        return [program("console"),
          ["--port", this.page_port, "--broker", `127.0.0.1:${this.mqtt_port}`,
           "--link-port", this.link_port,
           ...cameras.flatMap((one) => ["--camera", `${one}=${one}`,
                                        "--pictures", `${one}=${pictures(one)}`,
                                        "--agent-pid", `${one}=${this.path(`agent-${one}.pid`)}`])],
          "console ready"];
      case "camera":
        mkdirSync(this.path(`camera-${sn}`), {recursive: true});
        return [program("virtual_camera"), ["--trace", "--data", this.path(`camera-${sn}`)],
                "virtual_camera ready"];
      case "agent":
        mkdirSync(pictures(sn), {recursive: true});
        return [program("cloud_agent"),
          ["--plugin", join(build, "lib/libmqttadapter.so"), "--broker", `127.0.0.1:${this.link_port}`,
           "--backoff-min-ms", "50", "--backoff-max-ms", "200", "--status-interval", "1",
           "--picture-dir", pictures(sn), "--picture-url", `${this.address}/pictures/${sn}`,
           "--id-picture-dir", this.path(`camera-${sn}/lane`),
           "--trace", "--print-messages", "--diagnose"],
          "broker connected"];
    }
    throw new Error(`no part is named ${name}`);
  }
}
