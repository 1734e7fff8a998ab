// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The page on a sandbox with the real syslogd, daemon, server and program: what each role of the page
// does. The elements are found by role and name only, as assistive technology finds them.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {after, before, test} from "node:test";
import {Browser} from "./browser.mjs";
import {Sandbox} from "./sandbox.mjs";

let sandbox, browser;

before(async () => {
    sandbox = await Sandbox.start(["--boots", "25", "--rate", "20"]);
});

after(() => sandbox?.stop());

// A page test: a fresh browser, and afterwards an empty console and no request that left the device.
function pageTest(name, work, options) {
    test(name, {timeout: 120000}, async () => {
        browser = await Browser.launch(options);
        try {
            await browser.page.goto(sandbox.url);
            await browser.lines.getByTitle(/^boot /).first().waitFor();
            await work(browser);
            assert.deepEqual(browser.console, []);
            assert.deepEqual(browser.requests.filter((url) => !url.startsWith(sandbox.url)), []);
        } finally {
            await browser.close();
        }
    });
}

const numbersIn = (texts, pattern) => texts.map((text) => pattern.exec(text)).filter(Boolean).map((match) => Number(match[1]));

pageTest("shows health, archive and boots", async ({get}) => {
    await browser.get("status", "Health").getByText("Healthy", {exact: true}).waitFor();
    const meter = browser.get("meter", "Archive");
    assert.equal(await meter.getAttribute("max"), String(2 ** 30));
    assert.ok(Number(await meter.getAttribute("value")) > 100000);
    const boots = browser.get("listbox", "Boots").getByRole("option");
    await boots.first().waitFor();
    assert.equal(await boots.count(), (await sandbox.json("boots")).length);
    assert.match(await boots.first().getAttribute("aria-label"), /^Boot 1 · .*KiB · \d+ files? · \d{4}-\d\d-\d\d \d\d:\d\d:\d\d – /);
    await browser.screenshot("start");
});

pageTest("a click on a boot shows that boot, another click all of them", async () => {
    const boot = browser.get("listbox", "Boots").getByRole("option", {name: /^Boot 20 /});
    await boot.click();
    await browser.lines.getByTitle(/^boot 20 /).first().waitFor();
    assert.equal(await boot.getAttribute("aria-selected"), "true");
    assert.equal(await browser.lines.getByTitle(/^boot (?!20 )/).count(), 0);
    await boot.click();
    await browser.lines.getByTitle(/^boot 26 /).first().waitFor();
});

pageTest("search: plain, ignoring case, by expression; matches are highlighted", async () => {
    await browser.search("OUT OF MEMORY");
    await browser.page.getByText("No line matches.").waitFor();
    await browser.get("checkbox", "Ignore case").check();
    await browser.lines.getByText("Out of memory", {exact: true}).first().waitFor();
    const {count} = await sandbox.count("grep=out+of+memory&ignore-case=1");
    await browser.page.getByText(`${count} matches`, {exact: true}).waitFor();
    await browser.get("checkbox", "Regular expression").check();
    await browser.search("(panic|killed) +p[a-z]+");
    await browser.lines.getByRole("mark").or(browser.lines.locator("mark")).getByText("Killed process").first().waitFor();
    await browser.screenshot("search");
});

pageTest("the keys /, n and p, Enter and Escape", async () => {
    await browser.page.keyboard.press("/");
    await browser.page.keyboard.type("Out of memory");
    await browser.page.keyboard.press("Enter");
    await browser.page.getByText(/^\d+ matches$/).waitFor();
    await browser.page.keyboard.press("p");
    const last = await browser.lines.locator("[aria-current]").textContent();
    await browser.page.keyboard.press("p");
    const previous = await browser.lines.locator("[aria-current]").textContent();
    assert.notEqual(previous, last);
    await browser.page.keyboard.press("n");
    assert.equal(await browser.lines.locator("[aria-current]").textContent(), last);
    // On from the other end.
    await browser.page.keyboard.press("n");
    await browser.page.getByText(/^Match 1 of \d+$/).waitFor();
    await browser.page.keyboard.press("p");
    assert.equal(await browser.lines.locator("[aria-current]").textContent(), last);
    await browser.page.keyboard.press("Enter");
    await browser.page.getByText(/^Around /).waitFor();
    await browser.lines.getByText("watchdog did not stop").first().waitFor();
    await browser.screenshot("context");
    await browser.page.keyboard.press("Escape");
    await browser.page.getByText(/^Match \d+ of \d+/).waitFor();
});

