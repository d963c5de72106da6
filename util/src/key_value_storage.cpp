// SPDX-License-Identifier: Apache-2.0
// KeyValueStorage: lookup in a list, the checked getters and the shallow comparison.
#include "tarn/em/util/key_value_storage.h"

#include <climits>

namespace tarn::em::util {

bool KeyValueStorage::GetValue(const std::string& key, KeyValueStorage& out) const {
    // Hold the list alive while walking it, even if `out` is this object's own element.
    const std::shared_ptr<const void> keepAlive = value_;
    const List* list = Stored<List>();
    if (list == nullptr) {
        return false;
    }
    for (const KeyValueStorage& element : *list) {
        if (element.key_ == key) {
            out.key_ = element.key_;
            out.typeHash_ = element.typeHash_;
            out.value_ = element.value_;
            return true;
        }
    }
    return false;
}

bool KeyValueStorage::GetInt32(int& out) const noexcept {
    if (const auto* value = Stored<unsigned int>()) {
        if (*value > static_cast<unsigned int>(INT_MAX)) {
            return false;
        }
        out = static_cast<int>(*value);
        return true;
    }
    if (const auto* value = Stored<int>()) {
        out = *value;
        return true;
    }
    return false;
}

bool KeyValueStorage::GetUint32(unsigned int& out) const noexcept {
    if (const auto* value = Stored<unsigned int>()) {
        out = *value;
        return true;
    }
    if (const auto* value = Stored<int>()) {
        if (*value < 0) {
            return false;
        }
        out = static_cast<unsigned int>(*value);
        return true;
    }
    return false;
}

bool KeyValueStorage::GetUint64(unsigned long& out) const noexcept {
    if (const auto* value = Stored<unsigned int>()) {
        out = *value;
        return true;
    }
    if (const auto* value = Stored<unsigned long>()) {
        out = *value;
        return true;
    }
    if (const auto* value = Stored<int>()) {
        if (*value < 0) {
            return false;
        }
        out = static_cast<unsigned long>(*value);
        return true;
    }
    if (const auto* value = Stored<long>()) {
        if (*value < 0) {
            return false;
        }
        out = static_cast<unsigned long>(*value);
        return true;
    }
    return false;
}

bool KeyValueStorage::GetDouble(double& out) const noexcept {
    if (const auto* value = Stored<double>()) {
        out = *value;
        return true;
    }
    if (const auto* value = Stored<unsigned int>()) {
        out = static_cast<double>(*value);
        return true;
    }
    if (const auto* value = Stored<int>()) {
        out = static_cast<double>(*value);
        return true;
    }
    if (const auto* value = Stored<unsigned long>()) {
        out = static_cast<double>(*value);
        return true;
    }
    if (const auto* value = Stored<long>()) {
        out = static_cast<double>(*value);
        return true;
    }
    return false;
}

bool KeyValueStorage::GetBool(bool& out) const noexcept {
    const auto* value = Stored<bool>();
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

bool KeyValueStorage::GetString(std::string& out) const {
    const auto* value = Stored<std::string>();
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

bool KeyValueStorage::GetList(List& out) const {
    const std::shared_ptr<const void> keepAlive = value_;
    const auto* value = Stored<List>();
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

bool KeyValueStorage::GetStorage(KeyValueStorage& out) const {
    const std::shared_ptr<const void> keepAlive = value_;
    const auto* value = Stored<KeyValueStorage>();
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

bool KeyValueStorage::operator==(const KeyValueStorage& other) const noexcept {
    if (this == &other) {
        return true;
    }
    return key_ == other.key_ && typeHash_ == other.typeHash_ && value_.get() == other.value_.get();
}

}  // namespace tarn::em::util
