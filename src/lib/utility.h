// Small codecs and look-ups. All may be called from any thread; none throws but for memory.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "ustring/ustring.h"

namespace tolven {

// Base64 with "=" padding, for passwords and short tokens: the text is at most 3,071 characters,
// input beyond that is cut. Null for a null buffer.
std::unique_ptr<char[]> SzBase64EncBuffer(const void* buf, std::size_t len);
// The same, up to the first NUL byte of the input.
std::unique_ptr<char[]> SzBase64EncOneLine(const char* buf, std::size_t len);
// `outlen` holds the capacity on entry and the count of bytes on return. 1, or 0 for a character
// that is no base64, too little room or a null argument.
int EncBase64Dec(const char* in, std::size_t inlen, void* out, std::size_t& outlen);

// 32 lowercase hexadecimal digits.
ustring HashMD5(const ustring& text);

// Between UTF-8, UTF-16 and the system's code page; text of at most 8,192 units. Empty in, empty
// out. 0, or -1 for text that is too long or not well-formed.
int UTF8ToNativeStr(const std::string& in, std::u16string& out);
int NativeStrToUTF8(const std::u16string& in, std::string& out);
int CodePageToNativeStr(const std::string& in, std::u16string& out);
int NativeStrToCodePage(const std::u16string& in, std::string& out);

// Splits "domain/user" or "domain\user" at the last separator; "/" goes first.
void ParseUsrName(ustring& user_name, ustring& domain);

// 0 or -1.
int GetSysHostName(ustring& host);

// Keeps a password from plain reading on the wire and nothing more: Blowfish (CFB, no
// initialisation vector) under a key that both sides know, as base64. SyncPassDec gives an empty
// text for what does not decode.
void SyncPassEnc(const ustring& in, ustring& out);
void SyncPassDec(const ustring& in, ustring& out);

}  // namespace tolven
