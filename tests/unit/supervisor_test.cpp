// SPDX-License-Identifier: Apache-2.0
// emd's process state machine and function-group transitions without processes or DDS: a
// fake launcher hands out pids and records signals, and time is whatever the test passes.
#include "supervisor.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <string>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "process_machine.h"

namespace {

using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)
using namespace std::chrono_literals;
using ara::exec::ExecutionState;
using E = ProcessEvent::Kind;
using PE = ProcessEvent;
using P = ProcessPhase;
using Texts = std::vector<std::string>;

const Clock::time_point T0{};

/// Start-up time-out 100 ms, termination time-out 50 ms, back-off 20 ms.
ProcessConfig Config(const std::string& name, const std::string& group, Texts states, unsigned int restarts = 0U) {
    ProcessConfig config;
    config.name = name;
    config.executable = "/bin/" + name;
    config.functionGroup = group;
    config.states = std::move(states);
    config.startupTimeout = 100ms;
    config.terminationTimeout = 50ms;
    config.restart.maxRestarts = restarts;
    config.restart.backoff = 20ms;
    return config;
}

/// The actions in short: a log line by its title, the other actions by kind.
std::string Render(const std::vector<ProcessAction>& actions) {
    using K = ProcessAction::Kind;
    static const char* const kinds[] = {"",
                                        "enqueue",
                                        "launch",
                                        "",
                                        "answer=",
                                        "converge",
                                        "fail-transition",
                                        "group-failed=",
                                        "continue-shutdown",
                                        "start-limit"};
    std::string text;
    for (const ProcessAction& action : actions) {
        text += (text.empty() ? "" : ", ") + std::string(kinds[static_cast<int>(action.kind)]);
        if (action.kind == K::kLog) {
            text += action.text.substr(13U, action.text.find(']', 13U) - 13U);  // after "[Supervisor]["
        } else if (action.kind == K::kSignal) {
            text += action.signal == SIGKILL ? "SIGKILL" : "SIGTERM";
        } else if (action.kind == K::kAnswer) {
            text += action.error ? std::to_string(static_cast<int>(*action.error)) : "ok";
        } else if (action.kind == K::kGroupFailed) {
            text += action.failed ? "true" : "false";
        }
    }
    return text;
}

// wanted, inTransition, restartWaiters, shuttingDown
const ProcessContext MOVING{true, true, false, false};     // its group is moving to a state it runs in
const ProcessContext SETTLED{true, false, false, false};   // its group is in a state it runs in
const ProcessContext RESTART{true, false, true, false};    // a ProcessRestart waits for it
const ProcessContext UNWANTED{false, false, true, false};  // its group left its states; a restart waits
const ProcessContext SHUTDOWN{true, false, true, true};

/// `event` handed at T0 + `atMs` in `context` to a machine brought to `setup`.
struct Fed {
    const char* setup;
    ProcessEvent event;
    int atMs;
    ProcessContext context;
};

