// SPDX-License-Identifier: Apache-2.0
// The supervisor: the owner of every function group and every supervised process. Each
// process is a ProcessMachine (process_machine.h); the supervisor feeds it its events
// (launched, reported kRunning or kTerminating, exited, time-out, stop requested) and carries
// out the actions it returns. Each group is a GroupTransition (group_transition.h), which
// converges on its target state by stopping what must not run and then starting what must.
// Only the event loop's thread calls it; it never blocks and never touches the OS but
// through the Launcher.
#ifndef TARN_EM_DAEMON_SUPERVISOR_H
#define TARN_EM_DAEMON_SUPERVISOR_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ara/core/result.h"
#include "ara/core/string.h"
#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "ara/quill/common/log/log.h"
#include "group_transition.h"
#include "launcher.h"
#include "manifest.h"
#include "notify_message.h"
#include "process_machine.h"

namespace tarn::em::daemon {

/// What `emctl status` shows of one process.
struct ProcessStatus {
    std::string name;
    std::string functionGroup;
    std::string phase;  ///< ProcessPhaseName
    pid_t pid{-1};      ///< -1 while no OS process exists
    Readiness readiness{Readiness::kReport};
    std::string statusText;                                  ///< the last STATUS=... it sent, if any
    unsigned int restarts{0U};                               ///< restarts counted against its start limit now
    std::string lastExit;                                    ///< DescribeExit of its last exit; empty before the first
    std::optional<std::chrono::milliseconds> readyAfter;     ///< launch to ready, of its last start
    std::chrono::milliseconds watchdog{0};                   ///< its period; 0: none
    std::optional<std::chrono::milliseconds> sinceWatchdog;  ///< since its last WATCHDOG=1 (or ready)
    std::vector<Dependency> dependsOn;
    std::optional<std::uint64_t> memoryBytes;  ///< from its cgroups, while it has them
    std::optional<std::uint64_t> cpuUsec;      ///< CPU time of its cgroups since they were made
    std::optional<std::uint64_t> memoryMax;    ///< the memory limit the kernel holds its group to
};

/// What `emctl status GROUP` shows of one function group.
struct GroupStatus {
    std::string name;
    std::string state;   ///< empty until its first transition has ended
    std::string target;  ///< the state it is moving to; empty between transitions
    bool failed{false};
    std::string onFailure;      ///< from the manifest; empty: none
    std::string lastResult;     ///< how its last transition ended: "completed", or why not
    std::string escalatedFrom;  ///< the state it left by itself for onFailure; empty: never escalated
};

/// One line of `emctl blame`: a process started by its group's last transition.
struct BlameEntry {
    std::string process;
    std::string functionGroup;
    std::chrono::milliseconds readyAfter{0};  ///< launch to ready
};

class Supervisor final : private GroupTransition::Members {
public:
    /// Where a process is in its life; the texts are what GetProcessStates reports.
    using Phase = ProcessPhase;
    static const char* PhaseName(Phase phase) noexcept { return ProcessPhaseName(phase); }

