// SPDX-License-Identifier: Apache-2.0
// RPC endpoints without a network: loopback address choice, method descriptors, method
// binding and the discovery state machine of the RPC client over a scripted transport.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara_test/fake_driver.h"
#include "ara_test/matchers.h"
#include "local_ip.h"
#include "tarn/em/util/rpc_client.h"
#include "tarn/em/util/rpc_server.h"

namespace {

using ara_test::HasError;
using kelp::brio::api::types::DriverType;
using tarn::em::util::RpcBase;
using tarn::em::util::RpcClient;
namespace log = ara::quill::common::log;

std::size_t CountOf(const log::CaptureSink& capture, const std::string& text) {
    const auto texts = capture.Texts();
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

// An interface list as getifaddrs returns it: IPv4 texts, "v6" for an IPv6 entry, "" for an
// entry without address.
struct InterfaceList {
    explicit InterfaceList(const std::vector<std::string>& entries)
        : nodes(entries.size()), v4(entries.size()), v6(entries.size()) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            nodes[i].ifa_next = i + 1U < entries.size() ? &nodes[i + 1U] : nullptr;
            if (entries[i] == "v6") {
                v6[i].sin6_family = AF_INET6;
                nodes[i].ifa_addr = reinterpret_cast<sockaddr*>(&v6[i]);
            } else if (!entries[i].empty()) {
                v4[i].sin_family = AF_INET;
                inet_pton(AF_INET, entries[i].c_str(), &v4[i].sin_addr);
                nodes[i].ifa_addr = reinterpret_cast<sockaddr*>(&v4[i]);
            }
        }
    }
    std::vector<ifaddrs> nodes;
    std::vector<sockaddr_in> v4;
    std::vector<sockaddr_in6> v6;
};

TEST(RpcBaseTest, LoopbackChoiceOverInterfaceLists) {
    const struct {
        std::vector<std::string> entries;
        bool isLoopBack;
        bool found;
        const char* ip;  // "before" when untouched
    } rows[] = {
        {{"127.0.1.1", "v6", "", "127.0.0.1", "10.0.0.5"}, true, true, "127.0.0.1"},
        {{"127.0.0.1", "127.0.1.1"}, true, true, "127.0.0.1"},
        {{"192.168.1.2", "127.0.0.1", "10.0.0.5"}, false, true, "192.168.1.2"},
        {{"10.0.0.5"}, true, false, "before"},
        {{"127.0.0.1"}, false, false, "before"},
        {{"v6", "v6"}, true, false, "before"},
    };
    for (const auto& row : rows) {
        log::CaptureSink capture;
        const InterfaceList list(row.entries);
        std::string ip = "before";
        EXPECT_EQ(tarn::em::util::detail::ChooseLocalIp(
                      tarn::em::util::detail::Ipv4Texts(list.nodes.data()), ip, row.isLoopBack),
                  row.found);
        EXPECT_EQ(ip, row.ip);
        EXPECT_TRUE(capture.Contains(std::string("[RpcBase][Get ip address][ip=") + row.ip +
                                     ", is_loop_back=" + (row.isLoopBack ? "1" : "0") + "]"));
    }
    log::CaptureSink capture;
    std::string ip = "kept";
    EXPECT_TRUE(tarn::em::util::detail::ChooseLocalIp({"1", "127.0.0.1"}, ip, true));
    EXPECT_TRUE(capture.Contains("[RpcBase][Get net number error][ip=kept]")) << "names the output, not the address";
}

TEST(RpcBaseTest, AFailedScanFallsBackToDefaultAndIsNotRepeated) {
    log::CaptureSink capture;
    RpcBase::isReadIpConfig_ = true;  // as after a scan that found nothing
    RpcBase::ipAddress_.clear();
    RpcBase first;
    first.ReadAndSetConfigIP();
    EXPECT_EQ(first.GetNetwork(), (std::pair<std::string, bool>{"127.0.0.1", true}));
    EXPECT_TRUE(capture.Contains("[RpcBase][Can't get loopback ip, use default IP 127.0.0.1]"));
    EXPECT_FALSE(capture.Contains("[RpcBase][Get loopback ip address][ip=127.0.0.1]")) << "no second scan";
    EXPECT_EQ(RpcBase::GetEmInstanceIdText(), "65534");
}

