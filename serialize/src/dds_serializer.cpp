// DDS encoders: strings, the process and process-list forms and the error payload.
#include <cstring>

#include "ara/quill/common/log/log.h"
#include "kelp/serialize/dds/serializer.h"

namespace kelp::serialize::dds {

namespace {

using ara::quill::common::log::Log;

constexpr std::uint64_t COUNT_SIZE = 4U;

std::uint64_t Remaining(std::uint64_t room, std::uint64_t used) noexcept {
    return room > used ? room - used : 0U;
}

void LogStringCopyFailure() {
    Log::GetLog("CM")->error() << "[DDS Serializer String] Memory copy return error, Invalid serialization.";
}

}  // namespace

namespace detail {
void LogScalarCopyFailure() {
    Log::GetLog("CM")->error() << "[DDS Serializer] Memory copy return error, invalid data.";
}
}  // namespace detail

std::uint64_t Serializer<ara::core::String>::SizeFor(std::uint64_t characters) noexcept {
    // The count is 32 bits wide, and the total must stay below the size error mark.
    if (characters >= SERIALIZE_SIZE_ERROR - COUNT_SIZE) {
        return SERIALIZE_SIZE_ERROR;
    }
    return COUNT_SIZE + characters;
}

void Serializer<ara::core::String>::Serialize(unsigned char* buffer) const {
    const auto count = static_cast<std::uint32_t>(value_->size());
    if (buffer == nullptr) {
        LogStringCopyFailure();
        return;
    }
    if (memcpy_s(buffer + position_, room_, &count, sizeof(count)) != 0) {
        LogStringCopyFailure();
    }
    if (!value_->empty() &&
        memcpy_s(buffer + position_ + COUNT_SIZE, Remaining(room_, COUNT_SIZE), value_->data(), value_->size()) != 0) {
        LogStringCopyFailure();
    }
}

std::uint64_t Serializer<ara::exec::Process>::GetSize() const noexcept {
    std::uint64_t size = 1U;  // the flag
    for (const ara::core::String* text :
         {&value_->processName, &value_->functionGroupName, &value_->processState, &value_->processId}) {
        const std::uint64_t member = Serializer<ara::core::String>::SizeFor(text->size());
        if (member == SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        size += member;
    }
    return size < SERIALIZE_SIZE_ERROR ? size : SERIALIZE_SIZE_ERROR;
}

void Serializer<ara::exec::Process>::Serialize(unsigned char* buffer) const {
    std::uint64_t offset = 0U;
    for (const ara::core::String* text :
         {&value_->processName, &value_->functionGroupName, &value_->processState, &value_->processId}) {
        const Serializer<ara::core::String> member(*text, config_, Remaining(room_, offset), position_ + offset);
        member.Serialize(buffer);
        offset += member.GetSize();
    }
    const Serializer<bool> flag(value_->isRunning, config_, Remaining(room_, offset), position_ + offset);
    flag.Serialize(buffer);
}

std::uint64_t Serializer<std::vector<ara::exec::Process>>::GetSize() const noexcept {
    if (value_->size() > 0xFFFFFFFFULL) {
        return SERIALIZE_SIZE_ERROR;
    }
    std::uint64_t size = COUNT_SIZE;
    for (const ara::exec::Process& process : *value_) {
        const std::uint64_t element = Serializer<ara::exec::Process>(process, config_).GetSize();
        if (element == SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        size += element;
        if (size >= SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
    }
    return size;
}

void Serializer<std::vector<ara::exec::Process>>::Serialize(unsigned char* buffer) const {
    const auto count = static_cast<std::uint32_t>(value_->size());
    if (buffer == nullptr || memcpy_s(buffer + position_, room_, &count, sizeof(count)) != 0) {
        detail::LogScalarCopyFailure();
        return;
    }
    std::uint64_t offset = COUNT_SIZE;
    for (const ara::exec::Process& process : *value_) {
        const Serializer<ara::exec::Process> element(process, config_, Remaining(room_, offset), position_ + offset);
        element.Serialize(buffer);
        offset += element.GetSize();
    }
}

std::uint64_t Serializer<ara::core::ErrorCode>::GetSize() const noexcept {
    return ERROR_CODE_PAYLOAD_SIZE;
}

void Serializer<ara::core::ErrorCode>::Serialize(unsigned char* buffer) const {
    unsigned char bytes[ERROR_CODE_PAYLOAD_SIZE] = {};
    bytes[4] = ERROR_CODE_KIND;
    std::memcpy(bytes + 5, &domainId_, sizeof(domainId_));
    std::memcpy(bytes + 13, &code_, sizeof(code_));
    if (buffer == nullptr || memcpy_s(buffer + position_, room_, bytes, sizeof(bytes)) != 0) {
        detail::LogScalarCopyFailure();
    }
}

}  // namespace kelp::serialize::dds
