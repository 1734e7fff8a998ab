// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The page beside a device made of numbers: sizes and accidents that a real one takes hours for.
import assert from "node:assert/strict";
import path from "node:path";
import {afterEach, test} from "node:test";
import {Browser, ROOT} from "./browser.mjs";
import {MockDevice} from "./mock_device.mjs";

const WWW = path.join(ROOT, "build/page-www");
let browser, device, url;

async function open({options, ...settings} = {}, hash = "") {
    device = new MockDevice({www: WWW, ...settings});
    url = await device.start();
    browser = await Browser.launch(options);
    await browser.page.goto(url + hash);
    await browser.lines.getByText("flow").last().waitFor();
}

afterEach(async () => {
    await browser?.close();
    await device?.stop().catch(() => {});
});

async function wait(condition) {
    for (let times = 0; !condition(); times += 1) {
        assert.ok(times < 400, `not reached: ${condition}`);
        await browser.page.waitForTimeout(50);
    }
}

async function elements() {
    return browser.page.evaluate(() => document.querySelectorAll("[role=log] *").length);
}

test("135,000 lines scroll with a bounded document", {timeout: 120000}, async () => {
    await open({boots: 900, linesPerBoot: 150});
    const number = device.lines.length;
    assert.ok(number > 100000, `${number} lines`);
    // The oldest line, by scrolling up alone.
    const isAtStart = () => browser.lines.evaluate((node) => node.querySelector(".row")?.row.line === 1);
    while (!await isAtStart()) {
        await browser.lines.evaluate((node) => { node.scrollTop = 0; });
        assert.ok(await elements() < 1000);
    }
    const seen = await browser.lines.evaluate((node) => [...node.querySelectorAll(".row")].map((row) => row.row.line));
    assert.equal(seen[0], 1);
    // And down again, line by line: each once, in order.
    let last = 0;
    for (let round = 0; round < 40; round += 1) {
        const rows = await browser.lines.evaluate((node) => {
            node.scrollTop += node.clientHeight;
            return new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(() =>
                resolve([...node.querySelectorAll(".row")].map((row) => row.row.line)))));
        });
        assert.ok(rows[0] <= last + 1 || last === 0, `gap between ${last} and ${rows[0]}`);
        rows.forEach((line, index) => assert.equal(line, rows[0] + index));
        last = rows.at(-1);
    }
    assert.deepEqual(browser.console, []);
});

test("a search shows results and progress while it reads, and can be cancelled", async () => {
    await open({boots: 300, linesPerBoot: 400, delay: 40});
    await browser.search("Out of memory");
    await browser.lines.getByText("Out of memory").first().waitFor();
    const progress = browser.get("progressbar", "Search progress");
    assert.ok(await progress.isVisible());
    await browser.page.getByText(/Searching, [1-9]/).waitFor();
    const release = device.hold();
    const before = device.requests.length;
    const asked = () => device.requests.slice(before).filter((request) => request.includes("/log")).length;
    await wait(asked);
    await browser.get("button", "Cancel").click();
    await browser.page.getByText(/Cancelled: [\d,]+ match/).waitFor();
    assert.ok(!await progress.isVisible());
    release();
    await wait(() => device.aborted);
    // What the search still asked for would come before this.
    await browser.page.evaluate(() => fetch("/cgi-bin/moraine/status").then((answer) => answer.json()));
    assert.equal(asked(), 1);
    // Nothing found is no proof that there is nothing.
    await browser.search("no such text");
    await browser.get("button", "Cancel").click();
    await browser.page.getByText("Cancelled: 0 matches so far").waitFor();
});

test("the device goes away in the middle of a search and comes back", async () => {
    await open({boots: 300, linesPerBoot: 400, delay: 20});
    const expected = device.lines.filter((line) => line.message.includes("Out of memory")).length;
    await browser.search("Out of memory");
    await browser.page.getByText(/Searching, [1-9]\d %/).waitFor();
    const {port} = device;
    await device.stop();
    await browser.get("alert", "").filter({hasText: "cannot be reached"}).waitFor();
    await browser.get("status", "Health").getByText("Unreachable").waitFor();
    assert.ok(await browser.lines.getByText("Out of memory").count() > 0);
    await browser.screenshot("unreachable");
    await device.start(port);
    await browser.page.getByText(`${expected} matches`, {exact: true}).waitFor();
    assert.equal(await browser.get("alert", "").filter({hasText: "cannot be reached"}).count(), 0);
    await browser.get("status", "Health").getByText("Healthy", {exact: true}).waitFor();
});

