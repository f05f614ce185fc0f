// A form made from a JSON Schema. What is typed is what is sent, also where the contract wants
// something else: a hint says so, nothing is refused.
import {el, setText} from "./dom.js";
import {base64Of, decoded} from "./texts.js";

const number_pattern = /^-?(0|[1-9]\d*)(\.\d+)?([eE][+-]?\d+)?$/;

// A number as it was typed, however large or long.
class Typed {
  constructor(text) {
    this.text = text;
  }
}

/// JSON text of a value that a form gives.
function jsonText(value, indent = "") {
  if (value instanceof Typed) {
    return value.text;
  }
  if (value === null || typeof value !== "object") {
    return JSON.stringify(value);
  }
  const inner = `${indent}  `;
  const lines = Array.isArray(value)
    ? value.map((item) => inner + jsonText(item, inner))
    : Object.entries(value).map(
        ([key, item]) => `${inner}${JSON.stringify(key)}: ${jsonText(item, inner)}`,
      );
  const [open, close] = Array.isArray(value) ? "[]" : "{}";
  return lines.length ? `${open}\n${lines.join(",\n")}\n${indent}${close}` : open + close;
}

/// A form's fields for a request's schema, filled with `example`. `name` makes the ids unique. The
/// node sends "input" whenever something changes. @return {node, text(): what is to be sent}
export function requestFields(schema, example, name) {
  const context = {name, changed: () => node.dispatchEvent(new Event("input", {bubbles: true}))};
  const {payload, ...common} = schema.properties;
  const {body, ...rest} = payload.properties;
  const needs = (of, key) => of.required?.includes(key) ?? false;
  const fieldsOf = (of, properties, path, values) =>
    Object.entries(properties).map(([key, member]) => [
      key,
      memberField(context, member, path + key, values?.[key], needs(of, key)),
    ]);
  const body_field = body
    ? memberField(context, body, "payload.body", example.payload?.body, needs(payload, "body"))
    : null;
  const payload_fields = fieldsOf(payload, rest, "payload.", example.payload);
  const common_fields = fieldsOf(schema, common, "", example);
  const node = el(
    "div",
    {class: "fields"},
    body_field ? body_field.node : el("p", {class: "quiet"}, "It needs nothing else."),
    el(
      "details",
      {"data-more": true},
      el("summary", {}, "More: id, version, expiry"),
      [...common_fields, ...payload_fields].map(([, field]) => field.node),
    ),
  );
  return {
    node,
    text() {
      const inside = collected(payload_fields);
      const sent = body_field?.value();
      if (sent !== undefined) {
        inside.body = sent;
      }
      return jsonText({...collected(common_fields), payload: inside});
    },
  };
}

const collected = (fields) =>
  Object.fromEntries(
    fields.map(([key, field]) => [key, field.value()]).filter(([, value]) => value !== undefined),
  );

// ---- a member: its field, and whether it is sent at all

function memberField(context, schema, path, initial, is_required) {
  const key = path.split(".").at(-1);
  const field = anyField(
    context,
    schema,
    path,
    initial === undefined ? sample(schema, key) : initial,
    key,
  );
  if (is_required) {
    return {...field, include: () => {}};
  }
  const box = el("input", {type: "checkbox", "data-include": path, "aria-label": `Send ${key}`});
  const node = el(
    "div",
    {class: "optional"},
    el("label", {class: "include"}, box, " send"),
    field.node,
  );
  const show = () => node.classList.toggle("left-out", !box.checked);
  box.checked = initial !== undefined;
  box.addEventListener("change", show);
  field.node.addEventListener("input", () => {
    // whoever types something wants it sent
    box.checked = true;
    show();
  });
  show();
  return {
    node,
    value: () => (box.checked ? field.value() : undefined),
    include(wanted) {
      box.checked = wanted;
      show();
    },
    key: field.key,
  };
}

const samples = {
  expires_ms: 5000,
  idempotency_key: "page-1",
  delay: 500,
  value: 500,
  plate: "AB12345",
  filter_enable: 1,
  id: "1",
  data: "aGVsbG8K",
  begin: "07:00",
  end: "21:00",
};

