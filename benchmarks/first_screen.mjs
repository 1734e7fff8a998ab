// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// How long the log page takes in Chromium, from the request for it to the first line and to a full
// screen of lines. Prints an object, the figures in milliseconds. See ./bench page.
import {Browser} from "../tests/page/browser.mjs";
import {Sandbox} from "../tests/page/sandbox.mjs";

const ROUNDS = 9;

function median(values) {
    return values.sort((a, b) => a - b)[Math.floor(values.length / 2)];
}

// In the page: waits for the condition, looking at it once a frame. Returns the time since the request.
async function untilTrue(page, condition) {
    await page.waitForFunction(condition);
    return page.evaluate(() => performance.now());
}

const sandbox = await Sandbox.start(["--boots", "30"]);
const browser = await Browser.launch();
const firstLine = [];
const fullScreen = [];
for (let round = 0; round < ROUNDS; ++round) {
    await browser.page.goto(sandbox.url, {waitUntil: "commit"});
    firstLine.push(await untilTrue(browser.page, () => /\d:\d\d:\d\d/.test(document.querySelector("[role=log]")?.textContent)));
    fullScreen.push(await untilTrue(browser.page, () => {
        const lines = document.querySelector("[role=log]");
        return lines.scrollHeight > lines.clientHeight;
    }));
}
await browser.close();
await sandbox.stop();
console.log(JSON.stringify({"Chromium, first line, ms": median(firstLine), "Chromium, full screen, ms": median(fullScreen)}));
