# SPDX-License-Identifier: Apache-2.0
# Middleware types and error domains.
ara_exec_add_test(NAME brio_types_test SOURCES brio_error_domains_test.cpp LINK kelp_brio_static)
# A handler that destroys its own skeleton, on the skeleton's dispatcher thread.
ara_exec_add_test(NAME skeleton_self_destroy_test SOURCES skeleton_self_destroy_test.cpp LINK ara_exec_static
                  LABELS concurrency)
