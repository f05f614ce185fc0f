// What a passport says in a few words, from the bus or from what was published.
import {factsOfRecord} from "./records.js";
import {bytesOf, decoded, parsed, picturePath} from "./texts.js";

/// What a card shows of a result. From the record on the bus; without that from what was published.
export function factsOf(passport) {
  const published = parsed(passport.mqtt?.at(-1)?.payload)?.payload?.AlarmInfoPlate?.result
    ?.PlateResult;
  const record = passport.bus ? factsOfRecord(bytesOf(passport.bus.body)) : null;
  const pictures = {
    scene: picturePath(decoded(published?.imagePath ?? "")),
    close_up: picturePath(decoded(published?.imageFragmentPath ?? "")),
    published: Boolean(published),
  };
  if (record) {
    return {...record, colorValue: colourOf(parseInt(record.colorValue, 16)), ...pictures};
  }
  if (published) {
    return {
      ...published,
      plate: decoded(published.license ?? "") ?? "",
      colorValue: colourOf(published.colorValue),
      sec: published.timeStamp?.Timeval?.sec,
      usec: published.timeStamp?.Timeval?.usec ?? 0,
      ...pictures,
    };
  }
  return {plate: passport.plate ?? "", ...pictures};
}

const colourOf = (rgb) =>
  Number.isInteger(rgb) && rgb >= 0 && rgb <= 0xffffff
    ? `#${rgb.toString(16).padStart(6, "0")}`
    : null;

/// An event that is no result, in one line.
export function eventText(passport) {
  const bus_bytes = passport.bus ? bytesOf(passport.bus.body) : null;
  const bus = bus_bytes ? parsed(new TextDecoder().decode(bus_bytes)) : undefined;
  const published = parsed(passport.mqtt?.at(-1)?.payload)?.payload;
  switch (passport.kind) {
    case "lane": {
      const result = published?.result?.[0]?.plate_result ?? bus?.results?.[0]?.plate_result;
      const code = published?.event_type ?? bus?.results?.[0]?.event_type;
      const who =
        code === 128
          ? "A person stays in the lane"
          : code === 129
            ? "A vehicle stays in the lane"
            : "Lane event";
      return result?.license ? `${who}: ${result.license}` : who;
    }
    case "input": {
      const trigger = published?.body?.AlarmGioIn?.result?.TriggerResult;
      return `Input ${trigger?.source ?? bus?.body?.source ?? "?"} is ${trigger?.value ?? bus?.body?.flag ?? "?"}`;
    }
    case "serial": {
      const {channel, text} = serialData(passport);
      return `Serial channel ${channel ?? "?"}: ${text}`;
    }
    case "identity":
      if (typeof bus?.title === "string") {
        return `The camera's name is ${decoded(bus.title) ?? bus.title}`;
      }
      return bus?.ip
        ? `The camera's address is ${bus.ip}`
        : "The camera has another name or address";
    default: {
      const left = published?.body?.offline_record;
      return left === undefined ? passport.name : `Results left for re-delivery: ${left}`;
    }
  }
}

/// What a serial message says: {channel, text}.
export function serialData(passport) {
  const published = parsed(passport.mqtt?.at(-1)?.payload)?.payload?.body?.SerialData;
  const bus_bytes = passport.bus ? bytesOf(passport.bus.body) : null;
  const bus = bus_bytes ? parsed(new TextDecoder().decode(bus_bytes))?.body : null;
  return {
    channel: published?.serialChannel ?? bus?.source,
    text: decoded(published?.data ?? bus?.rs485_data ?? "") ?? "",
  };
}
