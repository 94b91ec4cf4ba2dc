// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"

#include <functional>
#include <string>

namespace tx::test {

/// The installer's file system with one place where each change of it can be seen, fail or end the process.
class StepFiles : public installer::Files {
public:
    using FileError = posix::FileError;

    /// A change that is about to be made.
    struct Step {
        std::string name;  ///< "rename", "exchange", "copy", "make", "remove", "removeFile", "owner", "bits",
                           ///< "open", "lock", "sync" or "syncDirectory"
        std::string place; ///< what is changed or made; of a rename or a copy, where it leads
        std::string from = {}; ///< of a rename or a copy
    };

    FileError rename(const std::string &from, const std::string &to) override {
        return step({"rename", to, from}, [&] { return Files::rename(from, to); });
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        return step({"exchange", b, a}, [&] { return Files::exchange(a, b); });
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const posix::CopyRules &rules) override {
        return step({"copy", to, from}, [&] { return Files::copyTree(from, to, rules); });
    }
    FileError makeDirectory(const std::string &path) override {
        return step({"make", path}, [&] { return Files::makeDirectory(path); });
    }
    FileError removeTree(const std::string &path) override {
        return step({"remove", path}, [&] { return Files::removeTree(path); });
    }
    FileError removeFile(const std::string &path) override {
        return step({"removeFile", path}, [&] { return Files::removeFile(path); });
    }
    FileError changeOwner(const std::string &path, uid_t owner, gid_t group) override {
        return step({"owner", path}, [&] { return Files::changeOwner(path, owner, group); });
    }
    FileError limitSpecialBits(const std::string &tree, const std::string &installed) override {
        return step({"bits", tree}, [&] { return Files::limitSpecialBits(tree, installed); });
    }
    FileError openToReaders(const std::string &folder) override {
        return step({"open", folder}, [&] { return Files::openToReaders(folder); });
    }
    FileError lock(const std::string &path, posix::Descriptor &lock) override {
        return step({"lock", path}, [&] { return Files::lock(path, lock); });
    }
    FileError syncFileSystem(const std::string &path) override {
        return step({"sync", path}, [&] { return Files::syncFileSystem(path); });
    }
    FileError syncDirectory(const std::string &path) override {
        return step({"syncDirectory", path}, [&] { return Files::syncDirectory(path); });
    }

protected:
    /// Makes the change by `work`, or fails instead.
    virtual FileError step(const Step &step, const std::function<FileError()> &work) = 0;
};

} // namespace tx::test
