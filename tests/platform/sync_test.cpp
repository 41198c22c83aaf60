// Synchronous requests: what reaches the owner and comes back, and what an owner's absence, death or silence
// costs.
#include "platform/linux/frame.h"
#include "qx/data_sync.h"
#include "tests/support/processes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <numeric>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace {

using namespace zema::test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

enum Code : uint32_t { kCount = 16, kFail, kHang, kDie, kAskAgain };

constexpr uint32_t kRefusal = 0xBAD5;
constexpr std::byte kUnset{0xA5};
constexpr uint16_t kSizes[] = {0, 1, 32, 475, 476, 477, 65535};
constexpr uint16_t kReplySizes[] = {0, 1, 516, 65535};

struct Owned {
    std::atomic<uint32_t> pid{0};
    std::atomic<uint32_t> requests{0};
};
Owned *gOwned = nullptr;

// The reply counts up from the sum of the request's bytes.
void fill(const QxSyncRequest &request, std::byte *reply)
{
    const auto *const bytes = static_cast<const uint8_t *>(request.pvData);
    uint32_t next = std::accumulate(bytes, bytes + request.ulSize, 0U);
    std::generate(reply, reply + request.ulReplySize, [&] { return static_cast<std::byte>(next++); });
}

uint32_t answer(void *context, const QxSyncRequest *request)
{
    EXPECT_EQ(context, &gOwned);
    gOwned->requests++;
    gOwned->pid = request->ulPid;
    fill(*request, static_cast<std::byte *>(request->pvReply));
    switch (request->ulCode) {
    case kFail:
        return kRefusal;
    case kHang:
        pause();
        return 0;
    case kDie:
        _exit(0);
    case kAskAgain:
        return DataSync_SyncData(kFail, request->pvData, request->ulSize);
    default:
        return 0;
    }
}

void own()
{
    EXPECT_EQ(QxHost_ServeSync(answer, &gOwned), QX_OK);
}

class Sync : public Scratch {
protected:
    Sync() { gOwned = &*owned_; }

    // Asks for a reply of so many bytes, and looks at them and at what stands around them.
    static uint32_t ask(uint32_t code, uint16_t size, uint16_t replySize)
    {
        const std::vector<std::byte> data(size, std::byte{3});
        std::vector<std::byte> reply(replySize + 2U, kUnset);
        const uint32_t result = DataSync_SyncData1(code, data.data(), size, &reply[1], replySize);
        std::vector<std::byte> expected(replySize + 2U, kUnset);
        if (result == QX_OK) {
            fill({code, 0, data.data(), size, nullptr, replySize}, &expected[1]);
        }
        EXPECT_TRUE(reply == expected) << "of " << size << " bytes for " << replySize;
        return result;
    }

    Shared<Owned> owned_;
};

TEST_F(Sync, CarriesRequestsAndRepliesOfAllSizes)
{
    const auto check = [](uint32_t pid) {
        for (const uint16_t size : kSizes) {
            for (const uint16_t replySize : kReplySizes) {
                EXPECT_EQ(ask(kCount, size, replySize), QX_OK);
                EXPECT_EQ(gOwned->pid, pid);
            }
        }
        EXPECT_EQ(DataSync_SyncData(kCount, "abcd", 4), QX_OK);
        EXPECT_EQ(DataSync_SyncData(kCount, "abcd", 65536), QX_ERR_TOO_LARGE);
        EXPECT_EQ(DataSync_SyncData1(kCount, nullptr, 1, nullptr, 0), QX_ERR);
        EXPECT_EQ(DataSync_SyncData1(kCount, nullptr, 0, nullptr, 1), QX_ERR);
        EXPECT_EQ(DataSync_SyncData(kFail, "abcd", 4), kRefusal);
        EXPECT_EQ(DataSync_SyncData(kAskAgain, "abcd", 4), kRefusal) << "a handler may ask its own process";
        EXPECT_EQ(gOwned->requests, std::size(kSizes) * std::size(kReplySizes) + 4);
    };
    const auto self = static_cast<uint32_t>(getpid());
    Child owner(own);
    check(self);
    EXPECT_EQ(ask(kFail, 8, 100), kRefusal) << "and no byte of the reply is written";
    owner.end(SIGKILL);
    owned_->requests = 0;
    own();
    check(self);
}

TEST_F(Sync, AHandlerNeitherDispatchesNorLeaves)
{
    const QxSyncHandler handler = [](void *, const QxSyncRequest *) {
        return QxHost_Dispatch(0) == QX_ERR_BUSY && QxHost_Leave() == QX_ERR_BUSY ? 0U : 1U;
    };
    ASSERT_EQ(QxHost_ServeSync(handler, nullptr), QX_OK);
    EXPECT_EQ(DataSync_SyncData(1, nullptr, 0), QX_OK) << "nor when it is its own process that asks";
    EXPECT_EQ(QxHost_Dispatch(0), QX_ERR_TIMEOUT) << "and afterwards all is as before";
}

