// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Matching: a deterministic automaton whose states are sets of states of the compiled expression,
// made when the text first leads there, and forgotten all together when they become too many.
//
// An assertion such as $ or \b looks at the bytes on both sides. So a state knows what kind of byte
// it was entered by, and a match that depends on an assertion is noticed with the byte behind it;
// the line feed is the byte behind the last.
#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <unordered_map>

#include "reader/automaton.h"
#include "reader/expression.h"
#include "reader/finder.h"

namespace Reader {

namespace {

constexpr std::size_t MaxTableBytes = 256UL << 10;
constexpr std::size_t MaxSetBytes = 256UL << 10;

// More states of the expression than that are not visited for a byte, on average: a text on which
// hardly any state occurs twice would take minutes.
constexpr std::uint64_t MaxVisitsPerByte = 10;
constexpr std::uint64_t FreeVisits = 10'000'000;

constexpr std::size_t MaxHighlighted = 4096;

enum class Before : std::uint32_t { LineStart, Word, Other };
enum class Behind : std::uint32_t { LineEnd, Word, Other };

bool Holds(Assertion assertion, Before before, Behind behind) {
    const bool wordBefore = before == Before::Word;
    const bool wordBehind = behind == Behind::Word;
    switch (assertion) {
        case Assertion::LineStart:
            return before == Before::LineStart;
        case Assertion::LineEnd:
            return behind == Behind::LineEnd;
        case Assertion::WordBoundary:
            return wordBefore != wordBehind;
        case Assertion::NoWordBoundary:
            return wordBefore == wordBehind;
        case Assertion::WordStart:
            return !wordBefore && wordBehind;
        default:
            return wordBefore && !wordBehind;
    }
}

// A set of states that is emptied in no time.
class StateSet {
public:
    explicit StateSet(std::size_t size) : positions(size), elements(size) {}
    bool Add(std::uint32_t element) {
        if (positions[element] < count && elements[positions[element]] == element) return false;
        positions[element] = count;
        elements[count++] = element;
        return true;
    }
    void Clear() { count = 0; }
    std::uint32_t Size() const { return count; }
    std::uint32_t operator[](std::uint32_t index) const { return elements[index]; }
    const std::uint32_t* begin() const { return elements.data(); }
    const std::uint32_t* end() const { return elements.data() + count; }

private:
    std::vector<std::uint32_t> positions;
    std::vector<std::uint32_t> elements;
    std::uint32_t count = 0;
};

}  // namespace

bool Pattern::Compile(const Expression& expression, std::string& error) {
    Node all;
    all.type = Node::Type::Choice;
    try {
        for (const std::string& pattern : expression.patterns) {
            // A line feed separates patterns, as in grep.
            std::string_view rest = pattern;
            for (;;) {
                const std::size_t end = rest.find('\n');
                const std::string_view one = rest.substr(0, end);
                all.children.push_back(expression.isFixed
                                           ? ParseFixed(one, expression.ignoresCase)
                                           : ParseExpression(one, expression.ignoresCase));
                if (end == std::string_view::npos) break;
                rest.remove_prefix(end + 1);
            }
        }
        automaton = std::make_shared<const Automaton>(all, expression.ignoresCase);
    } catch (const SyntaxError& e) {
        error = e.what();
        return true;
    }
    return false;
}

class Matcher::Search {
public:
    explicit Search(std::shared_ptr<const Automaton> automaton);

    bool Matches(std::string_view line);
    void SetText(std::string_view newText);
    std::size_t FindLine(std::size_t from);
    std::size_t LongestMatch(std::string_view line, std::size_t from);

private:
    using Row = std::uint32_t;
    static constexpr Row Unknown = 0xFFFFFFFF;
    static constexpr Row Match = 0xFFFFFFFE;

    std::size_t Walk(std::string_view from, Row& row);
    std::size_t LineAt(std::size_t offset) const;
    std::size_t FindCandidate(std::size_t from);
    Row Step(Row& row, unsigned char byte);
    Row FindRow(const StateSet& states, Before before);
    Row AddRow(std::vector<std::uint32_t> key);
    void Forget();
    bool AddClosure(StateSet& set, std::uint32_t state);
    bool Resolve(Before before, Behind behind);
    bool Advance(unsigned char byte);
    Before KindBefore(unsigned char byte) const;
    static Behind KindBehind(unsigned char byte);

    std::shared_ptr<const Automaton> automaton;
    std::optional<Finder> finder;
    std::string_view text;

    struct KeyHash {
        std::size_t operator()(const std::vector<std::uint32_t>& key) const {
            std::uint64_t hash = 14695981039346656037U;
            for (const std::uint32_t element : key) hash = (hash ^ element) * 1099511628211U;
            return hash ^ hash >> 32;
        }
    };
    // A state is the set it stands for, with the kind of the byte before as the last element.
    std::unordered_map<std::vector<std::uint32_t>, Row, KeyHash> rows;
    std::vector<const std::vector<std::uint32_t>*> keys;  // by row
    std::vector<Row> table;
    std::size_t setBytes = 0;
    Row start = 0;
    unsigned numClasses;

