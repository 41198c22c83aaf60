// Text for people: results in words, and foreign bytes made harmless.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tools {

// A result of the platform or the library in words; empty for 0, 1 and what is not known.
std::string_view wordsFor(uint32_t result);

// The same with its number, for messages: "no live process ... (0xF1000003)".
std::string reasonOf(uint32_t result);

// The length of the valid UTF-8 sequence at the start of the bytes, 0 when there is none.
size_t utf8Length(std::string_view bytes);

// What a terminal can show without obeying it: text and the control characters in `kept` as they are, every
// other byte as \xNN.
std::string harmless(std::string_view bytes, std::string_view kept = "");

// A time of nanoseconds since 1970: local, with microseconds, for people; in UTC, with nanoseconds, for
// programs.
std::string clockText(uint64_t realTimeNs, bool utc);

} // namespace tools
