// SPDX-License-Identifier: MIT
// xattr [-d NAME [-r]] PATH...: lists or removes extended attributes of files, never through links.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/xattr.h>
#include <system_error>
#include <vector>

namespace {

int usage() {
    std::fputs("usage: xattr PATH...\n"
               "       xattr -d [-r] NAME PATH...\n"
               "       xattr -d -r NAME PATH...\n"
               "Lists the extended attributes of files, or removes (-d) one, below folders too (-r).\n"
               "Exit status: 0 done, 1 failed, 64 misuse.\n",
               stderr);
    return 64;
}

/// Names of the attributes as a person writes them: without the "user." of ordinary ones.
std::string shownName(const std::string &name) { return name.rfind("user.", 0) == 0 ? name.substr(5) : name; }

bool list(const std::string &path, bool withPath) {
    std::vector<char> names(65536);
    const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
    if (size < 0) {
        std::fprintf(stderr, "xattr: %s: %s\n", path.c_str(), std::strerror(errno));
        return errno == ENOTSUP;
    }
    for (ssize_t i = 0; i < size;
         i += static_cast<ssize_t>(std::strlen(&names[static_cast<size_t>(i)])) + 1) {
        const std::string name = shownName(&names[static_cast<size_t>(i)]);
        std::printf("%s%s%s\n", withPath ? path.c_str() : "", withPath ? ": " : "", name.c_str());
    }
    return true;
}

/// Removing an attribute writes to the file system's journal even if there is none; asking does not.
bool removeAttribute(const char *path, const char *name) {
    return lgetxattr(path, name, nullptr, 0) >= 0 && lremovexattr(path, name) == 0;
}

bool hasNamespace(const std::string &name) {
    for (const char *prefix : {"user.", "security.", "system.", "trusted."}) {
        if (name.rfind(prefix, 0) == 0)
            return true;
    }
    return false;
}

/// Below a folder, a missing attribute is not an error, because the caller did not name the entry.
bool remove(const std::string &path, const std::string &name, bool named) {
    if (removeAttribute(path.c_str(), hasNamespace(name) ? name.c_str() : ("user." + name).c_str()))
        return true;
    if (!named && (errno == ENODATA || errno == ENOTSUP || errno == EPERM))
        return true;
    if (errno == ENODATA || errno == ENOTSUP)
        std::fprintf(stderr, "xattr: %s: No such xattr: %s\n", path.c_str(), name.c_str());
    else
        std::fprintf(stderr, "xattr: %s: %s\n", path.c_str(), std::strerror(errno));
    return false;
}

bool removeBelow(const std::string &path, const std::string &name) {
    namespace fs = std::filesystem;
    bool ok = remove(path, name, false);
    std::error_code error;
    if (!fs::is_directory(fs::symlink_status(path, error)))
        return ok;
    fs::recursive_directory_iterator it(path, error);
    for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error))
        ok = remove(it->path().string(), name, false) && ok;
    if (error)
        std::fprintf(stderr, "xattr: %s: %s\n", path.c_str(), error.message().c_str());
    return ok && !error;
}

} // namespace

int main(int argc, char **argv) {
    bool removing = false;
    bool recursive = false;
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-d" && words.empty())
            removing = true;
        else if (word == "-r" && words.empty())
            recursive = true;
        else if (words.empty() && word.size() > 1 && word.front() == '-')
            return usage();
        else
            words.push_back(word);
    }
    if (words.size() < (removing ? 2U : 1U) || (recursive && !removing))
        return usage();
    bool ok = true;
    for (size_t i = removing ? 1 : 0; i < words.size(); ++i) {
        if (!std::filesystem::exists(std::filesystem::symlink_status(words[i]))) {
            std::fprintf(stderr, "xattr: %s: No such file\n", words[i].c_str());
            ok = false;
        } else if (!removing) {
            ok = list(words[i], words.size() > 1) && ok;
        } else {
            ok = (recursive ? removeBelow(words[i], words[0]) : remove(words[i], words[0], true)) && ok;
        }
    }
    return ok ? 0 : 1;
}
