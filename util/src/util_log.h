// SPDX-License-Identifier: Apache-2.0
// The logger of the utilities: the library-wide Execution Management context "EM".
#ifndef TARN_EM_UTIL_UTIL_LOG_H
#define TARN_EM_UTIL_UTIL_LOG_H

#include <memory>

#include "ara/quill/common/log/log.h"
#include "tarn/em/log_em.h"

namespace tarn::em::util::detail {

inline std::shared_ptr<ara::quill::common::log::Log> EmLog() {
    return tarn::em::GetEmLog();
}

}  // namespace tarn::em::util::detail

#endif
