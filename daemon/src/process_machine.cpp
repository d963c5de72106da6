// SPDX-License-Identifier: Apache-2.0
// The process life cycle: every (phase, event) pair and what it leads to.
#include "process_machine.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <sstream>
#include <utility>

namespace tarn::em::daemon {

namespace {

using ara::exec::ExecErrc;
using ara::quill::common::log::LogLevel;
using Action = ProcessAction::Kind;

long long Ms(Clock::duration duration) {
    return static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

}  // namespace

const char* ProcessPhaseName(ProcessPhase phase) noexcept {
    switch (phase) {
        case ProcessPhase::kIdle:
            return "Idle";
        case ProcessPhase::kStarting:
            return "Starting";
        case ProcessPhase::kRunning:
            return "Running";
        case ProcessPhase::kTerminating:
            return "Terminating";
        case ProcessPhase::kRestarting:
            return "Restarting";
        case ProcessPhase::kFailed:
            return "Failed";
        case ProcessPhase::kTerminated:
            return "Terminated";
    }
    return "Unknown";
}

/// The actions of one event, in order.
struct ProcessMachine::Step {
    /// One log line, written as a stream; it joins the actions at the end of the statement.
    class Line {
    public:
        Line(Step& step, LogLevel level) : step_(step), level_(level) {}
        Line(const Line&) = delete;
        Line& operator=(const Line&) = delete;
        ~Line() {
            ProcessAction& action = step_.Do(Action::kLog);
            action.level = level_;
            action.text = text_.str();
        }
        template <typename T>
        Line& operator<<(const T& value) {
            text_ << value;
            return *this;
        }

    private:
        Step& step_;
        LogLevel level_;
        std::ostringstream text_;
    };

    const ProcessContext& context;
    std::vector<ProcessAction> actions;

