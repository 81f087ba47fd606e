"""The built-in body scrambler of the crash reporter, both ways.

A scrambled body is eight random bytes, then document and padding XORed with the AES-128 key stream whose counter blocks
are those eight bytes followed by a 64-bit big-endian block number from 0. The padding is 2 to 9 bytes, its last byte
the count, the others random; the whole is a multiple of 8 long. It hides, it does not protect: TLS does.
"""

import os
import pathlib
import re

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

NONCE_SIZE = 8
MIN_PADDING = 2
MAX_PADDING = 9
# Beside this file in an installed package, with the rest of the build in the source tree.
HERE = pathlib.Path(__file__).resolve().parent
SETTINGS_FILE = next(filter(pathlib.Path.exists, (folder / "zo_crash_settings.cmake"
                                                  for folder in (HERE, HERE.parents[1] / "cmake"))), None)


class ScramblerError(ValueError):
    """The bytes are not what the scrambler makes with this key."""


def development_key():
    """The key that a build has unless it is given another, read from the one place that has it."""
    setting = r'set\(zo_crash_default_SCRAMBLER_KEY "([0-9a-fA-F]{32})"\)'
    found = SETTINGS_FILE and re.search(setting, SETTINGS_FILE.read_text())
    if not found:
        raise RuntimeError(f"no default scrambler key in {SETTINGS_FILE}")
    return bytes.fromhex(found.group(1))


def _apply_key_stream(data, key, nonce):
    stream = Cipher(algorithms.AES(key), modes.CTR(nonce + bytes(8))).encryptor()
    return stream.update(data) + stream.finalize()


def scramble(document, key, random=os.urandom):
    count = MIN_PADDING + -(len(document) + NONCE_SIZE + MIN_PADDING) % 8
    nonce = random(NONCE_SIZE)
    padding = random(count - 1) + bytes([count])
    return nonce + _apply_key_stream(document + padding, key, nonce)


def unscramble(body, key):
    if len(body) < NONCE_SIZE + 8 or len(body) % 8 != 0:
        raise ScramblerError(f"scrambled body of {len(body)} bytes is not a whole number of 8-byte blocks")
    clear = _apply_key_stream(body[NONCE_SIZE:], key, body[:NONCE_SIZE])
    if not MIN_PADDING <= clear[-1] <= MAX_PADDING:
        raise ScramblerError("padding is wrong; is it another key?")
    return clear[:-clear[-1]]
