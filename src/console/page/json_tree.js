// A JSON value as elements, one line per member, so that each can be pointed at.
import {el} from "./dom.js";
import {decoded, picturePath} from "./texts.js";

const max_lines = 3000;

// Members that are Base64 of a text.
const base64_keys = new Set([
  "license",
  "deviceName",
  "imagePath",
  "imageFragmentPath",
  "imgPath",
  "full_image_path",
  "small_image_path",
  "rs485_data",
  "title",
]);
// "data" of serial data, in requests, messages and on the bus.
const isBase64 = (path) => {
  const parts = path.split(".");
  return (
    base64_keys.has(parts.at(-1)) ||
    (parts.at(-1) === "data" && path.toLowerCase().includes("serialdata"))
  );
};

/// Lines of `value`. `fieldOf(path)` names the field that a scalar member belongs to, or gives
/// null.
export function jsonTree(value, fieldOf = () => null) {
  const lines = [];
  addLines(lines, value, "", "", 0, "", fieldOf);
  if (lines.length > max_lines) {
    return el("pre", {class: "raw"}, JSON.stringify(value, null, 1));
  }
  return el(
    "div",
    {class: "json"},
    lines.map((make) => make()),
  );
}

/// The paths of all scalars of a value.
export function scalarPaths(value, path = "") {
  if (value === null || typeof value !== "object") {
    return [path];
  }
  return Object.keys(value).flatMap((key) =>
    scalarPaths(value[key], path ? `${path}.${key}` : key),
  );
}

function addLines(lines, value, key, path, depth, comma, fieldOf) {
  if (lines.length > max_lines) {
    return;
  }
  if (value === null || typeof value !== "object") {
    lines.push(() => scalarLine(value, key, path, depth, comma, fieldOf(path)));
    return;
  }
  const [open, close] = Array.isArray(value) ? ["[", "]"] : ["{", "}"];
  const entries = Object.entries(value);
  if (entries.length === 0) {
    lines.push(() =>
      line(
        depth,
        {"data-path": path || null},
        keyNodes(key),
        el("span", {"data-value": true}, open + close),
        comma,
      ),
    );
    return;
  }
  lines.push(() => line(depth, {}, keyNodes(key), open));
  entries.forEach(([name, member], i) =>
    addLines(
      lines,
      member,
      Array.isArray(value) ? "" : name,
      path ? `${path}.${name}` : name,
      depth + 1,
      i + 1 < entries.length ? "," : "",
      fieldOf,
    ),
  );
  lines.push(() => line(depth, {}, close + comma));
}

function line(depth, attributes, ...children) {
  const node = el("div", {class: "line", "data-side": "json", ...attributes}, children);
  node.style.setProperty("--depth", depth);
  return node;
}

const keyNodes = (key) =>
  key === "" ? [] : [el("span", {class: "key"}, JSON.stringify(key)), ": "];

function scalarLine(value, key, path, depth, comma, field) {
  const shown = el("span", {"data-value": true, class: typeof value}, JSON.stringify(value));
  const name =
    key === ""
      ? []
      : field === null
        ? keyNodes(key)
        : [el("button", {type: "button", class: "key"}, JSON.stringify(key)), ": "];
  return line(
    depth,
    {"data-path": path || null, "data-field": field},
    name,
    shown,
    comma,
    decodedNode(value, path),
  );
}

function decodedNode(value, path) {
  const text = typeof value === "string" && value !== "" && isBase64(path) ? decoded(value) : null;
  if (text === null) {
    return null;
  }
  const picture = picturePath(text);
  const inside = picture ? el("a", {href: picture, target: "_blank", rel: "noopener"}, text) : text;
  return el("span", {class: "decoded", "data-decoded": true}, "\u2192 ", inside);
}