function sample(schema, key) {
  if (schema.const !== undefined) {
    return schema.const;
  }
  if (key in samples && !schema.enum) {
    return schema.oneOf?.[0]?.type === "object" ? {[key]: samples[key]} : samples[key];
  }
  if (schema.enum) {
    return schema.enum[0];
  }
  if (schema.oneOf) {
    return sample(schema.oneOf[0], key);
  }
  switch ([schema.type].flat()[0]) {
    case "object":
      return Object.fromEntries(
        (schema.required ?? []).map((name) => [name, sample(schema.properties[name], name)]),
      );
    case "array":
      return [sample(schema.items, key)];
    case "integer":
    case "number":
      return Math.max(schema.minimum ?? 0, 0);
    case "boolean":
      return false;
    default:
      return "";
  }
}

function anyField(context, schema, path, initial, title) {
  if (schema.oneOf) {
    return choiceField(context, schema, path, initial, title);
  }
  const types = [schema.type ?? []].flat();
  if (types.includes("object")) {
    return objectField(context, schema, path, initial, title);
  }
  if (types.includes("array")) {
    return arrayField(context, schema, path, initial, title);
  }
  if (schema.enum || schema["x-desk-codes"]) {
    return enumField(context, schema, path, initial, title);
  }
  return textField(context, schema, path, initial, title);
}

const idOf = (context, path) => `f-${context.name}-${path.replaceAll(".", "-")}`;
const plain = (text) => (text ?? "").replaceAll("`", "");

// ---- objects, arrays, choices

function objectField(context, schema, path, initial, title) {
  const given = initial !== null && typeof initial === "object" ? initial : {};
  const members = Object.entries(schema.properties ?? {}).map(([key, member]) => [
    key,
    memberField(
      context,
      member,
      `${path}.${key}`,
      given[key],
      schema.required?.includes(key) ?? false,
    ),
  ]);
  const extra =
    schema.additionalProperties === true ? extraMembers(context, path, given, schema) : null;
  const node = el(
    "fieldset",
    {},
    el("legend", {}, title),
    schema.description ? el("p", {class: "quiet"}, plain(schema.description)) : null,
    members.map(([, field]) => field.node),
    extra?.node,
  );
  const conditional = schema.if?.properties ? Object.entries(schema.if.properties)[0] : null;
  if (conditional) {
    // Which members are needed hangs on what another one says.
    const [key, {const: wanted}] = conditional;
    const decider = members.find(([name]) => name === key)[1];
    let before = decider.value();
    node.addEventListener("input", () => {
      const now = decider.value();
      if (now === before) {
        return;
      }
      before = now;
      const is_so = now === wanted;
      for (const [name, field] of members) {
        const with_it = schema.then?.required?.includes(name);
        const without_it = schema.else?.required?.includes(name);
        if (with_it || without_it) {
          field.include(is_so ? Boolean(with_it) : Boolean(without_it));
        }
      }
    });
  }
  return {node, value: () => ({...collected(members), ...extra?.value()})};
}

// Members that the schema does not name, as JSON.
function extraMembers(context, path, given, schema) {
  const others = Object.fromEntries(
    Object.entries(given).filter(([key]) => !(key in (schema.properties ?? {}))),
  );
  const id = `${idOf(context, path)}-extra`;
  const area = el(
    "textarea",
    {id, rows: 2, "data-extra": path, spellcheck: "false"},
    Object.keys(others).length ? JSON.stringify(others) : "",
  );
  const hint = el("p", {class: "hint", "data-hint": `${path}.*`, id: `${id}-hint`});
  area.setAttribute("aria-describedby", hint.id);
  const read = () => {
    try {
      const value = area.value.trim() === "" ? {} : JSON.parse(area.value);
      return value !== null && typeof value === "object" && !Array.isArray(value) ? value : null;
    } catch {
      return null;
    }
  };
  area.addEventListener("input", () =>
    hintWrong(
      hint,
      read() === null ? "Not a JSON object: left out. The free editor sends any text." : "",
    ),
  );
  return {
    node: el(
      "div",
      {class: "labelled"},
      el("label", {for: id}, "further members, a JSON object"),
      area,
      hint,
    ),
    value: () => read() ?? {},
  };
}

