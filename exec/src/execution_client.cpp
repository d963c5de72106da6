// SPDX-License-Identifier: Apache-2.0
// The execution client: the process-wide endpoint on Execution Management's application
// service, its one-time set-up, and the execution state report (method 0, arguments process
// id and state, no result).
#include "ara/exec/execution_client.h"

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "client_endpoint.h"
#include "execution_client_inner.h"

namespace ara::exec {
namespace {

using ara::quill::common::log::Log;
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;

/// The endpoint shared by every execution client of the process, made on first use.
detail::ClientEndpoint& Shared() {
    static detail::ClientEndpoint endpoint;
    return endpoint;
}

std::shared_ptr<Log> Logger() {
    return Shared().Logger();
}

void InitializeOnce() {
    detail::ClientEndpoint& shared = Shared();
    if (shared.StartTransport("ExecutionClient",
                              "get logInstanceEMCL error, logInstance is inValid in ExecutionClient ")) {
        shared.FinishSetUp("ExecutionClient", shared.Bind<tarn::em::services::ReportExecutionState>());
    }
    inner::ExecutionClientInner::GetExecutionClientInnerInstance()->DlopenExtensionSo();
}

Outcome GeneralError() {
    return Outcome::FromError(MakeErrorCode(ExecErrc::kGeneralError, 0));
}

/// Calls `hook` with `state`, between two log lines; `which` is "before" or "after".
void RunHook(inner::ReportHook hook, ExecutionState state, const char* which) {
    if (hook == nullptr) {
        Logger()->debug() << "[ExecutionClient][Hook function " << which << " report is not registered]";
        return;
    }
    Logger()->info() << "[ExecutionClient][Client call function to set attribute " << which << " report start]";
    hook(state);
    Logger()->info() << "[ExecutionClient][Client call function to set attribute " << which << " report end]";
}

}  // namespace

ExecutionClient::ExecutionClient() noexcept {
    Shared().Construct(tarn::em::services::APPLICATION_SERVICE, InitializeOnce);
}

ExecutionClient::~ExecutionClient() noexcept = default;

Outcome ExecutionClient::ReportExecutionState(ExecutionState state) const noexcept {
    // Read once: a process forked later still reports the id of the process that reported first.
    static const std::int32_t reportPid = static_cast<std::int32_t>(getpid());
    const auto method = Shared().Usable()
                            ? Shared().Rpc().proxy_.GetMethodProxy<void>(tarn::em::services::ReportExecutionState::ID)
                            : nullptr;
    if (method == nullptr) {
        Logger()->error() << "[ExecutionClient][Not usable]";
        return GeneralError();
    }
    if (!Shared().ServiceFound()) {
        return GeneralError();
    }
    const auto name = ExecutionStateNames.find(state);
    if (name == ExecutionStateNames.end()) {
        Logger()->error() << "[ExecutionClient][Invalid input arguments]";
        return GeneralError();
    }
    Logger()->info() << "[ExecutionClient][Report execution state info][state=" << name->second << "]";

    const auto hooks = inner::ExecutionClientInner::GetExecutionClientInnerInstance();
    RunHook(hooks->beforeReportHook_, state, "before");
    std::this_thread::sleep_for(detail::PAUSE_BEFORE_REQUEST);
    auto reply = method->Request(reportPid, state);
    Logger()->info() << "[ExecutionClient][Call method is returned on rpc client]";
    RunHook(hooks->afterReportHook_, state, "after");

    if (reply.wait_for(detail::REPLY_WAIT) != ara::core::future_status::kReady) {
        Logger()->error() << "[ExecutionClient][Waiting for method time out while reporting execution state]";
        return GeneralError();
    }
    const Outcome outcome = reply.GetResult();
    if (outcome.HasValue()) {
        Logger()->info() << "[ExecutionClient][Report execution state successfully]";
        return outcome;
    }
    const ara::core::ErrorCode& error = outcome.Error();
    Logger()->error() << "[ExecutionClient][Failed to report execution state][cm_or_em_error="
                      << error.Domain().Message(error.Value()) << "]";
    Logger()->error() << "[ExecutionClient][Failed to report execution state]";
    return GeneralError();
}

}  // namespace ara::exec
