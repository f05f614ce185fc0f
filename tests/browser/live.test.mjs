// Cars on the page: their cards, and what their passports say of bytes and JSON.
import assert from "node:assert/strict";
import {after, before, test} from "node:test";

import mqtt from "mqtt";

import {withDesk} from "./page.mjs";
import {until} from "./rig.mjs";

const desk = withDesk({before, after});

const cardOf = (plate_id) => `#feed li[data-passport="result/DESK0001/${plate_id}"]`;

async function carPasses(plate) {
  return JSON.parse(await desk.rig.ctl(["car", plate])).plate_id;
}

test("a car becomes a card with both pictures and is acknowledged", async () => {
  const page = await desk.browser.open(desk.rig);
  const card = cardOf(await carPasses("AB12345"));
  await page.find(`${card}[data-state="delivered"]`);
  assert.match(await page.text(`${card} [data-field="state"]`), /acknowledged/);
  assert.equal(await page.text(`${card} [data-field="plate"]`), "AB12345");
  await until(async () => (await page.all(`${card} img[data-picture]`, "naturalWidth"))
    .filter((width) => width > 0).length === 2, "both pictures");
  await page.close();
});

test("a passport has the bytes of the bus and the JSON of the broker", async (t) => {
  const recorded = await desk.rig.nextRecord();
  const published = await listen(t, "cameras/DESK0001/message/ivs_result");
  const page = await desk.browser.open(desk.rig);
  const plate_id = await carPasses("CD67890");
  await page.click(`${cardOf(plate_id)}[data-state="delivered"] a[data-open]`);
  await page.find(`#passport[data-passport="result/DESK0001/${plate_id}"] [data-side="json"]`);
  assert.equal(await shownBytes(page), (await recorded()).toString("hex"));
  assert.deepEqual(await shownScalars(page), scalars(JSON.parse(await published())));
  await page.close();
});

test("a field of the record lights the member of the JSON that it becomes, and back", async () => {
  const page = await desk.browser.open(desk.rig);
  const plate_id = await carPasses("EF24680");
  await page.view(`passport/result/DESK0001/${plate_id}`);
  const record = '#passport [data-side="record"][data-field="license"]';
  const json = '#passport [data-side="json"][data-field="license"]';
  await page.find(json);
  await page.tab.focus(`${record} button`);
  await page.find(`${json}.lit`);
  await page.click(`${record} button`);
  assert.ok(await page.tab.$eval(json, (line) => line.contains(document.activeElement)));
  await page.close();
});

test("the steps of a passport come in order", async () => {
  const page = await desk.browser.open(desk.rig);
  const plate_id = await carPasses("GH13579");
  await page.view(`passport/result/DESK0001/${plate_id}`);
  await page.find('#steps li[data-step="delivered"]');
  assert.deepEqual(
    (await page.all("#steps li", "data-ms")).slice(1).filter((ms) => !(Number(ms) >= 0)), []);
  await page.close();
});

/// Subscribes; resolves to what waits for the first message's text.
async function listen(t, topic) {
  const client = await mqtt.connectAsync(`mqtt://127.0.0.1:${desk.rig.mqtt_port}`);
  t.after(() => client.endAsync(true));
  const texts = [];
  client.on("message", (_, text) => texts.push(text.toString()));
  await client.subscribeAsync(topic);
  return async () => {
    await until(() => texts.length > 0, topic);
    return texts[0];
  };
}

async function shownBytes(page) {
  const fields = await page.tab.$$eval('#passport [data-side="record"]', (rows) =>
    rows.map((row) => [Number(row.dataset.offset), row.querySelector(".bytes").textContent]));
  return fields.sort(([a], [b]) => a - b).map(([, hex]) => hex.replaceAll(" ", "")).join("");
}

async function shownScalars(page) {
  return Object.fromEntries(await page.tab.$$eval('#passport [data-side="json"][data-path]', (lines) =>
    lines.map((line) => [line.dataset.path, line.querySelector("[data-value]").textContent])));
}

function scalars(value, path = "") {
  return value !== null && typeof value === "object" && Object.keys(value).length > 0
    ? Object.assign({}, ...Object.entries(value).map(([key, member]) =>
        scalars(member, path ? `${path}.${key}` : key)))
    : {[path]: JSON.stringify(value)};
}
