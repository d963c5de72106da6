// SPDX-License-Identifier: Apache-2.0
// ara_crc32: writes or checks the CRC-32 sidecar `<file>.crc32` of a configuration file.
#include <cstdio>
#include <cstring>
#include <string>

#include "ara/quill/common/jsonParser/crc_sidecar.h"

namespace {

namespace json = ara::quill::common::jsonParser;

enum ExitCode : int {
    kExitOk = 0,
    kExitMismatch = 1,
    kExitUsage = 2,
    kExitFileUnreadable = 3,
    kExitSidecarMissing = 4,
    kExitSidecarMalformed = 5,
    kExitWriteFailed = 6,
};

void Complain(const char* what, const std::string& path, const char* suffix = "") {
    static_cast<void>(std::fprintf(stderr, "ara_crc32: %s %s%s\n", what, path.c_str(), suffix));
}

void PrintUsage(std::FILE* stream) {
    static_cast<void>(
        std::fputs("Usage: ara_crc32 write <file>   write <file>.crc32 with the CRC-32 of <file>\n"
                   "       ara_crc32 check <file>   check <file> against <file>.crc32\n"
                   "       ara_crc32 --help | --version\n"
                   "\n"
                   "The sidecar holds the CRC-32 (IEEE 802.3) of the file's exact bytes as 8 lowercase\n"
                   "hex digits and a line feed.\n"
                   "\n"
                   "Exit codes:\n"
                   "  0  written, or the file matches its sidecar\n"
                   "  1  the file does not match its sidecar\n"
                   "  2  usage error\n"
                   "  3  the file cannot be read\n"
                   "  4  the sidecar is missing\n"
                   "  5  the sidecar is malformed or unreadable\n"
                   "  6  the sidecar cannot be written\n",
                   stream));
}

int Write(const std::string& path) {
    switch (json::WriteCrcSidecar(path)) {
        case json::CrcWrite::kWritten:
            return kExitOk;
        case json::CrcWrite::kFileUnreadable:
            Complain("cannot read", path);
            return kExitFileUnreadable;
        case json::CrcWrite::kWriteFailed:
            Complain("cannot write", path, json::CRC_SIDECAR_SUFFIX);
            return kExitWriteFailed;
    }
    return kExitUsage;
}

int Check(const std::string& path) {
    switch (json::CheckCrcSidecar(path)) {
        case json::CrcCheck::kMatch:
            return kExitOk;
        case json::CrcCheck::kMismatch:
            Complain("sidecar does not match", path);
            return kExitMismatch;
        case json::CrcCheck::kFileUnreadable:
            Complain("cannot read", path);
            return kExitFileUnreadable;
        case json::CrcCheck::kSidecarMissing:
            Complain("missing sidecar", path, json::CRC_SIDECAR_SUFFIX);
            return kExitSidecarMissing;
        case json::CrcCheck::kSidecarMalformed:
            Complain("malformed or unreadable sidecar", path, json::CRC_SIDECAR_SUFFIX);
            return kExitSidecarMalformed;
    }
    return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        PrintUsage(stdout);
        return kExitOk;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("ara_crc32 %s\n", ARA_EXEC_VERSION);
        return kExitOk;
    }
    if (argc != 3) {
        PrintUsage(stderr);
        return kExitUsage;
    }
    const std::string command(argv[1]);
    const std::string path(argv[2]);
    if (command == "write") {
        return Write(path);
    }
    if (command == "check") {
        return Check(path);
    }
    PrintUsage(stderr);
    return kExitUsage;
}
