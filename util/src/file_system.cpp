// SPDX-License-Identifier: Apache-2.0
// FileSystem: path joining, resolution, access tests, directory listing and the character
// check for paths passed to other programs.
#include "tarn/em/util/file_system.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace tarn::em::util {

namespace {

struct DirCloser {
    void operator()(DIR* stream) const noexcept { static_cast<void>(::closedir(stream)); }
};

}  // namespace

const std::string FileSystem::FOLDER_SPLITER{"/"};
const std::string FileSystem::INVALID_PATH_NAME{"FAKE_PATH"};

std::string FileSystem::BuildPath(const std::string& dir, const std::string& name) {
    std::string path = dir;
    if (!path.empty() && path.back() == FOLDER_SPLITER.back()) {
        path.pop_back();
    }
    if (name == ".") {
        return path;
    }
    return path + FOLDER_SPLITER + name;
}

std::pair<std::string, bool> FileSystem::GetCanonicalPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    if (resolved == nullptr) {
        return {INVALID_PATH_NAME, false};
    }
    return {std::string(resolved.get()), true};
}

bool FileSystem::IsAccessable(const std::string& path) {
    return ::access(GetCanonicalPath(path).first.c_str(), R_OK) == 0;
}

bool FileSystem::IsFolder(const std::string& path) {
    const std::string resolved = GetCanonicalPath(path).first;
    if (::access(resolved.c_str(), F_OK) != 0) {
        return false;
    }
    struct stat info {};
    return ::stat(resolved.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool FileSystem::IsExecutable(const std::string& path) {
    return ::access(GetCanonicalPath(path).first.c_str(), R_OK | X_OK) == 0;
}

std::string FileSystem::GetName(const std::string& path) {
    const std::size_t last = path.rfind(FOLDER_SPLITER);
    return last == std::string::npos ? path : path.substr(last + FOLDER_SPLITER.size());
}

std::uint64_t FileSystem::GetSize(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || info.st_size < 0) {
        return 0U;
    }
    return static_cast<std::uint64_t>(info.st_size);
}

std::set<std::string> FileSystem::Find(const std::string& dir, unsigned int type) {
    std::set<std::string> found;
    const std::unique_ptr<DIR, DirCloser> stream(::opendir(dir.c_str()));
    if (stream == nullptr) {
        return found;
    }
    // readdir on a stream of our own is safe; only sharing one stream between threads is not.
    while (const dirent* entry = ::readdir(stream.get())) {  // NOLINT(concurrency-mt-unsafe)
        const std::string name(entry->d_name);
        if (entry->d_type == type && name != "." && name != "..") {
            found.insert(BuildPath(dir, name));
        }
    }
    return found;
}

std::set<std::string> FileSystem::GetFiles(const std::string& dir) {
    return Find(dir, DT_REG);
}

std::set<std::string> FileSystem::GetDirectories(const std::string& dir) {
    return Find(dir, DT_DIR);
}

bool FileSystem::CheckPathForSecurity(const std::string& path) {
    const std::set<char> forbidden{'|', ';', '&', '$', '<', '>', '`', '\\', '\'', '~', '"',
                                   '{', '}', '(', ')', '[', ']', '*', '?',  '!',  '\n'};
    return std::none_of(path.begin(), path.end(), [&forbidden](char c) { return forbidden.count(c) != 0U; });
}

bool FileSystem::CheckAndGetRealpath(const std::string& path, std::string& realPath) {
    if (!CheckPathForSecurity(path)) {
        return false;
    }
    std::pair<std::string, bool> resolved = GetCanonicalPath(path);
    if (resolved.second) {
        realPath = std::move(resolved.first);
    }
    return resolved.second;
}

}  // namespace tarn::em::util
