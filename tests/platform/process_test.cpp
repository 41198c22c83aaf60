#include "qx/process.h"

#include "qx/host.h"
#include "tests/platform/surroundings.h"
#include "tests/support/processes.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using zema::test::inThreads;

// Puts fd in the place of standard output while it lives.
class Console {
public:
    explicit Console(int fd)
    {
        std::fflush(stdout);
        dup2(fd, STDOUT_FILENO);
        close(fd);
    }
    ~Console()
    {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

private:
    int saved_ = dup(STDOUT_FILENO);
};

// What print writes to a console that takes little at a time and never waits.
template <typename Print>
std::string printed(Print print)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    std::string text;
    text.reserve(4U << 20U); // the reader must not need memory while there is none
    std::thread reader([&] {
        std::array<char, 4096> part{};
        for (ssize_t size = 1; size > 0;
             text.append(part.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)))) {
            size = read(ends[0], part.data(), part.size());
        }
    });
    {
        const Console console(ends[1]);
        print();
    }
    reader.join();
    close(ends[0]);
    return text;
}

TEST(Console, WritesTextsOfEverySizeWhole)
{
    for (const size_t size : {0U, 1U, 1020U, 1021U, 1022U, 1023U, 1024U, 300000U}) {
        const std::string text(size, 'x');
        uint32_t result = QX_ERR;
        const std::string seen = printed([&] { result = QX_OS_Printf("%s|%d", text.c_str(), 7); });
        EXPECT_EQ(result, QX_OK) << size;
        EXPECT_EQ(seen, text + "|7") << size;
    }
}

TEST(Console, KeepsTextsOfThreadsApart)
{
    const std::string text = printed([] {
        inThreads(3, [](uint32_t thread) {
            for (int i = 0; i < 4; ++i) {
                EXPECT_EQ(QX_OS_Printf("%s", std::string(100000, "abc"[thread]).c_str()), QX_OK);
            }
        });
    });
    ASSERT_EQ(text.size(), 1200000U);
    for (size_t i = 0; i < text.size(); i += 100000) {
        EXPECT_EQ(std::count(&text[i], &text[i] + 100000, text[i]), 100000) << "from " << i;
    }
}

TEST(Console, TellsThatItCouldNotWrite)
{
    const char *const volatile missing = nullptr;
    EXPECT_NE(QX_OS_Printf(missing, 1), QX_OK);
    for (const char *path : {"/dev/full", "/dev/null"}) {
        const Console console(open(path, std::strcmp(path, "/dev/full") == 0 ? O_WRONLY : O_RDONLY));
        EXPECT_NE(QX_OS_Printf("%d", 1), QX_OK) << path;
        EXPECT_NE(QX_OS_BackTrace("file", 1), QX_OK) << path;
    }
    if constexpr (NoMemory::kWorks) {
        const std::string text(4U << 20U, 'x');
        uint32_t result = QX_OK;
        const std::string seen = printed([&] {
            const NoMemory noMemory;
            result = QX_OS_Printf("%s", text.c_str());
        });
        EXPECT_EQ(seen, text.substr(0, 1023)) << "as much as needs no memory";
        EXPECT_EQ(result, QX_ERR_NO_MEMORY);
    }
}

TEST(Console, ShowsTheCallStack)
{
    const std::string text = printed([] { EXPECT_EQ(QX_OS_BackTrace("layer_base.cpp", 77), QX_OK); });
    EXPECT_NE(text.find(" at layer_base.cpp:77\n"), std::string::npos) << text;
    EXPECT_NE(text.find("platform_test+0x"), std::string::npos) << "names the object of the caller: " << text;
    // ARM code without exceptions has no unwind tables: there the stack ends at the caller.
    const long frames = std::count(text.begin(), text.end(), '\n') - 1;
#ifdef __arm__
    EXPECT_GE(frames, 1) << text;
#else
    EXPECT_GT(frames, 2) << text;
#endif
    EXPECT_EQ(text.back(), '\n');
}

TEST(Process, TellsThreadsApart)
{
    struct Ids {
        uint32_t process = QX_OS_GetPID(), thread = QX_OS_GetThreadID(), self = QX_OS_PthreadSelf();
    };
    const Ids mine;
    Ids other;
    std::thread([&] { other = Ids(); }).join();
    EXPECT_EQ(mine.process, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(mine.thread, mine.process);
    EXPECT_EQ(other.process, mine.process);
    EXPECT_NE(other.thread, mine.thread);
    EXPECT_NE(other.self, mine.self);
}

TEST(Process, ReportsTheStateThatTheHostSet)
{
    uint32_t state = 9;
    EXPECT_EQ(QX_OS_StatGet(&state), QX_OK);
    EXPECT_EQ(state, 0U);
    EXPECT_EQ(QxHost_SetState(0x80000003U), QX_OK);
    EXPECT_EQ(QX_OS_StatGet(&state), QX_OK);
    EXPECT_EQ(state, 0x80000003U);
    EXPECT_EQ(QX_OS_StatGet(nullptr), QX_ERR);
    QxHost_SetState(0);
}

TEST(Mutex, TellsThatItsOwnerWouldWaitForItself)
{
    QxMutex mutex;
    ASSERT_EQ(QX_OS_MutexInit(&mutex, 0), QX_OK);
    EXPECT_EQ(QX_OS_MutexLock(&mutex), QX_OK);
    EXPECT_EQ(QX_OS_MutexLock(&mutex), static_cast<uint32_t>(EDEADLK));
    EXPECT_EQ(QX_OS_MutexUnLock(&mutex), QX_OK);
    EXPECT_EQ(QX_OS_MutexDestroy(&mutex), QX_OK);
    EXPECT_EQ(QX_OS_MutexInit(nullptr, 0), QX_ERR);
    EXPECT_EQ(QX_OS_MutexLock(nullptr), QX_ERR);
    EXPECT_EQ(QX_OS_MutexUnLock(nullptr), QX_ERR);
    EXPECT_EQ(QX_OS_MutexDestroy(nullptr), QX_ERR);
}

} // namespace
