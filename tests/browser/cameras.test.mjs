// Several cameras on one desk.
import assert from "node:assert/strict";
import {after, before, test} from "node:test";

import {withDesk} from "./page.mjs";

const desk = withDesk({before, after}, {second_sn: "DESK0002"});

test("of several cameras one can be chosen, and only its cars are shown", async () => {
  await desk.rig.ctl(["car", "FIRST01"]);
  await desk.rig.ctl(["car", "SECOND2"], "DESK0002");
  const page = await desk.browser.open(desk.rig);
  await page.find('#camera-chooser option[value="DESK0002"]');
  for (const [sn, plate] of [["DESK0002", "SECOND2"], ["DESK0001", "FIRST01"]]) {
    await page.tab.select("#camera-chooser", sn);
    await page.count(`#feed li[data-passport^="result/${sn}/"]`, 1);
    assert.deepEqual(await page.all('#feed [data-field="plate"]', "textContent"), [plate]);
  }
  await page.close();
});

test("what is done on the page is done to the chosen camera", async () => {
  const page = await desk.browser.open(desk.rig);
  await page.find('#camera-chooser option[value="DESK0002"]');
  await page.tab.select("#camera-chooser", "DESK0002");
  await page.count('#feed li[data-kind="result"]', 1);
  await page.click("#live-car");
  await page.count('#feed li[data-passport^="result/DESK0002/"]', 2);
  await page.close();
});