    StateSet current;
    StateSet next;
    std::vector<std::uint32_t> stack;
    std::uint64_t visits = 0;
    std::uint64_t bytes = 0;
};

Matcher::Search::Search(std::shared_ptr<const Automaton> compiled)
    : automaton(std::move(compiled)),
      numClasses(automaton->numClasses),
      current(automaton->states.size()),
      next(automaton->states.size()) {
    if (!automaton->required.strings.empty()) {
        finder.emplace(automaton->required.strings, automaton->ignoresCase);
    }
    Forget();
}

void Matcher::Search::Forget() {
    rows.clear();
    keys.clear();
    table.clear();
    setBytes = 0;
    next.Clear();
    const bool matchesEverything = AddClosure(next, automaton->start);
    start = matchesEverything ? Match : FindRow(next, Before::LineStart);
}

Before Matcher::Search::KindBefore(unsigned char byte) const {
    return automaton->asksForWords && IsWordByte(byte) ? Before::Word : Before::Other;
}

Behind Matcher::Search::KindBehind(unsigned char byte) {
    if (byte == '\n') return Behind::LineEnd;
    return IsWordByte(byte) ? Behind::Word : Behind::Other;
}

// Adds a state and what is reached from it without a byte, up to assertions. Returns true if that
// is the end of a match.
bool Matcher::Search::AddClosure(StateSet& set, std::uint32_t state) {
    bool isMatch = false;
    stack.push_back(state);
    while (!stack.empty()) {
        const std::uint32_t top = stack.back();
        stack.pop_back();
        if (!set.Add(top)) continue;
        ++visits;
        const Automaton::State& added = automaton->states[top];
        if (added.type == Automaton::State::Type::Split) {
            stack.push_back(added.other);
            stack.push_back(added.next);
        }
        isMatch = isMatch || added.type == Automaton::State::Type::Match;
    }
    return isMatch;
}

// Passes the assertions in `current` that hold between two bytes. Returns true if that ends a
// match.
bool Matcher::Search::Resolve(Before before, Behind behind) {
    bool isMatch = false;
    for (std::uint32_t i = 0; i < current.Size(); ++i) {
        const Automaton::State& state = automaton->states[current[i]];
        if (state.type != Automaton::State::Type::Assertion) continue;
        if (Holds(state.assertion, before, behind)) {
            isMatch = AddClosure(current, state.next) || isMatch;
        }
    }
    return isMatch;
}

// Fills `next` with what `current` goes to by a byte. Returns true if that ends a match.
bool Matcher::Search::Advance(unsigned char byte) {
    bool isMatch = false;
    next.Clear();
    for (const std::uint32_t index : current) {
        const Automaton::State& state = automaton->states[index];
        ++visits;
        const bool goesOn =
            (state.type == Automaton::State::Type::Byte && state.byte == byte) ||
            (state.type == Automaton::State::Type::Set && automaton->sets[state.other][byte]);
        if (goesOn) isMatch = AddClosure(next, state.next) || isMatch;
    }
    return isMatch;
}

Matcher::Search::Row Matcher::Search::FindRow(const StateSet& states, Before before) {
    std::vector<std::uint32_t> key;
    for (const std::uint32_t state : states) {
        // The split itself has no meaning any more.
        if (automaton->states[state].type != Automaton::State::Type::Split) key.push_back(state);
    }
    std::sort(key.begin(), key.end());
    visits += key.size();
    key.push_back(static_cast<std::uint32_t>(before));
    const auto found = rows.find(key);
    return found != rows.end() ? found->second : AddRow(std::move(key));
}

Matcher::Search::Row Matcher::Search::AddRow(std::vector<std::uint32_t> key) {
    const Row row = static_cast<Row>(table.size());
    setBytes += key.size() * sizeof key.front();
    const auto [added, isNew] = rows.emplace(std::move(key), row);
    keys.push_back(&added->first);
    table.resize(table.size() + numClasses, Unknown);
    return row;
}

// The row behind a byte that has not been seen at `row`, which may move.
Matcher::Search::Row Matcher::Search::Step(Row& row, unsigned char byte) {
    if (visits > FreeVisits + bytes * MaxVisitsPerByte) {
        throw TooComplex("the expression takes too much time on this log");
    }
    const std::vector<std::uint32_t> key = *keys[row / numClasses];
    const auto before = static_cast<Before>(key.back());
    current.Clear();
    for (std::size_t i = 0; i + 1 < key.size(); ++i) current.Add(key[i]);

    if (table.size() * sizeof(Row) > MaxTableBytes || setBytes > MaxSetBytes) {
        Forget();
        row = start == Match ? start : AddRow(key);
        current.Clear();
        for (std::size_t i = 0; i + 1 < key.size(); ++i) current.Add(key[i]);
    }
    Row result = Match;
    if (!Resolve(before, KindBehind(byte))) {
        if (byte == '\n') {
            result = start;
        } else {
            bool isMatch = Advance(byte);
            isMatch = AddClosure(next, automaton->start) || isMatch;
            result = isMatch ? Match : FindRow(next, KindBefore(byte));
        }
    }
    table[row + automaton->classes[byte]] = result;
    return result;
}

// Walks until a match is noticed: the offset of the byte by which it was, or npos.
std::size_t Matcher::Search::Walk(std::string_view part, Row& row) {
    const auto* const first = reinterpret_cast<const unsigned char*>(part.data());
    const unsigned char* const end = first + part.size();
    const std::uint8_t* const classes = automaton->classes.data();
    const Row* rowsNow = table.data();
    Row at = row;
    for (const unsigned char* byte = first; byte != end; ++byte) {
        Row to = rowsNow[at + classes[*byte]];
        if (to >= Match) {
            if (to == Unknown) {
                to = Step(at, *byte);
                rowsNow = table.data();
            }
            if (to == Match) return static_cast<std::size_t>(byte - first);
        }
        at = to;
    }
    row = at;
    return std::string_view::npos;
}

bool Matcher::Search::Matches(std::string_view line) {
    if (start == Match) return true;
    bytes += line.size() + 1;
    Row row = start;
    if (Walk(line, row) != std::string_view::npos) return true;
    return Walk("\n", row) != std::string_view::npos;
}

void Matcher::Search::SetText(std::string_view newText) {
    text = newText;
    bytes += text.size();
    if (finder) finder->SetText(text);
}

std::size_t Matcher::Search::LineAt(std::size_t offset) const {
    const void* const before = memrchr(text.data(), '\n', offset);
    return before == nullptr
               ? 0
               : static_cast<std::size_t>(static_cast<const char*>(before) - text.data()) + 1;
}

std::size_t Matcher::Search::FindLine(std::size_t from) {
    if (from >= text.size()) return std::string_view::npos;
    if (start == Match) return from;
    if (finder) return FindCandidate(from);
    Row row = start;
    const std::size_t found = Walk(text.substr(from), row);
    return found == std::string_view::npos ? found : LineAt(from + found);
}

// The lines that contain a required string are few: only these are looked at.
std::size_t Matcher::Search::FindCandidate(std::size_t from) {
    while (from < text.size()) {
        const std::size_t found = finder->Find(from);
        if (found == std::string_view::npos) return found;
        const std::size_t line = LineAt(found);
        if (automaton->required.isExact) return line;
        const std::size_t lineEnd = text.find('\n', found);
        if (Matches(text.substr(line, lineEnd - line))) return line;
        from = lineEnd + 1;
    }
    return std::string_view::npos;
}

// The end of the longest match that begins at `from`, or npos. Without remembering any state.
std::size_t Matcher::Search::LongestMatch(std::string_view line, std::size_t from) {
    std::size_t longest = std::string_view::npos;
    Before before = from == 0
                        ? Before::LineStart
                        : (IsWordByte(static_cast<unsigned char>(line[from - 1])) ? Before::Word
                                                                                  : Before::Other);
    current.Clear();
    if (AddClosure(current, automaton->start)) longest = from;
    for (std::size_t at = from; current.Size() != 0; ++at) {
        const auto byte = static_cast<unsigned char>(at < line.size() ? line[at] : '\n');
        if (Resolve(before, KindBehind(byte))) longest = at;
        if (at == line.size()) break;
        if (Advance(byte)) longest = at + 1;
        std::swap(current, next);
        before = IsWordByte(byte) ? Before::Word : Before::Other;
    }
    return longest;
}

Matcher::Matcher(const Pattern& pattern) : search(std::make_unique<Search>(pattern.Compiled())) {}
Matcher::Matcher(Matcher&&) noexcept = default;
Matcher& Matcher::operator=(Matcher&&) noexcept = default;
Matcher::~Matcher() = default;

bool Matcher::Matches(std::string_view line) {
    return search->Matches(line);
}

void Matcher::SetText(std::string_view text) {
    search->SetText(text);
}

std::size_t Matcher::FindLine(std::size_t from) {
    return search->FindLine(from);
}

bool Matcher::Find(std::string_view line, std::size_t from, std::size_t& offset,
                   std::size_t& length) {
    line = line.substr(0, MaxHighlighted);
    for (offset = from; offset < line.size(); ++offset) {
        const std::size_t end = search->LongestMatch(line, offset);
        if (end == std::string_view::npos || end == offset) continue;
        length = end - offset;
        return true;
    }
    return false;
}

}  // namespace Reader
