"""Opens a list of key slots without Stowline's code: docs/formats/key-slots.md.

    open_key_slots.py KIND SECRET < LIST     # the 32 bytes of the master key go to standard output

KIND is account, passphrase or key-file. SECRET is an argument because this is for tests: others see it there.
"""
import hashlib
import json
import sys

from nacl.bindings import crypto_aead_xchacha20poly1305_ietf_decrypt as opened
from nacl.exceptions import CryptoError
from nacl.pwhash import argon2id


def keyed(key, message, size=32):
    return hashlib.blake2b(message, key=key, digest_size=size).digest()


def master_key(text, kind, secret):
    lines = text.splitlines(keepends=True)
    head, slots, end = json.loads(lines[0]), [json.loads(line) for line in lines[1:-1]], json.loads(lines[-1])["end"]
    assert head["keys"] == "stowline" and head["format"] == 1
    assert end["slots"] == len(slots), "slots are missing"
    for slot in slots:
        if slot["kind"] != kind:
            continue
        wrapping = argon2id.kdf(32, secret, bytes.fromhex(slot["salt"]), opslimit=slot["operations"],
                                memlimit=slot["memory_kib"] * 1024)
        associated = b"\0".join([b"stowline: slot of a master key", slot["slot"].encode(), kind.encode(),
                                 bytes.fromhex(head["key"])])
        box = bytes.fromhex(slot["box"])
        try:
            key = opened(box[24:], associated, box[:24], wrapping)
        except CryptoError:
            continue
        seal = keyed(keyed(key, b"stowline: list of slots"), b"".join(lines[:-1]))
        assert seal.hex() == end["seal"], "the list is not as whoever has the key wrote it"
        assert keyed(key, b"stowline: name of a master key", 16)[:8].hex() == head["key"]
        return key
    sys.exit("the secret opens no slot")


if __name__ == "__main__":
    sys.stdout.buffer.write(master_key(sys.stdin.buffer.read(), sys.argv[1], sys.argv[2].encode()))
