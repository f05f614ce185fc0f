// What a button does, and the words beside it on how that went.
import {cameraPath, post} from "./connection.js";
import {el} from "./dom.js";
import {milliseconds, parsed} from "./texts.js";

/// The place for such words.
export const note = (name = true) => el("p", {class: "note", "data-note": name, role: "status"});

/// Runs `work` once; meanwhile the button does nothing. Its text, or what went wrong, goes into the
/// note.
export async function act(button, outcome, work) {
  if (button.getAttribute("aria-disabled") === "true") {
    return;
  }
  button.setAttribute("aria-disabled", "true");
  say(outcome, "…");
  try {
    say(outcome, await work((text) => say(outcome, text)), "good");
  } catch (error) {
    say(outcome, error.message, "bad");
  }
  button.removeAttribute("aria-disabled");
}

function say(outcome, text, level = "info") {
  outcome.dataset.level = level;
  outcome.textContent = text ?? "";
}

export const button = (text, attributes = {}) =>
  el("button", {type: "button", ...attributes}, text);
export const field = (id, attributes = {}) =>
  el("input", {type: "text", id, autocomplete: "off", spellcheck: "false", ...attributes});

/// A form: enter does what its button does.
export function form(contents, go, outcome, work) {
  const node = el("form", {class: "inline", novalidate: true}, contents, go);
  go.type = "submit";
  node.addEventListener("submit", (event) => {
    event.preventDefault();
    void act(go, outcome, work);
  });
  return node;
}

/// Has the camera do something: a command of camera_ctl.
export const command = (desk, what) => post(cameraPath(chosen(desk), "world"), what);

/// Sends a request's text; @return the id of its passport.
export async function sendText(desk, name, text) {
  return (await post(cameraPath(chosen(desk), `requests/${encodeURIComponent(name)}`), text))
    .passport;
}

/// Sends a request and waits for its response. @return how long that took, in words. Throws what is
/// wrong.
export async function request(desk, name, body) {
  const id = await sendText(
    desk,
    name,
    JSON.stringify({version: "1.0", payload: {type: name, body}}),
  );
  const passport = await desk.answered(id);
  if (passport?.state !== "answered") {
    throw new Error("There was no answer.");
  }
  const answer = parsed(passport.response?.payload);
  if (answer?.result !== true) {
    throw new Error(`${answer?.code ?? "refused"}: ${answer?.error ?? "no reason given"}`);
  }
  const refused = answer.bus?.find((one) => one.state_code !== undefined && one.state_code !== 200);
  if (refused) {
    throw new Error(
      `The camera's service refused it: ${refused.device_error ?? refused.state_code}`,
    );
  }
  return `Done in ${milliseconds(passport.response.us / 1000)}.`;
}

function chosen(desk) {
  if (desk.chosen === null) {
    throw new Error("There is no camera.");
  }
  return desk.chosen;
}
