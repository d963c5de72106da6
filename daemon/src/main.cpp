// SPDX-License-Identifier: Apache-2.0
// emd: reads the machine manifest, offers the Execution Management services, supervises the
// manifest's processes, and stops them all in reverse start order on SIGTERM or SIGINT.
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "cgroups.h"
#include "event_loop.h"
#include "launcher.h"
#include "manifest.h"
#include "notify_socket.h"
#include "process_output.h"
#include "service_manager.h"
#include "services.h"
#include "supervisor.h"

namespace {

constexpr int EXIT_USAGE = 2;
constexpr int EXIT_MANIFEST = 3;
constexpr int EXIT_TRANSPORT = 4;
/// emd's soft descriptor limit is raised up to this (one log pipe per process, DDS sockets).
constexpr rlim_t NOFILE_CAP = 65536U;

const char* const USAGE =
    "usage: emd --manifest FILE [--crc strong|weak|not] [--log console|dlt|none] [--log-level LEVEL] [--check]\n"
    "           [--ready-fd FD]\n"
    "       emd --version\n"
    "\n"
    "Runs the Execution Management daemon: offers the application service (DDS domain 2) and\n"
    "the state manager and platform health manager services (domain 4), moves every function\n"
    "group of the manifest to its initial state, and supervises the manifest's processes.\n"
    "SIGTERM or SIGINT stops every process in reverse start order, then emd exits 0.\n"
    "\n"
    "  --manifest FILE   the machine manifest (JSON, format in daemon/README.md)\n"
    "  --crc MODE        verification of FILE against FILE.crc32: strong (must match), weak\n"
    "                    (checked when present, the default) or not\n"
    "  --log SINKS       log sinks, a comma list of console, dlt, none (default: ARA_LOG_SINK, or console)\n"
    "  --log-level LEVEL fatal, error, warn, info, debug or verbose (default: ARA_LOG_LEVEL, or info)\n"
    "  --check           only load and validate FILE, print what it holds, and exit (0 or 3)\n"
    "  --ready-fd FD     also write \"ready\" and a line feed to descriptor FD, then close it (a pipe\n"
    "                    that a parent reads, apart from the output the processes share)\n"
    "  --version         print \"emd VERSION\" and exit\n"
    "\n"
    "Prints \"ready\" on standard output once the services are offered. Under a service manager\n"
    "(NOTIFY_SOCKET set) emd also tells it READY=1 then, STOPPING=1 when it begins to stop, and\n"
    "WATCHDOG=1 at half the period of WATCHDOG_USEC.\n"
    "Exit codes: 0 stopped by signal, 2 bad usage, 3 manifest refused, 4 the services or the notify socket\n"
    "cannot be made.\n";

struct Options {
    std::string manifest;
    std::string crc = "weak";
    std::string sinks;
    std::string level;
    bool check{false};
    int readyFd{-1};
};

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            std::cout << USAGE;
            std::exit(0);
        }
        if (option == "--version") {
            std::cout << "emd " << ARA_EXEC_VERSION << "\n";
            std::exit(0);
        }
        if (option == "--check") {
            options.check = true;
            continue;
        }
        if (i + 1 >= argc) {
            return false;
        }
        const std::string value = argv[++i];
        if (option == "--manifest") {
            options.manifest = value;
        } else if (option == "--crc") {
            options.crc = value;
        } else if (option == "--log") {
            options.sinks = value;
        } else if (option == "--log-level") {
            options.level = value;
        } else if (option == "--ready-fd") {
            char* end = nullptr;
            const long fd = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || fd < 0 || fd > 65535) {
                return false;
            }
            options.readyFd = static_cast<int>(fd);
        } else {
            return false;
        }
    }
    return !options.manifest.empty();
}

