// A fleet: cameras of which the console knows what the broker says, beside the desk's own.
import assert from "node:assert/strict";
import {after, before, test} from "node:test";

import {withDesk} from "./page.mjs";

const desk = withDesk({before, after}, {}, async (rig) => {
  await rig.publishStatus(
    "FAR0001", {online: true, started_at: 1700000000, undelivered: {count: 0, oldest_age_s: 0}});
  await rig.publishStatus("FAR0002", {online: false});
  await rig.publishStatus("FAR0003", {online: true, undelivered: {count: 12, oldest_age_s: 60}});
});

const serialNumbers = (page) => page.all("#fleet tbody tr", "data-sn");

/// Waits until a field of a camera has this text.
const shows = (page, sn, field, text) =>
  page.tab.waitForFunction(
    (selector, wanted) => document.querySelector(selector)?.textContent.includes(wanted),
    {timeout: 30000}, `#fleet tr[data-sn="${sn}"] [data-field="${field}"]`, text);

test("each camera has a row that says whether it is online, and what it has not delivered", async () => {
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.count("#fleet tbody tr", 4);
  assert.deepEqual(await serialNumbers(page), ["DESK0001", "FAR0001", "FAR0002", "FAR0003"]);
  await shows(page, "FAR0001", "online", "online");
  await shows(page, "FAR0001", "since", "2023-11-1");
  await shows(page, "FAR0002", "online", "offline");
  await shows(page, "FAR0002", "since", "–");
  await shows(page, "FAR0002", "backlog", "?");
  await shows(page, "FAR0003", "backlog", "12");
  await page.tab.waitForFunction(
    () => document.getElementById("fleet-totals").textContent ===
      "4 cameras, 3 online, 0 results a minute, 12 undelivered");
  await page.close();
});

test("what changes is changed in its row", async () => {
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.count("#fleet tbody tr", 4);
  await page.tab.$eval('#fleet tr[data-sn="FAR0002"]', (row) => (row.dataset.same = "yes"));
  await desk.rig.publishResult("FAR0002", 1, "AB12");
  await desk.rig.publishResult("FAR0002", 2, "<b>CD");
  await shows(page, "FAR0002", "rate", "2");
  await shows(page, "FAR0002", "plate", "<b>CD");
  await desk.rig.publishStatus("FAR0002", {online: true, undelivered: {count: 3, oldest_age_s: 1}});
  await shows(page, "FAR0002", "online", "online");
  await shows(page, "FAR0002", "since", ":");
  await shows(page, "FAR0002", "backlog", "3");
  await page.find('#fleet tr[data-sn="FAR0002"][data-same="yes"]');
  await page.close();
});

test("it is sorted by each column, and filtered by serial number", async () => {
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.count("#fleet tbody tr", 4);
  await page.click('[data-column="backlog"] button');
  await page.find('[data-column="backlog"][aria-sort="descending"]');
  assert.equal((await serialNumbers(page))[0], "FAR0003");
  assert.equal(await page.tab.$('[data-column="sn"][aria-sort]'), null);
  await page.click('[data-column="backlog"] button');
  await page.find('[data-column="backlog"][aria-sort="ascending"]');
  assert.equal((await serialNumbers(page)).at(-1), "FAR0003");
  await page.click('[data-column="plate_at"] button');
  assert.equal((await serialNumbers(page))[0], "FAR0002");
  await page.type("#fleet-filter", "far");
  await page.count("#fleet tbody tr", 3);
  assert.match(await page.text("#fleet-totals"), /^3 of 4 cameras, /);
  await page.type("#fleet-filter", "none");
  await page.count("#fleet tbody tr", 0);
  await page.close();
});

test("no row is moved from under the keyboard", async () => {
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.click('[data-column="rate"] button');
  await page.find('[data-column="rate"][aria-sort="descending"]');
  const order = await serialNumbers(page);
  await page.tab.focus('#fleet tr[data-sn="FAR0003"] a');
  for (let plate = 1; plate <= 4; ++plate) {
    await desk.rig.publishResult("FAR0003", plate, "EF34");
  }
  await shows(page, "FAR0003", "rate", "4");
  assert.deepEqual(await serialNumbers(page), order);
  assert.equal(await page.tab.evaluate(() => document.activeElement.textContent), "FAR0003");
  await page.tab.focus("#fleet-filter");
  await page.find('#fleet tbody tr:first-child[data-sn="FAR0003"]');
  await page.close();
});

test("its serial number leads to a camera, whose views say what cannot be done with it", async () => {
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.click('#fleet tr[data-sn="FAR0003"] a');
  await page.find("#view-live:not([hidden])");
  assert.equal(await page.tab.$eval("#camera-chooser", (chooser) => chooser.value), "FAR0003");
  await page.find("#live-car:disabled");
  assert.match(await page.text("#live-elsewhere"), /not on the console's bus/);
  await page.view("world");
  await page.find("#world-away:not([hidden])");
  assert.match(await page.text("#world-away"), /not on the console's bus/);
  await page.find("#view-world .blocks[hidden]");
  await page.view("outage");
  await page.find("#ten-cars:disabled");
  assert.match(await page.text("#outage-line"), /not on the console's bus/);
  await page.close();
});

test("of many cameras one is chosen by typing", async () => {
  for (let number = 10; number < 40; ++number) {
    await desk.rig.publishStatus(`MANY00${number}`, {online: true});
  }
  const page = await desk.browser.open(desk.rig, "fleet");
  await page.count("#fleet tbody tr", 34);
  await page.find("#camera-chooser[hidden]");
  assert.equal((await page.all("#camera-names option", "value")).length, 34);
  await page.type("#camera-name", "MANY0017");
  await page.tab.waitForFunction(() => localStorage.getItem("camera") === "MANY0017");
  await page.type("#camera-name", "NOBODY");
  assert.equal(await page.tab.$eval("#camera-name", (input) => input.value), "MANY0017");
  assert.equal(await page.text('label[for="camera-name"]'), "Camera");
  await page.close();
});
