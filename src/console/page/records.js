// The binary records on the bus: where each field lies and what its bytes say. Little-endian.
import {codeText} from "./contract.js";
import {clock, utf8} from "./texts.js";

// Offset, type, key in the published JSON, what it is.
const result_fields = [
  [0, "text16", "license", "plate"],
  [16, "text8", "colorValue", "plate colour, hexadecimal"],
  [24, "i32", "colorType", "plate colour", "colorType"],
  [28, "i32", "type", "plate type", "type"],
  [32, "i32", "confidence", "confidence"],
  [36, "i32", "bright", "brightness of the plate"],
  [40, "i32", "direction", "direction", "direction"],
  ...rectangle(44, "location", "plate"),
  [60, "i32", "timeUsed", "recognition time"],
  [64, "u32", "timeStamp.Timeval.sec", "capture time, seconds since 1970", "time"],
  [68, "u32", "timeStamp.Timeval.usec", "microseconds"],
  [72, "u32", "triggerType", "trigger", "triggerType"],
  [76, "u8", "carBright", "brightness of the vehicle"],
  [77, "u8", "carColor", "vehicle colour", "carColor"],
  [80, "u32", "plateid", "plate id"],
  [84, "u8", "timeStamp.Timeval.decsec", "second"],
  [85, "u8", "timeStamp.Timeval.decmin", "minute"],
  [86, "u8", "timeStamp.Timeval.dechour", "hour"],
  [87, "u8", "timeStamp.Timeval.decday", "day"],
  [88, "u8", "timeStamp.Timeval.decmon", "month"],
  [92, "u32", "timeStamp.Timeval.decyear", "year"],
  [101, "u8", "plate_true_width", "width of the plate"],
  [102, "u8", "plate_distance", "distance of the plate"],
  [103, "u8", "is_fake_plate", "a false plate"],
  ...rectangle(104, "car_location", "vehicle"),
  [120, "u8", "car_brand.brand", "make"],
  [121, "u8", "car_brand.type", "model"],
  [122, "u16", "car_brand.year", "model year"],
  [144, "u8", "license_ext_type", "extended plate type"],
  [296, "text128", "imagePath", "path of the whole picture"],
  [424, "text128", "imageFragmentPath", "path of the close-up"],
];
const gpio_fields = [
  [0, "i32", "io", "output"],
  [4, "i32", "value", "0 or 1: hold, 2: pulse"],
  [8, "i32", "delay", "length of the pulse, ms"],
];
const serial_fields = [
  [0, "i32", "header", "header word, 111"],
  [4, "i32", "serialChannel", "channel"],
  [8, "rest", "data", "data"],
];

function rectangle(offset, key, of) {
  return ["left", "top", "right", "bottom"].map((side, i) => [
    offset + 4 * i,
    "i32",
    `${key}.RECT.${side}`,
    `${of}: ${side}, pixels`,
  ]);
}

const widths = {i32: 4, u32: 4, u16: 2, u8: 1, text8: 8, text16: 16, text128: 128};

/// One published member can come from the field of another.
const same_field = {clean_time: "timeUsed"};
export const fieldOfKey = (key) => same_field[key] ?? key;

/// The fields of some bytes: {offset, bytes, key, label, value, group}; reserved ones have no key.
function fields(bytes, layout, size) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const out = [];
  let end = 0;
  const reserve = (to) => {
    if (to > end) {
      out.push({
        offset: end,
        bytes: bytes.subarray(end, to),
        key: null,
        label: "reserved",
        value: "",
        group: "reserved",
      });
    }
  };
  for (const [offset, type, key, label, codes] of layout) {
    const length = type === "rest" ? Math.max(0, bytes.length - offset) : widths[type];
    if (offset + length > bytes.length) {
      break;
    }
    reserve(offset);
    const value = valueOf(bytes, view, offset, type);
    out.push({
      offset,
      bytes: bytes.subarray(offset, offset + length),
      key,
      label,
      value: withMeaning(value, codes),
      group: groupOf(type, key),
    });
    end = offset + length;
  }
  reserve(Math.min(size, bytes.length));
  if (bytes.length > Math.max(size, end)) {
    const from = Math.max(size, end);
    out.push({
      offset: from,
      bytes: bytes.subarray(from),
      key: null,
      label: "beyond the record",
      value: "",
      group: "reserved",
    });
  }
  return out;
}

function valueOf(bytes, view, offset, type) {
  switch (type) {
    case "i32":
      return view.getInt32(offset, true);
    case "u32":
      return view.getUint32(offset, true);
    case "u16":
      return view.getUint16(offset, true);
    case "u8":
      return view.getUint8(offset);
    case "rest":
      return utf8(bytes.subarray(offset));
    default:
      return textAt(bytes, offset);
  }
}

// A text ends at a NUL, at the most with the record.
function textAt(bytes, offset) {
  const end = bytes.indexOf(0, offset);
  return utf8(bytes.subarray(offset, end < 0 ? bytes.length : end));
}

function withMeaning(value, codes) {
  if (codes === "time") {
    return `${value} (${clock(value * 1e6, false)})`;
  }
  const meaning = codes ? codeText(codes, value) : String(value);
  return meaning === String(value) ? meaning : `${value} (${meaning})`;
}

function groupOf(type, key) {
  if (type.startsWith("text") || type === "rest") {
    return "text";
  }
  if (key.includes("RECT")) {
    return "place";
  }
  return key.startsWith("timeStamp") || key === "timeUsed" ? "time" : "number";
}

const result_size = 552;
const stored_size = 556;

/// A result's record: {kind, title, fields}.
const resultRecord = (bytes, title) => ({
  kind: "result",
  title,
  fields: fields(bytes.subarray(0, result_size), result_fields, result_size),
});

/// The records in a body on a topic or queue, or in a reply; empty when there is nothing known.
export function recordsOf(where, bytes, is_reply = false) {
  if (where === "EVS_GPIO_CONTROL" && !is_reply && bytes.length === 12) {
    return [{kind: "gpio", title: "Output, 12 bytes", fields: fields(bytes, gpio_fields, 12)}];
  }
  if (where === "EVS_RS485_WRITE" && !is_reply && bytes.length >= 8) {
    return [
      {
        kind: "serial",
        title: `Serial write, ${bytes.length} bytes`,
        fields: fields(bytes, serial_fields, 8),
      },
    ];
  }
  if (bytes.length === result_size) {
    return [resultRecord(bytes, "Recognition result, 552 bytes")];
  }
  if (is_reply && bytes.length > 0 && bytes.length % stored_size === 0 && bytes[0] !== 0x7b) {
    const all = [];
    for (let at = 0; at < bytes.length && all.length < 3; at += stored_size) {
      all.push({
        ...resultRecord(
          bytes.subarray(at, at + result_size),
          `Stored result ${at / stored_size + 1} of ${bytes.length / stored_size}`,
        ),
        kind: "offline",
      });
    }
    return all;
  }
  return [];
}

/// What a card shows of a result's record; null when it is none.
export function factsOfRecord(bytes) {
  if (bytes?.length !== result_size) {
    return null;
  }
  const view = new DataView(bytes.buffer, bytes.byteOffset);
  return {
    plate: textAt(bytes, 0),
    colorValue: textAt(bytes, 16).slice(0, 8),
    colorType: view.getInt32(24, true),
    type: view.getInt32(28, true),
    confidence: view.getInt32(32, true),
    direction: view.getInt32(40, true),
    carColor: view.getUint8(77),
    sec: view.getUint32(64, true),
    usec: view.getUint32(68, true),
  };
}

/// 41 42 31 …
export const hex = (bytes) =>
  Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join(" ");
