// Prints the Exec error domain's messages and builds a Function Group state with the
// installed library; exits non-zero if anything is not as documented.
#include <cstdio>
#include <string>

#include "ara/core/result.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"

int main() {
    const ara::core::ErrorDomain& domain = ara::exec::GetExecErrorDomain();
    std::printf("domain %s id 0x%llx\n", domain.Name(), static_cast<unsigned long long>(domain.Id()));
    int failures = 0;
    for (int code = 1; code <= 7; ++code) {
        const char* text = domain.Message(code);
        std::printf("  %d: %s\n", code, text);
        if (text[0] == '\0') {
            ++failures;
        }
    }

    static const std::string kGroup = "MachineFG";
    static const std::string kState = "Running";
    auto groupToken = ara::exec::FunctionGroup::Preconstruct(kGroup);
    if (!groupToken.HasValue()) {
        return 1;
    }
    const ara::exec::FunctionGroup group(std::move(groupToken).Value());
    auto stateToken = ara::exec::FunctionGroupState::Preconstruct(group, kState);
    if (!stateToken.HasValue()) {
        return 1;
    }
    const ara::exec::FunctionGroupState state(std::move(stateToken).Value());
    std::printf("function group state %.*s/%.*s\n",
                static_cast<int>(state.FunctionGroupMetaModel().size()),
                state.FunctionGroupMetaModel().data(),
                static_cast<int>(state.State().size()),
                state.State().data());

    try {
        ara::core::ErrorCode(ara::exec::ExecErrc::kBusy).ThrowAsException();
    } catch (const ara::exec::ExecException& e) {
        std::printf("caught ExecException: %s\n", e.what());
    }
    if (failures != 0) {
        std::printf("%d messages missing\n", failures);
        return 1;
    }
    std::printf("consumer ok\n");
    return 0;
}
