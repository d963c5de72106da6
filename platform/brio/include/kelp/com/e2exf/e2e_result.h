// SPDX-License-Identifier: Apache-2.0
// The two-byte outcome of an end-to-end check: check status, then state-machine state.
#ifndef KELP_COM_E2EXF_E2E_RESULT_H
#define KELP_COM_E2EXF_E2E_RESULT_H

#include <cstdint>

#include "kelp/com/e2exf/profile_check_status.h"

namespace kelp::com::e2exf {

struct E2EResult {
    ProfileCheckStatus checkStatus{ProfileCheckStatus::kNoNewData};
    std::uint8_t smState{1U};

    bool operator==(const E2EResult& other) const noexcept {
        return checkStatus == other.checkStatus && smState == other.smState;
    }
    bool operator!=(const E2EResult& other) const noexcept { return !(*this == other); }
};

}  // namespace kelp::com::e2exf

#endif
