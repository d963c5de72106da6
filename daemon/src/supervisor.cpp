// Function-group transitions, process state machines, time-outs, restarts and shutdown.
#include "supervisor.h"

#include <signal.h>

#include <algorithm>
#include <utility>

#include "ara/exec/exec_error_domain.h"

namespace tarn::em::daemon {

namespace {

using ara::exec::ExecErrc;

Outcome Error(ExecErrc code) {
    return Outcome::FromError(ara::exec::MakeErrorCode(code, 0));
}

long long Ms(Clock::duration duration) {
    return static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

}  // namespace

const char* Supervisor::PhaseName(Phase phase) noexcept {
    switch (phase) {
        case Phase::kIdle:
            return "Idle";
        case Phase::kStarting:
            return "Starting";
        case Phase::kRunning:
            return "Running";
        case Phase::kTerminating:
            return "Terminating";
        case Phase::kRestarting:
            return "Restarting";
        case Phase::kFailed:
            return "Failed";
    }
    return "Unknown";
}

Supervisor::Supervisor(Manifest manifest, Launcher& launcher, std::function<Clock::time_point()> clock)
    : manifest_(std::move(manifest)),
      launcher_(launcher),
      clock_(std::move(clock)),
      log_(ara::quill::common::log::Log::GetLog("EMD")) {
    for (const FunctionGroupConfig& group : manifest_.functionGroups) {
        groups_.push_back(Group{&group, {}, false, std::nullopt, {}, {}});
    }
    for (const ProcessConfig& process : manifest_.processes) {
        Proc proc;
        proc.config = &process;
        proc.group = FindGroup(process.functionGroup).value_or(0U);
        procs_.push_back(std::move(proc));
    }
}

void Supervisor::Start(Clock::time_point now) {
    // MachineFG first, so that its processes are the first launched and the last stopped.
    std::vector<std::size_t> order(groups_.size());
    for (std::size_t i = 0U; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_partition(
        order.begin(), order.end(), [this](std::size_t i) { return groups_[i].config->name == MACHINE_FG; });
    for (const std::size_t i : order) {
        Group& group = groups_[i];
        group.target = group.config->initialState;
        group.since = now;
        log_->info() << "[Supervisor][Transition begins][function_group=" << group.config->name
                     << ", from=(none), to=" << *group.target << "]";
        Converge(i, now);
    }
}

void Supervisor::SetState(const std::string& name, const std::string& state, Completion done, Clock::time_point now) {
    const auto index = FindGroup(name);
    if (shuttingDown_) {
        done(Error(ExecErrc::kFailed));
        return;
    }
    if (!index) {
        log_->warn() << "[Supervisor][Unknown function group][function_group=" << name << "]";
        done(Error(ExecErrc::kInvalidArguments));
        return;
    }
    Group& group = groups_[*index];
    const auto& states = group.config->states;
    if (std::find(states.begin(), states.end(), state) == states.end()) {
        log_->warn() << "[Supervisor][Unknown function group state][function_group=" << name << ", state=" << state
                     << "]";
        done(Error(ExecErrc::kInvalidArguments));
        return;
    }
    if (group.target) {
        EndTransition(*index, Error(ExecErrc::kCancelled), "cancelled by a newer request");
    }
    group.target = state;
    group.since = now;
    group.waiters.push_back(std::move(done));
    log_->info() << "[Supervisor][Transition begins][function_group=" << name << ", from=" << group.current
                 << ", to=" << state << "]";
    Converge(*index, now);
}

void Supervisor::GetInitialResult(Completion done) {
    if (initialResult_) {
        done(*initialResult_);
    } else {
        initialWaiters_.push_back(std::move(done));
    }
}

ara::core::Result<ara::core::String, ara::core::ErrorCode> Supervisor::GetState(const std::string& name) const {
    using R = ara::core::Result<ara::core::String, ara::core::ErrorCode>;
    const auto index = FindGroup(name);
    if (!index) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kInvalidArguments, 0));
    }
    if (groups_[*index].failed) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kFailed, 0));
    }
    if (groups_[*index].current.empty()) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kBusy, 0));
    }
    return R::FromValue(groups_[*index].current);
}

