#!/usr/bin/python3
"""Reads and writes vault containers by their published format alone, sharing no line with the program.

What the program writes must open here, and what is written here must open in the program.

    read_container.py list CONTAINER
    read_container.py extract CONTAINER VAULT_PATH TARGET
    read_container.py create CONTAINER [VAULT_PATH=FILE ...]

The password is the first line of the standard input.
"""
import base64
import hashlib
import json
import os
import sys
import uuid
from datetime import datetime, timezone

from nacl.bindings import (crypto_aead_xchacha20poly1305_ietf_decrypt as open_sealed,
                           crypto_aead_xchacha20poly1305_ietf_encrypt as seal)
from nacl.pwhash import argon2id

MAGIC = b"TRAVEX3"
HEADER_AREA_BYTES = 8 << 20
PROLOGUE_BYTES = len(MAGIC) + 20 + 1
BLOCK_BYTES = 16 << 20
CIPHER, KDF = "XChaCha20-Poly1305", "Argon2id"
BLOCK_ROLE = b"TRAVEX|file-block|3"


def encode(data):
    return base64.b64encode(data).decode()


def password_key(password, salt, kdf=KDF, iterations=0):
    if kdf != KDF:
        return hashlib.pbkdf2_hmac("sha256", password.encode(), salt, iterations, 64)[:32]
    return argon2id.kdf(64, password.encode(), salt[:16], opslimit=3, memlimit=256 << 20)[:32]


def master_key_role(crypto, salt, nonce):
    fields = ["TRAVEX", "master-key", "3", crypto["cipher"], crypto["kdf"], str(crypto["kdfIterations"])]
    return b"|".join([field.encode() for field in fields] + [salt, nonce])


def index_role(crypto, nonce):
    return b"|".join([b"TRAVEX", b"index", b"3", crypto["cipher"].encode(), nonce])


class Container:
    """An opened container: `files` and `directories` map vault paths to what the index says of them."""

    def __init__(self, path, password):
        self.path = path
        with open(path, "rb") as file:
            prologue = file.read(PROLOGUE_BYTES)
            area = file.read(HEADER_AREA_BYTES)
        assert prologue[:7] == MAGIC and prologue[-1:] == b"\n" and len(area) == HEADER_AREA_BYTES
        length = int(prologue[7:27])
        assert not area[length:].strip(b"\0"), "the header area ends in something else than zero bytes"
        header = json.loads(area[:length])
        assert header["magic"] == "TRAVEX" and header["formatVersion"] == 3

        crypto = header["crypto"]
        salt, nonce, index_nonce, sealed_key = (base64.b64decode(crypto[name], validate=True) for name in
                                                ("salt", "nonce", "payloadNonce", "encryptedMasterKey"))
        master_key = open_sealed(sealed_key, master_key_role(crypto, salt, nonce), nonce,
                                 password_key(password, salt, crypto["kdf"], crypto["kdfIterations"]))
        assert len(master_key) == 64
        self.data_key = master_key[:32]
        index = json.loads(open_sealed(base64.b64decode(header["encryptedIndex"]),
                                       index_role(crypto, index_nonce), index_nonce, self.data_key))
        assert index["formatVersion"] == 1
        self.files = {entry["vaultPath"]: entry for entry in index["files"]}
        self.directories = {entry["path"]: entry for entry in index["directories"]}

    def read(self, vault_path):
        """The file's bytes, every block authenticated, checked against the size and the digest on record."""
        entry = self.files[vault_path]
        content = b""
        with open(self.path, "rb") as file:
            for block in entry["blocks"]:
                file.seek(block["offset"])
                plain = open_sealed(file.read(block["encryptedSize"]), BLOCK_ROLE,
                                    base64.b64decode(block["nonce"]), self.data_key)
                assert len(plain) == block["plainSize"]
                content += plain
        assert len(content) == entry["sizeBytes"]
        assert hashlib.sha256(content).hexdigest() == entry["sha256"]
        return content


def create(path, password, files):
    """Writes a container that holds `files`, a map from vault path to bytes."""
    salt, nonce, index_nonce, master_key = (os.urandom(size) for size in (16, 24, 24, 64))
    now = datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.000Z")
    entries, directories, sealed_blocks = [], [], b""
    for vault_path, content in files.items():
        blocks = []
        for start in range(0, len(content), BLOCK_BYTES):
            plain, block_nonce = content[start:start + BLOCK_BYTES], os.urandom(24)
            sealed = seal(plain, BLOCK_ROLE, block_nonce, master_key[:32])
            blocks.append({"offset": PROLOGUE_BYTES + HEADER_AREA_BYTES + len(sealed_blocks),
                           "plainSize": len(plain), "encryptedSize": len(sealed), "nonce": encode(block_nonce)})
            sealed_blocks += sealed
        entries.append({"id": str(uuid.uuid4()), "vaultPath": vault_path, "sizeBytes": len(content),
                        "lastModifiedUtc": now, "sha256": hashlib.sha256(content).hexdigest(), "blocks": blocks})
        parts = vault_path.split("/")[:-1]
        directories += ["/".join(parts[:depth]) for depth in range(1, len(parts) + 1)]
    index = {"formatVersion": 1, "files": entries,
             "directories": [{"path": directory, "createdUtc": now, "modifiedUtc": now}
                             for directory in dict.fromkeys(directories)]}

    crypto = {"kdf": KDF, "cipher": CIPHER, "kdfIterations": 0, "salt": encode(salt), "nonce": encode(nonce),
              "payloadNonce": encode(index_nonce), "authTag": ""}
    crypto["encryptedMasterKey"] = encode(seal(master_key, master_key_role(crypto, salt, nonce), nonce,
                                               password_key(password, salt)))
    sealed_index = seal(json.dumps(index).encode(), index_role(crypto, index_nonce), index_nonce, master_key[:32])
    header = json.dumps({"magic": "TRAVEX", "formatVersion": 3, "crypto": crypto,
                         "encryptedIndex": encode(sealed_index)}).encode()
    with open(path, "wb") as file:
        file.write(MAGIC + b"%020d\n" % len(header) + header.ljust(HEADER_AREA_BYTES, b"\0") + sealed_blocks)


def main(command, path, *arguments):
    password = sys.stdin.readline().rstrip("\n")
    if command == "create":
        pairs = (argument.split("=", 1) for argument in arguments)
        create(path, password, {vault_path: open(source, "rb").read() for vault_path, source in pairs})
        return
    container = Container(path, password)
    if command == "extract":
        vault_path, target = arguments
        with open(target, "wb") as file:
            file.write(container.read(vault_path))
    elif command == "list":
        for directory in container.directories:
            print(f"{directory}/")
        for vault_path, entry in container.files.items():
            print(f"{vault_path}\t{entry['sizeBytes']} bytes\t{entry['lastModifiedUtc']}")
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
