# SPDX-License-Identifier: Apache-2.0
# ara::core basics of the platform.
ara_exec_add_test(NAME core_test SOURCES core_test.cpp LINK ara_platform_static)
