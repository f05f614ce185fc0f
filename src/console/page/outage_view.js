// Outage: the link between agent and broker is cut, frozen, slowed and made whole; what happened in
// words, and what came of it.
import {act, button, command, note, request} from "./actions.js";
import {cameraPath, post} from "./connection.js";
import {block, blocksIn, el, labelled, reconcile, setAttribute, setText} from "./dom.js";
import {clock} from "./texts.js";

export function createOutageView(section, desk) {
  const columns = [
    [link(), deeds(desk)],
    [ledger(), told()],
  ];
  const blocks = columns.flat();
  section.append(blocksIn(columns));
  return {update: () => blocks.forEach((one) => one.update(desk))};
}

const numeric = (id, value) =>
  el("input", {type: "text", inputmode: "numeric", id, value, size: 8, autocomplete: "off"});
// What is no number is sent as it is: the console says what it wants.
const numberOf = (input) => (/^\d+$/.test(input.value) ? Number(input.value) : input.value);

function link() {
  const state = el("p");
  const outcome = note("link");
  const delay = numeric("limp-delay", "200");
  const bytes = numeric("limp-bytes", "20000");
  const buttons = [
    ["cut", "Cut it"],
    ["frozen", "Freeze it"],
    ["limping", "Let it limp"],
    ["whole", "Make it whole"],
  ].map(([mode, text]) => {
    const node = button(text, {"data-link": mode, "aria-pressed": "false"});
    node.addEventListener("click", () =>
      act(node, outcome, async () => {
        await post(
          "/api/link",
          mode === "limping"
            ? {mode, delay_ms: numberOf(delay), bytes_per_second: numberOf(bytes)}
            : {mode},
        );
        return "";
      }),
    );
    return node;
  });
  const node = block(
    "link",
    "The link from the agent to the broker",
    state,
    el("div", {class: "inline"}, buttons),
    el(
      "div",
      {class: "inline"},
      labelled("Limping: delay, ms", delay),
      labelled("bytes per second", bytes),
    ),
    outcome,
  );
  return {
    node,
    update({desk: {link: now}}) {
      const texts = {
        whole: "It is whole.",
        cut: "It is cut: connections are closed and refused.",
        frozen: "It is frozen: it stands, and nothing passes.",
        limping: `It limps: ${now?.delay_ms} ms late, ${now?.bytes_per_second} bytes a second.`,
      };
      setAttribute(node, "data-link-mode", now?.mode ?? "");
      setText(
        state,
        now
          ? `${texts[now.mode] ?? now.mode} ${now.connections === 1 ? "1 connection" : `${now.connections} connections`}.`
          : "The agent's link does not go through the console, so it cannot be cut here.",
      );
      buttons.forEach((one) => setAttribute(one, "aria-pressed", one.dataset.link === now?.mode));
    },
  };
}

function deeds(desk) {
  const deed = (id, text, work, ...before) => {
    const node = button(text, {id});
    const outcome = note(id);
    node.addEventListener("click", () => act(node, outcome, work));
    return {node, row: el("div", {class: "inline"}, before, node, outcome)};
  };
  const restart = deed("restart-agent", "Restart the agent", async () => {
    await post(cameraPath(desk.chosen, "restart-agent"), {});
    return "It was told to end; ./dev run starts it again.";
  });
  const cars = deed("ten-cars", "Ten cars", async (say) => {
    for (let i = 1; i <= 10; ++i) {
      await command(desk, {command: "car"});
      say(`${i} of 10 passed.`);
    }
    return "Ten cars passed.";
  });
  const count = numeric("push-count", "100");
  const push = deed(
    "push",
    "Push",
    async () => {
      await request(desk, "check_offline_record", {
        enable: "push",
        max_count: numberOf(count),
        min_id: 0,
      });
      return "The re-delivery was accepted: one result each five seconds.";
    },
    labelled("Stored results to deliver again", count),
  );
  return {
    node: block("deeds", "Meanwhile", cars.row, restart.row, push.row),
    update() {
      cars.node.disabled = desk.isElsewhere();
      cars.node.title = desk.isElsewhere() ? "The camera is not on the console's bus." : "";
      const can = desk.camera()?.can_restart_agent ?? false;
      restart.node.disabled = !can;
      restart.node.title = can ? "" : "The console was not told the agent's process (--agent-pid).";
    },
  };
}

function told() {
  const list = el("ol", {
    id: "told",
    class: "told",
    "aria-live": "polite",
    "aria-relevant": "additions",
    "aria-label": "What happened, the newest first",
    tabindex: 0,
  });
  const empty = el(
    "p",
    {class: "empty"},
    "Nothing has happened yet. Cut the link, have ten cars pass, make it whole.",
  );
  return {
    node: block("told", "What happened", empty, list),
    update({told: lines}) {
      empty.hidden = lines.length > 0;
      reconcile(
        list,
        [...lines].reverse(),
        (line) => line.n,
        (line) => ({
          node: el(
            "li",
            {"data-told": line.n, "data-level": line.level},
            el("span", {class: "time"}, clock(line.at_us, false)),
            el("span", {}, line.text),
          ),
        }),
      );
    },
  };
}

function ledger() {
  const sentence = el("p", {id: "outage-line", class: "outage-line", role: "status"});
  const titles = {
    stored: "stored",
    arrived: "arrived",
    left: "left",
    lost: "lost",
    twice: "came twice",
  };
  const numbers = Object.fromEntries(
    Object.keys(titles).map((name) => [name, el("dd", {"data-ledger": name})]),
  );
  const list = el(
    "dl",
    {class: "ledger"},
    Object.entries(titles).map(([name, text]) => el("div", {}, el("dt", {}, text), numbers[name])),
  );
  const node = block("ledger", "What came of it", sentence, list);
  node.id = "outage";
  return {
    node,
    update(desk) {
      const {outage} = desk.desk;
      setAttribute(node, "data-running", outage ? outage.running : "");
      setText(
        sentence,
        outage?.line ||
          (outage
            ? "The outage is under way."
            : desk.isElsewhere()
              ? "This camera is not on the console's bus: what it stores is not counted, so nothing can be said of what is lost."
              : "There was no outage yet."),
      );
      list.hidden = !outage;
      for (const [name, number] of Object.entries(numbers)) {
        setText(number, outage?.[name] ?? "");
        setAttribute(number, "data-bad", (name === "lost" && outage?.lost > 0) || null);
      }
    },
  };
}
