// The camera's world: what camera_ctl does, with buttons, and the state that it prints.
import {act, command, note, request} from "./actions.js";
import {cameraPath, get} from "./connection.js";
import {hex} from "./records.js";
import {block, el, labelled, reconcile, setAttribute, setText} from "./dom.js";
import {serialData} from "./live_view.js";
import {age, bytesOf, clock, utf8} from "./texts.js";

const max_log = 100;

export function createWorldView(section, desk) {
  const away = el("p", {class: "notice", id: "world-away"});
  const blocks = [cars(desk), lane(desk), inputs(desk), outputs(), head(section, desk), serial(desk), identity(desk),
                  whiteList(section, desk), services(desk), facts()];
  section.append(away, el("div", {class: "blocks"}, blocks.map((one) => one.node)));
  return {
    show() {
      blocks.forEach((one) => one.show?.());
    },
    update() {
      const camera = desk.camera();
      const world = camera?.world ?? null;
      away.hidden = world !== null;
      setText(away, camera && !camera.on_desk ? "This camera is not on the desk's bus. Only what goes over the broker is shown of it."
                                              : "The camera's state is not known. What can be done is tried all the same.");
      blocks.forEach((one) => one.update?.(world ?? {}));
    },
    hide() {
      blocks.forEach((one) => one.hide?.());
    },
  };
}

const button = (text, attributes = {}) => el("button", {type: "button", ...attributes}, text);
const field = (id, attributes = {}) => el("input", {type: "text", id, autocomplete: "off", spellcheck: "false", ...attributes});

// A form: enter does what its button does.
function form(contents, go, outcome, work) {
  const node = el("form", {class: "inline", novalidate: true}, contents, go);
  go.type = "submit";
  node.addEventListener("submit", (event) => {
    event.preventDefault();
    void act(go, outcome, work);
  });
  return node;
}

function cars(desk) {
  const plate = field("world-plate", {placeholder: "any"});
  const outcome = note();
  const go = button("Have it pass", {id: "world-car", class: "primary"});
  return {node: block("car", "A car", form(labelled("Plate, 1 to 15 bytes", plate), go, outcome, async () => {
    const answer = await command(desk, plate.value === "" ? {command: "car"} : {command: "car", plate: plate.value});
    return `${answer.plate} passed: result ${answer.plate_id}.`;
  }), outcome)};
}

function lane(desk) {
  const who = el("select", {id: "lane-who"}, el("option", {value: "person"}, "a person"), el("option", {value: "vehicle"}, "a vehicle"));
  const plate = field("lane-plate", {placeholder: "any"});
  const outcome = note();
  const go = button("Have it stay", {id: "lane-stay"});
  const on = button("Turn stay events on", {id: "stay-on"});
  on.addEventListener("click", () => act(on, outcome, () => request(desk, "lanectrl_result_cfg", ["person_stay", "vehicle_stay"].map((event) => ({event, enable: 1})))));
  const hint_text = el("p");
  const hint = el("div", {class: "notice", "data-hint": "stay-off", hidden: true}, hint_text, on);
  return {
    node: block("lane", "The lane", hint, form([labelled("Who stays", who), labelled("Plate of the vehicle", plate)], go, outcome, async () => {
      await command(desk, {command: "lane", who: who.value, ...(plate.value === "" ? {} : {plate: plate.value})});
      return "It stays; the event is among the live ones.";
    }), outcome),
    update({lane_control}) {
      const off = [["persons", lane_control?.person_stay], ["vehicles", lane_control?.vehicle_stay]].filter(([, is_on]) => is_on === 0).map(([name]) => name);
      hint.hidden = off.length === 0;
      setText(hint_text, `Stay events of ${off.join(" and ")} are off: nothing would be told.`);
    },
  };
}

function inputs(desk) {
  const outcome = note();
  const buttons = [0, 1, 2, 3].map((input) => {
    const node = button(`Input ${input}`, {"data-input": input, "aria-pressed": "false", class: "switch"});
    node.addEventListener("click", () => act(node, outcome, async () => {
      const level = node.getAttribute("aria-pressed") === "true" ? 0 : 1;
      await command(desk, {command: "gpio-in", input, level});
      return `Input ${input} is ${level}.`;
    }));
    return node;
  });
  return {
    node: block("inputs", "Inputs", el("div", {class: "inline"}, buttons), outcome),
    update({gpio}) {
      buttons.forEach((node, i) => {
        const level = gpio?.inputs?.[i];
        setAttribute(node, "aria-pressed", level === 1);
        setText(node, `Input ${i}: ${level ?? "?"}`);
      });
    },
  };
}