function arrayField(context, schema, path, initial, title) {
  const list = el("div", {class: "items"});
  let items = [];
  const add = el("button", {type: "button", "data-add": path}, `Add to ${title}`);
  const build = (values) => {
    items = values.map((value, i) => {
      const field = anyField(context, schema.items, `${path}.${i}`, value, `${title} ${i + 1}`);
      const remove = el(
        "button",
        {type: "button", "data-remove": `${path}.${i}`},
        `Remove ${i + 1}`,
      );
      remove.addEventListener("click", () => {
        build(items.map((item) => item.value()).filter((_, at) => at !== i));
        add.focus();
        context.changed();
      });
      return {...field, remove};
    });
    list.replaceChildren(
      ...items.map((item) => el("div", {class: "item"}, item.node, item.remove)),
    );
  };
  build(Array.isArray(initial) ? initial : [initial]);
  add.addEventListener("click", () => {
    const values = items.map((item) => item.value());
    build([...values, values.at(-1) ?? sample(schema.items, path.split(".").at(-1))]);
    items.at(-1).node.querySelector("input, select, textarea")?.focus();
    context.changed();
  });
  return {
    node: el(
      "fieldset",
      {},
      el("legend", {}, title),
      schema.description ? el("p", {class: "quiet"}, plain(schema.description)) : null,
      list,
      add,
    ),
    value: () => items.map((item) => item.value()),
  };
}

function choiceField(context, schema, path, initial, title) {
  const id = `${idOf(context, path)}-choice`;
  const words = schema.oneOf.map((one) =>
    one.type === "array"
      ? "several (an array)"
      : `one (${one.type === "object" ? "an object" : "a text"})`,
  );
  const choice = el(
    "select",
    {id, "data-choice": path},
    words.map((text, i) => el("option", {value: i}, text)),
  );
  const place = el("div", {});
  let field = null;
  const build = (value) => {
    const one = schema.oneOf[choice.value];
    field = anyField(context, one, path, value, title);
    place.replaceChildren(field.node);
  };
  const isArray = (i) => schema.oneOf[i].type === "array";
  choice.value = String(
    Math.max(
      0,
      schema.oneOf.findIndex((_, i) => isArray(i) === Array.isArray(initial)),
    ),
  );
  choice.addEventListener("change", () => {
    const value = field.value();
    build(
      isArray(choice.value)
        ? Array.isArray(value)
          ? value
          : [value]
        : Array.isArray(value)
          ? (value[0] ?? sample(schema.oneOf[choice.value], title))
          : value,
    );
    context.changed();
  });
  build(initial);
  return {
    node: el(
      "div",
      {class: "choice"},
      el(
        "div",
        {class: "labelled"},
        el("label", {for: id}, title),
        choice,
        schema.description ? el("p", {class: "quiet"}, plain(schema.description)) : null,
      ),
      place,
    ),
    value: () => field.value(),
  };
}

// ---- scalars

function enumField(context, schema, path, initial, title) {
  const id = idOf(context, path);
  const meanings = schema["x-meanings"] ?? schema["x-desk-codes"] ?? {};
  const values = schema.enum ?? Object.keys(meanings).map(Number);
  const start = initial instanceof Typed ? Number(initial.text) : initial;
  const select = el(
    "select",
    {id, "data-path": path},
    values.map((value, i) => {
      const meaning = plain(meanings[String(value)]);
      return el(
        "option",
        {value: String(value), "data-index": i},
        meaning ? `${value}: ${meaning}` : String(value),
      );
    }),
    el("option", {value: "@other"}, "something else …"),
  );
  select.value = values.includes(start) ? String(start) : "@other";
  const other = el("input", {
    type: "text",
    "data-other": path,
    "aria-label": `${title}, something else`,
    autocomplete: "off",
    value: values.includes(start) ? "" : String(start),
  });
  const hint = hintNode(id, path);
  const show = () => {
    other.hidden = select.value !== "@other";
    hintWrong(hint, other.hidden ? "" : `The contract wants one of ${values.join(", ")}.`);
  };
  select.addEventListener("change", show);
  show();
  return {
    node: el(
      "div",
      {class: "labelled"},
      el("label", {for: id}, title),
      select,
      other,
      hint,
      describe(schema),
    ),
    value: () =>
      select.value === "@other" ? typedValue(other.value) : values[select.selectedIndex],
  };
}

const typedValue = (text) => (number_pattern.test(text) ? new Typed(text) : text);

