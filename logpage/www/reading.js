// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What has been read of the log: an array of lines without gaps, oldest first, between what is
// still to be read on either side. Lines come from the newest on, since that is where people look
// first. Whatever breaks off continues behind the last line that arrived, by its cursor.

import * as api from "./api.js";
import {isFiltered, parameters} from "./address.js";

const FIRST_PAGE = 500;
const LAST_PAGE = 10000;
const GONE = 404;
const BATCH_MS = 2000;     // how long one request of a search should take
export const MAX_LINES = 150000;  // kept in memory

// A line, wherever its file is now: what stands before the dash of a cursor depends on that.
const identity = ({boot, cursor}) => `${boot} ${cursor.slice(cursor.indexOf("-") + 1)}`;

// The boots that a search still has to read, newest first, in pieces of about `bytes`.
class Plan {
    constructor(boots) {
        this.left = [...boots];
        this.total = this.left.reduce((sum, boot) => sum + boot.bytes, 0);
        this.done = 0;
        this.bytes = 65536;
    }

    next() {
        if (!this.left.length) return null;
        const last = this.left.pop();
        let first = last;
        this.size = last.bytes;
        while (this.left.length && this.size + this.left.at(-1).bytes <= this.bytes) {
            first = this.left.pop();
            this.size += first.bytes;
        }
        return first === last ? `${last.boot}` : `${first.boot}..${last.boot}`;
    }

    finish(milliseconds) {
        this.done += this.size;
        this.bytes *= Math.min(4, Math.max(0.25, BATCH_MS / (milliseconds + 1)));
    }

    get fraction() {
        return this.total ? this.done / this.total : 1;
    }
}

export class Reading {
    // `view` shows the lines (see lines.js); `onChange` is called when `state` has changed.
    constructor(device, view, onChange) {
        this.device = device;
        this.view = view;
        this.onChange = onChange;
        this.following = null;
        this.clear({});
    }

    // Whether there may be newer lines than those that have been read. Then their end is no place to
    // stay at.
    get newer() {
        return this.view.hasNewer;
    }

    set newer(hasNewer) {
        this.view.hasNewer = hasNewer;
    }

    clear(filters) {
        this.abort?.abort();
        this.abort = new AbortController();
        this.filters = filters;
        this.step = FIRST_PAGE;
        this.older = false;  // whether there may be more lines on that side
        this.newer = false;
        this.busy = {};
        this.progress = null;  // of a search: 0 to 1
        this.cancelled = false;
        this.isComplete = false;
        this.error = null;
        this.newest = null;  // of all lines when a search began, until a later one is followed
        this.view.clear();
    }

    // Starts anew with these filters: at the line of the cursor `at`, which becomes the current one
    // if `isCurrent`, or at the newest line.
    async open(filters, boots, at, isCurrent) {
        this.clear(filters);
        const signal = this.abort.signal;
        await this.guard(signal, async () => {
            if (isFiltered(filters)) await this.findNewest(signal);
            if (!at || !await this.around(at, isCurrent, signal)) {
                if (isFiltered(filters)) await this.search(boots, signal);
                else this.older = (await this.read("older", {lines: FIRST_PAGE}, signal)).more;
                if (at) this.view.show(at, isCurrent);
            }
            this.isComplete = true;
        });
    }

    // Runs `work`; its error becomes part of the state. An abort is none.
    async guard(signal, work) {
        try {
            await work();
        } catch (error) {
            if (signal.aborted) return;
            if (!(error instanceof api.Refused)) console.error(error);
            this.error = error;
        } finally {
            if (!signal.aborted) {
                this.progress = null;
                this.onChange();
            }
        }
    }

    // A line that the device has deleted meanwhile: there is nothing on that side.
    async near(work) {
        try {
            return await work();
        } catch (error) {
            if (error.status !== GONE) throw error;
            return {more: false};
        }
    }

    // Where new lines begin. The last match may be so old that the device cannot search from there.
    async findNewest(signal) {
        await this.device.persist(signal, () => api.log({lines: 1, reverse: "1"}, signal, ([line]) => {
            this.newest = line;
        }));
    }

    // Reads lines on one side of those that it has got, away from them. Continues there if the answer
    // breaks off, and if the device's time was up before it found any. `params` may hold a first position.
    async read(side, params, signal) {
        const isOlder = side === "older";
        const name = isOlder ? "before" : "after";
        let position = params[name];
        let isFound = false;
        let end;
        const take = (lines) => {
            isFound = true;
            position = lines.at(-1).cursor;
            if (isOlder) this.view.prepend(lines.reverse());
            else this.view.append(lines);
            this.trim(isOlder ? "newer" : "older");
        };
        do {
            end = await this.device.persist(signal, () => api.log({...parameters(this.filters), ...params,
                ...(position && {[name]: position}), ...(isOlder && {reverse: "1"})}, signal, take));
            position = end.cursor ?? position;
        } while (end.cursor && !isFound);
        this.onChange();
        return {more: end.more, cursor: position};
    }

