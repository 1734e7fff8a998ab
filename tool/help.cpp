#include "tool/help.h"

namespace Tool {

namespace {

constexpr std::string_view Overview =
    "Usage: moraine [log] [OPTION]...   the log, oldest line first\n"
    "       moraine boots [OPTION]...   one row for each boot\n"
    "       moraine verify [--json]     decompresses and checks every archive file\n"
    "       moraine help | --help | --version\n";

}  // namespace

std::string_view Help(std::string_view /*verb*/) {
    return Overview;
}

}  // namespace Tool