function textField(context, schema, path, initial, title) {
  const id = idOf(context, path);
  const types = [schema.type ?? typeof schema.const].flat();
  const may_be_number = types.includes("integer") || types.includes("number");
  const may_be_text = types.includes("string");
  const start =
    initial instanceof Typed ? initial.text : initial === undefined ? "" : String(initial);
  const input = el("input", {
    id,
    type: "text",
    "data-path": path,
    value: start,
    autocomplete: "off",
    spellcheck: "false",
    inputmode: may_be_number && !may_be_text ? "numeric" : null,
  });
  const hint = hintNode(id, path);
  input.setAttribute("aria-describedby", hint.id);
  // Where both are right it goes as the example has it, until one says otherwise.
  const as_number =
    may_be_number && may_be_text
      ? el(
          "select",
          {"aria-label": `Send ${title} as`, "data-as": path},
          el("option", {value: "text"}, "as a text"),
          el("option", {value: "number"}, "as a number"),
        )
      : null;
  if (as_number) {
    as_number.value = typeof initial === "string" ? "text" : "number";
  }
  const value = () => {
    const wants_number = as_number ? as_number.value === "number" : may_be_number;
    return wants_number ? typedValue(input.value) : input.value;
  };
  const check = () => hintWrong(hint, wrongWith(schema, value()));
  input.addEventListener("input", check);
  as_number?.addEventListener("change", check);
  if (may_be_number && !may_be_text) {
    input.addEventListener("keydown", (event) => step(event, input));
  }
  check();
  return {
    node: el(
      "div",
      {class: "labelled"},
      el("label", {for: id}, title),
      el("div", {class: "inline"}, input, as_number),
      schema.contentEncoding === "base64" ? asText(context, input, id) : null,
      hint,
      describe(schema),
    ),
    value,
  };
}

// Types the Base64 of a text.
function asText(context, input, id) {
  const text = el("input", {
    id: `${id}-text`,
    type: "text",
    autocomplete: "off",
    spellcheck: "false",
    value: decoded(input.value) ?? "",
  });
  input.addEventListener("input", () => {
    if (document.activeElement !== text) {
      text.value = decoded(input.value) ?? "";
    }
  });
  text.addEventListener("input", (event) => {
    event.stopPropagation();
    input.value = base64Of(text.value);
    input.dispatchEvent(new Event("input", {bubbles: true}));
  });
  return el("div", {class: "labelled"}, el("label", {for: text.id}, "Base64 of this text"), text);
}

// Arrow keys count, as in a field for numbers.
function step(event, input) {
  const by = {ArrowUp: 1, ArrowDown: -1}[event.key];
  if (by && /^-?\d{1,15}$/.test(input.value)) {
    event.preventDefault();
    input.value = String(Number(input.value) + by);
    input.dispatchEvent(new Event("input", {bubbles: true}));
  }
}

const hintNode = (id, path) => el("p", {class: "hint", id: `${id}-hint`, "data-hint": path});
const describe = (schema) =>
  schema.description ? el("p", {class: "quiet"}, plain(schema.description)) : null;

function hintWrong(hint, text) {
  setText(hint, text);
  hint.toggleAttribute("data-wrong", text !== "");
}

// What the contract wants instead of a value; empty when it is right.
function wrongWith(schema, value) {
  const types = [schema.type ?? typeof schema.const].flat();
  if (schema.const !== undefined) {
    return (value instanceof Typed ? Number(value.text) : value) === schema.const
      ? ""
      : `The contract wants ${JSON.stringify(schema.const)}.`;
  }
  if (value instanceof Typed) {
    const number = Number(value.text);
    const fits =
      number >= (schema.minimum ?? -Infinity) &&
      number <= (schema.maximum ?? Infinity) &&
      (!types.includes("integer") || Number.isInteger(number));
    return fits ? "" : `The contract wants ${wantedNumber(schema, types)}.`;
  }
  if (!types.includes("string")) {
    return `This is sent as a text; the contract wants ${wantedNumber(schema, types)}.`;
  }
  const bytes = new TextEncoder().encode(value).length;
  if (bytes < (schema.minLength ?? 0) || bytes > (schema.maxLength ?? Infinity)) {
    return `The contract wants ${schema.minLength ?? 0} to ${schema.maxLength ?? "any number of"} bytes; these are ${bytes}.`;
  }
  return schema.pattern && !new RegExp(schema.pattern).test(value)
    ? "The contract wants this to look otherwise."
    : "";
}

function wantedNumber(schema, types) {
  const what = types.includes("integer") ? "an integer" : "a number";
  return schema.minimum === undefined
    ? what
    : `${what} from ${schema.minimum} to ${schema.maximum ?? "any"}`;
}
