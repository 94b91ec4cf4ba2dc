// SPDX-License-Identifier: MIT
#include "tests/support/environment.h"

#include "base/queues.h"
#include "model/host_p.h"
#include "net/networkthread.h"
#include "os/mainbundle.h"
#include "posix/posixfiles.h"
#include "tests/support/builders.h"

#include <QCoreApplication>
#include <QMutex>
#include <QTest>

#include <grp.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::test {

namespace {

constexpr uid_t nobody = 65534;

QMutex logMutex;

QStringList &capturedLog() {
    static QStringList lines;
    return lines;
}

/// Keeps the framework's lines for tests and passes everything on.
void captureMessage(QtMsgType type, const QMessageLogContext &context, const QString &message) {
    const QByteArray category = context.category ? context.category : "";
    if (category == "tarvixupdate") {
        const QMutexLocker locker(&logMutex);
        capturedLog().append(message);
    } else if (type == QtFatalMsg || type == QtCriticalMsg || type == QtWarningMsg) {
        std::fprintf(stderr, "Qt: %s\n", message.toUtf8().constData());
    }
}

} // namespace

FrameworkTest::FrameworkTest()
    : m_services(services()) {
    EXPECT_TRUE(m_folder.isValid());
    const QString home = path(u"home"_s);
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + u"/.config"_s).toUtf8());
    qputenv("XDG_CACHE_HOME", (home + u"/.cache"_s).toUtf8());
    qputenv("XDG_DATA_HOME", (home + u"/.local/share"_s).toUtf8());
    QDir().mkpath(home);
    {
        const QMutexLocker locker(&logMutex);
        capturedLog().clear();
    }
    qInstallMessageHandler(captureMessage);
    // Only tests of the menu entry write one, because the host is in a folder named Applications.
    services().folders.data = [] { return QString(); };
    becomeHost(u"1042"_s, u"2.0"_s);
}

FrameworkTest::~FrameworkTest() {
    drainEvents();
    // What still runs on other threads may use the services.
    EXPECT_TRUE(waitForBackground(std::chrono::minutes(1)));
    NetworkThread::instance().runAndWait([] {});
    services() = m_services;
    qInstallMessageHandler(nullptr);
    setMainBundle({});
    resetHost();
}

QString FrameworkTest::path(const QString &relative) const { return m_folder.path() + u'/' + relative; }

void FrameworkTest::becomeHost(const QString &build, const QString &displayVersion) {
    const QString bundle = path(u"Applications/Host.app"_s);
    makeBundle(bundle, {.identifier = hostIdentifier, .build = build, .displayVersion = displayVersion});
    setMainBundle(TXBundle(bundle));
    resetHost();
}

QStringList FrameworkTest::logLines() const {
    const QMutexLocker locker(&logMutex);
    return capturedLog();
}

void FrameworkTest::setNow(const QDateTime &now) {
    services().now = [now] { return now; };
}

bool waitUntil(const std::function<bool()> &done, int milliseconds) {
    return QTest::qWaitFor(done, milliseconds);
}

FetchedFeed fetchFeed(const QUrl &url) {
    const auto result = std::make_shared<FetchedFeed>();
    // The handler is called on another thread.
    TXUpdateFeed::fetchFeedAtURL(url, {}, nullptr,
                                 [result](const TXUpdateFeedPtr &feed, const TXError &error) {
                                     postToMain([result, feed, error] { *result = {feed, error}; });
                                 });
    EXPECT_TRUE(waitUntil([&] { return result->feed || result->error; }, 60000));
    return *result;
}

void drainEvents() {
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, 0);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
}

DroppedPrivileges::DroppedPrivileges(const QString &writable) {
    if (geteuid() != 0)
        return;
    (void)posix::changeOwner(writable.toStdString(), nobody, nobody);
    // The folders of temporary files are closed to others.
    m_dropped = setegid(nobody) == 0 && seteuid(nobody) == 0;
    EXPECT_TRUE(m_dropped);
}

DroppedPrivileges::~DroppedPrivileges() {
    if (m_dropped) {
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(setegid(0), 0);
    }
}

} // namespace tx::test
