// SPDX-License-Identifier: GPL-3.0-or-later
// ordalis-keyhelper: Ordalis starts it through pkexec, so it starts as root. It takes nothing from whoever started it
// but its standard input (whose end tells it to stop) and output (where the records go): no arguments, no
// environment but pkexec's PKEXEC_UID, no inherited files. With PKEXEC_UID it becomes that user, keeping only the
// right to read any file, which opening the device nodes needs.
//
// The test build reads the directory given as --device-dir DIR, takes named pipes there for devices and keeps its
// user as it is.
#include "input/keyhelper/keyhelper.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int usageStatus = 2;

int fail(const char* what)
{
    std::fprintf(stderr, "ordalis-keyhelper: %s\n", what);
    return 1;
}

void closeInheritedFiles()
{
    if (::close_range(3, ~0U, 0) == 0)
        return;
    for (long fd = 3, end = ::sysconf(_SC_OPEN_MAX); fd < end; ++fd)
        ::close(int(fd));
}

#ifndef ORDALIS_KEYHELPER_TESTING
std::optional<uid_t> parseUid(const char* text)
{
    if (!text || !*text || std::strlen(text) > 10 || std::strspn(text, "0123456789") != std::strlen(text))
        return std::nullopt;
    const unsigned long long value = std::strtoull(text, nullptr, 10);
    if (value >= static_cast<uid_t>(-1))
        return std::nullopt;
    return uid_t(value);
}

/**
 * Becomes `uid`, keeping CAP_DAC_READ_SEARCH alone (it opens any device node, and does nothing else). The group is
 * the one pkexec's caller, our parent, runs with: found without the user database, whose lookups may talk to
 * services over sockets.
 */
bool becomeUser(uid_t uid, pid_t parent)
{
    struct stat caller;
    const std::string parentDir = "/proc/" + std::to_string(parent);
    if (::stat(parentDir.c_str(), &caller) != 0 || caller.st_uid != uid)
        return false;
    const gid_t gid = caller.st_gid;

    // Nothing it runs could gain more either (it runs nothing, and no_new_privs holds already).
    for (int cap = 0; ::prctl(PR_CAPBSET_READ, cap, 0, 0, 0) >= 0; ++cap) {
        if (cap != CAP_DAC_READ_SEARCH && ::prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0)
            return false;
    }
    if (::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || ::setgroups(0, nullptr) != 0 || ::setresgid(gid, gid, gid) != 0
        || ::setresuid(uid, uid, uid) != 0 || ::prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0) != 0)
        return false;
    __user_cap_header_struct header { _LINUX_CAPABILITY_VERSION_3, 0 };
    __user_cap_data_struct wanted[_LINUX_CAPABILITY_U32S_3] {};
    wanted[CAP_TO_INDEX(CAP_DAC_READ_SEARCH)].effective = CAP_TO_MASK(CAP_DAC_READ_SEARCH);
    wanted[CAP_TO_INDEX(CAP_DAC_READ_SEARCH)].permitted = CAP_TO_MASK(CAP_DAC_READ_SEARCH);
    if (::syscall(SYS_capset, &header, wanted) != 0)
        return false;

    // Checked, not assumed.
    __user_cap_data_struct now[_LINUX_CAPABILITY_U32S_3] {};
    uid_t ruid, euid, suid;
    gid_t rgid, egid, sgid;
    return ::syscall(SYS_capget, &header, now) == 0 && std::memcmp(now, wanted, sizeof now) == 0
        && ::getresuid(&ruid, &euid, &suid) == 0 && ruid == uid && euid == uid && suid == uid
        && ::getresgid(&rgid, &egid, &sgid) == 0 && rgid == gid && egid == gid && sgid == gid
        && ::getgroups(0, nullptr) == 0;
}
#endif

} // namespace

int main(int argc, char** argv)
{
    // Standard input, output and error must be open: a device opened as descriptor 1 would be written to.
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0)
            return 1;
    }
    closeInheritedFiles();
    const pid_t parent = ::getppid();

    const char* directory = "/dev/input";
#ifdef ORDALIS_KEYHELPER_TESTING
    if (argc == 3 && std::strcmp(argv[1], "--device-dir") == 0)
        directory = argv[2];
    else if (argc != 1)
        return std::fprintf(stderr, "usage: %s [--device-dir DIR]\n", argv[0]), usageStatus;
#else
    (void)argv;
    if (argc > 1)
        return std::fputs("ordalis-keyhelper: takes no arguments\n", stderr), usageStatus;
    const char* pkexecUid = std::getenv("PKEXEC_UID");
    const std::optional<uid_t> user = parseUid(pkexecUid);
    if (pkexecUid && !user)
        return fail("PKEXEC_UID is not a user id");
#endif
    ::clearenv();

    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a write to a closed pipe fails with EPIPE instead
    if (::chdir("/") != 0 || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        return fail("cannot restrict itself");
#ifndef ORDALIS_KEYHELPER_TESTING
    if (::geteuid() == 0 && user && !becomeUser(*user, parent))
        return fail("cannot switch to the calling user");
#endif
    // The change of user set it back.
    if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        return fail("cannot restrict itself");

    // Ordalis gone is the end too; set after the change of user, which clears it. SIGTERM is a normal end.
    std::signal(SIGTERM, [](int) { ::_exit(0); });
    if (::prctl(PR_SET_PDEATHSIG, SIGTERM, 0, 0, 0) != 0)
        return fail("cannot follow its parent");
    if (::getppid() != parent)
        return 0;

    return KeyHelper::run(directory);
}
