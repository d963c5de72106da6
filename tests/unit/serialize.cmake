# SPDX-License-Identifier: Apache-2.0
# Serialization: TLV framing, SOME/IP and DDS encoders and decoders, parameter serializer.
ara_exec_add_test(
  NAME serialize_test
  SOURCES serialize_test.cpp
  LINK ara_exec_static)
ara_exec_add_test(
  NAME serialize_concurrency_test
  SOURCES serialize_concurrency_test.cpp
  LINK ara_exec_static
  LABELS concurrency)
