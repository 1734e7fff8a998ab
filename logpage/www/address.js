// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the page shows, as the part of its address behind "#": a link shows the same again. The
// browser does not send this part to the device.
//
// A place in the log is a cursor: `at` the line at the top of the window, `line` one that is marked,
// `context` one that is shown with what surrounds it, whatever the filters are.

const TEXTS = ["grep", "priority", "tag", "since", "until", "boot", "at", "line", "context"];
const FLAGS = ["regexp", "ignore-case", "follow"];

export function read() {
    const params = new URLSearchParams(location.hash.slice(1));
    const state = {};
    for (const name of TEXTS) state[name] = params.get(name) ?? "";
    for (const name of FLAGS) state[name] = params.has(name);
    return state;
}

export function write(state, {push = false} = {}) {
    const params = new URLSearchParams();
    for (const name of TEXTS) if (state[name]) params.set(name, state[name]);
    for (const name of FLAGS) if (state[name]) params.set(name, "1");
    const hash = params.toString();
    if (hash === location.hash.slice(1)) return;
    const url = hash ? `#${hash}` : location.pathname + location.search;
    if (push) history.pushState(null, "", url);
    else history.replaceState(null, "", url);
}

// Whether lines are left out, other than those of other boots.
export function isFiltered(state) {
    return Boolean(state.grep || state.priority || state.tag || state.since || state.until);
}

// The program's parameters for the filters of a state.
export function parameters(state) {
    const params = {};
    for (const name of ["grep", "priority", "tag", "since", "until", "boot"]) {
        if (state[name]) params[name] = state[name];
    }
    if (state.grep && !state.regexp) params["fixed-strings"] = "1";
    if (state.grep && state["ignore-case"]) params["ignore-case"] = "1";
    return params;
}
