// SPDX-License-Identifier: Apache-2.0
// ara::core::Result<T, E>: either a value of T or an error of E (ErrorCode by default).
#ifndef ARA_CORE_RESULT_H
#define ARA_CORE_RESULT_H

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "ara/core/error_code.h"

namespace ara::core {
namespace internal {
/// Writes "[CORETYPE Result] : Error, Error() called but NOT a error!" to standard error
/// and aborts with the same text.
[[noreturn]] ARA_EXPORT void ResultErrorOnValue() noexcept;
/// Writes "[CORETYPE Result] : Error, Value() called but NOT a value!" and aborts.
[[noreturn]] ARA_EXPORT void ResultValueOnError() noexcept;
}  // namespace internal

template <typename T, typename E = ErrorCode>
class Result final {
public:
    using value_type = T;
    using error_type = E;

    Result(const T& t) : data_(std::in_place_index<0>, t) {}        // NOLINT(google-explicit-constructor): AUTOSAR API
    Result(T&& t) : data_(std::in_place_index<0>, std::move(t)) {}  // NOLINT(google-explicit-constructor): AUTOSAR API
    explicit Result(const E& e) : data_(std::in_place_index<1>, e) {}
    explicit Result(E&& e) : data_(std::in_place_index<1>, std::move(e)) {}

    static Result FromValue(const T& t) { return Result(t); }
    static Result FromValue(T&& t) { return Result(std::move(t)); }
    template <typename... Args>
    static Result FromValue(Args&&... args) {
        return Result(T(std::forward<Args>(args)...));
    }
    static Result FromError(const E& e) { return Result(e); }
    static Result FromError(E&& e) { return Result(std::move(e)); }
    template <typename... Args>
    static Result FromError(Args&&... args) {
        return Result(E(std::forward<Args>(args)...));
    }

    bool HasValue() const noexcept { return data_.index() == 0U; }
    explicit operator bool() const noexcept { return HasValue(); }

    const T& Value() const& {
        if (!HasValue()) {
            internal::ResultValueOnError();
        }
        return std::get<0>(data_);
    }
    T& Value() & {
        if (!HasValue()) {
            internal::ResultValueOnError();
        }
        return std::get<0>(data_);
    }
    T&& Value() && {
        if (!HasValue()) {
            internal::ResultValueOnError();
        }
        return std::move(std::get<0>(data_));
    }
    const T& operator*() const& { return Value(); }
    T&& operator*() && { return std::move(*this).Value(); }
    const T* operator->() const { return &Value(); }

    const E& Error() const& {
        if (HasValue()) {
            internal::ResultErrorOnValue();
        }
        return std::get<1>(data_);
    }
    E&& Error() && {
        if (HasValue()) {
            internal::ResultErrorOnValue();
        }
        return std::move(std::get<1>(data_));
    }

    template <typename U>
    T ValueOr(U&& defaultValue) const& {
        return HasValue() ? std::get<0>(data_) : static_cast<T>(std::forward<U>(defaultValue));
    }
    template <typename G>
    E ErrorOr(G&& defaultError) const& {
        return HasValue() ? static_cast<E>(std::forward<G>(defaultError)) : std::get<1>(data_);
    }
    template <typename G>
    bool CheckError(G&& error) const {
        return !HasValue() && std::get<1>(data_) == static_cast<E>(std::forward<G>(error));
    }

    /// The value; an error is thrown as the exception of its domain.
    const T& ValueOrThrow() const& noexcept(false) {
        if (!HasValue()) {
            std::get<1>(data_).ThrowAsException();
        }
        return std::get<0>(data_);
    }
    T ValueOrThrow() && noexcept(false) {
        if (!HasValue()) {
            std::get<1>(data_).ThrowAsException();
        }
        return std::move(std::get<0>(data_));
    }

private:
    std::variant<T, E> data_;
};

/// Result without a value: success or an error.
template <typename E>
class Result<void, E> final {
public:
    using value_type = void;
    using error_type = E;

    Result() noexcept = default;
    explicit Result(const E& e) : error_(e) {}
    explicit Result(E&& e) : error_(std::move(e)) {}

    static Result FromValue() noexcept { return Result(); }
    static Result FromError(const E& e) { return Result(e); }
    static Result FromError(E&& e) { return Result(std::move(e)); }
    template <typename... Args>
    static Result FromError(Args&&... args) {
        return Result(E(std::forward<Args>(args)...));
    }

    bool HasValue() const noexcept { return !error_.has_value(); }
    explicit operator bool() const noexcept { return HasValue(); }
    void Value() const {
        if (!HasValue()) {
            internal::ResultValueOnError();
        }
    }

    const E& Error() const& {
        if (HasValue()) {
            internal::ResultErrorOnValue();
        }
        return *error_;
    }
    template <typename G>
    bool CheckError(G&& error) const {
        return !HasValue() && *error_ == static_cast<E>(std::forward<G>(error));
    }
    void ValueOrThrow() const noexcept(false) {
        if (!HasValue()) {
            error_->ThrowAsException();
        }
    }

private:
    std::optional<E> error_;
};

}  // namespace ara::core

#endif
