// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/automaton.h"

#include <algorithm>
#include <map>

namespace Reader {

namespace {

constexpr std::size_t MaxStates = 10000;

}  // namespace

Automaton::Automaton(const Node& node, bool ignoresCase)
    : required(FindRequired(node, ignoresCase)), ignoresCase(ignoresCase) {
    start = Compile(node, Add({}));
    MakeClasses();
}

std::uint32_t Automaton::Add(const State& state) {
    if (states.size() == MaxStates) throw SyntaxError("the expression is too large");
    states.push_back(state);
    return static_cast<std::uint32_t>(states.size() - 1);
}

// Compiled from the end to the beginning: `next` is what follows the node.
std::uint32_t Automaton::Compile(const Node& node, std::uint32_t next) {
    State state;
    switch (node.type) {
        case Node::Type::Set:
            return CompileSet(node.set, next);
        case Node::Type::Assertion:
            asksForWords = asksForWords || (node.assertion != Assertion::LineStart &&
                                            node.assertion != Assertion::LineEnd);
            state.type = State::Type::Assertion;
            state.assertion = node.assertion;
            state.next = next;
            return Add(state);
        case Node::Type::Sequence:
            for (auto child = node.children.rbegin(); child != node.children.rend(); ++child) {
                next = Compile(*child, next);
            }
            return next;
        case Node::Type::Choice: {
            std::uint32_t choice = Compile(node.children.back(), next);
            for (auto child = node.children.rbegin() + 1; child != node.children.rend(); ++child) {
                state.type = State::Type::Split;
                state.next = Compile(*child, next);
                state.other = choice;
                choice = Add(state);
            }
            return choice;
        }
        default:
            return CompileRepetition(node, next);
    }
}

std::uint32_t Automaton::CompileRepetition(const Node& node, std::uint32_t next) {
    const Node& child = node.children.front();
    State split;
    split.type = State::Type::Split;
    if (node.maximum == Node::Unlimited) {
        const std::uint32_t loop = Add(split);
        const std::uint32_t again = Compile(child, loop);
        states[loop].next = again;
        states[loop].other = next;
        next = loop;
    }
    for (int i = node.minimum; i < node.maximum; ++i) {
        split.other = next;
        // Whoever leaves early leaves to the end, not into the next optional one.
        split.next = Compile(child, next);
        next = Add(split);
    }
    for (int i = 0; i < node.minimum; ++i) {
        const std::uint32_t begin = Compile(child, next);
        if (begin == next) break;  // Nothing, however often.
        next = begin;
    }
    return next;
}

std::uint32_t Automaton::CompileSet(const ByteSet& set, std::uint32_t next) {
    State state;
    state.next = next;
    if (set.count() == 1) {
        state.type = State::Type::Byte;
        while (!set[state.byte]) ++state.byte;
        return Add(state);
    }
    state.type = State::Type::Set;
    const auto found = std::find(sets.begin(), sets.end(), set);
    state.other = static_cast<std::uint32_t>(found - sets.begin());
    if (found == sets.end()) sets.push_back(set);
    return Add(state);
}

void Automaton::MakeClasses() {
    std::vector<ByteSet> distinct = sets;
    ByteSet singles;
    for (const State& state : states) {
        if (state.type == State::Type::Byte) singles.set(state.byte);
    }
    singles.set('\n');
    ByteSet words;
    for (unsigned c = 0; c < 256; ++c) words[c] = IsWordByte(static_cast<unsigned char>(c));
    if (asksForWords) distinct.push_back(words);

    std::array<unsigned, 256> groups{};
    for (const ByteSet& set : distinct) {
        std::map<std::pair<unsigned, bool>, unsigned> numbers;
        for (unsigned c = 0; c < 256; ++c) {
            const auto [group, isNew] = numbers.emplace(std::pair(groups[c], bool(set[c])),
                                                        static_cast<unsigned>(numbers.size()));
            groups[c] = group->second;
        }
    }
    std::map<unsigned, unsigned> numbers;
    for (unsigned c = 0; c < 256; ++c) {
        const unsigned key = singles[c] ? 256 + c : groups[c];
        const auto [number, isNew] = numbers.emplace(key, numClasses);
        if (isNew) members[numClasses++] = static_cast<unsigned char>(c);
        classes[c] = static_cast<std::uint8_t>(number->second);
    }
}

}  // namespace Reader
