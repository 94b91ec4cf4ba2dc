// SPDX-License-Identifier: MIT
// The manual page and the shell completions of txupdate.
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QRegularExpression>

using namespace Qt::StringLiterals;
using tx::test::runProcess;

namespace {

QByteArray outputOf(const QStringList &words) {
    const auto result = runProcess(tx::test::programsFolder() + u"/txupdate"_s, words);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    return result.output;
}

/// The names in one section of a help text.
QStringList namesIn(const QByteArray &help, const QString &form) {
    QStringList names;
    const QRegularExpression line(form, QRegularExpression::MultilineOption);
    for (auto matches = line.globalMatch(QString::fromUtf8(help)); matches.hasNext();)
        names << matches.next().captured(1);
    return names;
}

QStringList commands(const QStringList &of = {}) {
    const QByteArray help = outputOf(of + QStringList{u"--help"_s});
    const qsizetype at = help.indexOf("\nSubcommands:");
    return at < 0 ? QStringList() : namesIn(help.mid(at), u"^  ([a-z]+) "_s);
}

/// The completions that bash offers after these words; the last word is incomplete.
QString completed(const QStringList &words) {
    const QString script =
        u"source <(\"$1\" completion bash); shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
        "_txupdate; echo \"${COMPREPLY[*]}\""_s;
    const QStringList first{u"-c"_s, script, u"bash"_s, tx::test::programsFolder() + u"/txupdate"_s,
                            u"txupdate"_s};
    const auto result = runProcess(u"bash"_s, first + words);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    return QString::fromUtf8(result.output).trimmed();
}

TEST(Manual, NamesEveryCommandAndOption) {
    const QByteArray page = outputOf({u"manual"_s});
    int seen = 0;
    for (const QString &command : commands()) {
        EXPECT_TRUE(page.contains("\n.SS \"txupdate " + command.toUtf8() + "\"\n")) << command.toStdString();
        for (const QString &inner : commands({command}))
            EXPECT_TRUE(page.contains("\n.SS \"txupdate " + command.toUtf8() + ' ' + inner.toUtf8() + "\"\n"))
                << inner.toStdString();
        for (QString option : namesIn(outputOf({command, u"--help"_s}), u"^  (--[a-z-]+)"_s)) {
            EXPECT_TRUE(page.contains(option.replace(u'-', u"\\-"_s).toUtf8())) << option.toStdString();
            ++seen;
        }
    }
    EXPECT_GT(seen, 60);
}

/// A line that begins with a dot is a macro, so no line of the text may begin with one.
TEST(Manual, HasNoMacrosButItsOwn) {
    for (const QByteArray &line : outputOf({u"manual"_s}).split('\n')) {
        if (line.startsWith('.') || line.startsWith('\'')) {
            EXPECT_TRUE(QRegularExpression(u"^\\.(TH|SH|SS|TP|B|I|br)\\b"_s)
                            .match(QString::fromUtf8(line))
                            .hasMatch())
                << line.constData();
        }
        EXPECT_FALSE(QRegularExpression(u"\\\\(?![-e&f])"_s).match(QString::fromUtf8(line)).hasMatch())
            << line.constData();
    }
}

TEST(Completion, OffersCommandsThenOptionsThenFiles) {
    EXPECT_EQ(completed({u"pub"_s}), u"publish"_s);
    EXPECT_EQ(completed({u"feed"_s, u"va"_s}), u"validate"_s);
    EXPECT_EQ(completed({u"feed"_s, u"validate"_s, u"--ar"_s}), u"--archives"_s);
    EXPECT_EQ(completed({u"bundle"_s, u"--lay"_s}), u"--layout"_s);
    // No completion, so that the shell completes file names.
    EXPECT_EQ(completed({u"publish"_s, u"dist/"_s}), QString());
    // A value that looks like a command is not a command.
    EXPECT_EQ(completed({u"publish"_s, u"--title"_s, u"feed"_s, u"--not-s"_s}), u"--not-served"_s);
}

TEST(Completion, IsWrittenForThreeShellsAndNoOther) {
    EXPECT_TRUE(outputOf({u"completion"_s, u"zsh"_s}).startsWith("#compdef txupdate\n"));
    const QByteArray fish = outputOf({u"completion"_s, u"fish"_s});
    EXPECT_TRUE(
        fish.contains("complete -c txupdate -n __fish_use_subcommand -a publish -d 'Publish a build"));
    EXPECT_TRUE(fish.contains("complete -c txupdate -n '__fish_seen_subcommand_from publish' -r -l to -d "));
    EXPECT_TRUE(
        fish.contains("complete -c txupdate -n '__fish_seen_subcommand_from publish' -l dry-run -d "));
    // Each quotation ends on its line.
    for (const QByteArray &line : fish.split('\n'))
        EXPECT_EQ((line.count('\'') - line.count("\\'")) % 2, 0) << line.constData();
    const auto other = runProcess(tx::test::programsFolder() + u"/txupdate"_s, {u"completion"_s, u"csh"_s});
    EXPECT_EQ(other.status, 64);
    EXPECT_THAT(other.errors.toStdString(), testing::HasSubstr("SHELL"));
}

} // namespace