std::vector<ara::exec::Process> Supervisor::ProcessStates() const {
    std::vector<ara::exec::Process> list;
    list.reserve(procs_.size());
    for (const Proc& proc : procs_) {
        list.push_back(ara::exec::Process{proc.config->name,
                                          proc.config->functionGroup,
                                          PhaseName(proc.phase),
                                          proc.pid > 0 ? std::to_string(proc.pid) : std::string(),
                                          proc.pid > 0});
    }
    return list;
}

ara::core::Result<ara::core::String, ara::core::ErrorCode> Supervisor::ProcessName(pid_t pid) const {
    using R = ara::core::Result<ara::core::String, ara::core::ErrorCode>;
    const Proc* proc = FindByPid(pid);
    if (proc == nullptr) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kInvalidArguments, 0));
    }
    return R::FromValue(proc->config->name);
}

void Supervisor::Restart(const std::string& name, bool kill, Completion done, Clock::time_point now) {
    const auto found =
        std::find_if(procs_.begin(), procs_.end(), [&](const Proc& p) { return p.config->name == name; });
    if (found == procs_.end()) {
        log_->warn() << "[Supervisor][Restart of an unknown process][process=" << name << "]";
        done(Error(ExecErrc::kInvalidArguments));
        return;
    }
    Proc& proc = *found;
    if (shuttingDown_ || !Wanted(proc)) {
        log_->warn() << "[Supervisor][Restart refused: the process does not run in its group's state][process=" << name
                     << "]";
        done(Error(ExecErrc::kFailed));
        return;
    }
    if (groups_[proc.group].target) {
        log_->warn() << "[Supervisor][Restart refused: its function group is in transition][process=" << name << "]";
        done(Error(ExecErrc::kBusy));
        return;
    }
    log_->info() << "[Supervisor][Restart requested][process=" << name << ", kill=" << (kill ? "true" : "false") << "]";
    proc.restartWaiters.push_back(std::move(done));
    proc.restartsUsed = 0U;
    switch (proc.phase) {
        case Phase::kStarting:
        case Phase::kRunning:
            Stop(proc, AfterStop::kRelaunch, kill, now);
            break;
        case Phase::kTerminating:
            proc.afterStop = AfterStop::kRelaunch;
            if (kill && !proc.killed) {
                launcher_.Signal(proc.pid, SIGKILL);
                proc.killed = true;
            }
            break;
        case Phase::kIdle:
        case Phase::kRestarting:
        case Phase::kFailed:
            if (Launch(proc, now)) {
                groups_[proc.group].failed = false;
            }
            break;
    }
}

Outcome Supervisor::Report(pid_t pid, ara::exec::ExecutionState state, Clock::time_point now) {
    Proc* proc = FindByPid(pid);
    if (proc == nullptr) {
        log_->warn() << "[Supervisor][Report from a process emd did not start][pid=" << pid << "]";
        return Error(ExecErrc::kInvalidArguments);
    }
    if (state == ara::exec::ExecutionState::kTerminating) {
        log_->info() << "[Supervisor][Reported kTerminating][process=" << proc->config->name << ", pid=" << pid << "]";
        proc->reportedTerminating = true;
        if (proc->phase == Phase::kStarting || proc->phase == Phase::kRunning) {
            proc->deadline = now + proc->config->terminationTimeout;  // it has that long to exit
        }
        return {};
    }
    if (state != ara::exec::ExecutionState::kRunning) {
        log_->warn() << "[Supervisor][Report of an unknown execution state][process=" << proc->config->name
                     << ", state=" << static_cast<int>(state) << "]";
        return Error(ExecErrc::kInvalidArguments);
    }
    if (proc->phase != Phase::kStarting) {
        return {};
    }
    log_->info() << "[Supervisor][Reported kRunning][process=" << proc->config->name << ", pid=" << pid
                 << ", after_ms=" << Ms(now - proc->launchedAt) << "]";
    proc->phase = Phase::kRunning;
    proc->deadline.reset();
    Answer(proc->restartWaiters, {});
    Converge(proc->group, now);
    return {};
}