/// A machine brought to `setup`: a parent setup and one more event.
ProcessMachine Prepared(const ProcessConfig& config, const std::string& setup, bool oneShot = false) {
    using R = ExecutionState;
    // clang-format off
    static const std::map<std::string, Fed> steps = {
        {"Queued", {"Idle", ProcessEvent::Of(E::kStart), 0, MOVING}},
        {"Launching", {"Queued", ProcessEvent::Of(E::kDequeued), 0, MOVING}},
        {"Starting", {"Launching", ProcessEvent::Spawned({7, ""}), 0, MOVING}},
        {"Failed", {"Launching", ProcessEvent::Spawned({-1, "gone"}), 0, MOVING}},
        {"Late", {"Starting", ProcessEvent::Of(E::kTimer), 100, MOVING}},  // no kRunning report in time
        {"Late+settled", {"Starting", ProcessEvent::Of(E::kTimer), 100, SETTLED}},
        {"Running", {"Starting", ProcessEvent::Reported(R::kRunning), 0, MOVING}},
        {"Running+kTerminating", {"Running", ProcessEvent::Reported(R::kTerminating), 0, MOVING}},
        {"Terminating", {"Running", ProcessEvent::Stop(false, AfterStop::kIdle), 0, MOVING}},
        {"Terminating+restart", {"Running", ProcessEvent::Stop(false, AfterStop::kRelaunch), 0, MOVING}},
        {"Restarting", {"Running", ProcessEvent::Exited(9), 0, SETTLED}},
        {"Backoff", {"Restarting", ProcessEvent::Of(E::kTimer), 20, SETTLED}},  // relaunch asked for
        {"Relaunched", {"Backoff", ProcessEvent::Spawned({9, ""}), 20, SETTLED}},
        {"Relaunched+running", {"Relaunched", ProcessEvent::Reported(R::kRunning), 20, SETTLED}},
        {"Watchdog-killed", {"Running", ProcessEvent::Of(E::kTimer), 30, SETTLED}},
        {"Terminated", {"Starting", ProcessEvent::Exited(0), 10, MOVING}},
    };
    // clang-format on
    if (setup == "Idle") {
        return ProcessMachine(config, oneShot);
    }
    const Fed& step = steps.at(setup);
    ProcessMachine m = Prepared(config, step.setup, oneShot);
    (void)m.Handle(step.event, step.context, T0 + std::chrono::milliseconds(step.atMs));
    return m;
}

