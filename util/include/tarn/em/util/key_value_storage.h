// SPDX-License-Identifier: Apache-2.0
// tarn::em::util::KeyValueStorage: a named, dynamically typed configuration value (scalar,
// text, null, nested storage or list of named values) with checked getters.
#ifndef TARN_EM_UTIL_KEY_VALUE_STORAGE_H
#define TARN_EM_UTIL_KEY_VALUE_STORAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "ara/core/internal/export.h"

namespace tarn::em::util {

/// A named value. The stored value is immutable and shared between copies, never deep
/// copied; SetValue replaces it by a new one. Storable types: bool, std::nullptr_t,
/// std::string, unsigned int, int, unsigned long, long, double, std::vector<KeyValueStorage>
/// (the members or elements of a JSON object or array, in order) and KeyValueStorage.
/// @thread-safety copies may be read from several threads; a single object must not be
/// read while SetValue or SetKey runs on it.
class ARA_EXPORT KeyValueStorage {
public:
    using List = std::vector<KeyValueStorage>;

    KeyValueStorage() = default;
    virtual ~KeyValueStorage() = default;
    KeyValueStorage(const KeyValueStorage&) = default;
    KeyValueStorage& operator=(const KeyValueStorage&) = default;
    KeyValueStorage(KeyValueStorage&&) noexcept = default;
    KeyValueStorage& operator=(KeyValueStorage&&) noexcept = default;

    /// When this value holds a list: the first element whose key equals `key`, copied into
    /// `out` (sharing its value). False, with `out` untouched, when there is none or this
    /// is not a list.
    virtual bool GetValue(const std::string& key, KeyValueStorage& out) const;

    const std::string& GetKey() const noexcept { return key_; }
    void SetKey(const std::string& key) { key_ = key; }

    /// Replaces the value by a new shared copy of `value`.
    template <class T>
    void SetValue(const T& value);

    /// typeid(T).hash_code() of the stored type; 0 when nothing is stored.
    std::size_t GetTypeHash() const noexcept { return typeHash_; }
    /// True when a value of type T is stored.
    template <class T>
    bool Holds() const noexcept {
        return value_ != nullptr && typeHash_ == typeid(T).hash_code();
    }

    /// Numeric getters write `out` only when they return true. They never convert text
    /// and never clamp:
    /// - GetInt32: unsigned int up to 2147483647, int.
    /// - GetUint32: unsigned int, non-negative int.
    /// - GetUint64: unsigned int, unsigned long, non-negative int and long.
    /// - GetDouble: every integer type (converted) and double.
    bool GetInt32(int& out) const noexcept;
    bool GetUint32(unsigned int& out) const noexcept;
    bool GetUint64(unsigned long& out) const noexcept;
    bool GetDouble(double& out) const noexcept;

    /// Getters of the other stored types; false when another type is stored.
    bool GetBool(bool& out) const noexcept;
    bool GetString(std::string& out) const;
    /// A copy of the stored list (its elements share their values with the stored ones).
    bool GetList(List& out) const;
    /// The nested storage made from a JSON object value.
    bool GetStorage(KeyValueStorage& out) const;
    /// True when a JSON null is stored.
    bool IsNull() const noexcept { return Holds<std::nullptr_t>(); }

    /// Same object, or equal keys, equal type identities and the very same stored value
    /// object. Separately made but equal values compare unequal.
    bool operator==(const KeyValueStorage& other) const noexcept;
    bool operator!=(const KeyValueStorage& other) const noexcept { return !(*this == other); }

private:
    template <class T>
    const T* Stored() const noexcept {
        return Holds<T>() ? static_cast<const T*>(value_.get()) : nullptr;
    }

    std::string key_;
    std::size_t typeHash_{0U};
    std::shared_ptr<const void> value_;
};

template <class T>
void KeyValueStorage::SetValue(const T& value) {
    static_assert(std::is_same_v<T, bool> || std::is_same_v<T, std::nullptr_t> || std::is_same_v<T, std::string> ||
                      std::is_same_v<T, unsigned int> || std::is_same_v<T, int> || std::is_same_v<T, unsigned long> ||
                      std::is_same_v<T, long> || std::is_same_v<T, double> || std::is_same_v<T, List> ||
                      std::is_same_v<T, KeyValueStorage>,
                  "KeyValueStorage stores bool, nullptr_t, std::string, unsigned int, int, unsigned long, long, "
                  "double, std::vector<KeyValueStorage> or KeyValueStorage");
    // Make the new value before touching this object: `value` may live inside the old one.
    std::shared_ptr<const void> stored = std::make_shared<const T>(value);
    typeHash_ = typeid(T).hash_code();
    value_ = std::move(stored);
}

}  // namespace tarn::em::util

#endif
