"""Opens a list of key slots without Stowline's code: docs/formats/key-slots.md.

    open_key_slots.py KIND SECRET < LIST     # the 32 bytes of the master key go to standard output

KIND is account, passphrase or key-file. SECRET is an argument because this is for tests: others see it there.
What is not of the form, or costs more than a list may ask for, is refused before it is tried.
"""
import hashlib
import json
import sys
import unicodedata

from nacl.bindings import crypto_aead_xchacha20poly1305_ietf_decrypt as opened
from nacl.exceptions import CryptoError
from nacl.pwhash import argon2id

LONGEST_LIST = 65536
MOST_SLOTS = 64
MOST_WORK = MOST_SLOTS * 3 * 262144


def require(is_right, sentence):
    """Not an assert: those are gone with `python3 -O`."""
    if not is_right:
        sys.exit(sentence)


def keyed(key, message, size=32):
    return hashlib.blake2b(message, key=key, digest_size=size).digest()


def work(slot):
    operations, memory = slot["operations"], slot["memory_kib"]
    require(type(operations) is int and 1 <= operations <= 16, "a slot asks for too many passes")
    require(type(memory) is int and 8 <= memory <= 1048576, "a slot asks for too much memory")
    return operations * memory


def master_key(text, kind, secret):
    require(len(text) <= LONGEST_LIST, "the list is too long")
    lines = text.splitlines(keepends=True)
    head, slots, end = json.loads(lines[0]), [json.loads(line) for line in lines[1:-1]], json.loads(lines[-1])["end"]
    require(head["keys"] == "stowline" and head["format"] == 1, "the list is of an unknown form")
    require(end["slots"] == len(slots) <= MOST_SLOTS, "slots are missing")
    tried = sorted((slot for slot in slots if slot["kind"] == kind), key=work)
    require(sum(map(work, tried)) <= MOST_WORK, "the slots take too long to try together")
    if kind == "passphrase":
        secret = unicodedata.normalize("NFC", secret.decode()).encode()
    for slot in tried:
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
        require(seal.hex() == end["seal"], "the list is not as whoever has the key wrote it")
        require(keyed(key, b"stowline: name of a master key", 16)[:8].hex() == head["key"], "it is another key")
        return key
    sys.exit("the secret opens no slot")


if __name__ == "__main__":
    sys.stdout.buffer.write(master_key(sys.stdin.buffer.read(), sys.argv[1], sys.argv[2].encode()))
