// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// StringToInt against std::stol.
#include <algorithm>
#include <exception>

#include "tests/fuzz/fuzz.h"
#include "util/parse.h"

namespace {

constexpr int Minimum = -1000000;
constexpr int Maximum = 2000000000;
constexpr unsigned long Untouched = 777777;

struct Result {
    bool failed = true;
    int value = 0;
    unsigned long consumed = Untouched;

    bool operator==(const Result&) const = default;
};

Result Plain(std::string text, int base) {
    while (text.starts_with(' ')) text.erase(0, 1);
    while (text.ends_with(' ')) text.pop_back();
    Result result;
    try {
        std::size_t consumed = 0;
        const long number = std::stol(text, &consumed, base);
        result.consumed = consumed;
        result.failed = number < Minimum || number > Maximum;
        if (!result.failed) result.value = static_cast<int>(number);
    } catch (const std::exception&) {
        // No number at the front, or one that a long does not hold.
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int choice = data[0] % 36;
    const int base = choice == 1 ? 36 : choice;  // 0 and 2 to 36
    const std::string text = ToString(data + 1, size - 1);

    Result result;
    result.value = 42;
    result.failed = Util::StringToInt(text, result.value, Minimum, Maximum, &result.consumed, base);
    REQUIRE(result == Plain(text, base));
    return 0;
}
