// Passport: one result, event or request, from the bytes on the bus to the JSON that was published.
import {hasContract} from "./contract.js";
import {el, reconcile, setText} from "./dom.js";
import {jsonTree, scalarPaths} from "./json_tree.js";
import {fieldOfKey, hex, recordsOf} from "./records.js";
import {
  bytesOf,
  clock,
  kindText,
  milliseconds,
  outcomeText,
  parsed,
  passportLink,
  stateText,
  stepText,
  utf8,
} from "./texts.js";

export function createPassportView(section, desk) {
  const list = el("ol", {id: "passport-list", class: "passport-list"});
  const none = el("p", {class: "empty"}, "There is none yet.");
  const choose = el(
    "div",
    {},
    el("p", {}, "Everything that went over the bus and the broker has one. Choose:"),
    list,
    none,
  );
  const unknown = el("div", {id: "passport-unknown", hidden: true});
  const paper = el("article", {id: "passport", class: "passport", hidden: true});
  const back = el(
    "p",
    {class: "back", hidden: true},
    el("a", {href: "#passport"}, "All passports"),
  );
  section.append(back, choose, unknown, paper);
  light(paper);
  let id = "";
  let drawn = null;

  return {
    show(rest) {
      id = rest;
    },
    update() {
      const passport = desk.passports.get(id) ?? null;
      back.hidden = id === "";
      choose.hidden = id !== "";
      unknown.hidden = id === "" || passport !== null;
      paper.hidden = passport === null;
      if (id === "") {
        const known = desk.newest();
        none.hidden = known.length > 0;
        reconcile(list, known, (one) => one.id, listRow);
      } else {
        reconcile(
          list,
          [],
          () => "",
          () => null,
        );
      }
      if (!unknown.hidden) {
        setText(
          unknown,
          desk.connected
            ? `${id} is not known here: the newest 300 are kept. "camera_ctl trace ${id}" asks the console.`
            : "Waiting for the console.",
        );
      }
      if (passport !== drawn) {
        drawn = passport;
        drawPaper(paper, passport);
      }
    },
    hide() {
      drawn = null;
      drawPaper(paper, null);
      reconcile(
        list,
        [],
        () => "",
        () => null,
      );
    },
  };
}

function listRow(first) {
  const state = el("span", {class: "quiet"});
  const name = el("a", {href: passportLink(first.id), "data-passport": first.id});
  const node = el(
    "li",
    {class: "row"},
    el("span", {class: "time"}, clock(first.at_us, false)),
    name,
    state,
  );
  const update = (passport) => {
    setText(name, `${kindText(passport.kind)}: ${passport.plate || passport.name || passport.id}`);
    setText(state, `${passport.id} – ${stateText(passport)}`);
  };
  update(first);
  return {node, update};
}

// ---- the paper. Its parts are made again only when what they show has changed, so that the
// keyboard's place is not lost while the last steps come in.

function drawPaper(paper, passport) {
  if (passport === null) {
    reconcile(
      paper,
      [],
      () => "",
      () => null,
    );
    return;
  }
  Object.assign(paper.dataset, {
    passport: passport.id,
    state: passport.state ?? "",
    kind: passport.kind,
  });
  const parts = passport.kind === "request" ? requestParts(passport) : eventParts(passport);
  reconcile(
    paper,
    [
      {
        name: "title",
        shows: [
          passport.id,
          passport.state,
          passport.ack_us,
          passport.copies,
          passport.redelivered,
          passport.plate,
        ],
        make: () => titleOf(passport),
      },
      ...parts,
      {name: "steps", shows: passport.steps, make: () => stepsOf(passport)},
    ].map((part) => ({...part, shown: JSON.stringify(part.shows)})),
    (part) => part.name + part.shown,
    (part) => ({node: part.make()}),
  );
  for (const side of paper.querySelectorAll(".record, .json")) {
    stopAt(
      side,
      side.querySelector("button.key[tabindex='0']") ?? side.querySelector("button.key"),
    );
  }
}

