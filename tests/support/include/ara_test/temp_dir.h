// A temporary directory for tests that work on real files, removed with everything in it.
#ifndef ARA_TEST_TEMP_DIR_H
#define ARA_TEST_TEMP_DIR_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace ara_test {

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ara_test_XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        // Give back permissions a test took away, so that everything can be removed.
        for (auto it = std::filesystem::recursive_directory_iterator(
                 path_, std::filesystem::directory_options::skip_permission_denied, ignored);
             it != std::filesystem::recursive_directory_iterator();
             it.increment(ignored)) {
            if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
                std::filesystem::permissions(
                    it->path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ignored);
            }
        }
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    /// Path of `name` inside the directory.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    /// Writes `contents` to `name` (binary, replacing) and returns its path.
    std::string Write(const std::string& name, const std::string& contents) const {
        const std::string file = *this / name;
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << contents;
        if (!out) {
            throw std::runtime_error("cannot write " + file);
        }
        return file;
    }

    static std::string Read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::string path_;
};

}  // namespace ara_test

#endif
