// Method calls and discovery over real Cyclone DDS, against dds_echo_server in another process.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <map>
#include <thread>

#include "ara/quill/common/log/log.h"
#include "dds_test_descriptors.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_driver.h"

namespace {
using namespace std::chrono_literals;
using kelp::brio::api::types::MethodMsg;
using kelp::brio::api::types::MethodState;
using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;

std::shared_ptr<kelp::brio::driver::Driver> Transport() {
    return kelp::brio::driver::GetDriver(kelp::brio::api::types::DriverType::DDS);
}

// One echo server process in a process group of its own; killed with it on every exit path.
class EchoServer {
public:
    EchoServer(std::uint16_t serviceId, const std::string& prefix) {
        const std::string id = std::to_string(serviceId);  // nothing allocates after fork
        pid_ = fork();
        if (pid_ == 0) {
            setpgid(0, 0);
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execl(DDS_ECHO_SERVER, DDS_ECHO_SERVER, id.c_str(), prefix.c_str(), nullptr);
            _exit(127);
        }
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;
    ~EchoServer() { Kill(); }
    void Signal(int signal) const { kill(pid_, signal); }
    void Kill() {
        if (pid_ > 0) {
            kill(-pid_, SIGKILL);
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }

private:
    pid_t pid_{-1};
};

// A client of the test method: its handler, a discovery of its service, and what they report.
struct Client {
    Client(std::uint16_t serviceId, const std::string& prefix)
        : handler(Transport()->CreateMethodHandler(dds_test::Method(serviceId, prefix))) {
        handler->RegisterReplyCallback([this](const std::shared_ptr<MethodMsg>& msg) {
            const std::lock_guard<std::mutex> lock(mutex);
            replies[msg->sessionId] = {Bytes(msg->payload, msg->payload + msg->payloadSize), msg->isErrorReply};
            changed.notify_all();
        });
        handler->SetMethodStateChangeHandler([this](MethodState state) {
            const std::lock_guard<std::mutex> lock(mutex);
            states.push_back(state);
            changed.notify_all();
        });
        findId = Transport()->StartFindService(dds_test::Service(serviceId), [this](auto handles) {
            const std::lock_guard<std::mutex> lock(mutex);
            found.push_back(handles.size());
            foundAt = Clock::now();
            changed.notify_all();
        });
    }
    ~Client() {
        Transport()->StopFindService(findId.value());
        handler->RegisterReplyCallback({});
        handler->UnsetMethodStateChangeHandler();
    }
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
    bool WaitFound(const std::vector<std::size_t>& reports) {
        return WaitFor([&] { return found == reports; });
    }

    std::shared_ptr<kelp::brio::driver::MethodHandler> handler;
    std::optional<std::uint32_t> findId;
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::uint16_t, std::pair<Bytes, bool>> replies;
    std::vector<std::size_t> found;  // sizes of the reported lists, in order
    Clock::time_point foundAt;
    std::vector<MethodState> states;
};

class DdsRpcTest : public ::testing::Test {
protected:
    // Log lines may trail the report that the same event caused.
    bool Logged(const std::string& text) const {
        const auto deadline = Clock::now() + 5s;
        while (!log_.Contains(text) && Clock::now() < deadline) {
            std::this_thread::sleep_for(10ms);
        }
        return log_.Contains(text);
    }

    // One discovery tag per test process: ctest -j2 runs never meet, and servers inherit it.
    static void SetUpTestSuite() {
        const std::string tag = "<Discovery><Tag>dds_rpc_test-" + std::to_string(getpid()) + "</Tag></Discovery>";
        setenv("KELP_DDS_CONFIG", tag.c_str(), 1);
        ASSERT_TRUE(kelp::driver::dds::DDSDriver::Init());
    }
    ara::quill::common::log::CaptureSink log_;
};

TEST_F(DdsRpcTest, RepliesCarryTheRequestBytesAndErrorFlag) {
    Bytes large(70000U);
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<unsigned char>(i * 7U);
    }
    const struct {
        Bytes request;
        bool isError;
    } rows[] = {{{}, false}, {{0x00}, false}, {{'E', 0x01, 0xFF}, true}, {large, false}};
    const EchoServer server(101, "rt");  // outlives the client, which then goes without waiting for acks
    Client client(101, "rt");
    ASSERT_TRUE(client.WaitFound({1U}));
    std::uint16_t session = 0xFFFEU;
    for (const auto& row : rows) {
        ASSERT_TRUE(client.Call(session, row.request));
        ASSERT_TRUE(client.WaitFor([&] { return client.replies.count(session) != 0U; }));
        EXPECT_EQ(client.replies[session].first, row.request);
        EXPECT_EQ(client.replies[session].second, row.isError);
        ++session;
    }
}

TEST_F(DdsRpcTest, WithdrawalAndCrashAreReportedAndLoggedApart) {
    auto server = std::make_unique<EchoServer>(103, "life");
    Client client(103, "life");
    ASSERT_TRUE(client.WaitFound({1U}));
    server->Signal(SIGUSR1);  // StopOfferService
    ASSERT_TRUE(client.WaitFound({1U, 0U}));
    EXPECT_TRUE(Logged("[DDSServiceDiscovery][Service withdrawn][service=103, instance=1]"));
    EXPECT_FALSE(log_.Contains("[DDSServiceDiscovery][Service lost][service=103, instance=1]"));
    server->Signal(SIGUSR1);  // offered again
    ASSERT_TRUE(client.WaitFound({1U, 0U, 1U}));

    const auto killedAt = Clock::now();
    server->Kill();
    ASSERT_TRUE(client.WaitFound({1U, 0U, 1U, 0U}));
    EXPECT_LE(client.foundAt - killedAt, 1000ms);
    EXPECT_TRUE(Logged("[DDSServiceDiscovery][Service lost][service=103, instance=1]"));
    ASSERT_TRUE(client.WaitFor([&] { return client.states.size() == 2U; }));
    EXPECT_EQ(client.states, (std::vector<MethodState>{MethodState::kAvailable, MethodState::kUnavailable}));
    EXPECT_FALSE(client.Call(1U, {1}));

    server = std::make_unique<EchoServer>(103, "life");  // a restarted server is found again and answers
    ASSERT_TRUE(client.WaitFound({1U, 0U, 1U, 0U, 1U}));
    ASSERT_TRUE(client.Call(2U, {2}));
    EXPECT_TRUE(client.WaitFor([&] { return client.replies.count(2U) != 0U; }));
}

TEST_F(DdsRpcTest, InProcessServerAnswersAndUnmatchedPeersFailWithALogLine) {
    const auto server = Transport()->CreateMethodServerHandler(dds_test::Method(104, "local"));
    ASSERT_TRUE(server);
    MethodMsg forged;
    forged.sessionId = 9U;
    forged.clientId.fill(0xAB);
    server->RegisterRequestCallback([&server](const std::shared_ptr<MethodMsg>& request) {
        // Inside the client's write: the reply is delivered inside this one.
        EXPECT_TRUE(server->SendReply(*request, request->payload, request->payloadSize, false));
    });
    Client client(104, "local");
    ASSERT_TRUE(client.Call(5U, {5, 6}));
    ASSERT_TRUE(client.WaitFor([&] { return client.replies.count(5U) != 0U; }));
    EXPECT_EQ(client.replies[5U].first, (Bytes{5, 6}));

    EXPECT_FALSE(server->SendReply(forged, nullptr, 0U, false));
    EXPECT_TRUE(
        log_.Contains("[DDSMethodServerHandler][Reply reader not matched, reply dropped][topic=local_rep_1, "
                      "sessionId=9, clientId=abababababababababababababababab]"));
    Client lonely(105, "nobody");
    EXPECT_FALSE(lonely.Call(7U, {}));
    EXPECT_TRUE(log_.Contains("[DDSMethodHandler][Request writer not matched][topic=nobody_req_1, sessionId=7]"));
    server->RegisterRequestCallback({});
}

}  // namespace
