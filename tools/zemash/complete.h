// What may stand where the operator's text ends, and why the service refuses a text: read from the whitelist.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zemash {

struct Candidate {
    std::string word; // empty for a parameter that the operator chooses
    std::string help; // what the command takes when this word ends it, or what it does
    bool more;        // something follows this word
};

// The last word of the text, as far as it is typed.
std::string_view lastWord(std::string_view text);

// The words of the whitelist, of one class, that go on from the text.
std::vector<Candidate> nextWords(std::string_view text, bool debug);

// For people, one a line.
std::string listOf(const std::vector<Candidate> &candidates);

// Why the service refused a text with a result.
std::string whyRefused(std::string_view text, bool debug, uint32_t result);

} // namespace zemash
