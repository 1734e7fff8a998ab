// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The page: connects its parts, and keeps its address in step with what it shows.

import * as address from "./address.js";
import {Refused, json} from "./api.js";
import {Boots} from "./boots.js";
import {Device} from "./device.js";
import {Download} from "./download.js";
import {matcher} from "./expression.js";
import {count, size} from "./format.js";
import {Lines} from "./lines.js";
import {MAX_LINES, Reading} from "./reading.js";

const TYPING_MS = 600;
const SERVER_ERROR = 500;
const TEXT_FILTERS = ["tag", "since", "until"];

const $ = (id) => document.getElementById(id);
const show = (id, isShown) => { $(id).hidden = !isShown; };

let state = address.read();
let results = null;      // while a context is shown: where its line stands in the results
let opening = null;      // the latest call of open() as long as it reads
let wantsFollow = false; // what the switch says
let stopFollowing = null;
let host = location.hostname;  // until a line gives the device's name
let newLines = 0;        // that came while the reader was elsewhere

const lines = new Lines($("lines"), {
    onNear: (side) => reading.more(side),
    onClick: (row) => (state.context || !address.isFiltered(state) ? mark(row) : openContext(row)),
    onMove: moved,
    onRender: showNewest,
});
const device = new Device(showStatus, showReachable);
const reading = new Reading(device, lines, showState);
const boots = new Boots($("boots"), $("boot-text"), (boot) => change({boot}));
const download = new Download($("dialog"), {
    state: () => state,
    boots: () => boots.boots,
    bytesPerLine: (format) => {
        const sample = lines.rows.slice(-200);
        const overhead = format === "json" ? 230 : 60;
        return overhead + sample.reduce((sum, row) => sum + row.message.length, 0) / (sample.length || 1);
    },
});

// -- The state of the device

let archive = "";

function showHealth(className, text, reasons = []) {
    const node = $("health");
    const version = [text, ...reasons].join("\n");
    if (node.dataset.version === version) return;  // It would be read out again.
    node.dataset.version = version;
    node.className = className;
    const title = document.createElement("b");
    title.textContent = text;
    const list = document.createElement("ul");
    for (const reason of reasons) list.appendChild(document.createElement("li")).textContent = reason;
    node.replaceChildren(title, ...(reasons.length ? [list] : []));
}

function showStatus(status) {
    if (status.healthy) showHealth("healthy", "Healthy");
    else showHealth("ill", "Not healthy", status.reasons);
    if (!status.archive) return;
    const {bytes, limit_bytes: limit} = status.archive;
    const text = `Archive ${size(bytes)} of ${size(limit)}`;
    $("archive-text").textContent = text;
    Object.assign($("archive-meter"), {max: limit, value: bytes, textContent: text, ariaValueMax: limit, ariaValueNow: bytes, ariaValueText: text});
    const version = JSON.stringify([status.archive, status.waiting?.rotations]);
    if (archive && archive !== version) readBoots();
    archive = version;
}

function showReachable(isLost) {
    const since = new Date().toLocaleTimeString([], {hour12: false});
    $("offline").textContent = `The device cannot be reached since ${since}. This is what was read before; the page continues by itself when the device is back.`;
    show("offline", isLost);
    document.body.classList.toggle("lost", isLost);
    if (isLost) return showHealth("ill", "Unreachable");
    readBoots();
    if (lines.isAtEnd && !stopFollowing) reading.refresh();
}

// Without them the lines are worth having.
async function readBoots() {
    try {
        boots.set(await device.persist(new AbortController().signal, () => json("boots")));
    } catch (error) {
        if (!(error instanceof Refused)) throw error;
        return;
    }
    // The log can be read again. A search that took too long is not repeated.
    if (reading.error?.status >= SERVER_ERROR && !address.isFiltered(state)) open(wantsFollow);
}

// -- What is shown

