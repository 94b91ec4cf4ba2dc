// SPDX-License-Identifier: MIT
// The pages that people read: README.md, the other pages beside it, and docs/.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::writeFile;

namespace {

const QString tree = tx::test::sourcesFolder() + u"/.."_s;

/// A block between lines of three backticks.
struct Snippet {
    QString page;
    int line = 0; ///< of its first line, from 1
    QString language;
    QString text;

    [[nodiscard]] std::string place() const { return u"%1:%2"_s.arg(page).arg(line).toStdString(); }
};

QStringList linesOf(const QString &page) {
    return QString::fromUtf8(tx::test::readFile(tree + u'/' + page)).split(u'\n');
}

QStringList pages() {
    QStringList result = QDir(tree).entryList({u"*.md"_s}, QDir::Files, QDir::Name);
    for (const QString &name : QDir(tree + u"/docs"_s).entryList({u"*.md"_s}, QDir::Files, QDir::Name))
        result += u"docs/"_s + name;
    return result;
}

/// All blocks of a page; one that does not end, and code that is only indented, are failures. Indented lines
/// after others continue a list.
QList<Snippet> snippetsOf(const QString &page) {
    QList<Snippet> result;
    const QStringList lines = linesOf(page);
    qsizetype indentation = 0;
    bool isInside = false;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString text = lines[i].trimmed();
        if (text.startsWith(u"```")) {
            isInside = !isInside;
            if (isInside) {
                indentation = lines[i].indexOf(u'`');
                result.append({page, static_cast<int>(i + 2), text.mid(3), {}});
            }
        } else if (isInside) {
            result.last().text += lines[i].mid(qMin(indentation, lines[i].size())) + u'\n';
        } else {
            EXPECT_FALSE(lines[i].startsWith(u"    ") && (i == 0 || lines[i - 1].trimmed().isEmpty()))
                << page.toStdString() << ':' << i + 1
                << " is code by its indentation; expected a block between ``` lines that names its language";
        }
    }
    EXPECT_FALSE(isInside) << page.toStdString() << ": the last block has no end";
    return result;
}

QList<Snippet> snippets(const QString &language) {
    QList<Snippet> result;
    for (const QString &page : pages()) {
        for (const Snippet &snippet : snippetsOf(page)) {
            if (snippet.language == language)
                result += snippet;
        }
    }
    return result;
}

/// What a C++ snippet needs around it. Nothing of it is code that the page could have forgotten: it declares
/// what belongs to the reader's own application.
struct Context {
    QString page;
    QString firstLine;
    QString before;
    QString after;
};

const QList<Context> contexts{
    {u"docs/integration.md"_s,
     u"class MainWindow : public QMainWindow, public TXStandardUpdateControllerDelegate {"_s,
     {},
     {}},
    {u"docs/integration.md"_s,
     u"TXUpdater *updater = TXUpdater::sharedUpdater();          // after the application object"_s,
     u"struct Application { TXUpdatePtr m_update; void showProgress(double); void showError(const TXError "
     u"&); "
     u"void start() {"_s,
     u"} };"_s},
    {u"docs/integration.md"_s, u"auto *updater = TXUpdater::sharedUpdater();"_s,
     u"struct Watcher : QObject { TXUpdatePtr m_update; QAction *m_check; void showError(const TXError &); "
     u"void start() {"_s,
     u"} };"_s},
    {u"docs/integration.md"_s,
     u"void MyWindow::closeEvent(QCloseEvent *event) {           // as for any other way of closing the window"_s,
     u"struct Document { bool isSaved() const; }; struct MyWindow : QMainWindow { Document m_document; "
     u"bool askAboutUnsavedWork(); void closeEvent(QCloseEvent *event) override; };"_s,
     {}},
    {u"docs/integration.md"_s,
     u"void MyApp::shouldQuitToInstall(TXStandardUpdateController *, TXUpdate &, const TXQuitReply &reply) {"_s,
     u"struct Document { void saveInBackground(const std::function<void(bool)> &); }; "
     u"struct MyApp : TXStandardUpdateControllerDelegate { Document m_document; void shouldQuitToInstall("
     u"TXStandardUpdateController *, TXUpdate &, const TXQuitReply &reply) override; };"_s,
     {}},
    {u"docs/integration.md"_s, u"class Session : public TXStandardUpdateControllerDelegate {"_s, {}, {}},
    {u"docs/integration.md"_s,
     u"TXUpdater::moveToApplicationsFolderIfNecessary();         // asks; if it moves, the copy is opened and this process ends"_s,
     u"void start() {"_s, u"}"_s},
    {u"docs/privacy.md"_s,
     u"TXUpdater::sharedUpdater()->setSendsSystemProfile(false);   // until the user has said yes"_s,
     u"void start(TXStandardUpdateController *updates) {"_s, u"}"_s},
};

