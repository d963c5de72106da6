// SPDX-License-Identifier: Apache-2.0
// The Exec error domain: name, message table, exception. A process that holds this domain
// also makes its codes those that an RPC client built without codes of its own reports.
#include "ara/exec/exec_error_domain.h"

#include <map>
#include <mutex>
#include <string>

#include "tarn/em/em_services.h"

namespace ara::exec {
namespace {
constexpr ExecErrorDomain g_execErrorDomain;
const bool g_rpcDefaultCodesInstalled =
    (tarn::em::util::RpcErrorCodes::SetDefault(tarn::em::services::ErrorCodes()), true);
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
