// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The lines on the screen. However many lines have been read, only those that can be seen are in
// the document. Heights are estimated from the length of the text, and corrected by those of the
// lines that have been shown; the line at the top stays where it is meanwhile.

import {time, visible} from "./format.js";

const OVERSCAN = 300;      // pixels beyond the window that are ready
const LONGEST = 2000;      // characters of a line that are shown until it is asked for
const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const SEVERITIES = ["emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"];

function element(tag, className, text) {
    const node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined) node.textContent = text;
    return node;
}

// The line as syslogd wrote it, as far as it matters to a search, with where each part begins.
function original(row) {
    if (!row.time) return {text: row.message, message: 0};
    let text = `${MONTHS[row.time.slice(5, 7) - 1]} ${String(Number(row.time.slice(8, 10))).padStart(2)} `;
    const parts = {time: text.length};
    text += `${row.time.slice(11)} `;
    if (row.host) text += `${row.host} `;
    if (row.severity) {
        text += `${row.facility}.`;
        parts.severity = text.length;
        text += `${row.severity} `;
    }
    if (row.tag) {
        parts.program = text.length;
        text += `${program(row)}: `;
    }
    parts.message = text.length;
    parts.text = text + row.message;
    return parts;
}

function program(row) {
    return row.tag ? row.tag + (row.pid === undefined ? "" : `[${row.pid}]`) : "";
}

export class Lines {
    // Calls `onNear("older")` and
    // `onNear("newer")` when an end comes near, `onClick(row)`, `onMove()` after the reader scrolled, and
    // `onRender()` after any change of what is shown.
    constructor(node, {onNear, onClick, onMove, onRender}) {
        this.node = node;
        this.onNear = onNear;
        this.onMove = onMove;
        this.onRender = onRender;
        this.find = () => [];  // returns the ranges of a text that match the search
        this.sizer = node.appendChild(element("div", "sizer"));
        this.window = this.sizer.appendChild(element("div", "window"));
        node.addEventListener("scroll", () => this.scrolled(), {passive: true});
        this.window.addEventListener("click", (event) => {
            const target = event.target.closest(".row");
            if (target && getSelection().isCollapsed) onClick(target.row);
        });
        new ResizeObserver(() => this.resized()).observe(node);
        this.clear();
    }

    clear() {
        this.rows = [];
        this.tops = new Float64Array(1024);
        this.first = 0;     // of the rendered rows
        this.current = null;
        this.isAtEnd = true;
        this.hasNewer = false;
        this.window.replaceChildren();
        this.changed(0);
    }

    // -- The lines

    prepend(rows) {
        this.rows = rows.concat(this.rows);
        this.anchor.index += rows.length;
        this.changed(0);
    }

    append(rows) {
        const from = this.rows.length;
        this.rows = this.rows.concat(rows);
        this.changed(from);
    }

    truncate(length) {
        this.rows.length = length;
        this.anchor.index = Math.min(this.anchor.index, length - 1);
        this.isAtEnd = false;
        this.changed(length);
    }

    dropOldest(number) {
        this.rows.splice(0, number);
        this.anchor.index = Math.max(0, this.anchor.index - number);
        this.changed(0);
    }

    // Scrolls to the line with this cursor; it becomes the current one if `isCurrent`.
    show(cursor, isCurrent) {
        const index = this.rows.findIndex((row) => row.cursor === cursor);
        if (index < 0) return;
        if (isCurrent) this.select(index);
        else this.goTo(index, 0);
    }

    // Makes a line the current one and scrolls it into the middle.
    select(index) {
        this.current = this.rows[index];
        this.goTo(index, Math.max(0, (this.node.clientHeight - this.height(index)) / 2));
    }

    // Puts a line `offset` pixels below the top.
    goTo(index, offset) {
        this.isAtEnd = false;
        this.anchor = {index, offset};
        this.render();
    }

    toEnd() {
        this.isAtEnd = true;
        this.render();
    }

    // Whether there are lines below the window.
    get hasBelow() {
        return this.node.scrollTop + this.node.clientHeight < this.node.scrollHeight - 4;
    }

