// The logger of the utilities: the library-wide Execution Management context "EM".
#ifndef TARN_EM_UTIL_UTIL_LOG_H
#define TARN_EM_UTIL_UTIL_LOG_H

#include <memory>

#include "ara/quill/common/log/log.h"
#include "tarn/em/log_em.h"

namespace tarn::em::util::detail {

/// LogEm::log, or the same context looked up when called before the library-wide loggers
/// are initialised (from another library's static initialisation).
inline std::shared_ptr<ara::quill::common::log::Log> EmLog() {
    if (tarn::em::LogEm::log != nullptr) {
        return tarn::em::LogEm::log;
    }
    return ara::quill::common::log::Log::GetLog("EM");
}

}  // namespace tarn::em::util::detail

#endif
