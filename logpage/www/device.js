// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Whether the device answers. Requests that fail report it here and wait until it is back.

import {BUSY, Unreachable, json} from "./api.js";

const POLL_MS = 5000;
const ANSWER_MS = 10000;

export class Device {
    // `onStatus` gets each answer of `status`, `onChange` whether the device can be reached.
    constructor(onStatus, onChange) {
        this.onStatus = onStatus;
        this.onChange = onChange;
        this.isLost = false;
        this.waiting = [];
        addEventListener("online", () => this.poll());
        document.addEventListener("visibilitychange", () => document.hidden || this.poll());
    }

    // Reads the status now and then on, while somebody looks.
    async poll() {
        clearTimeout(this.timer);
        this.current?.abort();
        const current = new AbortController();
        this.current = current;
        const limit = setTimeout(() => current.abort(), ANSWER_MS);
        try {
            this.onStatus(await json("status", {}, current.signal, false));
            this.found();
        } catch (error) {
            if (this.current !== current) return;
            if (error instanceof Unreachable || error.name === "AbortError") this.lost();
            else {
                if (error.status !== BUSY) this.onStatus({healthy: false, reasons: [error.message]});
                this.found();
            }
        } finally {
            clearTimeout(limit);
            if (this.current === current) {
                this.timer = setTimeout(() => this.poll(), document.hidden ? 12 * POLL_MS : POLL_MS);
            }
        }
    }

    lost() {
        if (this.isLost) return;
        this.isLost = true;
        this.onChange(true);
        clearTimeout(this.timer);
        this.timer = setTimeout(() => this.poll(), 1000);
    }

    found() {
        if (!this.isLost) return;
        this.isLost = false;
        this.onChange(false);
        for (const resolve of this.waiting.splice(0)) resolve();
    }

    // Runs `work` until it ends otherwise than by the loss of the device.
    async persist(signal, work) {
        for (;;) {
            try {
                return await work();
            } catch (error) {
                if (signal.aborted || !(error instanceof Unreachable)) throw error;
            }
            this.lost();
            await new Promise((resolve) => this.waiting.push(resolve));
            signal.throwIfAborted();
        }
    }
}
