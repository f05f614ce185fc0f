// The contract as the page needs it: the requests, with their schemas made whole, and what codes
// mean.
import {get} from "./connection.js";

let contract = null;
let error = null;

export async function loadContract() {
  try {
    contract = await get("/contract.json");
    error = null;
  } catch (failure) {
    error = failure.message;
    throw failure;
  }
}

/// Why there is no contract; null while it comes or when it is there.
export const contractError = () => error;
export const hasContract = () => contract !== null;

/// Each request: name, title, summary, schema (without $ref and allOf), example, about (what its
/// success and failure mean).
export function requests() {
  return Object.entries(contract?.components.messages ?? {})
    .filter(([key]) => key.startsWith("request_"))
    .map(([key, message]) => ({
      name: message.name,
      summary: message.summary ?? "",
      schema: whole(message.payload),
      example: message.examples?.[0]?.payload ?? {},
      about: contract.operations?.[key]?.["x-request"] ?? {},
    }));
}

/// What a code of a result means, such as codeText("colorType", 2): "yellow". The code itself where
/// the contract does not say.
export function codeText(key, code) {
  const members =
    contract?.components.schemas.payload_ivs_result?.properties.AlarmInfoPlate.properties.result
      .properties.PlateResult.properties;
  return members?.[key]?.["x-desk-codes"]?.[String(code)] ?? String(code);
}

/// Meaning of an error code of a response; empty without one.
export const errorText = (code) => contract?.components.schemas.code?.["x-meanings"]?.[code] ?? "";

function resolved(schema) {
  let at = schema;
  while (at?.$ref) {
    at =
      at.$ref
        .slice(2)
        .split("/")
        .reduce((value, part) => value?.[part], contract) ?? {};
  }
  return at ?? {};
}

// The schema with every $ref followed and every allOf folded in.
function whole(schema) {
  const at = resolved(schema);
  const {allOf = [], ...own} = at;
  const out = allOf.map(whole).reduce(folded, {});
  const self = {...own};
  if (own.properties) {
    self.properties = Object.fromEntries(
      Object.entries(own.properties).map(([key, value]) => [key, whole(value)]),
    );
  }
  if (own.items) {
    self.items = whole(own.items);
  }
  if (own.oneOf) {
    self.oneOf = own.oneOf.map(whole);
  }
  return folded(out, self);
}

function folded(a, b) {
  const out = {...a, ...b};
  if (a.required || b.required) {
    out.required = [...new Set([...(a.required ?? []), ...(b.required ?? [])])];
  }
  if (a.properties && b.properties) {
    out.properties = {...a.properties};
    for (const [key, value] of Object.entries(b.properties)) {
      out.properties[key] = key in a.properties ? folded(a.properties[key], value) : value;
    }
  }
  return out;
}
