# SPDX-License-Identifier: Apache-2.0
# Unit tests of the file-system, string and time helpers and the key-value storage.
ara_exec_add_test(NAME file_system_test SOURCES file_system_test.cpp LINK ara_exec_static)
ara_exec_add_test(NAME string_process_test SOURCES string_process_test.cpp LINK ara_exec_static)
target_include_directories(string_process_test PRIVATE ${PROJECT_SOURCE_DIR}/util/src)
ara_exec_add_test(NAME key_value_storage_test SOURCES key_value_storage_test.cpp LINK ara_exec_static)
ara_exec_add_test(NAME key_value_storage_concurrency_test SOURCES key_value_storage_concurrency_test.cpp
                  LINK ara_exec_static LABELS concurrency)