void Supervisor::OnExit(pid_t pid, int status, Clock::time_point now) {
    Proc* found = FindByPid(pid);
    if (found == nullptr) {
        log_->warn() << "[Supervisor][Reaped an unknown child][pid=" << pid << ", status=" << DescribeExit(status)
                     << "]";
        return;
    }
    Proc& proc = *found;
    const Phase was = proc.phase;
    log_->info() << "[Supervisor][Process exited][process=" << proc.config->name << ", pid=" << pid
                 << ", status=" << DescribeExit(status) << ", state=" << PhaseName(was) << "]";
    proc.pid = -1;
    proc.deadline.reset();
    proc.killed = false;
    if (shuttingDown_) {
        proc.phase = Phase::kIdle;
        Answer(proc.restartWaiters, Error(ExecErrc::kFailed));
        ContinueShutdown(now);
        return;
    }
    if (was == Phase::kTerminating) {
        switch (proc.afterStop) {
            case AfterStop::kIdle:
                proc.phase = Phase::kIdle;
                break;
            case AfterStop::kFailed:
                proc.phase = Phase::kFailed;
                break;
            case AfterStop::kRelaunch:
                proc.phase = Phase::kIdle;
                if (Wanted(proc)) {
                    if (Launch(proc, now)) {
                        groups_[proc.group].failed = false;
                    }
                    return;
                }
                Answer(proc.restartWaiters, Error(ExecErrc::kCancelled));
                break;
            case AfterStop::kRestartPolicy:
                ApplyRestartPolicy(proc, now);
                break;
        }
        Converge(proc.group, now);
        return;
    }
    if (was == Phase::kRunning && proc.reportedTerminating) {
        log_->info() << "[Supervisor][Process ended after reporting kTerminating][process=" << proc.config->name << "]";
        proc.phase = Phase::kIdle;
        Converge(proc.group, now);
        return;
    }
    if (was == Phase::kStarting) {
        ProcessFailed(proc, "exited before reporting kRunning", now);
        return;
    }
    ApplyRestartPolicy(proc, now);
    Converge(proc.group, now);
}

void Supervisor::OnTimer(Clock::time_point now) {
    for (Proc& proc : procs_) {
        if (!proc.deadline || *proc.deadline > now) {
            continue;
        }
        proc.deadline.reset();
        switch (proc.phase) {
            case Phase::kStarting:
                log_->warn() << "[Supervisor][No kRunning report in time][process=" << proc.config->name
                             << ", pid=" << proc.pid << ", timeout_ms=" << proc.config->startupTimeout.count() << "]";
                ProcessFailed(proc, "did not report kRunning in time", now);
                break;
            case Phase::kTerminating:
                if (!proc.killed) {
                    log_->warn() << "[Supervisor][Still running after SIGTERM, sending SIGKILL][process="
                                 << proc.config->name << ", pid=" << proc.pid
                                 << ", timeout_ms=" << proc.config->terminationTimeout.count() << "]";
                    launcher_.Signal(proc.pid, SIGKILL);
                    proc.killed = true;
                }
                break;
            case Phase::kRestarting:
                proc.phase = Phase::kIdle;
                if (!Launch(proc, now)) {
                    ApplyRestartPolicy(proc, now);
                }
                Converge(proc.group, now);
                break;
            case Phase::kRunning:
                if (proc.reportedTerminating) {
                    log_->warn() << "[Supervisor][Still running after reporting kTerminating, sending SIGKILL][process="
                                 << proc.config->name << ", pid=" << proc.pid
                                 << ", timeout_ms=" << proc.config->terminationTimeout.count() << "]";
                    Stop(proc, AfterStop::kIdle, true, now);
                }
                break;
            case Phase::kIdle:
            case Phase::kFailed:
                break;
        }
    }
}

