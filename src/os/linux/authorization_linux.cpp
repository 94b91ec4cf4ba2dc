// SPDX-License-Identifier: MIT
#include "os/authorization.h"

#include "os/mainbundle.h"
#include "os/services.h"
#include "os/tasks.h"
#include "posix/rootspath.h"
#include "posix/updatefoldernames.h"

#include <TarvixUpdate/TXLog.h>

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The helper, which runs with an administrator's rights and waits for its one job.
class PolkitReference final : public AuthorizationReference {
public:
    std::unique_ptr<Task> helper;
};

/// The meaning of pkexec's exit status if the helper printed nothing.
int statusFromPkexec(int exitStatus) {
    constexpr int dismissed = 126;
    return exitStatus == dismissed ? AuthorizationCanceled : AuthorizationDenied;
}

/// The helper of this application without links in its path. Null, and a line in the log, unless it is a part
/// of this very application that only root can change, the installer that it may become included.
QString trustedHelper() {
    const QString resources = QFileInfo(services().resourcesPath()).canonicalFilePath();
    const QString helper = resources + u"/TXUpdateAuthorize"_s;
    const QString application = QFileInfo(TXBundle::mainBundle().bundlePath()).canonicalFilePath();
    std::string why;
    for (const QString &program : {helper, resources + u'/' + QLatin1StringView(installerToolName) +
                                               QLatin1StringView(installerExecutableInTool)}) {
        posix::Descriptor file;
        if (why.empty())
            why = posix::openRootsOwn(QFile::encodeName(program).toStdString(), file);
    }
    if (why.empty() &&
        QFile::decodeName(posix::applicationAround(QFile::encodeName(helper).toStdString()).c_str()) !=
            application)
        why = "It is not a part of " + QFile::encodeName(application).toStdString();
    if (why.empty())
        return helper;
    TXLog(TXLogLevelFailure, u"TXUpdate: %@ is not run with an administrator's rights. %@"_s,
          {helper, QFile::decodeName(why.c_str())});
    return {};
}

/// polkit asks for the password only when pkexec starts a program. To separate asking from executing, pkexec
/// starts a small helper program. The helper reports "authorized" once it runs, and then receives one job
/// over a socket. The socket is its standard input, because pkexec closes all descriptors except the standard
/// streams.
class PolkitAuthorization final : public Authorization {
public:
    int create(const QList<AuthorizationItem> &, unsigned,
               std::unique_ptr<AuthorizationReference> &reference) override {
        reference = std::make_unique<PolkitReference>();
        return AuthorizationSuccess;
    }

    int copyRights(AuthorizationReference &reference, const QList<AuthorizationItem> &rights,
                   const QList<AuthorizationItem> &environment, unsigned flags,
                   QList<AuthorizationItem> *authorized) override {
        if ((flags & AuthorizationFlagInteractionAllowed) == 0)
            return AuthorizationDenied;
        const QString helper = trustedHelper();
        if (helper.isNull())
            return AuthorizationDenied;
        // The password dialog shows the complete command line among its details.
        QStringList command{helper};
        for (const AuthorizationItem &item : environment) {
            if (item.name == authorizationDetail && item.value)
                command << QString::fromUtf8(*item.value);
        }
        Result<std::unique_ptr<Task>> task = services().tasks->start({.program = u"pkexec"_s,
                                                                      .arguments = command,
                                                                      .receivesPackets = true,
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

    int executeWithPrivileges(AuthorizationReference &reference, const AuthorizedJob &job, unsigned,
                              std::unique_ptr<Task> &task) override {
        std::unique_ptr<Task> helper = std::move(static_cast<PolkitReference &>(reference).helper);
        if (!helper)
            return AuthorizationDenied;
        QByteArray words;
        for (const QString &word : job.words)
            words += QFile::encodeName(word) + '\0';
        if (helper->send(words, job.archive) != 0)
            return AuthorizationToolExecuteFailure;
        helper->closeInput();
        task = std::move(helper);
        return AuthorizationSuccess;
    }

    bool canExecute() const override { return !trustedHelper().isNull(); }

    void free(std::unique_ptr<AuthorizationReference> reference, unsigned) override { reference.reset(); }
};

} // namespace

Authorization &nativeAuthorization() {
    static auto &instance = *new PolkitAuthorization; // a thread may outlast static objects
    return instance;
}

} // namespace tx
