// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <optional>
#include <utility>

namespace tx {

/// A value, or the error that prevented it.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value)
        : m_value(std::move(value)) {}
    Result(TXError error)
        : m_error(std::move(error)) {}

    explicit operator bool() const { return m_value.has_value(); }
    const T &operator*() const { return *m_value; }
    T &operator*() { return *m_value; }
    const T *operator->() const { return &*m_value; }
    T *operator->() { return &*m_value; }
    TXError error() const { return m_error; }

private:
    std::optional<T> m_value;
    TXError m_error;
};

} // namespace tx