function titleOf(passport) {
  const copies = passport.copies > 1 ? ` The broker passed it on ${passport.copies} times.` : "";
  return el(
    "header",
    {},
    el("h3", {}, `${kindText(passport.kind)}: ${passport.plate || passport.name || passport.id}`),
    el(
      "p",
      {class: "quiet"},
      `${passport.id} – ${stateText(passport)}.${passport.redelivered ? " Re-delivered." : ""}${copies}`,
      passport.cut ? " Long texts are cut." : "",
    ),
  );
}

function eventParts(passport) {
  const values = (passport.mqtt ?? []).map((one) => parsed(one.payload));
  const {nodes: left, keys} = busBody(
    passport.bus?.topic,
    passport.bus?.body,
    false,
    linkKeys(values),
  );
  const columns = {
    name: "columns",
    shows: [hasContract(), passport.bus?.body, passport.bus?.topic, passport.mqtt],
    make: () =>
      el(
        "div",
        {class: "columns"},
        el(
          "section",
          {class: "block", "aria-label": "On the bus"},
          el("h4", {}, "On the bus"),
          passport.bus
            ? [el("p", {class: "quiet"}, passport.bus.topic), ...left()]
            : absent("The console did not hear it on the bus."),
        ),
        el(
          "section",
          {class: "block", "aria-label": "Published"},
          el("h4", {}, "Published"),
          publishedNodes(passport, values, keys),
        ),
      ),
  };
  return [columns];
}

function publishedNodes(passport, values, keys) {
  if (values.length === 0) {
    return absent(
      passport.kind === "identity"
        ? "Nothing is published of it; the next messages carry it."
        : "Not published yet.",
    );
  }
  return values
    .map((value, i) =>
      el(
        "details",
        {open: i === values.length - 1},
        el("summary", {}, `${passport.mqtt[i].topic}, ${clock(passport.mqtt[i].at_us)}`),
        jsonBody(value, passport.mqtt[i].payload, keys),
      ),
    )
    .reverse();
}

function requestParts(passport) {
  const asked = passport.request;
  const calls = passport.bus_requests ?? [];
  const texts = [
    asked?.payload,
    passport.response?.payload,
    ...(passport.mqtt ?? []).map((one) => one.payload),
  ];
  const own = linkKeys(texts.map(parsed));
  const bodies = calls.map((call) => ({
    call,
    body: busBody(call.queue, call.body, false, own),
    reply: busBody(call.queue, call.reply, true, own),
  }));
  const keys = new Set(bodies.flatMap(({body, reply}) => [...body.keys, ...reply.keys]));
  return [
    {
      name: "asked",
      shows: [asked, calls.length],
      make: () =>
        part(
          "request",
          "From the cloud",
          asked
            ? [
                quiet(asked.topic, `waited ${milliseconds(asked.waited_us / 1000)} for its turn`),
                jsonBody(parsed(asked.payload), asked.payload, keys),
              ]
            : absent("The agent has not taken it yet."),
        ),
    },
    ...bodies.map(({call, body, reply}, i) => ({
      name: `call${i}`,
      shows: [hasContract(), call],
      make: () => busRequest(call, i, body, reply),
    })),
    {
      name: "response",
      shows: [passport.response, passport.mqtt, calls.length],
      make: () =>
        part(
          "response",
          "The answer",
          passport.response
            ? [
                quiet(
                  passport.response.topic,
                  `${milliseconds(passport.response.us / 1000)} after its turn began`,
                ),
                jsonBody(parsed(passport.response.payload), passport.response.payload, keys),
              ]
            : absent("There is no answer yet."),
          (passport.mqtt ?? []).map((one) =>
            el(
              "details",
              {},
              el("summary", {}, `${one.topic}, ${clock(one.at_us)}`),
              jsonBody(parsed(one.payload), one.payload, keys),
            ),
          ),
        ),
    },
  ];
}

function busRequest(call, i, body, reply) {
  return el(
    "section",
    {
      class: "block",
      "data-part-of": "bus-request",
      "data-queue": call.queue,
      "data-outcome": call.outcome,
      "data-ms": call.us / 1000,
      "aria-label": `Request ${i + 1} to the camera`,
    },
    el("h4", {}, `To the camera: ${call.queue}`),
    quiet(
      `${outcomeText(call.outcome)} after ${milliseconds(call.us / 1000)}`,
      `at most ${milliseconds(call.timeout_ms)}`,
      clock(call.at_us),
    ),
    el(
      "div",
      {class: "columns"},
      el("div", {}, el("h5", {}, "Request"), body.nodes()),
      el(
        "div",
        {},
        el("h5", {}, "Reply"),
        call.reply === undefined ? absent("There was none.") : reply.nodes(),
      ),
    ),
    call.cut ? absent("Long bytes are cut.") : null,
  );
}