// Shows what the address says, and then follows it if `isFollowed`. Returns false if another call has
// come before all was read.
async function open(isFollowed = false) {
    const mine = opening = {};
    state = address.read();
    fillForm();
    setFollow(isFollowed);
    boots.select(state.boot);
    show("all-boots", Boolean(state.boot));
    if (!state.context) boots.mark(new Map());
    const filters = state.context ? {} : state;
    if (!setMatcher()) {
        opening = null;
        return true;
    }
    await reading.open(filters, boots.boots, state.context || state.line || state.at, Boolean(state.context || state.line));
    if (opening !== mine) return false;
    opening = null;
    if (state.context) results ??= {list: [], index: -1};
    if (wantsFollow) startFollowing();
    return true;
}

// Changes filters, and begins again.
function change(changes) {
    const next = {...state, ...changes, at: "", line: "", context: ""};
    if (JSON.stringify(next) === JSON.stringify(state)) return;
    results = null;
    address.write(next, {push: true});
    open(wantsFollow && !next.boot);
}

function fillForm() {
    $("search").value = state.grep;
    $("search").placeholder = state.boot ? `Search boot ${state.boot}` : "Search all boots";
    $("regexp").checked = state.regexp;
    $("ignore-case").checked = state["ignore-case"];
    $("priority").value = state.priority;
    for (const name of TEXT_FILTERS) $(name).value = state[name];
}

// False, with a message, if the expression has an error.
function setMatcher() {
    let error = "";
    try {
        lines.find = matcher(state.grep, state.regexp, state["ignore-case"]);
    } catch (caught) {
        lines.find = () => [];
        error = caught.message;
    }
    fieldError("search", error);
    if (error) {
        reading.clear(state);
        showState();
    }
    return !error;
}

function fieldError(field, message) {
    const fields = field === "search" ? ["search"] : ["since", "until"];
    const error = $(field === "search" ? "search-error" : "time-error");
    error.textContent = message;
    error.hidden = !message;
    for (const name of fields) {
        if (message && (name === field || field === "search")) $(name).setAttribute("aria-invalid", "true");
        else $(name).removeAttribute("aria-invalid");
    }
}

// An error of the device, at the field that it names.
function showError(error) {
    const field = ["since", "until"].find((name) => error?.message.includes(name));
    fieldError("since", "");
    if (error instanceof Refused && field) fieldError(field, error.message);
    else if (error instanceof Refused && error.message.includes("grep")) fieldError("search", error.message);
}

function showState() {
    if (stopFollowing && !reading.following) return setFollow(false);  // by an error
    const isSearch = address.isFiltered(state) && !state.context;
    const isSearching = reading.progress !== null;
    showError(reading.error);
    show("progress", isSearching);
    show("cancel", isSearching);
    if (isSearching) $("progress").value = reading.progress;
    show("back", Boolean(state.context));
    show("clear", isSearch && !isSearching);
    showNewest();
    $("message").textContent = describe(isSearch, isSearching);
    $("lines").classList.toggle("results", isSearch);
    if (isSearch && !state.at && !state.line) markBoots();
    host = lines.rows.at(-1)?.host ?? host;
    $("host").textContent = host;
    document.title = `${host}: log`;
}

function describe(isSearch, isSearching) {
    if (document.querySelector("#filters [aria-invalid]")) return "";  // It has the error beside it.
    if (reading.error) return reading.error.message;
    const found = lines.rows.length;
    const which = lines.current ? `Match ${(lines.rows.indexOf(lines.current) + 1).toLocaleString("en")} of ${found.toLocaleString("en")}` : count(found, "match");
    if (isSearching) return `Searching, ${Math.floor(100 * reading.progress)} %: ${count(found, "match")}`;
    if (state.context) return `Around ${lines.current ? lines.describe(lines.current) : "the line"}`;
    if (stopFollowing && newLines && !lines.isAtEnd) return `Following, ${count(newLines, "new line")}`;
    if (stopFollowing) return "Following";
    if (!isSearch) return found || !reading.isComplete ? "" : "No lines";
    if (reading.cancelled) return `Cancelled: ${which} so far`;
    if (!found) return reading.isComplete ? "No line matches." : "";
    if (found >= MAX_LINES) return `${which}, the newest`;
    return `${which}${reading.older || reading.newer ? " so far" : ""}`;
}

