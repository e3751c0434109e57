// The code page Windows-1252 at the system's outer edges: terminal, browser, SQL values, JSON.
// Inside, every string is bytes of this page; outside it is UTF-8. The mapping (session/CodePage.h) is
// one-to-one for all 256 bytes, so every byte survives a round trip; 27 C1 code points have no byte. Runs of
// ASCII are copied eight bytes at a time.
#pragma once

#include <string>
#include <string_view>

#include "session/CodePage.h"

namespace nvadmin::engine {

using nvadmin::CodePointOf;

std::string ToUtf8(std::string_view bytes);
// In bytes.
std::size_t Utf8Size(std::string_view bytes);
// `bytes` must not lie in `out`.
void AppendUtf8(std::string& out, std::string_view bytes);

// Replaces `bytes` by the code page form of `utf8`. False when a character has no byte or the text is no
// valid UTF-8 (overlong forms and surrogates aren't): `refused` then names the first such place, counted from
// 1 and itself in UTF-8 ("U+0142 'ł' at character 3", "the broken UTF-8 at byte 7"), and `bytes` is
// unchanged. `refused` is left alone on success.
bool FromUtf8(std::string_view utf8, std::string& bytes, std::string& refused);

// Appends text that ToUtf8 wrote (every character has a byte): the fast road for what a store gives back.
// What has no byte or is broken, as text changed by other tools may be, becomes "?", one for a character or a
// broken byte. `utf8` must not lie in `out`.
void AppendFromStoredUtf8(std::string& out, std::string_view utf8);

// Text that isn't ours (a path, a message of the system) for a message of ours: what has no byte becomes "?".
std::string ForeignText(std::string_view utf8);

}  // namespace nvadmin::engine