TEST(RpcBaseTest, MethodDescriptorFields) {
    tarn::em::util::RpcServer server;
    server.SetDomainId(4);
    server.SetServiceId(57361U);
    server.SetRequestTopicName("X");
    server.SetReplyTopicName("Y");
    server.SetNetwork({"127.0.0.1", true});
    const auto zero = server.MakeMethodInfo(0U);
    const auto six = server.MakeMethodInfo(6U);
    EXPECT_EQ(zero->GetRequestTopicName(), "X_0");
    EXPECT_EQ(six->GetReplyTopicName(), "Y_6");
    EXPECT_EQ(six->GetMethodUUIDInfo(), "57361.65534.6.6.DDS");
    EXPECT_EQ(zero->GetEntityName(), "0");
    EXPECT_EQ(zero->GetDomainId(), 4);
    EXPECT_EQ(zero->GetNetwork(), (std::pair<std::string, bool>{"127.0.0.1", true}));
    EXPECT_EQ(zero->GetRequestDepth() + zero->GetReplyDepth(), 20U);
    const auto& qos = zero->GetParticipantQos();
    EXPECT_EQ(qos.GetDiscoveryFilter().GetKind(), 2U);
    EXPECT_EQ(qos.GetDiscoveryFilter().GetFilter(), "[1]");
    EXPECT_EQ(std::vector<std::uint32_t>(
                  {qos.GetLivelinessLeaseMs(), qos.GetParticipantLeaseMs(), qos.GetValue3(), qos.GetValue4()}),
              (std::vector<std::uint32_t>{500U, 1000U, 60000U, 24000U}));
    EXPECT_EQ(zero->GetTransportQos(),
              std::set<kelp::driver::dds::qos::TransportQos>{kelp::driver::dds::qos::TransportQos::UDP});
}

class RpcClientTest : public ::testing::Test {
protected:
    void SetUp() override { kelp::brio::driver::RegisterDriver(DriverType::DDS, driver_); }
    void TearDown() override { kelp::brio::driver::RegisterDriver(DriverType::DDS, nullptr); }
    std::shared_ptr<ara_test::FakeDriver> driver_ = std::make_shared<ara_test::FakeDriver>();
};

TEST_F(RpcClientTest, BindingTwiceFailsAndDiscoveryStartsOnce) {
    log::CaptureSink capture;
    RpcClient client(false);
    EXPECT_TRUE(client.InitializeMethod<void>(0U, false, false));
    EXPECT_TRUE(client.InitializeMethod<ara::core::String>(6U, false, true));
    EXPECT_FALSE(client.InitializeMethod<void>(0U, false, false));
    EXPECT_EQ(CountOf(capture, "[RpcClient][Rpc client begin to find service]"), 1U);
    EXPECT_EQ(driver_->RunningFinds(), 1U);
    EXPECT_TRUE(capture.Contains("Method 0 alreay initialized"));
    EXPECT_TRUE(capture.Contains("[RpcClient][Rpc client failed to initialize method with method id][method_id=0]"));
    EXPECT_EQ(client.methodIds_, (std::vector<std::uint32_t>{0U, 6U}));

    RpcClient passive(true);
    EXPECT_TRUE(passive.InitializeMethod<void>(0U, false, false));
    EXPECT_EQ(driver_->RunningFinds(), 1U) << "a client made with true never starts discovery";
    EXPECT_THROW(passive.CheckFindServiceResult(), std::future_error);
}

TEST_F(RpcClientTest, FoundOfflineAndFoundAgain) {
    log::CaptureSink capture;
    RpcClient client(false);
    client.StartClientFindService({kelp::driver::dds::qos::TransportQos::UDP});
    client.isFindServiceStarted_ = true;
    driver_->Announce({});  // discovery running, nothing bound yet: only the warning
    ASSERT_TRUE(client.InitializeMethod<void>(2U, false, false));
    ASSERT_TRUE(client.InitializeMethod<ara::core::String>(6U, false, false));
    EXPECT_FALSE(client.CheckFindServiceResult());
    EXPECT_TRUE(capture.Contains("[RpcClient][Rpc client check service failed]"));

    const std::vector<kelp::brio::api::types::HandleType> found{{57360U, "65534", true}};
    driver_->Announce(found);
    EXPECT_TRUE(client.GetFindServiceResult());
    EXPECT_TRUE(client.GetFindServiceResult());
    auto setState = client.proxy_.GetMethodProxy<void>(2U)->Request(ara::core::String("fg"), ara::core::String("On"));
    auto getState = client.proxy_.GetMethodProxy<ara::core::String>(6U)->Request(ara::core::String("fg"));
    driver_->Announce({});
    EXPECT_TRUE(client.isServiceOffline_.load());
    EXPECT_THAT(setState.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
    EXPECT_THAT(getState.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
    driver_->Announce(found);
    EXPECT_FALSE(client.isServiceOffline_.load());
    EXPECT_TRUE(client.CheckFindServiceResult()) << "the future stays ready";
    EXPECT_EQ(CountOf(capture, "[RpcClient][Rpc client service has been found]"), 1U);
    EXPECT_EQ(CountOf(capture, "[RpcClient][Rpc client service offline]"), 2U);
}

}  // namespace
