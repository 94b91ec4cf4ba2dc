// SPDX-License-Identifier: MIT
#include "install/handoverquestion.h"

#include <TarvixUpdate/TXLog.h>

#include <QFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Returns `part` if it can be used; otherwise logs the reason and returns an empty handover.
Handover usable(Handover part) {
    const std::string problem = problemOf(part);
    if (problem.empty())
        return part;
    TXLog(TXLogLevelFailure, u"TXUpdate: The new version is opened without what the delegate passes on: %@"_s,
          {QString::fromStdString(problem)});
    return {};
}

} // namespace

std::atomic<HandoverQuestion> &handoverQuestion() {
    static std::atomic<HandoverQuestion> question{nullptr};
    return question;
}

Handover askForHandover() {
    const HandoverQuestion question = handoverQuestion();
    if (!question)
        return {};
    const HandoverAnswer answer = question();
    Handover arguments;
    for (const QString &argument : answer.arguments)
        arguments.arguments.push_back(argument.toLocal8Bit().toStdString());
    Handover folder;
    folder.folder = QFile::encodeName(answer.workingDirectory).toStdString();
    // A mistake in one of them leaves the other.
    Handover result = usable(std::move(arguments));
    result.folder = usable(std::move(folder)).folder;
    return result;
}

} // namespace tx
