// Encryption of the hardware-information records: RSA with the built-in
// public key (PKCS #1 v1.5 padding), then standard base64.
#pragma once

namespace zelkor::tessel::HwInfo {

// Encrypts the bytes of `text` (no terminating NUL) with the built-in key.
// Returns the cipher length with a malloc'd buffer in *out (the caller frees
// it), or a negative value with nothing allocated: a null or empty text, a
// key that does not load, or a text longer than the key allows (245 bytes for
// a 2048-bit key).
int rsa_pub_encrypt(const char* text, unsigned char** out);

// Standard base64 ('=' padding, no line breaks) of n bytes, as a malloc'd
// NUL-terminated text the caller frees; null when n is negative or memory
// runs out.
char* base64_encode(const unsigned char* bytes, int n);

}  // namespace zelkor::tessel::HwInfo
