// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Modules of the page without a browser: a function answers their requests.
import assert from "node:assert/strict";
import {getEventListeners} from "node:events";
import {afterEach, beforeEach, test} from "node:test";
import {setImmediate as turn} from "node:timers/promises";
import * as api from "../../logpage/www/api.js";
import {duration} from "../../logpage/www/format.js";
import {MAX_LINES, Reading} from "../../logpage/www/reading.js";

const line = (number) => ({boot: 1, cursor: `1.1.1-${number}`});
const lines = (first, last) => Array.from({length: last - first + 1}, (_, index) => line(first + index));
const json = (...objects) => new Response(objects.flat().map((object) => `${JSON.stringify(object)}\n`).join(""));
const events = (...objects) => objects.flat().map((object) => `data: ${JSON.stringify(object)}\n\n`).join("");

// An answer that goes on until it is aborted or ends; `send` adds text to it.
function stream(signal) {
    let controller;
    const body = new ReadableStream({start: (own) => { controller = own; }});
    signal?.addEventListener("abort", () => controller.error(signal.reason));
    return Object.assign(new Response(body), {
        send: (text) => controller.enqueue(new TextEncoder().encode(text)),
        end: () => controller.close(),
    });
}

class View {
    clear() { this.rows = []; }
    prepend(rows) { this.rows = rows.concat(this.rows); }
    append(rows) { this.rows = this.rows.concat(rows); }
    truncate(length) { this.rows.length = length; }
    dropOldest(number) { this.rows.splice(0, number); }
    show() {}
}

let requests, answer, reading, stop;

beforeEach(() => {
    requests = [];
    globalThis.fetch = async (url, {signal} = {}) => {
        const request = {name: /([a-z]+)(\?|$)/.exec(url)[1], ...Object.fromEntries(new URLSearchParams(url.split("?")[1]))};
        requests.push(request);
        return answer(request, signal);
    };
    reading = new Reading({persist: (signal, work) => work()}, new View(), () => {});
});

afterEach(() => {
    stop?.();
    stop = null;
});

async function until(condition) {
    for (let turns = 0; !condition(); turns += 1) {
        assert.ok(turns < 20000, `not reached: ${condition}`);
        await turn();
    }
}

const numbers = () => reading.view.rows.map(({cursor}) => Number(cursor.slice(6)));

test("a search that finds nothing is followed from the newest line, and what comes meanwhile shows once", async () => {
    let followed;
    answer = (request, signal) => {
        if (request.name === "follow") return (followed = stream(signal));
        if (!request.grep) return json(line(10), {end: true, more: true});
        return json(line(11), {end: true, more: false});
    };
    await reading.open({grep: "panic"}, [], "", false);
    stop = reading.follow(() => {});
    await until(() => followed);
    assert.equal(requests.at(-1).after, line(10).cursor);
    followed.send(events({...line(11), cursor: "2.2.2-11"}, line(12)));
    await until(() => reading.view.rows.length > 1);
    assert.deepEqual(numbers(), [11, 12]);
    stop();
    stop = reading.follow(() => {});
    await until(() => requests.at(-1).after === line(12).cursor);
});

test("a device whose time is up is asked on from where it stopped", async () => {
    answer = ({before, lines: limit}) => {
        if (limit === "1") return json(line(9), {end: true, more: true});
        const ends = {undefined: ["8"], "1.1.1-8": ["7"], "1.1.1-7": [], "1.1.1-6": ["4"], "1.1.1-4": []};
        const [next] = ends[before];
        if (next) return json({end: true, more: true, cursor: `1.1.1-${next}`});
        return before === "1.1.1-7" ? json(line(6), {end: true, more: false}) : json(line(3), {end: true, more: false});
    };
    await reading.open({grep: "panic"}, [], "", false);
    assert.deepEqual(numbers(), [6]);
    reading.older = true;
    reading.more("older");
    await until(() => !reading.busy.older);
    assert.deepEqual(numbers(), [3, 6]);
});

test("a search ends where the device has deleted what it has not searched yet", async () => {
    answer = ({before, lines: limit}) => {
        if (limit === "1") return json(line(9), {end: true, more: true});
        return before ? new Response('{"error":"before: this line is not kept any more"}', {status: 404})
            : json(line(9), {end: true, more: true, cursor: "1.1.1-8"});
    };
    await reading.open({grep: "panic"}, [], "", false);
    assert.deepEqual([numbers(), reading.error, reading.isComplete], [[9], null, true]);
});

