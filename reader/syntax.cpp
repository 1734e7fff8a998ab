// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/syntax.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace Reader {

namespace {

constexpr int MaxDepth = 200;
constexpr int MaxRepetition = 32767;

bool IsLetter(int c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr int CaseBit = 0x20;

ByteSet AllBytes() {
    ByteSet set;
    set.set();
    set.reset('\n');
    return set;
}

ByteSet WordBytes() {
    ByteSet set;
    for (unsigned c = 0; c < 256; ++c) set[c] = IsWordByte(static_cast<unsigned char>(c));
    return set;
}

ByteSet Without(const ByteSet& set) {
    return AllBytes() & ~set;
}

void AddOtherCase(ByteSet& set) {
    for (int c = 0; c < 256; ++c) {
        if (IsLetter(c) && set[static_cast<std::size_t>(c)]) {
            set.set(static_cast<std::size_t>(c ^ CaseBit));
        }
    }
}

// The classes of the C locale.
bool FindClass(std::string_view name, ByteSet& set) {
    struct Class {
        std::string_view name;
        int (*contains)(int);
    };
    static constexpr Class Classes[]{{"alpha", isalpha}, {"digit", isdigit}, {"alnum", isalnum},
                                     {"upper", isupper}, {"lower", islower}, {"space", isspace},
                                     {"blank", isblank}, {"punct", ispunct}, {"print", isprint},
                                     {"graph", isgraph}, {"cntrl", iscntrl}, {"xdigit", isxdigit}};
    for (const Class& candidate : Classes) {
        if (candidate.name != name) continue;
        for (int c = 0; c < 128; ++c) {
            if (candidate.contains(c) != 0) set.set(static_cast<std::size_t>(c));
        }
        return true;
    }
    return false;
}

Node MakeSet(const ByteSet& set) {
    Node node;
    node.type = Node::Type::Set;
    node.set = set;
    return node;
}

Node MakeAssertion(Assertion assertion) {
    Node node;
    node.type = Node::Type::Assertion;
    node.assertion = assertion;
    return node;
}

class Parser {
public:
    Parser(std::string_view pattern, bool ignoresCase) : text(pattern), ignoresCase(ignoresCase) {}

    Node Parse() {
        Node node = ParseChoice(0);
        if (!text.empty()) throw SyntaxError("unmatched )");
        return node;
    }
    Node ParseByte(char c) const {
        ByteSet set;
        set.set(static_cast<unsigned char>(c));
        if (ignoresCase) AddOtherCase(set);
        return MakeSet(set);
    }

private:
    char Take() {
        const char c = text.front();
        text.remove_prefix(1);
        return c;
    }
    bool TakeIf(char c) {
        if (!text.starts_with(c)) return false;
        text.remove_prefix(1);
        return true;
    }
    Node ParseChoice(int depth);
    Node ParseSequence(int depth);
    Node ParseAtom(int depth);
    Node ParseEscape();
    Node ParseBrackets();
    unsigned char ParseBracketByte();
    bool ParseBracketClass(ByteSet& set);
    bool ParseRepetition(int& minimum, int& maximum);
    bool ParseInterval(int& minimum, int& maximum);
    std::optional<int> CutNumber(std::string_view& from) const;

    std::string_view text;
    bool ignoresCase;
};

Node Parser::ParseChoice(int depth) {
    if (depth > MaxDepth) throw SyntaxError("parentheses are nested too deeply");
    Node choice;
    choice.type = Node::Type::Choice;
    do {
        choice.children.push_back(ParseSequence(depth));
    } while (TakeIf('|'));
    if (choice.children.size() > 1) return choice;
    Node only = std::move(choice.children.front());
    return only;
}

Node Parser::ParseSequence(int depth) {
    Node sequence;
    while (!text.empty() && text.front() != '|' && text.front() != ')') {
        Node atom;
        int minimum = 0;
        int maximum = 0;
        // A repetition of nothing is nothing.
        if (!ParseRepetition(minimum, maximum)) atom = ParseAtom(depth);
        while (ParseRepetition(minimum, maximum)) {
            Node repetition;
            repetition.type = Node::Type::Repetition;
            repetition.minimum = minimum;
            repetition.maximum = maximum;
            repetition.children.push_back(std::move(atom));
            atom = std::move(repetition);
            if (++depth > MaxDepth) throw SyntaxError("repetitions are nested too deeply");
        }
        sequence.children.push_back(std::move(atom));
    }
    return sequence;
}

Node Parser::ParseAtom(int depth) {
    const char c = Take();
    switch (c) {
        case '(': {
            Node group = ParseChoice(depth + 1);
            if (!TakeIf(')')) throw SyntaxError("unmatched (");
            return group;
        }
        case '.':
            return MakeSet(AllBytes());
        case '^':
            return MakeAssertion(Assertion::LineStart);
        case '$':
            return MakeAssertion(Assertion::LineEnd);
        case '[':
            return ParseBrackets();
        case '\\':
            return ParseEscape();
        default:
            return ParseByte(c);
    }
}

Node Parser::ParseEscape() {
    if (text.empty()) throw SyntaxError("trailing backslash");
    ByteSet digits;
    ByteSet blanks;
    (void)FindClass("digit", digits);
    (void)FindClass("space", blanks);
    blanks.reset('\n');
    const char c = Take();
    switch (c) {
        case 'w':
            return MakeSet(WordBytes());
        case 'W':
            return MakeSet(Without(WordBytes()));
        case 's':
            return MakeSet(blanks);
        case 'S':
            return MakeSet(Without(blanks));
        case 'd':
            return MakeSet(digits);
        case 'D':
            return MakeSet(Without(digits));
        case 'b':
            return MakeAssertion(Assertion::WordBoundary);
        case 'B':
            return MakeAssertion(Assertion::NoWordBoundary);
        case '<':
            return MakeAssertion(Assertion::WordStart);
        case '>':
            return MakeAssertion(Assertion::WordEnd);
        case '`':
            return MakeAssertion(Assertion::LineStart);
        case '\'':
            return MakeAssertion(Assertion::LineEnd);
        case 't':
            return ParseByte('\t');
        default:
            if (c >= '1' && c <= '9') throw SyntaxError("back-references are not supported");
            return ParseByte(c);
    }
}

// [:class:] without its first bracket. Returns false if it is none.
bool Parser::ParseBracketClass(ByteSet& set) {
    if (!text.starts_with("[:")) return false;
    const std::size_t end = text.find(":]", 2);
    if (end == std::string_view::npos) throw SyntaxError("unmatched [, [^, [:, [. or [=");
    if (!FindClass(text.substr(2, end - 2), set)) throw SyntaxError("invalid character class name");
    text.remove_prefix(end + 2);
    return true;
}

// A byte, also as [.x.] or [=x=].
unsigned char Parser::ParseBracketByte() {
    if (text.size() >= 5 && text[0] == '[' && (text[1] == '.' || text[1] == '=')) {
        if (text[3] != text[1] || text[4] != ']') throw SyntaxError("invalid collation character");
        const char c = text[2];
        text.remove_prefix(5);
        return static_cast<unsigned char>(c);
    }
    if (text.empty()) throw SyntaxError("unmatched [, [^, [:, [. or [=");
    return static_cast<unsigned char>(Take());
}

Node Parser::ParseBrackets() {
    ByteSet set;
    const bool isNegated = TakeIf('^');
    for (bool isFirst = true; isFirst || !text.starts_with(']'); isFirst = false) {
        if (ParseBracketClass(set)) continue;
        const unsigned first = ParseBracketByte();
        unsigned last = first;
        if (text.size() > 1 && text[0] == '-' && text[1] != ']') {
            text.remove_prefix(1);
            last = ParseBracketByte();
        }
        if (last < first) throw SyntaxError("invalid range end");
        for (unsigned c = first; c <= last; ++c) set.set(c);
    }
    text.remove_prefix(1);
    if (ignoresCase) AddOtherCase(set);
    set.reset('\n');
    return MakeSet(isNegated ? Without(set) : set);
}

std::optional<int> Parser::CutNumber(std::string_view& from) const {
    std::size_t length = 0;
    int number = 0;
    while (length < from.size() && from[length] >= '0' && from[length] <= '9') {
        number = std::min(number * 10 + from[length] - '0', MaxRepetition + 1);
        ++length;
    }
    if (length == 0) return std::nullopt;
    from.remove_prefix(length);
    return number;
}

// {m}, {m,}, {,n}, {m,n}. Anything else is text, as in grep.
bool Parser::ParseInterval(int& minimum, int& maximum) {
    std::string_view rest = text.substr(1);
    const std::optional<int> first = CutNumber(rest);
    std::optional<int> last = first;
    const bool hasComma = rest.starts_with(',');
    if (hasComma) {
        rest.remove_prefix(1);
        last = CutNumber(rest);
    }
    if (!rest.starts_with('}') || (!first && !last)) return false;
    minimum = first.value_or(0);
    maximum = last.value_or(Node::Unlimited);
    if (minimum > MaxRepetition || maximum > MaxRepetition) {
        throw SyntaxError("too large a number of repetitions");
    }
    if (maximum != Node::Unlimited && maximum < minimum) {
        throw SyntaxError("invalid number of repetitions");
    }
    text = rest.substr(1);
    return true;
}

bool Parser::ParseRepetition(int& minimum, int& maximum) {
    if (text.empty()) return false;
    minimum = 0;
    maximum = Node::Unlimited;
    switch (text.front()) {
        case '*':
            break;
        case '+':
            minimum = 1;
            break;
        case '?':
            maximum = 1;
            break;
        case '{':
            return ParseInterval(minimum, maximum);
        default:
            return false;
    }
    text.remove_prefix(1);
    return true;
}

// -- What each match contains.

constexpr std::size_t MaxStrings = 8;
constexpr std::size_t MaxStringLength = 64;
constexpr std::size_t MinStringLength = 2;

struct Facts {
    bool isExact = false;              // it matches the strings and nothing else
    std::vector<std::string> strings;  // of which each match contains one; none known if empty
};

std::size_t ShortestLength(const std::vector<std::string>& strings) {
    std::size_t length = strings.empty() ? 0 : SIZE_MAX;
    for (const std::string& string : strings) length = std::min(length, string.size());
    return length;
}

void KeepBetter(std::vector<std::string>& best, const std::vector<std::string>& candidate) {
    if (ShortestLength(candidate) > ShortestLength(best)) best = candidate;
}

Facts Analyse(const Node& node, bool ignoresCase);

Facts AnalyseSet(const ByteSet& set, bool ignoresCase) {
    Facts facts;
    for (std::size_t c = 0; c < set.size(); ++c) {
        if (!set[c]) continue;
        const bool isUpper = c >= 'A' && c <= 'Z';
        // The search for the strings ignores case then.
        if (ignoresCase && isUpper && set[c ^ CaseBit]) continue;
        facts.strings.emplace_back(1, static_cast<char>(c));
        if (facts.strings.size() > MaxStrings) return {};
    }
    facts.isExact = !facts.strings.empty();
    return facts;
}

// Joins each of one with each of the other, unless that becomes too much.
bool Join(std::vector<std::string>& strings, const std::vector<std::string>& tails) {
    if (strings.size() * tails.size() > MaxStrings) return false;
    std::vector<std::string> joined;
    for (const std::string& head : strings) {
        for (const std::string& tail : tails) {
            if (head.size() + tail.size() > MaxStringLength) return false;
            joined.push_back(head + tail);
        }
    }
    strings = std::move(joined);
    return true;
}

Facts AnalyseSequence(const Node& node, bool ignoresCase) {
    std::vector<std::string> best;
    std::vector<std::string> run{""};
    bool isExact = true;
    for (const Node& child : node.children) {
        const Facts facts = Analyse(child, ignoresCase);
        if (facts.isExact && Join(run, facts.strings)) continue;
        isExact = false;
        KeepBetter(best, run);
        if (!facts.isExact) KeepBetter(best, facts.strings);
        run = facts.isExact ? facts.strings : std::vector<std::string>{""};
    }
    if (isExact) return {true, run};
    KeepBetter(best, run);
    return {false, best};
}

Facts AnalyseChoice(const Node& node, bool ignoresCase) {
    Facts result{true, {}};
    for (const Node& child : node.children) {
        const Facts facts = Analyse(child, ignoresCase);
        if (facts.strings.empty()) return {};
        result.isExact = result.isExact && facts.isExact;
        result.strings.insert(result.strings.end(), facts.strings.begin(), facts.strings.end());
        if (result.strings.size() > MaxStrings) return {};
    }
    return result;
}

Facts Analyse(const Node& node, bool ignoresCase) {
    switch (node.type) {
        case Node::Type::Set:
            return AnalyseSet(node.set, ignoresCase);
        case Node::Type::Assertion:
            return {true, {""}};
        case Node::Type::Sequence:
            return AnalyseSequence(node, ignoresCase);
        case Node::Type::Choice:
            return AnalyseChoice(node, ignoresCase);
        default: {
            if (node.minimum == 0) return {};
            Facts facts = Analyse(node.children.front(), ignoresCase);
            facts.isExact = facts.isExact && node.maximum == 1;
            return facts;
        }
    }
}

bool HasAssertion(const Node& node) {
    return node.type == Node::Type::Assertion ||
           std::any_of(node.children.begin(), node.children.end(), HasAssertion);
}

}  // namespace

bool IsWordByte(unsigned char c) {
    return IsLetter(c) || (c >= '0' && c <= '9') || c == '_';
}

Node ParseExpression(std::string_view pattern, bool ignoresCase) {
    return Parser(pattern, ignoresCase).Parse();
}

Node ParseFixed(std::string_view text, bool ignoresCase) {
    const Parser parser({}, ignoresCase);
    Node sequence;
    for (const char c : text) sequence.children.push_back(parser.ParseByte(c));
    return sequence;
}

Required FindRequired(const Node& node, bool ignoresCase) {
    Facts facts = Analyse(node, ignoresCase);
    if (ShortestLength(facts.strings) < MinStringLength) return {};
    if (ignoresCase) {
        for (std::string& string : facts.strings) {
            for (char& c : string) {
                if (IsLetter(c)) c = static_cast<char>(c | CaseBit);
            }
        }
    }
    // A long string is still exact when it was not cut, and it never is.
    return {std::move(facts.strings), facts.isExact && !HasAssertion(node)};
}

}  // namespace Reader
