// The execution client: the process-wide endpoint on Execution Management's application
// service, its one-time set-up, and the execution state report (method 0, arguments process
// id and state, no result).
#include "ara/exec/execution_client.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "execution_client_inner.h"
#include "tarn/em/log_em.h"
#include "tarn/em/util/rpc_client.h"

namespace ara::exec {
namespace {

using ara::quill::common::log::Log;
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;

constexpr short DOMAIN_ID = 2;
constexpr unsigned short SERVICE_ID = 57360U;  // 0xE010
constexpr const char* INSTANCE_ID = "1";
constexpr const char* REQUEST_TOPIC_NAME = "EM_RPC_REQUEST_APPLICATION";
constexpr const char* REPLY_TOPIC_NAME = "EM_RPC_REPLY_APPLICATION";
constexpr unsigned int REPORT_METHOD_ID = 0U;
// Execution Management expects this pause before every report; it is part of the protocol.
constexpr std::chrono::microseconds PAUSE_BEFORE_REPORT{50000};
constexpr std::chrono::milliseconds REPLY_WAIT{1900};

std::shared_ptr<Log> logger;
bool clientUsable = false;  // decided once, inside initOnce
std::once_flag initOnce;
bool findServiceDone = false;  // outcome of the one-time discovery wait, written inside findServiceOnce
std::once_flag findServiceOnce;
// Discovery confirmed by a later 10 ms check; concurrent reports may confirm it at once.
std::atomic<bool> serviceConfirmed{false};

/// The endpoint shared by every execution client of the process. Made on first use: its
/// members refer to constants of other translation units, which a namespace-scope object
/// could meet before they are initialised.
tarn::em::util::RpcClient& Endpoint() {
    static tarn::em::util::RpcClient client(false);
    return client;
}

void InitializeOnce() {
    Log::InitLog("", "EM", "");
    Log::InitLog("", "EMCL", "");
    Log::InitLog("", "CM", "");
    logger = Log::GetLog("EMCL");
    if (!logger->IsValid()) {
        std::cout << "get logInstanceEMCL error, logInstance is inValid in ExecutionClient " << std::endl;
    }
    if (!Endpoint().Initialize()) {
        clientUsable = false;
        logger->error() << "[ExecutionClient][Client failed to be initialized]";
    } else {
        clientUsable = true;
        if (Endpoint().InitializeMethod<void>(REPORT_METHOD_ID, false, false)) {
            logger->info() << "[ExecutionClient][Client method initialized successfully]";
        } else {
            clientUsable = false;
            logger->error() << "[ExecutionClient][Client method failed to be initialized]";
        }
    }
    inner::ExecutionClientInner::GetExecutionClientInnerInstance()->DlopenExtensionSo();
}

Outcome GeneralError() {
    return Outcome::FromError(MakeErrorCode(ExecErrc::kGeneralError, 0));
}

/// True when the service is known: after the one-time wait of the process, or once a 10 ms
/// check on this or an earlier report has seen it.
bool ServiceFound(tarn::em::util::RpcClient& endpoint) {
    endpoint.ClientFindService(findServiceOnce, findServiceDone);
    if (findServiceDone || serviceConfirmed.load()) {
        return true;
    }
    if (endpoint.CheckFindServiceResult()) {
        serviceConfirmed.store(true);
        return true;
    }
    tarn::em::GetEmLog()->error() << "[RpcClient][Service is unavailable]";
    return false;
}

/// Calls `hook` with `state`, between two log lines; `which` is "before" or "after".
void RunHook(inner::ReportHook hook, ExecutionState state, const char* which) {
    if (hook == nullptr) {
        logger->debug() << "[ExecutionClient][Hook function " << which << " report is not registered]";
        return;
    }
    logger->info() << "[ExecutionClient][Client call function to set attribute " << which << " report start]";
    hook(state);
    logger->info() << "[ExecutionClient][Client call function to set attribute " << which << " report end]";
}

}  // namespace

ExecutionClient::ExecutionClient() noexcept {
    tarn::em::util::RpcClient& endpoint = Endpoint();
    endpoint.SetDomainId(DOMAIN_ID);
    endpoint.SetServiceId(SERVICE_ID);
    endpoint.SetInstanceId(INSTANCE_ID);
    endpoint.SetRequestTopicName(REQUEST_TOPIC_NAME);
    endpoint.SetReplyTopicName(REPLY_TOPIC_NAME);
    endpoint.ReadAndSetConfigIP();
    std::call_once(initOnce, InitializeOnce);
}

ExecutionClient::~ExecutionClient() noexcept = default;

Outcome ExecutionClient::ReportExecutionState(ExecutionState state) const noexcept {
    // Read once: a process forked later still reports the id of the process that reported first.
    static const std::int32_t reportPid = static_cast<std::int32_t>(getpid());
    tarn::em::util::RpcClient& endpoint = Endpoint();
    const auto method = clientUsable ? endpoint.proxy_.GetMethodProxy<void>(REPORT_METHOD_ID) : nullptr;
    if (method == nullptr) {
        logger->error() << "[ExecutionClient][Not usable]";
        return GeneralError();
    }
    if (!ServiceFound(endpoint)) {
        return GeneralError();
    }
    const auto name = ExecutionStateNames.find(state);
    if (name == ExecutionStateNames.end()) {
        logger->error() << "[ExecutionClient][Invalid input arguments]";
        return GeneralError();
    }
    logger->info() << "[ExecutionClient][Report execution state info][state=" << name->second << "]";

    const auto hooks = inner::ExecutionClientInner::GetExecutionClientInnerInstance();
    RunHook(hooks->beforeReportHook_, state, "before");
    std::this_thread::sleep_for(PAUSE_BEFORE_REPORT);
    auto reply = method->Request(reportPid, state);
    logger->info() << "[ExecutionClient][Call method is returned on rpc client]";
    RunHook(hooks->afterReportHook_, state, "after");

    if (reply.wait_for(REPLY_WAIT) != ara::core::future_status::kReady) {
        logger->error() << "[ExecutionClient][Waiting for method time out while reporting execution state]";
        return GeneralError();
    }
    const Outcome outcome = reply.GetResult();
    if (outcome.HasValue()) {
        logger->info() << "[ExecutionClient][Report execution state successfully]";
        return outcome;
    }
    const ara::core::ErrorCode& error = outcome.Error();
    logger->error() << "[ExecutionClient][Failed to report execution state][cm_or_em_error="
                    << error.Domain().Message(error.Value()) << "]";
    logger->error() << "[ExecutionClient][Failed to report execution state]";
    return GeneralError();
}

}  // namespace ara::exec
