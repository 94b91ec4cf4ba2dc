// SPDX-License-Identifier: MIT
#include "install/packagecheck.h"

#include "base/queues.h"
#include "model/names.h"
#include "os/localization.h"
#include "os/packageowner.h"

#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Only the package manager may replace what it installed. If the application were replaced without it, its
/// records would be wrong, and its next update would undo the replacement.
TXError packageError(const QString &failure, const Result<std::optional<PackageOwner>> &owner) {
    if (!owner)
        return TXError(updaterErrorDomain, 0, failure,
                       localizedFormat(u"Whether the application belongs to a package could not be "
                                       "determined. %@"_s,
                                       {owner.error().toString()}),
                       localizedString(u"Repair the database of the package manager, or install the new "
                                       "version with it."_s))
            .withUnderlyingError(owner.error());
    if (!*owner)
        return {};
    return TXError(updaterErrorDomain, 0, failure,
                   localizedFormat(u"The application belongs to the package %@ of %@."_s,
                                   {(*owner)->package, (*owner)->manager}),
                   localizedString(u"Install the new version with the package manager of the system."_s));
}

} // namespace

void checkPackageOwner(const QString &failure, std::function<void(const TXError &refusal)> done) {
    runInBackground([failure, done = std::move(done), bundle = TXUpdateHost::host()->bundle().bundlePath()] {
        const TXError refusal = bundle.isEmpty() ? TXError() : packageError(failure, packageOwnerOf(bundle));
        postToMain([done, refusal] { done(refusal); });
    });
}

} // namespace tx
