// Files, sockets, the shell, events of the process, parameter lists.
#include "qx/event.h"
#include "qx/file.h"
#include "qx/host.h"
#include "qx/process.h"
#include "qx/socket.h"
#include "qx/xml.h"
#include "tests/support/processes.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

using zema::test::Scratch;
class System : public Scratch {};

TEST_F(System, ReadsAndRemovesFiles)
{
    const std::string path = dir_ + "/file";
    ASSERT_EQ(QX_OS_ExecShellCmd(("printf 'abc\\nde' >" + path).c_str()), 0U);
    void *const file = QX_OS_Fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_NE(fcntl(fileno(static_cast<FILE *>(file)), F_GETFD) & FD_CLOEXEC, 0);
    char out[] = "????";
    for (const char *line : {"ab", "c\n", "de"}) {
        EXPECT_EQ(QX_OS_Fgets(out, 3, file), out);
        EXPECT_STREQ(out, line);
    }
    EXPECT_EQ(QX_OS_Feof(file), 0);
    EXPECT_EQ(QX_OS_Fgets(out, 0xFFFFFFFF, file), nullptr);
    EXPECT_NE(QX_OS_Feof(file), 0);
    EXPECT_EQ(QX_OS_Fclose(file) + QX_OS_Remove(path.c_str()), 0);
    EXPECT_NE(QX_OS_Remove(path.c_str()), 0);
    for (const char *mode : {"", "0123456789abcdef", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(QX_OS_Fopen("/dev/null", mode), nullptr);
    }
    EXPECT_TRUE(QX_OS_Fopen(nullptr, "r") == nullptr && QX_OS_Fgets(out, 3, nullptr) == nullptr);
    EXPECT_TRUE(QX_OS_Feof(nullptr) != 0 && QX_OS_Fclose(nullptr) != 0 && QX_OS_Remove(nullptr) != 0);
}

TEST_F(System, RunsTheShellWithFreshSignals)
{
    const std::tuple<std::string, uint32_t> rows[] = {
        {"exit 255", 255},
        {"-x 2>/dev/null", 127},
        {"kill -TERM $$", 128 + SIGTERM}, // blocked here, and the pipe's signal ignored
        {"kill -PIPE $$", 128 + SIGPIPE},
        {"sleep 0.05; : >" + dir_ + "/late", 0},
        {"test -e " + dir_ + "/late", 0},
    };
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    signal(SIGPIPE, SIG_IGN);
    for (const auto &[line, result] : rows) {
        EXPECT_EQ(QX_OS_ExecShellCmd(line.c_str()), result) << line;
    }
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(QX_OS_ExecShellCmd("exit 0"), QX_ERR) << "its end is taken by someone else";
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(QX_OS_ExecShellCmd(nullptr), QX_ERR);
}

TEST_F(System, NamesErrorsOfSockets)
{
    const int32_t fd = QX_OS_Socket(2, 2, 0);
    int waiting = -1;
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(QX_OS_IoctlSocket(fd, FIONREAD, &waiting) + waiting, 0);
    EXPECT_EQ(QX_OS_CloseSocket(fd), 0);
    EXPECT_LT(QX_OS_IoctlSocket(fd, FIONREAD, &waiting), 0);
    EXPECT_STREQ(QX_OS_StrError(QX_OS_GetLastErr()), "Bad file descriptor");
    EXPECT_LT(QX_OS_Close(fd), 0);
    EXPECT_LT(QX_OS_Socket(-1, 2, 0), 0);
    EXPECT_STREQ(QX_OS_StrError(-1), "Unknown error");
}

std::vector<void *> received;

TEST_F(System, RaisesEventsWithinTheProcess)
{
    constexpr uintptr_t kValue = 0x80000001U;
    const QxEventHandler receive = [](void *data) { return received.push_back(data), 1U; };
    EXPECT_EQ(EventCenter_InvokeEvent(8850, 3, 0, 0) + EventCenter_SubscribeEvent(8850, receive), QX_OK);
    EXPECT_EQ(EventCenter_InvokeEvent(8850, kValue, 0, 0) + EventCenter_InvokeEvent(8851, 1, 0, 0), QX_OK);
    EXPECT_EQ(EventCenter_RemoveEvent(8850, receive) + EventCenter_InvokeEvent(8850, 2, 0, 0), QX_OK);
    EXPECT_EQ(received, std::vector{reinterpret_cast<void *>(kValue)});
}

TEST_F(System, ReadsBackWhatWasAppended)
{
    QxParaList *const list = QxHost_ParaListOpen();
    QxParaList *const other = QxHost_ParaListOpen();
    for (uint32_t i = 0; i < 100; ++i) {
        EXPECT_EQ(QX_XML_DBAppendAllParaToParaList(list, i, 1, 2, 3, 4, 5), QX_OK);
    }
    std::array<QxParaSelection, 101> read{};
    EXPECT_EQ(QxHost_ParaListRead(list, read.data(), 99), 100U);
    EXPECT_EQ(read[99].aulValue[5], 0U) << "no more than there is room for";
    EXPECT_EQ(QxHost_ParaListRead(list, read.data(), read.size()), 100U);
    for (uint32_t i = 0; i < 100; ++i) {
        const uint32_t expected[] = {i, 1, 2, 3, 4, 5};
        EXPECT_EQ(std::memcmp(read[i].aulValue, expected, sizeof expected), 0) << i;
    }
    EXPECT_EQ(QxHost_ParaListRead(other, nullptr, 0) + QxHost_ParaListClose(list), 0U);
    EXPECT_EQ(QX_XML_DBAppendAllParaToParaList(list, 0, 0, 0, 0, 0, 0), QX_ERR_NOT_FOUND);
    EXPECT_EQ(QxHost_ParaListClose(list), QX_ERR_NOT_FOUND);
    EXPECT_EQ(QxHost_ParaListClose(other), QX_OK);
}

} // namespace
