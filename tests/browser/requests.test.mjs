// The forms of the requests: each sends what it shows, and shows what came of it.
import assert from "node:assert/strict";
import {readFileSync} from "node:fs";
import {after, before, test} from "node:test";

import {withDesk} from "./page.mjs";
import {root} from "./rig.mjs";

const desk = withDesk({before, after});

const {components} = JSON.parse(readFileSync(`${root}/contract/asyncapi.json`, "utf8"));
const names = Object.keys(components.messages)
  .filter((name) => name.startsWith("request_"))
  .map((name) => name.slice("request_".length))
  .sort((a, b) => (a === "reboot_dev") - (b === "reboot_dev")); // after it nothing answers a while

const form = (name) => `form[data-form="${name}"]`;
const answered = (name) => `${form(name)} [data-answer][data-state="answered"]`;

async function openForm(name) {
  const page = await desk.browser.open(desk.rig, `requests/${name}`);
  await page.find(form(name));
  return page;
}

test("there is a form for each of the 23 requests", async () => {
  const page = await openForm("get_sn");
  assert.equal(names.length, 23);
  assert.deepEqual((await page.all("a[data-request]", "data-request")).sort(),
                   [...names, "free"].sort());
  await page.close();
});

test("each form sends its example, and shows its answer", async (t) => {
  await desk.rig.ctl(["car"]); // what get_last_result and get_image_by_id ask for
  const page = await openForm(names[0]);
  for (const name of names) {
    await t.test(name, async () => {
      await page.view(`requests/${name}`);
      await page.click(`${form(name)} button[type=submit]`);
      await page.find(`${answered(name)}[data-result="true"]`);
      assert.match(await page.text(`${form(name)} [data-answer-json]`), /result.*true/s);
    });
  }
  await page.close();
});

test("a request's passport has the way from the cloud to the camera and back", async () => {
  await desk.rig.stop("camera"); // it reboots
  await desk.rig.start("camera");
  const page = await openForm("get_io_out_status");
  await page.click(`${form("get_io_out_status")} button[type=submit]`);
  await page.click(`${answered("get_io_out_status")} a[data-open]`);
  await page.find('#passport [data-part-of="request"]');
  await page.find('#passport [data-part-of="bus-request"][data-queue="EVS_BUS_REQUEST"][data-outcome="answered"]');
  await page.find('#passport [data-part-of="response"]');
  await page.close();
});

test("a value that the contract does not have is marked, sent, and refused with its code", async () => {
  const page = await openForm("get_io_out_status");
  await page.type(`${form("get_io_out_status")} [data-path="payload.body.gpio"]`, "many");
  await page.find('[data-hint="payload.body.gpio"][data-wrong]');
  await page.click(`${form("get_io_out_status")} button[type=submit]`);
  await page.find(`${answered("get_io_out_status")}[data-result="false"][data-code="refused"]`);
  assert.equal(await page.text(`${form("get_io_out_status")} [data-answer-code]`), "refused");
  await page.close();
});

test("a service that nobody serves is named", async () => {
  const page = await openForm("gpio_out");
  await desk.rig.ctl(["service", "EVS_GPIO_CONTROL", "down"]);
  await page.click(`${form("gpio_out")} button[type=submit]`);
  await page.find(`${answered("gpio_out")}[data-result="false"]`);
  assert.match(await page.text(answered("gpio_out")), /nobody serves EVS_GPIO_CONTROL/);
  await desk.rig.ctl(["service", "EVS_GPIO_CONTROL", "up"]);
  await page.close();
});

test("what is no JSON can be sent, and is answered so", async () => {
  const page = await openForm("free");
  await page.type('[data-free="text"]', "{");
  await page.click(`${form("free")} button[type=submit]`);
  await page.find(`${answered("free")}[data-code="not_json"]`);
  await page.close();
});
