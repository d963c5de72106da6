// SPDX-License-Identifier: Apache-2.0
// Method parameter serializer: size pass and write pass over the arguments of one request.
#include "kelp/brio/serialize/params_serializer.h"

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/dds/basic_serializer.h"
#include "kelp/serialize/someip/basic_serializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::brio::serialize {

namespace {

using ara::quill::common::log::Log;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using tlv::serialize::TlvSerializeHelper;
namespace someip = kelp::serialize::someip;
namespace dds = kelp::serialize::dds;

constexpr std::uint64_t TAG_SIZE = 2U;

void LogWrongType() {
    Log::GetLog("CM")->error() << "Wrong serialize type, serialize error!";
}

std::uint64_t AddSize(std::uint64_t total, std::uint64_t size) noexcept {
    if (total == SERIALIZE_SIZE_ERROR || size == SERIALIZE_SIZE_ERROR || size >= SERIALIZE_SIZE_ERROR - total) {
        return SERIALIZE_SIZE_ERROR;
    }
    return total + size;
}

}  // namespace

ParamsSerializer::ParamsSerializer(unsigned char* buffer,
                                   SerializeType type,
                                   const SerializationNode& methodNode,
                                   const SerializeConfig& config)
    : writePointer_(buffer), type_(type), config_(config), node_(methodNode), children_(methodNode.children) {}

ParamsSerializer::~ParamsSerializer() = default;

void ParamsSerializer::ResetCursor() noexcept {
    cursor_ = 0U;
    writeOffset_ = 0U;
}

std::uint64_t ParamsSerializer::SizeOfAll(std::initializer_list<Argument> args) {
    runningSize_ = 0U;
    cursor_ = 0U;
    switch (type_) {
        case SerializeType::kSomeip:
            for (const Argument& argument : args) {
                SomeipSize(argument);
            }
            return runningSize_;
        case SerializeType::kDds:
            for (const Argument& argument : args) {
                std::uint64_t size = 1U;
                if (argument.kind == Kind::kInt) {
                    size = sizeof(std::int32_t);
                } else if (argument.kind == Kind::kString) {
                    size = dds::Serializer<ara::core::String>::SizeFor(argument.text->size());
                }
                runningSize_ = AddSize(runningSize_, size);
            }
            return runningSize_;
        default:
            for (std::size_t i = 0U; i < args.size(); ++i) {
                LogWrongType();
            }
            runningSize_ = SERIALIZE_SIZE_ERROR;
            return runningSize_;
    }
}

std::uint64_t ParamsSerializer::MemberSize(const Argument& argument,
                                           const SerializeConfig& config,
                                           const std::shared_ptr<SerializationNode>& node,
                                           std::uint64_t position) {
    switch (argument.kind) {
        case Kind::kInt:
            return sizeof(argument.intValue);
        case Kind::kString: {
            someip::Serializer<ara::core::String> member(*argument.text, config, node, 0U, position);
            member.SetNoPadding(node && node->skipPadding);
            return member.GetSize();
        }
        default:
            return sizeof(argument.byteValue);
    }
}

void ParamsSerializer::SomeipSize(const Argument& argument) {
    if (runningSize_ == SERIALIZE_SIZE_ERROR) {
        return;
    }
    if (!children_ || children_->empty()) {
        runningSize_ = AddSize(runningSize_, MemberSize(argument, config_, nullptr, 0U));
        return;
    }
    if (cursor_ >= children_->size()) {
        Log::GetLog("CM")->error() << "Wrong method serialize config, serialize error!";
        runningSize_ = SERIALIZE_SIZE_ERROR;
        return;
    }
    const std::shared_ptr<SerializationNode>& child = (*children_)[cursor_];
    const SerializeConfig memberConfig = node_.isTlv ? SerializeConfig{} : config_;
    const std::uint64_t size = MemberSize(argument, memberConfig, child, runningSize_);
    if (node_.isTlv) {
        runningSize_ = AddSize(runningSize_, TAG_SIZE);
    }
    runningSize_ = AddSize(runningSize_, size);
    ++cursor_;
}

void ParamsSerializer::Write(unsigned char* buffer, const Argument& argument) {
    if (writePointer_ == nullptr) {
        writePointer_ = buffer;
    }
    base_ = buffer;
    switch (type_) {
        case SerializeType::kDds:
            DdsWrite(argument);
            break;
        case SerializeType::kSomeip:
            SomeipWrite(argument);
            break;
        default:
            LogWrongType();
            break;
    }
}

