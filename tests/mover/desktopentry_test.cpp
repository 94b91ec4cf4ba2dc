// SPDX-License-Identifier: MIT
#include "mover/desktopentry.h"
#include "mover/documenttypes.h"

#include "tests/support/environment.h"

#include <QXmlStreamReader>

#include <array>

using namespace Qt::StringLiterals;
using tx::EntryFacts;

namespace {

EntryFacts facts() {
    EntryFacts result;
    result.bundlePath = u"/home/me/Applications/My App.app"_s;
    result.executable = result.bundlePath + u"/Contents/Linux/myapp"_s;
    result.name = u"My App"_s;
    result.icon = u"org.example.MyApp"_s;
    return result;
}

/// The line of a key as it stands in the entry.
QByteArray lineOf(const QByteArray &entry, const QByteArray &key) {
    for (const QByteArray &line : entry.split('\n')) {
        if (line.startsWith(key + '='))
            return line;
    }
    return {};
}

TEST(DesktopEntry, IsMadeFromTheBundleWithoutOneOfItsOwn) {
    EntryFacts all = facts();
    all.mimeTypes = QStringList{u"application/x-one"_s, u"text/plain"_s};
    all.files = QStringList{u"mime/packages/a.xml"_s, u"icons/b;c"_s};
    EXPECT_EQ(tx::desktopEntryOf(all, {}).toStdString(),
              "[Desktop Entry]\nType=Application\nVersion=1.0\nName=My App\nTerminal=false\n"
              "Exec=\"/home/me/Applications/My App.app/Contents/Linux/myapp\" %F\n"
              "TryExec=/home/me/Applications/My App.app/Contents/Linux/myapp\nIcon=org.example.MyApp\n"
              "MimeType=application/x-one;text/plain;\n"
              "X-TarvixUpdate-Bundle=/home/me/Applications/My App.app\n"
              "X-TarvixUpdate-Files=mime/packages/a.xml;icons/b\\;c;\n");
    EXPECT_EQ(tx::entryList(tx::desktopEntryOf(all, {}), tx::entryFilesKey), all.files);
    const QByteArray plain = tx::desktopEntryOf(facts(), {});
    EXPECT_TRUE(lineOf(plain, "Exec").endsWith("/myapp\"")) << "it opens no documents";
    EXPECT_EQ(lineOf(plain, "MimeType"), "");
}

TEST(DesktopEntry, CommandLineIsQuotedAsTheStandardSays) {
    const struct {
        const char *path, *exec, *tryExec;
    } cases[] = {
        {"/a b/c", "\"/a b/c\"", "/a b/c"},
        {"/$x`y`/\"z\"", R"("/\\$x\\`y\\`/\\"z\\"")", "/$x`y`/\"z\""},
        {"/back\\slash", R"("/back\\\\slash")", R"(/back\\slash)"},
        {"/100%/f%F", "/usr/bin/env \"/100%%/f%%F\"", "/100%/f%F"},
        {"/it's;(&)|<>~*?#/x", "\"/it's;(&)|<>~*?#/x\"", "/it's;(&)|<>~*?#/x"},
        {"/\xc3\xbc/x", "\"/\xc3\xbc/x\"", "/\xc3\xbc/x"},
    };
    for (const auto &each : cases) {
        EntryFacts one = facts();
        one.executable = QString::fromUtf8(each.path);
        const QByteArray entry = tx::desktopEntryOf(one, {});
        EXPECT_EQ(lineOf(entry, "Exec").mid(5), each.exec);
        EXPECT_EQ(lineOf(entry, "TryExec").mid(8), each.tryExec);
        EXPECT_EQ(tx::entryValue(entry, u"TryExec"_s), one.executable);
    }
}

TEST(DesktopEntry, ValuesAddNoLineAndReadBackAsTheyWere) {
    for (const QString &text :
         {u"a\nExec=evil"_s, u"a\r\n[Desktop Action x]"_s, u"a\\nb"_s, u" a"_s, u"a "_s, u"a\tb"_s, u"a\\"_s,
          u"50 % \"x\""_s, u"\u2028Exec=evil"_s, u"a;b\\;c"_s, u"[Desktop Entry]"_s}) {
        EntryFacts hostile = facts();
        hostile.name = text;
        hostile.icon = text;
        hostile.bundlePath = text;
        hostile.files = QStringList{text, text};
        const QByteArray entry = tx::desktopEntryOf(hostile, {});
        EXPECT_EQ(entry.count('\n'), 10) << entry.constData();
        EXPECT_FALSE(entry.contains('\r'));
        EXPECT_EQ(tx::entryValue(entry, u"Name"_s), text);
        EXPECT_EQ(tx::entryValue(entry, tx::entryBundleKey), text);
        EXPECT_EQ(tx::entryList(entry, tx::entryFilesKey), hostile.files);
    }
    EntryFacts odd = facts();
    odd.name = u"a\u0001\u001b[2Jb"_s;
    EXPECT_EQ(tx::entryValue(tx::desktopEntryOf(odd, {}), u"Name"_s), u"a[2Jb"_s) << "control characters";
}

TEST(DesktopEntry, OwnEntryKeepsWhatIsNotAboutThePlace) {
    const QByteArray own =
        "# a comment\n[Desktop Entry]\r\nType=Application\nName=Own\nName[de]=Eigen\n"
        "Exec=/opt/myapp/myapp --new %U\nTryExec=myapp\nIcon=own\nIcon[de]=eigen\nPath=/opt\n"
        "DBusActivatable=true\nHidden=true\nCategories=Office;\nKeywords=a;b;\nName=second\n"
        "MimeType=text/own;\nX-TarvixUpdate-Bundle=/else\nnonsense\nActions=new;\n\n"
        "[Desktop Action new]\nName=New\nExec=myapp --window\n\n[Desktop Action other]\n"
        "Name=Other\nExec=evil\n\n[X-Group]\nExec=evil\n";
    EntryFacts all = facts();
    all.mimeTypes = QStringList{u"application/x-one"_s};
    const QByteArray command = "\"/home/me/Applications/My App.app/Contents/Linux/myapp\"";
    EXPECT_EQ(
        tx::desktopEntryOf(all, own).toStdString(),
        "[Desktop Entry]\nType=Application\nName=Own\nName[de]=Eigen\nCategories=Office;\nKeywords=a;b;\n"
        "MimeType=text/own;\nActions=new;\nExec=" +
            command.toStdString() +
            " --new %U\nTryExec=/home/me/Applications/My App.app/Contents/Linux/myapp\n"
            "Icon=org.example.MyApp\nX-TarvixUpdate-Bundle=/home/me/Applications/My App.app\n"
            "X-TarvixUpdate-Files=\n\n[Desktop Action new]\nName=New\nExec=" +
            command.toStdString() + " --window\n");
}

TEST(DesktopEntry, ArgumentsOfTheOwnEntryAreUsedIfTheyAreThoseOfTheProgram) {
    const struct {
        const char *exec, *arguments;
    } cases[] = {
        {"myapp", ""},
        {"myapp %F", " %F"},
        {"/usr/bin/myapp --a \\\"b %u", ""}, // a quote that is not closed
        {"\"/opt/x y/myapp\" -- %f", " -- %f"},
        {"myapp \"a b\" %F", " \"a b\" %F"},
        {"env A=b myapp --x %U", " %U"},
        {"sh -c \"evil %F\"", ""},
        {"other", ""},
        {"", ""},
        {"\"myapp", ""},
        {"myapp a\\nExec=evil", ""},
    };
    for (const auto &each : cases) {
        const QByteArray own =
            QByteArray("[Desktop Entry]\nType=Application\nName=Own\nExec=") + each.exec + '\n';
        EXPECT_EQ(lineOf(tx::desktopEntryOf(facts(), own), "Exec").toStdString(),
                  "Exec=\"/home/me/Applications/My App.app/Contents/Linux/myapp\"" +
                      std::string(each.arguments))
            << each.exec;
    }
}

TEST(DesktopEntry, OwnEntryThatIsNoneIsRefused) {
    const QByteArray good = "[Desktop Entry]\nType=Application\nName=x\nExec=myapp\n";
    EXPECT_FALSE(tx::desktopEntryOf(facts(), good).isNull());
    for (const QByteArray &own :
         {QByteArray("nothing"), "[Other]\nType=Application\nName=x\n" + good,
          QByteArray(good).replace("Name", "Nume"), QByteArray(good).replace("Application", "Link"),
          good + '\0', good + "\xff\xfe", good + QByteArray(tx::largestEntry, 'x')})
        EXPECT_TRUE(tx::desktopEntryOf(facts(), own).isNull()) << own.left(80).constData();
}

TEST(DesktopEntry, PathsThatNoEntryCanExpressAreNamed) {
    EXPECT_TRUE(tx::reasonAgainstExecutable(u"/a b/$x"_s).isNull());
    EXPECT_EQ(tx::reasonAgainstExecutable({}), u"the application has no executable"_s);
    EXPECT_THAT(tx::reasonAgainstExecutable(u"/a\nExec=b"_s).toStdString(),
                testing::HasSubstr("control characters"));
    EXPECT_THAT(tx::reasonAgainstExecutable(u"/a=b"_s).toStdString(), testing::HasSubstr("\"=\""));
}

TEST(DocumentTypes, MalformedNamesAreLeftOut) {
    const auto kind = [](const QVariant &types, const QVariant &extensions) {
        return QVariantMap{{u"CFBundleTypeName"_s, u"A <b> & \u0001\n\u00e4"_s},
                           {u"CFBundleTypeMIMETypes"_s, types},
                           {u"CFBundleTypeExtensions"_s, extensions}};
    };
    const QVariantMap info{
        {u"CFBundleDocumentTypes"_s,
         QVariantList{
             kind(QStringList{u"application/x-one"_s, u"bad"_s, u"a/b;c/d"_s, u"a/b\n"_s, u"text/x-two"_s},
                  QStringList{u"one"_s, u"*"_s, u"a/b"_s, u"[x]"_s, u"x\n"_s, u"tar.gz"_s, u".x"_s}),
             kind(QStringList{u"application/x-one"_s}, QStringList()),
             kind(QStringList{u"bad"_s}, QStringList{u"z"_s}), u"no dictionary"_s, kind(7, 8)}}};
    const auto types = tx::documentTypesOf(info);
    EXPECT_EQ(tx::mimeTypesOf(types), (QStringList{u"application/x-one"_s, u"text/x-two"_s}));
    const QByteArray package = tx::mimePackageOf(types);
    QXmlStreamReader xml(package);
    QStringList seen;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        EXPECT_EQ(xml.namespaceUri(), u"http://www.freedesktop.org/standards/shared-mime-info");
        const auto name = xml.name().toString();
        if (name == u"mime-type")
            seen << name + u' ' + xml.attributes().value(u"type"_s).toString();
        else if (name == u"glob")
            seen << name + u' ' + xml.attributes().value(u"pattern"_s).toString();
        else if (name == u"comment")
            seen << name + u' ' + xml.readElementText();
    }
    EXPECT_FALSE(xml.hasError()) << xml.errorString().toStdString();
    EXPECT_EQ(seen, (QStringList{u"mime-type application/x-one"_s, u"comment A <b> & \u00e4"_s,
                                 u"glob *.one"_s, u"glob *.tar.gz"_s}));
    EXPECT_TRUE(tx::mimePackageOf({}).isNull());
    EXPECT_TRUE(tx::mimePackageOf({{QStringList{u"text/plain"_s}, {}, {}}}).isNull());
    EXPECT_TRUE(tx::documentTypesOf({}).isEmpty());
}

} // namespace
