// SPDX-License-Identifier: Apache-2.0
// FunctionGroup and FunctionGroupState: construction tokens and comparison.
#include "ara/exec/function_group.h"

#include "ara/exec/function_group_state.h"

namespace ara::exec {

ara::core::Result<FunctionGroup::CtorToken> FunctionGroup::Preconstruct(ara::core::StringView metaModel) noexcept {
    return ara::core::Result<CtorToken>(CtorToken(metaModel));
}

FunctionGroup::FunctionGroup(CtorToken&& token) noexcept : metaModel_(token.MetaModel()) {}
FunctionGroup::~FunctionGroup() noexcept = default;

bool FunctionGroup::operator==(const FunctionGroup& other) const noexcept {
    return metaModel_ == other.metaModel_;
}
bool FunctionGroup::operator!=(const FunctionGroup& other) const noexcept {
    return !(*this == other);
}

ara::core::Result<FunctionGroupState::CtorToken> FunctionGroupState::Preconstruct(
    const FunctionGroup& functionGroup, ara::core::StringView metaModel) noexcept {
    return ara::core::Result<CtorToken>(CtorToken(functionGroup.MetaModel(), metaModel));
}

FunctionGroupState::FunctionGroupState(CtorToken&& token) noexcept
    : functionGroup_(token.FunctionGroupMetaModel()), state_(token.State()) {}
FunctionGroupState::~FunctionGroupState() noexcept = default;

bool FunctionGroupState::operator==(const FunctionGroupState& other) const noexcept {
    return functionGroup_ == other.functionGroup_ && state_ == other.state_;
}
bool FunctionGroupState::operator!=(const FunctionGroupState& other) const noexcept {
    return !(*this == other);
}

}  // namespace ara::exec
