// SPDX-License-Identifier: Apache-2.0
// Process abort with a message and an optional user handler.
#include "ara/core/abort.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace ara::core {
namespace {
std::atomic<AbortHandler> g_abortHandler{nullptr};
}  // namespace

AbortHandler SetAbortHandler(AbortHandler handler) noexcept {
    return g_abortHandler.exchange(handler);
}

void Abort(const char* text) noexcept {
    std::fprintf(stderr, "[ara::core::Abort] %s\n", text != nullptr ? text : "");
    std::fflush(stderr);
    if (AbortHandler handler = g_abortHandler.load(); handler != nullptr) {
        handler();
    }
    std::abort();
}

}  // namespace ara::core
