// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace tx::test {

/// A real server with a remote of rclone, for publishing to a folder.
class RemoteServer {
public:
    enum class Kind {
        WebDav, ///< nginx
        Sftp,   ///< OpenSSH
        S3      ///< the program in TARVIX_S3RVER
    };
    /// `folder`: what it serves. With S3 it is a bucket of the server's own, and the folder is not used.
    RemoteServer(Kind kind, const QString &folder);
    ~RemoteServer();
    Q_DISABLE_COPY_MOVE(RemoteServer)

    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] QString remote() const { return m_remote; }
    /// Of the files by GET; null where the server has none.
    [[nodiscard]] QString url() const { return m_url; }
    /// For whatever runs rclone.
    [[nodiscard]] QStringList environment() const;
    /// All files that are there.
    [[nodiscard]] QStringList names() const;
    [[nodiscard]] QByteArray content(const QString &name) const;
    void remove(const QString &name) const;
    void put(const QString &name, const QByteArray &content) const;

    /// S3 only where a server for it was named.
    static QList<Kind> kinds();
    static const char *nameOf(Kind kind);

private:
    void startWebDav(const QString &folder, int port);
    void startSftp(const QString &folder, int port);
    void startS3(int port);
    [[nodiscard]] QByteArray rclone(const QStringList &words, const QByteArray &input = {}) const;

    const QString m_folder; ///< null where only the server sees its files
    QTemporaryDir m_own;
    QProcess m_server;
    QString m_remote;
    QString m_url;
    QByteArray m_configuration;
};

} // namespace tx::test