TEST(ProcessMachineTest, EveryPhaseAndEvent) {
    // 0: report, one restart, back-off 20 ms. 1: notify, watchdog 30 ms, two restarts within
    // 100 ms, back-off 10 ms doubling up to 15 ms. 2: spawn. 3: a one-shot.
    ProcessConfig variants[4] = {
        Config("p", "G", {"On"}, 1U), Config("p", "G", {"On"}, 2U), Config("p", "G", {"On"}), Config("p", "G", {"On"})};
    variants[1].readiness = Readiness::kNotify;
    variants[1].watchdog = 30ms;
    variants[1].restart = {2U, 10ms, 15ms, 100ms};
    variants[2].readiness = Readiness::kSpawn;
    struct Case {
        Fed fed;
        P phase;
        const char* actions;
        int deadlineMs;  // -1: none
        int variant = 0;
    };
    const auto of = ProcessEvent::Of;
    const ProcessEvent running = ProcessEvent::Reported(ExecutionState::kRunning);
    const ProcessEvent terminating = ProcessEvent::Reported(ExecutionState::kTerminating);
    // clang-format off
    const Case cases[] = {
        {{"Idle", of(E::kStart), 0, MOVING}, P::kStarting, "enqueue", -1},
        {{"Failed", of(E::kStart), 0, MOVING}, P::kStarting, "enqueue", -1},
        {{"Running", of(E::kStart), 0, MOVING}, P::kRunning, "", -1},
        {{"Queued", of(E::kDequeued), 0, MOVING}, P::kStarting, "launch", -1},
        {{"Starting", of(E::kDequeued), 0, MOVING}, P::kStarting, "", 100},
        {{"Launching", PE::Spawned({8, ""}), 5, MOVING}, P::kStarting, "Launched", 105},
        {{"Launching", PE::Spawned({-1, "x"}), 0, MOVING}, P::kFailed, "Launch failed, fail-transition", -1},
        {{"Launching", PE::Spawned({-1, "x"}), 0, RESTART}, P::kFailed, "Launch failed, answer=6", -1},
        {{"Starting", running, 30, RESTART}, P::kRunning, "Reported kRunning, answer=ok, converge", -1},
        {{"Running", running, 30, MOVING}, P::kRunning, "", -1},
        {{"Running", terminating, 30, MOVING}, P::kRunning, "Reported kTerminating", 80},
        {{"Starting", of(E::kTimer), 99, MOVING}, P::kStarting, "", 100},
        {{"Starting", of(E::kTimer), 100, MOVING}, P::kTerminating,
         "No kRunning report in time, Stopping, SIGTERM, Process failed to start, fail-transition", 150},
        {{"Starting", PE::Exited(9), 10, MOVING}, P::kFailed,
         "Process exited, Process failed to start, fail-transition", -1},
        {{"Starting", PE::Exited(9), 10, SETTLED}, P::kRestarting,
         "Process exited, Restart scheduled, Process failed to start", 30},
        {{"Late", PE::Exited(0), 110, MOVING}, P::kFailed, "Process exited, converge", -1},
        {{"Late+settled", PE::Exited(0), 110, SETTLED}, P::kRestarting,
         "Process exited, Restart scheduled, converge", 130},
        {{"Running", PE::Exited(9), 10, SETTLED}, P::kRestarting, "Process exited, Restart scheduled, converge", 30},
        {{"Running+kTerminating", PE::Exited(0), 10, SETTLED}, P::kIdle,
         "Process exited, Process ended after reporting kTerminating, converge", -1},
        {{"Running+kTerminating", of(E::kTimer), 50, SETTLED}, P::kTerminating,
         "Still running after reporting kTerminating, sending SIGKILL, Stopping, SIGKILL", -1},
        {{"Restarting", of(E::kTimer), 20, SETTLED}, P::kIdle, "launch", -1},
        {{"Backoff", PE::Spawned({-1, "x"}), 20, MOVING}, P::kFailed,
         "Launch failed, Restarts used up, fail-transition, start-limit, converge", -1},
        {{"Backoff", PE::Spawned({8, ""}), 20, SETTLED}, P::kStarting, "Launched, converge", 120},
        {{"Terminating", PE::Exited(0), 10, MOVING}, P::kIdle, "Process exited, converge", -1},
        {{"Terminating", of(E::kTimer), 49, MOVING}, P::kTerminating, "", 50},
        {{"Terminating", of(E::kTimer), 50, MOVING}, P::kTerminating,
         "Still running after SIGTERM, sending SIGKILL, SIGKILL", -1},
        {{"Terminating", PE::Stop(true, AfterStop::kRelaunch), 0, RESTART}, P::kTerminating, "SIGKILL", 50},
        {{"Terminating", PE::Stop(false, AfterStop::kRelaunch), 0, RESTART}, P::kTerminating, "", 50},
        {{"Terminating+restart", PE::Exited(0), 10, RESTART}, P::kIdle, "Process exited, launch", -1},
        {{"Terminating+restart", PE::Exited(0), 10, UNWANTED}, P::kIdle, "Process exited, answer=5, converge", -1},
        {{"Running", PE::Stop(false, AfterStop::kIdle), 10, UNWANTED}, P::kTerminating,
         "answer=5, Stopping, SIGTERM", 60},
        {{"Running", PE::Stop(true, AfterStop::kRelaunch), 10, RESTART}, P::kTerminating, "Stopping, SIGKILL", -1},
        {{"Queued", PE::Stop(false, AfterStop::kIdle), 0, UNWANTED}, P::kIdle, "answer=5", -1},
        {{"Queued", PE::Stop(false, AfterStop::kRelaunch), 0, RESTART}, P::kStarting, "", -1},
        {{"Idle", PE::Stop(false, AfterStop::kRelaunch), 0, RESTART}, P::kIdle, "launch", -1},
        {{"Restarting", PE::Stop(false, AfterStop::kIdle), 0, UNWANTED}, P::kIdle, "", -1},
        {{"Running", PE::Exited(0), 0, SHUTDOWN}, P::kIdle, "Process exited, answer=6, continue-shutdown", -1},
        {{"Queued", of(E::kShutdown), 0, SHUTDOWN}, P::kIdle, "answer=6", -1},
        {{"Terminating", of(E::kShutdown), 0, SHUTDOWN}, P::kTerminating, "answer=6", 50},
        {{"Running", of(E::kKill), 0, SHUTDOWN}, P::kRunning, "Killing at once, SIGKILL", -1},
        // Readiness by notification, the watchdog, and the back-off within its window.
        {{"Starting", of(E::kReady), 0, MOVING}, P::kStarting, "", 100},  // a report-kind process
        {{"Starting", of(E::kReady), 5, MOVING}, P::kRunning, "Ready, converge", 35, 1},
        {{"Starting", running, 5, MOVING}, P::kRunning, "Reported kRunning, converge", 35, 1},
        {{"Starting", PE::Extend(500ms), 10, MOVING}, P::kStarting, "Time-out extended", 510, 1},
        {{"Starting", PE::Extend(10ms), 10, MOVING}, P::kStarting, "", 100, 1},  // never shortened
        {{"Queued", PE::Extend(500ms), 0, MOVING}, P::kStarting, "", -1, 1},
        {{"Terminating", PE::Extend(500ms), 10, MOVING}, P::kTerminating, "Time-out extended", 510, 1},
        {{"Running", of(E::kPing), 20, SETTLED}, P::kRunning, "", 50, 1},
        {{"Running", of(E::kPing), 20, SETTLED}, P::kRunning, "", -1, 0},  // no watchdog
        {{"Running", of(E::kTimer), 29, SETTLED}, P::kRunning, "", 30, 1},
        {{"Running", of(E::kTimer), 30, SETTLED}, P::kTerminating,
         "Watchdog missed, sending SIGKILL, Stopping, SIGKILL", -1, 1},
        {{"Running", of(E::kPingMissed), 5, SETTLED}, P::kTerminating,
         "Watchdog missed, sending SIGKILL, Stopping, SIGKILL", -1, 1},
        {{"Starting", of(E::kTimer), 100, MOVING}, P::kTerminating,
         "Not ready in time, Stopping, SIGTERM, Process failed to start, fail-transition", 150, 1},
        {{"Watchdog-killed", PE::Exited(SIGKILL), 40, SETTLED}, P::kRestarting,
         "Process exited, Restart scheduled, converge", 50, 1},
        {{"Relaunched+running", PE::Exited(9), 30, SETTLED}, P::kRestarting,
         "Process exited, Restart scheduled, converge", 45, 1},  // the second waits 15 ms, not 20
        {{"Relaunched+running", PE::Exited(9), 100, SETTLED}, P::kRestarting,
         "Process exited, Restart scheduled, converge", 110, 1},  // the first has left the window
        {{"Relaunched+running", PE::Exited(9), 30, SETTLED}, P::kFailed,
         "Process exited, Restarts used up, start-limit, converge", -1, 0},
        {{"Launching", PE::Spawned({8, ""}), 5, MOVING}, P::kRunning, "Launched, Ready, converge", -1, 2},
        // A one-shot is done once it exited with status 0, whatever it reported.
        {{"Starting", running, 5, MOVING}, P::kStarting, "Reported kRunning", 100, 3},
        {{"Starting", PE::Exited(0), 10, MOVING}, P::kTerminated, "Process exited, Process completed, converge", -1, 3},
        {{"Starting", PE::Exited(1 << 8), 10, MOVING}, P::kFailed,
         "Process exited, Process failed to start, fail-transition", -1, 3},
        {{"Terminated", PE::Stop(false, AfterStop::kIdle), 20, UNWANTED}, P::kIdle, "", -1, 3},
        {{"Terminated", of(E::kStart), 20, MOVING}, P::kTerminated, "", -1, 3},
    };
    // clang-format on
    for (const Case& c : cases) {
        ProcessMachine m = Prepared(variants[c.variant], c.fed.setup, c.variant == 3);
        const std::string label = std::string(c.fed.setup) + " + event " +
                                  std::to_string(static_cast<int>(c.fed.event.kind)) + " at " +
                                  std::to_string(c.fed.atMs) + " ms, variant " + std::to_string(c.variant);
        EXPECT_EQ(Render(m.Handle(c.fed.event, c.fed.context, T0 + std::chrono::milliseconds(c.fed.atMs))), c.actions)
            << label;
        EXPECT_STREQ(ProcessPhaseName(m.Phase()), ProcessPhaseName(c.phase)) << label;
        EXPECT_EQ(m.Deadline() ? (*m.Deadline() - T0) / 1ms : -1, c.deadlineMs) << label;
    }
}

