# SPDX-License-Identifier: Apache-2.0
# Unit tests of the platform JSON parser, its CRC sidecars and the ara_crc32 tool.
ara_exec_add_test(NAME json_document_test SOURCES json_document_test.cpp LINK ara_platform_static)
target_include_directories(json_document_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/json/src)
target_compile_definitions(json_document_test PRIVATE ARA_CRC32_TOOL="$<TARGET_FILE:ara_crc32>")
add_dependencies(json_document_test ara_crc32)
