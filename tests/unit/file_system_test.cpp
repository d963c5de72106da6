// FileSystem on real files: joining, resolution, access tests, listing, the character check.
#include "tarn/em/util/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "ara_test/temp_dir.h"

namespace {

using tarn::em::util::FileSystem;
using Set = std::set<std::string>;

TEST(FileSystemTest, BuildPathAndGetName) {
    const std::tuple<const char*, const char*, const char*> joins[] = {
        {"/a/", "b", "/a/b"},
        {"/a", "b", "/a/b"},
        {"/a/", ".", "/a"},
        {"/a//", "b", "/a//b"},
        {"/", ".", ""},
        {"", "b", "/b"},
        {"", ".", ""},
        {"/a", "", "/a/"},
    };
    for (const auto& [dir, name, expected] : joins) {
        EXPECT_EQ(FileSystem::BuildPath(dir, name), expected) << dir << " + " << name;
    }
    const std::pair<const char*, const char*> names[] = {{"/a/b", "b"}, {"b", "b"}, {"/a/", ""}, {"", ""}};
    for (const auto& [path, name] : names) {
        EXPECT_EQ(FileSystem::GetName(path), name) << path;
    }
}

TEST(FileSystemTest, SecurityCheckRejectsExactlyTheForbiddenCharacters) {
    const std::string forbidden = "|;&$<>`\\'~\"{}()[]*?!\n";
    ASSERT_EQ(forbidden.size(), 21U);
    for (int c = CHAR_MIN; c <= CHAR_MAX; ++c) {
        const char character = static_cast<char>(c);
        const bool isForbidden = forbidden.find(character) != std::string::npos;
        EXPECT_EQ(FileSystem::CheckPathForSecurity(std::string("/opt/a") + character + "b"), !isForbidden) << c;
    }
    EXPECT_TRUE(FileSystem::CheckPathForSecurity("/opt/app-1/bin"));
    EXPECT_TRUE(FileSystem::CheckPathForSecurity(""));
}

class FileSystemFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_.Write("file", "hello");
        ASSERT_EQ(::chmod(dir_.Write("exe", "#!/bin/sh\n").c_str(), 0755), 0);
        ASSERT_EQ(::mkdir((dir_ / "sub").c_str(), 0755), 0);
        ASSERT_EQ(::symlink((dir_ / "file").c_str(), (dir_ / "link_to_file").c_str()), 0);
        ASSERT_EQ(::symlink((dir_ / "sub").c_str(), (dir_ / "link_to_sub").c_str()), 0);
        ASSERT_EQ(::symlink((dir_ / "nowhere").c_str(), (dir_ / "dangling").c_str()), 0);
        real_ = FileSystem::GetCanonicalPath(dir_.Path()).first;
    }

    ara_test::TempDir dir_;
    std::string real_;
};

TEST_F(FileSystemFilesTest, ResolutionFollowsLinksAndRefusesForbiddenPaths) {
    const std::pair<std::string, std::pair<std::string, bool>> cases[] = {
        {dir_ / "link_to_file", {real_ + "/file", true}},
        {dir_ / "sub/../file", {real_ + "/file", true}},
        {dir_ / "link_to_sub/", {real_ + "/sub", true}},
        {dir_ / "missing", {"FAKE_PATH", false}},
        {dir_ / "dangling", {"FAKE_PATH", false}},
        {dir_ / "file/inside", {"FAKE_PATH", false}},
    };
    for (const auto& [path, expected] : cases) {
        EXPECT_EQ(FileSystem::GetCanonicalPath(path), expected) << path;
        std::string realPath = "untouched";
        EXPECT_EQ(FileSystem::CheckAndGetRealpath(path, realPath), expected.second) << path;
        EXPECT_EQ(realPath, expected.second ? expected.first : "untouched") << path;
    }
    dir_.Write("a*b", "x");  // exists, but its name is refused before resolution
    std::string realPath = "untouched";
    EXPECT_FALSE(FileSystem::CheckAndGetRealpath(dir_ / "a*b", realPath));
    EXPECT_EQ(realPath, "untouched");
}

