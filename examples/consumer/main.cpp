// SPDX-License-Identifier: Apache-2.0
// Prints the Exec error domain's messages, builds a Function Group state, and reads a Function
// Group state through ara::exec::StateClient from an RpcServer in a child process over Cyclone
// DDS, all with the installed library; exits non-zero if anything is not as documented.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "ara/core/result.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"
#include "ara/exec/state_client.h"
#include "tarn/em/em_services.h"
#include "tarn/em/util/rpc_server.h"

namespace {

namespace services = tarn::em::services;

/// The child: a state manager service until its parent kills it. A client finds a service only
/// once every method it uses is served, so all three are: the initial transition's result and a
/// state change succeed, GetState answers the state of a Function Group.
[[noreturn]] void Serve() {
    tarn::em::util::RpcServer server("consumer/state-manager");
    services::Address(server, services::STATE_MANAGER_SERVICE);
    using Done = kelp::brio::Replier<void>;
    const bool served = server.Initialize() &&
                        server.RegisterMethod<void>(services::GetInitialMachineStateTransitionResult::ID,
                                                    [](Done reply) { reply.Reply({}); }) &&
                        server.RegisterMethod<void, ara::core::String, ara::core::String>(
                            services::SetState::ID,
                            [](Done reply, const ara::core::String&, const ara::core::String&) { reply.Reply({}); }) &&
                        server.RegisterMethod<ara::core::String, ara::core::String>(
                            services::GetState::ID,
                            [](kelp::brio::Replier<ara::core::String> reply, const ara::core::String& group) {
                                reply.Reply(ara::core::String(group == "MachineFG" ? "Running" : "Off"));
                            }) &&
                        server.OfferService();
    if (!served) {
        std::_Exit(2);
    }
    pause();
    std::_Exit(0);
}

/// The parent: asks the child for the state of MachineFG through the public state client;
/// 0 when the answer is "Running".
int Call() {
    const ara::exec::StateClient client;
    bool found = false;
    for (int attempt = 0; attempt < 20 && !found; ++attempt) {
        found = ara::exec::CommunicationProcessing();  // waits 1.4 s once, then checks for 10 ms
        if (!found) {
            usleep(200000U);
        }
    }
    if (!found) {
        std::printf("state manager service not found\n");
        return 1;
    }
    ara::core::String state;
    const auto result = client.GetState("MachineFG", state).GetResult();
    std::printf("state of MachineFG over DDS: %s\n",
                result.HasValue() ? state.c_str() : result.Error().Message().data());
    return result.HasValue() && state == "Running" ? 0 : 1;
}

/// One call across a process boundary; each run gets its own discovery tag.
int CallAcrossProcesses() {
    const std::string tag = "<Discovery><Tag>consumer-" + std::to_string(getpid()) + "</Tag></Discovery>";
    setenv("KELP_DDS_CONFIG", tag.c_str(), 1);
    const pid_t server = fork();
    if (server < 0) {
        return 1;
    }
    if (server == 0) {
        Serve();
    }
    const int result = Call();
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
    return result;
}

}  // namespace

int main() {
    const ara::core::ErrorDomain& domain = ara::exec::GetExecErrorDomain();
    std::printf("domain %s id 0x%llx\n", domain.Name(), static_cast<unsigned long long>(domain.Id()));
    int failures = 0;
    for (int code = 1; code <= 7; ++code) {
        const char* text = domain.Message(code);
        std::printf("  %d: %s\n", code, text);
        if (text[0] == '\0') {
            ++failures;
        }
    }

    static const std::string kGroup = "MachineFG";
    static const std::string kState = "Running";
    auto groupToken = ara::exec::FunctionGroup::Preconstruct(kGroup);
    if (!groupToken.HasValue()) {
        return 1;
    }
    const ara::exec::FunctionGroup group(std::move(groupToken).Value());
    auto stateToken = ara::exec::FunctionGroupState::Preconstruct(group, kState);
    if (!stateToken.HasValue()) {
        return 1;
    }
    const ara::exec::FunctionGroupState state(std::move(stateToken).Value());
    std::printf("function group state %.*s/%.*s\n",
                static_cast<int>(state.FunctionGroupMetaModel().size()),
                state.FunctionGroupMetaModel().data(),
                static_cast<int>(state.State().size()),
                state.State().data());

    try {
        ara::core::ErrorCode(ara::exec::ExecErrc::kBusy).ThrowAsException();
    } catch (const ara::exec::ExecException& e) {
        std::printf("caught ExecException: %s\n", e.what());
    }
    if (failures != 0) {
        std::printf("%d messages missing\n", failures);
        return 1;
    }
    if (CallAcrossProcesses() != 0) {
        return 1;
    }
    std::printf("consumer ok\n");
    return 0;
}
