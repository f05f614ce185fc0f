// Words and numbers as the page writes them.

const two = (n) => String(n).padStart(2, "0");

/// 14:03:07.123 in the time zone of whoever looks.
export function clock(at_us, with_ms = true) {
  const date = new Date(at_us / 1000);
  const text = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
  return with_ms ? `${text}.${String(date.getMilliseconds()).padStart(3, "0")}` : text;
}

/// 14:03:07; of another day 2026-03-01 14:03:07.
export function moment(at_us) {
  const date = new Date(at_us / 1000);
  const day = `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} `;
  return `${date.toDateString() === new Date().toDateString() ? "" : day}${clock(at_us, false)}`;
}

/// 0.35 ms, 12.4 ms, 310 ms, 2.5 s, 3 min 10 s.
export function milliseconds(ms) {
  if (ms < 0) {
    return `\u2212${milliseconds(-ms)}`;
  }
  if (ms < 10) {
    return `${Number(ms.toFixed(2))} ms`;
  }
  if (ms < 1000) {
    return `${Number(ms.toFixed(ms < 100 ? 1 : 0))} ms`;
  }
  return ms < 60000 ? `${Number((ms / 1000).toFixed(1))} s` : age(ms / 1000);
}

/// 12 s, 3 min 10 s, 2 h 5 min, 3 d 4 h.
export function age(seconds) {
  const s = Math.max(0, Math.round(seconds));
  if (s < 60) {
    return `${s} s`;
  }
  if (s < 3600) {
    return `${Math.floor(s / 60)} min${s % 60 ? ` ${s % 60} s` : ""}`;
  }
  return s < 86400
    ? `${Math.floor(s / 3600)} h ${Math.floor(s / 60) % 60} min`
    : `${Math.floor(s / 86400)} d ${Math.floor(s / 3600) % 24} h`;
}

export const count = (n, one, many = `${one}s`) =>
  `${n.toLocaleString("en")} ${n === 1 ? one : many}`;

/// What became of a passport, in words.
export function stateText(passport) {
  const ack =
    passport.ack_us === undefined
      ? "acknowledged"
      : `acknowledged after ${milliseconds(passport.ack_us / 1000)}`;
  const texts = {
    stored: "in the store",
    announced: "in the store and on the bus",
    handed_over: "handed over to the plug-in",
    published: "published, not acknowledged yet",
    acknowledged: ack,
    delivered:
      passport.ack_us === undefined ? "marked as delivered" : `${ack}, marked as delivered`,
    unconfirmed: "link lost before it was acknowledged; it stays in the store",
    in_store: "in the store, waits to be delivered again",
    refused: "refused by the broker; it stays in the store",
    sent: "sent",
    running: "is being carried out",
    answered: "answered",
    unanswered: "not answered",
  };
  return texts[passport.state] ?? String(passport.state ?? "");
}

const step_texts = {
  stored: "in the camera's store",
  announced: "announced by the camera",
  on_the_bus: "on the bus",
  handed_over: "handed over to the plug-in",
  published: "published by the agent",
  at_the_broker: "passed on by the broker",
  acknowledged: "acknowledged by the broker",
  delivered: "marked as delivered",
  not_published: "not published",
  unconfirmed: "link lost before it was acknowledged",
  received: "received by the agent",
  sent: "sent",
  begun: "its turn began",
  answered: "answered",
};
export const stepText = (step) => step_texts[step.what] ?? step.what;

const outcome_texts = {
  answered: "the service replied",
  nobody: "no service listens on the queue",
  timed_out: "no reply in time",
  not_connected: "the bus is not there",
};
export const outcomeText = (outcome) => outcome_texts[outcome] ?? outcome;

const kind_texts = {
  result: "car",
  request: "request",
  lane: "lane event",
  input: "input",
  serial: "serial data",
  message: "message",
  identity: "name or address",
};
export const kindText = (kind) => kind_texts[kind] ?? kind;

/// The way to a passport; its id keeps its slashes.
export const passportLink = (id) => `#passport/${id.split("/").map(encodeURIComponent).join("/")}`;

/// Bytes of Base64; null when it is none.
export function bytesOf(base64) {
  try {
    return Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
  } catch {
    return null;
  }
}

const decoder = new TextDecoder();
export const utf8 = (bytes) => decoder.decode(bytes);

/// Text that is Base64 of UTF-8; null when it is none.
export function decoded(base64) {
  const bytes = bytesOf(base64);
  return bytes ? utf8(bytes) : null;
}

export const base64Of = (text) => btoa(String.fromCharCode(...new TextEncoder().encode(text)));

/// A JSON text's value; undefined when it is none.
export function parsed(text) {
  try {
    return JSON.parse(text);
  } catch {
    return undefined;
  }
}

/// The page's own path of a published picture, whatever name this machine was called by; null when
/// the picture is elsewhere.
export function picturePath(reference) {
  const url = reference ? urlOf(reference) : null;
  return url && /^https?:$/.test(url.protocol) && url.pathname.startsWith("/pictures/")
    ? url.pathname
    : null;
}

function urlOf(text) {
  try {
    return new URL(text);
  } catch {
    return null;
  }
}
