// SPDX-License-Identifier: Apache-2.0
// A scripted Execution Management server for tests: serves the application, state manager
// and health manager services over DDS, each method answering as the command line says.
//
//   em_test_server [--method ID=BEHAVIOUR]...
//   BEHAVIOUR: ok | value:TEXT | list:N | echo | error:exec|com|HEXDOMAIN:CODE | none
//              | exit (mid-call) | garbage (a 1-byte reply) | twice (an empty reply, sent twice)
//
// Prints "ready" once every service is offered, and "call ID ARGS" for each call of a method
// that does not echo (echo calls come in bursts of thousands, which would fill a pipe nobody
// reads); runs until SIGTERM, SIGINT or the end of its standard input.
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/driver/driver.h"
#include "tarn/em/em_services.h"
#include "tarn/em/util/rpc_server.h"

namespace {

using ara::core::ErrorCode;
using ara::core::String;
using kelp::brio::Replier;
using Processes = std::vector<ara::exec::Process>;
namespace services = tarn::em::services;

std::map<unsigned int, std::string> g_behaviour;
std::mutex g_outputMutex;

void Print(const std::string& line) {
    const std::lock_guard<std::mutex> lock(g_outputMutex);
    std::cout << line << std::endl;
}

ErrorCode MakeError(const std::string& spec) {
    const auto colon = spec.find(':');
    const std::string domain = spec.substr(0, colon);
    const int code = std::stoi(spec.substr(colon + 1U));
    if (domain == "exec") {
        return ErrorCode(static_cast<ara::exec::ExecErrc>(code), 0);
    }
    if (domain == "com") {
        return ErrorCode(static_cast<kelp::brio::api::types::ComErrc>(code), 0);
    }
    return ErrorCode(code, *kelp::brio::api::types::GetDynamicErrorDomain(std::stoull(domain, nullptr, 16)), 0);
}

template <typename R>
ara::core::Result<R> Value(const std::string& behaviour, const std::string& echo) {
    if constexpr (std::is_same_v<R, String>) {
        return behaviour == "echo" ? echo : (behaviour.rfind("value:", 0) == 0 ? behaviour.substr(6U) : "Running");
    } else if constexpr (std::is_same_v<R, Processes>) {
        const std::size_t count = behaviour.rfind("list:", 0) == 0 ? std::stoul(behaviour.substr(5U)) : 1U;
        return Processes(count, ara::exec::Process{"app", "MachineFG", "Running", "kRunning", true});
    } else {
        return {};
    }
}

/// Answers one call of `methodId` as scripted; `echo` is the call's first text argument.
template <typename R>
void Answer(unsigned int methodId, const Replier<R>& replier, const std::string& args, const std::string& echo) {
    const std::string behaviour = g_behaviour.count(methodId) != 0U ? g_behaviour[methodId] : "ok";
    if (behaviour != "echo") {
        Print("call " + std::to_string(methodId) + " " + args);
    }
    if (behaviour == "none") {
        return;
    }
    if (behaviour == "exit") {
        std::_Exit(3);
    }
    if (behaviour.rfind("error:", 0) == 0) {
        replier.Reply(ara::core::Result<R>(MakeError(behaviour.substr(6U))));
    } else {
        replier.Reply(Value<R>(behaviour, echo));
    }
}

std::unique_ptr<tarn::em::util::RpcServer> MakeServer(const services::ServiceAddress& service) {
    auto server =
        std::make_unique<tarn::em::util::RpcServer>(std::string("em_test_server/") + service.requestTopicName);
    services::Address(*server, service);
    return server;
}

std::string ToText(const std::string& v) {
    return v;
}
std::string ToText(int v) {
    return std::to_string(v);
}
std::string ToText(bool v) {
    return v ? "true" : "false";
}
std::string ToText(ara::exec::ExecutionState v) {
    return std::to_string(static_cast<int>(v));
}

/// Replies no well-behaved server sends go around the skeleton, straight to the transport:
/// a 1-byte payload for any method ("garbage"), or the scripted answer written twice.
bool ServeRaw(const tarn::em::util::RpcServer& server, unsigned int methodId) {
    const auto transport = kelp::brio::driver::GetDriver(kelp::brio::api::types::DriverType::DDS);
    auto handler = transport ? transport->CreateMethodServerHandler(server.MakeMethodInfo(methodId)) : nullptr;
    if (!handler) {
        return false;
    }
    const bool twice = g_behaviour[methodId] == "twice";
    const std::weak_ptr<kelp::brio::driver::MethodServerHandler> weak = handler;
    handler->RegisterRequestCallback(
        [weak, methodId, twice](const std::shared_ptr<kelp::brio::api::types::MethodMsg>& request) {
            const auto self = weak.lock();
            if (!self) {
                return;
            }
            Print("call " + std::to_string(methodId) + (twice ? " twice" : " garbage"));
            const unsigned char garbage[1] = {0x7F};
            for (int i = 0; i < (twice ? 2 : 1); ++i) {
                (void)self->SendReply(*request, twice ? nullptr : garbage, twice ? 0U : 1U, false);
            }
        });
    static std::vector<std::shared_ptr<kelp::brio::driver::MethodServerHandler>> kept;
    kept.push_back(std::move(handler));
    return true;
}

/// Serves method M of the contract with the behaviour scripted for its id.
template <typename M>
bool Serve(tarn::em::util::RpcServer& server) {
    using R = typename M::Result;
    const unsigned int methodId = M::ID;
    const std::string behaviour = g_behaviour.count(methodId) != 0U ? g_behaviour[methodId] : "ok";
    if (behaviour == "garbage" || behaviour == "twice") {
        return ServeRaw(server, methodId);
    }
    return services::Serve<M>(server, [methodId](Replier<R> replier, const auto&... args) {
        std::string text;
        std::string echo;
        ((text += ToText(args) + " "), ...);
        ((echo = echo.empty() ? ToText(args) : echo), ...);
        Answer<R>(methodId, replier, text, echo);
    });
}

volatile std::sig_atomic_t g_stop = 0;

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const std::string value = argv[i + 1];
        const auto equals = value.find('=');
        if (option != "--method" || equals == std::string::npos) {
            std::cerr << "usage: em_test_server [--method ID=BEHAVIOUR]...\n";
            return 2;
        }
        g_behaviour[static_cast<unsigned int>(std::stoul(value.substr(0, equals)))] = value.substr(equals + 1U);
    }
    std::signal(SIGTERM, [](int) { g_stop = 1; });
    std::signal(SIGINT, [](int) { g_stop = 1; });

    auto app = MakeServer(services::APPLICATION_SERVICE);
    auto sm = MakeServer(services::STATE_MANAGER_SERVICE);
    auto phm = MakeServer(services::HEALTH_MANAGER_SERVICE);
    if (!app->Initialize()) {
        std::cerr << "em_test_server: the DDS transport does not start\n";
        return 1;
    }
    const bool served =
        Serve<services::ReportExecutionState>(*app) && Serve<services::GetInitialMachineStateTransitionResult>(*sm) &&
        Serve<services::SetState>(*sm) && Serve<services::GetState>(*sm) && Serve<services::ProcessRestart>(*phm) &&
        Serve<services::GetProcessStates>(*phm) && Serve<services::GetProcessName>(*phm);
    if (!served || !app->OfferService() || !sm->OfferService() || !phm->OfferService()) {
        std::cerr << "em_test_server: a service cannot be served\n";
        return 1;
    }
    Print("ready");
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (g_stop == 0) {
        if (poll(&input, 1, 100) > 0) {
            char byte = 0;
            if (read(STDIN_FILENO, &byte, 1) <= 0) {
                break;
            }
        }
    }
    return 0;
}
