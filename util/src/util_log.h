// The logger of the utilities: the library-wide Execution Management context "EM".
#ifndef TARN_EM_UTIL_UTIL_LOG_H
#define TARN_EM_UTIL_UTIL_LOG_H

#include <memory>

#include "ara/quill/common/log/log.h"

namespace tarn::em::util::detail {

/// Looked up on each use, so it is safe during static initialisation and always reaches
/// the sinks installed at the time.
inline std::shared_ptr<ara::quill::common::log::Log> EmLog() { return ara::quill::common::log::Log::GetLog("EM"); }

}  // namespace tarn::em::util::detail

#endif