/// The log sinks and level are read from the environment when the process starts, so a
/// choice on the command line (or the daemon's default level, info) takes a fresh start.
void ApplyLogChoice(const Options& options, char** argv) {
    const char* sinks = std::getenv("ARA_LOG_SINK");
    const char* level = std::getenv("ARA_LOG_LEVEL");
    const std::string wantedLevel = !options.level.empty() ? options.level : (level != nullptr ? level : "info");
    const bool sinksDiffer = !options.sinks.empty() && (sinks == nullptr || options.sinks != sinks);
    if (!sinksDiffer && level != nullptr && wantedLevel == level) {
        return;
    }
    if (sinksDiffer) {
        setenv("ARA_LOG_SINK", options.sinks.c_str(), 1);
    }
    setenv("ARA_LOG_LEVEL", wantedLevel.c_str(), 1);
    execv("/proc/self/exe", argv);
    std::cerr << "emd: cannot restart itself to apply the log choice: " << std::strerror(errno) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tarn::em::daemon;
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::cerr << USAGE;
        return EXIT_USAGE;
    }
    ApplyLogChoice(options, argv);
    // Taken before any thread exists; the processes get emd's own notify socket instead.
    const ManagerEnvironment managerEnvironment = TakeManagerEnvironment();
    if (!EventLoop::BlockSignals()) {
        std::cerr << "emd: cannot block SIGCHLD, SIGTERM and SIGINT\n";
        return EXIT_TRANSPORT;
    }
    ara::quill::common::log::Log::InitLog("EMD", "EMD", "Execution Management daemon");
    const auto log = ara::quill::common::log::Log::GetLog("EMD");

    if (options.crc != "strong" && options.crc != "weak" && options.crc != "not") {
        std::cerr << "emd: --crc takes strong, weak or not\n";
        return EXIT_USAGE;
    }
    ManifestResult loaded = LoadManifest(options.manifest, options.crc);
    // The cgroups the manifest's limits need: made before the check, so that a controller the
    // kernel will not enable below emd counts as missing; removed again on every way out.
    Cgroups cgroups(Cgroups::Detect());
    if (loaded.ok && !options.check) {
        cgroups.Setup();
    }
    for (const CgroupLimitProblem& problem :
         loaded.ok ? cgroups.Check(loaded.manifest) : std::vector<CgroupLimitProblem>{}) {
        if (problem.required) {
            loaded.ok = false;
            loaded.error = ManifestError{options.manifest, problem.place, problem.problem};
            break;
        }
        log->warn() << "[emd][cgroup limit not applied][" << problem.place << ": " << problem.problem << "]";
    }
    if (!loaded.ok) {
        const std::string text = loaded.error.Text();
        log->error() << "[emd][Manifest refused][" << text << "]";
        std::cerr << "emd: manifest refused: " << text << "\n";
        return EXIT_MANIFEST;
    }
    if (options.check) {
        std::cout << options.manifest << ": valid, " << loaded.manifest.functionGroups.size() << " function groups, "
                  << loaded.manifest.processes.size() << " processes\n";
        return 0;
    }
    log->info() << "[emd][Manifest loaded][file=" << options.manifest
                << ", function_groups=" << loaded.manifest.functionGroups.size()
                << ", processes=" << loaded.manifest.processes.size() << "]";

    const DescriptorLimit nofile = RaiseDescriptorLimit(NOFILE_CAP);
    if (!nofile.error.empty()) {
        log->warn() << "[emd][Descriptor limit not raised][reason=" << nofile.error << "]";
    } else if (nofile.raisedTo != 0U) {
        log->info() << "[emd][Descriptor limit raised][from=" << nofile.original.rlim_cur << ", to=" << nofile.raisedTo
                    << "]";
    }
    std::optional<rlimit> childNofile;  // what the children get back
    if (nofile.raisedTo != 0U) {
        childNofile = nofile.original;
    }
    OutputPipes outputs;

    NotifySocket notify;
    std::string notifyError;
    if (!notify.Open(notifyError)) {
        log->error() << "[emd][Notify socket not made][reason=" << notifyError << "]";
        std::cerr << "emd: " << notifyError << "\n";
        return EXIT_TRANSPORT;
    }
    // Orphans of the processes' trees become emd's children, reaped by the event loop.
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        log->warn() << "[emd][Not the subreaper of its processes][reason=" << std::strerror(errno) << "]";
    }
    ServiceManager manager(managerEnvironment, getpid(), Clock::now());
    const std::string readyStatus = "serving " + std::to_string(loaded.manifest.functionGroups.size()) +
                                    " function groups, " + std::to_string(loaded.manifest.processes.size()) +
                                    " processes";
    PosixLauncher launcher(notify.Address(), &outputs, childNofile, &cgroups);
    Supervisor supervisor(std::move(loaded.manifest), launcher);
    EventLoop loop(supervisor, &notify, &outputs, &manager);
    if (!loop.Valid()) {
        std::cerr << "emd: cannot create its signal and wake-up descriptors\n";
        return EXIT_TRANSPORT;
    }
    {
        Services services(loop);
        std::string error;
        if (!services.Offer(error)) {
            log->error() << "[emd][Services not offered][reason=" << error << "]";
            std::cerr << "emd: " << error << "\n";
            return EXIT_TRANSPORT;
        }
        log->info() << "[emd][Services offered]";
        std::cout << "ready" << std::endl;
        if (options.readyFd >= 0) {
            const char ready[] = "ready\n";
            if (write(options.readyFd, ready, sizeof(ready) - 1U) < 0) {
                log->warn() << "[emd][Ready descriptor not written][fd=" << options.readyFd << "]";
            }
            close(options.readyFd);
        }
        manager.Ready(readyStatus);
        supervisor.Start(Clock::now());
        loop.Run();
    }
    log->info() << "[emd][Stopped]";
    return 0;
}
