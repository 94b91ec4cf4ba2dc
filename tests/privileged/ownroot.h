// SPDX-License-Identifier: MIT
#pragma once

#include "os/authorization.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

namespace tx::test {

/// A root folder of the test's own, in which this user is root and which holds the system's folders and an
/// empty /opt. tests/disks/in-own-mounts makes the place for it. Where the system permits none, isReal() is
/// false and no program of the framework can be one that only root can change.
class OwnRootTest : public FrameworkTest {
protected:
    OwnRootTest();
    ~OwnRootTest() override;

    [[nodiscard]] bool isReal() const { return m_real; }
    /// Makes `bundle` an application with the framework's tools in it, makes it the running one, and returns
    /// the folder of its tools.
    QString makeApplication(const QString &bundle, const QString &build = QStringLiteral("1"));
    /// Plays pkexec, by a script in front of the PATH. It starts the program as pkexec does: with next to no
    /// environment, the asking user's number, and no descriptor but the standard ones. `before` runs first.
    void playPkexec(const QByteArray &before = {}, const QByteArray &user = "0");
    /// Whether pkexec was started since the last question.
    [[nodiscard]] bool wasAsked() const;
    /// Runs TXUpdateAuthorize as pkexec does. The packet contains a job and these open files.
    [[nodiscard]] ProcessResult runHelper(const QString &resources, const QByteArray &input,
                                          const QByteArray &user = "0", const QList<int> &files = {}) const;
    /// Asks for the rights, by default those for an update that nobody verifies.
    int copyRights(unsigned flags = AuthorizationFlagInteractionAllowed, bool saysUnverified = true);
    /// Asserts what holds where nobody can be root: there is no way, and nobody is asked.
    void expectNoWay();

    const QString application = QStringLiteral("/opt/Host.app");
    std::unique_ptr<AuthorizationReference> reference;
    Authorization &authorization = nativeAuthorization();

private:
    bool enterOwnRoot();
    const QByteArray m_pathBefore = qgetenv("PATH");
    bool m_real = false;
};

} // namespace tx::test
