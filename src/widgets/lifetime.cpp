// SPDX-License-Identifier: MIT
#include "widgets/lifetime.h"

#include "base/queues.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QThread>
#include <QWidget>

#include <utility>
#include <vector>

namespace tx {

namespace {

struct Step {
    QPointer<QObject> context;
    std::function<void()> work;
};

/// What is done when the application quits. Never destroyed: windows may be released after static objects.
struct QuitSteps {
    std::vector<Step> steps;
    std::vector<std::shared_ptr<std::shared_ptr<void>>> kept;
    QPointer<QCoreApplication> watched;

    static QuitSteps &instance() {
        static auto *theInstance = new QuitSteps;
        return *theInstance;
    }
    void watch() {
        QCoreApplication *application = QCoreApplication::instance();
        if (!application)
            return;
        // An application that never runs its event loop does not emit aboutToQuit. The routine that was added
        // last runs first.
        qRemovePostRoutine(runAll);
        qAddPostRoutine(runAll);
        if (watched == application)
            return;
        watched = application;
        QObject::connect(application, &QCoreApplication::aboutToQuit, application, runAll);
        whenApplicationEnds(runAll);
    }
    static void runAll() { instance().run(); }
    void run() {
        const bool hasWork = !steps.empty() || !kept.empty();
        while (!steps.empty() || !kept.empty()) {
            for (const Step &step : std::exchange(steps, {})) {
                if (step.context)
                    step.work();
            }
            kept.clear();
        }
        // Pages leave widgets that are to be deleted later. Nothing does that any more, except Qt 6.5 and
        // newer at the very end of the process, when what these widgets need has been destroyed.
        if (hasWork && applicationIsEnding())
            QCoreApplication::removePostedEvents(nullptr, QEvent::DeferredDelete);
    }
};

/// Slots of aboutToQuit may create windows with pages, which must be destroyed before the application object:
/// what their libraries registered for its end runs before what we registered. Objects with a pending
/// deleteLater() are destroyed after all these slots, or earlier in a loop that one of them runs; then this
/// is tried once more.
void runAfterAboutToQuit() {
    auto *last = new QObject;
    QObject::connect(last, &QObject::destroyed, last, [] {
        if (QThread::currentThread()->loopLevel() > 0)
            runAfterAboutToQuit();
        else
            QuitSteps::runAll();
    });
    last->deleteLater();
}

/// Every application object gets this connection before a window is created: the first window may be created
/// late.
void watchApplication() {
    QCoreApplication *application = QCoreApplication::instance();
    QObject::connect(application, &QCoreApplication::aboutToQuit, application, runAfterAboutToQuit);
}
Q_COREAPP_STARTUP_FUNCTION(watchApplication)

} // namespace

void whenApplicationQuits(QObject *context, std::function<void()> work) {
    QuitSteps &all = QuitSteps::instance();
    all.watch();
    std::erase_if(all.steps, [](const Step &step) { return !step.context; });
    all.steps.push_back({context, std::move(work)});
}

void deleteWidget(QWidget *widget) {
    if (QCoreApplication::instance())
        delete widget;
}

void releaseLater(std::shared_ptr<void> object) {
    QuitSteps &all = QuitSteps::instance();
    all.watch();
    // Not in the posted call itself: calls that never run are destroyed after the application object.
    all.kept.push_back(std::make_shared<std::shared_ptr<void>>(std::move(object)));
    postToMain([weak = std::weak_ptr(all.kept.back())] {
        if (const auto holder = weak.lock())
            std::erase(QuitSteps::instance().kept, holder);
    });
}

} // namespace tx
