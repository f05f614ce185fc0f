// The camera's world: what camera_ctl does, with buttons, and the state that it prints.
import {act, button, command, field, form, note, request} from "./actions.js";
import {block, blocksIn, el, labelled, reconcile, setAttribute, setText} from "./dom.js";
import {age} from "./texts.js";
import {head} from "./world_head.js";
import {serial} from "./world_serial.js";
import {whiteList} from "./world_white_list.js";

export function createWorldView(section, desk) {
  const away = el("p", {class: "notice", id: "world-away"});
  const columns = [
    [cars(desk), lane(desk), inputs(desk), outputs(), head(section, desk)],
    [serial(desk), identity(desk), whiteList(section, desk)],
    [services(desk), facts()],
  ];
  const blocks = columns.flat();
  const all = blocksIn(columns);
  section.append(away, all);
  // Whether the blocks may ask the camera.
  let asking = false;
  const ask = (wanted) => {
    if (wanted !== asking) {
      asking = wanted;
      blocks.forEach((one) => (asking ? one.show?.() : one.hide?.()));
    }
  };
  return {
    update() {
      const camera = desk.camera();
      ask(camera?.on_desk ?? false);
      const world = camera?.world ?? null;
      away.hidden = world !== null;
      all.hidden = desk.isElsewhere();
      if (all.hidden) {
        setText(
          away,
          "This camera is not on the console's bus, so its world can be neither seen nor changed here. Requests reach it over the broker.",
        );
        return;
      }
      setText(away, "The camera's state is not known. What can be done is tried all the same.");
      blocks.forEach((one) => one.update?.(world ?? {}));
    },
    hide() {
      ask(false);
    },
  };
}

function cars(desk) {
  const plate = field("world-plate", {placeholder: "any"});
  const outcome = note();
  const go = button("Have it pass", {id: "world-car", class: "primary"});
  return {
    node: block(
      "car",
      "A car",
      form(labelled("Plate, 1 to 15 bytes", plate), go, outcome, async () => {
        const answer = await command(
          desk,
          plate.value === "" ? {command: "car"} : {command: "car", plate: plate.value},
        );
        return `${answer.plate} passed: result ${answer.plate_id}.`;
      }),
      outcome,
    ),
  };
}

function lane(desk) {
  const who = el(
    "select",
    {id: "lane-who"},
    el("option", {value: "person"}, "a person"),
    el("option", {value: "vehicle"}, "a vehicle"),
  );
  const plate = field("lane-plate", {placeholder: "any"});
  const outcome = note();
  const go = button("Have it stay", {id: "lane-stay"});
  const on = button("Turn stay events on", {id: "stay-on"});
  on.addEventListener("click", () =>
    act(on, outcome, () =>
      request(
        desk,
        "lanectrl_result_cfg",
        ["person_stay", "vehicle_stay"].map((event) => ({event, enable: 1})),
      ),
    ),
  );
  const hint_text = el("p");
  const hint = el("div", {class: "notice", "data-hint": "stay-off", hidden: true}, hint_text, on);
  return {
    node: block(
      "lane",
      "The lane",
      hint,
      form(
        [labelled("Who stays", who), labelled("Plate of the vehicle", plate)],
        go,
        outcome,
        async () => {
          await command(desk, {
            command: "lane",
            who: who.value,
            ...(plate.value === "" ? {} : {plate: plate.value}),
          });
          return "It stays; the event is among the live ones.";
        },
      ),
      outcome,
    ),
    update({lane_control}) {
      const off = [
        ["persons", lane_control?.person_stay],
        ["vehicles", lane_control?.vehicle_stay],
      ]
        .filter(([, is_on]) => is_on === 0)
        .map(([name]) => name);
      hint.hidden = off.length === 0;
      setText(hint_text, `Stay events of ${off.join(" and ")} are off: nothing would be told.`);
    },
  };
}

