// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <functional>
#include <memory>

struct TXQuitReplyPrivate;

/// A delegate's answer to the question whether the application may end now because an update is about to be
/// installed. It can be given later; until then the installation waits.
///
///     void MyWindow::shouldQuitToInstall(TXStandardUpdateController *, TXUpdate &, const TXQuitReply &reply)
///     {
///         m_document.saveInBackground([reply](bool saved) { saved ? reply.quit() : reply.refuse(); });
///     }
///
/// A value: copies share one answer. The first answer counts and every other one does nothing. When the last
/// copy is destroyed without an answer, the answer is refuse(). Thread: main.
class TX_EXPORT TXQuitReply final {
public:
    /// Everything is saved. The installer tool takes over, and the process ends inside this call or soon
    /// after it.
    void quit() const;
    /// The application stays open. Nothing is installed, and the update can be installed later.
    void refuse() const;
    /// Lets the toolkit decide: QEvent::Quit is sent to the application object, so each of the application's
    /// windows gets a close event and can ask about unsaved work. A window that ignores its close event
    /// refuses. So does an application that keeps the event from QApplication. An application without windows
    /// agrees. The framework's own windows are not asked.
    void askApplication() const;
    /// True once any copy has been answered.
    [[nodiscard]] bool isAnswered() const;

private:
    friend struct TXQuitReplyPrivate;
    explicit TXQuitReply(std::shared_ptr<TXQuitReplyPrivate> answer);
    std::shared_ptr<TXQuitReplyPrivate> d;
};