const part = (name, title, ...children) =>
  el(
    "section",
    {class: "block", "data-part-of": name, "aria-label": title},
    el("h4", {}, title),
    ...children,
  );
const quiet = (...texts) => el("p", {class: "quiet"}, texts.join("; "));
const absent = (text) => el("p", {class: "empty"}, text);

// ---- bytes and JSON, and what belongs together

// A body on the bus, as its fields, as JSON, or as bytes. `keys` are the fields that `others` have
// too.
function busBody(where, base64, is_reply, others) {
  const bytes = base64 === undefined ? null : bytesOf(base64);
  if (bytes === null) {
    return {nodes: () => [], keys: new Set()};
  }
  const records = recordsOf(where ?? "", bytes, is_reply);
  if (records.length > 0) {
    const keys = new Set(
      records
        .flatMap((record) => record.fields.map((field) => field.key))
        .filter((key) => key !== null),
    );
    return {keys, nodes: () => records.map((record) => recordTable(record))};
  }
  const value = parsed(utf8(bytes));
  if (value !== undefined) {
    const own = linkKeys([value]);
    const keys = new Set([...own].filter((key) => others.has(key)));
    return {keys, nodes: () => [el("div", {"data-record": "json"}, jsonTree(value, linkIn(keys)))]};
  }
  return {
    keys: new Set(),
    nodes: () => [bytes.length === 0 ? absent("No bytes.") : plainBytes(bytes)],
  };
}

function jsonBody(value, text, keys) {
  return value === undefined ? el("pre", {class: "raw"}, text) : jsonTree(value, linkIn(keys));
}

// The same member under the name that the record or the published JSON gives it.
const same_leaf = {
  flag: "value",
  rs485_data: "data",
  data_len: "dataLen",
  title: "deviceName",
  ip: "ipaddr",
  uid: "plateid",
  gpio: "io",
};
const parents = ["full_image", "small_image", "plate_result", "device_info"];

function keyOf(path) {
  const in_record = path.split(".PlateResult.")[1];
  if (in_record !== undefined) {
    return fieldOfKey(in_record);
  }
  const steps = path.split(".").filter((step) => !/^\d+$/.test(step));
  const leaf = steps.at(-1) ?? "";
  if (leaf === "type" && steps.at(-2) !== "plate_result") {
    return path; // names a request or a kind of message
  }
  if (path.endsWith("SerialData.serialChannel")) {
    return "source";
  }
  const parent = parents.find((name) => steps.includes(name));
  return parent ? `${parent}.${leaf}` : (same_leaf[leaf] ?? leaf);
}

const linkKeys = (values) =>
  new Set(
    values.filter((value) => value !== undefined).flatMap((value) => scalarPaths(value).map(keyOf)),
  );
const linkIn = (keys) => (path) => (keys.has(keyOf(path)) ? keyOf(path) : null);

function recordTable(record) {
  return el(
    "div",
    {
      class: "record",
      "data-record": record.kind,
      role: "group",
      "aria-label": `${record.title}; arrow keys go from field to field`,
    },
    el("p", {class: "quiet"}, record.title),
    record.fields.map((field) =>
      el(
        "div",
        {
          class: "field",
          "data-side": "record",
          "data-group": field.group,
          "data-field": field.key,
          "data-long": field.bytes.length > 16,
          "data-offset": field.offset,
          "data-length": field.bytes.length,
          "data-reserved": field.key === null,
        },
        el("span", {class: "offset"}, String(field.offset)),
        el(
          "span",
          {class: "what"},
          field.key === null
            ? el("span", {class: "key"}, field.label)
            : [
                el("button", {type: "button", class: "key"}, field.key),
                el("span", {class: "label"}, ` ${field.label}`),
              ],
        ),
        el("span", {class: "value", "data-value": true}, String(field.value)),
        el("code", {class: "bytes"}, hex(field.bytes)),
      ),
    ),
  );
}

