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

OVERHEAD = 40  # of a box: nonce and tag
MOST_CHUNKS = 1 << 24


def require(is_right, sentence):
    """Not an assert: those are gone with `python3 -O`."""
    if not is_right:
        sys.exit(sentence)


def keyed(key, message, size=32):
    return hashlib.blake2b(message, key=key, digest_size=size).digest()


def unpacked_frame(data, most):
    require(data[:4] == b"\x28\xb5\x2f\xfd", "a packed chunk is no Zstandard frame")
    size = zstandard.frame_content_size(data)
    require(0 <= size <= most, "a packed chunk does not tell its size, or is too large")
    unpacker = zstandard.ZstdDecompressor().decompressobj()
    chunk = unpacker.decompress(data)
    require(unpacker.eof and not unpacker.unused_data, "a packed chunk is not exactly one frame")
    require(len(chunk) == size, "a packed chunk is of another size than it tells")
    return chunk


def unpacked(payload, most):
    require(payload, "a chunk has no form")
    form, data = payload[0], payload[1:]
    if form == 0:
        chunk = data
    elif form == 1:
        chunk = unpacked_frame(data, most)
    else:
        require(form == 2 and len(data) == 4, "a chunk has an unknown form")
        size = struct.unpack("<I", data)[0]
        require(size <= most, "a chunk is too large")
        chunk = bytes(size)
    require(len(chunk) <= most, "a chunk is too large")
    return chunk


def frames(stored, at):
    while at < len(stored):
        require(len(stored) - at >= 5, "its end is missing")
        mark, size = struct.unpack_from("<BI", stored, at)
        require(OVERHEAD <= size <= len(stored) - at - 5, "its end is missing")
        yield mark, stored[at + 5:at + 5 + size]
        at += 5 + size


def content(master, stored, identifier=None):
    require(len(master) == 32, "a master key has 32 bytes")
    require(len(stored) >= 64, "it is not sealed content")
    head = stored[:64]
    magic, form, exponent, zeros, key_name, own = struct.unpack("<16sBB6s8s32s", head)
    require(magic == b"stowline sealed\n", "it is not sealed content")
    require(form == 1, "it is sealed in an unknown form")
    require(12 <= exponent <= 24 and zeros == bytes(6), "it is not what was sealed")
    require(key_name == keyed(master, b"stowline: name of a master key", 16)[:8], "it is sealed with another key")
    require(identifier in (None, own), "it is another content")
    key = keyed(master, b"stowline: key of a content" + own)
    size = 1 << exponent
    chunks, lengths, marks = [], [], []
    for mark, box in frames(stored, 64):
        associated = head + struct.pack("<BQ", mark, len(chunks))
        payload = opened(box[24:], associated, box[:24], key)  # raises when it is not genuine
        marks.append(mark)
        if mark == 2:
            require(payload == struct.pack(f"<{len(lengths)}I", *lengths), "the table is another one")
        else:
            require(len(chunks) < MOST_CHUNKS, "it has too many chunks")
            chunks.append(unpacked(payload, size))
            lengths.append(5 + len(box))
    require(marks == [0] * (len(chunks) - 1) + [1, 2], "its end is missing")
    require(all(len(chunk) == size for chunk in chunks[:-1]), "a chunk is too small")
    require(chunks[-1] or len(chunks) == 1, "its last chunk is empty")
    return b"".join(chunks)


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as key_file, open(sys.argv[2], "rb") as sealed_file:
        wanted = bytes.fromhex(sys.argv[3]) if len(sys.argv) > 3 else None
        sys.stdout.buffer.write(content(key_file.read(), sealed_file.read(), wanted))