    // Drops what is too much, on one side, from where it can be read again. While new lines come, the
    // newest stay, and the oldest as long as those before them are being read.
    trim(side) {
        if (this.view.rows.length <= MAX_LINES || (this.following && this.busy.older)) return;
        if (side === "newer") {
            this.newest = null;
            this.view.truncate(MAX_LINES);
        } else this.view.dropOldest(this.view.rows.length - MAX_LINES);
        this[side] = true;
    }

    // False if the line is no longer kept: then there is nothing.
    async around(at, isCurrent, signal) {
        const before = await this.near(() => this.read("older", {before: at, lines: 200}, signal));
        this.older = before.more;
        // Behind the line before, so that the line itself is read too.
        const last = this.view.rows.at(-1)?.cursor ?? at;
        this.newer = (await this.near(() => this.read("newer", {after: last, lines: 300}, signal))).more;
        // The very first line has none before it: it is the one before the next.
        const [first] = this.view.rows;
        if (last === at && first) await this.read("older", {before: first.cursor, lines: 1}, signal);
        this.view.show(at, isCurrent);
        return this.view.rows.length > 0;
    }

    async search(boots, signal) {
        const plan = new Plan(!boots.length ? [{boot: this.filters.boot, bytes: 1}] : boots.filter((boot) => !this.filters.boot || inRange(boot.boot, this.filters.boot)));
        this.progress = 0;
        this.onChange();
        for (let boot; (boot = plan.next()) !== null; ) {
            const start = performance.now();
            let params = {...(boot && {boot}), lines: LAST_PAGE};
            for (;;) {
                const end = await this.near(() => this.read("older", params, signal));
                if (!end.more) break;
                params = {...params, before: end.cursor};
                if (this.view.rows.length >= MAX_LINES) {
                    this.older = true;
                    return;
                }
            }
            plan.finish(performance.now() - start);
            this.progress = plan.fraction;
            this.onChange();
        }
    }

    // Ends a search; what it found stays.
    cancel() {
        if (this.progress === null) return;
        this.abort.abort();
        this.abort = new AbortController();
        this.progress = null;
        this.cancelled = true;
        this.older = true;
        this.onChange();
    }

    // More lines on one side, if there are any. While new lines come, there is no room for all.
    more(side) {
        const {busy, view: {rows}} = this;
        if (!this[side] || busy[side] || this.progress !== null || !rows.length) return;
        this.step = Math.min(2 * this.step, LAST_PAGE);
        if (this.following && rows.length + this.step > MAX_LINES) return;
        const {signal} = this.abort;
        const position = side === "older" ? {before: rows[0].cursor} : {after: rows.at(-1).cursor};
        busy[side] = true;
        this.guard(signal, async () => {
            try {
                const end = await this.near(() => this.read(side, {...position, lines: this.step}, signal));
                this[side] = end.more;
                this.error = null;
            } finally {
                busy[side] = false;
            }
        });
    }

    // What was logged since the newest line was read, once.
    refresh() {
        if (!this.view.rows.length || !this.isComplete) return;
        this.newer = true;
        this.more("newer");
    }

    // Adds new lines as they come, until the returned function is called or `following` is null after
    // an error. `onLines` gets their number.
    follow(onLines) {
        const abort = new AbortController();
        const {signal} = abort;
        this.following = abort;
        this.newer = false;  // They come now.
        this.guard(signal, async () => {
            let last = (this.newest ?? this.view.rows.at(-1))?.cursor;
            // Some of the lines behind `newest` may have been read already.
            const known = new Set(this.newest ? this.view.rows.map(identity) : []);
            const take = (lines) => {
                last = lines.at(-1).cursor;
                const added = lines.filter((line) => !known.has(identity(line)));
                this.newest = null;
                this.view.append(added);
                this.trim("older");
                onLines(added.length);
                this.onChange();
            };
            try {
                while (!signal.aborted) {
                    const gone = await this.near(() => this.device.persist(signal, () =>
                        api.follow({...parameters(this.filters), ...(last && {after: last})}, signal, take)));
                    if (gone) last = null;  // on from what the device has now
                    await new Promise((resolve) => setTimeout(resolve, 500));
                }
            } finally {
                if (this.following === abort) this.following = null;
            }
        });
        return () => {
            abort.abort();
            this.following = null;
        };
    }
}

export function inRange(boot, range) {
    const [first, last = first] = range.split("..").map(Number);
    return boot >= first && boot <= last;
}