function plainBytes(bytes) {
  const rows = [];
  for (let at = 0; at < bytes.length && at < 16384; at += 16) {
    const row = bytes.subarray(at, at + 16);
    rows.push(
      `${String(at).padStart(5)}  ${hex(row).padEnd(47)}  ${utf8(row.map((b) => (b >= 32 && b < 127 ? b : 46)))}`,
    );
  }
  return el(
    "pre",
    {class: "raw", "data-record": "bytes", tabindex: 0, "aria-label": "Bytes"},
    rows.join("\n"),
  );
}

// The one button of a side that the tab key stops at.
function stopAt(side, button) {
  for (const each of side.querySelectorAll("button.key")) {
    each.tabIndex = each === button ? 0 : -1;
  }
}

// Lights what belongs to the field that is pointed at or has the focus; one tab stop per side.
function light(paper) {
  const lightUp = (key) => {
    for (const node of paper.querySelectorAll(".lit")) {
      node.classList.remove("lit");
    }
    if (key !== undefined) {
      for (const node of paper.querySelectorAll("[data-field]")) {
        node.classList.toggle("lit", node.dataset.field === key);
      }
    }
  };
  const fieldAt = (event) => event.target.closest?.("[data-field]");
  const focused = () =>
    paper.contains(document.activeElement)
      ? document.activeElement.closest("[data-field]")?.dataset.field
      : undefined;
  paper.addEventListener("pointerover", (event) =>
    lightUp(fieldAt(event)?.dataset.field ?? focused()),
  );
  paper.addEventListener("pointerleave", () => lightUp(focused()));
  paper.addEventListener("focusin", (event) => {
    lightUp(fieldAt(event)?.dataset.field);
    if (event.target.matches("button.key")) {
      stopAt(event.target.closest(".record, .json"), event.target);
    }
  });
  paper.addEventListener("focusout", () => lightUp(undefined));
  paper.addEventListener("click", (event) => {
    const from = event.target.closest?.("button.key") && fieldAt(event);
    const partner =
      from &&
      [...paper.querySelectorAll("[data-field]")].find(
        (node) =>
          node.dataset.field === from.dataset.field &&
          node.dataset.side !== from.dataset.side &&
          node.offsetParent !== null,
      );
    partner?.scrollIntoView({block: "center"});
    partner?.querySelector("button.key")?.focus({preventScroll: true});
  });
  paper.addEventListener("keydown", (event) => {
    const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
    const here = event.target.closest?.("button.key");
    const side = here?.closest(".record, .json");
    if (step && side) {
      const all = [...side.querySelectorAll("button.key")];
      all[all.indexOf(here) + step]?.focus();
      event.preventDefault();
    }
  });
}

// ---- times

function stepsOf(passport) {
  const steps = [...(passport.steps ?? [])].sort((a, b) => a.at_us - b.at_us);
  const longest = Math.max(1, ...steps.map((step, i) => (i ? step.at_us - steps[i - 1].at_us : 0)));
  const all =
    steps.length > 1
      ? `, ${milliseconds((steps.at(-1).at_us - steps[0].at_us) / 1000)} in all`
      : "";
  return el(
    "section",
    {class: "block", "aria-label": "Times"},
    el("h4", {}, `Times${all}`),
    el(
      "ol",
      {id: "steps", class: "steps"},
      steps.map((step, i) => {
        const ms = i ? (step.at_us - steps[i - 1].at_us) / 1000 : null;
        const bar = el("span", {class: "bar", "aria-hidden": "true"});
        bar.style.setProperty("--part", ms === null ? 0 : (ms * 1000) / longest);
        return el(
          "li",
          {"data-step": step.what, "data-ms": ms ?? ""},
          el("span", {class: "time"}, clock(step.at_us)),
          el("span", {class: "diff"}, ms === null ? "" : `+${milliseconds(ms)}`),
          el(
            "span",
            {class: "what"},
            stepText(step),
            step.by ? el("span", {class: "quiet"}, ` (${step.by})`) : null,
            step.note ? el("span", {class: "quiet"}, ` ${step.note}`) : null,
          ),
          bar,
        );
      }),
    ),
  );
}
