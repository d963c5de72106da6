// SPDX-License-Identifier: Apache-2.0
// The Core and Future error domains of ara::core: names, message texts, exceptions.
#include "ara/core/abort.h"
#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"

namespace ara::core {
namespace {
constexpr CoreErrorDomain g_coreErrorDomain;
constexpr FutureErrorDomain g_futureErrorDomain;
}  // namespace

CoreException::CoreException(ErrorCode err) noexcept : Exception(err) {}
CoreException::~CoreException() = default;

const char* CoreErrorDomain::Name() const noexcept {
    return "Core";
}

const char* CoreErrorDomain::Message(CodeType errorCode) const noexcept {
    switch (static_cast<CoreErrc>(errorCode)) {
        case CoreErrc::kInvalidArgument:
            return "Invalid argument";
        case CoreErrc::kInvalidMetaModelShortname:
            return "Invalid meta model short name";
        case CoreErrc::kInvalidMetaModelPath:
            return "Invalid meta model path";
    }
    Abort("Unknown core error");
    return "Unknown core error";  // NOLINT: reached only if Abort could return
}

void CoreErrorDomain::ThrowAsException(const ErrorCode& errorCode) const noexcept(false) {
    throw CoreException(errorCode);
}

const ErrorDomain& GetCoreErrorDomain() noexcept {
    return g_coreErrorDomain;
}

FutureException::FutureException(ErrorCode err) noexcept : Exception(err) {}
FutureException::~FutureException() = default;

const char* FutureErrorDomain::Name() const noexcept {
    return "Future";
}

const char* FutureErrorDomain::Message(CodeType errorCode) const noexcept {
    switch (static_cast<future_errc>(errorCode)) {
        case future_errc::kBrokenPromise:
            return "broken promise";
        case future_errc::kFutureAlreadyRetrieved:
            return "future already retrieved";
        case future_errc::kPromiseAlreadySatisfied:
            return "promise already satisfied";
        case future_errc::kNoState:
            return "no state";
    }
    Abort("unknown future error");
    return "unknown future error";  // NOLINT: reached only if Abort could return
}

void FutureErrorDomain::ThrowAsException(const ErrorCode& errorCode) const noexcept(false) {
    throw FutureException(errorCode);
}

const ErrorDomain& GetFutureErrorDomain() noexcept {
    return g_futureErrorDomain;
}

}  // namespace ara::core
