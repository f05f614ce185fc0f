// Requests: a form for each one that the contract knows, and an editor for any text.
import {act, note, sendText} from "./actions.js";
import {contractError, errorText, hasContract, loadContract, requests} from "./contract.js";
import {el, setAttribute} from "./dom.js";
import {jsonTree} from "./json_tree.js";
import {requestFields} from "./schema_form.js";
import {milliseconds, parsed, passportLink} from "./texts.js";

export function createRequestsView(section, desk) {
  const names = el("nav", {class: "names", "aria-label": "Requests"});
  const place = el("div", {class: "main"});
  const waiting = el("p", {class: "empty"});
  const retry = el("button", {type: "button"}, "Try again");
  retry.addEventListener("click", () =>
    loadContract()
      .catch(() => {})
      .then(() => desk.changed()),
  );
  section.append(waiting, retry, el("div", {class: "split names-first"}, names, place));
  const forms = new Map();
  let known = null;
  let wanted = "";

  const build = () => {
    known = new Map(requests().map((one) => [one.name, one]));
    names.replaceChildren(
      ...[...known.keys(), "free"].map((name) =>
        el(
          "a",
          {href: `#requests/${name}`, "data-request": name},
          name === "free" ? "Free text" : name,
        ),
      ),
    );
  };

  const choose = () => {
    const name = wanted === "free" || known.has(wanted) ? wanted : known.keys().next().value;
    if (!forms.has(name)) {
      const form = name === "free" ? freeForm(desk) : requestForm(desk, known.get(name));
      forms.set(name, form);
      place.append(form.node);
    }
    for (const [each, form] of forms) {
      form.node.hidden = each !== name;
    }
    for (const link of names.children) {
      setAttribute(link, "aria-current", link.dataset.request === name ? "true" : null);
    }
    return forms.get(name);
  };

  return {
    show(rest) {
      wanted = rest;
    },
    update() {
      if (known === null && hasContract()) {
        build();
      }
      waiting.hidden = known !== null;
      retry.hidden = known !== null || contractError() === null;
      waiting.textContent =
        contractError() === null
          ? "The contract comes."
          : `The contract could not be had: ${contractError()}`;
      if (known !== null) {
        choose().update();
      }
    },
  };
}

// A request's example where the contract's own would not do on this camera at this time.
function exampleOf(desk, one) {
  const example = structuredClone(one.example);
  if (one.name === "get_image_by_id") {
    const newest = desk
      .newest()
      .find((passport) => passport.kind === "result" && passport.plate_id !== undefined);
    example.payload.body.id = newest?.plate_id ?? example.payload.body.id;
  }
  if (one.name === "set_time") {
    const now = new Date();
    const parts = [
      now.getFullYear(),
      now.getMonth() + 1,
      now.getDate(),
      now.getHours(),
      now.getMinutes(),
      now.getSeconds(),
    ];
    ["year", "month", "day", "hour", "min", "sec"].forEach((key, i) => {
      example.payload.body[key] = String(parts[i]);
    });
  }
  return example;
}

function requestForm(desk, one) {
  const fields = requestFields(one.schema, exampleOf(desk, one), one.name);
  const preview = el("pre", {
    class: "raw",
    "data-preview": true,
    tabindex: 0,
    "aria-label": "What is sent",
  });
  const show = () => {
    preview.textContent = fields.text();
  };
  const form = sendingForm(
    desk,
    one.name,
    () => ({name: one.name, text: fields.text()}),
    [
      el("h3", {}, one.name),
      el("p", {}, one.summary.replaceAll("`", "")),
      fields.node,
      el("details", {open: true}, el("summary", {}, "What is sent"), preview),
    ],
    about(one),
  );
  fields.node.addEventListener("input", show);
  fields.node.addEventListener("change", show);
  show();
  return form;
}

function about({about: {success, failure, service, timeout_ms}}) {
  const said = [
    success && `Result true: ${success}`,
    failure && `Result false when ${failure}.`,
    service && `Service ${service}${timeout_ms ? `, at most ${timeout_ms} ms` : ""}.`,
  ].filter(Boolean);
  return said.length
    ? el(
        "details",
        {},
        el("summary", {}, "What the answer means"),
        said.map((text) => el("p", {class: "quiet"}, text.replaceAll("`", ""))),
      )
    : null;
}

