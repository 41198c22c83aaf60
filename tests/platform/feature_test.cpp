#include "qx/feature.h"

#include "tests/support/processes.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

namespace {

class Feature : public zema::test::Scratch {
protected:
    Feature() { lists("", ""); }
    ~Feature() override { lists("", ""); }

    static void lists(const std::string &names, const std::string &file)
    {
        setenv("ZEMA_FEATURES", names.c_str(), 1);
        setenv("ZEMA_FEATURES_FILE", file.c_str(), 1);
    }

    static void write(const std::string &path, const std::string &content)
    {
        std::ofstream(path + ".new", std::ios::binary) << content;
        std::filesystem::rename(path + ".new", path);
    }

    static uint32_t isOn(const std::string &name) { return QX_Feature_IsSupportByFeatureName(name.c_str()); }

    std::string file_ = dir_ + "/features";
};

TEST_F(Feature, IsOnWhenAListHoldsItsWholeName)
{
    const std::tuple<const char *, std::string, std::string, uint32_t> rows[] = {
        // with ';' for what separates
        {"alone", "ZEMA_FT_A", "ZEMA_FT_A", 1},
        {"last, after its own beginnings", "Z;ZEMA_FT;;ZEMA_FT_A", "ZEMA_FT_A", 1},
        {"in between", "B;ZEMA_FT_A;C", "ZEMA_FT_A", 1},
        {"begins another", "ZEMA_FT_AB;B", "ZEMA_FT_A", 0},
        {"begins again inside another", "ZEMA_ZEMA_FT_A", "ZEMA_FT_A", 0},
        {"other case", "zema_ft_a", "ZEMA_FT_A", 0},
        {"a blank is part of a name", " ZEMA_FT_A;ZEMA_FT_A ", "ZEMA_FT_A", 0},
        {"an empty list", "", "ZEMA_FT_A", 0},
        {"no name, and an empty one in the list", ";;", "", 0},
        {"behind names of any length", std::string(5000, 'Z') + ";ZEMA_FT_A", "ZEMA_FT_A", 1},
        {"over the border of two reads", std::string(2043, 'x') + ";ZEMA_FT_A;y", "ZEMA_FT_A", 1},
    };
    for (const auto &[reason, list, name, on] : rows) {
        for (const char separator : {',', '\n'}) {
            std::string names = list;
            std::ranges::replace(names, ';', separator);
            lists(separator == ',' ? names : "", "");
            write(file_, separator == ',' ? "" : names);
            EXPECT_EQ(isOn(name), on) << reason << (separator == ',' ? ", environment" : ", file");
        }
    }
    EXPECT_EQ(QX_Feature_IsSupportByFeatureName(nullptr), 0U);
    lists("A,B\nC", "");
    write(file_, "A,B\nC\n");
    EXPECT_EQ(isOn("A,B"), 1U) << "a comma separates in the environment only";
    EXPECT_EQ(isOn("B\nC"), 1U) << "a line's end in the file only";
}

TEST_F(Feature, FollowsItsListsAtEveryCall)
{
    EXPECT_EQ(isOn("A"), 0U);
    write(file_, "A\n");
    EXPECT_EQ(isOn("A"), 1U);
    write(file_, "B\n");
    EXPECT_EQ(isOn("A"), 0U) << "a file of the same size";
    lists("A", "");
    EXPECT_EQ(isOn("A") + isOn("B"), 2U) << "either list";
    write(dir_ + "/other", "C\n");
    lists("A", dir_ + "/other");
    EXPECT_EQ(isOn("C"), 1U);
    EXPECT_EQ(isOn("B"), 0U) << "the named file stands in for the other";
    std::filesystem::remove(dir_ + "/other");
    EXPECT_EQ(isOn("C"), 0U);
}

TEST_F(Feature, TakesNothingFromWhatIsNoList)
{
    const std::string whole = std::string(QX_FEATURES_FILE_MAX - 3, 'x') + "\nA\n";
    write(file_, whole);
    EXPECT_EQ(isOn("A"), 1U) << "as large as it may be";
    write(file_, whole + "\n");
    EXPECT_EQ(isOn("A"), 0U) << "one byte larger";
    write(file_, std::string("A\0\n\0A\n\xFF\xFE", 8));
    EXPECT_EQ(isOn("A"), 0U) << "zeros end no name";
    std::filesystem::remove(file_);
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_EQ(isOn("A"), 0U) << "a pipe that nobody writes to";
    const int pipe = open(file_.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::write(pipe, "A\n", 2), 2);
    EXPECT_EQ(isOn("A"), 0U) << "nor one with the name in it";
    close(pipe);
    for (const char *path : {"/dev/zero", "/", "/proc/self/mem", "/nowhere/features"}) {
        lists("", path);
        EXPECT_EQ(isOn("A"), 0U) << path;
    }
}

} // namespace
