// SPDX-License-Identifier: Apache-2.0
// DDS encoding of `ara::exec::Process` and of a list of processes: the forms a server
// writes, and the size counter, member enumerator and sequence walker of a reply.
#include <algorithm>
#include <cstring>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/dds/deserializer.h"
#include "kelp/serialize/dds/serializer.h"

namespace kelp::serialize::dds {

namespace {

using ara::quill::common::log::Log;
using detail::COUNT_SIZE;
using detail::ReadCount;
using kelp::serialize::detail::Remaining;

/// Smallest process: four empty strings and the flag.
constexpr std::uint64_t MIN_PROCESS_SIZE = 4U * COUNT_SIZE + 1U;

}  // namespace

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

/// Measures the members of a process without decoding them.
class DeserializeSizeCounter {
public:
    /// Size of the string at `data` (count + characters), or SERIALIZE_SIZE_ERROR (logged).
    static std::uint64_t StringSize(const unsigned char* data, std::uint64_t available) {
        if (available >= COUNT_SIZE) {
            const std::uint64_t count = ReadCount(data);
            if (count <= available - COUNT_SIZE) {
                return COUNT_SIZE + count;
            }
        }
        Log::GetLog("CM")->error() << "Deserialization[DDS] size counter failed, insufficient data.";
        return SERIALIZE_SIZE_ERROR;
    }

    /// Bytes of the process at `data`, or SERIALIZE_SIZE_ERROR (logged).
    static std::uint64_t ProcessSize(const unsigned char* data, std::uint64_t available) {
        std::uint64_t offset = 0U;
        for (int i = 0; i < 4; ++i) {
            const std::uint64_t size = StringSize(data + offset, available - offset);
            if (size == SERIALIZE_SIZE_ERROR) {
                return SERIALIZE_SIZE_ERROR;
            }
            offset += size;
        }
        if (offset >= available) {
            Log::GetLog("CM")->error() << "Deserialization of trivially copyable type failed, insufficient data!";
            return SERIALIZE_SIZE_ERROR;
        }
        return offset + 1U;
    }
};

/// Reads the members of a process one after the other, within a range already measured.
class DeserializingEnumerator {
public:
    DeserializingEnumerator(const unsigned char* data, std::uint64_t size) : data_(data), size_(size) {}

    bool Next(ara::core::String& text) {
        if (size_ - offset_ < COUNT_SIZE) {
            return Fail();
        }
        const std::uint64_t count = ReadCount(data_ + offset_);
        if (count > size_ - offset_ - COUNT_SIZE) {
            return Fail();
        }
        text.assign(reinterpret_cast<const char*>(data_ + offset_ + COUNT_SIZE), count);
        offset_ += COUNT_SIZE + count;
        return true;
    }

    bool Next(bool& flag) {
        if (offset_ >= size_) {
            return Fail();
        }
        flag = data_[offset_] != 0U;
        ++offset_;
        return true;
    }

private:
    static bool Fail() {
        Log::GetLog("CM")->error() << "Insufficient arguments from remote end";
        return false;
    }

    const unsigned char* data_;
    std::uint64_t size_;
    std::uint64_t offset_{0U};
};

// ---- ara::exec::Process -----------------------------------------------------------------

std::uint64_t Deserializer<ara::exec::Process>::GetSize() const {
    return DeserializeSizeCounter::ProcessSize(data_, size_);
}

ara::exec::Process Deserializer<ara::exec::Process>::GetValue() const {
    ara::exec::Process process;
    DeserializingEnumerator members(data_, size_);
    static_cast<void>(members.Next(process.processName) && members.Next(process.functionGroupName) &&
                      members.Next(process.processState) && members.Next(process.processId) &&
                      members.Next(process.isRunning));
    return process;
}

// ---- std::vector<ara::exec::Process> (SequenceContainerDeserializer) --------------------

namespace {

/// Walks the sequence; fills `out` when given. Bytes of the sequence or SERIALIZE_SIZE_ERROR.
std::uint64_t WalkSequence(const unsigned char* data, std::uint64_t size, std::vector<ara::exec::Process>* out) {
    if (size < COUNT_SIZE) {
        Log::GetLog("CM")->error() << "GetValue(): Deserialization of sequence container failed, insufficient data.";
        return SERIALIZE_SIZE_ERROR;
    }
    const std::uint64_t count = ReadCount(data);
    if (out != nullptr) {
        out->reserve(static_cast<std::size_t>(std::min(count, (size - COUNT_SIZE) / MIN_PROCESS_SIZE)));
    }
    std::uint64_t offset = COUNT_SIZE;
    for (std::uint64_t i = 0U; i < count; ++i) {
        const std::uint64_t element = DeserializeSizeCounter::ProcessSize(data + offset, size - offset);
        if (element == SERIALIZE_SIZE_ERROR) {
            Log::GetLog("CM")->error() << "GetValue(): Deserialization of sequence container failed, insufficient "
                                          "data.";
            return SERIALIZE_SIZE_ERROR;
        }
        if (out != nullptr) {
            out->push_back(Deserializer<ara::exec::Process>(data + offset, element, SerializeConfig{}).GetValue());
        }
        offset += element;
    }
    return offset;
}

}  // namespace

std::uint64_t Deserializer<std::vector<ara::exec::Process>>::GetSize() const {
    return WalkSequence(data_, size_, nullptr);
}

std::vector<ara::exec::Process> Deserializer<std::vector<ara::exec::Process>>::GetValue() const {
    std::vector<ara::exec::Process> processes;
    WalkSequence(data_, size_, &processes);
    return processes;
}

}  // namespace kelp::serialize::dds
