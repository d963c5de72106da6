// SPDX-License-Identifier: Apache-2.0
// emctl: the command-line front end of Execution Management, a user of the public ara::exec
// clients and of emd's own status service. Reads and sets Function Group states, lists and
// restarts processes, maps a pid to a process name, reports an execution state and waits for
// the machine to be up; shows a process's or group's status, the start-up times of the last
// transition and the dependencies between processes; lists the names of the processes and
// groups (for scripts and the shell's completion); validates a manifest as emd does.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_client.h"
#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"
#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara/quill/common/jsonParser/document.h"
#include "ara/quill/common/log/log.h"
#include "manifest.h"
#include "tarn/em/emd_status_service.h"

namespace {

using ara::exec::ExecErrc;
using Clock = std::chrono::steady_clock;
using ara::quill::common::jsonParser::Document;
namespace services = tarn::em::services;

enum ExitCode : int { kOk = 0, kRefused = 1, kUsage = 2, kUnreachable = 3, kTimedOut = 4 };

const char* const EXIT_CODES =
    "Exit codes: 0 success, 1 Execution Management refused the request (validate: the manifest\n"
    "is refused), 2 bad usage, 3 Execution Management unreachable, 4 no answer within --timeout.\n";

struct Options {
    std::vector<std::string> words;  ///< the verb's operands
    bool json{false};
    bool kill{false};
    bool help{false};
    std::chrono::seconds timeout{30};
    std::string crc{"weak"};
};

/// One line on standard error, and the exit code that goes with it.
int Fail(int code, const std::string& what, const std::string& why) {
    // Why EM is out of reach (no daemon, a refused identity, a bad configuration) is in the
    // library's log lines, which are off unless asked for.
    const char* sink = std::getenv("ARA_LOG_SINK");
    const bool quiet = code == kUnreachable && sink != nullptr && std::string(sink) == "none";
    std::cerr << "emctl: " << what << ": " << why << (quiet ? " (ARA_LOG_SINK=console shows why)" : "") << "\n";
    return code;
}

std::string Message(const ara::core::ErrorCode& error) {
    return error.Domain().Message(error.Value());
}

int Unreachable(const std::string& what) {
    return Fail(kUnreachable, what, Message(ara::exec::MakeErrorCode(ExecErrc::kCommunicationError, 0)));
}

std::string JsonText(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20U) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned int>(c));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