function inputs(desk) {
  const outcome = note();
  const buttons = [0, 1, 2, 3].map((input) => {
    const node = button(`Input ${input}`, {
      "data-input": input,
      "aria-pressed": "false",
      class: "switch",
    });
    node.addEventListener("click", () =>
      act(node, outcome, async () => {
        const level = node.getAttribute("aria-pressed") === "true" ? 0 : 1;
        await command(desk, {command: "gpio-in", input, level});
        return `Input ${input} is ${level}.`;
      }),
    );
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
  const lamps = [0, 1, 2, 3].map((i) =>
    el(
      "li",
      {"data-output": i},
      el("span", {class: "lamp", "aria-hidden": "true"}),
      el("span", {class: "word"}),
    ),
  );
  return {
    node: block(
      "outputs",
      "Outputs",
      el("ul", {class: "lamps"}, lamps),
      el("p", {class: "quiet"}, "The request gpio_out sets them; a listed plate opens the gate."),
    ),
    update({gpio}) {
      lamps.forEach((node, i) => {
        const level = gpio?.outputs?.[i];
        setAttribute(node, "data-level", level ?? "");
        setText(
          node.lastChild,
          `${i === 0 ? "Gate (0)" : `Output ${i}`}: ${level === undefined ? "?" : level ? "on" : "off"}, ${gpio?.pulses?.[i] ?? 0} pulses`,
        );
      });
    },
  };
}

// ---- name and address

function identity(desk) {
  const now = el("p");
  const name = field("world-name");
  const ip = field("world-ip");
  const outcome = note();
  const rename = button("Rename", {id: "world-rename"});
  const readdress = button("Readdress", {id: "world-readdress"});
  const said = (answer, text) => (answer.warning ? `${text} ${answer.warning}` : text);
  return {
    node: block(
      "identity",
      "Name and address",
      now,
      form(labelled("Name, 1 to 64 bytes", name), rename, outcome, async () =>
        said(await command(desk, {command: "rename", name: name.value}), "It has the name."),
      ),
      form(labelled("IP address", ip), readdress, outcome, async () =>
        said(await command(desk, {command: "readdress", ip: ip.value}), "It has the address."),
      ),
      outcome,
    ),
    update(world) {
      setText(now, world.name === undefined ? "Not known." : `${world.name}, ${world.ip}`);
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
    const delay = el("input", {
      type: "text",
      inputmode: "numeric",
      "data-delay": true,
      value: "3000",
      size: 6,
      "aria-label": `Delay of ${queue}, milliseconds`,
    });
    const word = el("span", {class: "quiet"});
    const buttons = Object.entries(titles).map(([mode, title]) => {
      const node = button(title, {
        "data-set": mode,
        "aria-pressed": "false",
        "aria-label": `${queue} ${title}`,
      });
      node.addEventListener("click", () =>
        act(node, outcome, async () => {
          const delay_ms = /^\d+$/.test(delay.value) ? Number(delay.value) : delay.value;
          await command(desk, {
            command: "service",
            queue,
            mode,
            ...(mode === "slow" ? {delay_ms} : {}),
          });
          return "";
        }),
      );
      return node;
    });
    const node = el(
      "li",
      {"data-queue": queue},
      el("strong", {}, queue),
      " ",
      word,
      el("div", {class: "inline"}, buttons, delay, " ms"),
      outcome,
    );
    const update = ({state}) => {
      const [mode, ms] = state.split(" ");
      node.dataset.mode = mode;
      setText(word, ms ? `slow: ${ms} ms` : (titles[mode] ?? mode));
      buttons.forEach((one) => setAttribute(one, "aria-pressed", one.dataset.set === mode));
    };
    return {node, update};
  };
  return {
    node: block(
      "services",
      "Services",
      el("p", {class: "quiet"}, "What each does with the next requests."),
      empty,
      list,
    ),
    update({services: modes}) {
      empty.hidden = Boolean(modes);
      const states = Object.entries(modes ?? {}).map(([queue, state]) => ({queue, state}));
      reconcile(
        list,
        states,
        (one) => one.queue,
        (one) => {
          const made = row(one);
          made.update(one);
          return made;
        },
      );
    },
  };
}

// ---- the rest of what it says

function facts() {
  const list = el("dl", {class: "facts wide"});
  return {
    node: block("facts", "Also", list),
    update(world) {
      const rows = [
        [
          "clock",
          world.clock &&
            `${world.clock.local}${world.clock.offset_s ? `, ${world.clock.offset_s > 0 ? "+" : ""}${world.clock.offset_s} s against the host's` : ""}`,
        ],
        [
          "recognised",
          world.results && `${world.results.recognised}, of them lost ${world.results.lost}`,
        ],
        [
          "in the store",
          world.results &&
            `${world.results.stored}, undelivered ${world.results.undelivered}${
              world.results.undelivered
                ? `, the oldest ${age(world.results.oldest_undelivered_age_s)} old`
                : ""
            }`,
        ],
        [
          "the gate",
          world.results &&
            `opened ${world.results.gate_opened}, blocked ${world.results.gate_blocked}`,
        ],
        [
          "restarts",
          world.power && `${world.power.reboots}${world.power.is_up ? "" : ", restarting now"}`,
        ],
        ["talk-back", world.talkback && `${world.talkback.length} sessions`],
        ["data", world.data],
      ]
        .filter(([, text]) => text)
        .map(([name, text]) => ({name, text}));
      reconcile(
        list,
        rows,
        (one) => one.name,
        (one) => {
          const text = el("dd", {}, one.text);
          return {
            node: el("div", {}, el("dt", {}, one.name), text),
            update: (now) => setText(text, now.text),
          };
        },
      );
    },
  };
}
