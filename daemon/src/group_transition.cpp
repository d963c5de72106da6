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

void GroupTransition::BeginInitial() {
    target_ = config_->initialState;
    log_->info() << "[Supervisor][Transition begins][function_group=" << config_->name
                 << ", from=(none), to=" << *target_ << "]";
}

void GroupTransition::Begin(const std::string& state, Completion done) {
    target_ = state;
    waiters_.push_back(std::move(done));
    log_->info() << "[Supervisor][Transition begins][function_group=" << config_->name << ", from=" << current_
                 << ", to=" << state << "]";
}

bool GroupTransition::Converge(Members& members, Clock::time_point now) {
    if (!target_) {
        return false;
    }
    const std::string target = *target_;
    bool stopping = false;
    for (const Member& member : members_) {
        const ProcessPhase phase = members.PhaseOf(member.index);
        if (!RunsIn(*member.config, target) && phase != ProcessPhase::kIdle && phase != ProcessPhase::kTerminating) {
            members.Withdraw(member.index, now);
        }
        stopping = stopping || members.PhaseOf(member.index) == ProcessPhase::kTerminating;
    }
    if (stopping) {
        return false;  // the starts wait until every stop has ended
    }
    bool starting = false;
    for (const Member& member : members_) {
        if (RunsIn(*member.config, target)) {
            const ProcessPhase phase = members.PhaseOf(member.index);
            if (phase == ProcessPhase::kIdle || phase == ProcessPhase::kFailed) {
                members.Bring(member.index, now);
            }
            starting = starting || members.PhaseOf(member.index) != ProcessPhase::kRunning;
        }
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
