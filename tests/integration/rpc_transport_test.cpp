// SPDX-License-Identifier: Apache-2.0
// Method calls over Cyclone DDS between processes: the scripted server in one process, RPC
// clients in this one (and in copies of this program started as clients): replies and
// errors of every kind, a server that dies or never answers, bursts from threads and
// processes, twelve processes on one domain, a deployment given through CYCLONEDDS_URI.
// ctest runs every test in a process of its own: a server killed by one test must not still
// be within its lease when the next test of the same process starts another.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/process.h"
#include "ara_test/em_client_case.h"
#include "ara_test/matchers.h"
#include "tarn/em/util/rpc_client.h"

namespace {

using ara::core::String;
using ara_test::ChildProcess;
using ara_test::HasError;
using tarn::em::util::RpcClient;
using Processes = std::vector<ara::exec::Process>;
namespace log = ara::quill::common::log;

const char* const SELF_ENV = "RPC_TRANSPORT_TEST_SELF";

/// This process's discovery configuration; servers and client copies it starts inherit it.
const std::string TAG = ara_test::OwnTag("rpc-transport");

/// An RPC client of the state manager (4, 57361) or health manager (4, 57362) service.
std::unique_ptr<RpcClient> MakeClient(unsigned short serviceId) {
    auto client = std::make_unique<RpcClient>(false);
    const bool stateManager = serviceId == 57361U;
    client->SetDomainId(4);
    client->SetServiceId(serviceId);
    client->SetInstanceId("1");
    client->SetRequestTopicName(stateManager ? "EM_RPC_REQUEST_STATE_MANAGER"
                                             : "EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER");
    client->SetReplyTopicName(stateManager ? "EM_RPC_REPLY_STATE_MANAGER" : "EM_RPC_REPLY_PLATFORM_HEALTH_MANAGER");
    client->ReadAndSetConfigIP();
    EXPECT_TRUE(client->Initialize());
    return client;
}

template <typename T, typename... Args>
ara::core::Result<T> Call(RpcClient& client, unsigned int methodId, const Args&... args) {
    auto future = client.proxy_.GetMethodProxy<T>(methodId)->Request(args...);
    if (future.wait_for(std::chrono::seconds(10)) != ara::core::future_status::kReady) {
        return ara::core::Result<T>(ara::core::ErrorCode(ara::exec::ExecErrc::kGeneralError, 99));
    }
    return future.get();
}

class RpcTransportTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("KELP_DDS_CONFIG", TAG.c_str(), 1); }
};

TEST_F(RpcTransportTest, RepliesAndErrorsOfEveryKind) {
    const auto server =
        ara_test::StartEmServer({"6=echo", "5=garbage", "4=list:3", "1=error:exec:7", "2=twice", "3=error:77:5"});
    log::CaptureSink capture;
    auto sm = MakeClient(57361U);
    auto phm = MakeClient(57362U);
    ASSERT_TRUE(sm->InitializeMethod<void>(1U, false, false) && sm->InitializeMethod<void>(2U, false, false) &&
                sm->InitializeMethod<String>(6U, false, false));
    ASSERT_TRUE(phm->InitializeMethod<void>(3U, false, false) && phm->InitializeMethod<Processes>(4U, false, false) &&
                phm->InitializeMethod<String>(5U, false, false));
    ASSERT_TRUE(sm->GetFindServiceResult() && phm->GetFindServiceResult());

    EXPECT_EQ(Call<String>(*sm, 6U, String("MachineFG")).ValueOr(""), "MachineFG");
    EXPECT_EQ(Call<Processes>(*phm, 4U, String("phm")).ValueOr(Processes{}).size(), 3U);
    EXPECT_THAT((Call<void>(*sm, 1U)), HasError(ara::exec::ExecErrc::kBusy));
    EXPECT_THAT((Call<void>(*sm, 2U, String("MachineFG"), String("Off"))), ara_test::IsOk());
    EXPECT_THAT((Call<void>(*phm, 3U, String("app"), true)),
                HasError(kelp::brio::api::types::ComErrc::kNetworkBindingFailure))
        << "an unregistered foreign domain";
    EXPECT_THAT(Call<String>(*phm, 5U, 4711), HasError(kelp::brio::api::types::ComErrc::kNetworkBindingFailure))
        << "a reply that does not decode";
    ASSERT_TRUE(sm->InitializeMethod<String>(9U, false, false));
    EXPECT_THAT(Call<String>(*sm, 9U, String("x")), HasError(kelp::brio::api::types::ComErrc::kNetworkBindingFailure))
        << "a method the server does not serve";
    EXPECT_TRUE(
        capture.Contains("[DDSMethodHandler][Request writer not matched][topic=EM_RPC_REQUEST_STATE_MANAGER_9, "
                         "sessionId=1]"));
    EXPECT_TRUE(server->WaitForLine("call 2 twice"));
    EXPECT_TRUE(capture.Contains("[MethodProxyImpl][Invalid method reply for method][methodEntityId=2, sessionId=1]"))
        << "the second answer is only a warning";
}

