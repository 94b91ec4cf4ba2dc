// SPDX-License-Identifier: MIT
// The words with which the system asks for an administrator's password (cmake/TarvixUpdatePolicy.cmake).
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QXmlStreamReader>

#include <tuple>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;

namespace {

class Policy : public tx::test::FrameworkTest {
protected:
    const QString file = path(u"org.example.app.update.policy"_s);

    ProcessResult write(const QString &name, const QString &bundle = u"/opt/App.app"_s,
                        const QString &identifier = u"org.example.App"_s, const QString &layout = {}) const {
        QFile::remove(file);
        return tx::test::runProcess(u"cmake"_s,
                                    {u"-DFILE="_s + file, u"-DNAME="_s + name, u"-DBUNDLE="_s + bundle,
                                     u"-DIDENTIFIER="_s + identifier, u"-DLAYOUT="_s + layout, u"-P"_s,
                                     tx::test::sourcesFolder() + u"/../cmake/TarvixUpdatePolicy.cmake"_s});
    }
};

struct Element {
    QString name;
    QString language;
    QString key;
    QString text;
};

/// What the one action of a policy holds, and its name.
QList<Element> elementsOf(const QByteArray &policy, QString *action) {
    QList<Element> elements;
    QXmlStreamReader reader(policy);
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QXmlStreamAttributes attributes = reader.attributes();
        const QString name = reader.name().toString();
        if (name == u"action")
            *action = attributes.value(u"id"_s).toString();
        else if (name == u"defaults")
            elements.append({name, {}, {}, {}});
        else if (name != u"policyconfig")
            elements.append({name, attributes.value(u"xml:lang"_s).toString(),
                             attributes.value(u"key"_s).toString(), reader.readElementText()});
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
    return elements;
}

TEST_F(Policy, NamesTheApplicationInEveryLanguageAndItsProgram) {
    for (const auto &[name, bundle] :
         {std::pair(u"My App"_s, u"/opt/My App.app"_s),
          std::pair(u"M\u00FCller & S\u00F6hne's <\"Notes\">"_s, u"/opt/a & <b>.app"_s),
          std::pair(u"a;b \\ ${x} @y@ 100%"_s, u"/srv/Applications/a;b \\.app"_s)}) {
        const ProcessResult written = write(name, bundle, u"org.example.My_App"_s);
        ASSERT_EQ(written.status, 0) << written.errors.constData();
        QString action;
        const QList<Element> elements = elementsOf(tx::test::readFile(file), &action);
        EXPECT_EQ(action, u"org.example.my-app.update"_s) << "of the characters that names of actions have";
        QStringList languages;
        QStringList programs;
        for (const Element &e : elements) {
            if (e.name == u"message" || e.name == u"description") {
                EXPECT_EQ(e.text.count(name), 1) << e.text.toStdString();
            }
            if (e.name == u"message" && e.language.isEmpty()) {
                EXPECT_EQ(e.text, u"An administrator's password is required to install %1."_s.arg(name));
            }
            if (e.name == u"message")
                languages << e.language;
            if (e.name.startsWith(u"allow_")) {
                EXPECT_EQ(e.text, u"auth_admin"_s) << e.name.toStdString();
            }
            if (e.key == u"org.freedesktop.policykit.exec.path")
                programs << e.text;
        }
        EXPECT_EQ(languages, (QStringList{u""_s, u"ar"_s, u"de"_s, u"es"_s, u"fr"_s, u"ja"_s, u"pt_BR"_s,
                                          u"ru"_s, u"zh_CN"_s}));
        EXPECT_EQ(programs,
                  QStringList{bundle + u"/Contents/Frameworks/TarvixUpdate/Resources/TXUpdateAuthorize"_s});
    }
}

TEST_F(Policy, HasTheShapeThatPolkitReads) {
    ASSERT_EQ(write(u"A & B"_s).status, 0);
    const QByteArray policy = tx::test::readFile(file);
    QString action;
    QString shape;
    for (const Element &e : elementsOf(policy, &action))
        shape += e.name + u' ';
    static const QRegularExpression grammar(
        u"^(description )+(message )+defaults (allow_any allow_inactive allow_active )(annotate )+$"_s);
    EXPECT_TRUE(grammar.match(shape).hasMatch()) << shape.toStdString();
    // polkit keeps what follows the last reference, such as &amp;, so there must be none.
    static const QRegularExpression sections(u"<!\\[CDATA\\[.*?\\]\\]>"_s);
    EXPECT_FALSE(QString::fromUtf8(policy).remove(sections).section(u"-->"_s, 1).contains(u'&'));
    // Where polkit's own definition is there, it decides.
    const QString definition = u"/usr/share/polkit-1/policyconfig-1.dtd"_s;
    const QString xmllint = QStandardPaths::findExecutable(u"xmllint"_s);
    if (!xmllint.isEmpty() && QFileInfo::exists(definition)) {
        const ProcessResult valid =
            tx::test::runProcess(xmllint, {u"--noout"_s, u"--nonet"_s, u"--dtdvalid"_s, definition, file});
        EXPECT_EQ(valid.status, 0) << valid.errors.constData();
    }
}

TEST_F(Policy, ProgramIsWhereTheLayoutOfTheBundleHasIt) {
    const QString tool = u"/TarvixUpdate/Resources/TXUpdateAuthorize"_s;
    for (const auto &[bundle, layout, libraries] :
         {std::tuple(u"/opt/App.app"_s, u""_s, u"/Contents/Frameworks"_s),
          std::tuple(u"/opt/App.app"_s, u"app"_s, u"/Contents/Frameworks"_s),
          std::tuple(u"/opt/my app"_s, u"prefix"_s, u"/Contents/lib"_s),
          std::tuple(u"/opt/App.app"_s, u"prefix"_s, u"/Contents/lib"_s)}) {
        const ProcessResult written = write(u"A"_s, bundle, u"org.example.App"_s, layout);
        ASSERT_EQ(written.status, 0) << written.errors.constData();
        EXPECT_TRUE(tx::test::readFile(file).contains("[" + (bundle + libraries + tool).toUtf8() + "]"))
            << tx::test::readFile(file).constData();
    }
    for (const auto &[bundle, layout, reason] :
         {std::tuple(u"/opt/app"_s, u"app"_s, "such as /opt/MyApp.app for the layout app"),
          std::tuple(u"/opt/app/"_s, u"prefix"_s, "such as /opt/myapp for the layout prefix"),
          std::tuple(u"/opt/.."_s, u"prefix"_s, "absolute path"),
          std::tuple(u"/"_s, u"prefix"_s, "absolute path"),
          std::tuple(u"/opt/App.app"_s, u"flat"_s, "LAYOUT must be app or prefix; found \"flat\"")}) {
        const ProcessResult written = write(u"A"_s, bundle, u"org.example.App"_s, layout);
        EXPECT_NE(written.status, 0) << reason;
        EXPECT_THAT(written.errors.simplified().toStdString(), testing::HasSubstr(reason));
        EXPECT_FALSE(QFileInfo::exists(file)) << reason;
    }
}

TEST_F(Policy, RefusesWhatPolkitCannotUse) {
    struct Case {
        QString name;
        QString bundle;
        QString identifier;
        std::string reason;
    };
    const QString app = u"/opt/App.app"_s;
    const QString id = u"org.example.App"_s;
    for (const Case &c : {Case{{}, app, id, "NAME is missing"}, Case{u"A"_s, {}, id, "BUNDLE is missing"},
                          Case{u"A"_s, app, {}, "IDENTIFIER is missing"},
                          Case{u"A $(user)"_s, app, id, "NAME is shown to users"},
                          Case{u"A\nB"_s, app, id, "NAME is shown to users"},
                          Case{u"A]]>B"_s, app, id, "NAME is shown to users"},
                          Case{u"A"_s, u"/opt/]]>.app"_s, id, "BUNDLE no"},
                          Case{u"A"_s, u"opt/App.app"_s, id, "absolute path"},
                          Case{u"A"_s, u"/opt/App"_s, id, "absolute path"},
                          Case{u"A"_s, u"/opt/App.app/"_s, id, "absolute path"},
                          Case{u"A"_s, u"/opt/../App.app"_s, id, "absolute path"},
                          Case{u"A"_s, u"/opt//App.app"_s, id, "absolute path"},
                          Case{u"A"_s, u"/opt/.app"_s, id, "absolute path"},
                          Case{u"A"_s, app, u"org example"_s, "letters, digits"},
                          Case{u"A"_s, app, u"org..App"_s, "letters, digits"},
                          Case{u"A"_s, app, u"org.\u00FC"_s, "letters, digits"}}) {
        const ProcessResult written = write(c.name, c.bundle, c.identifier);
        EXPECT_NE(written.status, 0) << c.reason;
        EXPECT_THAT(written.errors.simplified().toStdString(), testing::HasSubstr(c.reason));
        EXPECT_FALSE(QFileInfo::exists(file)) << c.reason;
    }
}

} // namespace
