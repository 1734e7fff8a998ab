// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Makes docs/log-page.png, the picture in the README, from the real page: why did the device reboot?
// After tests/page/run: node tests/page/picture.mjs
import path from "node:path";
import {Browser, ROOT} from "./browser.mjs";
import {Sandbox} from "./sandbox.mjs";

const sandbox = await Sandbox.start(["--boots", "30"]);
const browser = await Browser.launch({viewport: {width: 1120, height: 640}, colorScheme: "light"});
await browser.page.goto(sandbox.url);
await browser.search("Out of memory");
await browser.page.getByText(/^\d+ matches$/).waitFor();
await browser.page.keyboard.press("p");
await browser.page.keyboard.press("Enter");
await browser.page.getByText(/^Around /).waitFor();
await browser.lines.getByText("watchdog did not stop").first().waitFor();
await browser.page.screenshot({path: path.join(ROOT, "docs/log-page.png")});
await browser.close();
await sandbox.stop();
