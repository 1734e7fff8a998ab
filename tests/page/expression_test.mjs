// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The matcher that highlights, beside grep: on random expressions, both find the same.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {test} from "node:test";
import {matcher} from "../../logpage/www/expression.js";

function ranges(expression, text, {regexp = true, ignoreCase = false} = {}) {
    return matcher(expression, regexp, ignoreCase)(text).map(([from, to]) => text.slice(from, to));
}

// What grep finds in one line.
function grep(expression, text) {
    try {
        const found = execFileSync("grep", ["-oE", "-e", expression], {input: `${text}\n`, encoding: "utf8", env: {LC_ALL: "C"}, stdio: ["pipe", "pipe", "ignore"]});
        return found.split("\n").slice(0, -1);
    } catch (error) {
        return error.status === 1 ? [] : null;
    }
}

test("plain strings", () => {
    assert.deepEqual(ranges("a.c", "abc a.c a.c", {regexp: false}), ["a.c", "a.c"]);
    assert.deepEqual(ranges("ERR", "err Err", {regexp: false, ignoreCase: true}), ["err", "Err"]);
    assert.deepEqual(ranges("", "abc", {regexp: false}), []);
});

test("expressions", () => {
    for (const [expression, text] of [["a|ab", "abab"], ["(a|b)*c", "abac c"], ["^a", "aaa"], ["a$", "aaa"],
        ["[[:digit:]]+", "pump 12 and 345"], ["[^a-c]+", "abcdeabc"], ["[]x]+", "]x]"], ["a{2,3}", "aaaaaaa"],
        ["a{0}b", "aab"], ["\\<p[a-z]+", "pump spump"], ["\\w+\\b", "a-b c"], ["x*", "axxb"], ["\\.", "a.b"],
        ["(a+)+$", "aaaa"], ["()", "abc"], ["a||b", "ab"], ['x={"a"', 'x={"a"}'],
        ["a{1", "aa{1"], ["*ab", "*abab"]]) {
        assert.deepEqual(ranges(expression, text), grep(expression, text), expression);
    }
});

test("escapes and braces are those of the device", () => {
    assert.deepEqual(ranges("a{,}b{}", "aa{,}b{}"), ["a{,}b{}"]);
    assert.deepEqual(ranges("\\d+\\t\\D", "d7\tt 12\tD"), ["7\tt", "12\tD"]);
    assert.deepEqual(ranges("\\`a|b\\'", "abab"), ["a", "b"]);
});

test("case is ignored in letters, not in escapes", () => {
    for (const [expression, wanted] of [["\\S+", ["ab", "CD"]], ["\\W", [" "]], ["\\Bb", ["b"]], ["[A]B", ["ab"]],
        ["[[:upper:]]+", ["ab", "CD"]], ["[^A]d", ["CD"]]]) {
        assert.deepEqual(ranges(expression, "ab CD", {ignoreCase: true}), wanted, expression);
    }
});

test("mistakes are named", () => {
    for (const expression of ["(", "a)", "[a", "a{3,2}", "\\", "[z-a]", "[[:nothing:]]", "(a)\\1"]) {
        assert.throws(() => matcher(expression, true, false), SyntaxError, expression);
    }
});

test("exponential expressions take linear time", () => {
    const text = `${"a".repeat(2000)}!`;
    for (const expression of ["(a+)+$", "(a|a)*b", "(.*)(.*)(.*)(.*)x", "((a{1,20}){1,20}){1,5}b"]) {
        assert.deepEqual(ranges(expression, text), [], expression);
    }
});

test("random expressions match as grep does", () => {
    let seed = 12345;
    const random = (limit) => {
        seed = (seed * 1103515245 + 12345) % 2147483648;
        return Math.floor(seed / 65536) % limit;
    };
    const expression = (depth) => {
        const atoms = ["a", "b", "c", ".", "[ab]", "[^a]"];
        let text = "";
        for (let i = 0; i <= random(3); i += 1) {
            const atom = depth && random(3) === 0 ? `(${expression(depth - 1)})` : atoms[random(6)];
            text += atom + ["", "", "*", "+", "?", "{1,2}"][random(6)];
        }
        return random(4) === 0 ? `${text}|${atoms[random(3)]}` : text;
    };
    for (let round = 0; round < 300; round += 1) {
        // Anchors at the ends only: grep has errors with others.
        const wanted = ["", "", "^", "\\<"][random(4)] + expression(2) + ["", "", "$", "\\>"][random(4)];
        const text = Array.from({length: random(12)}, () => "abc "[random(4)]).join("");
        assert.deepEqual(ranges(wanted, text), grep(wanted, text), `${wanted} in "${text}"`);
    }
});
