// Method handlers of the three services, each a thin hand-over to the event loop.
#include "services.h"

#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"

namespace tarn::em::daemon {

namespace {

using ara::core::String;
using kelp::brio::Replier;
using tarn::em::util::RpcServer;

struct Endpoint {
    const char* name;
    short domainId;
    unsigned short serviceId;
    const char* request;
    const char* reply;
};

constexpr Endpoint APPLICATION{"emd/application", 2, 57360U, "EM_RPC_REQUEST_APPLICATION", "EM_RPC_REPLY_APPLICATION"};
constexpr Endpoint STATE_MANAGER{
    "emd/state-manager", 4, 57361U, "EM_RPC_REQUEST_STATE_MANAGER", "EM_RPC_REPLY_STATE_MANAGER"};
constexpr Endpoint HEALTH_MANAGER{
    "emd/health-manager", 4, 57362U, "EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER", "EM_RPC_REPLY_PLATFORM_HEALTH_MANAGER"};

std::unique_ptr<RpcServer> MakeServer(const Endpoint& endpoint) {
    auto server = std::make_unique<RpcServer>(endpoint.name);
    server->SetDomainId(endpoint.domainId);
    server->SetServiceId(endpoint.serviceId);
    server->SetInstanceId("1");
    server->SetRequestTopicName(endpoint.request);
    server->SetReplyTopicName(endpoint.reply);
    server->ReadAndSetConfigIP();
    return server;
}

/// A completion that answers a void call.
Completion ReplyWith(const Replier<void>& replier) {
    return [replier](const Outcome& outcome) { replier.Reply(outcome); };
}

}  // namespace

Services::Services(EventLoop& loop) : loop_(loop) {}

bool Services::Offer(std::string& error) {
    application_ = MakeServer(APPLICATION);
    stateManager_ = MakeServer(STATE_MANAGER);
    healthManager_ = MakeServer(HEALTH_MANAGER);
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