function freeForm(desk) {
  const names = el(
    "datalist",
    {id: "request-names"},
    requests().map(({name}) => el("option", {value: name})),
  );
  const name = el("input", {
    type: "text",
    id: "free-name",
    "data-free": "name",
    list: "request-names",
    value: "get_sn",
    autocomplete: "off",
    spellcheck: "false",
  });
  const text = el(
    "textarea",
    {id: "free-text", "data-free": "text", rows: 12, spellcheck: "false"},
    '{"id":"1","version":"1.0","payload":{"type":"get_sn"}}',
  );
  return sendingForm(
    desk,
    "free",
    () => ({name: name.value, text: text.value}),
    [
      el("h3", {}, "Free text"),
      el("p", {}, "Any name and any text, also what is no JSON. It is sent as it is."),
      names,
      el("div", {class: "labelled"}, el("label", {for: name.id}, "Name of the request"), name),
      el("div", {class: "labelled"}, el("label", {for: text.id}, "Text"), text),
    ],
    null,
  );
}

// A form with its button and its answer.
function sendingForm(desk, id, what, contents, below) {
  const send = el("button", {type: "submit", class: "primary"}, "Send");
  const outcome = note();
  const answer = answerPlace(desk);
  const node = el(
    "form",
    {"data-form": id, class: "block", novalidate: true, autocomplete: "off"},
    contents,
    send,
    outcome,
    answer.node,
    below,
  );
  node.addEventListener("submit", (event) => {
    event.preventDefault();
    const {name, text} = what();
    void act(send, outcome, async () => {
      answer.follow(null);
      answer.follow(await sendText(desk, name, text));
    });
  });
  return {node, update: answer.update};
}

function answerPlace(desk) {
  const verdict = el("p", {class: "verdict", role: "status"});
  const rest = el("div", {class: "answer"});
  const node = el(
    "div",
    {class: "answer", "data-answer": true, "data-state": "none"},
    verdict,
    rest,
  );
  let id = null;
  let drawn = null;
  const draw = (passport) => {
    const answer = parsed(passport?.response?.payload);
    const state = passport?.state ?? (id ? "sent" : "none");
    node.dataset.state = state;
    setAttribute(node, "data-passport", id);
    setAttribute(node, "data-result", typeof answer?.result === "boolean" ? answer.result : null);
    setAttribute(node, "data-code", answer?.code);
    verdict.dataset.level =
      state === "unanswered" || answer?.result === false
        ? "bad"
        : answer?.result === true
          ? "good"
          : "info";
    verdict.replaceChildren(...(id === null ? [] : verdictNodes(answer, state)));
    rest.replaceChildren(...(id === null ? [] : answerNodes(id, passport, answer, state)));
  };
  return {
    node,
    follow(next) {
      id = next;
      drawn = null;
      draw(null);
      this.update();
    },
    update() {
      const passport = id === null ? null : (desk.passports.get(id) ?? drawn);
      if (passport !== drawn) {
        drawn = passport;
        draw(passport);
      }
    },
  };
}

function verdictNodes(answer, state) {
  if (state !== "answered") {
    return [
      {
        sent: "Sent, no answer yet.",
        running: "It is being carried out.",
        unanswered: "There was no answer.",
      }[state] ?? state,
    ];
  }
  const code = answer?.code ? [el("strong", {"data-answer-code": true}, answer.code)] : [];
  return answer?.result === true
    ? ["Result true", ...(code.length ? [", but: ", ...code] : [])]
    : ["Result false: ", ...(code.length ? code : ["no code"])];
}

function answerNodes(id, passport, answer, state) {
  const link = el("p", {}, el("a", {"data-open": true, href: passportLink(id)}, "Its passport"));
  if (state !== "answered") {
    return [link];
  }
  const {us, payload, at_us} = passport.response;
  const refused =
    answer?.bus
      ?.filter((one) => one.device_error)
      .map((one) => `${one.queue} said: ${one.device_error}`) ?? [];
  return [
    answer?.error ? el("p", {}, answer.error) : null,
    answer?.code ? el("p", {class: "quiet"}, errorText(answer.code).replaceAll("`", "")) : null,
    ...refused.map((text) => el("p", {class: "bad"}, text)),
    el(
      "p",
      {class: "quiet", "data-answer-ms": us / 1000},
      `It took ${milliseconds(us / 1000)} at the camera; the answer was here ${milliseconds((at_us - passport.at_us) / 1000)} after it was sent.`,
    ),
    el(
      "div",
      {"data-answer-json": true},
      answer === undefined ? el("pre", {class: "raw"}, payload) : jsonTree(answer),
    ),
    link,
  ].filter(Boolean);
}
