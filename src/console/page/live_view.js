// Live: a card per car as it happens, and what else the camera tells; the backlog and its
// re-delivery.
import {act, command, note} from "./actions.js";
import {codeText, hasContract} from "./contract.js";
import {max_passports} from "./desk_state.js";
import {el, reconcile, setAttribute, setText} from "./dom.js";
import {eventText, factsOf} from "./facts.js";
import {age, clock, count, passportLink, stateText} from "./texts.js";

const in_feed = new Set(["result", "lane", "input", "serial", "identity"]);

export function createLiveView(section, desk) {
  const feed = el("ol", {
    id: "feed",
    class: "feed",
    "aria-label": "Cars and events, the newest first",
  });
  const empty = el("p", {class: "empty"});
  const car = el("button", {type: "button", id: "live-car", class: "primary"}, "Have a car pass");
  const elsewhere = el(
    "p",
    {class: "quiet", id: "live-elsewhere"},
    "This camera is not on the console's bus: no car can be made to pass here, and what it does is shown once it comes at the broker.",
  );
  const outcome = note("live-car");
  outcome.id = "live-car-note";
  car.addEventListener("click", () =>
    act(car, outcome, async () => `Plate ${(await command(desk, {command: "car"})).plate} passed.`),
  );
  const backlog = backlogGauge();
  const redelivery = redeliveryGauge();
  section.append(
    el(
      "div",
      {class: "split"},
      el("div", {class: "main"}, empty, feed),
      el(
        "aside",
        {class: "side", "aria-label": "Backlog"},
        backlog.node,
        redelivery.node,
        el("div", {class: "block"}, car, elsewhere, outcome),
      ),
    ),
  );
  let had_contract = false;

  return {
    update() {
      if (hasContract() !== had_contract) {
        had_contract = hasContract();
        reconcile(
          feed,
          [],
          () => "",
          () => null,
        ); // names take the place of codes
      }
      const shown = desk
        .newest()
        .filter((passport) => in_feed.has(passport.kind) || passport.name === "offline_record");
      reconcile(
        feed,
        shown,
        (passport) => passport.id,
        (passport) => (passport.kind === "result" ? carCard(passport) : eventRow(passport)),
      );
      empty.hidden = shown.length > 0;
      setText(
        empty,
        desk.passports.size >= max_passports
          ? `None of the latest ${max_passports} messages of all cameras is of this one.`
          : "No car has passed since the console was started.",
      );
      car.disabled = desk.isElsewhere();
      elsewhere.hidden = !desk.isElsewhere();
      backlog.update(desk.camera()?.backlog ?? null, desk.nowUs());
      redelivery.update(desk.camera()?.redelivery ?? null);
    },
  };
}

// ---- what a card says

function carCard(first) {
  const scene = picture("scene", "Scene");
  const close_up = picture("close-up", "Close-up");
  const plate = el("a", {class: "plate", "data-open": true, href: passportLink(first.id)});
  const plate_text = el("span", {"data-field": "plate"});
  plate.append(plate_text);
  const again = el("span", {class: "tag"}, "re-delivered");
  const facts = {};
  const list = el(
    "dl",
    {class: "facts"},
    ["confidence", "plate-colour", "car-colour", "direction", "time"].map((name) => {
      facts[name] = el("dd", {"data-field": name});
      return el("div", {}, el("dt", {}, name.replace("-", " ")), facts[name]);
    }),
  );
  const state = el("p", {class: "state", "data-field": "state"});
  const node = el(
    "li",
    {class: "card", "data-passport": first.id, "data-kind": "result"},
    el("div", {class: "pictures"}, scene.node, close_up.node),
    el("div", {class: "words"}, el("div", {class: "head"}, plate, again), list, state),
  );

  const update = (passport) => {
    const now = factsOf(passport);
    node.dataset.state = passport.state;
    node.dataset.redelivered = String(Boolean(passport.redelivered));
    setText(plate_text, now.plate || "no plate");
    again.hidden = !passport.redelivered;
    scene.update(now.scene, now, passport);
    close_up.update(now.close_up, now, passport);
    setText(facts.confidence, now.confidence === undefined ? "–" : `${now.confidence} %`);
    swatch(
      facts["plate-colour"],
      now.colorType === undefined ? "–" : codeText("colorType", now.colorType),
      {rgb: now.colorValue},
    );
    swatch(
      facts["car-colour"],
      now.carColor === undefined ? "–" : codeText("carColor", now.carColor),
      {named: true},
    );
    setText(
      facts.direction,
      now.direction === undefined ? "–" : codeText("direction", now.direction),
    );
    setText(
      facts.time,
      clock(now.sec === undefined ? passport.at_us : now.sec * 1e6 + now.usec, false),
    );
    const copies = passport.copies > 1 ? `; came ${passport.copies} times` : "";
    setText(
      state,
      `${passport.redelivered ? "Re-delivered: " : ""}${stateText(passport)}${copies}`,
    );
  };
  update(first);
  return {node, update};
}

