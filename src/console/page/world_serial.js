// The serial lines: what came in, what requests had the camera write, and a way to send something
// in.
import {button, command, field, form, note} from "./actions.js";
import {block, el, labelled, reconcile, setText} from "./dom.js";
import {serialData} from "./facts.js";
import {hex} from "./records.js";
import {bytesOf, clock, utf8} from "./texts.js";

const max_log = 100;

export function serial(desk) {
  const channels = [0, 1].map((channel) => {
    const log = el("ol", {
      class: "log",
      "data-log": true,
      "aria-label": `Channel ${channel}, the newest last`,
      tabindex: 0,
    });
    const counts = el("p", {class: "quiet"});
    const text = field(`serial-${channel}`);
    const outcome = note();
    const go = button("Have it come in");
    const node = el(
      "div",
      {"data-channel": channel},
      el("h4", {}, `Channel ${channel}`),
      log,
      counts,
      form(labelled("Text on the line", text), go, outcome, async () => {
        await command(desk, {command: "serial", channel, text: text.value});
        text.value = "";
        return "";
      }),
      outcome,
    );
    return {node, log, counts};
  });
  return {
    node: block(
      "serial",
      "Serial lines",
      el(
        "div",
        {class: "columns"},
        channels.map(({node}) => node),
      ),
    ),
    update({rs485}) {
      const lines = desk.newest().flatMap(serialLines);
      channels.forEach(({log, counts}, channel) => {
        const mine = lines
          .filter((line) => line.channel === channel)
          .slice(0, max_log)
          .reverse();
        const at_end = log.scrollTop + log.clientHeight >= log.scrollHeight - 4;
        reconcile(log, mine, (line) => line.key, serialNode);
        if (at_end) {
          log.scrollTop = log.scrollHeight;
        }
        const state = rs485?.[channel];
        setText(
          counts,
          state
            ? `${state.written} bytes written, ${state.read} read, ${state.dropped} dropped; ${state.link}`
            : "",
        );
      });
    },
  };
}

// What a passport says of the lines: what came in, or what a request had the camera write.
function serialLines(passport) {
  if (passport.kind === "serial") {
    const {channel, text} = serialData(passport);
    return [{key: passport.id, channel, text, way: "in", at_us: passport.at_us}];
  }
  return (passport.bus_requests ?? [])
    .filter((call) => call.queue === "EVS_RS485_WRITE")
    .map((call, i) => {
      const bytes = bytesOf(call.body) ?? new Uint8Array();
      const channel = bytes.length >= 8 ? new DataView(bytes.buffer).getInt32(4, true) : null;
      return {
        key: `${passport.id} ${i}`,
        channel,
        text: shown(bytes.subarray(8)),
        way: "out",
        at_us: call.at_us,
      };
    });
}

const shown = (bytes) => {
  const text = utf8(bytes);
  return text.includes("\ufffd") ? hex(bytes) : text;
};

function serialNode(line) {
  return {
    node: el(
      "li",
      {"data-way": line.way},
      el("span", {class: "time"}, clock(line.at_us, false)),
      el("span", {class: "way"}, line.way === "in" ? "in " : "out "),
      el("code", {}, line.text),
    ),
  };
}
