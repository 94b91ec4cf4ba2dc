// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateItem.h>

#include <QObject>
#include <QSizeF>
#include <QUrl>
#include <QVariantMap>

#include <memory>

struct TXUpdatePostPrivate;

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXUpdatePostEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// When a post is shown.
enum TXUpdatePostDisplayTime : int {
    TXUpdatePostDisplayTimeDefault = 0, ///< right after a feed has been applied
    TXUpdatePostDisplayTimeAtQuit = 1,  ///< before the application quits
    TXUpdatePostDisplayTimePassive = 2, ///< when the application asks for it
};
Q_ENUM_NS(TXUpdatePostDisplayTime)

} // namespace TXUpdatePostEnumerations

/// Reads exactly "atQuit" and "passive"; every other string is the default.
[[nodiscard]] TX_EXPORT TXUpdatePostDisplayTime TXUpdatePostDisplayTimeFromString(const QString &text);

/// A short news page. Thread: a reader fills it on the network thread; after that it is used on the main
/// thread.
class TX_EXPORT TXUpdatePost final : public TXUpdateItem {
public:
    /// An empty post.
    TXUpdatePost();
    /// Copies are cheap: they share their content until one is changed.
    TXUpdatePost(const TXUpdatePost &);
    /// See the copy constructor.
    TXUpdatePost &operator=(const TXUpdatePost &);
    ~TXUpdatePost() override; ///< Copies keep the content.

    /// The title of the post's window.
    [[nodiscard]] QString title() const;
    /// Setters are for hosts that fill a post themselves.
    void setTitle(const QString &title);
    /// The page; empty if absent.
    [[nodiscard]] QUrl postURL() const;
    /// See setTitle().
    void setPostURL(const QUrl &url);
    /// When the post is shown.
    [[nodiscard]] TXUpdatePostDisplayTime displayTime() const;
    /// See setTitle().
    void setDisplayTime(TXUpdatePostDisplayTime time);
    /// The post's last moment as the feed gives it; see endDate().
    [[nodiscard]] QString endDateString() const;
    /// See setTitle().
    void setEndDateString(const QString &text);
    /// The date as the feed gives it; see date().
    [[nodiscard]] QString dateString() const override;
    /// See setTitle().
    void setDateString(const QString &text);
    /// Which applications, systems and launches the post is for; absent: all.
    [[nodiscard]] std::optional<TXUpdateItemConditions> conditions() const override;
    /// See setTitle().
    void setConditions(const std::optional<TXUpdateItemConditions> &conditions);
    /// The size for the page in device-independent pixels; zero means no preference.
    [[nodiscard]] QSizeF preferredDisplaySize() const;
    /// See setTitle().
    void setPreferredDisplaySize(const QSizeF &size);

    /// `dateString` ("yyyy-MM-dd HH:mm:ss", US Pacific time) as a date; invalid for any other form.
    [[nodiscard]] QDateTime date() const override;
    /// `endDateString` as a date, in the same form; invalid if absent.
    [[nodiscard]] QDateTime endDate() const;
    /// "date" and "title" as strings. Two posts are the same if both are equal.
    [[nodiscard]] QVariantMap identifier() const;

private:
    friend struct TXUpdatePostPrivate;
    explicit TXUpdatePost(TXUpdatePostPrivate &content);
    TXUpdatePostPrivate *const d;
};

/// The feed, windows and hosts share a post.
using TXUpdatePostPtr = std::shared_ptr<TXUpdatePost>;
