# SPDX-License-Identifier: Apache-2.0
# Method proxy engine and the ara::core result, future and promise types.
ara_exec_add_test(NAME result_test SOURCES result_test.cpp LINK ara_exec_static)
# Every future/promise case involves more than one thread, so all of them run under TSan.
ara_exec_add_test(NAME future_promise_test SOURCES future_promise_test.cpp LINK ara_exec_static LABELS concurrency)
