// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/harness/sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

// Where the machine's root stays reachable while the sandbox is made.
constexpr const char* Machine = "/machine";

enum class Access { ReadOnly, Writable };

struct Folder {
    fs::path source;
    fs::path target;
    Access access;
};

// Everything that has to be found out before the machine's paths are gone.
struct Plan {
    std::uint64_t permBytes;
    std::vector<Folder> folders;
    std::vector<Placement> placed;
    fs::path workingFolder;
};

// Most calls here fail for one reason: namespaces, or mounting in them, are not allowed.
std::string Advice(int error) {
    if (error == ENOSYS) return "; this needs Linux 5.12 or later";
    if (error != EPERM && error != EACCES && error != ENOSPC && error != EUSERS) return "";
    return "; run as root, or allow user namespaces (sysctl kernel.unprivileged_userns_clone=1, "
           "kernel.apparmor_restrict_unprivileged_userns=0, user.max_user_namespaces above 0; "
           "a container needs --privileged)";
}

[[noreturn]] void Refuse(const std::string& reason) {
    (void)std::fprintf(stderr, "sandbox: %s\n", reason.c_str());
    _exit(EXIT_FAILURE);
}

long Check(long result, const std::string& what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void Mount(const char* type, const fs::path& target, unsigned long flags,
           const std::string& data = "") {
    Check(mount(type, target.c_str(), type, flags, data.empty() ? nullptr : data.c_str()),
          "cannot mount " + std::string(type) + " on " + target.string());
}

void MakeReadOnly(const fs::path& target) {
    // struct mount_attr of <linux/mount.h>, which cannot be included beside <sys/mount.h>.
    struct {
        std::uint64_t set = 1;  // MOUNT_ATTR_RDONLY
        std::uint64_t clear = 0;
        std::uint64_t propagation = 0;
        std::uint64_t userNamespace = 0;
    } attributes;
    Check(syscall(SYS_mount_setattr, AT_FDCWD, target.c_str(), AT_RECURSIVE, &attributes,
                  sizeof attributes),
          "cannot make " + target.string() + " read-only");
}

void Bind(const fs::path& source, const fs::path& target, Access access) {
    Check(mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
          "cannot bind " + target.string());
    // At once, so that nothing done later can reach the machine's files by mistake.
    if (access == Access::ReadOnly) MakeReadOnly(target);
}

fs::path OnMachine(const fs::path& path) {
    return Machine + path.string();
}

void CreateFile(const fs::path& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    Check(file, "cannot create " + path.string());
    (void)close(file);
}

// Shows what the machine has at `path`, if it has it: a link as a link, a folder or a file bound.
void Mirror(const fs::path& path, Access access = Access::ReadOnly) {
    const fs::path source = OnMachine(path);
    if (fs::is_symlink(source)) {
        fs::copy_symlink(source, path);
    } else if (fs::is_directory(source)) {
        fs::create_directory(path);
        Bind(source, path, access);
    } else if (fs::exists(source)) {
        CreateFile(path);
        Bind(source, path, access);
    }
}

// Shows what the machine has in the folder `path`, but for these names.
void MirrorAllBut(const fs::path& path, std::initializer_list<std::string_view> names) {
    for (const fs::directory_entry& entry : fs::directory_iterator(OnMachine(path))) {
        const std::string name = entry.path().filename();
        if (std::find(names.begin(), names.end(), name) == names.end()) Mirror(path / name);
    }
}

// Covers /tmp, turns that into the root, and by doing so uncovers the machine's own /tmp.
void ChangeRoot() {
    Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr),
          "cannot keep mounts from reaching the machine");
    Mount("tmpfs", "/tmp", MS_NOSUID | MS_NODEV, "mode=0755");
    fs::create_directory(std::string("/tmp") + Machine);
    Check(syscall(SYS_pivot_root, "/tmp", (std::string("/tmp") + Machine).c_str()),
          "cannot change the root");
    Check(chdir("/"), "cannot enter the new root");
}