void ParamsSerializer::DdsWrite(const Argument& argument) {
    if (writePointer_ == nullptr) {
        dds::detail::LogScalarCopyFailure();
        return;
    }
    std::uint64_t size = 0U;
    switch (argument.kind) {
        case Kind::kInt:
            size = sizeof(argument.intValue);
            dds::Serializer<std::int32_t>(argument.intValue, config_, size).Serialize(writePointer_);
            break;
        case Kind::kEnum:
        case Kind::kBool:
            size = sizeof(argument.byteValue);
            dds::Serializer<std::uint8_t>(argument.byteValue, config_, size).Serialize(writePointer_);
            break;
        case Kind::kString: {
            const dds::Serializer<ara::core::String> member(*argument.text, config_);
            size = member.GetSize();
            if (size == SERIALIZE_SIZE_ERROR) {
                Log::GetLog("CM")->error() << "[DDS Serializer String] Memory copy return error, Invalid "
                                              "serialization.";
                return;
            }
            dds::Serializer<ara::core::String>(*argument.text, config_, size).Serialize(writePointer_);
            break;
        }
    }
    writePointer_ += size;
}

void ParamsSerializer::SomeipWrite(const Argument& argument) {
    if (base_ == nullptr) {
        base_ = writePointer_;
    }
    const bool noChildren = !children_ || children_->empty();
    if (!noChildren && cursor_ >= children_->size()) {
        return;
    }
    const std::shared_ptr<SerializationNode> child = noChildren ? nullptr : (*children_)[cursor_];
    const SerializeConfig memberConfig = (!noChildren && node_.isTlv) ? SerializeConfig{} : config_;
    // Alignment is measured as the size pass saw it: from the start of the payload, before
    // this argument's tag.
    const std::uint64_t alignPosition = noChildren ? 0U : writeOffset_;
    unsigned char* const target = noChildren ? writePointer_ : base_;
    if (target == nullptr) {
        someip::detail::LogScalarCopyFailure();
        return;
    }

    std::uint64_t size = 0U;
    std::uint16_t tag = 0U;
    std::uint16_t dataId = 0U;
    someip::Serializer<ara::core::String>* pending = nullptr;
    static const ara::core::String NO_TEXT;
    someip::Serializer<ara::core::String> text(
        argument.kind == Kind::kString ? *argument.text : NO_TEXT, memberConfig, child, 0U, alignPosition);
    if (child) {
        dataId = child->dataId;
    }
    switch (argument.kind) {
        case Kind::kInt:
            size = sizeof(argument.intValue);
            tag = TlvSerializeHelper::FixedSizeTag(dataId, size);
            break;
        case Kind::kEnum:
        case Kind::kBool:
            size = sizeof(argument.byteValue);
            tag = TlvSerializeHelper::FixedSizeTag(dataId, size);
            break;
        case Kind::kString:
            text.SetNoPadding(child && child->skipPadding);
            size = text.GetSize();
            if (size == SERIALIZE_SIZE_ERROR) {
                return;
            }
            tag = TlvSerializeHelper::LengthDelimitedTag(
                dataId, child && child->dynamicLengthField, text.ChosenLengthFieldSize());
            pending = &text;
            break;
    }

    std::uint64_t tagSize = 0U;
    if (!noChildren && node_.isTlv) {
        const std::uint16_t wire = kelp::serialize::detail::ToOrder(tag, child ? child->byteOrder : config_.byteOrder);
        if (memcpy_s(base_ + writeOffset_, TAG_SIZE, &wire, sizeof(wire)) != 0) {
            Log::GetLog("CM")->error() << "[Serialization]Copy TLV tag failed[dataId=" << dataId << "]";
        }
        tagSize = TAG_SIZE;
    }
    unsigned char* const memberBase = noChildren ? writePointer_ : base_ + tagSize;
    switch (argument.kind) {
        case Kind::kInt:
            someip::Serializer<std::int32_t>(argument.intValue, memberConfig, child, size, alignPosition)
                .Serialize(memberBase);
            break;
        case Kind::kEnum:
        case Kind::kBool:
            someip::Serializer<std::uint8_t>(argument.byteValue, memberConfig, child, size, alignPosition)
                .Serialize(memberBase);
            break;
        case Kind::kString:
            pending->Serialize(memberBase);
            break;
    }
    if (noChildren) {
        writePointer_ += size;
    } else {
        writeOffset_ += tagSize + size;
        ++cursor_;
    }
}

}  // namespace kelp::brio::serialize
