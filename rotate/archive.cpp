// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Archiving one file: compress it beside itself, move the result into the archive, remove the file.
//
// Power may fail between any two steps, and syslogd works in the same directory. So an archive file
// reaches the disk before its name does, and its name before the source goes; an archive file is
// never replaced by another; and the source is removed only if it is the very file that was
// compressed, unchanged, and nobody can write to it any more.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <exception>
#include <optional>
#include <thread>
#include <utility>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "futils/rename.h"
#include "logfileutils/names.h"
#include "logging/logging.h"
#include "rotate/rotate.h"
#include "rotate/source_file.h"
#include "rotate/twin.h"
#include "util/elapsed_time.h"

namespace fs = std::filesystem;

using Rotation::SourceFile;

namespace {

using Ms = std::chrono::duration<double, std::milli>;

// A source that keeps changing is left to a later cycle after this many compressions.
constexpr int MaxAttempts = 5;

// A name is taken for its own second only, unless someone made files for the seconds to come.
constexpr int MaxNameChecks = 100;
constexpr Ms BetweenNameChecks(100);

void LogNamesTaken() {
    Log::Error("All archive file names of the last %.0f seconds are taken.",
               MaxNameChecks * BetweenNameChecks.count() / 1000);
}

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

    // Removes a source that is in the archive already. Returns nothing if it is not, else true on
    // failure.
    std::optional<bool> RemoveIfArchived();

private:
    enum class Outcome {
        Archived,
        Failed,
        Changed,  // written to while it was compressed
        Moved,    // its path names another file
        Deleted,  // by somebody else, before it was compressed
        InUse,    // somebody has it open for writing
    };
    // A step returns nothing to go on, or the outcome that ends the attempt.
    using Ending = std::optional<Outcome>;

    bool IsLiveLog() const { return fs::path(pfn) == Moraine::SyslogPfe; }
    bool IsTemporary() const { return source.Pfn().extension() == Moraine::TmpExt; }
    fs::path Compressed() const { return source.Pfn().native() + Moraine::XzExt.native(); }

    Outcome Try();
    Ending RemoveTwin();
    Ending LookAtSource() const;
    Ending Compress();
    Ending CheckCompressed() const;
    Ending MoveIntoArchive();
    Ending RemoveSource();
    Ending Unlink();
    Outcome TakeBack(Outcome outcome);
    Ending EndingOf(SourceFile::State state) const;
    void WaitForSyslogd() const;
    bool LeaveSource(Outcome outcome) const;

    Rotate& rotate;
    const std::string pfn;
    SourceFile source;
    fs::path dest;  // the archive file
    unsigned long archivedSize = 0;
    bool hasTwin = false;  // dest was there before
};

bool Rotate::Archiving::Run() {
    if (const std::optional<bool> failed = RemoveIfArchived()) return *failed;
    // Taking the live log would replace one whose archiving was interrupted. That one goes first.
    if (IsLiveLog() && Futils::FileExists(Moraine::SyslogTakenPfe)) {
        return rotate.Archive(Moraine::SyslogTakenPfe);
    }

    ElapsedTime stopwatch(100.0);
    dest = rotate.GetFreeArchPfe();
    if (dest.empty()) return true;
    if (IsLiveLog()) {
        if (Futils::Rename(pfn, Moraine::SyslogTakenPfe)) return true;
        source.SetPfn(Moraine::SyslogTakenPfe);
        rotate.SendSigHupToSyslog();
    }
    Log::Debug("Archiving '%s'.", source.Pfn().filename().c_str());

    Outcome outcome = Try();
    for (int i = 1; i < MaxAttempts && outcome == Outcome::Changed; ++i) outcome = Try();
    if (outcome != Outcome::Archived) return LeaveSource(outcome);
    Log::Info("Archived '%s' to '%s' in %.1f seconds.", pfn.c_str(), dest.c_str(),
              stopwatch.GetMsElapsed() / 1000.0);
    return rotate.CheckArchSize();
}

std::optional<bool> Rotate::Archiving::RemoveIfArchived() {
    if (IsLiveLog() || source.OpenError() != 0) return std::nullopt;
    if (rotate.ListPossibleTwins()) return true;
    const Ending ending = rotate.possibleTwins->empty() ? std::nullopt : RemoveTwin();
    if (!ending) return std::nullopt;
    if (ending != Outcome::Archived) return LeaveSource(*ending);
    Log::Info("'%s' is in the archive already, as '%s'.", pfn.c_str(), dest.filename().c_str());
    return false;
}

