// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateSystemProfile.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QMap>
#include <QUrl>
#include <QVariantMap>

class TXUpdateFeed;
/// Handlers and hosts share a feed.
using TXUpdateFeedPtr = std::shared_ptr<TXUpdateFeed>;

/// Encodes `text` for the value of a query item: reserved and non-ASCII characters are percent-encoded, other
/// ASCII characters stay. Thread: any.
[[nodiscard]] TX_EXPORT QString EscapeForURL(const QString &text);

/// One fetch of the update feed and its result.
/// Thread: create it on any thread. The network thread parses the feed; use the result on the main thread.
/// Ownership: shared. Errors: passed to the handler, with messages for users. The domain is "TXUpdater" if
/// the feed cannot be fetched or read, and TXUpdateErrorDomain if it cannot be verified.
class TX_EXPORT TXUpdateFeed final : public std::enable_shared_from_this<TXUpdateFeed> {
public:
    /// The feed, and an error that is null on success. Called exactly once after fetch(), on the network
    /// thread, unless the application ends first.
    using CompletionHandler = std::function<void(const TXUpdateFeedPtr &feed, const TXError &error)>;
    /// Release tracks by name.
    using TrackMap = QMap<QString, TXUpdateTrackPtr>;

    /// Creates a feed and fetches it. `parameters` and `profile` (which may be null) are sent in the body of
    /// the request. The feed keeps itself alive until the handler has been called. Thread: any.
    static void fetchFeedAtURL(const QUrl &url, const QVariantMap &parameters,
                               const TXUpdateSystemProfilePtr &profile, const CompletionHandler &handler);

    /// A feed that has not been fetched; see fetchFeedAtURL() for the arguments.
    TXUpdateFeed(const QUrl &url, const QVariantMap &parameters, const TXUpdateSystemProfilePtr &profile,
                 const CompletionHandler &handler);
    ~TXUpdateFeed(); ///< A running fetch continues.
    TXUpdateFeed(const TXUpdateFeed &) = delete;
    TXUpdateFeed &operator=(const TXUpdateFeed &) = delete;

    /// The URL as given, without the added query.
    [[nodiscard]] QUrl URL() const;
    /// The updates of the track "release"; absent if the feed has no such track.
    [[nodiscard]] std::optional<QList<TXUpdatePtr>> updates() const;
    /// The recommended update of the track "release"; null if there is none.
    [[nodiscard]] TXUpdatePtr recommendedUpdate() const;
    /// All tracks by name; empty until a fetch has succeeded.
    [[nodiscard]] TrackMap releaseTracks() const;

    /// Fetches and parses the feed. A second call does nothing. The handler is called even if this object is
    /// destroyed before that. The handler gets this object if a shared pointer owns it, otherwise another one
    /// with the same content. Thread: any.
    void fetch();
    /// URL() with the application's name, build and anonymous identifier in the query; empty if the result is
    /// not a valid URL.
    [[nodiscard]] QUrl URLWithParameters() const;
    /// The JSON body of the request; null if there is neither a profile nor a parameter.
    [[nodiscard]] QByteArray requestBody() const;
    /// See TXUpdater::anonymousUUID().
    [[nodiscard]] static QString anonymousUUID();

    // fetch() calls the following functions itself. They are public for hosts that get the body of the
    // response in another way, for example from a file.

    /// Parses the body of a JSON feed and calls the handler. If the caller moves `data` in, its memory is
    /// freed before the handler runs. If the application has keys and requires a signed feed, the body is
    /// verified before it is parsed.
    void parseJSONData(QByteArray data);
    /// Parses the body of an appcast and calls the handler, like parseJSONData().
    void parseXMLData(QByteArray data);
    /// Calls the handler, once, with this feed and `error`.
    void completedWithError(const TXError &error);

    /// The error of a feed for a transfer that failed with `error`.
    static TXError errorForLoading(const TXError &error);
    /// The error of a feed that cannot be read.
    static TXError errorForInvalidFormat();
    /// The error of a feed whose server answered with another status than 200.
    static TXError errorForHTTPStatus(int status);

private:
    struct Private;
    explicit TXUpdateFeed(std::shared_ptr<Private> content);
    /// This object, or another one with its content when no shared pointer owns it.
    [[nodiscard]] TXUpdateFeedPtr owned();
    const std::shared_ptr<Private> d;
};
