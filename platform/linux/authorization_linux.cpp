// SPDX-License-Identifier: MIT
#include "platform/authorization.h"

#include "platform/frameworkresources.h"
#include "platform/linux/trustedpath.h"
#include "platform/services.h"
#include "platform/tasks.h"

#include <TarvixUpdate/TXLog.h>

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// A helper that runs with an administrator's rights and waits for the one command that it will become.
class PolkitReference final : public AuthorizationReference {
public:
    std::unique_ptr<Task> helper;
};

/// What pkexec's exit status says when the helper never spoke.
int statusFromPkexec(int exitStatus) {
    constexpr int dismissed = 126;
    return exitStatus == dismissed ? AuthorizationCanceled : AuthorizationDenied;
}

/// The program at `path` with all links followed; null, and a line in the log, when a user other than this
/// one or root could have written it.
QString trustedProgram(const QString &path) {
    std::string resolved;
    const std::string why = posix::untrustedPart(QFile::encodeName(path).toStdString(), resolved);
    if (why.empty())
        return QFile::decodeName(resolved.c_str());
    TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not run with an administrator's rights. %@"_s,
          {path, QFile::decodeName(why.c_str())});
    return {};
}

/// The words of a command, each with a NUL behind it.
QByteArray commandOf(const QString &path, const QStringList &arguments) {
    QByteArray command = QFile::encodeName(path) + '\0';
    for (const QString &argument : arguments)
        command += QFile::encodeName(argument) + '\0';
    return command;
}

/// polkit asks for its password when pkexec starts a program, not before. So that asking and executing stay
/// two steps, pkexec starts a small helper, which reports "authorized" once it runs and executes what it is
/// told on its standard input.
class PolkitAuthorization final : public Authorization {
public:
    int create(const QList<AuthorizationItem> &, unsigned,
               std::unique_ptr<AuthorizationReference> &reference) override {
        reference = std::make_unique<PolkitReference>();
        return AuthorizationSuccess;
    }

    int copyRights(AuthorizationReference &reference, const QList<AuthorizationItem> &rights,
                   const QList<AuthorizationItem> &, unsigned flags,
                   QList<AuthorizationItem> *authorized) override {
        if ((flags & AuthorizationFlagInteractionAllowed) == 0)
            return AuthorizationDenied;
        const QString helper = trustedProgram(frameworkResourcesPath() + u"/TXUpdateAuthorize"_s);
        if (helper.isNull())
            return AuthorizationDenied;
        Result<std::unique_ptr<Task>> task = services().tasks->start({.program = u"pkexec"_s,
                                                                      .arguments = {helper},
                                                                      .writesInput = true,
                                                                      .readsOutput = true,
                                                                      .ownSession = true});
        if (!task)
            return AuthorizationDenied;
        QByteArray answer;
        while (!answer.endsWith('\n')) {
            const QByteArray more = (*task)->read();
            if (more.isEmpty())
                return statusFromPkexec((*task)->wait());
            answer += more;
        }
        if (answer != "authorized\n")
            return AuthorizationDenied;
        static_cast<PolkitReference &>(reference).helper = std::move(*task);
        if (authorized)
            *authorized = rights;
        return AuthorizationSuccess;
    }

    int executeWithPrivileges(AuthorizationReference &reference, const QString &path, unsigned,
                              const QStringList &arguments) override {
        std::unique_ptr<Task> helper = std::move(static_cast<PolkitReference &>(reference).helper);
        if (!helper)
            return AuthorizationDenied;
        const QString program = trustedProgram(path);
        if (program.isNull())
            return AuthorizationToolExecuteFailure;
        const QByteArray command = commandOf(program, arguments);
        int ignored = 0;
        if (helper->write(command.constData(), command.size(), &ignored) != command.size())
            return AuthorizationToolExecuteFailure;
        helper->closeInput();
        // The helper's output closes without a word when the program replaces it.
        return helper->read().isEmpty() ? AuthorizationSuccess : AuthorizationToolExecuteFailure;
    }

    std::optional<int> executeWithPrivilegesAndWait(AuthorizationReference &reference, const QString &path,
                                                    unsigned, const QStringList &arguments) override {
        Task *helper = static_cast<PolkitReference &>(reference).helper.get();
        if (!helper)
            return std::nullopt;
        const QString program = trustedProgram(path);
        if (program.isNull())
            return std::nullopt;
        const QByteArray command = commandOf(program, arguments);
        const QByteArray frame = "run " + QByteArray::number(command.size()) + '\n' + command;
        int ignored = 0;
        if (helper->write(frame.constData(), frame.size(), &ignored) != frame.size())
            return std::nullopt;
        QByteArray answer;
        while (!answer.endsWith('\n')) {
            const QByteArray more = helper->read();
            if (more.isEmpty())
                return std::nullopt;
            answer += more;
        }
        bool ok = false;
        const int status = answer.startsWith("exit ") ? answer.mid(5).trimmed().toInt(&ok) : 0;
        return ok ? std::optional(status) : std::nullopt;
    }

    bool canExecute() const override {
        // Looked for once: it comes with the framework.
        static const bool there =
            QFileInfo(frameworkResourcesPath() + u"/TXUpdateAuthorize"_s).isExecutable();
        return there;
    }

    void free(std::unique_ptr<AuthorizationReference> reference, unsigned) override { reference.reset(); }
};

} // namespace

Authorization &nativeAuthorization() {
    static auto &instance = *new PolkitAuthorization; // a thread may outlast static objects
    return instance;
}

} // namespace tx
