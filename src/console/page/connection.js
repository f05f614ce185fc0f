// The way to the console: one WebSocket that brings everything, POSTs for what is to be done.

const reconnect_ms = 1000;

/// Connects for as long as the page lives. `onMessage` gets each parsed message, `onState` whether
/// there is a connection.
export function connect(onMessage, onState) {
  const socket = new WebSocket(
    `${location.protocol === "https:" ? "wss" : "ws"}://${location.host}/ws`,
  );
  socket.addEventListener("message", (event) => onMessage(JSON.parse(event.data)));
  socket.addEventListener("open", () => onState(true));
  socket.addEventListener(
    "close",
    () => {
      onState(false);
      setTimeout(() => whenVisible(() => connect(onMessage, onState)), reconnect_ms);
    },
    {once: true},
  );
}

// A hidden page does not try again before somebody looks at it.
function whenVisible(work) {
  if (document.visibilityState === "visible") {
    work();
  } else {
    document.addEventListener("visibilitychange", work, {once: true});
  }
}

let token = document.querySelector('meta[name="console-token"]').content;

// The console makes a token per start; one that was started anew put another into the page.
async function refreshToken() {
  const page = new DOMParser().parseFromString(await (await fetch("/")).text(), "text/html");
  token = page.querySelector('meta[name="console-token"]')?.content ?? token;
}

async function send(path, body) {
  return fetch(path, {method: "POST", headers: {"X-Console-Token": token}, body});
}

/// Posts a text, or a value as JSON. @return the answer's JSON. Throws an Error with words for
/// people.
export async function post(path, body) {
  const text = typeof body === "string" ? body : JSON.stringify(body);
  let response;
  try {
    response = await send(path, text);
    if (response.status === 403) {
      await refreshToken();
      response = await send(path, text);
    }
  } catch {
    throw new Error("The console does not answer.");
  }
  return answerOf(response);
}

/// Likewise with GET.
export async function get(path, signal) {
  let response;
  try {
    response = await fetch(path, {signal});
  } catch (error) {
    throw error.name === "AbortError" ? error : new Error("The console does not answer.");
  }
  return answerOf(response);
}

async function answerOf(response) {
  let answer = null;
  try {
    answer = await response.json();
  } catch {
    // the status says enough
  }
  if (!response.ok || answer?.ok === false) {
    throw new Error(answer?.error ?? `The console refused it (${response.status}).`);
  }
  return answer ?? {};
}

/// The path of what can be done with one camera.
export const cameraPath = (sn, rest) => `/api/cameras/${encodeURIComponent(sn)}/${rest}`;
