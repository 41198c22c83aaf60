// The library's validators, from a shell.
#pragma once

#include <string>

namespace zemash {

constexpr int kAccepted = 0;
constexpr int kRejected = 1;

// Says whether a value is accepted as one of its kind and, where the library recorded why not, what it
// recorded. The exit code: kUsage for a kind that there is not.
int checkValue(const std::string &kind, const std::string &value, bool json);

} // namespace zemash
