// SPDX-License-Identifier: Apache-2.0
// The library-wide loggers; the log library creates a context on first use, so taking
// them during static initialisation is safe.
#include "tarn/em/log_em.h"

namespace tarn::em {

std::shared_ptr<ara::quill::common::log::Log> LogEm::log = ara::quill::common::log::Log::GetLog("EM");
std::shared_ptr<ara::quill::common::log::Log> LogEm::logChecker = ara::quill::common::log::Log::GetLog("CHECKER");

}  // namespace tarn::em
