// SPDX-License-Identifier: MIT
// Loaded before a program, makes names in its current folder the same whatever their case, as on a file
// system that does not tell them apart. Absolute paths stay as they are.

#include <cctype>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string folded(const char *path) {
    std::string result = path;
    if (result.empty() || result.front() == '/')
        return result;
    for (char &c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

template <typename Function>
Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

// NOLINTBEGIN: these are the C library's names and shapes.
int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return next<int (*)(const char *, int, ...)>("open")(folded(path).c_str(), flags, mode);
}
int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return next<int (*)(const char *, int, ...)>("open64")(folded(path).c_str(), flags, mode);
}
int lstat(const char *path, struct stat *info) noexcept {
    return next<int (*)(const char *, struct stat *)>("lstat")(folded(path).c_str(), info);
}
int lstat64(const char *path, struct stat64 *info) noexcept {
    return next<int (*)(const char *, struct stat64 *)>("lstat64")(folded(path).c_str(), info);
}
int fstatat(int folder, const char *path, struct stat *info, int flags) noexcept {
    return next<int (*)(int, const char *, struct stat *, int)>("fstatat")(folder, folded(path).c_str(), info,
                                                                           flags);
}
int fstatat64(int folder, const char *path, struct stat64 *info, int flags) noexcept {
    return next<int (*)(int, const char *, struct stat64 *, int)>("fstatat64")(folder, folded(path).c_str(),
                                                                               info, flags);
}
int mkdir(const char *path, mode_t mode) noexcept {
    return next<int (*)(const char *, mode_t)>("mkdir")(folded(path).c_str(), mode);
}
// NOLINTEND

} // extern "C"
