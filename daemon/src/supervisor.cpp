// SPDX-License-Identifier: Apache-2.0
// The owner of the process state machines and the function groups: it feeds them their
// events, carries out the process machines' actions, keeps the launch queue and shuts down.
#include "supervisor.h"

#include <algorithm>
#include <utility>

#include "ara/exec/exec_error_domain.h"

namespace tarn::em::daemon {

namespace {

using ara::exec::ExecErrc;
using ara::quill::common::log::LogLevel;

Outcome Error(ExecErrc code) {
    return Outcome::FromError(ara::exec::MakeErrorCode(code, 0));
}

}  // namespace

Supervisor::Supervisor(Manifest manifest, Launcher& launcher, std::function<Clock::time_point()> clock)
    : manifest_(std::move(manifest)),
      launcher_(launcher),
      clock_(std::move(clock)),
      log_(ara::quill::common::log::Log::GetLog("EMD")) {
    // Dependencies by index; a process that another needs terminated is a one-shot.
    const auto indexOf = [this](const std::string& name) {
        for (std::size_t i = 0U; i < manifest_.processes.size(); ++i) {
            if (manifest_.processes[i].name == name) {
                return std::optional<std::size_t>(i);
            }
        }
        return std::optional<std::size_t>();
    };
    std::vector<std::vector<GroupTransition::Need>> needs(manifest_.processes.size());
    std::vector<std::vector<std::size_t>> neededBy(manifest_.processes.size());
    std::vector<bool> oneShot(manifest_.processes.size(), false);
    for (std::size_t i = 0U; i < manifest_.processes.size(); ++i) {
        for (const Dependency& dependency : manifest_.processes[i].dependsOn) {
            const auto needed = indexOf(dependency.process);
            if (!needed) {
                continue;  // the manifest's validation refuses this
            }
            needs[i].push_back({*needed, dependency.condition});
            neededBy[*needed].push_back(i);
            oneShot[*needed] = oneShot[*needed] || dependency.condition == Condition::kTerminated;
        }
    }
    std::vector<std::vector<GroupTransition::Member>> members(manifest_.functionGroups.size());
    for (std::size_t i = 0U; i < manifest_.processes.size(); ++i) {
        const ProcessConfig& process = manifest_.processes[i];
        const std::size_t group = FindGroup(process.functionGroup).value_or(0U);
        members[group].push_back({i, &process, oneShot[i], needs[i], neededBy[i]});
        procs_.push_back(Proc{ProcessMachine(process, oneShot[i]), group, {}, neededBy[i], {}});
    }
    for (std::size_t i = 0U; i < manifest_.functionGroups.size(); ++i) {
        groups_.emplace_back(manifest_.functionGroups[i], std::move(members[i]));
    }
}

void Supervisor::Start(Clock::time_point now) {
    // MachineFG first, so that its processes are the first launched and the last stopped.
    std::vector<std::size_t> order(groups_.size());
    for (std::size_t i = 0U; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_partition(
        order.begin(), order.end(), [this](std::size_t i) { return groups_[i].Config().name == MACHINE_FG; });
    for (const std::size_t i : order) {
        groups_[i].BeginInitial();
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
    const auto& states = groups_[*index].Config().states;
    if (std::find(states.begin(), states.end(), state) == states.end()) {
        log_->warn() << "[Supervisor][Unknown function group state][function_group=" << name << ", state=" << state
                     << "]";
        done(Error(ExecErrc::kInvalidArguments));
        return;
    }
    EndTransition(*index, Error(ExecErrc::kCancelled), "cancelled by a newer request");
    groups_[*index].Begin(state, std::move(done));
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
    if (groups_[*index].Failed()) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kFailed, 0));
    }
    if (groups_[*index].Current().empty()) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kBusy, 0));
    }
    return R::FromValue(groups_[*index].Current());
}

