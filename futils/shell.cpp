// Shell commands.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "futils/futils.h"
#include "logging/logging.h"

bool Futils::System(const std::string& command) {
    const int result = std::system(command.c_str());
    if (result == 0) return false;
    Log::Error("Unable to '%s'.  Result: %d, Error: '%s'", command.c_str(), result,
               strerror(errno));
    return true;
}
