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
    KeyValueStorage original;
    KeyValueStorage::List list(64U);
    for (unsigned int i = 0U; i < list.size(); ++i) {
        list[i].SetKey("k" + std::to_string(i));
        list[i].SetValue(i);
    }
    original.SetValue(list);

    constexpr int READERS = 4;
    constexpr int ROUNDS = 2000;
    std::vector<KeyValueStorage> copies(READERS, original);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < READERS; ++r) {
        readers.emplace_back([&copies, &mismatches, r] {
            for (int round = 0; round < ROUNDS; ++round) {
                KeyValueStorage found;
                unsigned int value = 0U;
                const unsigned int index = static_cast<unsigned int>(round) % 64U;
                if (!copies[static_cast<std::size_t>(r)].GetValue("k" + std::to_string(index), found) ||
                    !found.GetUint32(value) || value != index) {
                    mismatches.fetch_add(1);
                }
                KeyValueStorage again = copies[static_cast<std::size_t>(r)];  // shares, then releases
            }
        });
    }
    for (int round = 0; round < ROUNDS; ++round) {
        original.SetValue(KeyValueStorage::List{});
        original.SetValue(list);
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