std::vector<ara::exec::Process> Supervisor::ProcessStates() const {
    std::vector<ara::exec::Process> list;
    list.reserve(procs_.size());
    for (const Proc& proc : procs_) {
        const ProcessMachine& machine = proc.machine;
        list.push_back(ara::exec::Process{machine.Config().name,
                                          machine.Config().functionGroup,
                                          PhaseName(machine.Phase()),
                                          machine.Pid() > 0 ? std::to_string(machine.Pid()) : std::string(),
                                          machine.Pid() > 0});
    }
    return list;
}

ara::core::Result<ara::core::String, ara::core::ErrorCode> Supervisor::ProcessName(pid_t pid) const {
    using R = ara::core::Result<ara::core::String, ara::core::ErrorCode>;
    const auto index = FindByPid(pid);
    if (!index) {
        return R::FromError(ara::exec::MakeErrorCode(ExecErrc::kInvalidArguments, 0));
    }
    return R::FromValue(procs_[*index].machine.Config().name);
}

void Supervisor::Restart(const std::string& name, bool kill, Completion done, Clock::time_point now) {
    const auto found =
        std::find_if(procs_.begin(), procs_.end(), [&](const Proc& p) { return p.machine.Config().name == name; });
    if (found == procs_.end()) {
        log_->warn() << "[Supervisor][Restart of an unknown process][process=" << name << "]";
        done(Error(ExecErrc::kInvalidArguments));
        return;
    }
    Proc& proc = *found;
    const GroupTransition& group = groups_[proc.group];
    if (shuttingDown_ || !group.Wants(proc.machine.Config())) {
        log_->warn() << "[Supervisor][Restart refused: the process does not run in its group's state][process=" << name
                     << "]";
        done(Error(ExecErrc::kFailed));
        return;
    }
    if (group.Target()) {
        log_->warn() << "[Supervisor][Restart refused: its function group is in transition][process=" << name << "]";
        done(Error(ExecErrc::kBusy));
        return;
    }
    log_->info() << "[Supervisor][Restart requested][process=" << name << ", kill=" << (kill ? "true" : "false") << "]";
    proc.restartWaiters.push_back(std::move(done));
    Feed(static_cast<std::size_t>(found - procs_.begin()), ProcessEvent::Stop(kill, AfterStop::kRelaunch), now);
}

Outcome Supervisor::Report(pid_t pid, ara::exec::ExecutionState state, Clock::time_point now) {
    const auto index = FindByPid(pid);
    if (!index) {
        log_->warn() << "[Supervisor][Report from a process emd did not start][pid=" << pid << "]";
        return Error(ExecErrc::kInvalidArguments);
    }
    if (state != ara::exec::ExecutionState::kRunning && state != ara::exec::ExecutionState::kTerminating) {
        log_->warn() << "[Supervisor][Report of an unknown execution state][process="
                     << procs_[*index].machine.Config().name << ", state=" << static_cast<int>(state) << "]";
        return Error(ExecErrc::kInvalidArguments);
    }
    Feed(*index, ProcessEvent::Reported(state), now);
    return {};
}

void Supervisor::OnExit(pid_t pid, int status, Clock::time_point now) {
    const auto index = FindByPid(pid);
    if (!index) {
        // emd is the subreaper of its processes' trees: an orphan of one ends here.
        log_->debug() << "[Supervisor][Reaped a descendant][pid=" << pid << ", status=" << DescribeExit(status) << "]";
        launcher_.Reaped(pid);
        return;
    }
    launcher_.TreeEnded(procs_[*index].machine.Config(), pid);
    Feed(*index, ProcessEvent::Exited(status), now);
}

void Supervisor::OnTimer(Clock::time_point now) {
    for (std::size_t i = 0U; i < procs_.size(); ++i) {
        if (procs_[i].machine.Due(now)) {
            Feed(i, ProcessEvent::Of(ProcessEvent::Kind::kTimer), now);
        }
    }
}

