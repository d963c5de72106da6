// Method handlers of the three services, each a thin hand-over to the event loop.
#include "services.h"

#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "service_address.h"

namespace tarn::em::daemon {

namespace {

using ara::core::String;
using kelp::brio::Replier;
using tarn::em::util::RpcServer;

std::unique_ptr<RpcServer> MakeServer(const char* name, const ara::exec::detail::ServiceAddress& address) {
    auto server = std::make_unique<RpcServer>(name);
    ara::exec::detail::Address(*server, address);
    return server;
}

/// A completion that answers a void call.
Completion ReplyWith(const Replier<void>& replier) {
    return [replier](const Outcome& outcome) { replier.Reply(outcome); };
}

}  // namespace

Services::Services(EventLoop& loop) : loop_(loop) {}

bool Services::Offer(std::string& error) {
    application_ = MakeServer("emd/application", ara::exec::detail::APPLICATION_SERVICE);
    stateManager_ = MakeServer("emd/state-manager", ara::exec::detail::STATE_MANAGER_SERVICE);
    healthManager_ = MakeServer("emd/health-manager", ara::exec::detail::HEALTH_MANAGER_SERVICE);
    if (!application_->Initialize()) {
        error = "the DDS transport does not start";
        return false;
    }
    EventLoop& loop = loop_;
    const bool served =
        application_->RegisterMethod<void, int, ara::exec::ExecutionState>(
            0U,
            [&loop](Replier<void> replier, const int& pid, const ara::exec::ExecutionState& state) {
                loop.Post([replier, pid, state](Supervisor& s) { replier.Reply(s.Report(pid, state, Clock::now())); });
            }) &&
        stateManager_->RegisterMethod<void>(
            1U,
            [&loop](Replier<void> replier) {
                loop.Post([replier](Supervisor& s) { s.GetInitialResult(ReplyWith(replier)); });
            }) &&
        stateManager_->RegisterMethod<void, String, String>(
            2U,
            [&loop](Replier<void> replier, const String& group, const String& state) {
                loop.Post([replier, group, state](Supervisor& s) {
                    s.SetState(group, state, ReplyWith(replier), Clock::now());
                });
            }) &&
        stateManager_->RegisterMethod<String, String>(
            6U,
            [&loop](Replier<String> replier, const String& group) {
                loop.Post([replier, group](Supervisor& s) { replier.Reply(s.GetState(group)); });
            }) &&
        healthManager_->RegisterMethod<void, String, bool>(
            3U,
            [&loop](Replier<void> replier, const String& name, const bool& kill) {
                loop.Post(
                    [replier, name, kill](Supervisor& s) { s.Restart(name, kill, ReplyWith(replier), Clock::now()); });
            }) &&
        healthManager_->RegisterMethod<std::vector<ara::exec::Process>, String>(
            4U,
            [&loop](Replier<std::vector<ara::exec::Process>> replier, const String&) {
                loop.Post([replier](Supervisor& s) {
                    replier.Reply(ara::core::Result<std::vector<ara::exec::Process>>(s.ProcessStates()));
                });
            }) &&
        healthManager_->RegisterMethod<String, int>(5U, [&loop](Replier<String> replier, const int& pid) {
            loop.Post([replier, pid](Supervisor& s) { replier.Reply(s.ProcessName(pid)); });
        });
    if (!served) {
        error = "a method cannot be served";
        return false;
    }
    if (!application_->OfferService() || !stateManager_->OfferService() || !healthManager_->OfferService()) {
        error = "a service cannot be offered";
        return false;
    }
    return true;
}

}  // namespace tarn::em::daemon
