# Middleware types and error domains.
ara_exec_add_test(NAME brio_types_test SOURCES brio_error_domains_test.cpp LINK kelp_brio_static)
