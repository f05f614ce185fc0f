// The link is cut while cars pass, and made whole again.
import assert from "node:assert/strict";
import {after, before, test} from "node:test";

import {withDesk} from "./page.mjs";
import {until} from "./rig.mjs";

const desk = withDesk({before, after});

const backlog = (count) => `[data-gauge="backlog"][data-count="${count}"]`;
const redelivered = '#feed li[data-kind="result"][data-redelivered="true"][data-state="delivered"]';

test("ten cars of an outage wait in the store, and are pushed and delivered when it is over", async () => {
  const page = await desk.browser.open(desk.rig, "outage");
  await page.count('[data-part]:not([data-ok="true"])', 0); // before that there is no outage
  await page.click('button[data-link="cut"]');
  await page.find('[data-link-mode="cut"]');
  await page.click("#ten-cars");
  await page.view("live");
  await page.find(backlog(10));
  await page.view("outage");
  await page.click('button[data-link="whole"]');
  await page.find('[data-part="agent"][data-ok="true"]');
  await page.view("requests/check_offline_record");
  await page.click('form[data-form="check_offline_record"] button[type=submit]');
  await page.view("live");
  await page.find(backlog(0), 60);
  await page.count(redelivered, 10);
  assert.match(await page.text(`${redelivered} [data-field="state"]`), /^Re-delivered/);

  await page.view("outage");
  for (const [what, number] of [["stored", "10"], ["arrived", "10"], ["left", "0"], ["lost", "0"]]) {
    await until(async () => (await page.text(`[data-ledger="${what}"]`)) === number,
                `${number} ${what}`);
  }
  await page.close();
});

test("the link freezes, limps and is whole as it was asked", async () => {
  const page = await desk.browser.open(desk.rig, "outage");
  for (const mode of ["frozen", "limping", "whole"]) {
    await page.click(`button[data-link="${mode}"]`);
    await page.find(`[data-link-mode="${mode}"]`);
    await page.find(`button[data-link="${mode}"][aria-pressed="true"]`);
  }
  await page.close();
});

test("a delay that is no number is refused in words", async () => {
  const page = await desk.browser.open(desk.rig, "outage");
  await page.type("#limp-delay", "soon");
  await page.click('button[data-link="limping"]');
  await until(() => page.text('[data-note="link"]'), "what is wrong");
  await page.find('[data-link-mode="whole"]');
  await page.close(/400 \(Bad Request\)/);
});

test("the agent is told to end, and is told of when it is there again", async () => {
  const page = await desk.browser.open(desk.rig, "outage");
  await page.click("#restart-agent");
  await desk.rig.hasEnded("agent");
  await page.find('[data-part="agent"][data-ok="false"]');
  await desk.rig.start("agent");
  await page.find('[data-part="agent"][data-ok="true"]');
  await page.close();
});
