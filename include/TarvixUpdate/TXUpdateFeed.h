// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateSystemProfile.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QMap>
#include <QUrl>
#include <QVariantMap>

namespace tx {
template <typename T>
class Result;
}
class TXUpdateFeed;
using TXUpdateFeedPtr = std::shared_ptr<TXUpdateFeed>;

/// `text` for the value of a query item: reserved and non-ASCII characters percent-encoded, every other ASCII
/// character as it is. Thread: any.
[[nodiscard]] TX_EXPORT QString EscapeForURL(const QString &text);

/// One fetch of the update feed and its result.
/// Thread: made on any thread; parsed on the network thread, read on the main thread after that.
class TX_EXPORT TXUpdateFeed final : public std::enable_shared_from_this<TXUpdateFeed> {
public:
    /// The feed, and an error that is null on success. Called exactly once after fetch(), on the network
    /// thread, unless the application ends first.
    using CompletionHandler = std::function<void(const TXUpdateFeedPtr &feed, const TXError &error)>;
    using TrackMap = QMap<QString, TXUpdateTrackPtr>;

    /// Fetches and parses. `parameters` goes into the request's body only, like the profile, which may be
    /// null. The feed keeps itself alive until the handler has been called.
    static void fetchFeedAtURL(const QUrl &url, const QVariantMap &parameters,
                               const TXUpdateSystemProfilePtr &profile, const CompletionHandler &handler);

    TXUpdateFeed(const QUrl &url, const QVariantMap &parameters, const TXUpdateSystemProfilePtr &profile,
                 const CompletionHandler &handler);
    ~TXUpdateFeed();
    TXUpdateFeed(const TXUpdateFeed &) = delete;
    TXUpdateFeed &operator=(const TXUpdateFeed &) = delete;

    /// The address as configured, without the added query.
    [[nodiscard]] QUrl URL() const;
    /// The updates of the track "release", absent without one.
    [[nodiscard]] std::optional<QList<TXUpdatePtr>> updates() const;
    /// The recommended update of the track "release"; null when there is none.
    [[nodiscard]] TXUpdatePtr recommendedUpdate() const;
    /// All tracks by name; empty until a fetch has succeeded.
    [[nodiscard]] TrackMap releaseTracks() const;

    /// Starts the one fetch of this object; a second call does nothing. The handler is also called when this
    /// object goes meanwhile. It gets this object when a shared pointer owns it, else one with the same
    /// content. Thread: any.
    void fetch();
    /// The configured address with the application's name, build and anonymous identifier; empty when the
    /// result is no URL.
    [[nodiscard]] QUrl URLWithParameters() const;
    /// The JSON body; null when there is neither a profile nor a parameter.
    [[nodiscard]] QByteArray requestBody() const;
    [[nodiscard]] static QString anonymousUUID();

    /// Read a body, JSON or an appcast, and call the handler. A body that is moved here has gone by then.
    void parseJSONData(QByteArray data);
    void parseXMLData(QByteArray data);
    void completedWithError(const TXError &error);

    static TXError errorForLoading(const TXError &error);
    static TXError errorForInvalidFormat();
    static TXError errorForHTTPStatus(int status);

private:
    struct Private;
    explicit TXUpdateFeed(std::shared_ptr<Private> content);
    /// This object, or another one with its content when no shared pointer owns it.
    [[nodiscard]] TXUpdateFeedPtr owned();
    void completedWithTracks(const tx::Result<TrackMap> &tracks);
    const std::shared_ptr<Private> d;
};
