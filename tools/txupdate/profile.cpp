// SPDX-License-Identifier: MIT
#include "os/services.h"
#include "os/taskoutput.h"
#include "txupdate/commands.h"
#include "txupdate/feedjson.h"
#include "txupdate/helpers.h"

#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

/// The screens that an application with windows would see; none without a desktop.
QList<ScreenInfo> screensOfDesktop() {
    const bool hasDesktop =
        qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    TaskRequest request;
    request.program = helperProgram(u"txupdate-screens"_s);
    const std::optional<QByteArray> output = hasDesktop ? outputOf(request) : std::nullopt;
    QList<ScreenInfo> screens;
    for (const QByteArray &line : output.value_or(QByteArray()).split('\n')) {
        const QByteArrayList words = line.split(' ');
        if (words.size() == 3)
            screens.append({QSizeF(words[0].toDouble(), words[1].toDouble()), words[2].toDouble()});
    }
    return screens;
}

} // namespace

int profile(bool asJson) {
    services().screens = screensOfDesktop;
    const TXUpdateSystemProfile profile;
    if (asJson)
        printJson(QJsonObject::fromVariantMap(profile.JSONDictionary()));
    else
        std::fputs(profile.stringValue().toUtf8().constData(), stdout);
    return ExitDone;
}

} // namespace tx::cli