pageTest("a click on a result shows the surrounding lines", async () => {
    await browser.search("Out of memory");
    await browser.lines.getByText("Killed process").last().click();
    await browser.lines.getByText("invoked oom-killer").first().waitFor();
    await browser.get("button", "Back to results").click();
    await browser.page.getByText(/^Match \d+ of/).waitFor();
    assert.equal(await browser.lines.getByText("invoked oom-killer").count(), 0);
});

pageTest("filters by severity, program and time", async () => {
    await browser.get("combobox", "Severity").selectOption("err");
    let {count} = await sandbox.count("priority=err");
    await browser.page.getByText(`${count.toLocaleString("en")} matches`, {exact: true}).waitFor();
    await browser.get("textbox", "Program").fill("kernel");
    await browser.get("textbox", "Program").press("Enter");
    ({count} = await sandbox.count("priority=err&tag=kernel"));
    await browser.page.getByText(`${count} matches`, {exact: true}).waitFor();
    await browser.get("textbox", "Since").fill("soon");
    await browser.get("textbox", "Since").press("Enter");
    await browser.page.getByText(/since: 'soon' is not a time/).first().waitFor();
    // The browser reports the refused request.
    browser.console.length = 0;
});

pageTest("follow shows each line once, across rotations", async () => {
    await browser.page.keyboard.press("f");
    assert.ok(await browser.get("switch", "Follow").isChecked());
    await sandbox.log(1, 3000);  // more than a rotation
    await browser.lines.getByText("number 3000 end").waitFor({timeout: 60000});
    const seen = await browser.lines.evaluate((node) => {
        const all = [];
        for (let at = node.scrollHeight; at >= 0; at -= node.clientHeight / 2) {
            node.scrollTop = at;
            node.dispatchEvent(new Event("scroll"));
            all.push(...[...node.querySelectorAll(".message")].map((message) => message.textContent));
        }
        return all;
    });
    const numbers = new Set(numbersIn(seen, /^number (\d+) end$/));
    const missing = Array.from({length: 3000}, (_, i) => i + 1).filter((number) => !numbers.has(number));
    assert.deepEqual(missing, []);
    const cursors = await sandbox.lines("grep=number+%5B0-9%5D*+end&lines=10000");
    assert.deepEqual(numbersIn(cursors.map((line) => line.message), /^number (\d+) end$/), Array.from({length: 3000}, (_, i) => i + 1));
});

pageTest("a download is saved whole", async () => {
    await browser.get("button", "Download").first().click();
    const dialog = browser.get("dialog", "Download");
    await dialog.getByText(/^Size: [\d.]+ [KM]iB, \d+ files$/).waitFor();
    await browser.screenshot("download");
    const saving = browser.page.waitForEvent("download");
    await dialog.getByRole("button", {name: "Download"}).click();
    const saved = await saving;
    assert.match(saved.suggestedFilename(), /^pump-17-logs-\d{8}-\d{6}\.tar$/);
    const names = execFileSync("tar", ["tf", await saved.path()], {encoding: "utf8"}).trim().split("\n");
    assert.equal(names[0], "messages.txt.xz");
    assert.equal(names.at(-1), "manifest.json");
    const manifest = JSON.parse(execFileSync("tar", ["xOf", await saved.path(), "manifest.json"], {encoding: "utf8"}));
    assert.ok(manifest);
    for (const name of names.slice(0, -1)) {
        execFileSync("sh", ["-c", `tar xOf "$1" "$2" | xz -t`, "sh", await saved.path(), name]);
    }
});

