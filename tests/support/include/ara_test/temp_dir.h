// SPDX-License-Identifier: Apache-2.0
// A temporary directory for tests that work on real files, removed with everything in it.
#ifndef ARA_TEST_TEMP_DIR_H
#define ARA_TEST_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace ara_test {

class TempDir {
public:
    TempDir() : path_((std::filesystem::temp_directory_path() / "ara_test_XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    /// Path of `name` inside the directory.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    /// Writes `contents` to `name` (binary, replacing) and returns its path.
    std::string Write(const std::string& name, const std::string& contents) const {
        if (!(std::ofstream(*this / name, std::ios::binary) << contents)) {
            throw std::runtime_error("cannot write " + name);
        }
        return *this / name;
    }

private:
    std::string path_;
};

}  // namespace ara_test

#endif
