#include "qx/list.h"

#include "tests/platform/surroundings.h"

#include <array>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

// A list lives as long as the process, and so does what holds it.
ArrayList *&newHolder()
{
    static auto *const holders = new std::deque<ArrayList *>;
    return holders->emplace_back(nullptr);
}

uint32_t isLetter(const void *element, const void *key)
{
    return *static_cast<const char *>(element) == *static_cast<const char *>(key) ? 0 : 1;
}

// A list of letters, each an element of size equal bytes: a text says what the list holds.
class Letters {
public:
    explicit Letters(uint32_t size) : Letters(size, newHolder()) {}
    Letters(uint32_t size, ArrayList *&holder) : size_(size), list_(ArrayList_GetArrayList(&holder)) {}

    ArrayList *list() const { return list_; }
    uint32_t add(char letter) const { return list_->pfnAdd(list_, std::string(size_, letter).data(), size_); }
    uint32_t remove(char letter) const { return list_->pfnRemove(list_, isLetter, &letter); }
    bool finds(char letter) const
    {
        std::string found(size_, '?');
        return list_->pfnFind(list_, isLetter, &letter, found.data()) == QX_OK &&
               found == std::string(size_, letter);
    }
    std::string text() const
    {
        Seen seen{size_, ""};
        EXPECT_EQ(list_->pfnForEach(list_, collect, &seen), QX_OK);
        return seen.letters;
    }

private:
    struct Seen {
        uint32_t size;
        std::string letters;
    };
    static uint32_t collect(void *element, uint32_t * /*visited*/, void *context)
    {
        auto &seen = *static_cast<Seen *>(context);
        auto *const bytes = static_cast<char *>(element);
        seen.letters +=
            std::all_of(bytes, bytes + seen.size, [&](char c) { return c == *bytes; }) ? *bytes : '!';
        std::fill_n(bytes, seen.size, '?'); // its own copy: the list must not change
        return 0;
    }

    uint32_t size_;
    ArrayList *list_;
};

TEST(ArrayList, KeepsTheOrderOfAddition)
{
    for (const uint32_t size : {1U, 36U, 256U, 257U, 5000U}) {
        const Letters letters(size);
        std::string model;
        for (int i = 0; i < 300; ++i) {
            const char letter = "abcde"[below(5)];
            const size_t place = model.find(letter);
            ASSERT_EQ(letters.finds(letter), place != std::string::npos) << size << model;
            if (below(5) < 3) {
                ASSERT_EQ(letters.add(letter), QX_OK);
                model += letter;
            } else if (place != std::string::npos) {
                ASSERT_EQ(letters.remove(letter), QX_OK);
                model.erase(place, 1);
            } else {
                ASSERT_EQ(letters.remove(letter), QX_ERR_NOT_FOUND);
            }
            ASSERT_EQ(letters.text(), model) << size;
        }
    }
}

struct Script {
    const Letters &letters;
    std::string steps; // "+a" adds, "-a" removes, at the first visit
    char last;         // the visit of this letter fails
    std::string seen{};
};

uint32_t play(void *element, uint32_t *visited, void *context)
{
    auto &script = *static_cast<Script *>(context);
    EXPECT_EQ(std::exchange(*visited, 1), 0U);
    script.seen += *static_cast<char *>(element);
    const std::string steps = std::exchange(script.steps, "");
    for (size_t i = 0; i < steps.size(); i += 2) {
        EXPECT_EQ(steps[i] == '+' ? script.letters.add(steps[i + 1]) : script.letters.remove(steps[i + 1]),
                  QX_OK);
        EXPECT_EQ(script.letters.text().find(steps[i + 1]) != std::string::npos,
                  script.letters.finds(steps[i + 1]));
    }
    return script.seen.back() == script.last ? 7 : 0;
}

