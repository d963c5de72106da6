// SPDX-License-Identifier: Apache-2.0
// Library-wide loggers of Execution Management, taken when the library is loaded.
#ifndef TARN_EM_LOG_EM_H
#define TARN_EM_LOG_EM_H

#include <memory>

#include "ara/quill/common/log/log.h"

namespace tarn::em {

struct ARA_EXPORT LogEm {
    static std::shared_ptr<ara::quill::common::log::Log> log;         ///< context "EM"
    static std::shared_ptr<ara::quill::common::log::Log> logChecker;  ///< context "CHECKER"
};

/// LogEm::log, or the same context looked up when called before the library-wide loggers
/// are initialised (from another library's static initialisation).
inline std::shared_ptr<ara::quill::common::log::Log> GetEmLog() {
    return LogEm::log != nullptr ? LogEm::log : ara::quill::common::log::Log::GetLog("EM");
}

}  // namespace tarn::em

#endif