TEST_F(Sync, OwnerIsOneAtATime)
{
    Child owner(own);
    EXPECT_EQ(QxHost_ServeSync(answer, &gOwned), QX_ERR_TAKEN);
    owner.end(SIGKILL);
    EXPECT_EQ(QxHost_ServeSync(answer, &gOwned), QX_OK);
    EXPECT_EQ(QxHost_ServeSync(nullptr, nullptr), QX_OK);
    EXPECT_EQ(ask(kCount, 4, 4), QX_ERR_NOBODY);
    const Child next(own);
    EXPECT_EQ(ask(kCount, 4, 4), QX_OK);
}

TEST_F(Sync, AnOwnerThatIsAbsentDiesOrHangsCostsABoundedTime)
{
    struct Row {
        const char *reason;
        uint32_t code;
        int signal; // sent to the owner beforehand
        uint32_t result;
    };
    const Row rows[] = {
        {"no owner", kCount, SIGKILL, QX_ERR_NOBODY},
        {"dies over the request", kDie, 0, QX_ERR_PEER_GONE},
        {"hangs in the handler", kHang, 0, QX_ERR_TIMEOUT},
        {"stopped", kCount, SIGSTOP, QX_ERR_TIMEOUT},
    };
    QxHost_SetTimeout(200);
    for (const Row &row : rows) {
        Child owner(own);
        EXPECT_EQ(ask(kCount, 4, 100), QX_OK) << row.reason << ": the owner before it";
        row.signal == SIGKILL ? (void)owner.end(SIGKILL) : owner.tell(row.signal);
        const auto start = steady_clock::now();
        EXPECT_EQ(ask(row.code, 4, 100), row.result) << row.reason;
        EXPECT_LT(steady_clock::now() - start, milliseconds(3000)) << row.reason;
    }
}

// An owner that breaks the rules: it answers the first request with bytes of the test's own.
void answerWith(const std::string &dir, qx::FrameHeader header, size_t payload, uid_t user)
{
    const std::string name = std::to_string(getpid()) + "-0000abcd";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/bus/%s", dir.c_str(), name.c_str());
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_EQ(listen(listener, 4) + seteuid(getuid()), 0);
    const std::ofstream claim(dir + "/roles/sync-owner.0000000000000001." + name);
    if (fork() != 0) {
        return;
    }
    const int fd = accept(listener, nullptr, nullptr);
    qx::FrameHeader request{};
    (void)recv(fd, &request, sizeof request, 0);
    header.serial += request.serial;
    std::vector<std::byte> bytes(sizeof header + payload);
    memcpy(bytes.data(), &header, sizeof header);
    (void)send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    (void)recv(fd, &request, sizeof request, 0); // until the other side hangs up
    _exit(0);
}

TEST_F(Sync, RepliesAreNotTrusted)
{
    struct Row {
        const char *reason;
        qx::FrameKind kind;
        uint32_t length;
        size_t payload;
        uint32_t serial; // beyond the request's
        uint32_t result;
        uid_t user = geteuid();
    };
    using enum qx::FrameKind;
    const Row rows[] = {
        {"what was asked for", reply, 8, 8, 0, QX_OK},
        {"no payload", reply, 0, 0, 0, QX_ERR_PROTOCOL},
        {"a byte short", reply, 7, 7, 0, QX_ERR_PROTOCOL},
        {"a byte more", reply, 9, 9, 0, QX_ERR_PROTOCOL},
        {"much more", reply, 60000, 60000, 0, QX_ERR_PROTOCOL},
        {"a length that is not the payload's", reply, 9, 8, 0, QX_ERR_PROTOCOL},
        {"no reply", event, 8, 8, 0, QX_ERR_PROTOCOL},
        {"a reply to something else", reply, 8, 8, 1, QX_ERR_TIMEOUT},
        {"another user's, as far as this one may be it", reply, 8, 8, 0,
         geteuid() == 0 ? QX_ERR_PROTOCOL : QX_OK, geteuid() == 0 ? 65534 : geteuid()},
    };
    QxHost_SetTimeout(100);
    for (const Row &row : rows) {
        QxHost_Leave();
        Shared<std::atomic<bool>> done;
        const pid_t child = fork(); // its place on the bus ends with it
        if (child == 0) {
            EXPECT_EQ(DataSync_SyncData(0, nullptr, 0), QX_ERR_NOBODY);
            qx::FrameHeader header = qx::frameOf(row.kind, QX_OK);
            header.length = row.length;
            header.serial = row.serial;
            answerWith(dir_, header, row.payload, row.user);
            done->store(true);
            pause();
        }
        EXPECT_TRUE(eventually([&] { return done->load(); }));
        std::array<std::byte, 16> room;
        room.fill(kUnset);
        EXPECT_EQ(DataSync_SyncData1(kCount, "abcd", 4, room.data(), 8), row.result) << row.reason;
        EXPECT_TRUE(std::all_of(room.begin() + 8, room.end(), [](std::byte byte) { return byte == kUnset; }))
            << row.reason;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::filesystem::remove_all(dir_ + "/bus");
        std::filesystem::remove_all(dir_ + "/roles");
    }
}

} // namespace
