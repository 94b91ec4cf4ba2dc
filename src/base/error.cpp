// SPDX-License-Identifier: MIT
#include "base/posixerror.h"

#include <cstring>

using namespace Qt::StringLiterals;

struct TXError::Data : QSharedData {
    QString domain;
    int code = 0;
    QString description;
    QString failureReason;
    QString recoverySuggestion;
    TXError underlying;
    QVariantMap userInfo;
};

const QString TXURLErrorDomain = u"NSURLErrorDomain"_s;
const QString TXPOSIXErrorDomain = u"NSPOSIXErrorDomain"_s;
const QString TXCocoaErrorDomain = u"NSCocoaErrorDomain"_s;

TXError::TXError() = default;
TXError::TXError(const TXError &other) = default;
TXError::TXError(TXError &&other) noexcept = default;
TXError &TXError::operator=(const TXError &other) = default;
TXError &TXError::operator=(TXError &&other) noexcept = default;
TXError::~TXError() = default;

TXError::TXError(const QString &domain, int code, const QString &description, const QString &failureReason,
                 const QString &recoverySuggestion)
    : d(new Data) {
    d->domain = domain;
    d->code = code;
    d->description = description;
    d->failureReason = failureReason;
    d->recoverySuggestion = recoverySuggestion;
}

bool TXError::isNull() const { return !d; }
QString TXError::domain() const { return d ? d->domain : QString(); }
int TXError::code() const { return d ? d->code : 0; }
QString TXError::localizedDescription() const { return d ? d->description : QString(); }
QString TXError::localizedFailureReason() const { return d ? d->failureReason : QString(); }
QString TXError::localizedRecoverySuggestion() const { return d ? d->recoverySuggestion : QString(); }
TXError TXError::underlyingError() const { return d ? d->underlying : TXError(); }
QVariantMap TXError::userInfo() const { return d ? d->userInfo : QVariantMap(); }

TXError TXError::withUnderlyingError(const TXError &error) const {
    TXError copy = *this;
    if (!isNull())
        copy.d->underlying = error;
    return copy;
}

TXError TXError::withUserInfo(const QVariantMap &userInfo) const {
    TXError copy = *this;
    if (!isNull())
        copy.d->userInfo = userInfo;
    return copy;
}

QString TXError::toString() const {
    if (!d)
        return u"no error"_s;
    QString text = u"%1 %2: %3"_s.arg(d->domain).arg(d->code).arg(d->description);
    if (!d->failureReason.isEmpty())
        text += u" ("_s + d->failureReason + u')';
    if (d->underlying)
        text += u" <- "_s + d->underlying.toString();
    return text;
}

bool operator==(const TXError &a, const TXError &b) {
    if (a.d == b.d)
        return true;
    if (!a.d || !b.d)
        return false;
    return a.d->domain == b.d->domain && a.d->code == b.d->code && a.d->description == b.d->description &&
           a.d->failureReason == b.d->failureReason && a.d->recoverySuggestion == b.d->recoverySuggestion &&
           a.d->underlying == b.d->underlying && a.d->userInfo == b.d->userInfo;
}

namespace tx {

TXError posixError(int number, const QString &action, const QString &path) {
    const QString reason = QString::fromLocal8Bit(std::strerror(number));
    return TXError(TXPOSIXErrorDomain, number, u"%1 %2: %3"_s.arg(action, path, reason), reason)
        .withUserInfo({{u"path"_s, path}});
}

} // namespace tx
