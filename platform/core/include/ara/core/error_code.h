// SPDX-License-Identifier: Apache-2.0
// ara::core::ErrorCode: a code value of some domain plus a support-data word.
#ifndef ARA_CORE_ERROR_CODE_H
#define ARA_CORE_ERROR_CODE_H

#include <exception>
#include <type_traits>

#include "ara/core/error_domain.h"
#include "ara/core/string_view.h"

namespace ara::core {

class ErrorCode final {
public:
    /// From an enumerator of a domain: uses the MakeErrorCode overload found next to the
    /// enumeration (argument-dependent lookup).
    template <typename EnumT, typename = std::enable_if_t<std::is_enum<EnumT>::value>>
    constexpr ErrorCode(EnumT e, ErrorDomain::SupportDataType data = 0) noexcept : ErrorCode(MakeErrorCode(e, data)) {}

    constexpr ErrorCode(ErrorDomain::CodeType value,
                        const ErrorDomain& domain,
                        ErrorDomain::SupportDataType data = 0) noexcept
        : value_(value), supportData_(data), domain_(&domain) {}

    constexpr ErrorDomain::CodeType Value() const noexcept { return value_; }
    constexpr ErrorDomain::SupportDataType SupportData() const noexcept { return supportData_; }
    constexpr const ErrorDomain& Domain() const noexcept { return *domain_; }

    /// The domain's message text for this code.
    StringView Message() const noexcept { return domain_->Message(value_); }

    [[noreturn]] void ThrowAsException() const noexcept(false) {
        domain_->ThrowAsException(*this);
        std::terminate();  // a domain's ThrowAsException always throws
    }

    /// Equal when domain and value are equal; support data is not compared.
    friend constexpr bool operator==(const ErrorCode& lhs, const ErrorCode& rhs) noexcept {
        return lhs.Domain() == rhs.Domain() && lhs.value_ == rhs.value_;
    }
    friend constexpr bool operator!=(const ErrorCode& lhs, const ErrorCode& rhs) noexcept { return !(lhs == rhs); }

private:
    ErrorDomain::CodeType value_;
    ErrorDomain::SupportDataType supportData_;
    const ErrorDomain* domain_;
};

}  // namespace ara::core

#endif