void MakeSystemFolders(std::uint64_t permBytes) {
    for (const char* path :
         {"/dev/shm", "/etc/default", "/etc/init.d", "/perm", "/proc", "/root", "/run", "/tmp",
          "/usr/lib", "/usr/sbin", "/usr/share", "/var/log", "/var/tmp"}) {
        fs::create_directories(path);
    }
    for (const char* path : {"/dev/shm", "/tmp", "/var/tmp"}) {
        fs::permissions(path, fs::perms::all | fs::perms::sticky_bit);
    }
    fs::create_symlink("../run", "/var/run");
    fs::create_symlink("usr/sbin", "/sbin");

    for (const char* path : {"/bin", "/lib", "/lib32", "/lib64", "/libx32"}) Mirror(path);
    // Of these, the product has folders of its own.
    MirrorAllBut("/usr", {"sbin", "lib", "share"});
    MirrorAllBut("/usr/lib", {"vandis-moraine"});
    MirrorAllBut("/usr/share", {"vandis-moraine"});

    for (const char* path : {"/etc/passwd", "/etc/group"}) {
        if (fs::exists(OnMachine(path))) fs::copy_file(OnMachine(path), path);
    }
    for (const char* path : {"/etc/alternatives", "/etc/ld.so.cache", "/etc/localtime"}) {
        Mirror(path);
    }

    for (const char* node : {"full", "null", "random", "tty", "urandom", "zero"}) {
        Mirror(fs::path("/dev") / node, Access::Writable);
    }
    fs::create_symlink("/proc/self/fd", "/dev/fd");
    fs::create_symlink("fd/0", "/dev/stdin");
    fs::create_symlink("fd/1", "/dev/stdout");
    fs::create_symlink("fd/2", "/dev/stderr");

    Mount("tmpfs", "/perm", MS_NOSUID | MS_NODEV, "mode=0755,size=" + std::to_string(permBytes));
    Mount("proc", "/proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    Bind("/proc/sys", "/proc/sys", Access::ReadOnly);  // Most of it is the machine's.
}

void MakeSandbox(const Plan& plan) {
    (void)umask(022);
    ChangeRoot();
    MakeSystemFolders(plan.permBytes);
    for (const Folder& folder : plan.folders) {
        fs::create_directories(folder.target);
        Bind(OnMachine(folder.source), folder.target, folder.access);
    }
    for (const Placement& placement : plan.placed) {
        fs::create_directories(fs::path(placement.path).parent_path());
        if (!fs::exists(placement.path)) CreateFile(placement.path);
        Bind(OnMachine(placement.file), placement.path, Access::ReadOnly);
    }
    Check(umount2(Machine, MNT_DETACH), "cannot let the machine's root go");
    fs::remove(Machine);

    // Lines of the system log carry the name of the machine.
    constexpr std::string_view HostName = "sandbox";
    Check(sethostname(HostName.data(), HostName.size()), "cannot set the host name");
    if (chdir(plan.workingFolder.c_str()) != 0) Check(chdir("/"), "cannot enter /");
}

Plan MakePlan(const Options& options) {
    Plan plan{options.permBytes, {}, {}, fs::current_path()};
    const auto add = [&plan](const std::string& path, Access access) {
        const fs::path real = fs::canonical(path);
        if (!fs::is_directory(real)) throw std::runtime_error(path + " is not a folder");
        plan.folders.push_back({real, real, access});
        // Paths compiled into a test may go through a symbolic link.
        fs::path given = fs::absolute(path).lexically_normal();
        if (!given.has_filename()) given = given.parent_path();
        if (given != real) plan.folders.push_back({real, given, access});
    };
    // The writable ones last: they usually lie inside the others.
    for (const std::string& path : options.readOnly) add(path, Access::ReadOnly);
    for (const std::string& path : options.writable) add(path, Access::Writable);
    for (const Placement& placement : options.placed) {
        if (!placement.path.starts_with('/')) {
            throw std::runtime_error(placement.path + " is not an absolute path");
        }
        plan.placed.push_back({fs::canonical(placement.file), placement.path});
    }
    return plan;
}

void WriteOnce(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    Check(written ? 0 : -1, std::string("cannot write ") + path);
    (void)close(file);
}

void EnterNamespaces() {
    constexpr int Namespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS;
    if (unshare(Namespaces) == 0) return;

    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    Check(unshare(Namespaces | CLONE_NEWUSER), "cannot make namespaces");
    WriteOnce("/proc/self/setgroups", "deny");
    WriteOnce("/proc/self/uid_map", "0 " + uid + " 1");
    WriteOnce("/proc/self/gid_map", "0 " + gid + " 1");
}

// Waits until `child` ends and gives its exit status; reaps what else has become a child of this
// process and passes signals on.
int Attend(pid_t child, const sigset_t& attended) {
    for (;;) {
        siginfo_t info{};
        if (sigwaitinfo(&attended, &info) < 0) continue;
        if (info.si_signo != SIGCHLD) {
            // What the terminal sends (a positive code) has reached the child as well.
            if (info.si_code <= 0) (void)kill(child, info.si_signo);
            continue;
        }
        int status = 0;
        for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (ended != child) continue;
            return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        }
    }
}

// Ends this process with its parent, even one that has gone meanwhile. The parent lies in another
// PID namespace, where getppid() cannot see it: it holds the other end of `lifeline` instead.
void EndWithParent(const std::array<int, 2>& lifeline) {
    Check(prctl(PR_SET_PDEATHSIG, SIGKILL), "cannot tie the sandbox to its parent");
    (void)close(lifeline[1]);
    pollfd parent{lifeline[0], 0, 0};
    if (poll(&parent, 1, 0) > 0) _exit(EXIT_FAILURE);
    (void)close(lifeline[0]);
}

// A shell without job control starts background commands with SIGINT and SIGQUIT ignored. No test
// may depend on how it was started.
void UseDefaultSignals() {
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM}) {
        (void)signal(number, SIG_DFL);
    }
    sigset_t none;
    (void)sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

void EnterOrThrow(const Options& options) {
    const Plan plan = MakePlan(options);
    (void)std::fflush(nullptr);  // or the buffers would be written once by each process

    sigset_t attended;
    (void)sigemptyset(&attended);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        (void)sigaddset(&attended, number);
    }
    (void)sigprocmask(SIG_BLOCK, &attended, nullptr);
    (void)signal(SIGCHLD, SIG_DFL);  // an inherited SIG_IGN would hide the exit status

    EnterNamespaces();
    std::array<int, 2> lifeline{};
    Check(pipe2(lifeline.data(), O_CLOEXEC), "cannot make a pipe");
    const auto init = static_cast<pid_t>(Check(fork(), "cannot fork"));
    if (init > 0) _exit(Attend(init, attended));

    EndWithParent(lifeline);
    MakeSandbox(plan);
    const auto command = static_cast<pid_t>(Check(fork(), "cannot fork"));
    if (command > 0) _exit(Attend(command, attended));

    UseDefaultSignals();
    (void)setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    (void)setenv("HOME", "/root", 1);
    (void)unsetenv("TMPDIR");
}

}  // namespace

void Enter(const Options& options) {
    try {
        EnterOrThrow(options);
    } catch (const std::system_error& error) {
        Refuse(error.what() + Advice(error.code().value()));
    } catch (const std::exception& error) {
        Refuse(error.what());
    }
}

}  // namespace Sandbox
