// The Exec, Core and Future error domains: names, message tables, exceptions.
#include "ara/exec/exec_error_domain.h"

#include <map>
#include <mutex>
#include <string>

#include "ara/core/abort.h"
#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"

namespace ara::exec {
namespace {
constexpr ExecErrorDomain g_execErrorDomain;
}  // namespace

ExecException::ExecException(ara::core::ErrorCode errorCode) noexcept : ara::core::Exception(errorCode) {}
ExecException::~ExecException() = default;

const char* ExecErrorDomain::Name() const noexcept {
    return "Exec";
}

const char* ExecErrorDomain::Message(CodeType errorCode) const noexcept {
    static std::map<CodeType, std::string> mapCode{
        {static_cast<CodeType>(ExecErrc::kGeneralError), "Some unspecified error occurred"},
        {static_cast<CodeType>(ExecErrc::kInvalidArguments), "Invalid argument was passed"},
        {static_cast<CodeType>(ExecErrc::kCommunicationError), "Communication error occurred"},
        {static_cast<CodeType>(ExecErrc::kMetaModelError), "Wrong meta model identifier passed to a function"},
        {static_cast<CodeType>(ExecErrc::kCancelled),
         "Transition to the requested Function Group state was cancelled by a newer request"},
        {static_cast<CodeType>(ExecErrc::kFailed), "Transition to the requested Function Group state failed"},
        {static_cast<CodeType>(ExecErrc::kBusy),
         "Execution Management is busy and cannot provide requested information"},
    };
    // An unknown code gets an empty entry, so the table grows by one per new code. The
    // lock only keeps concurrent first lookups of new codes from racing on the map; map
    // nodes never move, so the returned text stays valid.
    static std::mutex mapMutex;
    const std::lock_guard<std::mutex> lock(mapMutex);
    return mapCode[errorCode].c_str();
}

void ExecErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw ExecException(errorCode);
}

const ara::core::ErrorDomain& GetExecErrorDomain() noexcept {
    return g_execErrorDomain;
}

}  // namespace ara::exec

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
