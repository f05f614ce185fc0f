// Builds and keeps elements. All text goes in as text: nothing here reads HTML.

/// An element. Attributes: "class", "data-…", "aria-…" and so on as they are; true sets an empty
/// one, null, undefined and false leave it out; "on…" with a function listens.
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") {
      node.addEventListener(name.slice(2), value);
    } else if (value === true) {
      node.setAttribute(name, "");
    } else if (value !== null && value !== undefined && value !== false) {
      node.setAttribute(name, String(value));
    }
  }
  node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
  return node;
}

/// Touches the document only when something is different.
export function setText(node, text) {
  const wanted = String(text);
  if (node.textContent !== wanted) {
    node.textContent = wanted;
  }
}

/// Likewise; null or undefined takes the attribute away.
export function setAttribute(node, name, value) {
  if (value === null || value === undefined) {
    node.removeAttribute(name);
  } else if (node.getAttribute(name) !== String(value)) {
    node.setAttribute(name, String(value));
  }
}

const kept = new WeakMap();

/// Makes the children of `parent` those of `items`, in order. `make(item)` gives {node, update};
/// update(item) is called when the item of a key is another object than before. Nodes of keys that
/// are gone are removed.
export function reconcile(parent, items, keyOf, make) {
  const before = kept.get(parent) ?? new Map();
  const now = new Map();
  for (const item of items) {
    const key = keyOf(item);
    let entry = before.get(key);
    if (!entry) {
      entry = {...make(item), item};
    } else if (entry.item !== item) {
      entry.item = item;
      entry.update?.(item);
    }
    now.set(key, entry);
  }
  for (const [key, entry] of before) {
    if (now.get(key) !== entry) {
      entry.node.remove();
    }
  }
  let place = parent.firstChild;
  for (const {node} of now.values()) {
    if (node === place) {
      place = place.nextSibling;
    } else {
      parent.insertBefore(node, place);
    }
  }
  kept.set(parent, now);
}

/// A label over a control; `control` needs an id.
export function labelled(text, control) {
  return el("div", {class: "labelled"}, el("label", {for: control.id}, text), control);
}

/// A block of a view with a heading.
export function block(name, title, ...children) {
  return el(
    "section",
    {class: "block", "data-block": name, "aria-label": title},
    el("h3", {}, title),
    ...children,
  );
}

/// Columns of blocks, each block an object with its node.
export function blocksIn(columns) {
  return el(
    "div",
    {class: "blocks"},
    columns.map((column) =>
      el(
        "div",
        {},
        column.map((one) => one.node),
      ),
    ),
  );
}
