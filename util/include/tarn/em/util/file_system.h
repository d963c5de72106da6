// SPDX-License-Identifier: Apache-2.0
// tarn::em::util::FileSystem: joining, resolving, testing and listing local paths, and the
// character check for paths handed to other programs.
#ifndef TARN_EM_UTIL_FILE_SYSTEM_H
#define TARN_EM_UTIL_FILE_SYSTEM_H

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"

namespace tarn::em::util {

/// Static path operations. Nothing throws on file-system errors and nothing is logged.
class ARA_EXPORT FileSystem final {
public:
    static const std::string FOLDER_SPLITER;     ///< "/"
    static const std::string INVALID_PATH_NAME;  ///< "FAKE_PATH", the path of a failed resolution

    FileSystem() = delete;

    /// `dir` + "/" + `name`, after removing one trailing "/" from `dir`; `name` "." gives
    /// `dir` alone. An empty `dir` counts as having no trailing separator, so ("", "b")
    /// gives "/b" and ("", ".") gives "".
    static std::string BuildPath(const std::string& dir, const std::string& name);
    /// (resolved absolute path, true), or (INVALID_PATH_NAME, false) when it cannot be resolved.
    static std::pair<std::string, bool> GetCanonicalPath(const std::string& path);
    /// Readable. The path is resolved first; an unresolvable path tests "FAKE_PATH" in the
    /// current directory instead (kept on purpose), as do IsFolder and IsExecutable.
    static bool IsAccessable(const std::string& path);
    /// An existing directory.
    static bool IsFolder(const std::string& path);
    /// Readable and executable.
    static bool IsExecutable(const std::string& path);
    /// The text after the last "/", or the whole text when there is none.
    static std::string GetName(const std::string& path);
    /// Size in bytes as stat reports it (following links); 0 when stat fails.
    static std::uint64_t GetSize(const std::string& path);
    /// BuildPath(dir, name) of every entry of `dir` whose directory-entry type equals
    /// `type` (DT_REG, DT_DIR, ...), except "." and "..". Symbolic links and entries whose
    /// type the file system does not report are not followed. Empty when `dir` cannot be read.
    static std::set<std::string> Find(const std::string& dir, unsigned int type);
    /// Find(dir, DT_REG).
    static std::set<std::string> GetFiles(const std::string& dir);
    /// Find(dir, DT_DIR).
    static std::set<std::string> GetDirectories(const std::string& dir);
    /// False when `path` holds one of | ; & $ < > ` \ ' ~ " { } ( ) [ ] * ? ! or a line feed.
    static bool CheckPathForSecurity(const std::string& path);
    /// Resolves a path that passes CheckPathForSecurity. `realPath` is written only when
    /// true is returned.
    static bool CheckAndGetRealpath(const std::string& path, std::string& realPath);
};

}  // namespace tarn::em::util

#endif