// Returns nothing if the archive has no copy of the source.
Rotate::Archiving::Ending Rotate::Archiving::RemoveTwin() {
    source.Mark();
    const std::string twin = Rotation::FindTwin(source, *rotate.possibleTwins);
    if (twin.empty()) return std::nullopt;  // guard: twin
    dest = Moraine::ArchPathAbs / twin;
    hasTwin = true;
    if (!source.LockOutWriters()) return Outcome::InUse;
    // The daemon may have been killed before it synced the name.
    if (Futils::Sync(Moraine::ArchPathAbs)) return Outcome::Failed;  // guard: sync-twin
    return RemoveSource().value_or(Outcome::Archived);
}

// Unless it returns Archived or Failed, nothing is left of the copy.
Rotate::Archiving::Outcome Rotate::Archiving::Try() {
    source.Mark();
    Ending ending = LookAtSource();
    if (!ending) ending = Compress();
    if (!ending) ending = CheckCompressed();
    if (!ending) ending = MoveIntoArchive();
    if (!ending) ending = RemoveSource();
    const Outcome outcome = ending.value_or(Outcome::Archived);
    source.LetWritersIn();
    const bool isLeft = outcome != Outcome::Archived && outcome != Outcome::Failed;
    if (isLeft) (void)Futils::Remove(Compressed());  // What stays goes at the next start.
    return outcome;
}

// Returns nothing for a source that cannot be opened: xz gives the reason.
Rotate::Archiving::Ending Rotate::Archiving::LookAtSource() const {
    if (source.OpenError() != 0) return std::nullopt;
    if (const Ending ending = EndingOf(source.Look())) return ending;
    if (IsTemporary()) return std::nullopt;  // syslogd is about to close it.
    if (!source.LockOutWriters()) return Outcome::InUse;
    source.LetWritersIn();
    return std::nullopt;
}

// While syslogd moves the rotations up, a name has no file for a moment, and anybody may delete
// one. Whether this program or xz notices that, it is no failure.
Rotate::Archiving::Ending Rotate::Archiving::Compress() {
    if (Futils::System("xz -fk " + source.Pfn().native())) {
        if (source.OpenError() != 0) return Outcome::Failed;
        const SourceFile::State state = source.Look();
        const bool wasThere =
            state == SourceFile::State::Same || state == SourceFile::State::Changed;
        return wasThere ? Outcome::Failed : EndingOf(state);
    }
    if (IsGone()) return Outcome::Moved;
    if (source.OpenError() != 0) {
        Log::Error("Unable to open %s: %s", source.Pfn().c_str(), strerror(source.OpenError()));
        return Outcome::Failed;
    }
    return std::nullopt;
}

// From here on writers wait, until the source is gone or left to a later cycle: an archive file
// that has only a part of its source would be no twin of it.
//
// A source that was deleted since xz opened it is kept by archiving what xz made of it, unless that
// has the modification time of the file that has its name now: then xz took that one.
Rotate::Archiving::Ending Rotate::Archiving::CheckCompressed() const {
    if (IsTemporary()) WaitForSyslogd();
    const bool isInUse = !source.LockOutWriters();
    const SourceFile::State state = source.Look();
    if (state == SourceFile::State::Deleted) {
        return Rotation::HaveSameTime(Compressed(), source.Pfn()) ? EndingOf(state) : std::nullopt;
    }
    return isInUse ? Outcome::InUse : EndingOf(state);
}

Rotate::Archiving::Ending Rotate::Archiving::MoveIntoArchive() {
    // With the folder, syslogd's renames reach the disk: a loss of power cannot give the source
    // back as the live log, for syslogd to append to.
    if (Futils::Sync(Compressed())) return Outcome::Failed;            // guard: sync-copy
    if (Futils::Sync(Moraine::SyslogPathAbs)) return Outcome::Failed;  // guard: sync-renames
    // If xz has made nothing, it is the rename that says so.
    Futils::RenameResult result = Futils::RenameNoReplace(Compressed(), dest);  // guard: no-replace
    for (int i = 0; result == Futils::RenameResult::TargetExists; ++i) {
        if (i == MaxNameChecks) {
            LogNamesTaken();
            return Outcome::Failed;
        }
        std::this_thread::sleep_for(BetweenNameChecks);
        dest = rotate.GetFreeArchPfe();
        if (dest.empty()) return Outcome::Failed;
        result = Futils::RenameNoReplace(Compressed(), dest);
    }
    if (result == Futils::RenameResult::Failed) return Outcome::Failed;
    try {
        archivedSize = fs::file_size(dest);
    } catch (const std::exception& e) {
        Log::Error("Unable to get %s size, reason: %s", dest.filename().c_str(), e.what());
        return Outcome::Failed;
    }
    rotate.archDirSize += archivedSize;
    if (Futils::Sync(Moraine::ArchPathAbs)) return Outcome::Failed;  // guard: sync-archive
    return std::nullopt;
}

