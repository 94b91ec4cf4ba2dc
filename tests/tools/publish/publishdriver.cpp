// SPDX-License-Identifier: MIT
// publish_driver BUNDLE TO URL KEY NOW POINT HOW: publishes a bundle at a fixed time, while at the POINTth
// change (of the file system, or by a program) something goes wrong: HOW is "kill" (before it), "within" (in
// the middle of it), "fail" or "never". Prints "point N" when it has passed N of them and ends well. Exit
// status: 0 published, 1 failed.
#include "base/posixerror.h"
#include "publish/publication.h"
#include "tests/support/fakes.h"
#include "trust/feedsigning.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <cstdio>
#include <thread>

using namespace Qt::StringLiterals;
using namespace tx;

namespace {

int point = 0;
int lastPoint = 0;
QString how;

[[noreturn]] void die() {
    (void)std::raise(SIGKILL);
    std::abort();
}

bool isReached() { return ++point == lastPoint && how != u"never"; }

/// A half of the file that a copy would make.
void copyHalf(const QString &from, const QString &folder) {
    QFile source(from);
    QFile target(folder + u'/' + publishing::temporaryName(QFileInfo(from).fileName()));
    if (source.open(QIODevice::ReadOnly) && target.open(QIODevice::WriteOnly))
        target.write(source.read(source.size() / 2));
}

class PlannedTasks final : public Tasks {
public:
    Result<std::unique_ptr<Task>> start(const TaskRequest &request) override {
        // What only reads changes nothing.
        const QString command = request.arguments.value(0);
        if (command != u"copyto" && command != u"moveto" && command != u"deletefile")
            return nativeTasks().start(request);
        if (!isReached())
            return nativeTasks().start(request);
        if (how == u"fail")
            return posixError(EIO, u"Cannot start"_s, request.program);
        if (how == u"within") {
            const auto task = nativeTasks().start(request);
            if (task) {
                (void)(*task)->waitWithin(std::chrono::milliseconds(300));
                (*task)->kill();
            }
        }
        die();
    }
};

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    constexpr int wordCount = 8;
    if (words.size() != wordCount)
        return 2;
    const QDateTime now = QDateTime::fromSecsSinceEpoch(words[5].toLongLong(), Qt::UTC);
    lastPoint = words[6].toInt();
    how = words[7];
    services().now = [now] { return now; };
    const QString to = words[2];
    test::FaultFileSystem files;
    files.decide = [&](const QString &operation, const QString &path) {
        if (operation == u"exists" || operation == u"readFile" || operation == u"fileSize" ||
            operation == u"write" || operation == u"isWritable" || operation == u"list")
            return 0;
        if (!isReached())
            return 0;
        if (how == u"fail")
            return EIO;
        if (how == u"within" && operation == u"copy")
            copyHalf(path, to);
        die();
    };
    PlannedTasks tasks;
    services().tasks = &tasks;

    std::vector<trust::SecretKey> keys;
    const auto content =
        trust::readSecretFile(words[4].toUtf8().constData(), trust::SecretKeyFile::mostBytes);
    const auto file = trust::SecretKeyFile::parse(content->view());
    auto key = file->open(nullptr);
    keys.push_back(*std::move(key));
    publishing::PublishRequest request;
    request.bundle = words[1];
    request.limits = {1 << 30, 1 << 30};
    request.keys = &keys;
    request.place.base = QUrl(words[3]);
    request.place.sign = [&](const QByteArray &document) -> trust::Outcome<QByteArray> {
        const auto result =
            trust::signFeed({document.constData(), size_t(document.size())}, trust::FeedFormat::Json,
                            {&keys.front()}, {"org.example.Host", "release", now.toSecsSinceEpoch(), 60});
        if (!result)
            return result.fault();
        return QByteArray::fromStdString(result->document);
    };
    const auto target = publishing::makeTarget(to);
    publishing::Progress silent(-1);
    publishing::Trace trace;
    const auto report = publishing::publish(request, *target, silent, trace);
    std::printf("point %d\n", point);
    if (!report)
        std::fprintf(stderr, "%s\n", report.fault().what.c_str());
    return report ? 0 : 1;
}
