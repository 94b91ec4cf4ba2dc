// SPDX-License-Identifier: MIT
#include "tests/tools/publish/remotes.h"

#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QTcpServer>
#include <QTcpSocket>

#include <cstdio>
#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::test {

namespace {

int freePort() {
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0;
}

bool answers(int port) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), quint16(port));
    return socket.waitForConnected(1000);
}

} // namespace

RemoteServer::RemoteServer(Kind kind, const QString &folder)
    : m_folder(kind == Kind::S3 ? QString() : folder) {
    // Another process may take the port that was free.
    constexpr int tries = 5;
    for (int i = 0; i < tries; ++i) {
        const int port = freePort();
        if (kind == Kind::WebDav)
            startWebDav(folder, port);
        else if (kind == Kind::Sftp)
            startSftp(folder, port);
        else
            startS3(port);
        if (m_server.waitForStarted() &&
            waitUntil([&] { return m_server.state() != QProcess::Running || answers(port); }) &&
            m_server.state() == QProcess::Running)
            break;
        m_server.kill();
        m_server.waitForFinished();
        std::fputs(m_server.readAllStandardError().constData(), stderr);
    }
    writeFile(m_own.filePath(u"rclone.conf"_s), m_configuration);
    if (kind == Kind::S3)
        (void)rclone({u"mkdir"_s, m_remote});
}

RemoteServer::~RemoteServer() {
    m_server.kill();
    m_server.waitForFinished();
}

bool RemoteServer::isRunning() const { return m_server.state() == QProcess::Running; }

QStringList RemoteServer::environment() const {
    return {u"RCLONE_CONFIG="_s + m_own.filePath(u"rclone.conf"_s), u"RCLONE_RETRIES=1"_s,
            u"RCLONE_LOW_LEVEL_RETRIES=1"_s, u"RCLONE_CACHE_DIR="_s + m_own.filePath(u"cache"_s)};
}

void RemoteServer::startWebDav(const QString &folder, int port) {
    const QByteArray own = m_own.path().toUtf8();
    // One process, which has the rights of the test.
    writeFile(m_own.filePath(u"nginx.conf"_s),
              "load_module /usr/lib/nginx/modules/ngx_http_dav_ext_module.so;\n"
              "daemon off;\nmaster_process off;\npid " +
                  own +
                  "/pid;\nevents {}\nhttp {\n access_log off;\n"
                  " client_body_temp_path " +
                  own + "/body;\n proxy_temp_path " + own +
                  "/proxy;\n"
                  " fastcgi_temp_path " +
                  own + "/fastcgi;\n uwsgi_temp_path " + own +
                  "/uwsgi;\n"
                  " scgi_temp_path " +
                  own +
                  "/scgi;\n types { application/json json; text/html html; }\n"
                  " default_type application/octet-stream;\n"
                  " server {\n  listen 127.0.0.1:" +
                  QByteArray::number(port) + ";\n  root " + folder.toUtf8() +
                  ";\n  client_max_body_size 0;\n  dav_methods PUT DELETE MKCOL COPY MOVE;\n"
                  "  dav_ext_methods PROPFIND OPTIONS;\n  dav_access user:rw group:r all:r;\n }\n}\n");
    m_server.start(u"/usr/sbin/nginx"_s,
                   {u"-e"_s, u"stderr"_s, u"-c"_s, m_own.filePath(u"nginx.conf"_s), u"-p"_s, m_own.path()});
    m_url = u"http://127.0.0.1:%1/"_s.arg(port);
    m_remote = u"dav:"_s;
    m_configuration = "[dav]\ntype = webdav\nvendor = other\nurl = " + m_url.toUtf8() + "\n";
}

void RemoteServer::startSftp(const QString &folder, int port) {
    for (const QString &name : {u"host"_s, u"user"_s}) {
        const QString key = m_own.filePath(name);
        if (!QFile::exists(key))
            (void)runProcess(u"ssh-keygen"_s,
                             {u"-q"_s, u"-t"_s, u"ed25519"_s, u"-N"_s, QString(u""_s), u"-f"_s, key});
    }
    const QByteArray own = m_own.path().toUtf8();
    writeFile(m_own.filePath(u"sshd_config"_s),
              "ListenAddress 127.0.0.1\nPort " + QByteArray::number(port) + "\nHostKey " + own +
                  "/host\nAuthorizedKeysFile " + own +
                  "/user.pub\nStrictModes no\nUsePAM no\nPidFile none\n"
                  "PasswordAuthentication no\nPermitRootLogin yes\nSubsystem sftp internal-sftp\n");
    // The folder in which it gives up its rights; the system makes it when the service starts.
    if (geteuid() == 0)
        QDir().mkpath(u"/run/sshd"_s);
    m_server.start(u"/usr/sbin/sshd"_s, {u"-D"_s, u"-e"_s, u"-f"_s, m_own.filePath(u"sshd_config"_s)});
    m_remote = u"ssh:"_s + folder;
    const passwd *user = getpwuid(geteuid());
    m_configuration = "[ssh]\ntype = sftp\nhost = 127.0.0.1\nport = " + QByteArray::number(port) +
                      "\nuser = " + QByteArray(user ? user->pw_name : "") + "\nkey_file = " + own +
                      "/user\nshell_type = none\n";
}

void RemoteServer::startS3(int port) {
    m_server.start(qEnvironmentVariable("TARVIX_S3RVER"),
                   {u"-a"_s, u"127.0.0.1"_s, u"-p"_s, QString::number(port), u"-d"_s,
                    m_own.filePath(u"buckets"_s), u"--no-vhost-buckets"_s, u"-s"_s});
    m_remote = u"store:site"_s;
    m_url = u"http://127.0.0.1:%1/site/"_s.arg(port);
    m_configuration = "[store]\ntype = s3\nprovider = Other\naccess_key_id = S3RVER\n"
                      "secret_access_key = S3RVER\nforce_path_style = true\nendpoint = http://127.0.0.1:" +
                      QByteArray::number(port) + "\n";
}

QByteArray RemoteServer::rclone(const QStringList &words, const QByteArray &input) const {
    return runProcess(u"rclone"_s, words, input, environment()).output;
}

QStringList RemoteServer::names() const {
    if (!m_folder.isNull())
        return namesIn(m_folder);
    QStringList names = QString::fromUtf8(rclone({u"lsf"_s, m_remote})).split(u'\n', Qt::SkipEmptyParts);
    names.sort();
    return names;
}

QByteArray RemoteServer::content(const QString &name) const {
    if (m_folder.isNull())
        return rclone({u"cat"_s, m_remote + u'/' + name});
    return QFile::exists(m_folder + u'/' + name) ? readFile(m_folder + u'/' + name) : QByteArray();
}

void RemoteServer::remove(const QString &name) const {
    if (m_folder.isNull())
        (void)rclone({u"deletefile"_s, m_remote + u'/' + name});
    else
        QFile::remove(m_folder + u'/' + name);
}

void RemoteServer::put(const QString &name, const QByteArray &content) const {
    if (m_folder.isNull())
        (void)rclone({u"rcat"_s, m_remote + u'/' + name}, content);
    else
        writeFile(m_folder + u'/' + name, content);
}

QList<RemoteServer::Kind> RemoteServer::kinds() {
    QList<Kind> all{Kind::WebDav, Kind::Sftp};
    if (qEnvironmentVariableIsSet("TARVIX_S3RVER"))
        all << Kind::S3;
    return all;
}

const char *RemoteServer::nameOf(Kind kind) {
    return kind == Kind::WebDav ? "WebDav" : kind == Kind::Sftp ? "Sftp" : "S3";
}

} // namespace tx::test