TEST_F(RpcTransportTest, AKilledServerFailsEveryPendingCallAndARestartedOneIsFoundAgain) {
    auto server = ara_test::StartEmServer({"2=none", "6=none"});
    log::CaptureSink capture;
    auto sm = MakeClient(57361U);
    ASSERT_TRUE(sm->InitializeMethod<void>(2U, false, false) && sm->InitializeMethod<String>(6U, false, false));
    ASSERT_TRUE(sm->GetFindServiceResult());
    auto setState = sm->proxy_.GetMethodProxy<void>(2U)->Request(String("MachineFG"), String("Off"));
    auto getState = sm->proxy_.GetMethodProxy<String>(6U)->Request(String("MachineFG"));
    ASSERT_TRUE(server->WaitForLine("call ") && server->WaitForLine("call "));  // both arrived, in either order
    server->Kill(SIGKILL);
    const auto killed = std::chrono::steady_clock::now();
    ASSERT_EQ(getState.wait_for(std::chrono::seconds(5)), ara::core::future_status::kReady);
    // Lease 500 ms; the bound is 1 s, with room for a loaded machine.
    EXPECT_LT(std::chrono::steady_clock::now() - killed, std::chrono::milliseconds(1500));
    EXPECT_THAT(getState.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
    EXPECT_THAT(setState.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
    EXPECT_TRUE(sm->isServiceOffline_.load());
    EXPECT_TRUE(ara_test::Eventually(
        [&] { return capture.Contains("[DDSServiceDiscovery][Service lost][service=57361, instance=65534]"); }));

    server = ara_test::StartEmServer({});
    EXPECT_TRUE(ara_test::Eventually([&] { return !sm->isServiceOffline_.load(); }));
    EXPECT_EQ(Call<String>(*sm, 6U, String("x")).ValueOr(""), "Running");
    EXPECT_TRUE(sm->CheckFindServiceResult()) << "the future stays ready";

    const auto texts = capture.Texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "[RpcClient][Rpc client service has been found]"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "[RpcClient][Rpc client service offline]"), 1);
}

std::vector<std::unique_ptr<ChildProcess>> StartClients(int processes,
                                                        int threads,
                                                        int calls,
                                                        const std::vector<std::string>& env) {
    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (int i = 0; i < processes; ++i) {
        std::vector<std::string> childEnv = env;
        childEnv.push_back(std::string(SELF_ENV) + "=" + std::to_string(threads) + ":" + std::to_string(calls));
        clients.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{"/proc/self/exe"}, childEnv));
    }
    return clients;
}

// Concurrency: every reply reaches its own caller, none lost, none crossed; with threads of two
// processes, and with twelve processes on one domain.
TEST_F(RpcTransportTest, BurstsFromThreadsAndProcesses) {
    const auto server = ara_test::StartEmServer({"6=echo"});
    for (const auto& [processes, threads, calls] : {std::tuple{2, 4, 1000}, std::tuple{11, 1, 20}}) {
        for (auto& client : StartClients(processes, threads, calls, {})) {
            EXPECT_EQ(client->Wait(), 0) << processes << " processes";
        }
    }
}

TEST_F(RpcTransportTest, ADeploymentGivenThroughCycloneddsUriIsHonoured) {
    const std::string uri =
        "<General><Interfaces><NetworkInterface address=\"127.0.0.1\" multicast=\"true\"/>"
        "</Interfaces></General>" +
        ara_test::OwnTag("rpc-transport-uri");
    const auto server = ara_test::StartEmServer({"6=echo"}, {"CYCLONEDDS_URI=" + uri, "KELP_DDS_CONFIG="});
    auto clients = StartClients(1, 1, 5, {"CYCLONEDDS_URI=" + uri, "KELP_DDS_CONFIG="});
    EXPECT_EQ(clients[0]->Wait(), 0) << "a client on another tag would not find the server";
}

/// A copy of this program started as a client: THREADS threads make CALLS echo calls each.
int RunClient(const std::string& spec) {
    const int threads = std::stoi(spec.substr(0, spec.find(':')));
    const int calls = std::stoi(spec.substr(spec.find(':') + 1U));
    static auto client = MakeClient(57361U);  // lives until exit, as the library's clients do
    if (!client->InitializeMethod<String>(6U, false, false)) {
        return 2;
    }
    // Eleven processes starting at once on a loaded machine may take longer than one 1.4 s wait.
    bool found = false;
    for (int attempt = 0; attempt < 7 && !found; ++attempt) {
        found = client->GetFindServiceResult();
    }
    if (!found) {
        return 3;
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&wrong, t, calls] {
            for (int i = 0; i < calls; ++i) {
                const std::string text = std::to_string(getpid()) + "/" + std::to_string(t) + "/" + std::to_string(i);
                wrong += Call<String>(*client, 6U, String(text)).ValueOr("") == text ? 0 : 1;
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    std::cout << "wrong " << wrong.load() << std::endl;
    return wrong.load() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (const char* spec = std::getenv(SELF_ENV)) {
        return RunClient(spec);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
