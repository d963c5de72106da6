// SPDX-License-Identifier: Apache-2.0
// Function-group transitions: begin, converge, end.
#include "group_transition.h"

#include <algorithm>
#include <utility>

#include "ara/exec/exec_error_domain.h"

namespace tarn::em::daemon {

bool RunsIn(const ProcessConfig& process, const std::string& state) {
    return std::find(process.states.begin(), process.states.end(), state) != process.states.end();
}

GroupTransition::GroupTransition(const FunctionGroupConfig& config, std::vector<Member> members)
    : config_(&config), members_(std::move(members)), log_(ara::quill::common::log::Log::GetLog("EMD")) {}

bool GroupTransition::Wants(const ProcessConfig& process) const {
    return RunsIn(process, target_ ? *target_ : current_);
}

bool GroupTransition::Moves(const ProcessConfig& process) const {
    return target_ && RunsIn(process, *target_);
}

namespace {

/// A process without an OS process that holds up no one.
bool Gone(ProcessPhase phase) {
    return phase == ProcessPhase::kIdle || phase == ProcessPhase::kFailed || phase == ProcessPhase::kTerminated;
}

}  // namespace

void GroupTransition::BeginInitial() {
    brought_.clear();
    target_ = config_->initialState;
    log_->info() << "[Supervisor][Transition begins][function_group=" << config_->name
                 << ", from=(none), to=" << *target_ << "]";
}

void GroupTransition::Begin(const std::string& state, Completion done) {
    brought_.clear();
    target_ = state;
    waiters_.push_back(std::move(done));
    log_->info() << "[Supervisor][Transition begins][function_group=" << config_->name << ", from=" << current_
                 << ", to=" << state << "]";
}

bool GroupTransition::Escalate() {
    const std::string& onFailure = config_->onFailure;
    if (onFailure.empty() || target_.value_or(current_) == onFailure) {
        return false;
    }
    escalatedFrom_ = target_.value_or(current_);
    brought_.clear();
    target_ = onFailure;
    log_->warn() << "[Supervisor][Transition begins][function_group=" << config_->name << ", from=" << escalatedFrom_
                 << ", to=" << onFailure << ", escalation=true]";
    return true;
}

bool GroupTransition::Converge(Members& members, Clock::time_point now) {
    if (!target_) {
        return false;
    }
    const std::string target = *target_;
    const auto phaseOf = [&members](std::size_t index) { return members.PhaseOf(index); };
    // Stops first, each once nothing that needs it is left: the reverse of the start order.
    bool stopping = false;
    for (const Member& member : members_) {
        const ProcessPhase phase = phaseOf(member.index);
        const bool needed = std::any_of(
            member.neededBy.begin(), member.neededBy.end(), [&](std::size_t other) { return !Gone(phaseOf(other)); });
        if (!RunsIn(*member.config, target) && phase != ProcessPhase::kIdle && phase != ProcessPhase::kTerminating &&
            !needed) {
            members.Withdraw(member.index, now);
        }
        const ProcessPhase after = phaseOf(member.index);
        stopping = stopping || after == ProcessPhase::kTerminating ||
                   (!RunsIn(*member.config, target) && after != ProcessPhase::kIdle);
    }
    if (stopping) {
        return false;  // the starts wait until every stop has ended
    }
    // Starts, each once what it needs is met; those that need nothing start at once.
    bool starting = false;
    for (const Member& member : members_) {
        if (!RunsIn(*member.config, target)) {
            continue;
        }
        const ProcessPhase phase = phaseOf(member.index);
        const bool met = std::all_of(member.needs.begin(), member.needs.end(), [&](const Need& need) {
            return phaseOf(need.index) ==
                   (need.condition == Condition::kTerminated ? ProcessPhase::kTerminated : ProcessPhase::kRunning);
        });
        if ((phase == ProcessPhase::kIdle || phase == ProcessPhase::kFailed) && met) {
            if (std::find(brought_.begin(), brought_.end(), member.index) == brought_.end()) {
                brought_.push_back(member.index);
            }
            members.Bring(member.index, now);
        }
        const ProcessPhase done = member.oneShot ? ProcessPhase::kTerminated : ProcessPhase::kRunning;
        starting = starting || phaseOf(member.index) != done;
    }
    return !starting && End({}, "completed");
}

bool GroupTransition::End(const Outcome& outcome, const std::string& how) {
    if (!target_) {
        return false;
    }
    const std::string target = *target_;
    const bool cancelled =
        !outcome.HasValue() && outcome.Error() == ara::exec::MakeErrorCode(ara::exec::ExecErrc::kCancelled, 0);
    if (!cancelled) {
        current_ = target;
        failed_ = !outcome.HasValue();
    }
    target_.reset();
    lastResult_ = how;
    if (outcome.HasValue()) {
        log_->info() << "[Supervisor][Transition completed][function_group=" << config_->name << ", state=" << target
                     << "]";
    } else {
        log_->warn() << "[Supervisor][Transition ended][function_group=" << config_->name << ", state=" << target
                     << ", result=" << how << "]";
    }
    std::vector<Completion> waiters;
    waiters.swap(waiters_);
    for (Completion& done : waiters) {
        done(outcome);
    }
    return true;
}

}  // namespace tarn::em::daemon
