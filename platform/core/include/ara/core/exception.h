// SPDX-License-Identifier: Apache-2.0
// ara::core::Exception: the base of every domain's exception type.
#ifndef ARA_CORE_EXCEPTION_H
#define ARA_CORE_EXCEPTION_H

#include <exception>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"

namespace ara::core {

class ARA_EXPORT Exception : public std::exception {
public:
    explicit Exception(ErrorCode err) noexcept : errorCode_(err) {}
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    const ErrorCode& Error() const noexcept { return errorCode_; }
    /// The domain's message text for the held code.
    const char* what() const noexcept override;

private:
    ErrorCode errorCode_;
};

}  // namespace ara::core

#endif