/// Waits until the state manager service is found, up to `limit` (each try after the first
/// takes 10 ms); once it was not, the answer stays no for the rest of the run.
bool Reachable(Clock::duration limit) {
    static const ara::exec::StateClient probe;  // CommunicationProcessing needs one to exist
    static bool unreachable = false;
    const auto deadline = Clock::now() + limit;
    while (!unreachable && !ara::exec::CommunicationProcessing()) {
        unreachable = Clock::now() >= deadline;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return !unreachable;
}

/// Reachable within 3 s, or within --timeout when that is shorter.
bool Reachable(const Options& options) {
    return Reachable(std::min<Clock::duration>(options.timeout, std::chrono::seconds(3)));
}

/// The outcome of a future that holds only success or an Exec code, waited for --timeout.
/// kCommunicationError means unreachable, and so does kGeneralError when `generalIsUnreachable`
/// (the restart's not-ready failure; Execution Management's own errors pass unchanged there).
int Await(ara::core::Future<void, ara::core::ErrorCode> future,
          const Options& options,
          const std::string& what,
          bool generalIsUnreachable = false) {
    if (future.wait_for(options.timeout) != ara::core::future_status::kReady) {
        return Fail(kTimedOut, what, "no answer within " + std::to_string(options.timeout.count()) + " s");
    }
    const auto result = future.GetResult();
    if (result.HasValue()) {
        return kOk;
    }
    const bool unreachable =
        result.Error() == ara::exec::MakeErrorCode(ExecErrc::kCommunicationError, 0) ||
        (generalIsUnreachable && result.Error() == ara::exec::MakeErrorCode(ExecErrc::kGeneralError, 0));
    return Fail(unreachable ? kUnreachable : kRefused, what, Message(result.Error()));
}

/// Health-manager and application calls report every failure as kGeneralError. Such a
/// failure is told apart by asking whether Execution Management answers at all, and a
/// read-only call is tried once more when it does (its own service may have been found later).
template <typename Call>
int RetryOnce(const Options& options, const std::string& what, Call call) {
    auto result = call();
    if (!result.HasValue() && Reachable(options)) {
        result = call();
    }
    if (result.HasValue()) {
        return kOk;
    }
    const bool busy = result.Error() == ara::exec::MakeErrorCode(ExecErrc::kBusy, 0);
    if (!busy && !Reachable(options)) {
        return Unreachable(what);
    }
    return Fail(kRefused, what, Message(result.Error()));
}

int StateGet(const Options& options) {
    const std::string& group = options.words[0];
    const std::string what = "state get " + group;
    const ara::exec::StateClient client;
    if (!Reachable(options)) {
        return Unreachable(what);
    }
    ara::core::String state;
    const int code = Await(client.GetState(group, state), options, what);
    if (code == kOk) {
        std::cout << (options.json ? "{\"functionGroup\": " + JsonText(group) + ", \"state\": " + JsonText(state) + "}"
                                   : state)
                  << "\n";
    }
    return code;
}

int StateSet(const Options& options) {
    const std::string& group = options.words[0];
    const std::string& state = options.words[1];
    const std::string what = "state set " + group + " " + state;
    const ara::exec::StateClient client;
    if (!Reachable(options)) {
        return Unreachable(what);
    }
    const ara::exec::FunctionGroup fg(ara::exec::FunctionGroup::Preconstruct(group).Value());
    const ara::exec::FunctionGroupState target(ara::exec::FunctionGroupState::Preconstruct(fg, state).Value());
    const int code = Await(client.SetState(target), options, what);
    if (code == kOk) {
        std::cout << group << " is in state " << state << "\n";
    }
    return code;
}

int WaitReady(const Options& options) {
    const ara::exec::StateClient client;
    if (!Reachable(options.timeout)) {
        return Unreachable("wait-ready");
    }
    const int code = Await(client.GetInitialMachineStateTransitionResult(), options, "wait-ready");
    if (code == kOk) {
        std::cout << "the initial machine state transition has completed\n";
    }
    return code;
}

int Ps(const Options& options) {
    const ara::exec::RecoveryActionClient client("emctl");
    std::vector<ara::exec::Process> list;
    const int code = RetryOnce(options, "ps", [&] { return client.GetProcessStates(list); });
    if (code != kOk) {
        return code;
    }
    if (options.json) {
        std::cout << "[";
        for (std::size_t i = 0U; i < list.size(); ++i) {
            const auto& p = list[i];
            std::cout << (i == 0U ? "" : ", ") << "{\"name\": " << JsonText(p.processName)
                      << ", \"functionGroup\": " << JsonText(p.functionGroupName)
                      << ", \"state\": " << JsonText(p.processState)
                      << ", \"pid\": " << (p.processId.empty() ? "null" : p.processId)
                      << ", \"running\": " << (p.isRunning ? "true" : "false") << "}";
        }
        std::cout << "]\n";
        return kOk;
    }
    std::size_t widths[3] = {4U, 5U, 5U};
    for (const auto& p : list) {
        widths[0] = std::max(widths[0], p.processName.size());
        widths[1] = std::max(widths[1], p.functionGroupName.size());
        widths[2] = std::max(widths[2], p.processState.size());
    }
    const auto row = [&](const std::string& a, const std::string& b, const std::string& c, const std::string& d) {
        std::printf("%-*s  %-*s  %-*s  %s\n",
                    static_cast<int>(widths[0]),
                    a.c_str(),
                    static_cast<int>(widths[1]),
                    b.c_str(),
                    static_cast<int>(widths[2]),
                    c.c_str(),
                    d.c_str());
    };
    row("NAME", "GROUP", "STATE", "PID");
    for (const auto& p : list) {
        row(p.processName, p.functionGroupName, p.processState, p.processId.empty() ? "-" : p.processId);
    }
    return kOk;
}

int Restart(const Options& options) {
    const std::string& name = options.words[0];
    const std::string what = "restart " + name;
    const ara::exec::RecoveryActionClient client("emctl");
    if (!Reachable(options)) {
        return Unreachable(what);
    }
    // Not repeated on failure: a restart is not idempotent.
    const int code = Await(client.ProcessRestart(name, options.kill), options, what, true);
    if (code == kOk) {
        std::cout << name << " restarted\n";
    }
    return code;
}

int Name(const Options& options) {
    const std::string& text = options.words[0];
    char* end = nullptr;
    errno = 0;
    const long pid = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || pid <= 0 || pid > 0x7FFFFFFF) {
        return Fail(kUsage, "name", "not a process id: " + text);
    }
    const ara::exec::RecoveryActionClient client("emctl");
    ara::core::String name;
    const int code = RetryOnce(options, "name " + text, [&] {
        auto result = client.GetProcessName(static_cast<int>(pid));
        if (result.HasValue()) {
            name = result.Value();
        }
        return result;
    });
    if (code == kOk) {
        std::cout << name << "\n";
    }
    return code;
}