Rotate::Archiving::Ending Rotate::Archiving::RemoveSource() {
    const SourceFile::State state = source.Look();
    if (state == SourceFile::State::Deleted) return std::nullopt;
    if (const Ending ending = EndingOf(state)) return TakeBack(*ending);
    if (const Ending ending = Unlink()) return ending;
    // Until the removal is on the disk, a loss of power gives the source back.
    if (Futils::Sync(Moraine::SyslogPathAbs)) return Outcome::Failed;  // guard: sync-removal
    return std::nullopt;
}

// Removes the source by a name that syslogd does not touch: the rename takes whatever file has the
// source's name, and only then it is certain which one that is. Where that name is in use, or the
// source cannot be renamed, it is removed by its own.
//
// If syslogd has rotated at that moment, the file that was taken is the one behind the source. It
// cannot be given back, since syslogd may be about to rename another one to the same name. It is
// archived next, and then the source is found to have a twin.
Rotate::Archiving::Ending Rotate::Archiving::Unlink() {
    const int error =
        IsTemporary() ? EEXIST : Futils::TryRenameNoReplace(source.Pfn(), Moraine::SyslogTakenPfe);
    if (error == ENOENT) return TakeBack(Outcome::Moved);
    if (error == 0) {
        source.SetPfn(Moraine::SyslogTakenPfe);
        const SourceFile::State state = source.Look();
        if (state == SourceFile::State::Moved) {
            rotate.possibleTwins->insert(dest.filename());
            return Outcome::Moved;
        }
        if (state == SourceFile::State::Changed) return TakeBack(Outcome::Changed);
    }
    if (Futils::Remove(source.Pfn())) return Outcome::Failed;
    return std::nullopt;
}

// The source was moved or written to in the meantime, and will be archived again.
Rotate::Archiving::Outcome Rotate::Archiving::TakeBack(Outcome outcome) {
    if (hasTwin) return outcome;
    if (Futils::Remove(dest)) return Outcome::Failed;
    rotate.archDirSize -= archivedSize;
    return outcome;
}

Rotate::Archiving::Ending Rotate::Archiving::EndingOf(SourceFile::State state) const {
    switch (state) {
        case SourceFile::State::Changed:
            return Outcome::Changed;
        case SourceFile::State::Moved:
            return Outcome::Moved;
        case SourceFile::State::Deleted:
            return Outcome::Deleted;
        case SourceFile::State::Same:
            break;
    }
    return std::nullopt;
}

void Rotate::Archiving::WaitForSyslogd() const {
    const Ms rest = UntilSyslogdReopened - Ms(source.MsSinceTouched());
    std::this_thread::sleep_for(std::clamp(rest, Ms(0), UntilSyslogdReopened));
}

// Returns true if `outcome` is a failure, which has been logged.
bool Rotate::Archiving::LeaveSource(Outcome outcome) const {
    switch (outcome) {
        case Outcome::Failed:
            return true;
        case Outcome::Deleted:
            Log::Info("'%s' was deleted before it was compressed.", pfn.c_str());
            break;
        case Outcome::InUse:
            Log::Info("'%s' is still open for writing.  A later cycle will archive it.",
                      pfn.c_str());
            break;
        default:
            Log::Info("'%s' was %s while it was compressed.  A later cycle will archive it.",
                      pfn.c_str(), outcome == Outcome::Moved ? "moved" : "written to");
    }
    return false;
}

bool Rotate::Archive(const std::string& pfn) {
    return Archiving(*this, pfn).Run();
}

bool Rotate::ArchiveIfThere(const std::string& pfn) {
    Archiving archiving(*this, pfn);
    return !archiving.IsGone() && archiving.Run();
}

bool Rotate::ArchiveHighest(const std::string& pfn) {
    Archiving archiving(*this, pfn);
    if (archiving.IsGone() || HasHigherRotation(pfn)) return false;
    return archiving.Run();
}

bool Rotate::RemoveIfArchived(const std::string& pfn) {
    return Archiving(*this, pfn).RemoveIfArchived().value_or(false);
}

fs::path Rotate::GetFreeArchPfe() const {
    for (int i = 0; i < MaxNameChecks; ++i) {
        const std::string fn = GetArchFn();
        if (fn.empty()) return {};
        fs::path pfe = Moraine::ArchPathAbs / fn;
        if (!Futils::FileExists(pfe) && !Futils::PathExists(pfe)) return pfe;  // guard: free-name
        std::this_thread::sleep_for(BetweenNameChecks);
    }
    LogNamesTaken();
    return {};
}

std::string Rotate::GetArchFn() const {
    const std::string timeStamp = GetMonotonicClockString();
    return timeStamp.empty() ? std::string() : Catalogue::ArchiveName(bootNum, timeStamp);
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
        Log::Warn("gmtime_r() failure.");  // The text is fixed, although strftime failed.
        return {};
    }
    return text;
}
