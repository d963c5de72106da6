# SPDX-License-Identifier: Apache-2.0
# ara::exec value types and the Exec, Core and Future domains.
ara_exec_add_test(NAME exec_types_test SOURCES exec_error_domain_test.cpp LINK ara_exec_static)
