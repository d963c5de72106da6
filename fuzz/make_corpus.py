#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/.

Each seed is a valid encoding (plus the two settings bytes the SOME/IP targets read first,
see fuzz_settings.h), so the fuzzers start from inputs that get past the first checks.
Run it again after changing the wire forms; the output is committed.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
BOM = b"\xef\xbb\xbf"
SIZE_INDEX = {0: 0, 1: 1, 2: 2, 4: 3}


def settings(little=False, string_size=4, struct_size=0, nodes=False, tlv=False, raw=False,
             array_size=4, alignment_index=0, dynamic=False, no_padding=False, tlv_size_index=2):
    a = (1 if little else 0) | SIZE_INDEX[string_size] << 1 | SIZE_INDEX[struct_size] << 3
    a |= (0x20 if nodes else 0) | (0x40 if tlv else 0) | (0x80 if raw else 0)
    b = SIZE_INDEX[array_size] | alignment_index << 2 | (0x10 if dynamic else 0)
    b |= (0x20 if no_padding else 0) | tlv_size_index << 6
    return bytes([a, b])


def length(value, size, little):
    if size == 0:
        return b""
    fmt = {1: "B", 2: "H", 4: "I"}[size]
    return struct.pack(("<" if little else ">") + fmt, value)


def someip_string(text, size=4, little=False, raw=False):
    body = text if raw else BOM + text + b"\x00"
    return length(len(body), size, little) + body


def someip_process(texts, flag, struct_size=0, little=False):
    body = b"".join(someip_string(t, 4, little) for t in texts) + bytes([flag])
    return length(len(body), struct_size, little) + body


def someip_tlv_process(texts, flag, little=False):
    """Members with dynamic length fields (wire type 5), data ids 1..5, 2-byte structure length."""
    order = "<" if little else ">"
    body = b""
    for i, t in enumerate(texts):
        payload = BOM + t + b"\x00"
        body += struct.pack(order + "H", 0x5000 | (i + 1)) + bytes([len(payload)]) + payload
    body += struct.pack(order + "H", 5) + bytes([flag])
    return length(len(body), 2, little) + body


def dds_string(text):
    return struct.pack("<I", len(text)) + text


def dds_process(texts, flag):
    return b"".join(dds_string(t) for t in texts) + bytes([flag])


def error_payload(domain, code, little=False):
    order = "<" if little else ">"
    return b"\x00\x00\x00\x00\x01" + struct.pack(order + "Q", domain) + struct.pack(order + "i", code)


EXEC = 0x8000000000000300
P1 = [b"em_daemon", b"MachineFG", b"Running", b"kRunning"]
P2 = [b"", b"", b"", b""]

plain_list = someip_process(P1, 1) + someip_process(P2, 0)
struct_list = someip_process(P1, 1, 2) + someip_process(P2, 0, 2)
tlv_list = someip_tlv_process(P1, 1) + someip_tlv_process(P2, 0)

SEEDS = {
    "record_data_id": [
        bytes([0x08]) + b"\x50\x01\x03abc" + b"\x20\x02\x00\x00\x00\x01",
        bytes([0x09]) + b"\x01\x50\x03abc" + b"\x02\x70\x01\x00\x00\x00\x07",
        bytes([0x04]) + b"\x40\x07\x00\x02hi" + b"\x30\x08" + bytes(8),
    ],
    "someip_error_code": [
        settings() + error_payload(EXEC, 5),
        settings(little=True) + error_payload(EXEC, 7, True),
    ],
    "dds_error_code": [settings() + error_payload(EXEC, 5, True)],
    "someip_string": [
        settings() + someip_string(b"ab"),
        settings(little=True, string_size=2) + someip_string(b"MachineFG", 2, True),
        settings(string_size=2, raw=True) + someip_string(b"ab", 2, raw=True),
        settings(nodes=True, tlv=True, tlv_size_index=0) + someip_string(b"ab", 1),
        settings(nodes=True, alignment_index=2) + someip_string(b"ab") + b"\x00\x00",
    ],
    "dds_string": [dds_string(b""), dds_string(b"Running")],
    "someip_process": [
        settings() + someip_process(P1, 1),
        settings(struct_size=2) + someip_process(P1, 1, 2),
        settings(nodes=True, tlv=True, struct_size=2, dynamic=True) + someip_tlv_process(P1, 1),
    ],
    "dds_process": [dds_process(P1, 1), dds_process(P2, 0)],
    "someip_process_list": [
        settings() + length(len(plain_list), 4, False) + plain_list,
        settings(struct_size=2, array_size=2) + length(len(struct_list), 2, False) + struct_list,
        settings(nodes=True, tlv=True, struct_size=2, dynamic=True) + length(len(tlv_list), 4, False) + tlv_list,
    ],
    "dds_process_list": [struct.pack("<I", 2) + dds_process(P1, 1) + dds_process(P2, 0), struct.pack("<I", 0)],
}
SEEDS["someip_round_trip"] = SEEDS["someip_process_list"]

for target, seeds in SEEDS.items():
    directory = os.path.join(HERE, "corpus", target)
    os.makedirs(directory, exist_ok=True)
    for name in os.listdir(directory):
        os.remove(os.path.join(directory, name))
    for i, seed in enumerate(seeds):
        with open(os.path.join(directory, "seed_%02d" % i), "wb") as out:
            out.write(seed)