class Documents : public tx::test::FrameworkTest {};

TEST_F(Documents, BlocksNameALanguageThatIsKnown) {
    const QStringList known{u"cpp"_s,   u"cmake"_s, u"json"_s, u"xml"_s, u"sh"_s,
                            u"nginx"_s, u"sql"_s,   u"text"_s, u"toml"_s};
    for (const QString &page : pages()) {
        for (const Snippet &snippet : snippetsOf(page))
            EXPECT_TRUE(known.contains(snippet.language))
                << snippet.place() << ": expected one of " << known.join(u", "_s).toStdString()
                << ", found \"" << snippet.language.toStdString() << '"';
    }
}

/// A project outside the tree, as a reader makes it: the CMake snippets are its CMakeLists.txt, README.md's
/// program its main.cpp, and all other C++ snippets one source file.
TEST_F(Documents, SnippetsBuildAsPrinted) {
    QString lists;
    for (const Snippet &snippet : snippets(u"cmake"_s))
        lists += u"# "_s + QString::fromStdString(snippet.place()) + u'\n' + snippet.text;
    ASSERT_TRUE(lists.contains(u"add_executable(MyApp main.cpp)")) << lists.toStdString();
    lists += u"add_library(fragments OBJECT fragments.cpp)\n"
             u"target_compile_options(fragments PRIVATE -fsyntax-only)\n"
             u"target_link_libraries(fragments PRIVATE TarvixUpdate::TarvixUpdate Qt6::Widgets)\n"_s;

    QString program;
    QString fragments = u"#include <QCloseEvent>\n#include <QMainWindow>\n#include <QMenuBar>\n#include "
                        u"<TarvixUpdate/TarvixUpdate.h>\n"_s;
    QList<Context> unused = contexts;
    for (const Snippet &snippet : snippets(u"cpp"_s)) {
        const QString position = u"#line %1 \"%2\"\n"_s.arg(snippet.line).arg(snippet.page);
        if (snippet.page == u"README.md" && snippet.text.contains(u"int main(")) {
            EXPECT_EQ(program, QString()) << "README.md has one program";
            program = position + snippet.text;
            continue;
        }
        const auto context = std::find_if(unused.begin(), unused.end(), [&snippet](const Context &known) {
            return known.page == snippet.page && snippet.text.startsWith(known.firstLine + u'\n');
        });
        if (context == unused.end()) {
            ADD_FAILURE() << snippet.place() << ": it is not known how to build this snippet; add what it "
                          << "needs around it to `contexts`:\n"
                          << snippet.text.toStdString();
            continue;
        }
        fragments += u"namespace snippet%1 {\nusing namespace Qt::StringLiterals;\n"_s.arg(unused.size()) +
                     context->before + u'\n' + position + snippet.text +
                     u"#line 1 \"after %1\"\n"_s.arg(snippet.page) + context->after + u"\n}\n"_s;
        unused.erase(context);
    }
    for (const Context &context : unused)
        ADD_FAILURE() << context.page.toStdString() << " no longer has the snippet that begins with\n"
                      << context.firstLine.toStdString();
    ASSERT_NE(program, QString()) << "README.md has no program";

    const QString project = path(u"project"_s);
    const QString build = path(u"build"_s);
    const QString prefix = path(u"prefix"_s);
    writeFile(project + u"/CMakeLists.txt"_s, lists.toUtf8());
    writeFile(project + u"/main.cpp"_s, program.toUtf8());
    writeFile(project + u"/fragments.cpp"_s, fragments.toUtf8());
    const ProcessResult installed = runProcess(
        u"cmake"_s, {u"--install"_s, tx::test::programsFolder() + u"/.."_s, u"--prefix"_s, prefix});
    ASSERT_EQ(installed.status, 0) << installed.errors.constData();
    QStringList configure{
        u"-G"_s, u"Ninja"_s, u"-S"_s, project, u"-B"_s, build, u"-DCMAKE_PREFIX_PATH="_s + prefix};
    if (const QString sanitizers = QStringLiteral(TEST_SANITIZERS); !sanitizers.isEmpty())
        configure += u"-DCMAKE_CXX_FLAGS=-fsanitize="_s + sanitizers;
    const ProcessResult configured = runProcess(u"cmake"_s, configure);
    ASSERT_EQ(configured.status, 0) << configured.errors.constData();
    const ProcessResult built = runProcess(u"cmake"_s, {u"--build"_s, build, u"--"_s, u"-k"_s, u"0"_s});
    EXPECT_EQ(built.status, 0) << built.output.constData();
    EXPECT_TRUE(QFileInfo(build + u"/MyApp"_s).isExecutable());
}

