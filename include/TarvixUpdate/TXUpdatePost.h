// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateItem.h>

#include <QSharedDataPointer>
#include <QSizeF>
#include <QUrl>
#include <QVariantMap>

#include <memory>

/// When a post is shown.
enum TXUpdatePostDisplayTime : int {
    TXUpdatePostDisplayTimeDefault = 0, ///< right after a feed has been applied
    TXUpdatePostDisplayTimeAtQuit = 1,
    TXUpdatePostDisplayTimePassive = 2, ///< when the application asks for it
};

/// "atQuit" and "passive", exactly; everything else is the default.
[[nodiscard]] TX_EXPORT TXUpdatePostDisplayTime TXUpdatePostDisplayTimeFromString(const QString &text);

/// A short news page. Thread: filled by a reader, then used on the main thread.
class TX_EXPORT TXUpdatePost final : public TXUpdateItem {
public:
    TXUpdatePost();
    /// For the framework's readers: what the feed says.
    explicit TXUpdatePost(tx::PackedEntry entry);
    TXUpdatePost(const TXUpdatePost &);
    TXUpdatePost &operator=(const TXUpdatePost &);
    ~TXUpdatePost() override;

    [[nodiscard]] QString title() const;
    void setTitle(const QString &title);
    [[nodiscard]] QUrl postURL() const;
    void setPostURL(const QUrl &url);
    [[nodiscard]] TXUpdatePostDisplayTime displayTime() const;
    void setDisplayTime(TXUpdatePostDisplayTime time);
    [[nodiscard]] QString endDateString() const;
    void setEndDateString(const QString &text);
    [[nodiscard]] QString dateString() const override;
    void setDateString(const QString &text);
    [[nodiscard]] std::optional<TXUpdateItemConditions> conditions() const override;
    void setConditions(const std::optional<TXUpdateItemConditions> &conditions);
    /// Content size of the post window in device-independent pixels; the zero size is no preference.
    [[nodiscard]] QSizeF preferredDisplaySize() const;
    void setPreferredDisplaySize(const QSizeF &size);

    /// "yyyy-MM-dd HH:mm:ss" in US Pacific time; invalid for any other form.
    [[nodiscard]] QDateTime date() const override;
    [[nodiscard]] QDateTime endDate() const;
    /// "date" and "title" as texts: two posts are the same exactly when both are equal.
    [[nodiscard]] QVariantMap identifier() const;

private:
    struct Private;
    /// All that the post says, in place of the feed's text once something is stored.
    Private &own();

    tx::PackedEntry m_packed;
    QSharedDataPointer<Private> d; ///< null while the feed's text counts
};

using TXUpdatePostPtr = std::shared_ptr<TXUpdatePost>;
