// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A sandbox with the product and the page in it, as ./page starts it.
import assert from "node:assert/strict";
import {spawn} from "node:child_process";
import net from "node:net";
import readline from "node:readline";
import {ROOT} from "./browser.mjs";

const BUILD = process.env.PAGE_BUILD ?? "build/release";

function freePort() {
    return new Promise((resolve) => {
        const server = net.createServer().listen(0, "127.0.0.1", () => {
            const {port} = server.address();
            server.close(() => resolve(port));
        });
    });
}

export class Sandbox {
    static async start(options = []) {
        const sandbox = new Sandbox();
        const port = await freePort();
        sandbox.url = `http://127.0.0.1:${port}/`;
        sandbox.process = spawn("python3", ["-B", "-m", "rig.page", "--build", BUILD, "--port", port, "--commands", ...options],
            {cwd: ROOT, stdio: ["pipe", "pipe", "inherit"]});
        sandbox.output = readline.createInterface({input: sandbox.process.stdout})[Symbol.asyncIterator]();
        const first = await sandbox.output.next();
        assert.match(first.value, /^http:/);
        return sandbox;
    }

    async stop() {
        this.process.stdin.end();
        await new Promise((resolve) => this.process.on("exit", resolve));
    }

    // Has the sandbox log one line, or the lines "number FIRST end" to "number LAST end".
    async logText(text) {
        await this.command({text});
    }

    async log(first, last) {
        await this.command({first, last});
    }

    async command(order) {
        this.process.stdin.write(`${JSON.stringify(order)}\n`);
        const answer = await this.output.next();
        assert.equal(answer.value, "done");
    }

    async json(path) {
        return (await fetch(`${this.url}cgi-bin/moraine/${path}`)).json();
    }

    async lines(query) {
        const text = await (await fetch(`${this.url}cgi-bin/moraine/log?${query}`)).text();
        const lines = text.trim().split("\n").map((line) => JSON.parse(line));
        assert.ok(lines.pop().end);
        return lines;
    }

    async count(query) {
        return (await this.lines(`count&${query}`))[0];
    }
}
