// One method call through the whole stack (RpcClient, MethodProxyImpl, the DDS driver,
// Skeleton, RpcServer) between two processes on loopback, measured in the same run as a raw
// Cyclone DDS ping-pong of the same payload (ddsperf ping/pong).
//
//   rpc_bench [--calls N] [--payload BYTES] [--seconds S]
//
// Prints: time from the first binding to "service found", median and p99 round trip, calls
// per second with 1 and 4 caller threads, the client's resident memory, and ddsperf's figures.
// Build with -DCMAKE_BUILD_TYPE=Release.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tarn/em/util/rpc_client.h"
#include "tarn/em/util/rpc_server.h"

namespace {

using ara::core::String;
using Clock = std::chrono::steady_clock;

constexpr unsigned int METHOD_ID = 6U;

template <typename Endpoint>
void Configure(Endpoint& endpoint) {
    endpoint.SetDomainId(4);
    endpoint.SetServiceId(57361U);
    endpoint.SetInstanceId("1");
    endpoint.SetRequestTopicName("EM_RPC_REQUEST_STATE_MANAGER");
    endpoint.SetReplyTopicName("EM_RPC_REPLY_STATE_MANAGER");
    endpoint.ReadAndSetConfigIP();
}

int RunServer() {
    tarn::em::util::RpcServer server("rpc_bench");
    Configure(server);
    if (!server.Initialize() ||
        !server.RegisterMethod<String, String>(
            METHOD_ID,
            std::function<void(kelp::brio::Replier<String>, const String&)>(
                [](const kelp::brio::Replier<String>& reply, const String& text) { reply.Reply(text); })) ||
        !server.OfferService()) {
        return 1;
    }
    std::cout << "ready" << std::endl;
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}

double Percentile(std::vector<double>& values, double fraction) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1U))];
}

long ResidentKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6U));
        }
    }
    return -1;
}

