// SPDX-License-Identifier: Apache-2.0
// The life of one supervised process as a state machine. Handle() takes one event in the
// process's current phase and returns what must be done about it, in the order it must be
// done: the log lines of the transition, launches, signals, the answers to the restart
// waiters and what the process's function group must hear. The machine keeps the process's
// pid, deadline and restart count; it never touches the OS or the group itself. The
// supervisor carries out the actions and feeds the outcome of a launch back as an event.
#ifndef TARN_EM_DAEMON_PROCESS_MACHINE_H
#define TARN_EM_DAEMON_PROCESS_MACHINE_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"
#include "launcher.h"
#include "manifest.h"

namespace tarn::em::daemon {

using Clock = std::chrono::steady_clock;

/// Where a process is in its life; the texts are what GetProcessStates reports. kTerminated
/// is the end of a one-shot (a process others need terminated): it exited with status 0.
enum class ProcessPhase : std::uint8_t { kIdle, kStarting, kRunning, kTerminating, kRestarting, kFailed, kTerminated };
const char* ProcessPhaseName(ProcessPhase phase) noexcept;

/// What becomes of a process once a stop has ended: idle, failed, launched again for a
/// ProcessRestart, or what its restart policy says (a start that failed).
enum class AfterStop : std::uint8_t { kIdle, kFailed, kRelaunch, kRestartPolicy };

struct ProcessEvent {
    enum class Kind : std::uint8_t {
        kStart,       ///< its group's transition wants it running: queue its launch
        kDequeued,    ///< its turn in the launch queue has come
        kSpawned,     ///< the launch asked for has been made: `spawn`
        kReported,    ///< it reported `state` (kRunning or kTerminating)
        kExited,      ///< it has been reaped with wait status `status`
        kTimer,       ///< its deadline may be due
        kStop,        ///< stop it (SIGKILL at once when `kill`, else SIGTERM); `after`: kIdle, or
                      ///< kRelaunch to launch it again (ProcessRestart)
        kShutdown,    ///< emd stops: drop its queued launch and answer its restart waiters
        kKill,        ///< SIGKILL at once, whatever it is doing (a second shutdown request)
        kReady,       ///< READY=1 on the notify socket
        kPing,        ///< WATCHDOG=1: it is alive
        kPingMissed,  ///< WATCHDOG=trigger: treat it as a missed watchdog period now
        kExtend,      ///< EXTEND_TIMEOUT_USEC: the start-up or stop time-out runs `extend` from now at least
    };
    Kind kind{Kind::kTimer};
    SpawnResult spawn;
    ara::exec::ExecutionState state{ara::exec::ExecutionState::kRunning};
    int status{0};
    bool kill{false};
    AfterStop after{AfterStop::kIdle};
    std::chrono::microseconds extend{0};

    static ProcessEvent Of(Kind kind) {
        ProcessEvent event;
        event.kind = kind;
        return event;
    }
    static ProcessEvent Spawned(SpawnResult spawn) {
        ProcessEvent event = Of(Kind::kSpawned);
        event.spawn = std::move(spawn);
        return event;
    }
    static ProcessEvent Reported(ara::exec::ExecutionState state) {
        ProcessEvent event = Of(Kind::kReported);
        event.state = state;
        return event;
    }
    static ProcessEvent Exited(int status) {
        ProcessEvent event = Of(Kind::kExited);
        event.status = status;
        return event;
    }
    static ProcessEvent Stop(bool kill, AfterStop after) {
        ProcessEvent event = Of(Kind::kStop);
        event.kill = kill;
        event.after = after;
        return event;
    }
    static ProcessEvent Extend(std::chrono::microseconds extend) {
        ProcessEvent event = Of(Kind::kExtend);
        event.extend = extend;
        return event;
    }
};

/// What the machine must know of the world around it to take an event.
struct ProcessContext {
    bool wanted{false};          ///< it runs in the state its group is in, or moving to
    bool inTransition{false};    ///< its group is moving to a state it runs in
    bool restartWaiters{false};  ///< a ProcessRestart waits for it
    bool shuttingDown{false};    ///< emd stops
};

struct ProcessAction {
    enum class Kind : std::uint8_t {
        kLog,               ///< write `text` at `level`
        kEnqueue,           ///< append it to the launch queue
        kLaunch,            ///< spawn it, then hand the outcome back as kSpawned
        kSignal,            ///< send `signal` to `pid`; log when it was not delivered and `warnUndelivered`
        kAnswer,            ///< answer the restart waiters: success, or `error`
        kConverge,          ///< its group goes on with its transition
        kFailTransition,    ///< its group's transition ends with kFailed; `text` says why
        kGroupFailed,       ///< its group's failed mark becomes `failed`
        kContinueShutdown,  ///< the shutdown goes on with the next processes
        kStartLimit         ///< it used up its restarts: its group escalates to its onFailure state, or fails
    };
    Kind kind{Kind::kLog};
    ara::quill::common::log::LogLevel level{ara::quill::common::log::LogLevel::kInfo};
    std::string text;
    pid_t pid{-1};
    int signal{0};
    bool warnUndelivered{false};
    std::optional<ara::exec::ExecErrc> error;
    bool failed{false};
};

class ProcessMachine {
public:
    /// `oneShot`: another process needs it terminated; its exit with status 0 is its success.
    explicit ProcessMachine(const ProcessConfig& config, bool oneShot = false) : config_(&config), oneShot_(oneShot) {}

