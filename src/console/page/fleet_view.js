// Fleet: every camera that the console knows, in a row of its own.
import {field} from "./actions.js";
import {el, labelled, reconcile, setAttribute, setText} from "./dom.js";
import {count, moment} from "./texts.js";

// Of many cameras something is always new.
const redraw_ms = 500;

// What each column is sorted by, null where that is not known, and what its first click does.
const columns = [
  {name: "sn", title: "Serial number", of: (row) => row.sn, down: false},
  {name: "online", title: "State", of: ({camera}) => Number(camera.online), down: false},
  {name: "rate", title: "Results a minute", of: rateOf, down: true},
  {name: "backlog", title: "Undelivered", of: backlogOf, down: true},
  {name: "plate", title: "Last plate", of: ({recent}) => recent?.plate ?? null, down: false},
  {name: "plate_at", title: "When", of: ({recent}) => recent?.plate_at_us ?? null, down: true},
  {name: "since", title: "State since", of: sinceOf, down: true},
];

function rateOf({recent}) {
  return recent?.per_minute ?? 0;
}

function backlogOf({camera}) {
  return camera.backlog?.count ?? null;
}

// When the console saw it come or go; of one that was there before, when its agent was started.
function sinceOf({camera: {online, since_us, started_at}}) {
  return since_us ?? (online && Number.isInteger(started_at) ? started_at * 1e6 : null);
}

export function createFleetView(section, desk) {
  const totals = el("p", {id: "fleet-totals", class: "totals"});
  const filter = field("fleet-filter", {type: "search"});
  const none = el("p", {class: "empty"});
  const rows = el("tbody");
  const heads = columns.map((column) => headOf(column, () => sortBy(column)));
  const place = el(
    "div",
    {class: "fleet", role: "region", "aria-labelledby": "title-fleet", tabindex: 0},
    el("table", {id: "fleet"}, el("thead", {}, el("tr", {}, heads.map(({node}) => node))), rows),
  );
  section.append(totals, labelled("Serial numbers with", filter), none, place);
  filter.addEventListener("input", draw);

  let known = new Map(); // a row by serial number, the same one while nothing of it has changed
  let shown = [];
  let sorted = {column: columns[0], down: false};
  let drawn_at = -Infinity;
  let later = null;

  function sortBy(column) {
    sorted = {column, down: sorted.column === column ? !sorted.down : column.down};
    draw();
  }

  function draw() {
    drawn_at = performance.now();
    known = rowsOf(desk, known);
    const wanted = filter.value.trim().toLowerCase();
    const matching = [...known.values()].filter((row) => row.sn.toLowerCase().includes(wanted));
    // No row is moved from under somebody's keyboard.
    shown = rows.contains(document.activeElement)
      ? shown.map((row) => known.get(row.sn)).filter(Boolean)
      : matching.sort(inOrderOf(sorted));
    reconcile(rows, shown, (row) => row.sn, rowNode);
    heads.forEach((head) => head.update(sorted));
    setText(totals, totalsOf(shown, known.size));
    place.hidden = shown.length === 0;
    none.hidden = shown.length > 0;
    setText(
      none,
      known.size === 0
        ? "No camera was heard of yet. Each is in the list once its status is at the broker."
        : "No camera has this in its serial number.",
    );
  }

  function rowNode(first) {
    const name = el("a", {href: "#live", onclick: () => desk.choose(first.sn)}, first.sn);
    const word = el("span", {class: "word"});
    const cells = Object.fromEntries(
      columns.slice(2).map((column) => [column.name, el("td", {"data-field": column.name})]),
    );
    const state = el(
      "td",
      {"data-field": "online"},
      el("span", {class: "dot", "aria-hidden": "true"}),
      word,
    );
    const node = el(
      "tr",
      {"data-sn": first.sn},
      el("th", {scope: "row"}, name),
      state,
      Object.values(cells),
    );
    const update = (row) => {
      const {camera, recent} = row;
      setAttribute(state, "data-ok", camera.online);
      setText(word, camera.online ? "online" : "offline");
      setText(cells.rate, rateOf(row).toLocaleString("en"));
      setText(cells.backlog, backlogOf(row)?.toLocaleString("en") ?? "?");
      setAttribute(cells.backlog, "data-some", backlogOf(row) > 0 || null);
      setText(cells.plate, recent ? recent.plate || "no plate" : "–");
      setText(cells.plate_at, recent ? moment(recent.plate_at_us) : "–");
      setText(cells.since, sinceText(row));
    };
    update(first);
    return {node, update};
  }

  return {
    show() {
      drawn_at = -Infinity;
    },
    update() {
      const rest_ms = drawn_at + redraw_ms - performance.now();
      if (rest_ms <= 0) {
        draw();
      } else {
        later ??= setTimeout(() => {
          later = null;
          draw();
        }, rest_ms);
      }
    },
    hide() {
      clearTimeout(later);
      later = null;
    },
  };
}

function rowsOf(desk, before) {
  const rows = new Map();
  for (const sn of desk.serialNumbers()) {
    const row = before.get(sn);
    const [camera, recent] = [desk.cameras[sn], desk.recent[sn]];
    rows.set(sn, row?.camera === camera && row.recent === recent ? row : {sn, camera, recent});
  }
  return rows;
}

// What is not known comes last, whichever way they are sorted.
function inOrderOf({column, down}) {
  return (one, other) => {
    const [a, b] = [column.of(one), column.of(other)];
    if (a === b) {
      return one.sn < other.sn ? -1 : 1;
    }
    if (a === null || b === null) {
      return a === null ? 1 : -1;
    }
    return a < b === down ? 1 : -1;
  };
}

function headOf(column, onClick) {
  const arrow = el("span", {class: "arrow", "aria-hidden": "true"});
  const node = el(
    "th",
    {scope: "col", "data-column": column.name},
    el("button", {type: "button", onclick: onClick}, column.title, arrow),
  );
  return {
    node,
    update(sorted) {
      const is_it = sorted.column === column;
      setAttribute(node, "aria-sort", is_it ? (sorted.down ? "descending" : "ascending") : null);
      setText(arrow, is_it ? (sorted.down ? " ▼" : " ▲") : "");
    },
  };
}

function sinceText(row) {
  const at_us = sinceOf(row);
  return at_us === null ? "–" : `${moment(at_us)}${row.camera.since_us ? "" : ", its agent's start"}`;
}

function totalsOf(rows, known) {
  const sum = (of) => rows.reduce((total, row) => total + (of(row) ?? 0), 0);
  const cameras =
    rows.length === known
      ? count(known, "camera")
      : `${rows.length.toLocaleString("en")} of ${count(known, "camera")}`;
  return [
    cameras,
    `${sum(({camera}) => Number(camera.online)).toLocaleString("en")} online`,
    `${count(sum(rateOf), "result")} a minute`,
    `${sum(backlogOf).toLocaleString("en")} undelivered`,
  ].join(", ");
}
