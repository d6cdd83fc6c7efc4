"""Makes the known answers beside it, without Stowline's code: docs/formats/sealed-content.md, key-slots.md.

    make_answers.py        # writes master.key, slots and, for each case, NAME.plain and NAME.sealed

The nonces are made of a counter here so that the same files come out each time. That is for known answers
alone: whatever seals content that matters takes them from the system's random source.
"""
import hashlib
import json
import pathlib
import struct

import zstandard
from nacl.bindings import crypto_aead_xchacha20poly1305_ietf_encrypt as sealed_box
from nacl.pwhash import argon2id

FOLDER = pathlib.Path(__file__).resolve().parent
EXPONENT = 12
SIZE = 1 << EXPONENT
MASTER = bytes(range(100, 132))


def keyed(key, message, size=32):
    return hashlib.blake2b(message, key=key, digest_size=size).digest()


def noise(size):
    return hashlib.shake_256(b"noise").digest(size)


def payload(chunk, form):
    if form == "zeros":
        return b"\2" + struct.pack("<I", len(chunk))
    if form == "packed":
        return b"\1" + zstandard.ZstdCompressor(level=3).compress(chunk)
    return b"\0" + chunk


def sealed(name, chunks):
    identifier = hashlib.sha256(b"identifier of " + name.encode()).digest()
    key = keyed(MASTER, b"stowline: key of a content" + identifier)
    head = struct.pack("<16sBB6s8s32s", b"stowline sealed\n", 1, EXPONENT, bytes(6),
                       keyed(MASTER, b"stowline: name of a master key", 16)[:8], identifier)
    stored, lengths = [head], []

    def append(mark, position, content):
        nonce = hashlib.sha256(name.encode() + struct.pack("<BQ", mark, position)).digest()[:24]
        box = nonce + sealed_box(content, head + struct.pack("<BQ", mark, position), nonce, key)
        stored.append(struct.pack("<BI", mark, len(box)) + box)
        lengths.append(len(stored[-1]))

    for position, (chunk, form) in enumerate(chunks):
        append(1 if position + 1 == len(chunks) else 0, position, payload(chunk, form))
    append(2, len(chunks), struct.pack(f"<{len(lengths)}I", *lengths))
    return b"".join(stored)


TEXT = b"".join(b"line %d of a text that shrinks\n" % number for number in range(400))
CASES = {
    "empty": [(b"", "plain")],
    "one-byte": [(b"x", "plain")],
    "one-chunk": [(noise(SIZE), "plain")],
    "text": [(TEXT[:SIZE], "packed"), (TEXT[SIZE:2 * SIZE], "packed"), (TEXT[2 * SIZE:2 * SIZE + 77], "packed")],
    "mixed": [(noise(SIZE), "plain"), (bytes(SIZE), "zeros"), (TEXT[:SIZE], "packed"), (bytes(5), "zeros")],
}

(FOLDER / "master.key").write_bytes(MASTER)
for name, chunks in CASES.items():
    (FOLDER / f"{name}.plain").write_bytes(b"".join(chunk for chunk, _ in chunks))
    (FOLDER / f"{name}.sealed").write_bytes(sealed(name, chunks))


def slot(identifier, kind, label, secret):
    salt = hashlib.sha256(identifier.encode()).digest()[:16]
    nonce = hashlib.sha256(salt).digest()[:24]
    associated = b"\0".join([b"stowline: slot of a master key", identifier.encode(), kind.encode(), KEY_NAME])
    box = nonce + sealed_box(MASTER, associated, nonce, argon2id.kdf(32, secret, salt, opslimit=2, memlimit=1 << 20))
    return {"slot": identifier, "kind": kind, "label": label, "operations": 2, "memory_kib": 1024,
            "salt": salt.hex(), "box": box.hex()}


KEY_NAME = keyed(MASTER, b"stowline: name of a master key", 16)[:8]
lines = [{"keys": "stowline", "format": 1, "generation": 7, "key": KEY_NAME.hex()},
         slot("00112233445566aa", "passphrase", "first", b"another passphrase"),
         slot("00112233445566bb", "account", "", b"account key"),
         slot("00112233445566cc", "passphrase", "Ann's", b"correct horse battery")]
text = b"".join(json.dumps(line).encode() + b"\n" for line in lines)
seal = keyed(keyed(MASTER, b"stowline: list of slots"), text)
(FOLDER / "slots").write_bytes(text + json.dumps({"end": {"slots": 3, "seal": seal.hex()}}).encode() + b"\n")
