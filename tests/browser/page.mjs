// The console's page in Chromium, with what a page must never do watched throughout.
import assert from "node:assert/strict";
import {mkdtempSync, rmSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";

import puppeteer from "puppeteer-core";

import {Rig, until} from "./rig.mjs";

export class Browser {
  static async start() {
    const browser = new Browser();
    browser.directory = mkdtempSync(join(tmpdir(), "chromium-"));
    const {directory} = browser;
    browser.chromium = await puppeteer.launch({
      executablePath: "/usr/bin/chromium-headless-shell",
      headless: "shell",
      userDataDir: join(directory, "profile"),
      args: process.getuid() === 0 ? ["--no-sandbox"] : [],
      // All that it keeps goes with the directory.
      env: {...process.env, TMPDIR: directory, HOME: directory, XDG_CONFIG_HOME: directory,
            XDG_CACHE_HOME: directory},
    });
    return browser;
  }

  /// Opens a view, such as "requests/gpio_out", and waits until the page has its first snapshot.
  async open(rig, view = "live", look = {}) {
    const tab = await this.chromium.newPage();
    const page = new Page(tab, rig);
    await page.look(look);
    await tab.goto(`${rig.address}/#${view}`);
    await page.find('body[data-connected="true"]');
    return page;
  }

  async end() {
    await this.chromium.close();
    rmSync(this.directory, {recursive: true, maxRetries: 10, retryDelay: 100});
  }
}

class Page {
  faults = [];

  constructor(tab, rig) {
    this.tab = tab;
    this.rig = rig;
    tab.on("console", (message) => {
      if (["error", "warn"].includes(message.type())) {
        this.faults.push(`${message.type()}: ${message.text()} ${message.location().url ?? ""}`);
      }
    });
    tab.on("pageerror", (error) => this.faults.push(`exception: ${error}`));
    tab.on("request", (request) => {
      const {host, protocol} = new URL(request.url());
      if (host !== `127.0.0.1:${rig.page_port}` && protocol !== "data:") {
        this.faults.push(`asks another host: ${request.url()}`);
      }
    });
  }

  async look({width = 1600, dark = false}) {
    await this.tab.setViewport({width, height: 1000});
    await this.tab.emulateMediaFeatures([
      {name: "prefers-color-scheme", value: dark ? "dark" : "light"},
      {name: "prefers-reduced-motion", value: "reduce"},
    ]);
  }

  /// Waits for an element; `selector` may end in one that only an element in this state has.
  async find(selector, seconds = 30) {
    try {
      return await this.tab.waitForSelector(selector, {timeout: seconds * 1000});
    } catch {
      throw new Error(`${selector} did not come within ${seconds} s`);
    }
  }

  async click(selector) {
    const element = await this.find(selector);
    await element.evaluate((node) => node.click());
  }

  async type(selector, text) {
    await this.find(selector);
    await this.tab.$eval(selector, (node, value) => {
      node.value = value;
      node.dispatchEvent(new Event("input", {bubbles: true}));
      node.dispatchEvent(new Event("change", {bubbles: true}));
    }, text);
  }

  async view(view) {
    await this.tab.evaluate((hash) => (location.hash = hash), view);
  }

  text(selector) {
    return this.tab.$eval(selector, (node) => node.textContent);
  }

  /// An attribute, or a property, of all elements that a selector finds.
  all(selector, name) {
    return this.tab.$$eval(
      selector, (nodes, key) => nodes.map((node) => node.getAttribute(key) ?? node[key]), name);
  }

  /// Waits until a selector finds so many elements.
  count(selector, wanted, seconds) {
    return until(async () => (await this.tab.$$(selector)).length === wanted,
                 `${wanted} of ${selector}`, seconds);
  }

  /// Closes it; what it did that no page may do fails, but for what a test expects.
  async close(expected = /^$/) {
    await this.tab.close();
    assert.deepEqual(this.faults.filter((fault) => !expected.test(fault)), []);
  }
}

/// A rig and a browser for the tests of a file, before whose first one `prepare(rig)` is done.
export function withDesk({before, after}, rig_options = {}, prepare = async () => {}) {
  const desk = {};
  before(async () => {
    desk.rig = await Rig.start(rig_options);
    await prepare(desk.rig);
    desk.browser = await Browser.start();
  });
  after(async () => {
    await desk.browser?.end();
    await desk.rig?.end();
  });
  return desk;
}