function outputs() {
  const lamps = [0, 1, 2, 3].map((i) => el("li", {"data-output": i}, el("span", {class: "lamp", "aria-hidden": "true"}), el("span", {class: "word"})));
  return {
    node: block("outputs", "Outputs", el("ul", {class: "lamps"}, lamps), el("p", {class: "quiet"}, "The request gpio_out sets them; a listed plate opens the gate.")),
    update({gpio}) {
      lamps.forEach((node, i) => {
        const level = gpio?.outputs?.[i];
        setAttribute(node, "data-level", level ?? "");
        setText(node.lastChild, `${i === 0 ? "Gate (0)" : `Output ${i}`}: ${level === undefined ? "?" : level ? "on" : "off"}, ${gpio?.pulses?.[i] ?? 0} pulses`);
      });
    },
  };
}

// ---- the head, and what it sees

function head(section, desk) {
  const scene = el("img", {id: "scene", alt: "The present scene", width: 640, height: 360, hidden: true});
  const problem = note("scene");
  const pan = el("strong", {"data-pan": true});
  const tilt = el("strong", {"data-tilt": true});
  const moving = el("span", {class: "quiet"});
  const refresh = button("Refresh", {id: "scene-refresh"});
  const outcome = note();
  const moves = {left: 2, right: 4, up: 32, down: 16};
  const arrows = Object.entries(moves).map(([name, type]) => mover(name, () => request(desk, "set_cloud_ctrl", {type})));
  arrows.push(mover("stop", async () => {
    await request(desk, "set_cloud_ctrl", {type: 8});
    return request(desk, "set_cloud_ctrl", {type: 64});
  }));
  function mover(name, work) {
    const node = button(name[0].toUpperCase() + name.slice(1), {"data-move": name});
    node.addEventListener("click", () => act(node, outcome, work));
    return node;
  }

  // One picture at a time, for as long as somebody looks; a slow one is given up.
  const every_ms = 2000;
  const patience_ms = 5000;
  let timer = null;
  let loading = null;
  const visible = () => !section.hidden && document.visibilityState === "visible";
  async function load() {
    clearTimeout(timer);
    loading?.abort();
    const mine = new AbortController();
    loading = mine;
    const too_slow = setTimeout(() => mine.abort(), patience_ms);
    try {
      if (desk.chosen !== null) {
        scene.src = await dataUrl(await picture(cameraPath(desk.chosen, `scene.jpg?at=${Date.now()}`), mine.signal));
        scene.hidden = false;
        setText(problem, "");
      }
    } catch (error) {
      if (loading === mine) {
        setText(problem, error.name === "AbortError" ? "The picture takes too long." : error.message);
      }
    }
    clearTimeout(too_slow);
    if (loading === mine) {
      loading = null;
      if (visible()) {
        timer = setTimeout(load, every_ms);
      }
    }
  }
  const stop = () => {
    clearTimeout(timer);
    loading?.abort();
    loading = null;
  };
  refresh.addEventListener("click", load);
  document.addEventListener("visibilitychange", () => {
    if (visible()) {
      void load();
    } else {
      stop();
    }
  });
  return {
    node: block("head", "The head and what it sees", scene, problem,
                el("p", {}, "Pan ", pan, ", tilt ", tilt, " ", moving), el("div", {class: "inline"}, arrows, refresh), outcome),
    show: load,
    hide: stop,
    update({head: state}) {
      setText(pan, state ? `${state.pan}°` : "?");
      setText(tilt, state ? `${state.tilt}°` : "?");
      setText(moving, state?.is_panning || state?.is_tilting ? "it moves" : "");
    },
  };
}

async function picture(path, signal) {
  const response = await fetch(path, {signal});
  if (!response.ok) {
    const words = await response.json().catch(() => null);
    throw new Error(words?.error ?? `No picture (${response.status}).`);
  }
  return response.blob();
}

function dataUrl(blob) {
  return new Promise((resolve, reject) => {
    const reader = new FileReader();
    reader.onload = () => resolve(reader.result);
    reader.onerror = () => reject(new Error("The picture cannot be read."));
    reader.readAsDataURL(blob);
  });
}

// ---- serial lines