    /// Takes `event` at `now`; what to do about it, in order. Events that mean nothing in the
    /// current phase (a kRunning report of a running process, a timer not yet due) change
    /// nothing and return nothing.
    std::vector<ProcessAction> Handle(const ProcessEvent& event, const ProcessContext& context, Clock::time_point now);

    const ProcessConfig& Config() const noexcept { return *config_; }
    ProcessPhase Phase() const noexcept { return phase_; }
    /// The OS process, or -1 while none exists.
    pid_t Pid() const noexcept { return pid_; }
    /// Starting, waiting in the launch queue: no OS process yet.
    bool Queued() const noexcept { return queued_; }
    /// The start-up, termination or restart time-out under way.
    std::optional<Clock::time_point> Deadline() const noexcept { return deadline_; }
    bool Due(Clock::time_point now) const noexcept { return deadline_ && *deadline_ <= now; }
    /// Restarts counted against the start limit (those within its window).
    unsigned int RestartsUsed() const noexcept { return static_cast<unsigned int>(restarts_.size()); }
    /// Launch to ready (a one-shot: to its successful exit) of its last start.
    std::optional<std::chrono::milliseconds> ReadyAfter() const noexcept { return readyAfter_; }
    /// Its last WATCHDOG=1, or when it became ready.
    std::optional<Clock::time_point> LastPing() const noexcept { return lastPing_; }
    /// The wait status of its last exit.
    std::optional<int> LastExit() const noexcept { return lastExit_; }

private:
    /// Why a launch was asked for, which decides what its outcome leads to.
    enum class LaunchFor : std::uint8_t { kTransition, kRestartRequest, kBackoff };
    struct Step;

    void Launch(Step& step, LaunchFor why);
    void Launched(Step& step, const SpawnResult& spawn, const ProcessContext& context, Clock::time_point now);
    void Exited(Step& step, int status, const ProcessContext& context, Clock::time_point now);
    void Stop(Step& step, AfterStop after, bool kill, Clock::time_point now);
    void StartFailed(Step& step, const std::string& why, const ProcessContext& context, Clock::time_point now);
    void ApplyRestartPolicy(Step& step, const ProcessContext& context, Clock::time_point now);
    /// It has become ready in the way `how` says.
    void Ready(Step& step, const char* how, Clock::time_point now);
    void ResetCount();

    const ProcessConfig* config_;
    bool oneShot_{false};
    ProcessPhase phase_{ProcessPhase::kIdle};
    pid_t pid_{-1};
    std::optional<Clock::time_point> deadline_;
    Clock::time_point launchedAt_{};
    AfterStop afterStop_{AfterStop::kIdle};
    LaunchFor launchFor_{LaunchFor::kTransition};
    bool killed_{false};
    bool reportedTerminating_{false};
    bool queued_{false};
    std::vector<Clock::time_point> restarts_;  ///< when each counted restart was scheduled
    std::optional<std::chrono::milliseconds> readyAfter_;
    std::optional<Clock::time_point> lastPing_;
    std::optional<int> lastExit_;
};

}  // namespace tarn::em::daemon

#endif
