#include "qx/feature.h"

#include "tests/support/processes.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

namespace {

constexpr const char *kFeature = "ZEMA_FT_A";

class Feature : public zema::test::Scratch {
protected:
    Feature() { clear(); }
    ~Feature() override { clear(); }

    static void clear()
    {
        unsetenv("ZEMA_FEATURES");
        unsetenv("ZEMA_FEATURES_FILE");
    }

    static void write(const std::string &path, const std::string &content)
    {
        std::ofstream(path + ".new", std::ios::binary) << content;
        std::filesystem::rename(path + ".new", path);
    }

    static bool isOn(const std::string &name = kFeature)
    {
        const uint32_t answer = QX_Feature_IsSupportByFeatureName(name.c_str());
        EXPECT_LE(answer, 1U);
        return answer != 0;
    }

    std::string file_ = dir_ + "/features";
};

TEST_F(Feature, IsOnWhenAListHoldsItsWholeName)
{
    struct Row {
        const char *reason;
        std::string list; // with ';' for what separates
        std::string name;
        bool on;
    };
    const Row rows[] = {
        {"alone", "ZEMA_FT_A", kFeature, true},
        {"last, after its own beginnings", "Z;ZEMA_FT;;ZEMA_FT_A", kFeature, true},
        {"in between", "B;ZEMA_FT_A;C", kFeature, true},
        {"begins another", "ZEMA_FT_AB;B", kFeature, false},
        {"begins again inside another", "ZEMA_ZEMA_FT_A", kFeature, false},
        {"other case", "zema_ft_a", kFeature, false},
        {"a blank is part of a name", " ZEMA_FT_A;ZEMA_FT_A ", kFeature, false},
        {"an empty list", "", kFeature, false},
        {"no name, and an empty one in the list", ";;", "", false},
        {"behind names of any length", std::string(5000, 'Z') + ";ZEMA_FT_A", kFeature, true},
        {"over the border of two reads", std::string(2043, 'x') + ";ZEMA_FT_A;y", kFeature, true},
    };
    for (const Row &row : rows) {
        for (const char separator : {',', '\n'}) {
            std::string list = row.list;
            std::ranges::replace(list, ';', separator);
            clear();
            std::filesystem::remove(file_);
            separator == ',' ? void(setenv("ZEMA_FEATURES", list.c_str(), 1)) : write(file_, list);
            EXPECT_EQ(isOn(row.name), row.on)
                << row.reason << (separator == ',' ? ", environment" : ", file");
        }
    }
    EXPECT_EQ(QX_Feature_IsSupportByFeatureName(nullptr), 0U);
    setenv("ZEMA_FEATURES", "A,B\nC", 1);
    write(file_, "A,B\nC\n");
    EXPECT_TRUE(isOn("A,B")) << "a comma separates in the environment only";
    EXPECT_TRUE(isOn("B\nC")) << "a line's end in the file only";
    EXPECT_FALSE(isOn("A,B\nC"));
}

TEST_F(Feature, FollowsItsListsAtEveryCall)
{
    EXPECT_FALSE(isOn());
    write(file_, "ZEMA_FT_A\n");
    EXPECT_TRUE(isOn());
    write(file_, "ZEMA_FT_B\n");
    EXPECT_FALSE(isOn()) << "a file of the same size";
    setenv("ZEMA_FEATURES", kFeature, 1);
    EXPECT_TRUE(isOn()) << "either list";
    EXPECT_TRUE(isOn("ZEMA_FT_B"));
    write(dir_ + "/other", "ZEMA_FT_C\n");
    setenv("ZEMA_FEATURES_FILE", (dir_ + "/other").c_str(), 1);
    EXPECT_TRUE(isOn("ZEMA_FT_C"));
    EXPECT_FALSE(isOn("ZEMA_FT_B")) << "the named file stands in for the other";
    std::filesystem::remove(dir_ + "/other");
    EXPECT_FALSE(isOn("ZEMA_FT_C"));
    setenv("ZEMA_FEATURES_FILE", "", 1);
    EXPECT_TRUE(isOn("ZEMA_FT_B")) << "an empty name is none";
}

TEST_F(Feature, TakesNothingFromWhatIsNoList)
{
    const std::string whole = std::string(QX_FEATURES_FILE_MAX - 11, 'x') + "\nZEMA_FT_A\n";
    write(file_, whole);
    EXPECT_TRUE(isOn()) << "as large as it may be";
    write(file_, whole + "\n");
    EXPECT_FALSE(isOn()) << "one byte larger";
    write(file_, std::string("ZEMA_FT_A\0\n\0ZEMA_FT_A\n\xFF\xFE", 24));
    EXPECT_FALSE(isOn()) << "zeros end no name";
    std::filesystem::remove(file_);
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_FALSE(isOn()) << "a pipe that nobody writes to";
    const int pipe = open(file_.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::write(pipe, "ZEMA_FT_A\n", 10), 10);
    EXPECT_FALSE(isOn()) << "nor one with the name in it";
    close(pipe);
    std::filesystem::remove(file_);
    for (const char *path : {"/dev/zero", "/", "/proc/self/mem", "/nowhere/features"}) {
        setenv("ZEMA_FEATURES_FILE", path, 1);
        EXPECT_FALSE(isOn()) << path;
    }
}

} // namespace
