// SPDX-License-Identifier: Apache-2.0
// ara::core::StringView: non-owning view of characters.
#ifndef ARA_CORE_STRING_VIEW_H
#define ARA_CORE_STRING_VIEW_H

#include <string_view>

namespace ara::core {
using StringView = std::string_view;
}  // namespace ara::core

#endif
