// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The download dialog: what to save, and how large it is before the browser saves it.

import * as api from "./api.js";
import {parameters} from "./address.js";
import {count, size} from "./format.js";

const DELAY_MS = 300;

export class Download {
    // `state` returns what the page shows, `boots` the boots, `bytesPerLine` an estimate.
    constructor(dialog, {state, boots, bytesPerLine}) {
        Object.assign(this, {dialog, state, boots, bytesPerLine});
        this.form = dialog.querySelector("form");
        this.save = dialog.querySelector("#save");
        this.text = dialog.querySelector("#size");
        this.form.addEventListener("input", () => this.changed());
        this.save.addEventListener("click", () => this.start());
        dialog.addEventListener("close", () => this.abort?.abort());
    }

    open() {
        const numbers = this.boots().map((boot) => boot.boot);
        const [first, last = first] = (this.state().boot || String(numbers.at(-1) ?? 0)).split("..");
        this.field("first-boot").value = first;
        this.field("last-boot").value = last;
        if (this.state().boot) this.form.elements.what.value = "boots";
        this.dialog.showModal();
        this.changed();
    }

    field(id) {
        return this.dialog.querySelector(`#${id}`);
    }

    get what() {
        return this.form.elements.what.value;
    }

    // The program's name and parameters of the selection.
    request() {
        if (this.what === "lines") {
            return ["log", {...parameters(this.state()), download: this.field("format").value}];
        }
        const params = {limit: this.field("limit").value};
        if (this.what === "boots") params.boot = `${this.field("first-boot").value}..${this.field("last-boot").value}`;
        if (this.what === "newest" || this.what === "oldest") {
            params[this.what] = "1";
            params.files = this.field("max-files").value;
        }
        return ["download", params];
    }

    changed() {
        for (const node of this.dialog.querySelectorAll("[data-for]")) {
            node.hidden = !node.dataset.for.split(" ").includes(this.what);
        }
        this.abort?.abort();
        this.save.disabled = true;
        this.text.textContent = "Size: computing …";
        clearTimeout(this.timer);
        this.timer = setTimeout(() => this.measure(), DELAY_MS);
    }

    async measure() {
        this.abort = new AbortController();
        const {signal} = this.abort;
        try {
            const text = this.what === "lines" ? await this.countLines(signal) : await this.dryRun(signal);
            if (signal.aborted) return;
            this.text.textContent = text ? `Size: ${text}` : "Nothing to save.";
            this.save.disabled = !text;
        } catch (error) {
            if (!signal.aborted) this.text.textContent = `Size unknown: ${error.message}`;
        }
    }

    async dryRun(signal) {
        const [name, params] = this.request();
        const answer = await api.json(name, {...params, "dry-run": "1"}, signal);
        return answer.members.length ? `${size(answer.size)}, ${count(answer.members.length, "file")}` : "";
    }

    async countLines(signal) {
        let lines = 0;
        const take = ([answer]) => { lines = answer.count; };
        await api.log({...parameters(this.state()), count: "1"}, signal, take);
        return lines ? `about ${size(lines * this.bytesPerLine(this.field("format").value))}, ${count(lines, "line")}` : "";
    }

    // The browser saves the file under the name that the device gives.
    start() {
        const link = document.createElement("a");
        link.href = api.address(...this.request());
        link.download = "";
        link.click();
        this.dialog.close();
    }
}
