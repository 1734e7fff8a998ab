// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A device made of numbers: the addresses of the page's program, for work on the page and for tests
// of states that a real device takes hours to reach (900 boots, 150,000 lines, a slow disk).
// Filters are approximate: the program has its own tests.
import fs from "node:fs";
import http from "node:http";
import path from "node:path";

const TYPES = {".html": "text/html", ".js": "text/javascript", ".css": "text/css"};
const SEVERITIES = ["emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"];
const PROGRAMS = [["kernel", "kern"], ["pumpd", "user"], ["networkd", "daemon"], ["sshd", "auth"], ["crond", "cron"]];
const WORDS = ["pressure within limits", "valve 3 opened", "link is up, 100 Mbit/s full duplex",
    "session opened for user service", "flow 412 l/h, pump at 83 %", "watchdog fed",
    "reading of sensor 17 took 214 ms and is late, it is dropped and the previous value is used for the control loop"];

function stamp(seconds) {
    return new Date(seconds * 1000).toISOString().slice(0, 19);
}

export class MockDevice {
    constructor({www, boots = 12, linesPerBoot = 400, delay = 0, special = []}) {
        Object.assign(this, {www, delay, requests: [], aborted: 0, followers: new Set(), reasons: []});
        const now = Date.parse("2026-11-21T17:48:08Z") / 1000;
        this.lines = [];
        this.boots = [];
        for (let boot = 1; boot <= boots; boot += 1) {
            const start = now - (boots - boot + 1) * 21600 + (boot * 7919) % 9000;
            const number = Math.max(5, Math.round(linesPerBoot * (0.2 + (boot * 31 % 17) / 10)));
            for (let line = 1; line <= number; line += 1) this.add(boot, line, start + line * 17, number);
            this.boots.push({boot, files: 1 + number % 9, bytes: number * 9, first: stamp(start + 17), last: stamp(start + number * 17)});
        }
        for (const message of special) this.append({message});
    }

    add(boot, line, seconds, number) {
        const noise = (boot * 7907 + line * 104729) % 10007;
        const [tag, facility] = PROGRAMS[noise % PROGRAMS.length];
        const isLast = number - line < 4;
        let severity = noise % 97 === 0 ? "err" : noise % 23 === 0 ? "warning" : noise % 5 === 0 ? "debug" : "info";
        let message = WORDS[noise % WORDS.length];
        if (line === 1) [message, severity] = ["Linux version 6.1.0 (gcc 12.2.0) #1 SMP", "notice"];
        if (isLast && boot % 5 === 0) [message, severity] = [["watchdog: watchdog0: watchdog did not stop!", "Out of memory: Killed process 812 (pumpd)", "oom_reaper: reaped process 812 (pumpd)", "Kernel panic - not syncing: Out of memory"][number - line], ["emerg", "err", "crit", "emerg"][number - line]];
        this.append({boot, time: stamp(seconds), facility, severity, tag, pid: tag === "kernel" ? undefined : 300 + noise % 700, message});
    }

    append(line) {
        const number = this.lines.length + 1;
        const boot = this.lines.at(-1)?.boot ?? 1;
        const full = {boot, file: `messages.${String(line.boot ?? boot).padStart(3, "0")}.1970-01-01.00:14:07.txt.xz`,
            line: number, host: "pump-17", ...(line.message !== undefined && !line.tag ? {} : {}), ...line, cursor: `c${number}`};
        this.lines.push(full);
        for (const follower of this.followers) follower(full);
    }

    status() {
        const bytes = this.boots.reduce((sum, boot) => sum + boot.bytes, 0) * 150;
        return {healthy: !this.reasons.length, reasons: this.reasons, daemon: {pid: 812}, syslogd: {pid: 700},
            archive: {files: this.boots.length, bytes, limit_bytes: 2 ** 30, boots: this.boots.length, oldest_boot: 1, newest_boot: this.boots.length},
            waiting: {rotations: 0, bytes: 0}, live_log_bytes: 31000, free_bytes: 2e9};
    }

    filter(query) {
        const ignore = query.has("ignore-case") ? "i" : "";
        const tests = query.getAll("grep").map((text) => new RegExp(query.has("fixed-strings") ? text.replace(/[^\w ]/g, "\\$&") : text, ignore));
        const priority = SEVERITIES.indexOf(query.get("priority"));
        const [first, last = first] = (query.get("boot") ?? "0..65535").split("..").map(Number);
        return (line) => line.boot >= first && line.boot <= last
            && (!tests.length || tests.some((test) => test.test(`${line.time} ${line.severity} ${line.tag}[${line.pid}]: ${line.message}`)))
            && (priority < 0 || (line.severity && SEVERITIES.indexOf(line.severity) <= priority))
            && (!query.get("tag") || line.tag === query.get("tag"))
            && (!query.get("since") || line.time >= query.get("since").replace(" ", "T"))
            && (!query.get("until") || line.time <= query.get("until").replace(" ", "T"));
    }