std::optional<Clock::time_point> Supervisor::NextDeadline() const {
    std::optional<Clock::time_point> next;
    for (const Proc& proc : procs_) {
        if (proc.deadline && (!next || *proc.deadline < *next)) {
            next = proc.deadline;
        }
    }
    return next;
}

void Supervisor::Shutdown(Clock::time_point now) {
    if (shuttingDown_) {
        for (Proc& proc : procs_) {
            if (proc.pid > 0) {
                log_->warn() << "[Supervisor][Killing at once][process=" << proc.config->name << ", pid=" << proc.pid
                             << "]";
                launcher_.Signal(proc.pid, SIGKILL);
                proc.killed = true;
            }
        }
        return;
    }
    log_->info() << "[Supervisor][Shutting down]";
    shuttingDown_ = true;
    for (std::size_t i = 0U; i < groups_.size(); ++i) {
        if (groups_[i].target) {
            EndTransition(i, Error(ExecErrc::kFailed), "ended by shutdown");
        }
    }
    Answer(initialWaiters_, Error(ExecErrc::kFailed));
    launchQueue_.clear();
    for (Proc& proc : procs_) {
        proc.queued = false;
        Answer(proc.restartWaiters, Error(ExecErrc::kFailed));
        if (proc.pid <= 0) {
            proc.phase = Phase::kIdle;
        }
        if (proc.phase != Phase::kTerminating) {
            proc.deadline.reset();
        }
    }
    ContinueShutdown(now);
}

bool Supervisor::Finished() const {
    return shuttingDown_ && std::none_of(procs_.begin(), procs_.end(), [](const Proc& p) { return p.pid > 0; });
}

