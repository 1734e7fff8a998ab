// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Requests to the program on the device. An answer that breaks off is an Unreachable, so that
// callers can continue behind the last line they have.

const PROGRAM = "cgi-bin/moraine/";
export const BUSY = 503;
const SILENCE_MS = 20000;  // the device sends something each second

// The device does not answer, or stopped in the middle.
export class Unreachable extends Error {}

// The device answered with an error.
export class Refused extends Error {
    constructor(status, message) {
        super(message);
        this.status = status;
    }
}

export function address(name, params = {}) {
    const query = new URLSearchParams(params).toString();
    return PROGRAM + name + (query && `?${query}`);
}

function wait(milliseconds, signal) {
    return new Promise((resolve, reject) => {
        const abort = () => {
            clearTimeout(timer);
            reject(signal.reason);
        };
        const timer = setTimeout(() => {
            signal?.removeEventListener("abort", abort);
            resolve();
        }, milliseconds);
        signal?.addEventListener("abort", abort);
    });
}

// A busy device is asked again until it has time, if the caller is patient.
async function request(name, params, signal, isPatient = true) {
    for (;;) {
        let response;
        try {
            response = await fetch(address(name, params), {signal, cache: "no-store"});
        } catch (error) {
            throw signal?.aborted && error.name === "AbortError" ? error : new Unreachable(error.message);
        }
        if (response.ok) return response;
        if (response.status !== BUSY || !isPatient) {
            const answer = await response.json().catch(() => ({}));
            throw new Refused(response.status, answer.error ?? `error ${response.status}`);
        }
        await response.body?.cancel();
        await wait(1000 * (Number(response.headers.get("Retry-After")) || 1), signal);
    }
}

export async function json(name, params, signal, isPatient) {
    const response = await request(name, params, signal, isPatient);
    try {
        return await response.json();
    } catch (error) {
        throw new Unreachable(error.message);
    }
}

// The next piece of an answer. A power cut of the device does not end the connection, so silence is
// an error.
async function readPiece(reader) {
    let timer;
    const silence = new Promise((resolve, reject) => {
        timer = setTimeout(() => reject(new Error("the device is silent")), SILENCE_MS);
    });
    try {
        return await Promise.race([reader.read(), silence]);
    } finally {
        clearTimeout(timer);
    }
}

// Calls `take` with the complete text lines of each piece that arrives.
async function readLines(response, signal, take) {
    const reader = response.body.getReader();
    const decoder = new TextDecoder();
    let rest = [];
    for (;;) {
        let piece;
        try {
            piece = await readPiece(reader);
        } catch (error) {
            reader.cancel().catch(() => {});  // It may have failed.
            throw signal?.aborted ? error : new Unreachable(error.message);
        }
        if (piece.done) return;
        signal?.throwIfAborted();
        const lines = decoder.decode(piece.value, {stream: true}).split("\n");
        rest.push(lines[0]);
        if (lines.length === 1) continue;
        lines[0] = rest.join("");
        rest = [lines.pop()];
        take(lines);
    }
}

// Hands log lines over; an error of the device stands behind them.
function deliver(lines, take) {
    const error = lines.at(-1)?.error;
    if (error) lines.pop();
    if (lines.length) take(lines);
    if (error) throw new Refused(200, error);
}

// Calls `take` with arrays of log lines, in the order of the answer. Returns its last object.
export async function log(params, signal, take) {
    let end;
    await readLines(await request("log", params, signal), signal, (texts) => {
        const lines = texts.map((text) => JSON.parse(text));
        if (lines.at(-1).end) end = lines.pop();
        deliver(lines, take);
    });
    if (!end) throw new Unreachable("the answer broke off");
    return end;
}

// Calls `take` with arrays of new log lines until the device ends the answer.
export async function follow(params, signal, take) {
    await readLines(await request("follow", params, signal), signal, (texts) => {
        deliver(texts.filter((text) => text.startsWith("data:")).map((text) => JSON.parse(text.slice(5))), take);
    });
}
