// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"
#include "widgets/alert.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

namespace tx::test {

/// Hands the next alert that is shown modally to `act`, once, as soon as it is visible. `act` has to close
/// it.
class AlertWatch {
public:
    explicit AlertWatch(std::function<void(QMessageBox *)> act) {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this, act = std::move(act)] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || !box->isVisible())
                return;
            m_timer.stop();
            m_seen = true;
            act(box);
        });
        m_timer.start(1);
    }
    [[nodiscard]] bool seen() const { return m_seen; }

private:
    QTimer m_timer;
    bool m_seen = false;
};

/// Windows of the framework in a host of its own; alerts are recorded and answered.
class UiTest : public FrameworkTest {
protected:
    struct Sheet {
        Alert alert;
        QWidget *parent;
        std::function<void(int)> handler;
    };
    QList<Alert> alerts;
    QList<Sheet> sheets;
    QList<TXError> errors;
    int answer = 0;
    QList<int> exits;
    RecordingWorkspace workspace;
    const QPalette palette = QApplication::palette();

    UiTest() {
        services().presentAlert = [this](const Alert &alert) {
            alerts.append(alert);
            return answer;
        };
        services().presentSheet = [this](const Alert &alert, QWidget *parent,
                                         const std::function<void(int)> &handler) {
            sheets.append({alert, parent, handler});
        };
        errorPresenter() = [this](const TXError &error) {
            errors.append(error);
            m_presenter(error);
        };
        services().exitProcess = [this](int status) { exits.append(status); };
        services().checkingPause = std::chrono::milliseconds(0);
        services().firstCheckDelay = std::chrono::milliseconds(0);
    }
    ~UiTest() override {
        errorPresenter() = m_presenter;
        QApplication::setPalette(palette);
        drainEvents();
    }

    /// Runs `act` inside the next modal session.
    static void inModalSession(const std::function<void()> &act) {
        QTimer::singleShot(0, QCoreApplication::instance(), act);
    }
    /// Runs `act` while the application runs, which it can then quit; until it does.
    static void inApplication(const std::function<void()> &act) {
        QTimer::singleShot(0, QCoreApplication::instance(), [act] {
            act();
            QCoreApplication::exit();
        });
        QCoreApplication::exec();
    }
    static void beDark(bool dark) {
        QPalette colours(dark ? QColor(40, 40, 40) : QColor(239, 239, 239));
        QApplication::setPalette(colours);
        drainEvents();
    }
    /// The framework's resources with one file replaced (empty content: removed).
    void replaceResource(const QString &name, const QByteArray &content) {
        const QString copy = path(QStringLiteral("resources"));
        QDir().mkpath(copy);
        for (const QString &entry : namesIn(tx::test::resourcesFolder())) {
            if (entry != name)
                QFile::link(tx::test::resourcesFolder() + u'/' + entry, copy + u'/' + entry);
        }
        QFile::remove(copy + u'/' + name); // a link of an earlier call, through which it would be written
        if (!content.isEmpty())
            writeFile(copy + u'/' + name, content);
        services().resourcesPath = [copy] { return copy; };
    }
    template <typename T = QLabel>
    static T *outlet(const QWidget *window, const char *name) {
        return window->findChild<T *>(QString::fromLatin1(name));
    }

    static TXUpdatePtr makeUpdate(const QString &build, const QString &version,
                                  const QString &file = QStringLiteral("http://127.0.0.1:1/a.zip")) {
        auto update = std::make_shared<TXUpdate>();
        update->setTitle(QStringLiteral("Version ") + version);
        update->setVersion(build);
        update->setDisplayVersion(version);
        update->setDateString(QStringLiteral("2026-11-01 10:00:00"));
        update->setFileURL(QUrl(file));
        return update;
    }
    static QList<TXUpdatePtr> makeUpdates(int count) {
        QList<TXUpdatePtr> updates;
        for (int i = count; i >= 1; --i)
            updates << makeUpdate(QString::number(1042 + i), QStringLiteral("2.0.%1").arg(i));
        return updates;
    }

private:
    const ErrorPresenter m_presenter = errorPresenter();
};

} // namespace tx::test
