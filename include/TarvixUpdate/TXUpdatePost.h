// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateItem.h>

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
    ~TXUpdatePost() override;

    [[nodiscard]] QString title() const { return m_title; }
    void setTitle(const QString &title) { m_title = title; }
    [[nodiscard]] QUrl postURL() const { return m_postURL; }
    void setPostURL(const QUrl &url) { m_postURL = url; }
    [[nodiscard]] TXUpdatePostDisplayTime displayTime() const { return m_displayTime; }
    void setDisplayTime(TXUpdatePostDisplayTime time) { m_displayTime = time; }
    [[nodiscard]] QString endDateString() const { return m_endDateString; }
    void setEndDateString(const QString &text) { m_endDateString = text; }
    [[nodiscard]] QString dateString() const override { return m_dateString; }
    void setDateString(const QString &text) { m_dateString = text; }
    [[nodiscard]] std::optional<TXUpdateItemConditions> conditions() const override { return m_conditions; }
    void setConditions(const std::optional<TXUpdateItemConditions> &conditions) { m_conditions = conditions; }
    /// Content size of the post window in device-independent pixels; the zero size is no preference.
    [[nodiscard]] QSizeF preferredDisplaySize() const { return m_preferredDisplaySize; }
    void setPreferredDisplaySize(const QSizeF &size) { m_preferredDisplaySize = size; }

    /// "yyyy-MM-dd HH:mm:ss" in US Pacific time; invalid for any other form.
    [[nodiscard]] QDateTime date() const override;
    [[nodiscard]] QDateTime endDate() const;
    /// "date" and "title" as texts: two posts are the same exactly when both are equal.
    [[nodiscard]] QVariantMap identifier() const;

private:
    QString m_title;
    QUrl m_postURL;
    TXUpdatePostDisplayTime m_displayTime = TXUpdatePostDisplayTimeDefault;
    QString m_endDateString;
    QString m_dateString;
    std::optional<TXUpdateItemConditions> m_conditions;
    QSizeF m_preferredDisplaySize{0, 0};
};

using TXUpdatePostPtr = std::shared_ptr<TXUpdatePost>;
