// SPDX-License-Identifier: Apache-2.0
// Out-of-line parts of ara::core::Exception (its vtable and type information live here).
#include "ara/core/exception.h"

namespace ara::core {

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
    return errorCode_.Domain().Message(errorCode_.Value());
}

}  // namespace ara::core
