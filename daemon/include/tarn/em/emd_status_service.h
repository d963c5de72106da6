// SPDX-License-Identifier: Apache-2.0
// emd's own service: what the three Execution Management services cannot carry (a process's
// or a group's status in detail, start-up timings, the dependencies between processes), for
// emctl and other tools of the machine's operator. Stated once for emd and its callers, on
// the same terms as the three (em_services.h): one address, the methods, the error codes.
//
// Every answer is one JSON document (UTF-8; a text that was not valid UTF-8 has its bad bytes
// replaced by U+FFFD). Absent values are null; durations are whole milliseconds. Lists are
// arrays of objects, in the order stated, so that a reader needs no member enumeration.
//
// GetProcessStatus(name):
//   {"name": "logger", "functionGroup": "MachineFG", "phase": "Running", "pid": 1234 | null,
//    "readiness": "report" | "notify" | "spawn", "statusText": "..." | null,
//    "restarts": 0, "lastExit": "exit code 1" | null, "readyAfterMs": 120 | null,
//    "watchdogMs": 0 (none) | N, "sinceWatchdogMs": N | null,
//    "dependsOn": [{"process": "db", "condition": "running" | "terminated"}, ...],
//    "memoryBytes": N | null, "memoryMaxBytes": N | null, "cpuMs": N | null}
//   "restarts" counts the restarts charged against the start limit now; "readyAfterMs" is
//   launch to ready of its last start; "sinceWatchdogMs" is the time since its last watchdog
//   ping (or since it became ready); "memoryBytes", "memoryMaxBytes" (the kernel's limit,
//   null for none) and "cpuMs" are read from its cgroup (CPU time since the group was made),
//   null while it has none.
// GetGroupStatus(name):
//   {"name": "Demo", "state": "On" | null (no state yet), "target": "Off" | null (no
//    transition under way), "failed": false, "onFailure": "Safe" | null, "lastResult":
//    "completed" | "<why not>" | null (none ended yet), "escalatedFrom": "On" | null}
// GetBlame(group; "" for every group):
//   {"functionGroup": "Demo" | null, "processes": [{"name": "greeter", "functionGroup":
//    "Demo", "readyAfterMs": 1234}, ...]}   the processes the last transition started,
//   slowest to become ready first.
// GetDependencies():
//   {"processes": [{"name": "app", "functionGroup": "Demo", "dependsOn": [{"process": "db",
//    "condition": "running"}, ...]}, ...]}   every configured process, in manifest order.
//
// An unknown process or group is answered with kInvalidArguments. The method ids follow those
// of the three services, so that no id means two methods of emd.
#ifndef TARN_EM_EMD_STATUS_SERVICE_H
#define TARN_EM_EMD_STATUS_SERVICE_H

#include "ara/core/string.h"
#include "tarn/em/em_services.h"

namespace tarn::em::services {

/// emd's own service, beside the state manager and health manager services on domain 4.
inline constexpr ServiceAddress EMD_STATUS_SERVICE{4, 57363U, "EM_RPC_REQUEST_EMD_STATUS", "EM_RPC_REPLY_EMD_STATUS"};

/// (process name) -> its status as JSON.
using GetProcessStatus = Method<7U, EMD_STATUS_SERVICE, ara::core::String, ara::core::String>;
/// (Function Group name) -> its status as JSON.
using GetGroupStatus = Method<8U, EMD_STATUS_SERVICE, ara::core::String, ara::core::String>;
/// (Function Group name, or "" for every group) -> the start-up times of its last transition as JSON.
using GetBlame = Method<9U, EMD_STATUS_SERVICE, ara::core::String, ara::core::String>;
/// () -> every process's dependencies as JSON.
using GetDependencies = Method<10U, EMD_STATUS_SERVICE, ara::core::String>;

}  // namespace tarn::em::services

#endif
