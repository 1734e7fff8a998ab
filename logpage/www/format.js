// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Numbers, sizes and text as people read them.

const UNITS = ["B", "KiB", "MiB", "GiB", "TiB"];

export function size(bytes) {
    let unit = 0;
    while (bytes >= 1024 && unit < UNITS.length - 1) {
        bytes /= 1024;
        unit += 1;
    }
    return `${unit && bytes < 100 ? bytes.toFixed(1) : Math.round(bytes)} ${UNITS[unit]}`;
}

export function count(number, noun) {
    const plural = noun.endsWith("ch") ? `${noun}es` : `${noun}s`;
    return `${number.toLocaleString("en")} ${number === 1 ? noun : plural}`;
}

// "2026-11-21T17:48:08" without the T.
export function time(text) {
    return text ? text.replace("T", " ") : "no time";
}

// How long from one time stamp to another; empty if the clock was set back meanwhile. The browser's
// time zone has nothing to do with the device's.
export function duration(first, last) {
    const seconds = (Date.parse(`${last}Z`) - Date.parse(`${first}Z`)) / 1000;
    if (!(seconds >= 0)) return "";
    if (seconds < 60) return `${seconds} s`;
    if (seconds < 3600) return `${Math.round(seconds / 60)} min`;
    if (seconds < 172800) return `${(seconds / 3600).toFixed(1)} h`;
    return `${Math.round(seconds / 86400)} days`;
}

// Control characters and marks that change the direction of text, made visible: a line of the log
// must not rearrange what stands beside it.
// eslint-disable-next-line no-control-regex
const HIDDEN = /[\x00-\x08\x0a-\x1f\x7f-\x9f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]/g;

export function visible(text) {
    return text.replace(HIDDEN, (character) => {
        const code = character.charCodeAt(0);
        if (code < 32) return String.fromCharCode(0x2400 + code);
        return code === 127 ? "\u2421" : `<U+${code.toString(16).toUpperCase().padStart(4, "0")}>`;
    });
}
