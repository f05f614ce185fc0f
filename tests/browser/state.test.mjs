// What the page shows is the desk's: after a reload, and while pieces of it are away.
import assert from "node:assert/strict";
import {after, before, test} from "node:test";

import {withDesk} from "./page.mjs";
import {until} from "./rig.mjs";

const desk = withDesk({before, after});
const away = /ERR_CONNECTION_REFUSED|WebSocket|ERR_CONNECTION_RESET/;

/// What the page shows of three cars that wait for the link.
async function shown(page) {
  await page.view("live");
  await page.find('[data-gauge="backlog"][data-count="3"]');
  await page.count('#feed li[data-kind="result"]', 3);
  const cards = await page.all("#feed li", "data-passport");
  const states = await page.all("#feed li", "data-state");
  await page.view("outage");
  await page.find('[data-link-mode="cut"]');
  return {cards, states, told: await page.all("#told li", "textContent")};
}

test("a page that is loaded again in an outage shows the same", async () => {
  const page = await desk.browser.open(desk.rig, "outage");
  await page.click('button[data-link="cut"]');
  for (let car = 0; car < 3; ++car) {
    await desk.rig.ctl(["car"]);
  }
  const before_it = await shown(page);
  await page.tab.reload();
  await page.find('body[data-connected="true"]');
  assert.deepEqual(await shown(page), before_it);
  await page.click('button[data-link="whole"]');
  await page.find('[data-part="agent"][data-ok="true"]');
  await page.close();
});

test("a plate that looks like HTML is shown as it is", async () => {
  const page = await desk.browser.open(desk.rig);
  const {plate_id} = JSON.parse(await desk.rig.ctl(["car", "<img src=x>"]));
  const plate = `#feed li[data-passport="result/DESK0001/${plate_id}"] [data-field="plate"]`;
  await page.find(plate);
  assert.equal(await page.text(plate), "<img src=x>");
  await page.close();
});

test("broker, camera and agent that are away are told apart", async () => {
  const page = await desk.browser.open(desk.rig);
  const texts = new Set();
  for (const piece of ["broker", "camera", "agent"]) {
    await desk.rig.stop(piece);
    await page.find(`[data-missing="${piece}"]`);
    texts.add(await page.text(`[data-missing="${piece}"]`));
    await desk.rig.start(piece);
    await page.count("[data-missing]", 0);
  }
  assert.equal(texts.size, 3);
  await page.close();
});

test("a console that was away is noticed, and found again", async () => {
  const page = await desk.browser.open(desk.rig);
  await desk.rig.stop("console");
  await page.find("#console-away:not([hidden])");
  await desk.rig.start("console");
  await page.find("#console-away[hidden]");
  await desk.rig.ctl(["car"]);
  await until(async () => (await page.tab.$$('#feed li[data-kind="result"]')).length > 0, "a car");
  await page.close(away);
});