/// Spawns fake pids from 100 on and records launches and signals in order.
class FakeLauncher final : public Launcher {
public:
    SpawnResult Spawn(const ProcessConfig& process) override {
        calls.push_back("spawn " + process.name);
        pids[process.name] = next;
        return {next++, ""};
    }
    bool Signal(pid_t pid, int signal) override {
        calls.push_back(std::string(signal == SIGKILL ? "kill " : "term ") + std::to_string(pid));
        return true;
    }
    Texts Take() { return std::exchange(calls, {}); }

    Texts calls;
    std::map<std::string, pid_t> pids;
    pid_t next{100};
};

/// A supervisor on `manifest` with the fake launcher and a clock the test sets.
class SupervisorCase : public ::testing::Test {
protected:
    explicit SupervisorCase(Manifest config) : sv(std::move(config), launcher, [this] { return now; }) {}

    /// A completion that records "<tag> ok" or "<tag> <error code>".
    Completion Answer(const std::string& tag) {
        return [this, tag](const Outcome& o) {
            answers.push_back(tag + " " + (o.HasValue() ? "ok" : std::to_string(o.Error().Value())));
        };
    }
    void LaunchAll() { (void)sv.LaunchQueued(now + 1h); }
    void Up(const std::string& name) { EXPECT_TRUE(sv.Report(launcher.pids[name], ExecutionState::kRunning, now)); }
    std::string State(const std::string& group) {
        const auto state = sv.GetState(group);
        return state ? std::string(state.Value()) : std::to_string(state.Error().Value());
    }
    /// MachineFG up with "m" running, App in On with "a" and "b" running; launches forgotten.
    void Boot() {
        sv.Start(now);
        LaunchAll();
        Up("m");
        sv.SetState("App", "On", Answer("on"), now);
        LaunchAll();
        Up("a");
        Up("b");
        ASSERT_EQ(answers, Texts{"on ok"});
        answers.clear();
        launcher.calls.clear();
    }

