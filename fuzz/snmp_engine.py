"""The agent under test as an SNMPv3 engine, and messages of users of it who sign (SHA-256) or sign and encrypt (AES).

A message for it is written down once, with marks where something belongs that is known only when it is sent:

    data = known_message(SEALER, body).encode()     # the same in every run
    link.send(engine.fill(data))                    # now with the engine's boots and time, encrypted and signed

Whatever is changed in `data`, an encoded length too, is encrypted and signed as it stands; a mark that was changed is
left as it is. The engine's ID is a fixed one, which the agent gets from its configuration.
"""

import ctypes
import ctypes.util
import hashlib
import hmac
import time

import ber

ENGINE_ID = bytes.fromhex("8001861f05928493d7d9b97e5b")
SIGNER, SEALER = b"signer", b"sealer"
SIGNING_PASSPHRASE, SEALING_PASSPHRASE = "signing-passphrase", "sealing-passphrase"
CONFIG = """
exactEngineID 0x%s
createUser signer SHA-256 "%s"
rouser signer auth
createUser sealer SHA-256 "%s" AES "%s"
rouser sealer priv
""" % (ENGINE_ID.hex(), SIGNING_PASSPHRASE, SIGNING_PASSPHRASE, SEALING_PASSPHRASE)

MARK = b"\xd9\xa7\xc5"                              # with it all of them begin
BOOTS = MARK + b"\0"
SIGNATURE = MARK + b"the signature is here"         # 24 octets
SALT = MARK + b"salt."                              # 8 octets, sent as they are: what stands after it is encrypted
TIMES = {offset: MARK + bytes([number])             # by how far the sender's clock is off
         for number, offset in enumerate((0, -2**31, -151, -1, 1, 151, 2**31 - 1), start=1)}


def known_message(user, body, offset=0, most=65507):
    """Of a user who has keys."""
    sealed = user == SEALER
    tree = ber.message_v3(body, ENGINE_ID, user=user, flags=7 if sealed else 5, boots=_number(BOOTS),
                          time=_number(TIMES[offset]), authentication=SIGNATURE, privacy=SALT if sealed else b"",
                          most=most)
    if sealed:
        tree.content[3] = ber.Node(ber.OCTETS, [tree.content[3]])
    return tree


def known_message_around(user, scoped_pdu):
    """The same around any bytes."""
    tree = known_message(user, ber.pdu(ber.GET, []))
    tree.content[3] = ber.Node(ber.OCTETS, scoped_pdu) if user == SEALER else ber.Raw(scoped_pdu)
    return tree


def _number(mark):
    return int.from_bytes(mark, "big", signed=True)


class Engine:
    def __init__(self, boots, seconds):
        self._boots = boots
        self._started = time.monotonic() - seconds
        self._signing_key = _key(SIGNING_PASSPHRASE)
        self._sealing_key = _key(SEALING_PASSPHRASE)[:16]

    def fill(self, data):
        if MARK not in data:
            return data
        now = int(time.monotonic() - self._started)
        boots = self._boots.to_bytes(4, "big")
        data = data.replace(BOOTS, boots)
        for offset, mark in TIMES.items():
            data = data.replace(mark, ((now + offset) % 2**32).to_bytes(4, "big"))
        before, salt, sealed = data.partition(SALT)
        if len(sealed) > 1:
            header = 2 + (sealed[1] & 0x7F if sealed[1] & 0x80 else 0)
            vector = boots + now.to_bytes(4, "big") + salt  # RFC 3826, 3.1.2.1
            data = before + salt + sealed[:header] + encrypt(self._sealing_key, vector, sealed[header:])
        before, mark, after = data.partition(SIGNATURE)
        if mark:  # RFC 7860, 4.2.1: over the message with zeros in its place
            unsigned = before + bytes(len(mark)) + after
            data = before + hmac.new(self._signing_key, unsigned, hashlib.sha256).digest()[:len(mark)] + after
        return data

    def body(self, data):
        """The PDU of an answer, whatever is around it."""
        parts = ber.parse(data).content
        if len(parts) == 3:  # SNMPv1 and v2c
            return parts[2]
        scoped = parts[3]
        if scoped.tag == ber.OCTETS:
            _, boots, seconds, _, _, salt = (node.content for node in parts[2].content[0].content)
            vector = b"".join(octets.rjust(4, b"\0")[-4:] for octets in (boots, seconds)) + salt
            sealed = scoped.content
            if not isinstance(sealed, bytes):  # by chance it reads like a sequence
                sealed = b"".join(node.encode() for node in sealed)
            scoped = ber.parse(decrypt(self._sealing_key, vector, sealed))
        return scoped.content[2]


def _key(passphrase):
    """RFC 3414, A.2, for the one engine."""
    key = hashlib.sha256((passphrase.encode() * (1 << 20))[:1 << 20]).digest()
    return hashlib.sha256(key + ENGINE_ID + key).digest()


def _load_crypto():
    crypto = ctypes.CDLL(ctypes.util.find_library("crypto"))  # Net-SNMP's own library needs it, so it is there
    crypto.EVP_CIPHER_CTX_new.restype = crypto.EVP_aes_128_cfb128.restype = ctypes.c_void_p
    crypto.EVP_CipherInit_ex.argtypes = [ctypes.c_void_p] * 3 + [ctypes.c_char_p] * 2 + [ctypes.c_int]
    crypto.EVP_CipherUpdate.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_int),
                                        ctypes.c_char_p, ctypes.c_int]
    crypto.EVP_CIPHER_CTX_free.argtypes = [ctypes.c_void_p]
    return crypto


CRYPTO = _load_crypto()


def encrypt(key, vector, plain):
    """AES-128 in CFB mode: as long as the plain text."""
    return _cipher(key, vector, plain, 1)


def decrypt(key, vector, sealed):
    return _cipher(key, vector, sealed, 0)


def _cipher(key, vector, octets, encrypts):
    context = CRYPTO.EVP_CIPHER_CTX_new()
    try:
        out = ctypes.create_string_buffer(max(len(octets), 1))
        size = ctypes.c_int()
        if (not CRYPTO.EVP_CipherInit_ex(context, CRYPTO.EVP_aes_128_cfb128(), None, key, vector, encrypts)
                or not CRYPTO.EVP_CipherUpdate(context, out, ctypes.byref(size), octets, len(octets))):
            raise OSError("libcrypto refuses")
        return out.raw[:size.value]
    finally:
        CRYPTO.EVP_CIPHER_CTX_free(context)
