// SPDX-License-Identifier: MIT
#include "mover/replacement.h"

#include "os/filesystem.h"
#include "os/services.h"
#include "posix/movedname.h"

#include <TarvixUpdate/TXLog.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString beside(const QString &path, const char *suffix) {
    return path.section(u'/', 0, -2) + u"/."_s + path.section(u'/', -1) + QLatin1StringView(suffix);
}

bool cannotExchange(const TXError &error) {
    return error.code() == EINVAL || error.code() == ENOSYS || error.code() == EOPNOTSUPP ||
           error.code() == EXDEV;
}

} // namespace

Replacement::Replacement(const QString &destination)
    : m_folder(destination.section(u'/', 0, -2))
    , m_destination(destination)
    , m_staged(beside(destination, movedSuffix))
    , m_old(beside(destination, backupSuffix))
    , m_whole(beside(destination, wholeSuffix)) {}

TXError Replacement::takeName() {
    FileSystem &files = *services().fileSystem;
    if (!files.exists(m_destination)) {
        TXError error = files.move(m_staged, m_destination);
        if (error)
            (void)files.remove(m_staged);
        return error;
    }
    // The finished copy gets the name that the old application has after the exchange. If the move is killed
    // before or after the exchange, that name holds something complete, which the next move puts into the
    // Trash, and not an unfinished copy, which it would delete.
    if (TXError error = files.rename(m_staged, m_old)) {
        (void)files.remove(m_staged);
        return error;
    }
    TXError error = files.exchange(m_old, m_destination);
    if (cannotExchange(error)) {
        error = files.rename(m_old, m_staged);
        if (!error)
            return takeNameByRenaming();
    }
    if (error)
        (void)files.remove(m_old);
    m_hasReplaced = !error;
    return error;
}

/// For file systems that cannot exchange two entries. After an interruption, the next opening or the next
/// move repairs it.
TXError Replacement::takeNameByRenaming() {
    FileSystem &files = *services().fileSystem;
    TXError error = files.rename(m_destination, m_old);
    if (error.code() == EXDEV)
        return takeNameByCopying();
    if (!error) {
        error = files.rename(m_staged, m_destination);
        if (error && files.rename(m_old, m_destination))
            logOldAt(m_old);
    }
    if (error)
        (void)files.remove(m_staged);
    m_hasReplaced = !error;
    return error;
}

/// For folders of a lower layer, which cannot be renamed at all. After an interruption, the next opening or
/// the next move restores the complete copy.
TXError Replacement::takeNameByCopying() {
    FileSystem &files = *services().fileSystem;
    TXError error = files.copy(m_destination, m_old);
    if (!error)
        error = files.sync(m_old);
    if (!error)
        error = files.rename(m_old, m_whole);
    if (!error) {
        error = files.syncFolder(m_folder);
        if (error)
            (void)files.rename(m_whole, m_old);
    }
    if (error) {
        // Nothing was removed from the destination.
        (void)files.remove(m_old);
        (void)files.remove(m_staged);
        return error;
    }
    error = files.remove(m_destination);
    if (!error)
        error = files.rename(m_staged, m_destination);
    if (!error)
        error = files.syncFolder(m_folder);
    // After this rename, recovery keeps the new application.
    if (!error)
        error = files.rename(m_whole, m_old);
    if (error) {
        if (files.undoInterruption(m_destination) || files.exists(m_whole))
            logOldAt(m_whole);
        (void)files.remove(m_staged);
    }
    m_hasReplaced = !error;
    return error;
}

TXError Replacement::putBack() {
    FileSystem &files = *services().fileSystem;
    TXError error = files.exchange(m_old, m_destination);
    if (!error) {
        (void)files.remove(m_old);
        return {};
    }
    if (cannotExchange(error)) {
        error = files.rename(m_destination, m_staged);
        if (!error) {
            error = files.rename(m_old, m_destination);
            if (!error) {
                (void)files.remove(m_staged);
                return {};
            }
            (void)files.rename(m_staged, m_destination);
        }
    }
    logOldAt(m_old);
    return error;
}

void Replacement::logOldAt(const QString &path) const {
    TXLog(TXLogLevelAlways, u"ERROR -- What was at %@ is at %@"_s, {m_destination, path});
}

} // namespace tx
