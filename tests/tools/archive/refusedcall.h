// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tx::test {

/// A call of the system; with `argument`, only if that argument has the value.
struct RefusedCall {
    long number;
    int argument = -1;
    uint32_t value = 0;
};

constexpr RefusedCall createRuleset{SYS_landlock_create_ruleset};

/// Makes the call fail with this errno value, in this process and in the programs that it becomes.
inline void refuseCall(const RefusedCall &call, int number) {
    const auto offset =
        static_cast<uint32_t>(offsetof(seccomp_data, args) +
                              sizeof(uint64_t) * static_cast<size_t>(call.argument < 0 ? 0 : call.argument));
    const bool any = call.argument < 0;
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call.number), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.value, 0, static_cast<uint8_t>(any ? 0 : 1)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(number)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof filter / sizeof filter[0], filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(99);
}

/// The version of Landlock that this system has; less than 1 if it has none.
inline int landlockVersion() {
    return static_cast<int>(
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

} // namespace tx::test
