// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Ends the program after an exception that nothing catches. The C++ library's own handler brings
// its demangler along, a twentieth of the static program.
#include <cstdlib>

namespace __gnu_cxx {

// NOLINTBEGIN(bugprone-reserved-identifier): it replaces that one
void __verbose_terminate_handler();
void __verbose_terminate_handler() {
    std::abort();
}
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace __gnu_cxx
