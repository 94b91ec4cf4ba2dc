// SPDX-License-Identifier: MIT
#include "tests/survival/powerloss.h"

#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

namespace {

std::string readAll(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned long numberOf(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

} // namespace

PowerLoss::PowerLoss(std::string root)
    : m_root(std::move(root)) {
    syncAll();
}

PowerLoss::~PowerLoss() {
    for (const auto &[number, node] : m_nodes)
        close(node.holder);
}

/// Notes what is there now; returns the number of the entry at `path`.
unsigned long PowerLoss::scan(const std::string &path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return 0;
    Node &node = m_nodes[info.st_ino];
    if (node.holder < 0)
        node.holder = open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    node.type = info.st_mode & S_IFMT;
    node.mode = info.st_mode & 07777;
    if (S_ISLNK(info.st_mode)) {
        node.target = std::filesystem::read_symlink(path).string();
    } else if (S_ISREG(info.st_mode)) {
        node.currentContent = readAll(path);
    } else if (S_ISDIR(info.st_mode)) {
        std::map<std::string, unsigned long> entries;
        for (const auto &entry : std::filesystem::directory_iterator(path))
            entries[entry.path().filename().string()] = scan(entry.path().string());
        m_nodes[info.st_ino].currentEntries = std::move(entries);
    }
    return info.st_ino;
}

void PowerLoss::syncAll() {
    m_rootNumber = scan(m_root);
    for (auto &[number, node] : m_nodes) {
        node.content = node.currentContent;
        node.hasContent = true;
        node.entries = node.currentEntries;
    }
}

void PowerLoss::syncDirectory(const std::string &path) {
    m_rootNumber = scan(m_root);
    Node &node = m_nodes[numberOf(path)];
    node.entries = node.currentEntries;
}

void PowerLoss::syncFile(const std::string &path) {
    m_rootNumber = scan(m_root);
    Node &node = m_nodes[numberOf(path)];
    node.content = node.currentContent;
    node.hasContent = true;
}

void PowerLoss::build(const std::string &place, unsigned long number, const Choice &entriesAreCurrent,
                      bool contentIsCurrent) const {
    const Node &node = m_nodes.at(number);
    if (node.type == S_IFLNK) {
        (void)!symlink(node.target.c_str(), place.c_str());
    } else if (node.type == S_IFREG) {
        std::ofstream(place, std::ios::binary) << (contentIsCurrent ? node.currentContent : node.content);
        chmod(place.c_str(), node.mode);
    } else if (node.type == S_IFDIR) {
        mkdir(place.c_str(), 0700);
        for (const auto &[name, inner] : entriesAreCurrent(number) ? node.currentEntries : node.entries)
            build(place + '/' + name, inner, entriesAreCurrent, contentIsCurrent);
        chmod(place.c_str(), node.mode);
    }
}

void PowerLoss::forEachState(const std::string &place,
                             const std::function<void(const std::string &what)> &visit) {
    m_rootNumber = scan(m_root);
    const auto show = [&](const std::string &what, const Choice &entriesAreCurrent, bool contentIsCurrent) {
        std::filesystem::remove_all(place);
        build(place, m_rootNumber, entriesAreCurrent, contentIsCurrent);
        ++m_states;
        visit(what);
        std::filesystem::remove_all(place);
    };
    show(
        "nothing since the last sync", [](unsigned long) { return false; }, false);
    show(
        "names but no content", [](unsigned long) { return true; }, false);
    show(
        "everything", [](unsigned long) { return true; }, true);
    for (const auto &[number, node] : m_nodes) {
        if (node.type != S_IFDIR || node.entries == node.currentEntries)
            continue;
        show(
            "all folders but one", [one = number](unsigned long each) { return each != one; }, false);
        show(
            "one folder only", [one = number](unsigned long each) { return each == one; }, false);
    }
}

} // namespace tx::test
