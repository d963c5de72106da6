// SPDX-License-Identifier: Apache-2.0
// ara::core::ErrorDomain: the base of every error domain.
#ifndef ARA_CORE_ERROR_DOMAIN_H
#define ARA_CORE_ERROR_DOMAIN_H

#include <cstdint>

#include "ara/core/internal/export.h"

namespace ara::core {

class ErrorCode;

/// A family of error codes, identified by a 64-bit id. Domains are process-wide constants;
/// two domain objects are equal when their ids are equal.
class ARA_EXPORT ErrorDomain {
public:
    using IdType = std::uint64_t;
    using CodeType = std::int32_t;
    using SupportDataType = std::int32_t;

    ErrorDomain(const ErrorDomain&) = delete;
    ErrorDomain(ErrorDomain&&) = delete;
    ErrorDomain& operator=(const ErrorDomain&) = delete;
    ErrorDomain& operator=(ErrorDomain&&) = delete;

    // Virtual slots, in this order: Name, Message, ThrowAsException.
    virtual const char* Name() const noexcept = 0;
    virtual const char* Message(CodeType errorCode) const noexcept = 0;
    /// Throws the exception type of this domain holding `errorCode`.
    [[noreturn]] virtual void ThrowAsException(const ErrorCode& errorCode) const noexcept(false) = 0;

    constexpr IdType Id() const noexcept { return id_; }
    constexpr bool operator==(const ErrorDomain& other) const noexcept { return id_ == other.id_; }
    constexpr bool operator!=(const ErrorDomain& other) const noexcept { return id_ != other.id_; }

protected:
    constexpr explicit ErrorDomain(IdType id) noexcept : id_(id) {}
    ~ErrorDomain() = default;

private:
    const IdType id_;
};

}  // namespace ara::core

#endif