pageTest("filtered lines are saved as text", async () => {
    await browser.search("Out of memory");
    await browser.page.getByText(/^\d+ matches$/).waitFor();
    await browser.get("button", "Download").first().click();
    const dialog = browser.get("dialog", "Download");
    await dialog.getByRole("radio", {name: "Only the filtered lines"}).check();
    await dialog.getByText(/^Size: about .*lines$/).waitFor();
    const saving = browser.page.waitForEvent("download");
    await dialog.getByRole("button", {name: "Download"}).click();
    const text = execFileSync("cat", [await (await saving).path()], {encoding: "utf8"});
    const {count} = await sandbox.count("grep=Out+of+memory");
    assert.equal(text.split("\n").length - 1, count);
    assert.ok(text.split("\n").slice(0, -1).every((line) => line.includes("Out of memory")));
});

pageTest("copy link: filters and position survive in another window", async () => {
    await browser.context.grantPermissions(["clipboard-read", "clipboard-write"]);
    await browser.search("Out of memory");
    await browser.page.getByText(/^\d+ matches$/).waitFor();
    await browser.page.keyboard.press("p");
    await browser.page.keyboard.press("p");
    const current = await browser.lines.locator("[aria-current]").textContent();
    await browser.get("button", "Copy link").click();
    await browser.page.getByText("Link copied").waitFor();
    const link = await browser.page.evaluate(() => navigator.clipboard.readText());
    const other = await browser.context.newPage();
    await other.goto(link);
    await other.locator("[aria-current]").waitFor();
    assert.equal(await other.locator("[aria-current]").textContent(), current);
    assert.equal(await other.getByRole("searchbox", {name: "Search"}).inputValue(), "Out of memory");
});

pageTest("the link to the end of the log has a position, too", async () => {
    await browser.context.grantPermissions(["clipboard-read", "clipboard-write"]);
    await browser.get("button", "Copy link").click();
    await browser.page.getByText("Link copied").waitFor();
    assert.match(browser.page.url(), /#at=/);
});

pageTest("log text is never markup", async () => {
    await sandbox.logText("<img src=x onerror=alert(1)><script>alert(2)</script> \u202egnp.exe </span>");
    await browser.search("onerror");
    await browser.lines.getByText("<img src=x onerror=alert(1)>").or(browser.lines.getByText("onerror", {exact: true})).first().waitFor();
    assert.equal(await browser.lines.locator("img, script").count(), 0);
    assert.match(await browser.lines.textContent(), /<U\+202E>gnp\.exe/);
});

for (const colorScheme of ["light", "dark"]) {
    const sizes = [["phone", 360, 740], ["desk", 1280, 800], ["4k", 3840, 2160]];
    for (const [name, width, height] of process.env.PAGE_QUICK ? sizes.slice(0, 1) : sizes) {
        pageTest(`axe-core finds nothing: ${colorScheme}, ${name}`, async () => {
            assert.deepEqual(await browser.findings(), []);
            assert.ok(await browser.page.evaluate(() => document.documentElement.scrollWidth <= innerWidth));
            await browser.search("Out of memory");
            await browser.lines.getByText("Killed process").first().waitFor();
            await browser.screenshot(`${colorScheme}-${name}`);
            assert.deepEqual(await browser.findings(), []);
            await browser.get("button", "Download").first().click();
            await browser.get("dialog", "Download").getByText(/^Size: [\d.]+/).waitFor();
            assert.deepEqual(await browser.findings(), []);
            await browser.screenshot(`${colorScheme}-${name}-download`);
        }, {colorScheme, viewport: {width, height}});
    }
}