    // Answers no request for lines until the returned function is called.
    hold() {
        let release;
        this.held = new Promise((resolve) => { release = resolve; });
        return release;
    }

    async log(query, request, response) {
        await this.held;
        const passes = this.filter(query);
        const limit = Number(query.get("lines") ?? 500);
        const before = query.has("before") ? Number(query.get("before").slice(1)) - 1 : this.lines.length;
        const after = query.has("after") ? Number(query.get("after").slice(1)) : 0;
        const isBackward = !query.has("after");
        const found = [];
        let more = false;
        let steps = 0;
        for (let at = isBackward ? before - 1 : after; isBackward ? at >= after : at < before; at += isBackward ? -1 : 1) {
            if (this.delay && ++steps % 2000 === 0) await new Promise((resolve) => setTimeout(resolve, this.delay));
            if (response.destroyed) { this.aborted += 1; return; }
            if (!passes(this.lines[at])) continue;
            if (!query.has("count") && !query.has("download") && found.length === limit) { more = true; break; }
            found.push(this.lines[at]);
            if (query.has("reverse") && isBackward && !query.has("count")) response.write(`${JSON.stringify(this.lines[at])}\n`);
        }
        if (query.has("count")) response.write(`{"count":${found.length}}\n`);
        else if (!query.has("reverse") || !isBackward) {
            if (isBackward !== query.has("reverse")) found.reverse();
            for (const line of found) response.write(`${JSON.stringify(line)}\n`);
        }
        response.end(`${JSON.stringify({end: true, more})}\n`);
    }

    follow(query, response) {
        const passes = this.filter(query);
        const after = query.has("after") ? Number(query.get("after").slice(1)) : Math.max(0, this.lines.length - 10);
        const send = (line) => passes(line) && response.write(`id: ${line.cursor}\ndata: ${JSON.stringify(line)}\n\n`);
        response.write(": ok\n\n");
        for (const line of this.lines.slice(after)) send(line);
        this.followers.add(send);
        response.on("close", () => this.followers.delete(send));
    }

    handle(request, response) {
        const url = new URL(request.url, "http://device");
        this.requests.push(request.url);
        const name = url.pathname.replace(/^\/cgi-bin\/moraine\//, "");
        const json = (value, status = 200) => {
            response.writeHead(status, {"Content-Type": "application/json"});
            response.end(JSON.stringify(value));
        };
        if (name === "status") return json(this.status());
        if (this.failure && ["boots", "log", "follow"].includes(name)) return json({error: this.failure}, 500);
        if (name === "boots") return json(this.boots.map((boot, index) => ({offset: index - this.boots.length + 1, current: index === this.boots.length - 1, ...boot})));
        if (name === "log" || name === "follow") {
            const after = url.searchParams.get("after");
            if (after && Number(after.slice(1)) > this.lines.length) return json({error: "after: this line is not kept any more"}, 404);
            for (const key of ["since", "until"]) {
                if (url.searchParams.has(key) && !/^[\d-]/.test(url.searchParams.get(key))) return json({error: `${key}: '${url.searchParams.get(key)}' is not a time`}, 400);
            }
            const headers = {"Content-Type": name === "log" ? "application/x-ndjson" : "text/event-stream"};
            if (url.searchParams.has("download")) headers["Content-Disposition"] = 'attachment; filename="pump-17-log.txt"';
            response.writeHead(200, headers);
            return name === "log" ? this.log(url.searchParams, request, response) : this.follow(url.searchParams, response);
        }
        if (name === "download") {
            if (url.searchParams.has("dry-run")) return json({members: [{name: "messages.txt.xz", size: 5120}, {name: "manifest.json", size: 600}], size: 3355443});
            response.writeHead(200, {"Content-Type": "application/x-tar", "Content-Disposition": 'attachment; filename="pump-17-logs-20261121-174808.tar"'});
            return response.end("tar");
        }
        const file = path.join(this.www, url.pathname === "/" ? "index.html" : path.basename(url.pathname));
        if (!fs.existsSync(file)) return json({error: "no such address"}, 404);
        response.writeHead(200, {"Content-Type": TYPES[path.extname(file)] ?? "application/octet-stream"});
        response.end(fs.readFileSync(file));
    }

    start(port = 0) {
        this.server = http.createServer((request, response) => this.handle(request, response));
        return new Promise((resolve) => this.server.listen(port, "127.0.0.1", () => {
            this.port = this.server.address().port;
            resolve(`http://127.0.0.1:${this.port}/`);
        }));
    }

    stop() {
        this.server.closeAllConnections();
        return new Promise((resolve) => this.server.close(resolve));
    }
}
