"""Opens sealed content without Stowline's code: docs/formats/sealed-content.md.

    unseal_content.py MASTER-KEY-FILE SEALED-FILE [IDENTIFIER]     # the content goes to standard output

The file of the master key has its 32 bytes. With IDENTIFIER (64 hexadecimal digits, as the record of the run
has them) another content is refused. Nothing is written unless all of it is genuine.
"""
import hashlib
import struct
import sys

import zstandard
from nacl.bindings import crypto_aead_xchacha20poly1305_ietf_decrypt as opened


def keyed(key, message, size=32):
    return hashlib.blake2b(message, key=key, digest_size=size).digest()


def unpacked(payload):
    form, data = payload[0], payload[1:]
    if form == 0:
        return data
    if form == 1:
        return zstandard.ZstdDecompressor().decompress(data)
    assert form == 2 and len(data) == 4, "a chunk has an unknown form"
    return bytes(struct.unpack("<I", data)[0])


def frames(stored):
    while stored:
        mark, size = struct.unpack_from("<BI", stored)
        assert len(stored) >= 5 + size, "its end is missing"
        yield mark, stored[5:5 + size]
        stored = stored[5 + size:]


def content(master, stored, identifier=None):
    head = stored[:64]
    magic, form, exponent, zeros, key_name, own = struct.unpack("<16sBB6s8s32s", head)
    assert magic == b"stowline sealed\n", "it is not sealed content"
    assert form == 1, "it is sealed in an unknown form"
    assert zeros == bytes(6)
    assert key_name == keyed(master, b"stowline: name of a master key", 16)[:8], "it is sealed with another key"
    assert identifier in (None, own), "it is another content"
    key = keyed(master, b"stowline: key of a content" + own)
    chunks, lengths, marks = [], [], []
    for mark, box in frames(stored[64:]):
        associated = head + struct.pack("<BQ", mark, len(chunks))
        payload = opened(box[24:], associated, box[:24], key)  # raises when it is not genuine
        marks.append(mark)
        if mark == 2:
            assert payload == struct.pack(f"<{len(lengths)}I", *lengths), "the table is another one"
        else:
            chunks.append(unpacked(payload))
            lengths.append(5 + len(box))
    assert marks == [0] * (len(chunks) - 1) + [1, 2], "its end is missing"
    assert all(len(chunk) == 1 << exponent for chunk in chunks[:-1])
    assert len(chunks[-1]) <= 1 << exponent and (chunks[-1] or len(chunks) == 1)
    return b"".join(chunks)


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as key_file, open(sys.argv[2], "rb") as sealed_file:
        wanted = bytes.fromhex(sys.argv[3]) if len(sys.argv) > 3 else None
        sys.stdout.buffer.write(content(key_file.read(), sealed_file.read(), wanted))
