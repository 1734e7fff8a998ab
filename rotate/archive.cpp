// Archiving one file: compress it beside itself, move the result into the archive, remove the file.
//
// Power may go away between any two steps, and syslogd works in the same directory. So an archive
// file reaches the disk before its name does, and its name before the source goes; an archive file
// is never replaced by another; and the source is removed only while its path still names the very
// file that was compressed, unchanged.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <exception>
#include <thread>
#include <utility>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"
#include "rotate/source_file.h"
#include "util/elapsed_time.h"
#include "util/format.h"

namespace fs = std::filesystem;

namespace {

using Ms = std::chrono::duration<double, std::milli>;

// A source that keeps changing is left to a later cycle after this many compressions.
constexpr int MaxAttempts = 5;

// A name is taken for its own second only, unless someone made files for the seconds to come.
constexpr int MaxNameChecks = 100;
constexpr Ms BetweenNameChecks(100);

// syslogd opens its log anew when the clock's second changes: until then it may write to a log that
// was renamed under it.
constexpr Ms UntilSyslogdReopened(1500);

}  // namespace

class Rotate::Archiving {
public:
    Archiving(Rotate& rotate, const std::string& pfn) : rotate(rotate), pfn(pfn), source(pfn) {}

    // True if there was no file of that name.
    bool IsGone() const { return source.OpenError() == ENOENT; }

    // All of it. Returns true on failure.
    bool Run();

private:
    enum class Outcome { Archived, Failed, Changed, Moved };

    bool IsLiveLog() const { return fs::path(pfn) == Moraine::SyslogPfe; }
    fs::path Compressed() const { return source.Pfn().native() + Moraine::XzExt.native(); }
    bool IsMoved() const {
        return source.OpenError() == 0 && source.Look() == SourceFile::State::Moved;
    }
    Outcome Try();
    Outcome Compress();
    Outcome MoveIntoArchive();
    Outcome RemoveSource(unsigned long archivedSize);
    void WaitForSyslogd() const;
    static Outcome OutcomeOf(SourceFile::State state);

    Rotate& rotate;
    const std::string pfn;
    SourceFile source;
    fs::path dest;  // the archive file
};

bool Rotate::Archiving::Run() {
    if (source.IsTaken()) {
        Log::Info("'%s' is being archived by another process.", pfn.c_str());
        return false;
    }
    const std::string tmpPfe = pfn + Moraine::TmpExt.native();
    // Taking the live log would replace one whose archiving was interrupted. That one goes first.
    if (IsLiveLog() && Futils::FileExists(tmpPfe)) return rotate.Archive(tmpPfe);

    ElapsedTime stopwatch(100.0);
    dest = rotate.GetFreeArchPfe();
    if (dest.empty()) return true;
    if (IsLiveLog()) {
        if (Futils::Rename(pfn, tmpPfe)) return true;
        source.SetPfn(tmpPfe);
        rotate.SendSigHupToSyslog();
    }
    Log::Debug("Archiving '%s'.", source.Pfn().filename().c_str());

    Outcome outcome = Try();
    for (int i = 1; i < MaxAttempts && outcome == Outcome::Changed; ++i) outcome = Try();

    if (outcome == Outcome::Failed) return true;
    if (outcome == Outcome::Archived) {
        Log::Info("Archived '%s' to '%s' in %.1f seconds.", pfn.c_str(), dest.c_str(),
                  stopwatch.GetMsElapsed() / 1000.0);
        return rotate.CheckArchSize();
    }
    Log::Info("'%s' was %s while it was compressed.  A later cycle will archive it.", pfn.c_str(),
              outcome == Outcome::Moved ? "moved" : "written to");
    return false;
}

// After another outcome than Archived the source is where it was.
Rotate::Archiving::Outcome Rotate::Archiving::Try() {
    source.Mark();
    Outcome outcome = IsMoved() ? Outcome::Moved : Compress();
    if (outcome == Outcome::Archived) outcome = MoveIntoArchive();
    if (outcome == Outcome::Moved || outcome == Outcome::Changed) {
        (void)Futils::Remove(Compressed());  // What stays goes at the next start.
    }
    return outcome;
}

