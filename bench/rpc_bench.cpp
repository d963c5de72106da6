// SPDX-License-Identifier: Apache-2.0
// One method call through the whole stack (RpcClient, MethodProxyImpl, the DDS driver,
// Skeleton, RpcServer) between two processes on loopback, measured in the same run as a raw
// Cyclone DDS ping-pong of the same payload (ddsperf ping/pong).
//
//   rpc_bench [--calls N] [--payload BYTES] [--seconds S] [--security ARA_EXEC_PKI]
//
// Prints: time from the first binding to "service found", median and p99 round trip, calls
// per second with 1 and 4 caller threads, the client's resident memory, and ddsperf's figures.
// With --security it instead compares, in one run, the first binding and the round trip
// without DDS Security, with authentication and access control (signed), and with
// encryption: each variant is a fresh server and client process with identities made by
// the given ara-exec-pki. Build with -DCMAKE_BUILD_TYPE=Release.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tarn/em/em_services.h"
#include "tarn/em/util/rpc_client.h"
#include "tarn/em/util/rpc_server.h"

namespace {

using ara::core::String;
using Clock = std::chrono::steady_clock;

/// Both ends use the state manager service's GetState: a string in, a string out.
using Echo = tarn::em::services::GetState;
constexpr unsigned int METHOD_ID = Echo::ID;

void Configure(tarn::em::util::RpcBase& endpoint) {
    tarn::em::services::Address(endpoint, Echo::SERVICE);
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

/// A server process: this program again, in server mode, with `uri` as its configuration.
struct Server {
    pid_t pid{-1};
    int input{-1};  // closing it ends the server

    bool Start(const char* self, const std::string& uri) {
        int toServer[2];
        int fromServer[2];
        if (pipe(toServer) != 0 || pipe(fromServer) != 0) {
            return false;
        }
        pid = fork();
        if (pid == 0) {
            dup2(toServer[0], STDIN_FILENO);
            dup2(fromServer[1], STDOUT_FILENO);
            for (const int fd : {toServer[0], toServer[1], fromServer[0], fromServer[1]}) {
                close(fd);  // the server ends when the write end of its standard input closes
            }
            setenv("CYCLONEDDS_URI", uri.c_str(), 1);
            setenv("RPC_BENCH_SERVER", "1", 1);
            execl("/proc/self/exe", self, nullptr);
            _exit(127);
        }
        close(toServer[0]);
        close(fromServer[1]);
        input = toServer[1];
        char ready[6] = {};
        const bool started = read(fromServer[0], ready, 5) == 5;
        close(fromServer[0]);
        return started;
    }
    void Stop() {
        close(input);
        int status = 0;
        waitpid(pid, &status, 0);
    }
};

/// First binding to "service found" and the sequential round trip of this process's client.
struct Latency {
    double foundMs{0.0};
    double median{0.0};
    double p99{0.0};
};

bool MeasureLatency(tarn::em::util::RpcClient& client, int calls, const String& payload, Latency& out) {
    Configure(client);
    if (!client.Initialize()) {
        return false;
    }
    const auto bindStart = Clock::now();
    if (!client.InitializeMethod<String>(METHOD_ID, false, false) || !client.GetFindServiceResult()) {
        std::cerr << "service not found\n";
        return false;
    }
    out.foundMs = std::chrono::duration<double, std::milli>(Clock::now() - bindStart).count();
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
            return false;
        }
        rtts.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    out.median = Percentile(rtts, 0.5);
    out.p99 = Percentile(rtts, 0.99);
    return true;
}

/// The three deployments compared by --security: each runs a server and a client process of
/// its own (a process's DDS configuration is fixed at its first use).
int CompareSecurity(
    const char* self, const std::string& pkiTool, const std::string& uri, int calls, std::size_t payloadSize) {
    char pattern[] = "/tmp/rpc-bench-pki-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    const std::string dir = pattern;
    for (const char* variant : {"signed", "encrypted"}) {
        const std::string command = pkiTool + " -o " + dir + "/" + variant +
                                    (std::string(variant) == "encrypted" ? " --encrypt" : "") + " >/dev/null";
        if (std::system(command.c_str()) != 0) {
            std::cerr << "cannot run " << command << "\n";
            return 1;
        }
    }
    std::printf("payload %zu bytes, %d timed calls per variant\n", payloadSize, calls);
    std::printf("%-44s %12s %12s %12s\n", "variant", "found (ms)", "median (us)", "p99 (us)");
    int failed = 0;
    for (const char* variant : {"", "signed", "encrypted"}) {
        const std::string base = dir + "/" + variant;
        const bool secured = *variant != '\0';
        Server server;
        if (!server.Start(self, secured ? uri + ",file://" + base + "/emd.xml" : uri)) {
            std::cerr << "server did not start\n";
            return 1;
        }
        std::unique_ptr<FILE, int (*)(FILE*)> client(
            popen(("CYCLONEDDS_URI='" + (secured ? uri + ",file://" + base + "/state_manager.xml" : uri) +
                   "' RPC_BENCH_CLIENT=1 /proc/" + std::to_string(getpid()) + "/exe " + std::to_string(calls) + " " +
                   std::to_string(payloadSize))
                      .c_str(),
                  "r"),
            pclose);
        Latency latency;
        const bool measured =
            client && std::fscanf(client.get(), "%lf %lf %lf", &latency.foundMs, &latency.median, &latency.p99) == 3;
        client.reset();
        server.Stop();
        const char* name = !secured                           ? "no security"
                           : std::string(variant) == "signed" ? "authentication + access control (signed)"
                                                              : "authentication + access control + encryption";
        if (measured) {
            std::printf("%-44s %12.1f %12.1f %12.1f\n", name, latency.foundMs, latency.median, latency.p99);
        } else {
            std::printf("%-44s failed\n", name);
            failed = 1;
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);  // the scratch PKI; nothing to do if it fails
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    if (std::getenv("RPC_BENCH_SERVER") != nullptr) {
        return RunServer();
    }
    if (std::getenv("RPC_BENCH_CLIENT") != nullptr && argc == 3) {
        const std::size_t size = std::stoul(argv[2]);
        tarn::em::util::RpcClient client(false);
        Latency latency;
        if (!MeasureLatency(client, std::stoi(argv[1]), String(size >= 4U ? size - 4U : 0U, 'x'), latency)) {
            return 1;
        }
        std::printf("%f %f %f\n", latency.foundMs, latency.median, latency.p99);
        return 0;
    }
    int calls = 20000;
    std::size_t payloadSize = 32U;
    double seconds = 3.0;
    std::string pkiTool;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--calls") {
            calls = std::stoi(argv[i + 1]);
        } else if (option == "--payload") {
            payloadSize = std::stoul(argv[i + 1]);
        } else if (option == "--seconds") {
            seconds = std::stod(argv[i + 1]);
        } else if (option == "--security") {
            pkiTool = argv[i + 1];
        }
    }
    const std::string tag = "rpc-bench-" + std::to_string(getpid());
    const std::string uri =
        "<General><Interfaces><NetworkInterface address=\"127.0.0.1\" multicast=\"true\"/>"
        "</Interfaces></General><Discovery><Tag>" +
        tag + "</Tag></Discovery>";
    setenv("ARA_LOG_LEVEL", "error", 0);
    if (!pkiTool.empty()) {
        return CompareSecurity(argv[0], pkiTool, uri, calls, payloadSize);
    }
    setenv("CYCLONEDDS_URI", uri.c_str(), 1);

