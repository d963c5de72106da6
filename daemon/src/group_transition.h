// SPDX-License-Identifier: Apache-2.0
// A function group and its transitions: the state it is in, the state it is moving to and
// the requests waiting for the move. A transition converges in steps: first every process
// that must not run in the target state is stopped; once none of the group's processes is
// still stopping, those that must run are started; the transition completes once they all
// run. It ends early with kFailed (a process did not start, or used up its restarts) or
// kCancelled (a newer request for the group). The processes are the supervisor's: the group
// only asks it, through Members, to withdraw or bring one.
#ifndef TARN_EM_DAEMON_GROUP_TRANSITION_H
#define TARN_EM_DAEMON_GROUP_TRANSITION_H

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ara/core/result.h"
#include "ara/quill/common/log/log.h"
#include "manifest.h"
#include "process_machine.h"

namespace tarn::em::daemon {

/// How a request that waits for a transition or a restart ends.
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;
using Completion = std::function<void(const Outcome&)>;

/// True when `process` runs in `state` of its function group.
bool RunsIn(const ProcessConfig& process, const std::string& state);

class GroupTransition {
public:
    /// The group's processes, as its transitions see them; `process` is the supervisor's index.
    class Members {
    public:
        virtual ~Members() = default;
        virtual ProcessPhase PhaseOf(std::size_t process) const = 0;
        /// It must not run in the target state and is neither idle nor stopping: stop it, or
        /// drop its queued launch or pending restart.
        virtual void Withdraw(std::size_t process, Clock::time_point now) = 0;
        /// It must run in the target state and is idle or failed: queue its launch.
        virtual void Bring(std::size_t process, Clock::time_point now) = 0;
    };
    /// A process that `Member::index` needs, and what it must have reached.
    struct Need {
        std::size_t index;
        Condition condition;
    };
    struct Member {
        std::size_t index;
        const ProcessConfig* config;
        bool oneShot{false};                ///< done once Terminated, not once Running
        std::vector<Need> needs;            ///< started only once these are met
        std::vector<std::size_t> neededBy;  ///< stopped only once these are gone
    };

    /// `members`: the group's processes, in manifest order, with their dependencies resolved
    /// to the supervisor's indices.
    GroupTransition(const FunctionGroupConfig& config, std::vector<Member> members);

    const FunctionGroupConfig& Config() const noexcept { return *config_; }
    /// The state it is in; empty until its first transition has ended.
    const std::string& Current() const noexcept { return current_; }
    /// The state it is moving to, while a transition is under way.
    const std::optional<std::string>& Target() const noexcept { return target_; }
    /// Its last transition failed, or one of its processes used up its restarts.
    bool Failed() const noexcept { return failed_; }
    void SetFailed(bool failed) noexcept { failed_ = failed; }
    /// `process` runs in the state the group is moving to or, between transitions, is in.
    bool Wants(const ProcessConfig& process) const;
    /// A transition is under way to a state that `process` runs in.
    bool Moves(const ProcessConfig& process) const;

    /// Begins the move to the initial state, at emd's start.
    void BeginInitial();
    /// Begins the move to `state`, one of the group's, once the transition under way (if
    /// any) has been ended with kCancelled. `done` runs once the move has ended.
    void Begin(const std::string& state, Completion done);
    /// Begins the move to its onFailure state, which emd decided by itself: a process used up
    /// its restarts. False (nothing begun) when it has none, or is already in it or moving to it.
    bool Escalate();
    /// How its last transition ended: "completed", or why not; empty before the first ended.
    const std::string& LastResult() const noexcept { return lastResult_; }
    /// The state it left by itself for its onFailure state; empty when it never did.
    const std::string& EscalatedFrom() const noexcept { return escalatedFrom_; }
    /// The processes that its last transition (or the one under way) brought, in launch order.
    const std::vector<std::size_t>& Brought() const noexcept { return brought_; }
    /// Takes the transition under way one step further; true when that completed it.
    bool Converge(Members& members, Clock::time_point now);
    /// Ends the transition under way with `outcome` (success, kFailed or kCancelled; `how`
    /// says why it did not succeed) and answers its waiters; false when none was under way.
    bool End(const Outcome& outcome, const std::string& how);

private:
    const FunctionGroupConfig* config_;
    std::vector<Member> members_;
    std::string current_;
    bool failed_{false};
    std::optional<std::string> target_;
    std::vector<Completion> waiters_;
    std::string lastResult_;
    std::string escalatedFrom_;
    std::vector<std::size_t> brought_;
    std::shared_ptr<ara::quill::common::log::Log> log_;
};

}  // namespace tarn::em::daemon

#endif