function serial(desk) {
  const channels = [0, 1].map((channel) => {
    const log = el("ol", {class: "log", "data-log": true, "aria-label": `Channel ${channel}, the newest last`, tabindex: 0});
    const counts = el("p", {class: "quiet"});
    const text = field(`serial-${channel}`);
    const outcome = note();
    const go = button("Comes in");
    const node = el("div", {"data-channel": channel}, el("h4", {}, `Channel ${channel}`), log, counts,
                    form(labelled("Text that the line brings", text), go, outcome, async () => {
                      await command(desk, {command: "serial", channel, text: text.value});
                      text.value = "";
                      return "";
                    }), outcome);
    return {node, log, counts};
  });
  return {
    node: block("serial", "Serial lines", el("div", {class: "columns"}, channels.map(({node}) => node))),
    update({rs485}) {
      const lines = desk.newest().flatMap(serialLines);
      channels.forEach(({log, counts}, channel) => {
        const mine = lines.filter((line) => line.channel === channel).slice(0, max_log).reverse();
        const at_end = log.scrollTop + log.clientHeight >= log.scrollHeight - 4;
        reconcile(log, mine, (line) => line.key, serialNode);
        if (at_end) {
          log.scrollTop = log.scrollHeight;
        }
        const state = rs485?.[channel];
        setText(counts, state ? `${state.written} bytes written, ${state.read} read, ${state.dropped} dropped; ${state.link}` : "");
      });
    },
  };
}

// What a passport says of the lines: what came in, or what a request had the camera write.
function serialLines(passport) {
  if (passport.kind === "serial") {
    const {channel, text} = serialData(passport);
    return [{key: passport.id, channel, text, way: "in", at_us: passport.at_us}];
  }
  return (passport.bus_requests ?? []).filter((call) => call.queue === "EVS_RS485_WRITE").map((call, i) => {
    const bytes = bytesOf(call.body) ?? new Uint8Array();
    const channel = bytes.length >= 8 ? new DataView(bytes.buffer).getInt32(4, true) : null;
    return {key: `${passport.id} ${i}`, channel, text: shown(bytes.subarray(8)), way: "out", at_us: call.at_us};
  });
}

const shown = (bytes) => {
  const text = utf8(bytes);
  return text.includes("\ufffd") ? hex(bytes) : text;
};

function serialNode(line) {
  return {node: el("li", {"data-way": line.way}, el("span", {class: "time"}, clock(line.at_us, false)),
                   el("span", {class: "way"}, line.way === "in" ? "in " : "out "), el("code", {}, line.text))};
}

// ---- name and address

function identity(desk) {
  const now = el("p");
  const name = field("world-name");
  const ip = field("world-ip");
  const outcome = note();
  const rename = button("Rename", {id: "world-rename"});
  const readdress = button("Readdress", {id: "world-readdress"});
  const said = (answer, text) => answer.warning ? `${text} ${answer.warning}` : text;
  return {
    node: block("identity", "Name and address", now,
                form(labelled("Name, 1 to 64 bytes", name), rename, outcome, async () =>
                    said(await command(desk, {command: "rename", name: name.value}), "It has the name.")),
                form(labelled("IP address", ip), readdress, outcome, async () =>
                    said(await command(desk, {command: "readdress", ip: ip.value}), "It has the address.")), outcome),
    update(world) {
      setText(now, world.name === undefined ? "Not known." : `${world.name}, ${world.ip}`);
    },
  };
}

// ---- white list

function whiteList(section, desk) {
  const modes = ["0: no check", "1: a listed plate opens the gate", "2: besides, an unlisted one closes it"];
  const body = el("tbody");
  const summary = el("caption", {});
  const outcome = note();
  const plate = field("white-plate");
  const add = button("Add", {id: "white-add"});
  const mode = el("select", {id: "white-mode"}, modes.map((text, i) => el("option", {value: i}, text)));
  const set = button("Set", {id: "white-set"});
  const now = el("p");
  const change = async (to) => {
    const text = await request(desk, "white_list_operator", to);
    await load();
    return text;
  };
  const row = ({plate: listed}) => {
    const remove = button("Remove", {"data-delete": true, "aria-label": `Remove ${listed}`});
    remove.addEventListener("click", () => act(remove, outcome, () => change({operator_type: "delete", plate: listed})));
    const more = el("td");
    const node = el("tr", {"data-plate": listed}, el("th", {scope: "row"}, listed), more, el("td", {}, remove));
    const update = ({plate: _, ...rest}) => setText(more, Object.keys(rest).length ? JSON.stringify(rest) : "");
    return {node, update};
  };
  let loading = null;
  let count = null;
  let of = null;
  async function load() {
    if (desk.chosen === null) {
      return;
    }
    loading?.abort();
    const mine = loading = new AbortController();
    of = desk.chosen;
    try {
      const answer = await get(cameraPath(of, "white-list"), mine.signal);
      const records = (answer.white_list ?? []).filter((one) => typeof one?.plate === "string");
      reconcile(body, records, (one) => one.plate, (one) => {
        const made = row(one);
        made.update(one);
        return made;
      });
      setText(summary, `${answer.total} on the list${answer.total > records.length ? `, ${records.length} shown` : ""}`);
    } catch (error) {
      if (error.name !== "AbortError") {
        setText(summary, error.message);
      }
    }
    if (loading === mine) {
      loading = null;
    }
  }
  return {
    node: block("white-list", "White list", now, form(labelled("What the check does", mode), set, outcome, () =>
                    request(desk, "wl_check_status", {cmd: "set", filter_enable: Number(mode.value)})),
                form(labelled("Plate", plate), add, outcome, () => change({operator_type: "update_or_add", dldb_rec: {plate: plate.value}})), outcome,
                el("div", {class: "scroll", tabindex: 0, role: "group", "aria-label": "White list"}, el("table", {}, summary, el("thead", {}, el("tr", {},
                   el("th", {scope: "col"}, "Plate"), el("th", {scope: "col"}, "Further members"), el("td", {}))), body))),
    show: load,
    hide: () => loading?.abort(),
    update({white_list}) {
      setText(now, white_list ? `Now ${modes[white_list.filter_enable] ?? white_list.filter_enable}.` : "");
      const is_news = white_list && white_list.plates !== count && count !== null;
      count = white_list?.plates ?? count;
      if ((is_news || desk.chosen !== of) && !section.hidden) {
        void load();
      }
    },
  };
}

