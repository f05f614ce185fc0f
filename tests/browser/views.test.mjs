// Every view as it looks, light and dark, on a wide screen and on a telephone: free of what keeps
// people from using it. The screenshots stay in build/screenshots.
import assert from "node:assert/strict";
import {mkdirSync} from "node:fs";
import {join} from "node:path";
import {after, before, test} from "node:test";

import axe from "axe-core";

import {withDesk} from "./page.mjs";
import {root, until} from "./rig.mjs";

const desk = withDesk({before, after}, {}, somethingHappens);
const screenshots = join(root, "build/screenshots");

// The address of each, what is done there, and what shows that it is there.
const views = {
  live: {view: "live", shows: '#feed img[data-picture="close-up"]'},
  passports: {view: "passport", shows: "#passport-list a"},
  passport: {view: "passport/result/DESK0001/1", shows: '#steps li[data-step="delivered"]'},
  request: {view: "requests/gpio_out", shows: 'form[data-form="gpio_out"]'},
  "request-refused": {
    view: "requests/get_io_out_status",
    async act(page) {
      await page.type('[data-path="payload.body.gpio"]', "many");
      await page.click('form[data-form="get_io_out_status"] button[type=submit]');
    },
    shows: '[data-answer][data-result="false"]',
  },
  "free-request": {view: "requests/free", shows: 'form[data-form="free"]'},
  world: {view: "world", shows: "[data-queue]"},
  outage: {view: "outage", shows: "#told li"},
  fleet: {view: "fleet", shows: '#fleet tr[data-sn="GATE0012"]'},
  "outage-cut": {
    view: "outage",
    act: (page) => page.click('button[data-link="cut"]'),
    shows: '[data-link-mode="cut"]',
  },
  "live-cut": {
    view: "live",
    act: (page) => page.click("#live-car"),
    shows: '[data-gauge="backlog"]:not([data-count="0"])',
  },
};

async function somethingHappens(rig) {
  mkdirSync(screenshots, {recursive: true});
  await rig.ctl(["rename", "Gate 7"]);
  for (const plate of ["AB123CD", "EF456GH", "JK789LM", "NP012QR"]) {
    await rig.ctl(["car", plate]);
  }
  await rig.ctl(["gpio-in", "1", "1"]);
  await rig.ctl(["serial", "0", "hello"]);
  await somethingHappensElsewhere(rig);
}

async function somethingHappensElsewhere(rig) {
  for (let number = 1; number <= 12; ++number) {
    const sn = `GATE00${String(number).padStart(2, "0")}`;
    const count = number % 5 === 0 ? number : 0;
    await rig.publishStatus(sn, number === 7 ? {online: false} : {
      online: true, started_at: 1700000000 + number, undelivered: {count, oldest_age_s: count}});
    if (number % 4 !== 0) {
      await rig.publishResult(sn, number, `GH${100 + number}KL`);
    }
  }
}

for (const [name, {view, shows, act}] of Object.entries(views)) {
  test(`${name} can be used by everybody, and fits`, async (context) => {
    const page = await desk.browser.open(desk.rig, view);
    await act?.(page);
    await page.find(shows);
    for (const width of [1600, 400]) {
      for (const dark of [false, true]) {
        await context.test(`${dark ? "dark" : "light"}, ${width} wide`, async () => {
          await page.look({width, dark});
          await picturesAreThere(page);
          const file = `${name}-${dark ? "dark" : "light"}-${width}.png`;
          await page.tab.screenshot({path: join(screenshots, file), fullPage: true});
          assert.deepEqual(await obstacles(page), []);
          assert.ok(
            await page.tab.evaluate(() => document.documentElement.scrollWidth <= innerWidth),
            "it is wider than the screen");
        });
      }
    }
    await page.close();
  });
}

/// All that are in sight; others are loaded when they come there.
function picturesAreThere(page) {
  return until(() => page.tab.$$eval("img", (images) => images
    .filter((image) => image.offsetParent && image.getBoundingClientRect().top < innerHeight)
    .every((image) => image.complete && image.naturalWidth > 0)), "the pictures");
}

/// What axe finds that is serious or critical. It runs beside the page's scripts, which its
/// policy does not let be added to.
async function obstacles(page) {
  if (!await page.tab.evaluate("window.axe !== undefined")) {
    await page.tab.evaluate(axe.source);
  }
  const found = await page.tab.evaluate("axe.run({resultTypes: ['violations']})");
  return found.violations
    .filter(({impact}) => impact === "serious" || impact === "critical")
    .map(({id, help, nodes}) => `${id}: ${help}: ${nodes.map((node) => node.target).join(", ")}`);
}