function markBoots() {
    const found = new Map();
    for (const {boot} of lines.rows) found.set(boot, (found.get(boot) ?? 0) + 1);
    boots.mark(found);
}

// -- Position

let moveTimer = 0;

function showNewest() {
    show("newest", !state.context && (lines.hasBelow || reading.newer));
}

function moved() {
    if (lines.isAtEnd && newLines) {
        newLines = 0;
        showState();
    }
    clearTimeout(moveTimer);
    moveTimer = setTimeout(() => storePosition(false), 300);
}

// At the end there is no place to keep, unless the link is meant for somebody who opens it later.
function storePosition(isForLink) {
    if (state.context) return;
    state.line = lines.current?.cursor ?? "";
    const isOpen = stopFollowing || (lines.isAtEnd && !isForLink);
    state.at = state.line || isOpen ? "" : lines.top?.cursor ?? "";
    address.write(state);
}

function mark(row) {
    lines.select(lines.rows.indexOf(row));
    storePosition(false);
    showState();
}

async function toNewest() {
    lines.current = null;
    newLines = 0;
    if (reading.newer || state.context) {
        const {context} = state;
        state = {...state, at: "", line: "", context: "", ...(context ? {grep: "", tag: "", priority: "", since: "", until: ""} : {})};
        address.write(state, {push: Boolean(context)});
        if (!await open()) return;
    }
    lines.toEnd();
    storePosition(false);
    showState();
}

// -- Matches and their context

function openContext(row) {
    storePosition(false);
    results = {list: lines.rows, index: lines.rows.indexOf(row)};
    address.write({...state, at: "", line: row.cursor});
    address.write({...state, at: "", line: "", follow: false, context: row.cursor}, {push: true});
    open();
    $("lines").focus();
}

function backToResults() {
    const {list, index} = results ?? {list: []};
    address.write({...state, context: "", line: list[index]?.cursor ?? state.context}, {push: true});
    open();
    $("lines").focus();
}

// Goes to the match `step` lines away; in a context, to the context of that match.
function step(distance) {
    if (state.context) {
        const row = results?.list[results.index + distance];
        if (!row) return;
        results.index += distance;
        address.write({...state, context: row.cursor});
        open();
        return;
    }
    if (!address.isFiltered(state) || !lines.rows.length) return;
    const last = lines.rows.length - 1;
    const top = distance < 0 && lines.isAtEnd ? last : lines.rows.indexOf(lines.top);
    let index = lines.current ? lines.rows.indexOf(lines.current) + distance : top;
    // Beyond the ends, on from the other end, once both have been read.
    if (index < 0 && reading.older) return reading.more("older");
    if (index > last && reading.newer) return reading.more("newer");
    if (index < 0) index = reading.newer ? 0 : last;
    if (index > last) index = reading.older ? last : 0;
    mark(lines.rows[index]);
}

// -- Follow

function setFollow(isOn) {
    stopFollowing?.();
    stopFollowing = null;
    wantsFollow = isOn;
    $("follow").checked = isOn;
    $("lines").setAttribute("aria-live", isOn ? "polite" : "off");
    state.follow = isOn;
    address.write({...state, ...(isOn ? {at: "", line: ""} : {})});
    showState();
}

function startFollowing() {
    lines.current = null;
    newLines = 0;
    lines.toEnd();
    stopFollowing = reading.follow((number) => { if (!lines.isAtEnd) newLines += number; });
    showState();
}

// Lines that are still being read come first.
function follow(isOn) {
    const isCurrent = !state.boot || boots.boots.some((boot) => boot.current && String(boot.boot) === state.boot);
    const isElsewhere = !isCurrent || reading.newer || state.context || (opening && (state.at || state.line));
    if (isOn && isElsewhere) {
        state = {...state, boot: isCurrent ? state.boot : "", at: "", line: "", context: "", follow: false};
        address.write(state, {push: true});
        return open(true);
    }
    setFollow(isOn);
    if (isOn && !opening) startFollowing();
}

