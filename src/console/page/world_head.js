// The head and the present scene, drawn anew every two seconds while somebody looks.
import {act, button, note, request} from "./actions.js";
import {cameraPath} from "./connection.js";
import {block, el, setText} from "./dom.js";

export function head(section, desk) {
  const scene = el("img", {
    id: "scene",
    alt: "The present scene",
    width: 640,
    height: 360,
    hidden: true,
  });
  const problem = note("scene");
  const pan = el("strong", {"data-pan": true});
  const tilt = el("strong", {"data-tilt": true});
  const moving = el("span", {class: "quiet"});
  const refresh = button("Refresh", {id: "scene-refresh"});
  const outcome = note();
  const moves = {left: 2, right: 4, up: 32, down: 16};
  const arrows = Object.entries(moves).map(([name, type]) =>
    mover(name, () => request(desk, "set_cloud_ctrl", {type})),
  );
  arrows.push(
    mover("stop", async () => {
      await request(desk, "set_cloud_ctrl", {type: 8});
      return request(desk, "set_cloud_ctrl", {type: 64});
    }),
  );
  function mover(name, work) {
    const node = button(name[0].toUpperCase() + name.slice(1), {"data-move": name});
    node.addEventListener("click", () => act(node, outcome, work));
    return node;
  }

  // One picture at a time, for as long as somebody looks; a slow one is given up.
  const every_ms = 2000;
  const patience_ms = 5000;
  let timer = null;
  let loading = null;
  let of = null;
  const visible = () =>
    !section.hidden && !desk.isElsewhere() && document.visibilityState === "visible";
  async function load() {
    clearTimeout(timer);
    loading?.abort();
    const mine = new AbortController();
    loading = mine;
    scene.hidden ||= desk.chosen !== of;
    of = desk.chosen;
    const too_slow = setTimeout(() => mine.abort(), patience_ms);
    try {
      if (desk.chosen !== null) {
        scene.src = await dataUrl(
          await picture(cameraPath(desk.chosen, `scene.jpg?at=${Date.now()}`), mine.signal),
        );
        scene.hidden = false;
        setText(problem, "");
      }
    } catch (error) {
      if (loading === mine) {
        setText(
          problem,
          error.name === "AbortError" ? "The picture takes too long." : error.message,
        );
      }
    }
    clearTimeout(too_slow);
    if (loading === mine) {
      loading = null;
      if (visible()) {
        timer = setTimeout(load, every_ms);
      }
    }
  }
  const stop = () => {
    clearTimeout(timer);
    loading?.abort();
    loading = null;
  };
  refresh.addEventListener("click", load);
  document.addEventListener("visibilitychange", () => {
    if (visible()) {
      void load();
    } else {
      stop();
    }
  });
  return {
    node: block(
      "head",
      "The head and what it sees",
      scene,
      problem,
      el("p", {}, "Pan ", pan, ", tilt ", tilt, " ", moving),
      el("div", {class: "inline"}, arrows, refresh),
      outcome,
    ),
    show: load,
    hide: stop,
    update({head: state}) {
      if (desk.chosen !== of && visible()) {
        void load();
      }
      setText(pan, state ? `${state.pan}°` : "?");
      setText(tilt, state ? `${state.tilt}°` : "?");
      setText(moving, state?.is_panning || state?.is_tilting ? "it moves" : "");
    },
  };
}

async function picture(path, signal) {
  const response = await fetch(path, {signal});
  if (!response.ok) {
    const words = await response.json().catch(() => null);
    throw new Error(words?.error ?? `No picture (${response.status}).`);
  }
  return response.blob();
}

function dataUrl(blob) {
  return new Promise((resolve, reject) => {
    const reader = new FileReader();
    reader.onload = () => resolve(reader.result);
    reader.onerror = () => reject(new Error("The picture cannot be read."));
    reader.readAsDataURL(blob);
  });
}
