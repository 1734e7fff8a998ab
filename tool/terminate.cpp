// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Ends the program after an exception that nothing catches. The C++ library's own handler brings
// its demangler along, a twentieth of the static program.
#include <cstdlib>

namespace __gnu_cxx {

void __verbose_terminate_handler();
void __verbose_terminate_handler() {  // NOLINT(bugprone-reserved-identifier): it replaces that one
    std::abort();
}

}  // namespace __gnu_cxx
