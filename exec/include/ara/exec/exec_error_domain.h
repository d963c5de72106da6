// SPDX-License-Identifier: Apache-2.0
// The Exec error domain: codes of Execution Management, their messages and exception.
#ifndef ARA_EXEC_EXEC_ERROR_DOMAIN_H
#define ARA_EXEC_EXEC_ERROR_DOMAIN_H

#include <cstdint>

#include "ara/core/error_code.h"
#include "ara/core/error_domain.h"
#include "ara/core/exception.h"

namespace ara::exec {

enum class ExecErrc : ara::core::ErrorDomain::CodeType {
    kGeneralError = 1,
    kInvalidArguments = 2,
    kCommunicationError = 3,
    kMetaModelError = 4,
    kCancelled = 5,
    kFailed = 6,
    kBusy = 7,
};

/// Exception thrown for an Exec error code; what() is the domain's message of the code.
class ARA_EXPORT ExecException : public ara::core::Exception {
public:
    explicit ExecException(ara::core::ErrorCode errorCode) noexcept;
    ~ExecException() override;
    ExecException(const ExecException&) = default;
    ExecException& operator=(const ExecException&) = default;
};

class ARA_EXPORT ExecErrorDomain final : public ara::core::ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000000300ULL;

    constexpr ExecErrorDomain() noexcept : ErrorDomain(kId) {}
    ~ExecErrorDomain() = default;

    const char* Name() const noexcept override;
    /// The table text of `errorCode`. A code outside the table yields "" and is added to
    /// the table with that empty text.
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) override;
};

/// The process-wide Exec domain object.
ARA_EXPORT const ara::core::ErrorDomain& GetExecErrorDomain() noexcept;

inline ara::core::ErrorCode MakeErrorCode(ExecErrc code, ara::core::ErrorDomain::SupportDataType data) noexcept {
    return ara::core::ErrorCode(static_cast<ara::core::ErrorDomain::CodeType>(code), GetExecErrorDomain(), data);
}

}  // namespace ara::exec

#endif
