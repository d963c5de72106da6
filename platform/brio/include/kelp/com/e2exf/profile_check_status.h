// SPDX-License-Identifier: Apache-2.0
// Outcome of an end-to-end protection check of one received message.
#ifndef KELP_COM_E2EXF_PROFILE_CHECK_STATUS_H
#define KELP_COM_E2EXF_PROFILE_CHECK_STATUS_H

#include <cstdint>

namespace kelp::com::e2exf {

enum class ProfileCheckStatus : std::uint8_t {
    kOk = 0,
    kRepeated = 1,
    kWrongSequence = 2,
    kError = 3,
    kNotAvailable = 4,
    kNoNewData = 5,
    kCheckDisabled = 6,
};

/// State of the end-to-end state machine of a receiver.
enum class SMState : std::uint8_t {
    kValid = 0,
    kNoData = 1,
    kInit = 2,
    kInvalid = 3,
    kStateMDisabled = 4,
};

}  // namespace kelp::com::e2exf

#endif