std::optional<std::size_t> Supervisor::FindGroup(const std::string& name) const {
    for (std::size_t i = 0U; i < manifest_.functionGroups.size(); ++i) {
        if (manifest_.functionGroups[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

Supervisor::Proc* Supervisor::FindByPid(pid_t pid) {
    return const_cast<Proc*>(std::as_const(*this).FindByPid(pid));
}

const Supervisor::Proc* Supervisor::FindByPid(pid_t pid) const {
    if (pid <= 0) {
        return nullptr;
    }
    const auto found = std::find_if(procs_.begin(), procs_.end(), [pid](const Proc& p) { return p.pid == pid; });
    return found == procs_.end() ? nullptr : &*found;
}

bool Supervisor::RunsIn(const Proc& proc, const std::string& state) const {
    const auto& states = proc.config->states;
    return std::find(states.begin(), states.end(), state) != states.end();
}

bool Supervisor::Wanted(const Proc& proc) const {
    const Group& group = groups_[proc.group];
    return RunsIn(proc, group.target ? *group.target : group.current);
}

void Supervisor::Converge(std::size_t index, Clock::time_point now) {
    Group& group = groups_[index];
    if (!group.target || shuttingDown_) {
        return;
    }
    const std::string target = *group.target;
    bool stopping = false;
    for (Proc& proc : procs_) {
        if (proc.group != index) {
            continue;
        }
        const bool wanted = RunsIn(proc, target);
        if (!wanted && proc.queued) {
            proc.queued = false;
            proc.phase = Phase::kIdle;
            Answer(proc.restartWaiters, Error(ExecErrc::kCancelled));
        } else if (!wanted && (proc.phase == Phase::kStarting || proc.phase == Phase::kRunning)) {
            Answer(proc.restartWaiters, Error(ExecErrc::kCancelled));
            Stop(proc, AfterStop::kIdle, false, now);
        } else if (!wanted && (proc.phase == Phase::kRestarting || proc.phase == Phase::kFailed)) {
            proc.phase = Phase::kIdle;
            proc.deadline.reset();
        }
        stopping = stopping || proc.phase == Phase::kTerminating;
    }
    if (stopping) {
        return;  // the starts wait until every stop has ended
    }
    bool starting = false;
    for (Proc& proc : procs_) {
        if (proc.group != index || !RunsIn(proc, target)) {
            continue;
        }
        if (proc.phase == Phase::kIdle || proc.phase == Phase::kFailed) {
            proc.restartsUsed = 0U;
            Queue(proc);
        }
        starting = starting || proc.phase != Phase::kRunning;
    }
    if (!starting) {
        EndTransition(index, {}, "completed");
    }
}

void Supervisor::Queue(Proc& proc) {
    proc.phase = Phase::kStarting;
    proc.queued = true;
    proc.deadline.reset();  // the start-up time-out runs from the launch
    launchQueue_.push_back(static_cast<std::size_t>(&proc - procs_.data()));
}

bool Supervisor::LaunchQueued(Clock::time_point until) {
    bool launched = false;
    while (!launchQueue_.empty() && (!launched || clock_() < until)) {
        Proc& proc = procs_[launchQueue_.front()];
        launchQueue_.pop_front();
        if (!proc.queued) {
            continue;  // stopped or launched another way while it waited
        }
        proc.queued = false;
        launched = true;
        if (!Launch(proc, clock_())) {
            const Group& group = groups_[proc.group];
            if (group.target && RunsIn(proc, *group.target)) {
                EndTransition(proc.group, Error(ExecErrc::kFailed), "process " + proc.config->name + " did not start");
            }
        }
    }
    return !launchQueue_.empty();
}

bool Supervisor::Launch(Proc& proc, Clock::time_point now) {
    const SpawnResult spawned = launcher_.Spawn(*proc.config);
    if (spawned.pid <= 0) {
        log_->error() << "[Supervisor][Launch failed][process=" << proc.config->name << ", reason=" << spawned.error
                      << "]";
        proc.phase = Phase::kFailed;
        Answer(proc.restartWaiters, Error(ExecErrc::kFailed));
        return false;
    }
    proc.pid = spawned.pid;
    proc.phase = Phase::kStarting;
    proc.queued = false;
    proc.launchedAt = now;
    proc.deadline = now + proc.config->startupTimeout;
    proc.afterStop = AfterStop::kIdle;
    proc.killed = false;
    proc.reportedTerminating = false;
    log_->info() << "[Supervisor][Launched][process=" << proc.config->name << ", pid=" << proc.pid
                 << ", executable=" << proc.config->executable << "]";
    return true;
}

void Supervisor::Stop(Proc& proc, AfterStop after, bool kill, Clock::time_point now) {
    if (proc.queued) {  // no OS process yet: a restart keeps its place in the queue
        if (after != AfterStop::kRelaunch) {
            proc.queued = false;
            proc.phase = after == AfterStop::kFailed ? Phase::kFailed : Phase::kIdle;
        }
        return;
    }
    log_->info() << "[Supervisor][Stopping][process=" << proc.config->name << ", pid=" << proc.pid
                 << ", signal=" << (kill ? "SIGKILL" : "SIGTERM") << "]";
    proc.phase = Phase::kTerminating;
    proc.afterStop = after;
    proc.killed = kill;
    proc.deadline = kill ? std::nullopt : std::optional<Clock::time_point>(now + proc.config->terminationTimeout);
    if (!launcher_.Signal(proc.pid, kill ? SIGKILL : SIGTERM)) {
        log_->warn() << "[Supervisor][Signal not delivered][process=" << proc.config->name << ", pid=" << proc.pid
                     << "]";
    }
}

void Supervisor::ProcessFailed(Proc& proc, const std::string& why, Clock::time_point now) {
    Group& group = groups_[proc.group];
    const bool inTransition = group.target && RunsIn(proc, *group.target);
    if (proc.pid > 0) {
        // A restart that never reported counts against the restart policy once it has ended.
        Stop(proc,
             inTransition || !proc.restartWaiters.empty() ? AfterStop::kFailed : AfterStop::kRestartPolicy,
             false,
             now);
    } else if (!inTransition && proc.restartWaiters.empty()) {
        ApplyRestartPolicy(proc, now);
    } else {
        proc.phase = Phase::kFailed;
    }
    log_->error() << "[Supervisor][Process failed to start][process=" << proc.config->name << ", reason=" << why << "]";
    Answer(proc.restartWaiters, Error(ExecErrc::kFailed));
    if (inTransition) {
        EndTransition(proc.group, Error(ExecErrc::kFailed), "process " + proc.config->name + " " + why);
    }
}

void Supervisor::ApplyRestartPolicy(Proc& proc, Clock::time_point now) {
    const RestartPolicy& policy = proc.config->restart;
    if (proc.restartsUsed < policy.maxRestarts) {
        ++proc.restartsUsed;
        proc.phase = Phase::kRestarting;
        proc.deadline = now + policy.backoff;
        log_->info() << "[Supervisor][Restart scheduled][process=" << proc.config->name
                     << ", in_ms=" << policy.backoff.count() << ", restart=" << proc.restartsUsed << "/"
                     << policy.maxRestarts << "]";
        return;
    }
    proc.phase = Phase::kFailed;
    Group& group = groups_[proc.group];
    group.failed = true;
    log_->error() << "[Supervisor][Restarts used up, function group failed][process=" << proc.config->name
                  << ", function_group=" << group.config->name << ", restarts=" << policy.maxRestarts << "]";
    if (group.target && RunsIn(proc, *group.target)) {
        EndTransition(proc.group, Error(ExecErrc::kFailed), "process " + proc.config->name + " failed");
    }
}

void Supervisor::EndTransition(std::size_t index, const Outcome& outcome, const std::string& how) {
    Group& group = groups_[index];
    if (!group.target) {
        return;
    }
    const std::string target = *group.target;
    const bool cancelled = !outcome.HasValue() && outcome.Error() == ara::exec::MakeErrorCode(ExecErrc::kCancelled, 0);
    if (!cancelled) {
        group.current = target;
        group.failed = !outcome.HasValue();
    }
    group.target.reset();
    if (outcome.HasValue()) {
        log_->info() << "[Supervisor][Transition completed][function_group=" << group.config->name
                     << ", state=" << target << "]";
    } else {
        log_->warn() << "[Supervisor][Transition ended][function_group=" << group.config->name << ", state=" << target
                     << ", result=" << how << "]";
    }
    Answer(group.waiters, outcome);
    if (group.config->name == MACHINE_FG && !initialResult_) {
        initialResult_ = outcome;
        Answer(initialWaiters_, outcome);
    }
}

void Supervisor::Answer(std::vector<Completion>& waiters, const Outcome& outcome) {
    std::vector<Completion> taken;
    taken.swap(waiters);
    for (Completion& done : taken) {
        done(outcome);
    }
}

void Supervisor::ContinueShutdown(Clock::time_point now) {
    // The other groups' processes first, all at once; MachineFG's, the machine's own, last.
    const auto inMachine = [this](const Proc& proc) { return groups_[proc.group].config->name == MACHINE_FG; };
    const bool othersLeft =
        std::any_of(procs_.begin(), procs_.end(), [&](const Proc& p) { return p.pid > 0 && !inMachine(p); });
    bool left = false;
    for (Proc& proc : procs_) {
        if (proc.pid <= 0) {
            continue;
        }
        left = true;
        if (proc.phase != Phase::kTerminating && (!othersLeft || !inMachine(proc))) {
            Stop(proc, AfterStop::kIdle, false, now);
        }
    }
    if (!left) {
        log_->info() << "[Supervisor][Every process stopped]";
    }
}

}  // namespace tarn::em::daemon
