#include "tree.h"

#include "command.h"
#include "text.h"

#include <algorithm>
#include <strings.h>

namespace zemash {
namespace {

constexpr size_t kMaxPrefix = 63;   // what a listing keeps of the words in front of a name
constexpr size_t kMaxListing = 511; // one of this length may be cut

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        if (end > 0) {
            parts.push_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

// The name in a line "Zemacmd usr a b [name]", which lists a child of the node at the path.
std::optional<std::string> nameIn(std::string_view line, const std::string &path)
{
    const std::string prefix = ("Zemacmd " + path + " ").substr(0, kMaxPrefix) + "[";
    if (line.substr(0, prefix.size()) != prefix || line.back() != ']') {
        return std::nullopt;
    }
    return tools::harmless(line.substr(prefix.size(), line.size() - prefix.size() - 1));
}

// The names that a text lists; nothing when it is no whole listing of the node at the path.
std::optional<std::vector<std::string>> namesIn(std::string_view text, const std::string &path)
{
    std::vector<std::string> names;
    for (const std::string_view line : split(text, '\n')) {
        const std::optional<std::string> name = nameIn(line, path);
        if (!name) {
            return std::nullopt;
        }
        names.push_back(*name);
    }
    return text.size() < kMaxListing ? std::optional(names) : std::nullopt;
}

bool isSame(const std::string &a, const std::string &b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// Whether a process that printed this for "?" behind above/name has a node with children there, or nothing at
// all. A node that prints help of its own may be a leaf.
bool mayDescend(const std::string &text, const std::string &above, const std::string &name)
{
    if (namesIn(text, above + " " + name)) {
        return true;
    }
    const auto siblings = namesIn(text, above);
    return siblings && std::none_of(siblings->begin(), siblings->end(),
                                    [&](const std::string &each) { return isSame(each, name); });
}

std::string textOf(const Outcome &outcome)
{
    std::string text;
    for (const Answer &answer : outcome.answers) {
        text += answer.text;
    }
    return text;
}

} // namespace

bool isTreeText(std::string_view text)
{
    return isSame(std::string(text.substr(0, text.find(' '))), "usr");
}

std::optional<std::string> TreeGuide::ask(std::string_view path)
{
    const std::vector<std::string_view> words = split(path, ' ');
    std::string above;
    std::string here(words.front());
    for (size_t i = 1;; ++i) {
        const Outcome outcome = runCommand(terminal_, {.entry = Entry::tree, .text = here + " ?"}, waitMs_,
                                           [](uint32_t, std::string_view) {});
        if (i == words.size()) {
            return textOf(outcome);
        }
        const std::string name(words[i - 1]);
        const bool safe =
            std::all_of(outcome.answers.begin(), outcome.answers.end(), [&](const Answer &answer) {
                return i == 1 || answer.state == "other" ||
                       (answer.state != "waiting" && mayDescend(answer.text, above, name));
            });
        if (!safe) {
            return std::nullopt;
        }
        above = here;
        here += " " + std::string(words[i]);
    }
}

std::vector<Candidate> TreeGuide::children(std::string_view path, std::string_view beginning)
{
    std::vector<Candidate> candidates;
    const std::string text = ask(path).value_or("");
    for (const std::string_view line : split(text, '\n')) {
        const std::string name = nameIn(line, std::string(path)).value_or("");
        const bool known = std::any_of(candidates.begin(), candidates.end(),
                                       [&](const Candidate &each) { return isSame(each.word, name); });
        if (!name.empty() && !known && strncasecmp(name.c_str(), beginning.data(), beginning.size()) == 0) {
            candidates.push_back({.word = name, .help = "", .more = true});
        }
    }
    return candidates;
}

} // namespace zemash
