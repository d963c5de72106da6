// SPDX-License-Identifier: Apache-2.0
// Report hooks for the execution client's tests, logging "[TestHook][before][state=0]" and the like in context TEST.
#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"

#ifndef WITHOUT_BEFORE_HOOK  // defined for the variant with the after hook only
extern "C" __attribute__((visibility("default"))) void ExecBeforeReportState(ara::exec::ExecutionState state) {
    ara::quill::common::log::Log::GetLog("TEST")->info() << "[TestHook][before][state=" << state << "]";
}
#endif
extern "C" __attribute__((visibility("default"))) void ExecAfterReportState(ara::exec::ExecutionState state) {
    ara::quill::common::log::Log::GetLog("TEST")->info() << "[TestHook][after][state=" << state << "]";
}
