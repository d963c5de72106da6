// SPDX-License-Identifier: Apache-2.0
// Starting and signalling the supervised processes: the only part of emd that forks, execs
// and sends signals. The supervisor sees it through the narrow Launcher interface; reaping
// is the event loop's, which hands every exit status to the supervisor.
#ifndef TARN_EM_DAEMON_LAUNCHER_H
#define TARN_EM_DAEMON_LAUNCHER_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "cgroups.h"
#include "manifest.h"
#include "process_output.h"

namespace tarn::em::daemon {

struct SpawnResult {
    pid_t pid{-1};      ///< the started process, or -1
    std::string error;  ///< why it did not start, when pid is -1
    /// What the launch cost emd: from the call until the child ran its executable or failed
    /// (the calling thread waits that long), and the CPU time of the calling thread in it.
    std::chrono::microseconds cost{0};
    std::chrono::microseconds cpu{0};
};

class Launcher {
public:
    virtual ~Launcher() = default;
    /// Starts `process` as configured; returns once it runs its executable or failed to.
    virtual SpawnResult Spawn(const ProcessConfig& process) = 0;
    /// Sends `signal` to `pid`; false when the process is gone.
    virtual bool Signal(pid_t pid, int signal) = 0;
    /// The main process `pid` of `process` has been reaped: ends what is left of its tree.
    virtual void TreeEnded(const ProcessConfig& /*process*/, pid_t /*pid*/) {}
    /// `process` is Idle, Failed or Terminated: what it was given to run in may go.
    virtual void Release(const ProcessConfig& /*process*/) {}
    /// A descendant of a process, orphaned and inherited by emd, has been reaped.
    virtual void Reaped(pid_t /*pid*/) {}
    /// The memory and CPU use of `process`; absent where it cannot be measured.
    virtual ResourceUse Usage(const ProcessConfig& /*process*/) const { return {}; }
};

/// vfork and exec. Each child runs in a process group of its own (a terminal's Ctrl-C reaches
/// emd, which stops the children in order), with an empty signal mask, standard input from
/// /dev/null, no descriptor of emd's but standard output and error, and the death signal
/// SIGKILL, so that no child outlives a killed emd. The executable is checked (absolute,
/// existing, executable, not a directory) before anything is forked.
///
/// The environment is emd's own without NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID (which
/// belong to whatever supervises emd), plus the notify protocol's: NOTIFY_SOCKET for a process
/// with readiness notify or a watchdog, and for a watchdog WATCHDOG_USEC (its period) and
/// WATCHDOG_PID (its own pid); then the process's own entries, which replace any of these.
///
/// Standard output and error go where the process's `output` says; for "log" the read end of
/// its pipe goes to `outputs` (without `outputs` the child keeps emd's, as for "inherit").
/// `nofile`, when given, is the RLIMIT_NOFILE each child gets back from emd's raised one,
/// unless the manifest's limits set their own. With `cgroups`, each child joins its process's
/// groups (cgroups.h) before anything else, and the tree of a reaped process is ended through
/// them; without, through its process group.
class PosixLauncher final : public Launcher {
public:
    /// `notifyAddress` is the value of NOTIFY_SOCKET; empty: none is given.
    explicit PosixLauncher(std::string notifyAddress = {},
                           OutputPipes* outputs = nullptr,
                           std::optional<rlimit> nofile = std::nullopt,
                           Cgroups* cgroups = nullptr)
        : notifyAddress_(std::move(notifyAddress)), outputs_(outputs), nofile_(nofile), cgroups_(cgroups) {}
    SpawnResult Spawn(const ProcessConfig& process) override;
    bool Signal(pid_t pid, int signal) override;
    void TreeEnded(const ProcessConfig& process, pid_t pid) override;
    void Release(const ProcessConfig& process) override;
    void Reaped(pid_t pid) override;
    ResourceUse Usage(const ProcessConfig& process) const override;

private:
    SpawnResult Launch(const ProcessConfig& process);

    std::string notifyAddress_;
    OutputPipes* outputs_;
    std::optional<rlimit> nofile_;
    Cgroups* cgroups_;
};

/// The text of a wait status: "exit code N" or "signal N (NAME)".
std::string DescribeExit(int status);

}  // namespace tarn::em::daemon

#endif