TEST_F(Documents, LinksLeadSomewhere) {
    static const QRegularExpression block(u"```.*?```|`[^`]*`"_s,
                                          QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression link(u"\\]\\(([^)#]+)[^)]*\\)"_s);
    int count = 0;
    for (const QString &page : pages()) {
        const QString folder = QFileInfo(tree + u'/' + page).path();
        const QString text = linesOf(page).join(u'\n').remove(block);
        for (auto links = link.globalMatch(text); links.hasNext();) {
            const QString target = links.next().captured(1);
            if (target.startsWith(u"https://"))
                continue;
            ++count;
            EXPECT_TRUE(QFileInfo::exists(folder + u'/' + target))
                << page.toStdString() << " links to " << target.toStdString() << ", which is not there";
        }
    }
    EXPECT_GT(count, 20);
}

/// docs/README.md lists each page once, under the reader whom the page itself names in its first sentence.
TEST_F(Documents, EveryPageHasOneReaderInTheIndex) {
    const QHash<QString, QString> readers{
        {u"## You integrate the library into an application"_s, u"For those who integrate"_s},
        {u"## You publish updates"_s, u"For those who publish"_s},
        {u"## You work on the code"_s, u"For those who work on the code"_s},
    };
    QHash<QString, QString> listed;
    QString reader;
    static const QRegularExpression row(u"^\\| \\[([^\\]]+)\\]\\(\\1\\) \\|"_s);
    for (const QString &line : linesOf(u"docs/README.md"_s)) {
        if (line.startsWith(u"## ")) {
            EXPECT_TRUE(readers.contains(line)) << line.toStdString();
            reader = readers.value(line);
        } else if (const auto match = row.match(line); match.hasMatch()) {
            EXPECT_FALSE(listed.contains(match.captured(1))) << "twice: " << match.captured(1).toStdString();
            listed.insert(match.captured(1), reader);
        }
    }
    for (const QString &page : pages()) {
        if (page == u"docs/README.md")
            continue;
        const bool isBesideReadme = !page.startsWith(u"docs/");
        const QString name = isBesideReadme ? u"../"_s + page : page.section(u'/', 1);
        EXPECT_TRUE(listed.contains(name)) << page.toStdString() << " is not in docs/README.md";
        if (isBesideReadme)
            continue;
        const QString sentence = linesOf(page).value(2);
        EXPECT_TRUE(sentence.startsWith(listed.value(name)))
            << page.toStdString() << ": expected \"" << listed.value(name).toStdString()
            << "\" in the third line, found \"" << sentence.toStdString() << '"';
    }
}

TEST_F(Documents, ReadmeIsShortAndInOrder) {
    QStringList headings;
    bool isInside = false;
    const QStringList lines = linesOf(u"README.md"_s);
    for (const QString &line : lines) {
        if (line.trimmed().startsWith(u"```"))
            isInside = !isInside;
        else if (!isInside && line.startsWith(u'#'))
            headings += line;
    }
    EXPECT_EQ(headings, (QStringList{u"# TarvixUpdate"_s, u"## Try it"_s, u"## Integrate"_s, u"## Publish"_s,
                                     u"## More"_s}));
    EXPECT_LE(lines.size() - 1, 150);
}

} // namespace
