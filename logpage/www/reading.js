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
        this.error = null;
        this.view.clear();
    }

    // Starts anew with these filters: at the line of the cursor `at`, which becomes the current one
    // if `isCurrent`, or at the newest line.
    async open(filters, boots, at, isCurrent) {
        this.clear(filters);
        const signal = this.abort.signal;
        await this.guard(signal, async () => {
            if (at && await this.around(at, isCurrent, signal)) return;
            if (isFiltered(filters)) await this.search(boots, signal);
            else this.older = (await this.readOlder({lines: FIRST_PAGE}, signal)).more;
            if (at) this.view.show(at, isCurrent);
            this.isComplete = true;
        });
    }

    // Runs `work`; its error becomes part of the state. An abort is none.
    async guard(signal, work) {
        this.isComplete = false;
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

    // Reads lines from the newest on, before the oldest that it has got, and continues there if the
    // answer breaks off. `params` may hold a first position.
    async readOlder(params, signal) {
        let position = params;
        const end = await this.device.persist(signal, () =>
            api.log({...parameters(this.filters), ...position, reverse: "1"}, signal, (lines) => {
                position = {...params, before: lines.at(-1).cursor};
                this.view.prepend(lines.reverse());
                this.trim("newer");
            }));
        this.onChange();
        // A device that stopped before it found a line says where.
        return {...end, cursor: end.cursor ?? position.before};
    }

    async readNewer(params, signal) {
        let position = params;
        const end = await this.device.persist(signal, () =>
            api.log({...parameters(this.filters), ...position}, signal, (lines) => {
                position = {...params, after: lines.at(-1).cursor};
                this.view.append(lines);
                this.trim("older");
            }));
        this.onChange();
        return end;
    }

    // Drops what is too much, on one side, from where it can be read again.
    trim(side) {
        if (this.view.rows.length <= MAX_LINES) return;
        if (side === "newer") this.view.truncate(MAX_LINES);
        else this.view.dropOldest(this.view.rows.length - MAX_LINES);
        this[side] = true;
    }

    // False if the line is no longer kept: then there is nothing.
    async around(at, isCurrent, signal) {
        const before = await this.near(() => this.readOlder({before: at, lines: 200}, signal));
        this.older = before.more;
        // Behind the line before, so that the line itself is read too.
        const last = this.view.rows.at(-1)?.cursor ?? at;
        this.newer = (await this.near(() => this.readNewer({after: last, lines: 300}, signal))).more;
        // The very first line has none before it: it is the one before the next.
        const [first] = this.view.rows;
        if (last === at && first) await this.readOlder({before: first.cursor, lines: 1}, signal);
        this.view.show(at, isCurrent);
        this.isComplete = this.view.rows.length > 0;
        return this.isComplete;
    }

    async search(boots, signal) {
        const plan = new Plan(!boots.length ? [{boot: this.filters.boot, bytes: 1}] : boots.filter((boot) => !this.filters.boot || inRange(boot.boot, this.filters.boot)));
        this.progress = 0;
        this.onChange();
        for (let boot; (boot = plan.next()) !== null; ) {
            const start = performance.now();
            let params = {...(boot && {boot}), lines: LAST_PAGE};
            for (;;) {
                const end = await this.readOlder(params, signal);
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

    // More lines on one side, if there are any.
    more(side) {
        if (!this[side] || this.busy[side] || this.progress !== null || !this.view.rows.length) return;
        const signal = this.abort.signal;
        const {rows} = this.view;
        this.step = Math.min(2 * this.step, LAST_PAGE);
        this.busy[side] = true;
        this.guard(signal, async () => {
            const end = await this.near(() => (side === "older"
                ? this.readOlder({before: rows[0].cursor, lines: this.step}, signal)
                : this.readNewer({after: rows.at(-1).cursor, lines: this.step}, signal)));
            this[side] = end.more;
            this.busy[side] = false;
            this.isComplete = true;
        });
    }

    // What was logged since the newest line was read, once.
    refresh() {
        if (!this.view.rows.length || !this.isComplete) return;
        this.newer = true;
        this.more("newer");
    }

    // Adds new lines as they come, until the returned function is called.
    follow() {
        const abort = new AbortController();
        const {signal} = abort;
        this.guard(signal, async () => {
            let last = this.view.rows.at(-1)?.cursor;
            while (!signal.aborted) {
                const params = {...parameters(this.filters), ...(last && {after: last})};
                const gone = await this.near(() => this.device.persist(signal, () => api.follow(params, signal, (lines) => {
                    last = params.after = lines.at(-1).cursor;
                    this.view.append(lines);
                    this.trim("older");
                    this.onChange();
                })));
                if (gone) last = null;  // on from what the device has now
                await new Promise((resolve) => setTimeout(resolve, 500));
            }
        });
        return () => abort.abort();
    }
}

export function inRange(boot, range) {
    const [first, last = first] = range.split("..").map(Number);
    return boot >= first && boot <= last;
}
