// Shell commands.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "futils/futils.h"
#include "logging/logging.h"

namespace {

// `system` ignores SIGINT and SIGQUIT while the command runs. A program that handles them must not
// miss one: those are held back for as long, and delivered afterwards.
class HeldBackSignals {
public:
    HeldBackSignals() {
        sigset_t handled;
        sigemptyset(&handled);
        for (const int signal : {SIGINT, SIGQUIT}) {
            struct sigaction action {};
            (void)sigaction(signal, nullptr, &action);
            const bool hasHandler = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
            if (hasHandler) sigaddset(&handled, signal);
        }
        (void)pthread_sigmask(SIG_BLOCK, &handled, &before);
    }
    HeldBackSignals(const HeldBackSignals&) = delete;
    HeldBackSignals& operator=(const HeldBackSignals&) = delete;
    ~HeldBackSignals() { (void)pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

int RunCommand(const std::string& command) {
    const HeldBackSignals heldBack;
    return std::system(command.c_str());
}

}  // namespace

bool Futils::System(const std::string& command) {
    const int result = RunCommand(command);
    if (result == 0) return false;
    Log::Error("Unable to '%s'.  Result: %d, Error: '%s'", command.c_str(), result,
               strerror(errno));
    return true;
}
