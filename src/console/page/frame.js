// What stands above every view: the camera chooser, the line of states and what to do about a piece
// that is away.
import {el, reconcile, setAttribute, setText} from "./dom.js";

const many_cameras = 30;
const by_itself = "On the desk ./dev run starts it again by itself within a moment";

export function createFrame(desk) {
  const chooser = createChooser(desk);
  const parts = document.getElementById("parts");
  const missing = document.getElementById("missing");

  return {
    update() {
      document.body.dataset.connected = String(desk.connected);
      document.getElementById("console-away").hidden =
        desk.connected || !document.body.dataset.tried;
      chooser.update();
      reconcile(parts, partsOf(desk), (part) => part.name, partNode);
      reconcile(missing, desk.connected ? missingOf(desk) : [], (piece) => piece.name, missingNode);
    },
  };
}

// A list of few cameras; of many a text input that offers those with the text in their name.
function createChooser(desk) {
  const list = document.getElementById("camera-chooser");
  const input = document.getElementById("camera-name");
  const label = document.getElementById("camera-label");
  let drawn = null;
  list.addEventListener("change", () => desk.choose(list.value));
  input.addEventListener("focus", () => input.select());
  input.addEventListener("change", () => {
    if (desk.cameras[input.value]) {
      desk.choose(input.value);
    }
    input.value = desk.chosen ?? "";
  });

  return {
    update() {
      const cameras = desk.serialNumbers();
      const are_many = cameras.length > many_cameras;
      const control = are_many ? input : list;
      if (cameras !== drawn) {
        drawn = cameras;
        list.hidden = are_many;
        input.hidden = !are_many;
        label.htmlFor = control.id;
        reconcile(
          are_many ? document.getElementById("camera-names") : list,
          cameras,
          (sn) => sn,
          (sn) => ({node: el("option", {value: sn}, are_many ? null : sn)}),
        );
        control.disabled = cameras.length === 0;
      }
      if (
        desk.chosen !== null &&
        control.value !== desk.chosen &&
        document.activeElement !== input
      ) {
        control.value = desk.chosen;
      }
    },
  };
}

function partNode(part) {
  const word = el("span", {class: "word"});
  const node = el(
    "li",
    {"data-part": part.name},
    el("span", {class: "dot", "aria-hidden": "true"}),
    el("span", {class: "name"}, part.title),
    " ",
    word,
  );
  const update = ({ok, text}) => {
    setAttribute(node, "data-ok", ok);
    setText(word, text);
  };
  update(part);
  return {node, update};
}

function missingNode(piece) {
  const text = el("p");
  const node = el("div", {class: "notice", "data-missing": piece.name}, text);
  const update = (now) => {
    setAttribute(node, "data-why", now.why);
    setText(text, now.text);
  };
  update(piece);
  return {node, update};
}

function partsOf(desk) {
  const {broker, bus, link} = desk.desk;
  const camera = desk.camera();
  const known = (part, yes, no) =>
    !desk.connected || !part
      ? {ok: "unknown", text: "unknown"}
      : part.connected
        ? {ok: "true", text: yes}
        : {ok: "false", text: no};
  return [
    {name: "broker", title: "Broker", ...known(broker, "connected", "away")},
    {
      name: "bus",
      title: "Bus",
      ...(bus === null ? {ok: "unknown", text: "none"} : known(bus, "connected", "away")),
    },
    {name: "camera", title: "Camera", ...cameraPart(desk, camera)},
    {name: "agent", title: "Agent", ...agentPart(desk, camera)},
    {name: "link", title: "Link", ...linkPart(desk, link)},
  ];
}

function cameraPart(desk, camera) {
  if (!desk.connected || !camera) {
    return {ok: "unknown", text: "unknown"};
  }
  if (!camera.on_desk) {
    return {ok: "unknown", text: "on another bus"};
  }
  if (!camera.world) {
    return {ok: "false", text: "away"};
  }
  return camera.world.power?.is_up === false
    ? {ok: "false", text: "restarting"}
    : {ok: "true", text: "there"};
}

function agentPart(desk, camera) {
  if (!desk.connected || !camera || !desk.desk.broker?.connected) {
    return {ok: "unknown", text: "unknown"};
  }
  return camera.online ? {ok: "true", text: "online"} : {ok: "false", text: "offline"};
}

function linkPart(desk, link) {
  if (!desk.connected || !desk.desk.broker) {
    return {ok: "unknown", text: "unknown"};
  }
  if (!link) {
    return {ok: "unknown", text: "direct"};
  }
  const limps = `limping: ${link.delay_ms} ms, ${link.bytes_per_second} bytes/s`;
  return {ok: String(link.mode === "whole"), text: link.mode === "limping" ? limps : link.mode};
}

function missingOf(desk) {
  const {broker, bus, link} = desk.desk;
  const camera = desk.camera();
  const out = [];
  if (broker && !broker.connected) {
    out.push({
      name: "broker",
      text: `The broker at ${broker.address} does not answer. ${by_itself}; with a broker of your own look at its log.`,
    });
  }
  if (bus && !bus.connected) {
    out.push({
      name: "camera",
      why: "bus",
      text: `The camera's bus at ${bus.address} does not answer, so the camera cannot be reached. ${by_itself}; elsewhere look at the bus server's log.`,
    });
  } else if (
    camera
      ? camera.on_desk && !camera.world && camera.world_error
      : desk.serialNumbers().length === 0 && broker
  ) {
    out.push(
      camera
        ? {
            name: "camera",
            why: "silent",
            text: `The camera does not answer on the bus (${camera.world_error}). ${by_itself}; elsewhere start virtual_camera on this bus. Its results are in its store.`,
          }
        : {
            name: "camera",
            why: "none",
            text: "No camera was heard of yet. ./dev run starts one; elsewhere start virtual_camera and cloud_agent, both with --trace.",
          },
    );
  }
  if (camera && !camera.online && broker?.connected && (!link || link.mode === "whole")) {
    out.push({
      name: "agent",
      text: `The agent of ${desk.chosen} is not connected to the broker, so nothing is published and no request arrives. ${by_itself}; an agent of your own: look at its log. What the camera recognises meanwhile stays in its store.`,
    });
  }
  return out;
}