    // The line at the top of the window.
    get top() {
        return this.rows[this.anchor.index];
    }

    // -- Heights

    // The text is monospaced, so that its length gives the number of rows it takes.
    measure() {
        const style = getComputedStyle(this.node);
        const probe = this.window.appendChild(element("span", "probe", "0".repeat(100)));
        this.columnWidth = probe.getBoundingClientRect().width / 100 || 8;
        this.lineHeight = probe.getBoundingClientRect().height || 20;
        probe.remove();
        this.isNarrow = style.getPropertyValue("--narrow").trim() === "1";
        const padding = parseFloat(style.getPropertyValue("--row-padding")) || 0;
        const beside = this.isNarrow ? 2 : 48;  // characters beside the message
        this.columns = Math.max(10, Math.floor(this.node.clientWidth / this.columnWidth) - beside);
        this.extra = padding + (this.isNarrow ? this.lineHeight : 0);
        this.bandHeight = parseFloat(style.getPropertyValue("--band")) || 0;
    }

    height(index) {
        const row = this.rows[index];
        const band = this.startsBoot(index) ? this.bandHeight : 0;
        if (row.height) return row.height + band;
        const length = row.isOpen ? row.message.length : Math.min(row.message.length, LONGEST);
        return Math.ceil(Math.max(length, 1) / this.columns) * this.lineHeight + this.extra + band;
    }

    startsBoot(index) {
        return this.rows[index].boot !== this.rows[index - 1]?.boot;
    }

    layout(from) {
        const length = this.rows.length;
        if (this.tops.length <= length) {
            const larger = new Float64Array(2 * length);
            larger.set(this.tops);
            this.tops = larger;
        }
        for (let index = from; index < length; index += 1) {
            this.tops[index + 1] = this.tops[index] + this.height(index);
        }
        this.sizer.style.height = `${this.tops[length]}px`;
    }

    indexAt(offset) {
        let low = 0;
        let high = this.rows.length;
        while (low + 1 < high) {
            const middle = (low + high) >> 1;
            if (this.tops[middle] <= offset) low = middle;
            else high = middle;
        }
        return low;
    }

    // -- Rendering

    changed(from) {
        this.anchor ??= {index: 0, offset: 0};
        if (!this.columns) this.measure();
        this.layout(from);
        if (!this.rows.length) this.anchor = {index: 0, offset: 0};
        if (this.isQueued) return;
        this.isQueued = true;
        // Not only in animation frames: there are none in a hidden tab.
        setTimeout(() => {
            this.isQueued = false;
            this.render();
        }, 0);
    }

    resized() {
        this.measure();
        for (const row of this.rows) row.height = 0;
        this.changed(0);
    }

    scrolled() {
        if (this.node.scrollTop === this.expected) return;
        const {scrollTop, clientHeight, scrollHeight} = this.node;
        this.isAtEnd = scrollTop + clientHeight >= scrollHeight - 4 && !this.hasNewer;
        const index = this.indexAt(scrollTop);
        this.anchor = {index, offset: this.tops[index] - scrollTop};
        this.render();
        this.onMove();
    }

    scrollTo(offset) {
        this.node.scrollTop = offset;
        this.expected = this.node.scrollTop;  // this is no scrolling by the user
    }

    // Puts the visible rows into the document. Showing them gives their true heights, which may
    // move others into the window: a second pass is enough nearly always.
    render() {
        for (let pass = 0; pass < 4; pass += 1) {
            this.place();
            if (!this.fill()) break;
        }
        this.onRender();
        if (!this.rows.length) return;
        if (this.first < 100) this.onNear("older");
        if (this.first + this.window.children.length > this.rows.length - 100) this.onNear("newer");
    }

    place() {
        const end = this.tops[this.rows.length] - this.node.clientHeight;
        this.scrollTo(this.isAtEnd ? end : (this.tops[this.anchor.index] ?? 0) - this.anchor.offset);
        if (this.isAtEnd && this.rows.length) {
            const index = this.indexAt(this.node.scrollTop);
            this.anchor = {index, offset: this.tops[index] - this.node.scrollTop};
        }
    }