TEST_F(FileSystemFilesTest, AccessTestsFollowLinks) {
    // path, accessible, folder, executable
    const std::tuple<std::string, bool, bool, bool> cases[] = {
        {dir_ / "file", true, false, false},
        {dir_ / "exe", true, false, true},
        {dir_ / "sub", true, true, true},
        {dir_ / "link_to_file", true, false, false},
        {dir_ / "link_to_sub", true, true, true},
        {dir_ / "dangling", false, false, false},
        {dir_ / "missing", false, false, false},
        {dir_ / "file/inside", false, false, false},
    };
    for (const auto& [path, accessible, folder, executable] : cases) {
        EXPECT_EQ(FileSystem::IsAccessable(path), accessible) << path;
        EXPECT_EQ(FileSystem::IsFolder(path), folder) << path;
        EXPECT_EQ(FileSystem::IsExecutable(path), executable) << path;
    }
}

// An unresolvable path is tested as "FAKE_PATH" in the current directory.
TEST_F(FileSystemFilesTest, MissingPathTestsTheFakePathEntryOfTheCurrentDirectory) {
    char cwd[PATH_MAX] = {};
    ASSERT_NE(::getcwd(cwd, sizeof(cwd)), nullptr);
    ASSERT_EQ(::chdir(dir_.Path().c_str()), 0);
    const std::string missing = dir_ / "missing";
    const bool before = FileSystem::IsAccessable(missing);
    ASSERT_EQ(::mkdir("FAKE_PATH", 0755), 0);
    const bool folder[] = {
        FileSystem::IsAccessable(missing), FileSystem::IsFolder(missing), FileSystem::IsExecutable(missing)};
    ASSERT_EQ(::rmdir("FAKE_PATH"), 0);
    dir_.Write("FAKE_PATH", "x");
    const bool file[] = {
        FileSystem::IsAccessable(missing), FileSystem::IsFolder(missing), FileSystem::IsExecutable(missing)};
    ASSERT_EQ(::chdir(cwd), 0);
    EXPECT_FALSE(before);
    EXPECT_TRUE(folder[0] && folder[1] && folder[2]);
    EXPECT_TRUE(file[0]);
    EXPECT_FALSE(file[1] || file[2]);
}

TEST_F(FileSystemFilesTest, FindListsOneEntryTypeWithFullPaths) {
    dir_.Write("b", "");
    dir_.Write("a", "");
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    const std::string d = dir_.Path();
    EXPECT_EQ(FileSystem::GetFiles(d), (Set{d + "/a", d + "/b", d + "/exe", d + "/file"}));
    EXPECT_EQ(FileSystem::GetDirectories(d + "/"), (Set{d + "/sub"}));  // one separator dropped
    EXPECT_EQ(FileSystem::Find(d, DT_LNK), (Set{d + "/dangling", d + "/link_to_file", d + "/link_to_sub"}));
    EXPECT_EQ(FileSystem::Find(d, DT_FIFO), (Set{d + "/fifo"}));
    for (const std::string& unreadable : {dir_ / "missing", dir_ / "file", dir_ / "file/inside", std::string()}) {
        EXPECT_EQ(FileSystem::GetFiles(unreadable), Set{}) << unreadable;
    }
    if (::geteuid() != 0) {  // permissions do not restrict root
        dir_.Write("sub/x", "");
        ASSERT_EQ(::chmod((dir_ / "sub").c_str(), 0), 0);
        EXPECT_EQ(FileSystem::GetFiles(dir_ / "sub"), Set{});
    }
}

TEST_F(FileSystemFilesTest, GetSizeIsSixtyFourBit) {
    const int fd = ::open((dir_ / "big").c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    const int truncated = ::ftruncate(fd, off_t{5} * 1024 * 1024 * 1024);  // sparse: takes no space
    ::close(fd);
    ASSERT_EQ(truncated, 0);
    EXPECT_EQ(FileSystem::GetSize(dir_ / "big"), 5368709120ULL);
    EXPECT_EQ(FileSystem::GetSize(dir_ / "link_to_file"), 5U);
    EXPECT_EQ(FileSystem::GetSize(dir_ / "dangling"), 0U);
}

}  // namespace