// -- Input

let typing = 0;

function readForm() {
    clearTimeout(typing);
    const changes = {grep: $("search").value, regexp: $("regexp").checked,
        "ignore-case": $("ignore-case").checked, priority: $("priority").value};
    for (const name of TEXT_FILTERS) changes[name] = $(name).value.trim();
    change(changes);
}

function typed() {
    clearTimeout(typing);
    typing = setTimeout(readForm, TYPING_MS);
}

$("filters").addEventListener("submit", (event) => {
    event.preventDefault();
    readForm();
});
for (const name of ["search", ...TEXT_FILTERS]) $(name).addEventListener("input", typed);
for (const name of ["search", "regexp", "ignore-case", "priority", ...TEXT_FILTERS]) $(name).addEventListener("change", readForm);
$("search").addEventListener("keydown", (event) => {
    if (event.key !== "Enter") return;
    event.preventDefault();
    readForm();
    $("lines").focus();
});
$("more-filters").addEventListener("click", () => {
    const isOpen = $("fields").hidden;
    for (const id of ["fields", "checks"]) show(id, isOpen);
    $("more-filters").setAttribute("aria-expanded", isOpen);
});
$("all-boots").addEventListener("click", () => change({boot: ""}));
$("cancel").addEventListener("click", () => reading.cancel());
$("clear").addEventListener("click", () => change({grep: "", priority: "", tag: "", since: "", until: ""}));
$("back").addEventListener("click", backToResults);
$("newest").addEventListener("click", toNewest);
$("follow").addEventListener("change", () => follow($("follow").checked));
$("download").addEventListener("click", () => download.open());
$("copy").addEventListener("click", copyLink);

async function copyLink() {
    storePosition(true);
    let isCopied = true;
    try {
        await navigator.clipboard.writeText(location.href);
    } catch {
        isCopied = copyBySelection(location.href);
    }
    $("message").textContent = isCopied ? "Link copied" : "Copy the address of this page: it is the link.";
    setTimeout(showState, 3000);
}

// The clipboard is there for secure pages only; a device has no certificate.
function copyBySelection(text) {
    const field = document.createElement("textarea");
    field.value = text;
    document.body.append(field);
    field.select();
    const isCopied = document.execCommand("copy");
    field.remove();
    $("copy").focus();
    return isCopied;
}

const KEYS = {
    "/": () => { $("search").focus(); $("search").select(); },
    f: () => follow(!wantsFollow),
    n: () => step(1),
    p: () => step(-1),
};

document.addEventListener("keydown", (event) => {
    const isTyping = event.target.matches("input:not([type=checkbox]), select, textarea") || $("dialog").open;
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === "Escape" && !$("dialog").open && reading.progress !== null) reading.cancel();
    else if (event.key === "Escape" && !isTyping && state.context) backToResults();
    else if (event.key === "Enter" && event.target === $("lines") && lines.current && !state.context
        && address.isFiltered(state)) openContext(lines.current);
    else if (!isTyping && $("keys").checked && KEYS[event.key]) KEYS[event.key]();
    else return;
    event.preventDefault();
});

// A browser that keeps nothing for the page throws.
function stored(name, value) {
    try {
        if (value) localStorage.setItem(name, value);
        return localStorage.getItem(name);
    } catch {
        return null;
    }
}

$("keys").checked = stored("keys") !== "off";
$("keys").addEventListener("change", () => stored("keys", $("keys").checked ? "on" : "off"));
addEventListener("popstate", () => open());
addEventListener("hashchange", () => JSON.stringify(address.read()) === JSON.stringify(state) || open());

// The lines come first; a search needs the boots for its progress.
async function start() {
    const {follow: isFollowed} = state;
    device.poll();
    if (address.isFiltered(state) && !state.at && !state.line) await readBoots();
    else readBoots();
    if (await open() && isFollowed) follow(true);
}

start();