std::optional<Clock::time_point> Supervisor::NextDeadline() const {
    std::optional<Clock::time_point> next;
    for (const Proc& proc : procs_) {
        const auto deadline = proc.machine.Deadline();
        if (deadline && (!next || *deadline < *next)) {
            next = deadline;
        }
    }
    return next;
}

void Supervisor::Shutdown(Clock::time_point now) {
    if (shuttingDown_) {
        for (std::size_t i = 0U; i < procs_.size(); ++i) {
            Feed(i, ProcessEvent::Of(ProcessEvent::Kind::kKill), now);
        }
        return;
    }
    log_->info() << "[Supervisor][Shutting down]";
    shuttingDown_ = true;
    for (std::size_t i = 0U; i < groups_.size(); ++i) {
        EndTransition(i, Error(ExecErrc::kFailed), "ended by shutdown");
    }
    Answer(initialWaiters_, Error(ExecErrc::kFailed));
    launchQueue_.clear();
    for (std::size_t i = 0U; i < procs_.size(); ++i) {
        Feed(i, ProcessEvent::Of(ProcessEvent::Kind::kShutdown), now);
    }
    ContinueShutdown(now);
}

bool Supervisor::Finished() const {
    return shuttingDown_ &&
           std::none_of(procs_.begin(), procs_.end(), [](const Proc& p) { return p.machine.Pid() > 0; });
}

bool Supervisor::LaunchQueued(Clock::time_point until) {
    bool launched = false;
    while (!launchQueue_.empty() && (!launched || clock_() < until)) {
        const std::size_t index = launchQueue_.front();
        launchQueue_.pop_front();
        if (!procs_[index].machine.Queued()) {
            continue;  // stopped or launched another way while it waited
        }
        launched = true;
        Feed(index, ProcessEvent::Of(ProcessEvent::Kind::kDequeued), clock_());
    }
    return !launchQueue_.empty();
}

