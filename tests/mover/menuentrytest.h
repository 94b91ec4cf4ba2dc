// SPDX-License-Identifier: MIT
#pragma once

#include "base/propertylist.h"
#include "model/host_p.h"
#include "mover/desktopentry.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXBundle.h>

#include <QFileInfo>

namespace tx::test {

inline const QByteArray svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" height=\"8\"/>\n";

/// An application in the user's Applications folder, and a data folder of the test's own.
class MenuEntryTest : public FrameworkTest {
protected:
    FaultFileSystem files;
    const QString applications = path(QStringLiteral("home/Applications"));
    const QString data = path(QStringLiteral("home/share"));
    const QString entryPath = data + QStringLiteral("/applications/org.example.Host.desktop");
    QString bundlePath = applications + QStringLiteral("/My Host.app");

    MenuEntryTest() {
        tx::services().folders.data = [this] { return data; };
        tx::services().folders.userApplications = [this] { return applications; };
        tx::services().folders.localApplications = [this] { return path(QStringLiteral("opt")); };
    }
    /// Writes the application with more values in its Info.plist, and makes it the running one.
    TXBundle make(const QVariantMap &more = {}, const QString &build = QStringLiteral("1042"),
                  const QByteArray &program = "#!/bin/sh\nexit 0\n") {
        makeBundle(bundlePath, {.build = build, .name = QStringLiteral("My Host"), .program = program});
        QVariantMap info = TXBundle(bundlePath).infoDictionary();
        info.insert(more);
        writeFile(bundlePath + QStringLiteral("/Contents/Info.plist"), tx::writePropertyList(info));
        const TXBundle bundle(bundlePath);
        tx::setMainBundle(bundle);
        tx::resetHost();
        return bundle;
    }
    void addResource(const QString &name, const QByteArray &content) const {
        writeFile(bundlePath + QStringLiteral("/Contents/") + name, content);
    }
    QByteArray entry() const { return QFileInfo::exists(entryPath) ? readFile(entryPath) : QByteArray(); }
    QString value(const QString &key) const { return tx::entryValue(entry(), key).value_or(QString()); }
    QString icon(const QString &size, const QString &extension = QStringLiteral("svg")) const {
        return data + QStringLiteral("/icons/hicolor/") + size + QStringLiteral("/apps/org.example.Host.") +
               extension;
    }
    QString package() const { return data + QStringLiteral("/mime/packages/org.example.Host.xml"); }
    static QVariantMap documents(const QString &extension = QStringLiteral("one")) {
        return {
            {QStringLiteral("CFBundleDocumentTypes"),
             QVariantList{QVariantMap{{QStringLiteral("CFBundleTypeName"), QStringLiteral("A document")},
                                      {QStringLiteral("CFBundleTypeMIMETypes"),
                                       QStringList{QStringLiteral("application/x-txu-one")}},
                                      {QStringLiteral("CFBundleTypeExtensions"), QStringList{extension}}}}}};
    }
    /// An application with everything: icon, documents, an entry of its own.
    TXBundle makeWhole(const QString &build = QStringLiteral("1042")) {
        QVariantMap more = documents();
        more[QStringLiteral("CFBundleIconFile")] = QStringLiteral("host.svg");
        const TXBundle bundle = make(more, build);
        addResource(QStringLiteral("Resources/host.svg"), svg + "<!-- " + build.toUtf8() + " -->");
        addResource(QStringLiteral("Resources/host.desktop"),
                    "[Desktop Entry]\nType=Application\nName=Host " + build.toUtf8() +
                        "\nExec=Program %F\nCategories=Office;\n");
        return bundle;
    }
    void expectValid() const {
        const auto result = runProcess(QStringLiteral("desktop-file-validate"), {entryPath});
        EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData()
                                    << entry().constData();
        EXPECT_EQ(result.output, "");
    }
};

} // namespace tx::test
