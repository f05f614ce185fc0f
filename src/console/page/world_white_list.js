// The white list as a table, changed by requests.
import {act, button, field, form, note, request} from "./actions.js";
import {cameraPath, get} from "./connection.js";
import {block, el, labelled, reconcile, setText} from "./dom.js";

export function whiteList(section, desk) {
  const modes = [
    "0: no check",
    "1: a listed plate opens the gate",
    "2: besides, an unlisted one closes it",
  ];
  const body = el("tbody");
  const summary = el("caption", {});
  const outcome = note();
  const plate = field("white-plate");
  const add = button("Add", {id: "white-add"});
  const mode = el(
    "select",
    {id: "white-mode"},
    modes.map((text, i) => el("option", {value: i}, text)),
  );
  const set = button("Set", {id: "white-set"});
  const now = el("p");
  const change = async (to) => {
    const text = await request(desk, "white_list_operator", to);
    await load();
    return text;
  };
  const row = ({plate: listed}) => {
    const remove = button("Remove", {"data-delete": true, "aria-label": `Remove ${listed}`});
    remove.addEventListener("click", () =>
      act(remove, outcome, () => change({operator_type: "delete", plate: listed})),
    );
    const more = el("td");
    const node = el(
      "tr",
      {"data-plate": listed},
      el("th", {scope: "row"}, listed),
      more,
      el("td", {}, remove),
    );
    const update = ({plate: _, ...rest}) =>
      setText(more, Object.keys(rest).length ? JSON.stringify(rest) : "");
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
    const mine = (loading = new AbortController());
    if (of !== desk.chosen) {
      reconcile(
        body,
        [],
        () => "",
        () => null,
      );
    }
    of = desk.chosen;
    try {
      const answer = await get(cameraPath(of, "white-list"), mine.signal);
      const records = (answer.white_list ?? []).filter((one) => typeof one?.plate === "string");
      reconcile(
        body,
        records,
        (one) => one.plate,
        (one) => {
          const made = row(one);
          made.update(one);
          return made;
        },
      );
      setText(
        summary,
        `${answer.total} on the list${answer.total > records.length ? `, ${records.length} shown` : ""}`,
      );
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
    node: block(
      "white-list",
      "White list",
      now,
      form(labelled("What the check does", mode), set, outcome, () =>
        request(desk, "wl_check_status", {cmd: "set", filter_enable: Number(mode.value)}),
      ),
      form(labelled("Plate", plate), add, outcome, () =>
        change({operator_type: "update_or_add", dldb_rec: {plate: plate.value}}),
      ),
      outcome,
      el(
        "div",
        {class: "scroll", tabindex: 0, role: "group", "aria-label": "White list"},
        el(
          "table",
          {},
          summary,
          el(
            "thead",
            {},
            el(
              "tr",
              {},
              el("th", {scope: "col"}, "Plate"),
              el("th", {scope: "col"}, "Further members"),
              el("td", {}),
            ),
          ),
          body,
        ),
      ),
    ),
    show: load,
    hide: () => loading?.abort(),
    update({white_list}) {
      setText(
        now,
        white_list ? `Now ${modes[white_list.filter_enable] ?? white_list.filter_enable}.` : "",
      );
      const is_news = white_list && white_list.plates !== count && count !== null;
      count = white_list?.plates ?? count;
      if ((is_news || desk.chosen !== of) && !section.hidden) {
        void load();
      }
    },
  };
}