int Report(const Options& options) {
    const std::string& state = options.words[0];
    if (state != "running" && state != "terminating") {
        return Fail(kUsage, "report", "the state is running or terminating, not " + state);
    }
    const ara::exec::ExecutionClient client;
    const auto value =
        state == "running" ? ara::exec::ExecutionState::kRunning : ara::exec::ExecutionState::kTerminating;
    const int code = RetryOnce(options, "report " + state, [&] { return client.ReportExecutionState(value); });
    if (code == kOk) {
        std::cout << "reported " << (state == "running" ? "kRunning" : "kTerminating") << " for pid " << getpid()
                  << "\n";
    }
    return code;
}

/// emd's own service, on an RPC endpoint of emctl's own: set up, found, then asked.
class EmdStatus {
public:
    EmdStatus() : rpc_(false, services::ErrorCodes()) { services::Address(rpc_, services::EMD_STATUS_SERVICE); }

    /// Starts the transport, binds the four methods and waits for the service, up to 3 s or
    /// --timeout when that is shorter; false when any step fails (a refused DDS Security grant
    /// fails the binding, with its line in the library's log).
    bool Reach(const Options& options) {
        ara::quill::common::log::Log::InitLog("", "CM", "");
        if (!rpc_.Initialize() || !Bind<services::GetProcessStatus>() || !Bind<services::GetGroupStatus>() ||
            !Bind<services::GetBlame>() || !Bind<services::GetDependencies>()) {
            return false;
        }
        // One wait on the discovery outcome, without the client's log line per failed check.
        const auto limit = std::min<Clock::duration>(options.timeout, std::chrono::seconds(3));
        const bool found =
            rpc_.findServiceFuture_.valid() && rpc_.findServiceFuture_.wait_for(limit) == std::future_status::ready;
        if (found) {
            // The same pause the clients make: the service's reply path to this new endpoint
            // may still be forming when its offer is seen.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return found;
    }

    /// The JSON answer of method M, or the exit code of a failure: kRefused (emd's message in
    /// Refused(), no line printed, for the caller to say what was refused) or another code
    /// with its line printed.
    template <typename M, typename... Args>
    int Ask(const Options& options, const std::string& what, std::string& json, const Args&... args) {
        const auto method = rpc_.proxy_.GetMethodProxy<ara::core::String>(M::ID);
        if (method == nullptr) {
            return Unreachable(what);
        }
        auto future = method->Request(args...);
        if (future.wait_for(options.timeout) != ara::core::future_status::kReady) {
            return Fail(kTimedOut, what, "no answer within " + std::to_string(options.timeout.count()) + " s");
        }
        const auto result = future.GetResult();
        if (result.HasValue()) {
            json = result.Value();
            return kOk;
        }
        // An Exec code from emd is its refusal; a lost service or a transport fault is not.
        const ara::core::ErrorCode& error = result.Error();
        if (error.Domain() == ara::exec::MakeErrorCode(ExecErrc::kGeneralError, 0).Domain() &&
            error != ara::exec::MakeErrorCode(ExecErrc::kCommunicationError, 0)) {
            refused_ = Message(error);
            return kRefused;
        }
        return Unreachable(what);
    }
    const std::string& Refused() const noexcept { return refused_; }

    /// Ask, with the answer parsed into `document` as well; an answer that is not a JSON
    /// object gives its line and kUnreachable.
    template <typename M, typename... Args>
    int Read(
        const Options& options, const std::string& what, std::string& json, Document& document, const Args&... args) {
        const int code = Ask<M>(options, what, json, args...);
        if (code != kOk) {
            return code;
        }
        if (document.ParseText(json) != ara::quill::common::jsonParser::PARSE_SUCCESS || !document.IsObject()) {
            std::cerr << "emctl: " << what << ": emd's answer is not a JSON object: " << document.GetParseError()
                      << "\n";
            return kUnreachable;
        }
        return kOk;
    }

private:
    template <typename M>
    bool Bind() {
        return rpc_.InitializeMethod<typename M::Result>(M::ID, false, false);
    }

    tarn::em::util::RpcClient rpc_;
    std::string refused_;
};

/// A duration of whole milliseconds as seconds with three decimals: "1.234s".
std::string Seconds(std::int64_t milliseconds) {
    char text[32];
    std::snprintf(text,
                  sizeof(text),
                  "%lld.%03llds",
                  static_cast<long long>(milliseconds / 1000),
                  static_cast<long long>(milliseconds % 1000));
    return text;
}

/// A member that may be null or missing: its text, or "-".
std::string TextOf(const Document& value) {
    if (value.IsString()) {
        return value.GetString();
    }
    if (value.IsNumber()) {
        return std::to_string(value.GetInt64());
    }
    return "-";
}

std::string DurationOf(const Document& value) {
    return value.IsNumber() ? Seconds(value.GetInt64()) : "-";
}

void Field(const char* label, const std::string& value) {
    std::printf("  %-15s %s\n", label, value.c_str());
}

void PrintProcess(const Document& p) {
    std::printf(
        "%s (process of %s)\n", p.Member("name").GetString().c_str(), p.Member("functionGroup").GetString().c_str());
    Field("phase:", TextOf(p.Member("phase")));
    Field("pid:", TextOf(p.Member("pid")));
    Field("readiness:", TextOf(p.Member("readiness")));
    Field("status:", TextOf(p.Member("statusText")));
    Field("restarts:", TextOf(p.Member("restarts")));
    Field("last exit:", TextOf(p.Member("lastExit")));
    Field("ready after:", DurationOf(p.Member("readyAfterMs")));
    const std::int64_t watchdog = p.Member("watchdogMs").GetInt64();
    Field("watchdog:",
          watchdog == 0 ? std::string("none")
                        : Seconds(watchdog) + ", last ping " + DurationOf(p.Member("sinceWatchdogMs")) + " ago");
    const Document dependsOn = p.Member("dependsOn");
    std::string dependencies;
    for (std::size_t i = 0U; i < dependsOn.Size(); ++i) {
        const Document d = dependsOn.Element(i);
        dependencies +=
            (i == 0U ? "" : ", ") + d.Member("process").GetString() + " (" + d.Member("condition").GetString() + ")";
    }
    Field("depends on:", dependencies.empty() ? "-" : dependencies);
    const auto mebibytes = [](const Document& bytes) {
        char text[32] = "-";
        if (bytes.IsNumber()) {
            std::snprintf(text, sizeof(text), "%.1f MiB", static_cast<double>(bytes.GetInt64()) / 1048576.0);
        }
        return std::string(text);
    };
    const Document memoryMax = p.Member("memoryMaxBytes");
    Field("memory:",
          mebibytes(p.Member("memoryBytes")) + (memoryMax.IsNumber() ? " (max " + mebibytes(memoryMax) + ")" : ""));
    Field("cpu time:", DurationOf(p.Member("cpuMs")));
}

void PrintGroup(const Document& g) {
    std::printf("%s (function group)\n", g.Member("name").GetString().c_str());
    Field("state:", TextOf(g.Member("state")));
    Field("target:", TextOf(g.Member("target")));
    Field("failed:", g.Member("failed").GetBool() ? "yes" : "no");
    Field("on failure:", TextOf(g.Member("onFailure")));
    Field("last result:", TextOf(g.Member("lastResult")));
    Field("escalated from:", TextOf(g.Member("escalatedFrom")));
}

int Status(const Options& options) {
    const std::string& name = options.words[0];
    const std::string what = "status " + name;
    EmdStatus emd;
    if (!emd.Reach(options)) {
        return Unreachable(what);
    }
    // A process first; a name that is no process may be a function group.
    std::string json;
    Document document;
    bool isProcess = true;
    int code = emd.Read<services::GetProcessStatus>(options, what, json, document, ara::core::String(name));
    if (code == kRefused) {
        isProcess = false;
        code = emd.Read<services::GetGroupStatus>(options, what, json, document, ara::core::String(name));
        if (code == kRefused) {
            return Fail(kRefused, what, "no process or function group is named " + name);
        }
    }
    if (code != kOk) {
        return code;
    }
    if (options.json) {
        std::cout << json << "\n";
    } else if (isProcess) {
        PrintProcess(document);
    } else {
        PrintGroup(document);
    }
    return kOk;
}

int Blame(const Options& options) {
    const std::string group = options.words.empty() ? std::string() : options.words[0];
    const std::string what = group.empty() ? "blame" : "blame " + group;
    EmdStatus emd;
    if (!emd.Reach(options)) {
        return Unreachable(what);
    }
    std::string json;
    Document document;
    const int code = emd.Read<services::GetBlame>(options, what, json, document, ara::core::String(group));
    if (code != kOk) {
        return code == kRefused ? Fail(kRefused, what, "no function group is named " + group) : code;
    }
    if (options.json) {
        std::cout << json << "\n";
        return kOk;
    }
    const Document processes = document.Member("processes");
    std::vector<std::pair<std::string, std::string>> lines;  // time, name
    std::size_t width = 0U;
    for (std::size_t i = 0U; i < processes.Size(); ++i) {
        const Document p = processes.Element(i);
        lines.emplace_back(DurationOf(p.Member("readyAfterMs")), p.Member("name").GetString());
        width = std::max(width, lines.back().first.size());
    }
    for (const auto& [time, name] : lines) {
        std::printf("%*s %s\n", static_cast<int>(width + 2U), time.c_str(), name.c_str());
    }
    return kOk;
}

/// `text` as a quoted Graphviz ID.
std::string DotId(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c == '\n' ? ' ' : c;
    }
    return out + "\"";
}