// ---- services

function services(desk) {
  const list = el("ul", {class: "services"});
  const empty = el("p", {class: "empty"}, "Not known.");
  const titles = {up: "up", down: "down", slow: "slow", garbage: "talking nonsense"};
  const row = ({queue}) => {
    const outcome = note();
    const delay = el("input", {type: "text", inputmode: "numeric", "data-delay": true, value: "3000", size: 6, "aria-label": `Delay of ${queue}, milliseconds`});
    const word = el("span", {class: "quiet"});
    const buttons = Object.entries(titles).map(([mode, title]) => {
      const node = button(title, {"data-set": mode, "aria-pressed": "false", "aria-label": `${queue} ${title}`});
      node.addEventListener("click", () => act(node, outcome, async () => {
        const delay_ms = /^\d+$/.test(delay.value) ? Number(delay.value) : delay.value;
        await command(desk, {command: "service", queue, mode, ...(mode === "slow" ? {delay_ms} : {})});
        return "";
      }));
      return node;
    });
    const node = el("li", {"data-queue": queue}, el("strong", {}, queue), " ", word,
                    el("div", {class: "inline"}, buttons, delay, " ms"), outcome);
    const update = ({state}) => {
      const [mode, ms] = state.split(" ");
      node.dataset.mode = mode;
      setText(word, ms ? `slow: ${ms} ms` : titles[mode] ?? mode);
      buttons.forEach((one) => setAttribute(one, "aria-pressed", one.dataset.set === mode));
    };
    return {node, update};
  };
  return {
    node: block("services", "Services", el("p", {class: "quiet"}, "What each does with the next requests."), empty, list),
    update({services: modes}) {
      empty.hidden = Boolean(modes);
      const states = Object.entries(modes ?? {}).map(([queue, state]) => ({queue, state}));
      reconcile(list, states, (one) => one.queue, (one) => {
        const made = row(one);
        made.update(one);
        return made;
      });
    },
  };
}

// ---- the rest of what it says

function facts() {
  const list = el("dl", {class: "facts wide"});
  return {
    node: block("facts", "And else", list),
    update(world) {
      const rows = [
        ["clock", world.clock && `${world.clock.local}${world.clock.offset_s ? `, ${world.clock.offset_s > 0 ? "+" : ""}${world.clock.offset_s} s against the host's` : ""}`],
        ["recognised", world.results && `${world.results.recognised}, of them lost ${world.results.lost}`],
        ["in the store", world.results && `${world.results.stored}, undelivered ${world.results.undelivered}${
            world.results.undelivered ? `, the oldest ${age(world.results.oldest_undelivered_age_s)} old` : ""}`],
        ["the gate", world.results && `opened ${world.results.gate_opened}, blocked ${world.results.gate_blocked}`],
        ["restarts", world.power && `${world.power.reboots}${world.power.is_up ? "" : ", restarting now"}`],
        ["talk-back", world.talkback && `${world.talkback.length} sessions`],
        ["data", world.data],
      ].filter(([, text]) => text).map(([name, text]) => ({name, text}));
      reconcile(list, rows, (one) => one.name, (one) => {
        const text = el("dd", {}, one.text);
        return {node: el("div", {}, el("dt", {}, one.name), text), update: (now) => setText(text, now.text)};
      });
    },
  };
}
