// SPDX-License-Identifier: Apache-2.0
// ara::exec::FunctionGroup: a view of a Function Group's meta-model path.
#ifndef ARA_EXEC_FUNCTION_GROUP_H
#define ARA_EXEC_FUNCTION_GROUP_H

#include "ara/core/result.h"
#include "ara/core/string_view.h"

namespace ara::exec {

/// Names a Function Group by its meta-model path. The path characters are not copied: the
/// text given to Preconstruct must outlive this object and every FunctionGroupState made
/// from it.
class ARA_EXPORT FunctionGroup final {
public:
    class CtorToken {
    public:
        explicit CtorToken(ara::core::StringView metaModel) noexcept : metaModel_(metaModel) {}
        ara::core::StringView MetaModel() const noexcept { return metaModel_; }

    private:
        ara::core::StringView metaModel_;
    };

    /// Always succeeds: the path is neither checked nor looked up.
    static ara::core::Result<CtorToken> Preconstruct(ara::core::StringView metaModel) noexcept;

    explicit FunctionGroup(CtorToken&& token) noexcept;
    ~FunctionGroup() noexcept;
    FunctionGroup(const FunctionGroup&) = delete;
    FunctionGroup& operator=(const FunctionGroup&) = delete;
    FunctionGroup(FunctionGroup&&) noexcept = default;
    FunctionGroup& operator=(FunctionGroup&&) noexcept = default;

    /// The meta-model path this group was made from.
    ara::core::StringView MetaModel() const noexcept { return metaModel_; }

    /// Byte-wise comparison of the paths; no normalisation.
    bool operator==(const FunctionGroup& other) const noexcept;
    bool operator!=(const FunctionGroup& other) const noexcept;

private:
    ara::core::StringView metaModel_;
};

}  // namespace ara::exec

#endif
