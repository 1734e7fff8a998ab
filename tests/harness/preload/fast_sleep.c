// Preloaded into the daemon, shortens its sleep between two cycles by the factor FAST_SLEEP, so
// that a test of many cycles takes seconds. The product knows nothing of it.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <time.h>

static const double NsPerS = 1e9;

// Shorter sleeps wait for a clock or a syslogd, which no test makes faster.
static const double LongSleep = 2e9;

static double Nanoseconds(const struct timespec *time) {
    return (double)time->tv_sec * NsPerS + (double)time->tv_nsec;
}

static struct timespec Timespec(double nanoseconds) {
    struct timespec time;
    time.tv_sec = (time_t)(nanoseconds / NsPerS);
    time.tv_nsec = (long)(nanoseconds - (double)time.tv_sec * NsPerS);
    return time;
}

int nanosleep(const struct timespec *interval, struct timespec *rest) {
    int (*real)(const struct timespec *, struct timespec *) =
        (int (*)(const struct timespec *, struct timespec *))dlsym(RTLD_NEXT, "nanosleep");
    const char *text = getenv("FAST_SLEEP");
    const double factor = text == NULL ? 0 : atof(text);
    if (factor <= 0 || Nanoseconds(interval) < LongSleep) return real(interval, rest);

    const struct timespec shortened = Timespec(Nanoseconds(interval) / factor);
    struct timespec left = {0, 0};
    const int result = real(&shortened, &left);
    // The caller goes on with the rest, which is shortened again.
    if (result != 0 && rest != NULL) *rest = Timespec(Nanoseconds(&left) * factor);
    return result;
}
