# SPDX-License-Identifier: Apache-2.0
# The method proxy over the scripted driver and the process-local transport.
ara_exec_add_test(NAME method_proxy_test SOURCES method_proxy_test.cpp proloc_test.cpp LINK ara_test_fakes)
ara_exec_add_test(NAME method_proxy_stress_test SOURCES method_proxy_stress_test.cpp LINK ara_test_fakes
                  LABELS concurrency)
