// SPDX-License-Identifier: Apache-2.0
// The Core error domain of ara::core.
#ifndef ARA_CORE_CORE_ERROR_DOMAIN_H
#define ARA_CORE_CORE_ERROR_DOMAIN_H

#include "ara/core/error_code.h"
#include "ara/core/error_domain.h"
#include "ara/core/exception.h"

namespace ara::core {

enum class CoreErrc : ErrorDomain::CodeType {
    kInvalidArgument = 22,
    kInvalidMetaModelShortname = 137,
    kInvalidMetaModelPath = 138,
};

class ARA_EXPORT CoreException : public Exception {
public:
    explicit CoreException(ErrorCode err) noexcept;
    ~CoreException() override;
    CoreException(const CoreException&) = default;
    CoreException& operator=(const CoreException&) = default;
};

class ARA_EXPORT CoreErrorDomain final : public ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000000014ULL;

    constexpr CoreErrorDomain() noexcept : ErrorDomain(kId) {}
    ~CoreErrorDomain() = default;

    const char* Name() const noexcept override;
    /// The table text; a code outside the table aborts with "Unknown core error".
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ErrorCode& errorCode) const noexcept(false) override;
};

ARA_EXPORT const ErrorDomain& GetCoreErrorDomain() noexcept;

inline ErrorCode MakeErrorCode(CoreErrc code, ErrorDomain::SupportDataType data) noexcept {
    return ErrorCode(static_cast<ErrorDomain::CodeType>(code), GetCoreErrorDomain(), data);
}

}  // namespace ara::core

#endif
