// SPDX-License-Identifier: Apache-2.0
// The DDS transport's two method halves in one process over real Cyclone DDS: bytes and the
// error flag travel unchanged, and peers that never matched fail with a log line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <thread>

#include "ara/quill/common/log/log.h"
#include "ara_test/em_client_case.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_driver.h"
#include "kelp/driver/dds/dds_types.h"

namespace {
using namespace std::chrono_literals;
using kelp::brio::api::types::MethodMsg;
using Bytes = std::vector<unsigned char>;

std::shared_ptr<kelp::brio::driver::Driver> Transport() {
    return kelp::brio::driver::GetDriver(kelp::brio::api::types::DriverType::DDS);
}

// Method "<prefix>_req_1" / "<prefix>_rep_1" of service `serviceId`, instance "1", domain 2.
std::shared_ptr<kelp::driver::dds::DDSMethodInfo> Method(std::uint16_t serviceId, const std::string& prefix) {
    auto info = std::make_shared<kelp::driver::dds::DDSMethodInfo>();
    info->SetServiceId(serviceId);
    info->SetInstanceId("1");
    info->SetRequestTopicName(prefix + "_req_1");
    info->SetReplyTopicName(prefix + "_rep_1");
    info->SetDomainId(2);
    info->SetParticipantQos(kelp::driver::dds::qos::DefaultRpcParticipantQos());
    return info;
}

// The client half of the test method and the replies it received, by session id.
struct Client {
    Client(std::uint16_t serviceId, const std::string& prefix)
        : handler(Transport()->CreateMethodHandler(Method(serviceId, prefix))) {
        handler->RegisterReplyCallback([this](const std::shared_ptr<MethodMsg>& msg) {
            const std::lock_guard<std::mutex> lock(mutex);
            replies[msg->sessionId] = {Bytes(msg->payload, msg->payload + msg->payloadSize), msg->isErrorReply};
            changed.notify_all();
        });
    }
    ~Client() { handler->RegisterReplyCallback({}); }
    bool Call(std::uint16_t sessionId, const Bytes& bytes) {
        const auto size = static_cast<std::uint32_t>(bytes.size());
        unsigned char* buffer = handler->AllocateRequestBuffer(nullptr, size);
        if (size != 0U) {
            std::memcpy(buffer, bytes.data(), size);
        }
        return handler->SendRequest(buffer, size, sessionId);
    }
    template <typename Predicate>
    bool WaitFor(Predicate predicate) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 20s, predicate);
    }

    std::shared_ptr<kelp::brio::driver::MethodHandler> handler;
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::uint16_t, std::pair<Bytes, bool>> replies;
};

class DdsRpcTest : public ::testing::Test {
protected:
    // One discovery tag per test process, so that ctest -j2 runs never meet.
    static void SetUpTestSuite() {
        const std::string tag = ara_test::OwnTag("dds_rpc_test");
        setenv("KELP_DDS_CONFIG", tag.c_str(), 1);
        ASSERT_TRUE(kelp::driver::dds::DDSDriver::Init());
    }
    ara::quill::common::log::CaptureSink log_;
};

TEST_F(DdsRpcTest, RepliesCarryTheRequestBytesAndErrorFlag) {
    // Echoes the request; one that starts with 'E' comes back as an error with the same bytes.
    const auto server = Transport()->CreateMethodServerHandler(Method(101, "rt"));
    ASSERT_TRUE(server);
    server->RegisterRequestCallback([&server](const std::shared_ptr<MethodMsg>& request) {
        const bool isError = request->payloadSize != 0U && request->payload[0] == 'E';
        EXPECT_TRUE(server->SendReply(*request, request->payload, request->payloadSize, isError));
    });
    Bytes large(70000U);
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<unsigned char>(i * 7U);
    }
    const struct {
        Bytes request;
        bool isError;
    } rows[] = {{{}, false}, {{0x00}, false}, {{'E', 0x01, 0xFF}, true}, {large, false}};
    Client client(101, "rt");
    std::uint16_t session = 0xFFFEU;
    for (const auto& row : rows) {
        ASSERT_TRUE(client.Call(session, row.request));
        ASSERT_TRUE(client.WaitFor([&] { return client.replies.count(session) != 0U; }));
        EXPECT_EQ(client.replies[session].first, row.request);
        EXPECT_EQ(client.replies[session].second, row.isError);
        ++session;
    }
    server->RegisterRequestCallback({});
}

TEST_F(DdsRpcTest, UnmatchedPeersFailWithALogLine) {
    const auto server = Transport()->CreateMethodServerHandler(Method(104, "local"));
    ASSERT_TRUE(server);
    MethodMsg forged;
    forged.sessionId = 9U;
    forged.clientId.fill(0xAB);
    const Client other(104, "local");  // its reply reader is matched; the forged client's is not
    // Queued at once; held for the forged client's match, which never comes, then dropped.
    EXPECT_TRUE(server->SendReply(forged, nullptr, 0U, false));
    const std::string dropped =
        "[DDSMethodServerHandler][Reply reader not matched, reply dropped][topic=local_rep_1, sessionId=9, "
        "clientId=abababababababababababababababab, waited_ms=2000, dropped=1]";
    for (int i = 0; i < 500 && !log_.Contains(dropped); ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(log_.Contains(dropped));
    Client lonely(105, "nobody");
    EXPECT_FALSE(lonely.Call(7U, {}));
    EXPECT_TRUE(log_.Contains("[DDSMethodHandler][Request writer not matched][topic=nobody_req_1, sessionId=7]"));
}

}  // namespace
