// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The time line: a bar for each boot, oldest first, as high as its log is large (by the square
// root), under the day when it began. Boots rather than hours give the scale, since the clock of a device
// may jump and an eventful night is wider than a quiet month.

import {count, duration, size, time} from "./format.js";

const STEPS = 10;
const LABEL_BARS = 2;  // that a label of a day is wide

export class Boots {
    // `onSelect` gets the number of the boot that is selected, or null.
    constructor(node, text, onSelect) {
        this.node = node;
        this.text = text;
        this.onSelect = onSelect;
        this.boots = [];
        this.selected = "";
        this.found = new Map();
        node.addEventListener("click", (event) => this.choose(event.target.closest("[role=option]")));
        node.addEventListener("keydown", (event) => this.key(event));
        node.addEventListener("pointerover", (event) => this.describe(event.target.closest("[role=option]")));
        node.addEventListener("focusin", (event) => this.describe(event.target.closest("[role=option]")));
        node.addEventListener("pointerleave", () => this.describe());
        node.addEventListener("focusout", () => this.describe());
    }

    set(boots) {
        const last = this.boots.at(-1)?.boot;
        const isAtEnd = this.node.scrollLeft + this.node.clientWidth >= this.node.scrollWidth - 40;
        this.boots = boots;
        this.isRead = true;
        const largest = Math.max(1, ...boots.map((boot) => boot.bytes));
        let day = null;  // the last one that has a label, and where it stands
        let labelled = -LABEL_BARS;
        const bars = boots.map((boot, index) => {
            const bar = this.node.children[index] ?? this.bar();
            const today = boot.first?.slice(0, 10);
            delete bar.dataset.day;
            if (today && today !== day && index - labelled >= LABEL_BARS) {
                bar.dataset.day = today.slice(5);
                day = today;
                labelled = index;
            }
            bar.boot = boot;
            bar.id = `boot-${boot.boot}`;
            bar.className = `h${Math.max(1, Math.round(STEPS * Math.sqrt(boot.bytes / largest)))}`;
            bar.setAttribute("aria-label", summary(boot));
            return bar;
        });
        this.node.replaceChildren(...bars);
        this.update();
        if (last === undefined) this.reveal();
        else if (isAtEnd && last !== boots.at(-1)?.boot) this.node.scrollLeft = this.node.scrollWidth;
    }

    bar() {
        const bar = document.createElement("div");
        bar.setAttribute("role", "option");
        bar.append(document.createElement("i"));
        return bar;
    }

    // `range`: the boot that is selected, as in the address.
    select(range) {
        const changed = range !== this.selected;
        this.selected = range;
        this.update();
        if (changed) this.reveal();
    }

    // Marks the boots in which a search has found lines.
    mark(found) {
        this.found = found;
        this.update();
    }

    update() {
        const [first, last = first] = this.selected.split("..");
        for (const bar of this.node.children) {
            const {boot} = bar.boot;
            const isSelected = first !== "" && boot >= Number(first) && boot <= Number(last);
            bar.setAttribute("aria-selected", isSelected);
            bar.tabIndex = -1;
            bar.classList.toggle("found", this.found.has(boot));
            bar.classList.toggle("current", bar.boot.current);
        }
        const focus = this.node.querySelector("[aria-selected=true]") ?? this.node.lastElementChild;
        if (focus) focus.tabIndex = 0;
        this.describe();
    }

    // A bar that can be seen stays where it is, below the pointer that has just selected it.
    reveal() {
        const bar = this.node.querySelector("[aria-selected=true]") ?? this.node.lastElementChild;
        if (!bar) return;
        const {scrollLeft, clientWidth} = this.node;
        const left = bar.offsetLeft - scrollLeft;
        if (left < 0 || left + bar.offsetWidth > clientWidth) this.node.scrollLeft = bar.offsetLeft - clientWidth / 2;
    }

    describe(bar = this.node.querySelector("[aria-selected=true]")) {
        const boots = this.boots;
        if (bar) {
            const matches = this.found.get(bar.boot.boot);
            this.text.textContent = summary(bar.boot) + (matches ? ` · ${count(matches, "match")}` : "");
        } else if (boots.length) {
            const first = boots.find((boot) => boot.first)?.first;
            const last = boots.findLast((boot) => boot.last)?.last;
            this.text.textContent = `${count(boots.length, "boot")} · ${time(first).slice(0, 16)} – ${time(last).slice(0, 16)}`;
        } else {
            this.text.textContent = this.isRead ? "Nothing logged yet" : "";
        }
    }

    choose(bar) {
        if (!bar) return;
        this.onSelect(bar.getAttribute("aria-selected") === "true" ? "" : String(bar.boot.boot));
        this.node.querySelector(`#boot-${bar.boot.boot}`)?.focus();
    }

    key(event) {
        const bars = [...this.node.children];
        const at = bars.indexOf(document.activeElement);
        const target = {ArrowLeft: at - 1, ArrowRight: at + 1, ArrowUp: at - 1, ArrowDown: at + 1,
            PageUp: Math.max(0, at - 20), PageDown: Math.min(bars.length - 1, at + 20), Home: 0,
            End: bars.length - 1}[event.key];
        if (bars[target]) {
            for (const bar of bars) bar.tabIndex = -1;
            bars[target].tabIndex = 0;
            bars[target].focus();
        } else if (event.key === "Enter" || event.key === " ") {
            this.choose(bars[at]);
        } else {
            return;
        }
        event.preventDefault();
    }
}

function summary(boot) {
    const span = duration(boot.first, boot.last);
    const times = boot.first ? `${time(boot.first)} – ${time(boot.last)}${span && ` (${span})`}` : "no time stamps";
    return `Boot ${boot.boot}${boot.current ? ", running" : ""} · ${size(boot.bytes)} · ${count(boot.files, "file")} · ${times}`;
}