    Line Log(LogLevel level) { return Line(*this, level); }
    ProcessAction& Do(Action kind) {
        actions.emplace_back();
        actions.back().kind = kind;
        return actions.back();
    }
    void Signal(pid_t pid, int signal, bool warnUndelivered) {
        ProcessAction& action = Do(Action::kSignal);
        action.pid = pid;
        action.signal = signal;
        action.warnUndelivered = warnUndelivered;
    }
    /// Answers the restart waiters, when there are any.
    void Answer(std::optional<ExecErrc> error) {
        if (context.restartWaiters) {
            Do(Action::kAnswer).error = error;
        }
    }
};

std::vector<ProcessAction> ProcessMachine::Handle(const ProcessEvent& event,
                                                  const ProcessContext& context,
                                                  Clock::time_point now) {
    using P = ProcessPhase;
    using E = ProcessEvent::Kind;
    Step step{context, {}};
    const std::string& name = config_->name;
    switch (event.kind) {
        case E::kStart:  // Idle or Failed: queued; the start-up time-out runs from the launch
            if (phase_ == P::kIdle || phase_ == P::kFailed) {
                ResetCount();
                phase_ = P::kStarting;
                queued_ = true;
                deadline_.reset();
                step.Do(Action::kEnqueue);
            }
            break;

        case E::kDequeued:
            if (queued_) {
                queued_ = false;
                Launch(step, LaunchFor::kTransition);
            }
            break;

        case E::kSpawned:
            Launched(step, event.spawn, context, now);
            break;

        case E::kReported:
            if (event.state == ara::exec::ExecutionState::kTerminating) {
                step.Log(LogLevel::kInfo)
                    << "[Supervisor][Reported kTerminating][process=" << name << ", pid=" << pid_ << "]";
                reportedTerminating_ = true;
                if (phase_ == P::kStarting || phase_ == P::kRunning) {
                    deadline_ = now + config_->terminationTimeout;  // it has that long to exit
                }
            } else if (event.state == ara::exec::ExecutionState::kRunning && phase_ == P::kStarting && !queued_) {
                step.Log(LogLevel::kInfo) << "[Supervisor][Reported kRunning][process=" << name << ", pid=" << pid_
                                          << ", after_ms=" << Ms(now - launchedAt_) << "]";
                if (!oneShot_) {  // a one-shot is done when it has exited
                    Ready(step, nullptr, now);
                }
            }
            break;

        case E::kReady:
            if (config_->readiness == Readiness::kNotify && phase_ == P::kStarting && !queued_ && !oneShot_) {
                Ready(step, "notify", now);
            }
            break;

        case E::kPing:
            if (phase_ == P::kRunning && config_->watchdog.count() > 0 && !reportedTerminating_) {
                lastPing_ = now;
                deadline_ = now + config_->watchdog;
            }
            break;

        case E::kPingMissed:
            if (phase_ == P::kRunning && config_->watchdog.count() > 0 && !reportedTerminating_) {
                deadline_ = now;
                return Handle(ProcessEvent::Of(E::kTimer), context, now);
            }
            break;

        case E::kExtend:
            if (deadline_ && ((phase_ == P::kStarting && !queued_) || (phase_ == P::kTerminating && !killed_))) {
                const Clock::time_point extended = now + std::chrono::duration_cast<Clock::duration>(event.extend);
                if (extended > *deadline_) {
                    step.Log(LogLevel::kInfo)
                        << "[Supervisor][Time-out extended][process=" << name << ", pid=" << pid_
                        << ", phase=" << ProcessPhaseName(phase_) << ", left_ms=" << Ms(extended - now) << "]";
                    deadline_ = extended;
                }
            }
            break;

        case E::kExited:
            Exited(step, event.status, context, now);
            break;

        case E::kTimer:
            if (!Due(now)) {
                break;
            }
            deadline_.reset();
            switch (phase_) {
                case P::kStarting: {
                    // What "ready" means for it: a kRunning report, READY=1, or (a one-shot) its exit.
                    const bool reports = config_->readiness == Readiness::kReport && !oneShot_;
                    step.Log(LogLevel::kWarn)
                        << (reports ? "[Supervisor][No kRunning report in time]" : "[Supervisor][Not ready in time]")
                        << "[process=" << name << ", pid=" << pid_ << ", timeout_ms=" << config_->startupTimeout.count()
                        << "]";
                    StartFailed(step,
                                reports ? "did not report kRunning in time"
                                        : (oneShot_ ? "did not exit in time" : "was not ready in time"),
                                context,
                                now);
                    break;
                }
                case P::kTerminating:
                    if (!killed_) {
                        step.Log(LogLevel::kWarn)
                            << "[Supervisor][Still running after SIGTERM, sending SIGKILL][process=" << name
                            << ", pid=" << pid_ << ", timeout_ms=" << config_->terminationTimeout.count() << "]";
                        step.Signal(pid_, SIGKILL, false);
                        killed_ = true;
                    }
                    break;
                case P::kRestarting:  // the back-off has passed
                    phase_ = P::kIdle;
                    Launch(step, LaunchFor::kBackoff);
                    break;
                case P::kRunning:
                    if (reportedTerminating_) {
                        step.Log(LogLevel::kWarn)
                            << "[Supervisor][Still running after reporting kTerminating, sending SIGKILL][process="
                            << name << ", pid=" << pid_ << ", timeout_ms=" << config_->terminationTimeout.count()
                            << "]";
                        Stop(step, AfterStop::kIdle, true, now);
                    } else if (config_->watchdog.count() > 0) {
                        const Clock::duration since = now - lastPing_.value_or(launchedAt_);
                        step.Log(LogLevel::kWarn)
                            << "[Supervisor][Watchdog missed, sending SIGKILL][process=" << name << ", pid=" << pid_
                            << ", period_ms=" << config_->watchdog.count() << ", since_last_ms=" << Ms(since)
                            << ", late_ms=" << Ms(since - config_->watchdog) << "]";
                        Stop(step, AfterStop::kRestartPolicy, true, now);
                    }
                    break;
                case P::kIdle:
                case P::kFailed:
                case P::kTerminated:
                    break;
            }
            break;

        case E::kStop:
            if (event.after == AfterStop::kRelaunch) {
                ResetCount();  // a requested restart starts the count afresh
            }
            switch (phase_) {
                case P::kIdle:
                case P::kRestarting:
                case P::kFailed:
                case P::kTerminated:
                    if (event.after == AfterStop::kRelaunch) {
                        Launch(step, LaunchFor::kRestartRequest);
                    } else if (phase_ != P::kIdle) {
                        phase_ = P::kIdle;
                        deadline_.reset();
                    }
                    break;
                case P::kStarting:
                case P::kRunning:
                    if (queued_) {  // no OS process yet; for a restart it keeps its place in the queue
                        if (event.after != AfterStop::kRelaunch) {
                            queued_ = false;
                            phase_ = event.after == AfterStop::kFailed ? P::kFailed : P::kIdle;
                            step.Answer(ExecErrc::kCancelled);
                        }
                        break;
                    }
                    if (event.after != AfterStop::kRelaunch) {
                        step.Answer(ExecErrc::kCancelled);
                    }
                    Stop(step, event.after, event.kill, now);
                    break;
                case P::kTerminating:  // already stopping: a restart only changes what follows
                    if (event.after == AfterStop::kRelaunch) {
                        afterStop_ = AfterStop::kRelaunch;
                        if (event.kill && !killed_) {
                            step.Signal(pid_, SIGKILL, false);
                            killed_ = true;
                        }
                    }
                    break;
            }
            break;

        case E::kShutdown:
            queued_ = false;
            step.Answer(ExecErrc::kFailed);
            if (pid_ <= 0) {
                phase_ = P::kIdle;
            }
            if (phase_ != P::kTerminating) {
                deadline_.reset();
            }
            break;

        case E::kKill:
            if (pid_ > 0) {
                step.Log(LogLevel::kWarn)
                    << "[Supervisor][Killing at once][process=" << name << ", pid=" << pid_ << "]";
                step.Signal(pid_, SIGKILL, false);
                killed_ = true;
            }
            break;
    }
    return std::move(step.actions);
}

void ProcessMachine::Launch(Step& step, LaunchFor why) {
    launchFor_ = why;
    step.Do(Action::kLaunch);
}

void ProcessMachine::Launched(Step& step,
                              const SpawnResult& spawn,
                              const ProcessContext& context,
                              Clock::time_point now) {
    if (spawn.pid <= 0) {
        step.Log(LogLevel::kError) << "[Supervisor][Launch failed][process=" << config_->name
                                   << ", reason=" << spawn.error << "]";
        phase_ = ProcessPhase::kFailed;
        step.Answer(ExecErrc::kFailed);
        switch (launchFor_) {
            case LaunchFor::kTransition:
                if (context.inTransition) {
                    step.Do(Action::kFailTransition).text = "process " + config_->name + " did not start";
                }
                break;
            case LaunchFor::kRestartRequest:
                break;
            case LaunchFor::kBackoff:
                ApplyRestartPolicy(step, context, now);
                step.Do(Action::kConverge);
                break;
        }
        return;
    }
    pid_ = spawn.pid;
    readyAfter_.reset();
    phase_ = ProcessPhase::kStarting;
    queued_ = false;
    launchedAt_ = now;
    deadline_ = now + config_->startupTimeout;
    afterStop_ = AfterStop::kIdle;
    killed_ = false;
    reportedTerminating_ = false;
    lastPing_.reset();
    step.Log(LogLevel::kInfo) << "[Supervisor][Launched][process=" << config_->name << ", pid=" << pid_
                              << ", executable=" << config_->executable << ", launch_us=" << spawn.cost.count()
                              << ", launch_cpu_us=" << spawn.cpu.count() << "]";
    switch (launchFor_) {
        case LaunchFor::kTransition:
            break;
        case LaunchFor::kRestartRequest:
            step.Do(Action::kGroupFailed).failed = false;
            break;
        case LaunchFor::kBackoff:
            step.Do(Action::kConverge);
            break;
    }
    if (config_->readiness == Readiness::kSpawn && !oneShot_) {
        Ready(step, "spawn", now);
    }
}

void ProcessMachine::Ready(Step& step, const char* how, Clock::time_point now) {
    if (how != nullptr) {  // a kRunning report has its own line
        step.Log(LogLevel::kInfo) << "[Supervisor][Ready][process=" << config_->name << ", pid=" << pid_
                                  << ", readiness=" << how << ", after_ms=" << Ms(now - launchedAt_) << "]";
    }
    phase_ = ProcessPhase::kRunning;
    readyAfter_ = std::chrono::duration_cast<std::chrono::milliseconds>(now - launchedAt_);
    deadline_.reset();
    if (config_->watchdog.count() > 0) {
        lastPing_ = now;
        deadline_ = now + config_->watchdog;
    }
    step.Answer(std::nullopt);
    step.Do(Action::kConverge);
}

void ProcessMachine::ResetCount() {
    restarts_.clear();
}

void ProcessMachine::Exited(Step& step, int status, const ProcessContext& context, Clock::time_point now) {
    using P = ProcessPhase;
    const P was = phase_;
    step.Log(LogLevel::kInfo) << "[Supervisor][Process exited][process=" << config_->name << ", pid=" << pid_
                              << ", status=" << DescribeExit(status) << ", state=" << ProcessPhaseName(was) << "]";
    pid_ = -1;
    deadline_.reset();
    killed_ = false;
    lastExit_ = status;
    if (context.shuttingDown) {
        phase_ = P::kIdle;
        step.Answer(ExecErrc::kFailed);
        step.Do(Action::kContinueShutdown);
        return;
    }
    if (was == P::kTerminating) {  // the end of a stop emd asked for
        switch (afterStop_) {
            case AfterStop::kIdle:
                phase_ = P::kIdle;
                break;
            case AfterStop::kFailed:
                phase_ = P::kFailed;
                break;
            case AfterStop::kRelaunch:
                phase_ = P::kIdle;
                if (context.wanted) {
                    Launch(step, LaunchFor::kRestartRequest);
                    return;
                }
                step.Answer(ExecErrc::kCancelled);
                break;
            case AfterStop::kRestartPolicy:
                ApplyRestartPolicy(step, context, now);
                break;
        }
    } else if (was == P::kRunning && reportedTerminating_) {
        step.Log(LogLevel::kInfo) << "[Supervisor][Process ended after reporting kTerminating][process="
                                  << config_->name << "]";
        phase_ = P::kIdle;
    } else if (oneShot_ && (was == P::kStarting || was == P::kRunning) && WIFEXITED(status) &&
               WEXITSTATUS(status) == 0) {
        phase_ = P::kTerminated;
        readyAfter_ = std::chrono::duration_cast<std::chrono::milliseconds>(now - launchedAt_);
        step.Log(LogLevel::kInfo) << "[Supervisor][Process completed][process=" << config_->name
                                  << ", after_ms=" << readyAfter_->count() << "]";
        step.Answer(std::nullopt);
    } else if (was == P::kStarting) {
        const char* why = oneShot_                                   ? "did not exit with status 0"
                          : config_->readiness == Readiness::kReport ? "exited before reporting kRunning"
                                                                     : "exited before it was ready";
        StartFailed(step, why, context, now);
        return;
    } else {  // a crash
        ApplyRestartPolicy(step, context, now);
    }
    step.Do(Action::kConverge);
}

void ProcessMachine::Stop(Step& step, AfterStop after, bool kill, Clock::time_point now) {
    step.Log(LogLevel::kInfo) << "[Supervisor][Stopping][process=" << config_->name << ", pid=" << pid_
                              << ", signal=" << (kill ? "SIGKILL" : "SIGTERM") << "]";
    phase_ = ProcessPhase::kTerminating;
    afterStop_ = after;
    killed_ = kill;
    deadline_ = kill ? std::nullopt : std::optional<Clock::time_point>(now + config_->terminationTimeout);
    step.Signal(pid_, kill ? SIGKILL : SIGTERM, true);
}

void ProcessMachine::StartFailed(Step& step,
                                 const std::string& why,
                                 const ProcessContext& context,
                                 Clock::time_point now) {
    if (pid_ > 0) {
        // A restart that never reported counts against the restart policy once it has ended.
        Stop(step,
             context.inTransition || context.restartWaiters ? AfterStop::kFailed : AfterStop::kRestartPolicy,
             false,
             now);
    } else if (!context.inTransition && !context.restartWaiters) {
        ApplyRestartPolicy(step, context, now);
    } else {
        phase_ = ProcessPhase::kFailed;
    }
    step.Log(LogLevel::kError) << "[Supervisor][Process failed to start][process=" << config_->name
                               << ", reason=" << why << "]";
    step.Answer(ExecErrc::kFailed);
    if (context.inTransition) {
        step.Do(Action::kFailTransition).text = "process " + config_->name + " " + why;
    }
}

void ProcessMachine::ApplyRestartPolicy(Step& step, const ProcessContext& context, Clock::time_point now) {
    const RestartPolicy& policy = config_->restart;
    if (policy.window.count() > 0) {  // restarts older than the window no longer count
        const Clock::time_point oldest = now - policy.window;
        restarts_.erase(
            std::remove_if(restarts_.begin(), restarts_.end(), [oldest](Clock::time_point at) { return at <= oldest; }),
            restarts_.end());
    }
    if (restarts_.size() < policy.maxRestarts) {
        restarts_.push_back(now);
        // The wait doubles with every restart in the window, up to backoffMax.
        std::chrono::milliseconds backoff = policy.backoff;
        for (std::size_t i = 1U; i < restarts_.size() && backoff < policy.backoffMax; ++i) {
            backoff = std::min(backoff * 2, policy.backoffMax);
        }
        phase_ = ProcessPhase::kRestarting;
        deadline_ = now + backoff;
        step.Log(LogLevel::kInfo) << "[Supervisor][Restart scheduled][process=" << config_->name
                                  << ", in_ms=" << backoff.count() << ", restart=" << restarts_.size() << "/"
                                  << policy.maxRestarts << "]";
        return;
    }
    phase_ = ProcessPhase::kFailed;
    step.Log(LogLevel::kError) << "[Supervisor][Restarts used up][process=" << config_->name
                               << ", function_group=" << config_->functionGroup << ", restarts=" << policy.maxRestarts
                               << ", window_ms=" << policy.window.count() << "]";
    if (context.inTransition) {
        step.Do(Action::kFailTransition).text = "process " + config_->name + " failed";
    }
    step.Do(Action::kStartLimit);
}

}  // namespace tarn::em::daemon