    /// `clock` is read for the time of the launches that LaunchQueued makes.
    Supervisor(Manifest manifest, Launcher& launcher, std::function<Clock::time_point()> clock = &Clock::now);
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    /// Moves every function group to its initial state; the outcome of MachineFG's move is
    /// what GetInitialResult answers.
    void Start(Clock::time_point now);
    /// Launches the processes that transitions queued, in order, until one has been launched
    /// and `until` has passed; true when some are still queued. The event loop calls it
    /// between its other events, so that hundreds of launches never hold up a signal, an exit
    /// or a request.
    bool LaunchQueued(Clock::time_point until);
    /// Asks `group` to move to `state`: kInvalidArguments for an unknown group or state; a
    /// transition still under way for the group ends with kCancelled. `done` runs when the
    /// transition completed (success) or failed (kFailed).
    void SetState(const std::string& group, const std::string& state, Completion done, Clock::time_point now);
    /// `done` runs once the initial transition of MachineFG has ended.
    void GetInitialResult(Completion done);
    /// The state the group is in; kFailed when its last transition failed or a process of
    /// it used up its restarts; kBusy while it has no state yet (its first transition is
    /// under way); kInvalidArguments for an unknown group.
    ara::core::Result<ara::core::String, ara::core::ErrorCode> GetState(const std::string& group) const;
    /// One entry per configured process, in manifest order.
    std::vector<ara::exec::Process> ProcessStates() const;
    /// The configured name of a process emd started and that still exists.
    ara::core::Result<ara::core::String, ara::core::ErrorCode> ProcessName(pid_t pid) const;
    /// Stops the process (SIGKILL at once when `kill`, else SIGTERM with its time-out) and
    /// starts it again; `done` runs once it reported kRunning or failed.
    void Restart(const std::string& name, bool kill, Completion done, Clock::time_point now);
    /// A report of a process emd started; kInvalidArguments for another pid or an unknown state.
    Outcome Report(pid_t pid, ara::exec::ExecutionState state, Clock::time_point now);
    /// A child has been reaped with wait status `status`.
    void OnExit(pid_t pid, int status, Clock::time_point now);
    /// Acts on every time-out that is due.
    void OnTimer(Clock::time_point now);
    /// The earliest pending time-out.
    std::optional<Clock::time_point> NextDeadline() const;
    /// Stops the processes of every group but MachineFG at once, then, once they are gone,
    /// those of MachineFG; pending requests end with kFailed. Called again, kills whatever
    /// still runs.
    void Shutdown(Clock::time_point now);
    /// True once Shutdown was asked and no process is left.
    bool Finished() const;

    /// A notify-protocol datagram from the OS process `pid` that emd started (the event loop
    /// has already traced the sender to it); ignored for another pid.
    void Notify(pid_t pid, const NotifyMessage& message, Clock::time_point now);
    /// True when `pid` is an OS process that emd started and that still exists.
    bool Supervises(pid_t pid) const { return FindByPid(pid).has_value(); }

    /// The manifest it runs.
    const Manifest& Config() const noexcept { return manifest_; }
    std::optional<ProcessStatus> StatusOf(const std::string& process, Clock::time_point now) const;
    std::optional<GroupStatus> GroupStatusOf(const std::string& group) const;
    /// The processes started by the last transition of `group` (every group when empty),
    /// slowest to become ready first.
    std::vector<BlameEntry> Blame(const std::string& group) const;

private:
    struct Proc {
        ProcessMachine machine;
        std::size_t group;
        std::vector<Completion> restartWaiters;
        std::vector<std::size_t> neededBy;  ///< processes that depend on it
        std::string statusText;             ///< its last STATUS=...
    };

    std::optional<std::size_t> FindGroup(const std::string& name) const;
    std::optional<std::size_t> FindByPid(pid_t pid) const;
    /// Hands `event` to the process's machine and carries out the actions it returns, in order.
    void Feed(std::size_t index, const ProcessEvent& event, Clock::time_point now);
    void Carry(std::size_t index, const ProcessAction& action, Clock::time_point now);
    void Converge(std::size_t group, Clock::time_point now);
    void EndTransition(std::size_t group, const Outcome& outcome, const std::string& how);
    /// The group's transition has ended: the first of MachineFG is GetInitialResult's answer.
    void Ended(std::size_t group, const Outcome& outcome);
    // What a group's transition asks of its processes.
    ProcessPhase PhaseOf(std::size_t process) const override { return procs_[process].machine.Phase(); }
    void Withdraw(std::size_t process, Clock::time_point now) override;
    void Bring(std::size_t process, Clock::time_point now) override;
    void Answer(std::vector<Completion>& waiters, const Outcome& outcome);
    void ContinueShutdown(Clock::time_point now);
    /// A process of `group` used up its restarts: the group moves to its onFailure state, or
    /// is failed when it has none (or is already there).
    void StartLimit(std::size_t group, const std::string& process, Clock::time_point now);

    Manifest manifest_;
    Launcher& launcher_;
    std::function<Clock::time_point()> clock_;
    std::vector<GroupTransition> groups_;
    std::vector<Proc> procs_;
    std::deque<std::size_t> launchQueue_;  // indices into procs_
    std::optional<Outcome> initialResult_;
    std::vector<Completion> initialWaiters_;
    bool shuttingDown_{false};
    std::shared_ptr<ara::quill::common::log::Log> log_;
};

}  // namespace tarn::em::daemon

#endif