std::optional<std::size_t> Supervisor::FindGroup(const std::string& name) const {
    for (std::size_t i = 0U; i < manifest_.functionGroups.size(); ++i) {
        if (manifest_.functionGroups[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> Supervisor::FindByPid(pid_t pid) const {
    if (pid <= 0) {
        return std::nullopt;
    }
    const auto found =
        std::find_if(procs_.begin(), procs_.end(), [pid](const Proc& p) { return p.machine.Pid() == pid; });
    return found == procs_.end() ? std::nullopt
                                 : std::optional<std::size_t>(static_cast<std::size_t>(found - procs_.begin()));
}

void Supervisor::Feed(std::size_t index, const ProcessEvent& event, Clock::time_point now) {
    Proc& proc = procs_[index];
    const GroupTransition& group = groups_[proc.group];
    ProcessContext context;
    context.inTransition = group.Moves(proc.machine.Config());
    context.wanted = group.Target() ? context.inTransition : group.Wants(proc.machine.Config());
    context.restartWaiters = !proc.restartWaiters.empty();
    context.shuttingDown = shuttingDown_;
    for (const ProcessAction& action : proc.machine.Handle(event, context, now)) {
        Carry(index, action, now);
    }
    const Phase phase = proc.machine.Phase();
    if (phase == Phase::kIdle || phase == Phase::kFailed || phase == Phase::kTerminated) {
        launcher_.Release(proc.machine.Config());
    }
}

void Supervisor::Carry(std::size_t index, const ProcessAction& action, Clock::time_point now) {
    Proc& proc = procs_[index];
    switch (action.kind) {
        case ProcessAction::Kind::kLog:
            switch (action.level) {
                case LogLevel::kError:
                    log_->error() << action.text;
                    break;
                case LogLevel::kWarn:
                    log_->warn() << action.text;
                    break;
                default:
                    log_->info() << action.text;
                    break;
            }
            break;
        case ProcessAction::Kind::kEnqueue:
            launchQueue_.push_back(index);
            break;
        case ProcessAction::Kind::kLaunch:
            Feed(index, ProcessEvent::Spawned(launcher_.Spawn(proc.machine.Config())), now);
            break;
        case ProcessAction::Kind::kSignal:
            if (!launcher_.Signal(action.pid, action.signal) && action.warnUndelivered) {
                log_->warn() << "[Supervisor][Signal not delivered][process=" << proc.machine.Config().name
                             << ", pid=" << action.pid << "]";
            }
            break;
        case ProcessAction::Kind::kAnswer:
            Answer(proc.restartWaiters, action.error ? Error(*action.error) : Outcome{});
            break;
        case ProcessAction::Kind::kConverge:
            Converge(proc.group, now);
            break;
        case ProcessAction::Kind::kFailTransition:
            EndTransition(proc.group, Error(ExecErrc::kFailed), action.text);
            break;
        case ProcessAction::Kind::kGroupFailed:
            groups_[proc.group].SetFailed(action.failed);
            break;
        case ProcessAction::Kind::kContinueShutdown:
            ContinueShutdown(now);
            break;
        case ProcessAction::Kind::kStartLimit:
            StartLimit(proc.group, proc.machine.Config().name, now);
            break;
    }
}

void Supervisor::StartLimit(std::size_t index, const std::string& process, Clock::time_point now) {
    GroupTransition& group = groups_[index];
    const std::string& onFailure = group.Config().onFailure;
    if (shuttingDown_ || onFailure.empty() || group.Target().value_or(group.Current()) == onFailure) {
        log_->error() << "[Supervisor][Function group failed][function_group=" << group.Config().name
                      << ", process=" << process << "]";
        group.SetFailed(true);
        return;
    }
    log_->error() << "[Supervisor][Escalating to the onFailure state][function_group=" << group.Config().name
                  << ", process=" << process << ", to=" << onFailure << "]";
    EndTransition(
        index, Error(ExecErrc::kFailed), "escalated to " + onFailure + " after process " + process + " failed");
    if (group.Escalate()) {
        Converge(index, now);
    }
}

void Supervisor::Converge(std::size_t group, Clock::time_point now) {
    if (!shuttingDown_ && groups_[group].Converge(*this, now)) {
        Ended(group, {});
    }
}

void Supervisor::EndTransition(std::size_t group, const Outcome& outcome, const std::string& how) {
    if (groups_[group].End(outcome, how)) {
        Ended(group, outcome);
    }
}

void Supervisor::Ended(std::size_t group, const Outcome& outcome) {
    if (groups_[group].Config().name == MACHINE_FG && !initialResult_) {
        initialResult_ = outcome;
        Answer(initialWaiters_, outcome);
    }
}

void Supervisor::Withdraw(std::size_t process, Clock::time_point now) {
    Feed(process, ProcessEvent::Stop(false, AfterStop::kIdle), now);
}

void Supervisor::Bring(std::size_t process, Clock::time_point now) {
    Feed(process, ProcessEvent::Of(ProcessEvent::Kind::kStart), now);
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
    const auto inMachine = [this](const Proc& proc) { return groups_[proc.group].Config().name == MACHINE_FG; };
    const bool othersLeft =
        std::any_of(procs_.begin(), procs_.end(), [&](const Proc& p) { return p.machine.Pid() > 0 && !inMachine(p); });
    bool left = false;
    for (std::size_t i = 0U; i < procs_.size(); ++i) {
        if (procs_[i].machine.Pid() <= 0) {
            continue;
        }
        left = true;
        // A process stops once every process that needs it has: the reverse of the start order.
        const bool needed = std::any_of(procs_[i].neededBy.begin(),
                                        procs_[i].neededBy.end(),
                                        [this](std::size_t other) { return procs_[other].machine.Pid() > 0; });
        if (!needed && (!othersLeft || !inMachine(procs_[i]))) {
            Feed(i, ProcessEvent::Stop(false, AfterStop::kIdle), now);  // one already stopping goes on
        }
    }
    if (!left) {
        log_->info() << "[Supervisor][Every process stopped]";
    }
}

void Supervisor::Notify(pid_t pid, const NotifyMessage& message, Clock::time_point now) {
    const auto index = FindByPid(pid);
    if (!index) {
        return;
    }
    Proc& proc = procs_[*index];
    if (message.status && *message.status != proc.statusText) {
        proc.statusText = *message.status;
        log_->debug() << "[Supervisor][Status][process=" << proc.machine.Config().name << ", status=" << proc.statusText
                      << "]";
    }
    // In the order a process would mean them; each may end the OS process's part in the next.
    if (message.extendTimeout) {
        Feed(*index, ProcessEvent::Extend(*message.extendTimeout), now);
    }
    if (message.ready) {
        Feed(*index, ProcessEvent::Of(ProcessEvent::Kind::kReady), now);
    }
    if (message.watchdog) {
        Feed(*index, ProcessEvent::Of(ProcessEvent::Kind::kPing), now);
    }
    if (message.stopping) {
        Feed(*index, ProcessEvent::Reported(ara::exec::ExecutionState::kTerminating), now);
    }
    if (message.watchdogTrigger) {
        Feed(*index, ProcessEvent::Of(ProcessEvent::Kind::kPingMissed), now);
    }
}

std::optional<ProcessStatus> Supervisor::StatusOf(const std::string& process, Clock::time_point now) const {
    for (const Proc& proc : procs_) {
        const ProcessMachine& machine = proc.machine;
        const ProcessConfig& config = machine.Config();
        if (config.name != process) {
            continue;
        }
        ProcessStatus status;
        status.name = config.name;
        status.functionGroup = config.functionGroup;
        status.phase = PhaseName(machine.Phase());
        status.pid = machine.Pid();
        status.readiness = config.readiness;
        status.statusText = proc.statusText;
        status.restarts = machine.RestartsUsed();
        if (const auto exit = machine.LastExit()) {
            status.lastExit = DescribeExit(*exit);
        }
        status.readyAfter = machine.ReadyAfter();
        status.watchdog = config.watchdog;
        if (const auto ping = machine.LastPing(); ping && machine.Phase() == Phase::kRunning) {
            status.sinceWatchdog = std::chrono::duration_cast<std::chrono::milliseconds>(now - *ping);
        }
        status.dependsOn = config.dependsOn;
        const ResourceUse use = launcher_.Usage(config);
        status.memoryBytes = use.memoryBytes;
        status.cpuUsec = use.cpuUsec;
        status.memoryMax = use.memoryMax;
        return status;
    }
    return std::nullopt;
}

std::optional<GroupStatus> Supervisor::GroupStatusOf(const std::string& name) const {
    const auto index = FindGroup(name);
    if (!index) {
        return std::nullopt;
    }
    const GroupTransition& group = groups_[*index];
    GroupStatus status;
    status.name = name;
    status.state = group.Current();
    status.target = group.Target().value_or("");
    status.failed = group.Failed();
    status.onFailure = group.Config().onFailure;
    status.lastResult = group.LastResult();
    status.escalatedFrom = group.EscalatedFrom();
    return status;
}

std::vector<BlameEntry> Supervisor::Blame(const std::string& name) const {
    std::vector<BlameEntry> entries;
    for (const GroupTransition& group : groups_) {
        if (!name.empty() && group.Config().name != name) {
            continue;
        }
        for (const std::size_t index : group.Brought()) {
            const ProcessMachine& machine = procs_[index].machine;
            if (const auto after = machine.ReadyAfter()) {
                entries.push_back({machine.Config().name, group.Config().name, *after});
            }
        }
    }
    std::stable_sort(entries.begin(), entries.end(), [](const BlameEntry& a, const BlameEntry& b) {
        return a.readyAfter > b.readyAfter;
    });
    return entries;
}

}  // namespace tarn::em::daemon