function swatch(node, name, {rgb = null, named = false}) {
  if (node.dataset.shown === `${name}${rgb}`) {
    return;
  }
  node.dataset.shown = `${name}${rgb}`;
  const patch = el("span", {
    class: "swatch",
    "aria-hidden": "true",
    "data-paint": named ? name : null,
  });
  if (rgb) {
    patch.style.backgroundColor = rgb;
  }
  node.replaceChildren(...(rgb || (named && name !== "–") ? [patch, " "] : []), name);
}

// A picture, or a place for it until it is published.
function picture(which, title) {
  const node = el("div", {class: `picture ${which}`});
  let shown = null;
  const placeholder = (text) =>
    node.replaceChildren(
      el("div", {class: "placeholder", "data-picture": which, "data-placeholder": true}, text),
    );
  return {
    node,
    update(path, facts, passport) {
      const wanted =
        path ?? (facts.published ? "none" : passport.state === "in_store" ? "later" : "soon");
      if (wanted === shown) {
        return;
      }
      shown = wanted;
      if (!path) {
        placeholder(
          {none: "no picture", later: "comes with its delivery", soon: "not published yet"}[wanted],
        );
        return;
      }
      const img = el("img", {
        "data-picture": which,
        alt: `${title} of ${facts.plate || "a car"}`,
        loading: "lazy",
        decoding: "async",
        src: path,
      });
      img.addEventListener("error", () => placeholder("picture is not kept any more"), {
        once: true,
      });
      node.replaceChildren(img);
    },
  };
}

// ---- lane events, inputs, serial data and the like

function eventRow(first) {
  const text = el("a", {"data-open": true, href: passportLink(first.id)});
  const time = el("span", {class: "time"});
  const node = el(
    "li",
    {class: "row", "data-passport": first.id, "data-kind": first.kind},
    time,
    text,
  );
  const update = (passport) => {
    node.dataset.state = passport.state ?? "";
    setText(time, clock(passport.at_us, false));
    setText(text, eventText(passport));
  };
  update(first);
  return {node, update};
}

// ---- gauges

function backlogGauge() {
  const number = el("strong", {class: "big"});
  const words = el("span");
  const oldest = el("p", {class: "quiet"});
  const meter = el("meter", {
    min: 0,
    "aria-label": "Undelivered, against the most of this backlog",
  });
  const node = el(
    "div",
    {class: "block gauge", "data-gauge": "backlog"},
    el("h3", {}, "Backlog"),
    el("p", {}, number, " ", words),
    meter,
    oldest,
  );
  let most = 0;
  return {
    node,
    update(backlog, now_us) {
      const n = backlog?.count ?? null;
      most = n ? Math.max(most, n) : 0;
      const seconds =
        n && backlog.oldest_age_s !== null && backlog.oldest_age_s !== undefined
          ? backlog.oldest_age_s + Math.max(0, (now_us - backlog.at_us) / 1e6)
          : null;
      setAttribute(node, "data-count", n ?? "");
      setAttribute(node, "data-oldest-s", seconds === null ? "" : Math.round(seconds));
      setText(number, n === null ? "?" : n.toLocaleString("en"));
      setText(
        words,
        n === null ? "not known" : n === 1 ? "result is undelivered" : "results are undelivered",
      );
      meter.hidden = !n;
      meter.max = Math.max(most, 1);
      meter.optimum = 0;
      meter.low = meter.max / 3;
      meter.high = (2 * meter.max) / 3;
      meter.value = n ?? 0;
      setText(meter, `${n ?? 0} of ${most}`);
      setText(
        oldest,
        seconds !== null
          ? `The oldest is ${age(seconds)} old.`
          : n
            ? "Age of the oldest: not known."
            : n === 0
              ? "Everything is delivered."
              : "",
      );
    },
  };
}

function redeliveryGauge() {
  const bar = el("progress", {"aria-label": "Re-delivery"});
  const words = el("p");
  const node = el(
    "div",
    {class: "block gauge", "data-gauge": "redelivery", hidden: true},
    el("h3", {}, "Re-delivery"),
    bar,
    words,
  );
  return {
    node,
    update(redelivery) {
      node.hidden = !redelivery;
      if (!redelivery) {
        return;
      }
      const {running, done, left, per_second, to_go_s} = redelivery;
      setAttribute(node, "data-running", running);
      setAttribute(node, "data-done", done);
      setAttribute(node, "data-left", left);
      bar.max = Math.max(done + left, 1);
      bar.value = done;
      const rate =
        per_second > 0
          ? `, ${per_second >= 1 ? `${per_second.toFixed(1)} a second` : `one each ${age(1 / per_second)}`}`
          : "";
      const to_go =
        running && to_go_s !== null && to_go_s !== undefined ? `, ${age(to_go_s)} to go` : "";
      setText(
        words,
        running
          ? `${done} done, ${left} left${rate}${to_go}.`
          : `Ended: ${count(done, "result")} delivered again, ${left} left.`,
      );
    },
  };
}