TEST(ArrayList, MayBeChangedByItsVisitor)
{
    struct Row {
        const char *reason, *letters;
        std::string steps;
        const char *seen;
        char last;
    };
    const std::array rows{
        Row{"what is added is not there yet", "ab", "+c", "ab", '\0'},
        Row{"the storage moves", "abc",
            "+1+2+3+4+5+6+7+8+9+A+B+C+D+E+F+G+H+I+J+K+L+M+N+O+P+Q+R+S+T+U+V+W+X+Y+Z", "abc", '\0'},
        Row{"what is removed is there no more", "abc", "-b", "ac", '\0'},
        Row{"removing the visited one leaves out none", "abc", "-a", "abc", '\0'},
        Row{"removed and added again is a new one", "abc", "-b+b", "ac", '\0'},
        Row{"the visited one added again is a new one", "ab", "-a+a", "ab", '\0'},
        Row{"the second of equal ones has a turn of its own", "aab", "-a", "aab", '\0'},
        Row{"nothing is left", "abc", "-a-b-c", "a", '\0'},
        Row{"a failing visit is the last", "abc", "", "ab", 'b'},
        Row{"no element", "", "", "", '\0'},
    };
    for (const Row &row : rows) {
        const Letters letters(36);
        for (const char letter : std::string(row.letters)) {
            letters.add(letter);
        }
        Script script{letters, row.steps, row.last};
        EXPECT_EQ(letters.list()->pfnForEach(letters.list(), play, &script), row.last != '\0' ? 7U : QX_OK)
            << row.reason;
        EXPECT_EQ(script.seen, row.seen) << row.reason;
    }
}

TEST(ArrayList, RefusesWhatIsMissingOrOfAnotherSize)
{
    const Letters letters(4);
    ArrayList *const list = letters.list();
    const std::string element(8, 'a');
    EXPECT_EQ(list->pfnAdd(list, element.data(), 0), QX_ERR) << "it would fix the size";
    EXPECT_EQ(letters.add('a'), QX_OK);
    EXPECT_EQ(list->pfnAdd(list, element.data(), 5), QX_ERR);
    EXPECT_EQ(list->pfnAdd(list, nullptr, 4), QX_ERR);
    EXPECT_EQ(list->pfnAdd(nullptr, element.data(), 4), QX_ERR);
    EXPECT_EQ(list->pfnFind(list, nullptr, element.data(), nullptr), QX_ERR);
    EXPECT_EQ(list->pfnFind(list, isLetter, element.data(), nullptr), QX_OK) << "only whether it is there";
    EXPECT_EQ(list->pfnRemove(list, nullptr, element.data()), QX_ERR);
    EXPECT_EQ(list->pfnForEach(list, nullptr, nullptr), QX_ERR);
    EXPECT_EQ(letters.text(), "a");
    EXPECT_EQ(ArrayList_GetArrayList(nullptr), nullptr);
}

TEST(ArrayList, StaysAsItWasWithoutMemory)
{
    if constexpr (sizeof(size_t) == 4) {
        const Letters letters(1);
        EXPECT_EQ(letters.list()->pfnAdd(letters.list(), "a", 0xFFFFFFF0U), QX_ERR_NO_MEMORY);
        EXPECT_EQ(letters.add('a'), QX_OK) << "no size was fixed";
    }
    if constexpr (NoMemory::kWorks) {
        const std::string element(1U << 20U, 'a');
        const Letters letters(1U << 20U);
        std::string model = "a";
        uint32_t added = letters.add('a');
        uint32_t visited = QX_OK;
        {
            Script script{letters, "", '\0'};
            const NoMemory noMemory;
            for (; added == QX_OK && model.size() < 64; model += 'a') {
                added = letters.list()->pfnAdd(letters.list(), element.data(), 1U << 20U);
            }
            visited = letters.list()->pfnForEach(letters.list(), play, &script);
        }
        EXPECT_EQ(added, QX_ERR_NO_MEMORY);
        EXPECT_EQ(visited, QX_ERR_NO_MEMORY) << "no copy to hand out";
        EXPECT_EQ(letters.text() + 'a', model);
    }
}

} // namespace
