// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Finds what a search matches in a line, to highlight it. The device searches by POSIX extended
// regular expressions; the browser's own have another syntax and take exponential time for some
// expressions. Here all states advance together, so the time is linear in the text. Expressions
// this does not know are searched all the same, without highlighting.

const MAX_STATES = 2000;
const CLASSES = {
    alpha: /[a-z]/i, digit: /\d/, alnum: /[a-z\d]/i, upper: /[A-Z]/, lower: /[a-z]/, space: /\s/,
    blank: /[ \t]/, punct: /[!-/:-@[-`{-~]/, print: /[ -~]/, graph: /[!-~]/, xdigit: /[\da-f]/i,
    cntrl: /[^ -~]/,
};
const ESCAPES = {
    w: (c) => /\w/.test(c), W: (c) => /\W/.test(c), s: (c) => /\s/.test(c), S: (c) => /\S/.test(c),
    d: (c) => /\d/.test(c), D: (c) => /\D/.test(c), t: (c) => c === "\t",
};
const isWord = (c) => c !== undefined && /\w/.test(c);
const ASSERTIONS = {
    "^": (before) => before === undefined,
    $: (before, after) => after === undefined,
    b: (before, after) => isWord(before) !== isWord(after),
    B: (before, after) => isWord(before) === isWord(after),
    "<": (before, after) => !isWord(before) && isWord(after),
    ">": (before, after) => isWord(before) && !isWord(after),
    "`": (before) => before === undefined,
    "'": (before, after) => after === undefined,
};
const lower = (text) => text.replace(/[A-Z]+/g, (c) => c.toLowerCase());
const upper = (text) => text.replace(/[a-z]+/g, (c) => c.toUpperCase());

// Parses into a tree of {any: [trees]}, {all: [trees]}, {tree, min, max}, {test}, {assertion}. If case
// is ignored, the tests get small letters only.
class Parser {
    constructor(text, ignoresCase) {
        this.text = text;
        this.ignoresCase = ignoresCase;
        this.at = 0;
    }

    fail(reason) {
        throw new SyntaxError(reason);
    }

    parse() {
        const tree = this.alternatives();
        if (this.at < this.text.length) this.fail("unmatched )");
        return tree;
    }

    alternatives() {
        const any = [this.sequence()];
        while (this.text[this.at] === "|") {
            this.at += 1;
            any.push(this.sequence());
        }
        return {any};
    }

    sequence() {
        const all = [];
        while (this.at < this.text.length && !"|)".includes(this.text[this.at])) {
            // A repetition of nothing is nothing.
            let tree = this.bounds() ? {all: []} : this.atom();
            for (let bounds; (bounds = this.bounds()); ) tree = {tree, ...bounds};
            all.push(tree);
        }
        return {all};
    }

    bounds() {
        const simple = {"*": [0, Infinity], "+": [1, Infinity], "?": [0, 1]}[this.text[this.at]];
        if (simple) {
            this.at += 1;
            return {min: simple[0], max: simple[1]};
        }
        const match = /^\{(?=,?\d)(\d*)(,?)(\d*)\}/.exec(this.text.slice(this.at));
        if (!match) return null;  // also a brace that is text
        this.at += match[0].length;
        const min = Number(match[1]);
        const max = match[3] ? Number(match[3]) : match[2] ? Infinity : min;
        if (min > max) this.fail("invalid repetition {}");
        return {min, max};
    }

    atom() {
        const c = this.text[this.at++];
        if (c === "(") {
            const tree = this.alternatives();
            if (this.text[this.at++] !== ")") this.fail("unmatched (");
            return tree;
        }
        if (c === "[") return this.bracket();
        if (c === ".") return {test: () => true};
        if (c === "^" || c === "$") return {assertion: ASSERTIONS[c]};
        if (c !== "\\") return this.literal(c);
        const escaped = this.text[this.at++];
        if (escaped === undefined) this.fail("trailing backslash");
        if (ESCAPES[escaped]) return {test: ESCAPES[escaped]};
        if ("bB<>`'".includes(escaped)) return {assertion: ASSERTIONS[escaped]};
        if (/[1-9]/.test(escaped)) this.fail("back-references are not supported");
        return this.literal(escaped);
    }

    literal(c) {
        const wanted = this.ignoresCase ? lower(c) : c;
        return {test: (other) => other === wanted};
    }

    bracket() {
        const negated = this.text[this.at] === "^";
        if (negated) this.at += 1;
        const tests = [];
        for (let first = true; first || this.text[this.at] !== "]"; first = false) {
            if (this.at >= this.text.length) this.fail("unmatched [");
            tests.push(this.bracketItem());
        }
        this.at += 1;
        const contains = (c) => tests.some((test) => test(c));
        return {test: (c) => (contains(c) || (this.ignoresCase && contains(upper(c)))) !== negated};
    }

    bracketItem() {
        const named = /^\[:(\w+):\]/.exec(this.text.slice(this.at));
        if (named) {
            this.at += named[0].length;
            const set = CLASSES[named[1]] ?? this.fail("unknown character class");
            return (c) => set.test(c);
        }
        const low = this.text[this.at++];
        if (this.text[this.at] !== "-" || [undefined, "]"].includes(this.text[this.at + 1])) {
            return (c) => c === low;
        }
        const high = this.text[this.at + 1];
        this.at += 2;
        if (low > high) this.fail("invalid range");
        return (c) => c >= low && c <= high;
    }
}

// Appends the states of a tree: {test, next}, {assertion, next} or {fork: [states]}. Built from the
// end to the start, so that `next` is known.
function compile(tree, next, states) {
    const add = (state) => {
        if (states.push(state) > MAX_STATES) throw new RangeError("too large");
        return states.length - 1;
    };
    if (tree.any) return add({fork: tree.any.map((branch) => compile(branch, next, states))});
    if (tree.all) return tree.all.reduceRight((end, part) => compile(part, end, states), next);
    if (tree.test) return add({test: tree.test, next});
    if (tree.assertion) return add({assertion: tree.assertion, next});
    let start = next;
    if (tree.max === Infinity) {
        start = add({fork: [next]});
        states[start].fork.unshift(compile(tree.tree, start, states));
    } else {
        for (let i = tree.min; i < tree.max; i += 1) {
            start = add({fork: [compile(tree.tree, start, states), next]});
        }
    }
    for (let i = 0; i < tree.min; i += 1) start = compile(tree.tree, start, states);
    return start;
}

// Returns the leftmost and, of those, the longest match at or behind `from`, as [start, end].
function find(states, first, text, from) {
    let best = null;
    let threads = [];
    const seen = new Int32Array(states.length).fill(-1);
    const enter = (list, index, start, at) => {
        const work = [index];
        while (work.length) {
            const current = work.pop();
            if (seen[current] === at) continue;
            seen[current] = at;
            const state = states[current];
            if (state.fork) work.push(...state.fork);
            else if (state.assertion) {
                if (state.assertion(text[at - 1], text[at])) work.push(state.next);
            } else if (state.test) list.push({state, start});
            else if (!best || start <= best[0]) best = [start, at];
        }
    };
    for (let at = from; at <= text.length; at += 1) {
        // Those that started first come first: `seen` drops the later ones.
        const previous = threads;
        threads = [];
        for (const {state, start} of previous) {
            if ((!best || start <= best[0]) && state.test(text[at - 1])) enter(threads, state.next, start, at);
        }
        if (!best) enter(threads, first, at, at);
        if (best && !threads.length) break;
    }
    return best;
}

function literal(wanted, text) {
    const found = [];
    for (let at = text.indexOf(wanted); at >= 0; at = text.indexOf(wanted, at + wanted.length)) {
        found.push([at, at + wanted.length]);
    }
    return found;
}

// Returns a function from a text to the ranges that match, or throws a SyntaxError that says what
// is wrong with the expression.
export function matcher(expression, isRegexp, ignoreCase) {
    if (!expression) return () => [];
    const fold = ignoreCase ? lower : (text) => text;
    if (!isRegexp) return (text) => literal(fold(expression), fold(text));
    const tree = new Parser(expression, ignoreCase).parse();
    const states = [{}];  // accepts
    let first;
    try {
        first = compile(tree, 0, states);
    } catch (error) {
        if (error instanceof RangeError) return () => [];
        throw error;
    }
    return (text) => {
        const folded = fold(text);
        const found = [];
        for (let at = 0, match; at <= folded.length && (match = find(states, first, folded, at)); ) {
            if (match[1] > match[0]) found.push(match);
            at = Math.max(match[1], match[0] + 1);
        }
        return found;
    };
}
