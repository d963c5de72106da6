// SPDX-License-Identifier: Apache-2.0
// Loading of the extension library and its two report hooks.
#include "execution_client_inner.h"

#include <dlfcn.h>

#include "tarn/em/log_em.h"

namespace ara::exec::inner {

std::shared_ptr<ExecutionClientInner> ExecutionClientInner::GetExecutionClientInnerInstance() {
    static const std::shared_ptr<ExecutionClientInner> instance = std::make_shared<ExecutionClientInner>();
    return instance;
}

ExecutionClientInner::~ExecutionClientInner() {
    if (handle_ != nullptr) {
        (void)dlclose(handle_);
        handle_ = nullptr;
    }
    afterReportHook_ = nullptr;
}

void ExecutionClientInner::DlopenExtensionSo() {
    (void)dlerror();  // an error left over from an earlier loader call must not read as ours
    handle_ = dlopen(libraryName_.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (const char* error = dlerror()) {
        tarn::em::GetEmLog()->warn() << "[ExecutionClientInner][EM dlopen failed][dlopen_error=" << error << "]";
        return;
    }
    tarn::em::GetEmLog()->debug() << "[ExecutionClientInner][Dlopen libexec_extension success]";
    beforeReportHook_ = ResolveHook(beforeReportSymbol_, "before");
    afterReportHook_ = ResolveHook(afterReportSymbol_, "after");
}

ReportHook ExecutionClientInner::ResolveHook(const std::string& symbol, const char* which) const {
    void* const address = dlsym(handle_, symbol.c_str());
    if (const char* error = dlerror()) {
        tarn::em::GetEmLog()->warn() << "[ExecutionClientInner][Load symbol of exec " << which
                                     << " report hook function failed][error=" << error << "]";
        return nullptr;
    }
    tarn::em::GetEmLog()->debug() << "[ExecutionClientInner][Get exec " << which
                                  << " report hook function symbol success]";
    return reinterpret_cast<ReportHook>(address);
}

}  // namespace ara::exec::inner
