// SPDX-License-Identifier: Apache-2.0
// KeyValueStorage copies read on several threads while the original is replaced: the shared
// stored values must be released exactly once and never read after release.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tarn/em/util/key_value_storage.h"

namespace {

using tarn::em::util::KeyValueStorage;

TEST(KeyValueStorageConcurrencyTest, CopiesStayValidWhileTheOriginalIsReplaced) {
    KeyValueStorage::List list(64U);
    for (unsigned int i = 0U; i < list.size(); ++i) {
        list[i].SetKey("k" + std::to_string(i));
        list[i].SetValue(i);
    }
    KeyValueStorage original;
    original.SetValue(list);
    constexpr unsigned int ROUNDS = 2000U;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r) {
        readers.emplace_back([copy = original, &mismatches] {
            for (unsigned int round = 0U; round < ROUNDS; ++round) {
                KeyValueStorage found;
                unsigned int value = 0U;
                if (!copy.GetValue("k" + std::to_string(round % 64U), found) || !found.GetUint32(value) ||
                    value != round % 64U) {
                    mismatches.fetch_add(1);
                }
                const KeyValueStorage again = copy;  // shares, then releases
            }
        });
    }
    for (unsigned int round = 0U; round < ROUNDS; ++round) {
        original.SetValue(KeyValueStorage::List{});
        original.SetValue(list);
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
