// SPDX-License-Identifier: Apache-2.0
// ara::core::String: owned character string.
#ifndef ARA_CORE_STRING_H
#define ARA_CORE_STRING_H

#include <string>

#include "ara/core/string_view.h"

namespace ara::core {
using String = std::string;
}  // namespace ara::core

#endif
