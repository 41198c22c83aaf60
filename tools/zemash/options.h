// A WAN connection's options, as the library reads them.
#pragma once

#include <string>
#include <vector>

namespace zemash {

// The words are the connection and, when only one option is wanted, its name. The exit status.
int showOptions(const std::vector<std::string> &words, bool json);

} // namespace zemash
