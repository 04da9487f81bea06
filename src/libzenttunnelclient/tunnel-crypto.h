// The token by which a relay knows where a connection is to lead. It hides the target from whoever
// looks on; it is no proof of anything, since its key comes from the token itself.
//
// All integers are big-endian, random fields mean nothing:
//    0  2  0xFFFF
//    2  2  version, 1
//    4  4  random
//    8  2  random
//   10  4  nonce, random, from which the key is made
//   14  2  random
//   16  4  random
//   20  4  length of the cipher text
//   24     cipher text: the target under triple DES in CBC mode, with block padding
//       2  random
#pragma once

namespace tolven {

// The room that the token of `length` bytes may need.
int ZENTCryptoEncryptLength(int length);
// The length of the token written to `out`; 0 when there is no room for it, or nothing random.
int ZENTCryptoEncrypt(unsigned char* out, int out_size, const unsigned char* in, int in_length);
// The length of what the token holds; 0 when it is refused or `out` has no room for it.
int ZENTCryptoDecrypt(unsigned char* out, int out_size, const unsigned char* token,
                      int token_length);

// Base64 in one line. What does not fit into `out` is cut off; the length of what was written.
int ZENTCryptoBase64Encode(unsigned char* out, int out_size, const unsigned char* in,
                           int in_length);
int ZENTCryptoBase64Decode(unsigned char* out, int out_size, const unsigned char* in,
                           int in_length);

}  // namespace tolven
