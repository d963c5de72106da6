# Serialization: TLV framing, SOME/IP and DDS encoders and decoders, parameter serializer.
ara_exec_add_test(
  NAME serialize_test
  SOURCES serialize_tlv_test.cpp serialize_someip_test.cpp serialize_dds_test.cpp params_serializer_test.cpp
  LINK ara_exec_static)
ara_exec_add_test(
  NAME serialize_concurrency_test
  SOURCES serialize_concurrency_test.cpp
  LINK ara_exec_static
  LABELS concurrency)
