// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tx::test {

/// A folder on a disk whose power may go at any time. What was written to disk on purpose is there
/// afterwards; of everything else any folder's entries and any file's content may be as they are or as they
/// were last on disk, each for itself.
class PowerLoss {
public:
    /// All that is below `root` now is on disk.
    explicit PowerLoss(std::string root);
    ~PowerLoss();
    PowerLoss(const PowerLoss &) = delete;
    PowerLoss &operator=(const PowerLoss &) = delete;

    /// Everything is on disk from now on; as sync of a whole file system.
    void syncAll();
    void syncDirectory(const std::string &path);
    void syncFile(const std::string &path);

    /// Makes each of the states that the disk may be in after the power went now, one after the other, in the
    /// folder `place`, and shows it.
    void forEachState(const std::string &place, const std::function<void(const std::string &what)> &visit);
    [[nodiscard]] int states() const { return m_states; }

private:
    struct Node {
        int holder = -1; ///< keeps its number from being given to another
        unsigned type = 0;
        unsigned mode = 0;
        std::string target;
        std::string content; ///< on disk; of a file
        bool hasContent = false;
        std::map<std::string, unsigned long> entries; ///< on disk; of a folder
        std::string currentContent;
        std::map<std::string, unsigned long> currentEntries;
    };
    using Choice = std::function<bool(unsigned long number)>; ///< true: as it is now

    unsigned long scan(const std::string &path);
    void build(const std::string &place, unsigned long number, const Choice &entriesAreCurrent,
               bool contentIsCurrent) const;

    std::string m_root;
    unsigned long m_rootNumber = 0;
    std::map<unsigned long, Node> m_nodes;
    int m_states = 0;
};

} // namespace tx::test