    ara::quill::common::log::CaptureSink capture;
    FakeLauncher launcher;
    Clock::time_point now{T0};
    Supervisor sv;
    Texts answers;
};

/// App (Off, On, Both) with "a" (one restart) and "b" in On and Both and "c" in Both; then
/// MachineFG (Running) with "m".
class SupervisorTest : public SupervisorCase {
protected:
    SupervisorTest() : SupervisorCase(Make()) {}
    static Manifest Make() {
        Manifest manifest;
        manifest.functionGroups = {{"App", {"Off", "On", "Both"}, "Off", ""}, {MACHINE_FG, {"Running"}, "Running", ""}};
        manifest.processes = {Config("m", MACHINE_FG, {"Running"}),
                              Config("a", "App", {"On", "Both"}, 1U),
                              Config("b", "App", {"On", "Both"}),
                              Config("c", "App", {"Both"})};
        return manifest;
    }
};

/// MachineFG (Running, Degraded; onFailure Degraded): "web" (spawn) needs "app", which needs
/// "db" (notify) running and the one-shot "migrate" terminated; "migrate" needs "db";
/// "safe" runs in Degraded only, "db" in both.
class DependencyTest : public SupervisorCase {
protected:
    DependencyTest() : SupervisorCase(Make()) {}
    static Manifest Make() {
        Manifest manifest;
        manifest.functionGroups = {{MACHINE_FG, {"Running", "Degraded"}, "Running", "Degraded"}};
        const Texts running{"Running"};
        manifest.processes = {Config("web", MACHINE_FG, running),
                              Config("app", MACHINE_FG, running, 1U),
                              Config("migrate", MACHINE_FG, running),
                              Config("db", MACHINE_FG, {"Running", "Degraded"}),
                              Config("safe", MACHINE_FG, {"Degraded"})};
        manifest.processes[0].readiness = Readiness::kSpawn;
        manifest.processes[0].dependsOn = {{"app", Condition::kRunning}};
        manifest.processes[1].dependsOn = {{"db", Condition::kRunning}, {"migrate", Condition::kTerminated}};
        manifest.processes[2].dependsOn = {{"db", Condition::kRunning}};
        manifest.processes[3].readiness = Readiness::kNotify;
        return manifest;
    }
    void Ready(const std::string& name) {
        NotifyMessage ready;
        ready.ready = true;
        sv.Notify(launcher.pids[name], ready, now);
    }
};

