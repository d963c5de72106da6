// SPDX-License-Identifier: Apache-2.0
// The Future error domain of ara::core.
#ifndef ARA_CORE_FUTURE_ERROR_DOMAIN_H
#define ARA_CORE_FUTURE_ERROR_DOMAIN_H

#include <cstdint>

#include "ara/core/error_code.h"
#include "ara/core/error_domain.h"
#include "ara/core/exception.h"

namespace ara::core {

enum class future_errc : std::int32_t {  // NOLINT(readability-identifier-naming): AUTOSAR name
    kBrokenPromise = 101,
    kFutureAlreadyRetrieved = 102,
    kPromiseAlreadySatisfied = 103,
    kNoState = 104,
};

class ARA_EXPORT FutureException : public Exception {
public:
    explicit FutureException(ErrorCode err) noexcept;
    ~FutureException() override;
    FutureException(const FutureException&) = default;
    FutureException& operator=(const FutureException&) = default;
};

class ARA_EXPORT FutureErrorDomain final : public ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000000013ULL;

    constexpr FutureErrorDomain() noexcept : ErrorDomain(kId) {}
    ~FutureErrorDomain() = default;

    const char* Name() const noexcept override;
    /// The table text; a code outside the table aborts with "unknown future error".
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ErrorCode& errorCode) const noexcept(false) override;
};

ARA_EXPORT const ErrorDomain& GetFutureErrorDomain() noexcept;

inline ErrorCode MakeErrorCode(future_errc code, ErrorDomain::SupportDataType data) noexcept {
    return ErrorCode(static_cast<ErrorDomain::CodeType>(code), GetFutureErrorDomain(), data);
}

}  // namespace ara::core

#endif
