// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Chromium for the tests of the page: a fresh profile, nothing that calls home, and a record of all
// that a test must not find: messages on the console, and requests that leave the device.
import fs from "node:fs";
import {createRequire} from "node:module";
import os from "node:os";
import path from "node:path";
import {fileURLToPath} from "node:url";

export const ROOT = fileURLToPath(new URL("../..", import.meta.url));
const TOOLS = path.join(ROOT, "build/page-tools/package.json");  // made by install-tools
const require = createRequire(TOOLS);
const {chromium} = require("playwright-core");
const AXE = fs.readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
const RULES = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"];
const SCREENSHOTS = path.join(ROOT, "build/page-screenshots");

export class Browser {
    static async launch(options = {}) {
        const browser = new Browser();
        browser.profile = fs.mkdtempSync(path.join(os.tmpdir(), "page-browser-"));
        browser.context = await chromium.launchPersistentContext(browser.profile, {
            executablePath: "/usr/bin/chromium",
            headless: true,
            viewport: {width: 1280, height: 800},
            args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                "--disable-background-networking", "--disable-component-update", "--disable-sync"],
            ...options,
        });
        browser.context.setDefaultTimeout(20000);
        browser.page = browser.context.pages()[0] ?? await browser.context.newPage();
        browser.console = [];
        browser.requests = [];
        browser.page.on("console", (message) => browser.console.push(`${message.type()}: ${message.text()}`));
        browser.page.on("pageerror", (error) => browser.console.push(`exception: ${error.stack}`));
        browser.page.on("request", (request) => browser.requests.push(request.url()));
        return browser;
    }

    async close() {
        await this.context.close();
        fs.rmSync(this.profile, {recursive: true, force: true});
    }

    // The element of the page with this role and name.
    get(role, name) {
        return this.page.getByRole(role, {name, exact: true});
    }

    get lines() {
        return this.get("log", "Lines");
    }

    async search(text) {
        await this.get("searchbox", "Search").fill(text);
        await this.get("searchbox", "Search").press("Enter");
    }

    // What axe-core finds, one line a finding.
    async findings() {
        await this.page.evaluate(AXE);
        const {violations} = await this.page.evaluate((values) => window.axe.run(document, {runOnly: values}), RULES);
        return violations.flatMap(({id, nodes}) => nodes.map((node) => `${id}: ${node.target.join(" ")}: ${node.failureSummary}`));
    }

    screenshot(name) {
        return this.page.screenshot({path: path.join(SCREENSHOTS, `${name}.png`)});
    }
}