test("follow resumes behind the last line when the device is back", async () => {
    await open({});
    await browser.page.keyboard.press("f");
    assert.ok(await browser.get("switch", "Follow").isChecked());
    device.append({time: "2026-11-21T17:50:00", facility: "user", severity: "info", tag: "x", message: "new 1"});
    await browser.lines.getByText("new 1", {exact: true}).waitFor();
    const {port} = device;
    await device.stop();
    await browser.get("alert", "").filter({hasText: "cannot be reached"}).waitFor();
    for (let i = 2; i < 30; i += 1) device.append({message: `new ${i}`});
    await device.start(port);
    await browser.lines.getByText("new 29", {exact: true}).waitFor();
    const rows = await browser.lines.evaluate((node) => [...node.querySelectorAll(".row")].map((row) => row.row.line));
    rows.forEach((line, index) => assert.equal(line, rows[0] + index));
});

test("follow goes on although the device has deleted all that it had", async () => {
    await open({});
    await browser.page.keyboard.press("f");
    assert.ok(await browser.get("switch", "Follow").isChecked());
    const {port} = device;
    await device.stop();
    await browser.get("alert", "").filter({hasText: "cannot be reached"}).waitFor();
    device.lines.length = 0;
    device.append({message: "a new beginning"});
    await device.start(port);
    await browser.lines.getByText("a new beginning", {exact: true}).waitFor();
});

test("a log that cannot be read is shown when it can", async () => {
    device = new MockDevice({www: WWW});
    device.failure = "/perm/logs/syslog: Permission denied";
    url = await device.start();
    browser = await Browser.launch();
    await browser.page.goto(url);
    await browser.page.getByText(device.failure).waitFor();
    assert.deepEqual(browser.console.filter((message) => message.startsWith("exception")), []);
    await browser.screenshot("unreadable");
    device.failure = "";
    device.boots[0].bytes += 1;  // the status is another one
    await browser.lines.getByText("flow").last().waitFor();
});

test("a boot that is selected stays below the pointer, and a button shows all of them again", async () => {
    await open({boots: 100});
    const boot = browser.get("listbox", "Boots").getByRole("option", {name: /^Boot 70 /});
    const place = await boot.boundingBox();
    await boot.click();
    await browser.lines.getByTitle(/^boot 70 /).first().waitFor();
    assert.deepEqual(await boot.boundingBox(), place);
    await browser.get("button", "All boots").click();
    await browser.lines.getByTitle(/^boot 100 /).first().waitFor();
    assert.equal(await browser.get("button", "All boots").count(), 0);
});

test("the switch shows its state in forced colors", async () => {
    await open({options: {forcedColors: "active"}});
    const [knob, ground] = await browser.get("switch", "Follow").evaluate((node) =>
        ["::before", null].map((part) => getComputedStyle(node, part).backgroundColor));
    assert.notEqual(knob, ground);
});

test("filters and position survive a reload", async () => {
    await open({boots: 40});
    await browser.get("combobox", "Severity").selectOption("warning");
    await browser.get("textbox", "Program").fill("pumpd");
    await browser.page.getByText(/^\d+ matches$/).waitFor();
    await browser.lines.focus();
    for (let i = 0; i < 30; i += 1) await browser.page.keyboard.press("p");
    const current = await browser.lines.locator("[aria-current]").textContent();
    const cursor = await browser.lines.locator("[aria-current]").evaluate((node) => node.row.cursor);
    await browser.page.waitForURL((address) => new URLSearchParams(address.hash.slice(1)).get("line") === cursor);
    await browser.page.reload();
    await browser.lines.locator("[aria-current]").waitFor();
    assert.equal(await browser.lines.locator("[aria-current]").textContent(), current);
    assert.equal(await browser.get("combobox", "Severity").inputValue(), "warning");
    assert.equal(await browser.get("textbox", "Program").inputValue(), "pumpd");
});

test("errors of the device and of an expression stand at their field", async () => {
    await open({});
    await browser.get("checkbox", "Regular expression").check();
    await browser.search("a(b");
    await browser.page.getByText("unmatched (").waitFor();
    assert.equal(await browser.get("searchbox", "Search").getAttribute("aria-invalid"), "true");
    await browser.get("searchbox", "Search").fill("");
    await browser.get("textbox", "Since").fill("soon");
    await browser.get("textbox", "Since").press("Enter");
    await browser.page.getByText("since: 'soon' is not a time").first().waitFor();
    assert.equal(await browser.page.getByText("since: 'soon' is not a time").count(), 1);
    assert.equal(await browser.get("textbox", "Since").getAttribute("aria-invalid"), "true");
    assert.equal(await browser.get("textbox", "Until").getAttribute("aria-invalid"), null);
});

