// SPDX-License-Identifier: Apache-2.0
// Method handlers of the four services, each a thin hand-over to the event loop.
#include "services.h"

#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "ara/quill/common/log/log.h"
#include "status_json.h"
#include "tarn/em/em_services.h"
#include "tarn/em/emd_status_service.h"

namespace tarn::em::daemon {

namespace {

using ara::core::String;
using kelp::brio::Replier;
using tarn::em::util::RpcServer;

namespace services = tarn::em::services;

std::unique_ptr<RpcServer> MakeServer(const char* name, const services::ServiceAddress& address) {
    auto server = std::make_unique<RpcServer>(name);
    services::Address(*server, address);
    return server;
}

/// A completion that answers a void call.
Completion ReplyWith(const Replier<void>& replier) {
    return [replier](const Outcome& outcome) { replier.Reply(outcome); };
}

using JsonResult = ara::core::Result<String, ara::core::ErrorCode>;

/// The answer to a status request that names no process or group emd knows.
JsonResult Unknown(const char* what, const std::string& name) {
    // The name is the caller's: escaped and cut short in the log.
    ara::quill::common::log::Log::GetLog("EMD")->warn()
        << "[Status][Unknown " << what << "][name=" << JsonString(std::string_view(name).substr(0U, 128U)) << "]";
    return JsonResult::FromError(ara::exec::MakeErrorCode(ara::exec::ExecErrc::kInvalidArguments, 0));
}

/// Serves emd's own service: each answer is read from the supervisor on the event loop.
bool ServeStatus(RpcServer& server, EventLoop& loop) {
    return services::Serve<services::GetProcessStatus>(
               server,
               [&loop](Replier<String> replier, const String& name) {
                   loop.Post([replier, name](Supervisor& s) {
                       const auto status = s.StatusOf(name, Clock::now());
                       replier.Reply(status ? JsonResult(String(ProcessStatusJson(*status)))
                                            : Unknown("process", name));
                   });
               }) &&
           services::Serve<services::GetGroupStatus>(
               server,
               [&loop](Replier<String> replier, const String& name) {
                   loop.Post([replier, name](Supervisor& s) {
                       const auto status = s.GroupStatusOf(name);
                       replier.Reply(status ? JsonResult(String(GroupStatusJson(*status)))
                                            : Unknown("function group", name));
                   });
               }) &&
           services::Serve<services::GetBlame>(
               server,
               [&loop](Replier<String> replier, const String& group) {
                   loop.Post([replier, group](Supervisor& s) {
                       if (!group.empty() && !s.GroupStatusOf(group)) {
                           replier.Reply(Unknown("function group", group));
                           return;
                       }
                       replier.Reply(JsonResult(String(BlameJson(group, s.Blame(group)))));
                   });
               }) &&
           services::Serve<services::GetDependencies>(server, [&loop](Replier<String> replier) {
               loop.Post([replier](Supervisor& s) { replier.Reply(JsonResult(String(DependenciesJson(s.Config())))); });
           });
}

}  // namespace

Services::Services(EventLoop& loop) : loop_(loop) {}

bool Services::Offer(std::string& error) {
    application_ = MakeServer("emd/application", services::APPLICATION_SERVICE);
    stateManager_ = MakeServer("emd/state-manager", services::STATE_MANAGER_SERVICE);
    healthManager_ = MakeServer("emd/health-manager", services::HEALTH_MANAGER_SERVICE);
    status_ = MakeServer("emd/status", services::EMD_STATUS_SERVICE);
    if (!application_->Initialize()) {
        error = "the DDS transport does not start";
        return false;
    }
    EventLoop& loop = loop_;
    const bool served =
        services::Serve<services::ReportExecutionState>(
            *application_,
            [&loop](Replier<void> replier, const int& pid, const ara::exec::ExecutionState& state) {
                loop.Post([replier, pid, state](Supervisor& s) { replier.Reply(s.Report(pid, state, Clock::now())); });
            }) &&
        services::Serve<services::GetInitialMachineStateTransitionResult>(
            *stateManager_,
            [&loop](Replier<void> replier) {
                loop.Post([replier](Supervisor& s) { s.GetInitialResult(ReplyWith(replier)); });
            }) &&
        services::Serve<services::SetState>(*stateManager_,
                                            [&loop](Replier<void> replier, const String& group, const String& state) {
                                                loop.Post([replier, group, state](Supervisor& s) {
                                                    s.SetState(group, state, ReplyWith(replier), Clock::now());
                                                });
                                            }) &&
        services::Serve<services::GetState>(
            *stateManager_,
            [&loop](Replier<String> replier, const String& group) {
                loop.Post([replier, group](Supervisor& s) { replier.Reply(s.GetState(group)); });
            }) &&
        services::Serve<services::ProcessRestart>(*healthManager_,
                                                  [&loop](Replier<void> replier, const String& name, const bool& kill) {
                                                      loop.Post([replier, name, kill](Supervisor& s) {
                                                          s.Restart(name, kill, ReplyWith(replier), Clock::now());
                                                      });
                                                  }) &&
        services::Serve<services::GetProcessStates>(
            *healthManager_,
            [&loop](Replier<std::vector<ara::exec::Process>> replier, const String&) {
                loop.Post([replier](Supervisor& s) {
                    replier.Reply(ara::core::Result<std::vector<ara::exec::Process>>(s.ProcessStates()));
                });
            }) &&
        services::Serve<services::GetProcessName>(
            *healthManager_,
            [&loop](Replier<String> replier, const int& pid) {
                loop.Post([replier, pid](Supervisor& s) { replier.Reply(s.ProcessName(pid)); });
            }) &&
        ServeStatus(*status_, loop);
    if (!served) {
        error = "a method cannot be served";
        return false;
    }
    if (!application_->OfferService() || !stateManager_->OfferService() || !healthManager_->OfferService() ||
        !status_->OfferService()) {
        error = "a service cannot be offered";
        return false;
    }
    return true;
}

}  // namespace tarn::em::daemon
