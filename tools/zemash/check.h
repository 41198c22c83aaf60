// Values of the configuration, as the library's validators see them.
#pragma once

#include <string>
#include <vector>

namespace zemash {

// The words are a kind and its texts. Says whether the library accepts them, and why not; the exit status.
int showCheck(const std::vector<std::string> &words, bool json);

// The kinds, one a line, with what they take and the function that decides.
std::string kindsForHelp();

} // namespace zemash