test("an error ends one reading, not all that follow", async () => {
    answer = ({before}) => json(lines(before ? 4 : 7, before ? 6 : 9).reverse(), {end: true, more: true});
    await reading.open({}, [], "", false);
    const good = answer;
    answer = () => new Response('{"error":"out of memory"}', {status: 500});
    reading.more("older");
    await until(() => reading.error);
    answer = good;
    await turn();
    reading.more("older");
    await until(() => reading.view.rows.length > 3);
    await turn();
    assert.deepEqual([numbers(), reading.error], [[4, 5, 6, 7, 8, 9], null]);
});

test("what was logged during an outage is read after Follow was switched off", async () => {
    answer = ({name, after}, signal) => {
        if (name === "follow") return stream(signal);
        return after ? json(line(10), {end: true, more: false}) : json(lines(7, 9).reverse(), {end: true, more: false});
    };
    await reading.open({}, [], "", false);
    reading.follow(() => {})();
    reading.refresh();
    await until(() => reading.view.rows.length > 3);
    assert.deepEqual(numbers(), [7, 8, 9, 10]);
});

test("following keeps the newest lines without a hole while older ones are read", async () => {
    let followed, older;
    answer = ({name, before}, signal) => {
        if (name === "follow") return (followed = stream(signal));
        return before ? (older = stream(signal)) : json(lines(1101, MAX_LINES).reverse(), {end: true, more: true});
    };
    await reading.open({}, [], "", false);
    stop = reading.follow(() => {});
    await until(() => followed);
    reading.more("older");
    await until(() => older);
    followed.send(events(lines(MAX_LINES + 1, MAX_LINES + 500)));
    await until(() => numbers().at(-1) === MAX_LINES + 500);
    older.send(lines(101, 1100).reverse().concat({end: true, more: true}).map((object) => `${JSON.stringify(object)}\n`).join(""));
    await until(() => numbers()[0] === 101);
    assert.deepEqual(reading.view.rows, lines(101, MAX_LINES + 500));
    older.end();
    await until(() => !reading.busy.older);
    followed.send(events(line(MAX_LINES + 501)));
    await until(() => numbers().at(-1) === MAX_LINES + 501);
    assert.deepEqual(reading.view.rows, lines(502, MAX_LINES + 501));
});

test("while new lines come, older ones are not read beyond what is kept", async () => {
    answer = ({name}, signal) => (name === "follow" ? stream(signal)
        : json(lines(1, MAX_LINES).reverse(), {end: true, more: true}));
    await reading.open({}, [], "", false);
    stop = reading.follow(() => {});
    const number = requests.length;
    reading.more("older");
    await turn();
    assert.deepEqual([requests.length, reading.view.rows.length], [number, MAX_LINES]);
});

test("lines before an error of the device are delivered", async () => {
    for (const [read, text] of [[api.log, `${JSON.stringify(line(1))}\n{"error":"too long"}\n`], [api.follow, events(line(1), {error: "too long"})]]) {
        answer = () => new Response(text);
        const taken = [];
        await assert.rejects(read({}, undefined, (some) => taken.push(...some)), {message: "too long", status: 200});
        assert.deepEqual(taken, [line(1)]);
    }
});

test("a stream that has become silent is left", async (context) => {
    context.mock.timers.enable({apis: ["setTimeout"]});
    answer = () => stream();
    const ended = assert.rejects(api.follow({}, undefined, () => {}), api.Unreachable);
    const isOver = ended.then(() => true);
    for (let seconds = 0; !await Promise.race([isOver, turn(false)]); seconds += 1) {
        assert.ok(seconds < 60);
        context.mock.timers.tick(1000);
    }
});

test("a wait for a busy device leaves nothing at the signal", async (context) => {
    context.mock.timers.enable({apis: ["setTimeout"]});
    const {signal} = new AbortController();
    answer = () => (requests.length > 1 ? json({}) : new Response("", {status: api.BUSY}));
    const result = api.json("status", {}, signal);
    await until(() => getEventListeners(signal, "abort").length);
    context.mock.timers.tick(1000);
    await result;
    assert.equal(getEventListeners(signal, "abort").length, 0);
});

test("a duration does not depend on the browser's time zone", () => {
    process.env.TZ = "Europe/Berlin";
    assert.equal(duration("2026-03-29T01:30:00", "2026-03-29T03:30:00"), "2.0 h");
});