/// Calls per second with `threads` callers for `seconds`.
double Throughput(tarn::em::util::RpcClient& client, int threads, const String& payload, double seconds) {
    std::atomic<long> calls{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> callers;
    const auto start = Clock::now();
    for (int t = 0; t < threads; ++t) {
        callers.emplace_back([&] {
            const auto proxy = client.proxy_.GetMethodProxy<String>(METHOD_ID);
            while (!stop.load()) {
                if (proxy->Request(payload).get().HasValue()) {
                    ++calls;
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (auto& caller : callers) {
        caller.join();
    }
    return static_cast<double>(calls.load()) / std::chrono::duration<double>(Clock::now() - start).count();
}

/// Runs ddsperf ping against ddsperf pong for `seconds` and returns ping's last figure line.
std::string RawPingPong(std::size_t payload, int seconds, const std::string& uri) {
    const std::string env = "CYCLONEDDS_URI='" + uri + "' ";
    const std::string pong = env + "timeout " + std::to_string(seconds + 3) + " ddsperf pong >/dev/null 2>&1 &";
    const std::string ping = env + "ddsperf -D " + std::to_string(seconds) + " ping size " + std::to_string(payload) +
                             " 2>&1 | grep ' size ' | tail -1";
    if (std::system(pong.c_str()) != 0) {
        return "ddsperf pong did not start";
    }
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(ping.c_str(), "r"), pclose);
    std::string out;
    char buffer[512];
    while (pipe && fgets(buffer, sizeof(buffer), pipe.get()) != nullptr) {
        out += buffer;
    }
    return out.empty() ? "ddsperf not available" : out;
}

/// The number after `label` in a ddsperf figure line ("... 50% 41.607us ..."), or 0.
double Field(const std::string& line, const std::string& label) {
    const auto at = line.find(label);
    return at == std::string::npos ? 0.0 : std::atof(line.c_str() + at + label.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (std::getenv("RPC_BENCH_SERVER") != nullptr) {
        return RunServer();
    }
    int calls = 20000;
    std::size_t payloadSize = 32U;
    double seconds = 3.0;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--calls") {
            calls = std::stoi(argv[i + 1]);
        } else if (option == "--payload") {
            payloadSize = std::stoul(argv[i + 1]);
        } else if (option == "--seconds") {
            seconds = std::stod(argv[i + 1]);
        }
    }
    const std::string tag = "rpc-bench-" + std::to_string(getpid());
    const std::string uri = "<General><Interfaces><NetworkInterface address=\"127.0.0.1\" multicast=\"true\"/>"
                            "</Interfaces></General><Discovery><Tag>" + tag + "</Tag></Discovery>";
    setenv("CYCLONEDDS_URI", uri.c_str(), 1);
    setenv("ARA_LOG_LEVEL", "error", 0);

    int toServer[2];
    int fromServer[2];
    if (pipe(toServer) != 0 || pipe(fromServer) != 0) {
        return 1;
    }
    const pid_t server = fork();
    if (server == 0) {
        dup2(toServer[0], STDIN_FILENO);
        dup2(fromServer[1], STDOUT_FILENO);
        for (const int fd : {toServer[0], toServer[1], fromServer[0], fromServer[1]}) {
            close(fd);  // the server ends when the write end of its standard input closes
        }
        setenv("RPC_BENCH_SERVER", "1", 1);
        execl("/proc/self/exe", argv[0], nullptr);
        _exit(127);
    }
    close(toServer[0]);
    close(fromServer[1]);
    char ready[6] = {};
    if (read(fromServer[0], ready, 5) != 5) {
        std::cerr << "server did not start\n";
        return 1;
    }

    // Start-up: from the first binding of a client to "service found".
    tarn::em::util::RpcClient client(false);
    Configure(client);
    if (!client.Initialize()) {
        return 1;
    }
    const auto bindStart = Clock::now();
    if (!client.InitializeMethod<String>(METHOD_ID, false, false) || !client.GetFindServiceResult()) {
        std::cerr << "service not found\n";
        return 1;
    }
    const double foundMs = std::chrono::duration<double, std::milli>(Clock::now() - bindStart).count();

    const String payload(payloadSize >= 4U ? payloadSize - 4U : 0U, 'x');  // + the DDS length field
    const auto proxy = client.proxy_.GetMethodProxy<String>(METHOD_ID);
    for (int i = 0; i < 1000; ++i) {
        (void)proxy->Request(payload).get();
    }
    std::vector<double> rtts;
    rtts.reserve(static_cast<std::size_t>(calls));
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        if (!proxy->Request(payload).get().HasValue()) {
            std::cerr << "call failed\n";
            return 1;
        }
        rtts.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    const double median = Percentile(rtts, 0.5);
    const double p99 = Percentile(rtts, 0.99);
    const double one = Throughput(client, 1, payload, seconds);
    const double four = Throughput(client, 4, payload, seconds);
    const long rss = ResidentKiB();

    close(toServer[1]);
    int status = 0;
    waitpid(server, &status, 0);
    const std::string raw = RawPingPong(payloadSize, static_cast<int>(seconds) + 2, uri);

    std::printf("payload %zu bytes, %d timed calls\n", payloadSize, calls);
    std::printf("first binding to service found: %.1f ms\n", foundMs);
    std::printf("round trip: median %.1f us, p99 %.1f us\n", median, p99);
    std::printf("calls/s: 1 thread %.0f, 4 threads %.0f\n", one, four);
    std::printf("client resident memory: %ld KiB\n", rss);
    std::printf("raw Cyclone ping-pong (ddsperf, half round trips): %s", raw.c_str());
    const double rawMedian = 2.0 * Field(raw, "50% ");
    const double rawP99 = 2.0 * Field(raw, "99% ");
    if (rawMedian > 0.0) {
        std::printf("raw round trip: median %.1f us, p99 %.1f us; proxy / raw median: %.2f\n",
                    rawMedian,
                    rawP99,
                    median / rawMedian);
    }
    return 0;
}