TEST_F(SupervisorTest, TransitionCompletesOnceEveryProcessRunsAndLaunchesOneSliceAtATime) {
    sv.GetInitialResult(Answer("initial"));
    sv.Start(now);
    EXPECT_EQ(capture.Texts("EMD").at(0U),  // MachineFG first, though declared last
              "[Supervisor][Transition begins][function_group=MachineFG, from=(none), to=Running]");
    EXPECT_EQ(State(MACHINE_FG), "7");         // kBusy: no state before its first transition ends
    EXPECT_FALSE(sv.LaunchQueued(now - 1ms));  // one launch even with the slice over
    Up("m");
    EXPECT_EQ(answers, Texts{"initial ok"});
    sv.SetState("App", "Both", Answer("both"), now);
    EXPECT_TRUE(sv.LaunchQueued(now - 1ms));
    EXPECT_TRUE(sv.LaunchQueued(now - 1ms));
    EXPECT_FALSE(sv.LaunchQueued(now - 1ms));
    EXPECT_EQ(launcher.Take(), (Texts{"spawn m", "spawn a", "spawn b", "spawn c"}));
    Up("a");
    Up("c");
    EXPECT_EQ(State("App"), "Off");  // the state it is leaving
    Up("b");
    EXPECT_EQ(answers, (Texts{"initial ok", "both ok"}));
    EXPECT_EQ(State("App"), "Both");
    // Only "c" must go; "a" and "b" run on, and the move ends once "c" has exited.
    sv.SetState("App", "On", Answer("on"), now);
    EXPECT_EQ(launcher.Take(), Texts{"term 103"});
    sv.OnExit(103, 0, now);
    EXPECT_EQ(answers.back(), "on ok");
    EXPECT_TRUE(
        capture.Contains("[Supervisor][Process exited][process=c, pid=103, status=exit code 0, state=Terminating]"));
}

TEST_F(SupervisorTest, NewerRequestCancelsTheOlderAndRestartAnswers) {
    Boot();
    sv.SetState("App", "Both", Answer("both"), now);  // "c" queued, never launched
    sv.Restart("a", false, Answer("restart a"), now);
    sv.SetState("App", "Nowhere", Answer("nowhere"), now);
    sv.SetState("App", "Off", Answer("off"), now);
    EXPECT_EQ(answers, (Texts{"restart a 7", "nowhere 2", "both 5"}));
    EXPECT_EQ(State("App"), "On");  // a cancelled move leaves the state as it was
    EXPECT_FALSE(sv.LaunchQueued(now + 1h));
    EXPECT_EQ(launcher.Take(), (Texts{"term 101", "term 102"}));
    sv.Restart("a", false, Answer("restart a"), now);  // does not run in Off
    sv.OnExit(101, 0, now);
    sv.OnExit(102, 0, now);
    sv.Restart("nobody", false, Answer("restart nobody"), now);
    EXPECT_EQ(answers, (Texts{"restart a 7", "nowhere 2", "both 5", "restart a 6", "off ok", "restart nobody 2"}));
    EXPECT_FALSE(sv.Report(4242, ExecutionState::kRunning, now));
}

TEST_F(SupervisorTest, RestartsUsedUpFailTheGroupUntilTheNextTransition) {
    Boot();
    sv.OnExit(launcher.pids["a"], 9, now);  // a crash: restarted after the back-off
    sv.OnTimer(now + 19ms);
    EXPECT_TRUE(launcher.calls.empty());
    sv.OnTimer(now + 20ms);
    EXPECT_EQ(launcher.Take(), Texts{"spawn a"});
    Up("a");
    EXPECT_EQ(State("App"), "On");
    sv.OnExit(launcher.pids["a"], 9, now);
    EXPECT_EQ(sv.ProcessStates()[1].processState, "Failed");
    EXPECT_EQ(State("App"), "6");
    EXPECT_FALSE(sv.NextDeadline());
    // A requested restart launches it again and clears the mark.
    sv.Restart("a", false, Answer("restart"), now);
    Up("a");
    EXPECT_EQ(answers, Texts{"restart ok"});
    EXPECT_EQ(State("App"), "On");
    sv.OnExit(launcher.pids["a"], 9, now);  // its restarts counted afresh
    EXPECT_EQ(sv.ProcessStates()[1].processState, "Restarting");
}