int Graph(const Options& options) {
    EmdStatus emd;
    if (!emd.Reach(options)) {
        return Unreachable("graph");
    }
    std::string json;
    Document document;
    const int code = emd.Read<services::GetDependencies>(options, "graph", json, document);
    if (code != kOk) {
        return code == kRefused ? Fail(kRefused, "graph", emd.Refused()) : code;
    }
    const Document processes = document.Member("processes");
    std::cout << "digraph emd {\n";
    for (std::size_t i = 0U; i < processes.Size(); ++i) {
        std::cout << "  " << DotId(processes.Element(i).Member("name").GetString()) << ";\n";
    }
    for (std::size_t i = 0U; i < processes.Size(); ++i) {
        const Document p = processes.Element(i);
        const Document dependsOn = p.Member("dependsOn");
        for (std::size_t j = 0U; j < dependsOn.Size(); ++j) {
            const Document d = dependsOn.Element(j);
            std::cout << "  " << DotId(p.Member("name").GetString()) << " -> " << DotId(d.Member("process").GetString())
                      << " [label=" << DotId(d.Member("condition").GetString()) << "];\n";
        }
    }
    std::cout << "}\n";
    return kOk;
}

/// One name per line, for scripts and the shell's completion: every configured process in
/// manifest order, or the function groups: MachineFG, which every manifest has, then each other
/// group that a process runs in (emd's services name no group without processes).
int List(const Options& options, bool groups) {
    const std::string what = groups ? "list groups" : "list processes";
    EmdStatus emd;
    if (!emd.Reach(options)) {
        return Unreachable(what);
    }
    std::string json;
    Document document;
    const int code = emd.Read<services::GetDependencies>(options, what, json, document);
    if (code != kOk) {
        return code == kRefused ? Fail(kRefused, what, emd.Refused()) : code;
    }
    std::vector<std::string> names;
    if (groups) {
        names.emplace_back(tarn::em::daemon::MACHINE_FG);
    }
    const Document processes = document.Member("processes");
    for (std::size_t i = 0U; i < processes.Size(); ++i) {
        const std::string name = processes.Element(i).Member(groups ? "functionGroup" : "name").GetString();
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    for (const std::string& name : names) {
        std::cout << name << "\n";
    }
    return kOk;
}

int Validate(const Options& options) {
    const std::string& file = options.words[0];
    if (options.crc != "strong" && options.crc != "weak" && options.crc != "not") {
        return Fail(kUsage, "--crc", "takes strong, weak or not, not " + options.crc);
    }
    const tarn::em::daemon::ManifestResult loaded = tarn::em::daemon::LoadManifest(file, options.crc);
    if (!loaded.ok) {
        return Fail(kRefused, "validate", "manifest refused: " + loaded.error.Text());
    }
    std::cout << file << ": valid, " << loaded.manifest.functionGroups.size() << " function groups, "
              << loaded.manifest.processes.size() << " processes\n";
    return kOk;
}

struct Verb {
    const char* name;
    std::size_t operands;     ///< at least
    std::size_t operandsMax;  ///< at most
    const char* synopsis;
    const char* description;
    std::function<int(const Options&)> run;
};

const Verb VERBS[] = {
    {"state get",
     1U,
     1U,
     "emctl state get FUNCTION_GROUP [--json]",
     "Prints the state the Function Group is in (--json: {\"functionGroup\": ..., \"state\": ...}).",
     StateGet},
    {"state set",
     2U,
     2U,
     "emctl state set FUNCTION_GROUP STATE [--timeout SEC]",
     "Asks for the transition and waits until it has completed, failed or been cancelled.",
     StateSet},
    {"ps",
     0U,
     0U,
     "emctl ps [--json]",
     "Lists every configured process: name, Function Group, state and pid (\"-\" while none exists);\n"
     "--json: a list of {\"name\", \"functionGroup\", \"state\", \"pid\" (null while none), \"running\"}.",
     Ps},
    {"restart",
     1U,
     1U,
     "emctl restart NAME [--kill] [--timeout SEC]",
     "Restarts the process and waits until it reported kRunning again. --kill ends it with\n"
     "SIGKILL at once instead of SIGTERM and its termination time-out.",
     Restart},
    {"name", 1U, 1U, "emctl name PID", "Prints the configured name of the process with that pid.", Name},
    {"report",
     1U,
     1U,
     "emctl report running|terminating",
     "Reports kRunning or kTerminating for emctl's own pid; Execution Management accepts it only\n"
     "from a process it started (a manifest entry whose executable is emctl, for example).",
     Report},
    {"wait-ready",
     0U,
     0U,
     "emctl wait-ready [--timeout SEC]",
     "Waits until Execution Management answers and its initial machine state transition has ended;\n"
     "succeeds when that transition succeeded.",
     WaitReady},
    {"status",
     1U,
     1U,
     "emctl status NAME [--json]",
     "Shows a process (phase, pid, readiness kind and status text, restarts, last exit, launch to\n"
     "ready, watchdog period and time since its last ping, dependencies) or, when no process has\n"
     "that name, a Function Group (state, target, failed, onFailure, how its last transition\n"
     "ended, the state it escalated from). --json: emd's answer as it came. Asks emd's own service.",
     Status},
    {"blame",
     0U,
     1U,
     "emctl blame [FUNCTION_GROUP] [--json]",
     "Lists the processes that the last transition of the Function Group (of every group when none\n"
     "is named) started, with the time from launch to ready, slowest first. --json: emd's answer.",
     Blame},
    {"graph",
     0U,
     0U,
     "emctl graph",
     "Prints the dependencies between the processes as a Graphviz digraph: one node per process\n"
     "and an edge from each process to each one it depends on, labelled running or terminated.",
     Graph},
    {"list processes",
     0U,
     0U,
     "emctl list processes",
     "Prints the name of every configured process, one per line, in manifest order. Asks emd's\n"
     "own service.",
     [](const Options& options) { return List(options, false); }},
    {"list groups",
     0U,
     0U,
     "emctl list groups",
     "Prints the Function Groups, one per line: MachineFG, then every other group that a process\n"
     "runs in. Asks emd's own service.",
     [](const Options& options) { return List(options, true); }},
    {"validate",
     1U,
     1U,
     "emctl validate FILE [--crc strong|weak|not]",
     "Validates the manifest FILE as emd --check does, without asking emd: prints\n"
     "\"FILE: valid, N function groups, M processes\" and exits 0, or prints where and why it is\n"
     "refused and exits 1. --crc: the sidecar check, as emd's option (default weak).",
     Validate},
};

void PrintUsage(std::ostream& out) {
    out << "usage: emctl VERB [OPTIONS]   (emctl VERB --help for one verb)\n\n";
    for (const Verb& verb : VERBS) {
        out << "  " << verb.synopsis << "\n";
    }
    out << "\nOptions: --version, --json (ps, state get, status, blame), --kill (restart), --timeout SEC (waits;\n"
        << "default 30), --crc strong|weak|not (validate; default weak).\n"
        << "Errors go to standard error as one line: \"emctl: <request>: <Execution Management's message>\".\n"
        << "Set ARA_LOG_SINK=console to see the library's log lines.\n"
        << EXIT_CODES;
}

/// Library log lines are off unless the caller chose sinks; the choice is read when the
/// process starts, so making it takes a fresh start.
void QuietLibraryLog(char** argv) {
    if (std::getenv("ARA_LOG_SINK") == nullptr) {
        setenv("ARA_LOG_SINK", "none", 1);
        execv("/proc/self/exe", argv);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QuietLibraryLog(argv);
    std::vector<std::string> args(argv + 1, argv + argc);
    Options options;
    std::vector<std::string> words;
    for (std::size_t i = 0U; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--kill") {
            options.kill = true;
        } else if (arg == "--help" || arg == "-h") {
            options.help = true;
        } else if (arg == "--version") {
            std::cout << "emctl " << ARA_EXEC_VERSION << "\n";
            return kOk;
        } else if (arg == "--timeout" && i + 1U < args.size()) {
            const std::string value = args[++i];
            char* end = nullptr;
            const long seconds = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || seconds <= 0 || seconds > 86400) {
                return Fail(kUsage, "--timeout", "takes 1 to 86400 seconds, not " + value);
            }
            options.timeout = std::chrono::seconds(seconds);
        } else if (arg == "--crc" && i + 1U < args.size()) {
            options.crc = args[++i];
        } else if (arg.rfind("--", 0) == 0) {
            PrintUsage(std::cerr);
            return Fail(kUsage, "usage", "unknown option " + arg);
        } else {
            words.push_back(arg);
        }
    }
    for (const Verb& verb : VERBS) {
        const std::string name = verb.name;
        const std::size_t nameWords = name.find(' ') == std::string::npos ? 1U : 2U;
        std::string given;
        for (std::size_t i = 0U; i < nameWords && i < words.size(); ++i) {
            given += (i == 0U ? "" : " ") + words[i];
        }
        if (given != name) {
            continue;
        }
        if (options.help) {
            std::cout << "usage: " << verb.synopsis << "\n\n" << verb.description << "\n\n" << EXIT_CODES;
            return kOk;
        }
        if (words.size() < nameWords + verb.operands || words.size() > nameWords + verb.operandsMax) {
            std::cerr << "usage: " << verb.synopsis << "\n";
            return kUsage;
        }
        options.words.assign(words.begin() + static_cast<std::ptrdiff_t>(nameWords), words.end());
        return verb.run(options);
    }
    if (options.help && words.empty()) {
        PrintUsage(std::cout);
        return kOk;
    }
    PrintUsage(std::cerr);
    return kUsage;
}