// While syslogd moves the rotations up, a name has no file for a moment. Whether this program or xz
// came upon that moment, it is no failure.
Rotate::Archiving::Outcome Rotate::Archiving::Compress() {
    if (Futils::System("xz -fk " + source.Pfn().native())) {
        return IsMoved() ? Outcome::Moved : Outcome::Failed;
    }
    if (IsGone()) return Outcome::Moved;
    if (source.OpenError() != 0) {
        Log::Error("Unable to open %s: %s", source.Pfn().c_str(), strerror(source.OpenError()));
        return Outcome::Failed;
    }
    if (source.Pfn().extension() == Moraine::TmpExt) WaitForSyslogd();
    return OutcomeOf(source.Look());
}

Rotate::Archiving::Outcome Rotate::Archiving::MoveIntoArchive() {
    // The name was free before xz ran; a stranger may have taken it since.
    if (Futils::FileExists(dest)) dest = rotate.GetFreeArchPfe();
    if (dest.empty()) return Outcome::Failed;

    // If xz has made nothing, it is the rename that says so.
    if (Futils::Sync(Compressed()) || Futils::Rename(Compressed(), dest)) return Outcome::Failed;
    unsigned long size = 0;
    try {
        size = fs::file_size(dest);
    } catch (const std::exception& e) {
        Log::Error("Unable to get %s size, reason: %s", dest.filename().c_str(), e.what());
        return Outcome::Failed;
    }
    rotate.archDirSize += size;
    if (Futils::Sync(Moraine::ArchPathAbs)) return Outcome::Failed;
    return RemoveSource(size);
}

Rotate::Archiving::Outcome Rotate::Archiving::RemoveSource(unsigned long archivedSize) {
    const SourceFile::State state = source.Look();
    if (state == SourceFile::State::Deleted) return Outcome::Archived;
    if (state == SourceFile::State::Same) {
        return Futils::Remove(source.Pfn()) ? Outcome::Failed : Outcome::Archived;
    }
    // Syncing took so long that the source was written to or moved. It is archived again.
    if (Futils::Remove(dest)) return Outcome::Failed;
    rotate.archDirSize -= archivedSize;
    return OutcomeOf(state);
}

void Rotate::Archiving::WaitForSyslogd() const {
    const Ms rest = UntilSyslogdReopened - Ms(source.MsSinceTouched());
    std::this_thread::sleep_for(std::clamp(rest, Ms(0), UntilSyslogdReopened));
}

// A source that was deleted for good is kept by archiving what was compressed of it.
Rotate::Archiving::Outcome Rotate::Archiving::OutcomeOf(SourceFile::State state) {
    switch (state) {
        case SourceFile::State::Changed:
            return Outcome::Changed;
        case SourceFile::State::Moved:
            return Outcome::Moved;
        default:
            return Outcome::Archived;
    }
}

bool Rotate::Archive(const std::string& pfn) {
    return Archiving(*this, pfn).Run();
}

bool Rotate::ArchiveListed(const std::string& pfn) {
    Archiving archiving(*this, pfn);
    return !archiving.IsGone() && archiving.Run();
}

fs::path Rotate::GetFreeArchPfe() const {
    for (int i = 0; i < MaxNameChecks; ++i) {
        const std::string fn = GetArchFn();
        if (fn.empty()) return {};
        fs::path pfe = Moraine::ArchPathAbs / fn;
        if (!Futils::FileExists(pfe)) return pfe;
        std::this_thread::sleep_for(BetweenNameChecks);
    }
    Log::Error("All archive file names of the last %.0f seconds are taken.",
               MaxNameChecks * BetweenNameChecks.count() / 1000);
    return {};
}

std::string Rotate::GetArchFn() const {
    static const std::string ArchExt = Moraine::TxtExt.native() + Moraine::XzExt.native();
    const std::string timeStamp = GetMonotonicClockString();
    if (timeStamp.empty()) return {};
    return Util::Format("%s.%03u.%s%s", Moraine::SyslogFn.c_str(), bootNum, timeStamp.c_str(),
                        ArchExt.c_str());
}

std::string GetMonotonicClockString() {
    timespec sinceStart{};
    const int result = clock_gettime(CLOCK_MONOTONIC, &sinceStart);
    if (result != 0) {
        Log::Warn("clock_gettime() failure: %d: %s", result, strerror(errno));
        return {};
    }
    std::tm date{};
    if (gmtime_r(&sinceStart.tv_sec, &date) == nullptr) {
        Log::Warn("gmtime_r() failure: %s", strerror(errno));
        return {};
    }
    char text[64] = {};
    if (std::strftime(text, sizeof text - 1, "%Y-%m-%d.%H:%M:%S", &date) == 0) {
        Log::Warn("gmtime_r() failure.");  // strftime it was; the text is the known one.
        return {};
    }
    return text;
}
