// SPDX-License-Identifier: Apache-2.0
// ara::exec::FunctionGroupState: a Function Group together with one of its state names.
#ifndef ARA_EXEC_FUNCTION_GROUP_STATE_H
#define ARA_EXEC_FUNCTION_GROUP_STATE_H

#include "ara/core/result.h"
#include "ara/core/string_view.h"
#include "ara/exec/function_group.h"

namespace ara::exec {

/// Views of the group's path and of the state name; neither is copied (see FunctionGroup).
class ARA_EXPORT FunctionGroupState final {
public:
    class CtorToken {
    public:
        CtorToken(ara::core::StringView functionGroup, ara::core::StringView state) noexcept
            : functionGroup_(functionGroup), state_(state) {}
        ara::core::StringView FunctionGroupMetaModel() const noexcept { return functionGroup_; }
        ara::core::StringView State() const noexcept { return state_; }

    private:
        ara::core::StringView functionGroup_;
        ara::core::StringView state_;
    };

    /// Always succeeds: copies the group's view and the state-name view into the token.
    static ara::core::Result<CtorToken> Preconstruct(const FunctionGroup& functionGroup,
                                                     ara::core::StringView metaModel) noexcept;

    explicit FunctionGroupState(CtorToken&& token) noexcept;
    ~FunctionGroupState() noexcept;
    FunctionGroupState(const FunctionGroupState&) = delete;
    FunctionGroupState& operator=(const FunctionGroupState&) = delete;
    FunctionGroupState(FunctionGroupState&&) noexcept = default;
    FunctionGroupState& operator=(FunctionGroupState&&) noexcept = default;

    ara::core::StringView FunctionGroupMetaModel() const noexcept { return functionGroup_; }
    ara::core::StringView State() const noexcept { return state_; }

    /// Equal when the group paths and then the state names are byte-wise equal.
    bool operator==(const FunctionGroupState& other) const noexcept;
    bool operator!=(const FunctionGroupState& other) const noexcept;

private:
    ara::core::StringView functionGroup_;
    ara::core::StringView state_;
};

}  // namespace ara::exec

#endif
