// SPDX-License-Identifier: Apache-2.0
// FileSystem on real files: joining, resolution, access tests, listing, the character check.
#include "tarn/em/util/file_system.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>

#include "ara_test/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using tarn::em::util::FileSystem;
using Set = std::set<std::string>;

TEST(FileSystemTest, BuildPathAndGetName) {
    const std::tuple<const char*, const char*, const char*> joins[] = {
        {"/a/", "b", "/a/b"},
        {"/a//", "b", "/a//b"},
        {"/a", ".", "/a"},
        {"/", ".", ""},
        {"", "b", "/b"},
    };
    for (const auto& [dir, name, expected] : joins) {
        EXPECT_EQ(FileSystem::BuildPath(dir, name), expected) << dir << " + " << name;
    }
    for (const auto& [path, name] : {std::pair{"/a/b", "b"}, std::pair{"b", "b"}, std::pair{"/a/", ""}}) {
        EXPECT_EQ(FileSystem::GetName(path), name) << path;
    }
}

TEST(FileSystemTest, SecurityCheckRejectsExactlyTheForbiddenCharacters) {
    const std::string forbidden = "|;&$<>`\\'~\"{}()[]*?!\n";
    for (int c = CHAR_MIN; c <= CHAR_MAX; ++c) {
        const bool isForbidden = forbidden.find(static_cast<char>(c)) != std::string::npos;
        EXPECT_EQ(FileSystem::CheckPathForSecurity("/opt/a" + std::string(1, static_cast<char>(c))), !isForbidden) << c;
    }
}

class FileSystemFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_.Write("file", "hello");
        fs::permissions(dir_.Write("exe", "#!/bin/sh\n"), fs::perms::owner_exec, fs::perm_options::add);
        fs::create_directory(dir_ / "sub");
        fs::create_symlink(dir_ / "file", dir_ / "link_to_file");
        fs::create_symlink(dir_ / "sub", dir_ / "link_to_sub");
        fs::create_symlink(dir_ / "nowhere", dir_ / "dangling");
    }

    ara_test::TempDir dir_;
};

TEST_F(FileSystemFilesTest, PathTestsFollowLinks) {
    // name, resolved name (empty: cannot be resolved), accessible, folder, executable
    const std::tuple<std::string, std::string, bool, bool, bool> cases[] = {
        {"file", "/file", true, false, false},
        {"exe", "/exe", true, false, true},
        {"sub", "/sub", true, true, true},
        {"link_to_file", "/file", true, false, false},
        {"link_to_sub/", "/sub", true, true, true},
        {"dangling", "", false, false, false},
        {"a*b", "", true, false, false},  // exists, but CheckAndGetRealpath refuses its name
    };
    dir_.Write("a*b", "");
    const std::string real = FileSystem::GetCanonicalPath(dir_.Path()).first;
    for (const auto& [name, resolved, accessible, folder, executable] : cases) {
        const std::string path = dir_ / name;
        std::string realPath = "untouched";
        EXPECT_EQ(FileSystem::CheckAndGetRealpath(path, realPath), !resolved.empty()) << name;
        EXPECT_EQ(realPath, resolved.empty() ? "untouched" : real + resolved) << name;
        EXPECT_EQ(FileSystem::IsAccessable(path), accessible) << name;
        EXPECT_EQ(FileSystem::IsFolder(path), folder) << name;
        EXPECT_EQ(FileSystem::IsExecutable(path), executable) << name;
    }
    EXPECT_EQ(FileSystem::GetCanonicalPath(dir_ / "dangling"), std::make_pair(std::string("FAKE_PATH"), false));
}

// An unresolvable path is tested as "FAKE_PATH" in the current directory.
TEST_F(FileSystemFilesTest, UnresolvablePathTestsFakePathInTheCurrentDirectory) {
    const fs::path cwd = fs::current_path();
    fs::current_path(dir_.Path());
    fs::create_directory("FAKE_PATH");
    const std::string missing = dir_ / "missing";
    const bool asFolder =
        FileSystem::IsAccessable(missing) && FileSystem::IsFolder(missing) && FileSystem::IsExecutable(missing);
    fs::current_path(cwd);
    EXPECT_TRUE(asFolder);
}

TEST_F(FileSystemFilesTest, FindListsOneEntryTypeWithFullPaths) {
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    const std::string d = dir_.Path();
    EXPECT_EQ(FileSystem::GetFiles(d), (Set{d + "/exe", d + "/file"}));
    EXPECT_EQ(FileSystem::GetDirectories(d + "/"), (Set{d + "/sub"}));  // one separator dropped
    EXPECT_EQ(FileSystem::Find(d, DT_LNK), (Set{d + "/dangling", d + "/link_to_file", d + "/link_to_sub"}));
    EXPECT_EQ(FileSystem::Find(d, DT_FIFO), (Set{d + "/fifo"}));
    EXPECT_EQ(FileSystem::GetFiles(dir_ / "file"), Set{});
}

TEST_F(FileSystemFilesTest, GetSizeIsSixtyFourBit) {
    fs::resize_file(dir_.Write("big", ""), std::uintmax_t{5} << 30U);  // sparse: takes no space
    EXPECT_EQ(FileSystem::GetSize(dir_ / "big"), 5368709120ULL);
    EXPECT_EQ(FileSystem::GetSize(dir_ / "link_to_file"), 5U);
    EXPECT_EQ(FileSystem::GetSize(dir_ / "dangling"), 0U);
}

}  // namespace
