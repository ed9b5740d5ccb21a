// The one last-error text of the addon, and the null-safe conversions of foreign strings.
#pragma once

#include <cstdint>
#include <string>

namespace ostrel_native {

/// The last error text of the whole addon; empty if none. Read and write it through the two
/// functions below.
extern std::string g_lastError;

/// Replaces the last error text. Success does not clear it unless the caller that succeeds
/// writes an empty text.
/// Never call it with another lock held: its own lock is a leaf.
/// Thread: any.
void SetLastError(const std::string& text);

/// Returns a copy of the last error text; reading does not clear it.
/// Thread: any.
std::string GetLastErrorString();

/// Copies `text` up to its first zero byte; a null pointer gives the empty string.
/// Thread: any.
std::string SafeCString(const char* text);

/// Converts UTF-16 code units to UTF-8, up to the first zero unit and at most 4096 of them.
/// Surrogate pairs combine; each unpaired surrogate becomes U+FFFD. Null gives the empty string.
/// Thread: any.
std::string Utf16PtrToUtf8(const std::uint16_t* text);

/// Converts 32-bit wide characters to UTF-8, up to the first zero and at most 4096 of them.
/// Surrogates do not pair here: each gives its own U+FFFD, as does a value above U+10FFFF.
/// Null gives the empty string.
/// Thread: any.
std::string WCharPtrToUtf8(const wchar_t* text);

}  // namespace ostrel_native