test("a link into the middle reads on in both directions, without a gap", async () => {
    await open({boots: 20}, "#at=c3000");
    const numbers = () => browser.lines.evaluate((node) => [...node.querySelectorAll(".row")].map((row) => row.row.line));
    await browser.page.waitForFunction(() => document.querySelector("[role=log] .row")?.row.line > 2900);
    let last = (await numbers()).at(-1);
    assert.ok(last < 3200, `${last}`);
    for (let round = 0; round < 400 && last < device.lines.length; round += 1) {
        const rows = await browser.lines.evaluate((node) => {
            node.scrollTop += node.clientHeight - 40;
            return new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(() =>
                resolve([...node.querySelectorAll(".row")].map((row) => row.row.line)))));
        });
        assert.ok(rows[0] <= last + 1, `gap between ${last} and ${rows[0]}`);
        rows.forEach((line, index) => assert.equal(line, rows[0] + index));
        last = rows.at(-1);
    }
    assert.equal(last, device.lines.length);
});

test("links to the first, the last and the only match", async () => {
    await open({boots: 12, special: ["one needle"]});
    const {cursor} = device.lines.at(-1);
    const matches = device.lines.filter((line) => line.message.includes("memory"));
    for (const [wanted, line] of [["needle", cursor], ["memory", matches[0].cursor], ["memory", matches.at(-1).cursor]]) {
        await browser.page.goto("about:blank");
        await browser.page.goto(`${url}#grep=${wanted}&line=${line}`);
        await browser.lines.locator("[aria-current]").waitFor();
        assert.equal(await browser.lines.locator("[aria-current]").evaluate((node) => node.row.cursor), line);
    }
});

// Each follower of the device sends a line: as often as it shows, so many streams are read.
async function followsOnce(message) {
    device.append({message});
    await browser.lines.getByText(message, {exact: true}).first().waitFor();
    assert.deepEqual([device.followers.size, await browser.lines.getByText(message, {exact: true}).count()], [1, 1]);
}

test("follow, pressed three times while the newest lines are read, is on once and can be switched off", async () => {
    await open({boots: 12});
    await browser.search("Out of memory");
    await browser.lines.getByText("Killed process").first().click();
    await browser.page.getByText(/^Around /).waitFor();
    const release = device.hold();
    for (let times = 0; times < 3; times += 1) await browser.page.keyboard.press("f");
    assert.ok(await browser.get("switch", "Follow").isChecked());
    release();
    await browser.page.getByText("Following", {exact: true}).waitFor();
    await followsOnce("Out of memory, after three");
    await browser.page.keyboard.press("f");
    await wait(() => device.followers.size === 0);
    assert.ok(!await browser.get("switch", "Follow").isChecked());
});

test("a search that replaces another while following is followed once", async () => {
    await open({boots: 12, special: ["watchdog fed, early"]});
    await browser.page.keyboard.press("f");
    await wait(() => device.followers.size === 1);
    const release = device.hold();
    await browser.search("watch");
    await wait(() => device.followers.size === 0);
    await browser.search("watchdog fed");
    release();
    await browser.page.getByText("Following", {exact: true}).waitFor();
    await followsOnce("watchdog fed, the last");
    const rows = await browser.lines.evaluate((node) => [...node.querySelectorAll(".row")].map((row) => row.row.line));
    assert.equal(new Set(rows).size, rows.length);
});

test("new lines are counted while the reader is elsewhere", async () => {
    await open({});
    await browser.page.keyboard.press("f");
    await wait(() => device.followers.size === 1);
    await browser.lines.evaluate((node) => { node.scrollTop -= 2000; });
    for (const message of ["one", "two"]) device.append({message});
    await browser.page.getByText("Following, 2 new lines", {exact: true}).waitFor();
    await browser.get("button", "Newest").click();
    await browser.page.getByText("Following", {exact: true}).waitFor();
});

test("a browser that keeps nothing for the page shows it", async () => {
    device = new MockDevice({www: WWW});
    url = await device.start();
    browser = await Browser.launch();
    await browser.page.addInitScript(() => Object.defineProperty(window, "localStorage", {get() { throw new DOMException("denied", "SecurityError"); }}));
    await browser.page.goto(url);
    await browser.lines.getByText("flow").last().waitFor();
});