TEST_F(SupervisorTest, ShutdownStopsApplicationGroupsBeforeMachineFG) {
    Boot();
    sv.SetState("App", "Both", Answer("both"), now);
    sv.Shutdown(now);
    EXPECT_EQ(answers, Texts{"both 6"});
    EXPECT_FALSE(sv.LaunchQueued(now + 1h));  // "c" is not launched any more
    EXPECT_EQ(launcher.Take(), (Texts{"term 101", "term 102"}));
    sv.OnExit(101, 0, now);
    EXPECT_TRUE(launcher.calls.empty());
    sv.OnExit(102, 0, now);
    EXPECT_EQ(launcher.Take(), Texts{"term 100"});
    sv.Shutdown(now + 1s);  // again: SIGKILL at once
    EXPECT_EQ(launcher.Take(), Texts{"kill 100"});
    EXPECT_FALSE(sv.Finished());
    sv.OnExit(100, SIGKILL, now + 1s);
    EXPECT_TRUE(sv.Finished());
    EXPECT_TRUE(capture.Contains("[Supervisor][Every process stopped]"));
    sv.SetState("App", "On", Answer("late"), now);
    EXPECT_EQ(answers.back(), "late 6");
}

TEST_F(DependencyTest, StartsInDependencyOrderStopsInReverseAndEscalatesToOnFailure) {
    sv.GetInitialResult(Answer("initial"));
    sv.Start(now);
    LaunchAll();
    EXPECT_EQ(launcher.Take(), Texts{"spawn db"});  // the others wait for what they need
    now += 30ms;
    Ready("db");
    LaunchAll();
    EXPECT_EQ(launcher.Take(), Texts{"spawn migrate"});
    Up("migrate");  // a one-shot is done only once it has exited with status 0
    LaunchAll();
    EXPECT_TRUE(launcher.calls.empty());
    now += 50ms;
    sv.OnExit(launcher.pids["migrate"], 0, now);
    LaunchAll();
    EXPECT_EQ(launcher.Take(), Texts{"spawn app"});
    now += 10ms;
    Up("app");
    LaunchAll();
    EXPECT_EQ(launcher.Take(), Texts{"spawn web"});  // ready once spawned: the transition is complete
    EXPECT_EQ(answers, Texts{"initial ok"});
    const auto blame = sv.Blame("");
    ASSERT_EQ(blame.size(), 4U);
    EXPECT_EQ(blame[0].process + " " + blame[1].process + " " + blame[2].process + " " + blame[3].process,
              "migrate db app web");
    EXPECT_EQ(blame[0].readyAfter, 50ms);
    EXPECT_EQ(sv.StatusOf("migrate", now)->phase, "Terminated");

    // "db" crashes with no restart left: MachineFG moves to Degraded by itself, stopping
    // "web" before the "app" it needs, and then starts "db" again and "safe".
    sv.OnExit(launcher.pids["db"], 9, now);
    EXPECT_EQ(launcher.Take(), Texts{"term 103"});
    EXPECT_EQ(sv.GroupStatusOf(MACHINE_FG)->target, "Degraded");
    sv.OnExit(103, 0, now);
    EXPECT_EQ(launcher.Take(), Texts{"term 102"});
    sv.OnExit(102, 0, now);
    LaunchAll();
    EXPECT_EQ(launcher.Take(), (Texts{"spawn db", "spawn safe"}));
    Ready("db");
    Up("safe");
    EXPECT_EQ(State(MACHINE_FG), "Degraded");
    const GroupStatus group = *sv.GroupStatusOf(MACHINE_FG);
    EXPECT_EQ(group.escalatedFrom, "Running");
    EXPECT_EQ(group.lastResult, "completed");
    EXPECT_TRUE(capture.Contains(
        "[Supervisor][Escalating to the onFailure state][function_group=MachineFG, process=db, to=Degraded]"));

    // A start limit reached in the onFailure state itself fails the group.
    sv.OnExit(launcher.pids["safe"], 9, now);
    EXPECT_EQ(State(MACHINE_FG), "6");
}

}  // namespace