    // Returns whether heights turned out to be others.
    fill() {
        const {scrollTop, clientHeight} = this.node;
        const first = this.indexAt(Math.max(0, scrollTop - OVERSCAN));
        const last = Math.min(this.rows.length, this.indexAt(scrollTop + clientHeight + OVERSCAN) + 1);
        const old = new Map();
        for (const node of this.window.children) old.set(node.row, node);
        const nodes = [];
        for (let index = first; index < last; index += 1) {
            const row = this.rows[index];
            const node = old.get(row) ?? this.create(row);
            node.toggleAttribute("data-boot", this.startsBoot(index));
            if (row === this.current) node.setAttribute("aria-current", "true");
            else node.removeAttribute("aria-current");
            nodes.push(node);
        }
        this.first = first;
        this.exchange(nodes);
        this.window.style.transform = `translateY(${this.tops[first] ?? 0}px)`;
        return this.correct(first, nodes);
    }

    // Touches only what differs, so that a selection of text survives.
    exchange(nodes) {
        const wanted = new Set(nodes);
        for (const node of [...this.window.children]) if (!wanted.has(node)) node.remove();
        nodes.forEach((node, index) => {
            const present = this.window.children[index];
            if (present !== node) this.window.insertBefore(node, present ?? null);
        });
    }

    correct(first, nodes) {
        let from = -1;
        nodes.forEach((node, offset) => {
            const index = first + offset;
            const height = node.getBoundingClientRect().height - (this.startsBoot(index) ? this.bandHeight : 0);
            if (Math.abs(height - (node.row.height || 0)) < 0.01) return;
            const before = this.height(index);
            node.row.height = height;
            if (from < 0 && Math.abs(this.height(index) - before) > 0.01) from = index;
        });
        if (from >= 0) this.layout(from);
        return from >= 0;
    }

    create(row) {
        const node = element("div", `row s${SEVERITIES.indexOf(row.severity)}`);
        node.row = row;
        node.dataset.label = `Boot ${row.boot}`;
        const where = [`boot ${row.boot}`, `${row.file}, line ${row.line}`];
        if (row.severity) where.push(`${row.facility}.${row.severity}`);
        if (row.host) where.push(row.host);
        node.title = where.join(" · ");
        const parts = original(row);
        const marks = this.find(parts.text.slice(0, LONGEST + parts.message));
        if (row.time) {
            const when = this.cell("time", row.time.slice(11), marks, parts.time);
            when.prepend(element("span", "date", `${row.time.slice(0, 10)} `));
            node.append(when,
                this.cell("severity", row.severity ?? "", marks, parts.severity),
                this.cell("program", program(row), marks, parts.program));
        }
        const isCut = row.message.length > LONGEST && !row.isOpen;
        const text = isCut ? row.message.slice(0, LONGEST) : row.message;
        const message = this.cell(row.time ? "message" : "message whole", text, marks, parts.message);
        if (isCut) message.append(this.opener(row));
        node.append(message);
        return node;
    }

    opener(row) {
        const button = element("button", "open", `… ${(row.message.length - LONGEST).toLocaleString("en")} more characters`);
        button.type = "button";
        button.addEventListener("click", (event) => {
            event.stopPropagation();
            row.isOpen = true;
            row.height = 0;
            this.redraw();
        });
        return button;
    }

    // A part of a line that begins at `start` of the original, with its matches marked.
    cell(className, text, marks, start) {
        const node = element("span", className);
        let at = 0;
        for (const [from, to] of marks) {
            const [first, last] = [Math.max(from - start, at), Math.min(to - start, text.length)];
            if (!(first < last)) continue;
            node.append(visible(text.slice(at, first)), element("mark", "", visible(text.slice(first, last))));
            at = last;
        }
        node.append(visible(text.slice(at)));
        return node;
    }

    // After a change of `find` or of a row.
    redraw() {
        this.window.replaceChildren();
        this.changed(0);
    }

    describe(row) {
        return `${time(row.time)}, boot ${row.boot}`;
    }
}
