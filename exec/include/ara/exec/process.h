// SPDX-License-Identifier: Apache-2.0
// ara::exec::Process: one entry of the process list reported by Execution Management.
#ifndef ARA_EXEC_PROCESS_H
#define ARA_EXEC_PROCESS_H

#include "ara/core/string.h"

namespace ara::exec {

/// Members in wire order: four texts, then the boolean.
struct Process {
    ara::core::String processName;        ///< the process's short name in the machine manifest
    ara::core::String functionGroupName;  ///< the Function Group whose states start it
    ara::core::String processState;       ///< "Idle", "Starting", "Running", "Terminating", "Restarting" or "Failed"
    ara::core::String processId;          ///< the OS process id in decimal, "" while no OS process exists
    bool isRunning{false};                ///< true while the OS process exists

    bool operator==(const Process& other) const {
        return processName == other.processName && functionGroupName == other.functionGroupName &&
               processState == other.processState && processId == other.processId && isRunning == other.isRunning;
    }
    bool operator!=(const Process& other) const { return !(*this == other); }
};

}  // namespace ara::exec

// Every user of Process also sees how it is encoded, so no encoder or decoder of a process
// (or of a list of them) is ever made from the generic templates by mistake.
#include "kelp/serialize/dds/deserializer.h"     // NOLINT(llvm-include-order): needs Process above
#include "kelp/serialize/dds/serializer.h"       // NOLINT(llvm-include-order)
#include "kelp/serialize/someip/deserializer.h"  // NOLINT(llvm-include-order)
#include "kelp/serialize/someip/serializer.h"    // NOLINT(llvm-include-order)

#endif