    Server server;
    if (!server.Start(argv[0], uri)) {
        std::cerr << "server did not start\n";
        return 1;
    }
    const String payload(payloadSize >= 4U ? payloadSize - 4U : 0U, 'x');  // + the DDS length field
    tarn::em::util::RpcClient client(false);
    Latency latency;
    if (!MeasureLatency(client, calls, payload, latency)) {
        return 1;
    }
    const double one = Throughput(client, 1, payload, seconds);
    const double four = Throughput(client, 4, payload, seconds);
    const long rss = ResidentKiB();
    server.Stop();
    const std::string raw = RawPingPong(payloadSize, static_cast<int>(seconds) + 2, uri);

    std::printf("payload %zu bytes, %d timed calls\n", payloadSize, calls);
    std::printf("first binding to service found: %.1f ms\n", latency.foundMs);
    std::printf("round trip: median %.1f us, p99 %.1f us\n", latency.median, latency.p99);
    std::printf("calls/s: 1 thread %.0f, 4 threads %.0f\n", one, four);
    std::printf("client resident memory: %ld KiB\n", rss);
    std::printf("raw Cyclone ping-pong (ddsperf, half round trips): %s", raw.c_str());
    const double rawMedian = 2.0 * Field(raw, "50% ");
    const double rawP99 = 2.0 * Field(raw, "99% ");
    if (rawMedian > 0.0) {
        std::printf("raw round trip: median %.1f us, p99 %.1f us; proxy / raw median: %.2f\n",
                    rawMedian,
                    rawP99,
                    latency.median / rawMedian);
    }
    return 0;
}
