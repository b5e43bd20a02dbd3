// A service facing a hostile or broken client on its raw socket: garbage,
// truncated and oversized frames, bad tokens and lengths inside a call. The
// service answers with an error or drops the connection, never crashes or
// allocates for data that was never sent.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "ServiceProcess.h"
#include "platform/host/binder_ndk/InterfaceToken.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Wire.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::ITestService;
using android::base::unique_fd;
using binder::FrameKind;
using binder::IoStatus;

constexpr uint32_t kEchoString = FIRST_CALL_TRANSACTION + 0;
constexpr uint32_t kEchoInts = FIRST_CALL_TRANSACTION + 10;

class MalformedInputTest : public ServiceTest {
  protected:
    // A raw connection to the service's socket.
    unique_fd Connect() {
        unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string path =
                mRoot.path() + "/dev/binderfs/sm/" + binder::SocketNameFor(TestServiceInstance());
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        return fd;
    }

    // True when the service closes `fd` (rather than answering); closing with
    // our bytes still unread resets the connection.
    static bool ClosedByPeer(int fd) {
        char byte;
        ssize_t n = recv(fd, &byte, 1, 0);
        return n == 0 || (n < 0 && errno == ECONNRESET);
    }

    // A raw call's reply status.
    static int32_t CallStatus(int fd, uint32_t code, const AParcel& request) {
        std::vector<unique_fd> noFds;
        if (binder::SendFrame(fd, FrameKind::kCall, code, 0, request.data.data(),
                              request.data.size(), noFds, std::nullopt) != IoStatus::kOk) {
            return 1;
        }
        binder::Frame reply;
        if (binder::ReceiveFrame(fd, &reply, std::nullopt) != IoStatus::kOk) return 2;
        return static_cast<int32_t>(reply.header.code);
    }

    void ExpectServiceAlive() {
        int32_t value = 0;
        ASSERT_TRUE(mService->echoInt(123, &value).isOk());
        EXPECT_EQ(value, 123);
    }

    // The service's resident memory, in KiB.
    long ServiceRssKb() {
        std::ifstream status("/proc/" + std::to_string(mServicePid) + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
        }
        return -1;
    }

    static AParcel RequestWithToken(const std::string& descriptor) {
        AParcel request;
        EXPECT_EQ(binder::WriteInterfaceToken(&request, descriptor), STATUS_OK);
        return request;
    }
};

binder::FrameHeader Header(uint32_t dataSize, uint32_t fdCount) {
    // The header of a well-formed empty frame, then adjusted.
    int sv[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, sv);
    std::vector<unique_fd> none;
    binder::SendFrame(sv[0], FrameKind::kCall, kEchoString, 0, nullptr, 0, none, std::nullopt);
    binder::FrameHeader header{};
    recv(sv[1], &header, sizeof(header), 0);
    close(sv[0]);
    close(sv[1]);
    header.dataSize = dataSize;
    header.fdCount = fdCount;
    return header;
}

TEST_F(MalformedInputTest, GarbageClosesTheConnection) {
    unique_fd fd = Connect();
    const char garbage[64] = "this is not a binder frame at all, not even close........";
    ASSERT_EQ(send(fd.get(), garbage, sizeof(garbage), MSG_NOSIGNAL), 64);
    EXPECT_TRUE(ClosedByPeer(fd.get()));
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, TruncatedFrameFromAClientThatLeaves) {
    unique_fd fd = Connect();
    binder::FrameHeader header = Header(100, 0);
    ASSERT_EQ(send(fd.get(), &header, sizeof(header), MSG_NOSIGNAL),
              static_cast<ssize_t>(sizeof(header)));
    ASSERT_EQ(send(fd.get(), "0123456789", 10, MSG_NOSIGNAL), 10);
    fd.reset();
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, OversizedFrameOrTooManyDescriptorsCloseTheConnection) {
    unique_fd big = Connect();
    binder::FrameHeader header = Header(64u << 20, 0);
    ASSERT_EQ(send(big.get(), &header, sizeof(header), MSG_NOSIGNAL),
              static_cast<ssize_t>(sizeof(header)));
    EXPECT_TRUE(ClosedByPeer(big.get()));

    unique_fd many = Connect();
    header = Header(0, 1000);
    ASSERT_EQ(send(many.get(), &header, sizeof(header), MSG_NOSIGNAL),
              static_cast<ssize_t>(sizeof(header)));
    EXPECT_TRUE(ClosedByPeer(many.get()));

    // Announces one descriptor and sends none.
    unique_fd missing = Connect();
    header = Header(0, 1);
    ASSERT_EQ(send(missing.get(), &header, sizeof(header), MSG_NOSIGNAL),
              static_cast<ssize_t>(sizeof(header)));
    EXPECT_TRUE(ClosedByPeer(missing.get()));
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, WrongInterfaceTokenIsBadType) {
    unique_fd fd = Connect();
    AParcel request = RequestWithToken("evil.IImpostor");
    ASSERT_EQ(AParcel_writeString(&request, "x", 1), STATUS_OK);
    EXPECT_EQ(CallStatus(fd.get(), kEchoString, request), STATUS_BAD_TYPE);

    AParcel noToken;
    ASSERT_EQ(AParcel_writeInt32(&noToken, 5), STATUS_OK);
    EXPECT_EQ(CallStatus(fd.get(), kEchoString, noToken), STATUS_BAD_TYPE);
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, OverlongLengthsInsideACallAreErrors) {
    unique_fd fd = Connect();
    AParcel hugeArray = RequestWithToken(ITestService::descriptor);
    ASSERT_EQ(AParcel_writeInt32(&hugeArray, 0x7fffffff), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(&hugeArray, 1), STATUS_OK);
    EXPECT_EQ(CallStatus(fd.get(), kEchoInts, hugeArray), STATUS_NOT_ENOUGH_DATA);

    AParcel longString = RequestWithToken(ITestService::descriptor);
    ASSERT_EQ(AParcel_writeInt32(&longString, 1000), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(&longString, 0x00610061), STATUS_OK);
    EXPECT_EQ(CallStatus(fd.get(), kEchoString, longString), STATUS_NOT_ENOUGH_DATA);

    AParcel negative = RequestWithToken(ITestService::descriptor);
    ASSERT_EQ(AParcel_writeInt32(&negative, -7), STATUS_OK);
    EXPECT_EQ(CallStatus(fd.get(), kEchoInts, negative), STATUS_BAD_VALUE);

    AParcel truncated = RequestWithToken(ITestService::descriptor);
    EXPECT_EQ(CallStatus(fd.get(), FIRST_CALL_TRANSACTION + 2, truncated), STATUS_NOT_ENOUGH_DATA);

    AParcel unknownCode = RequestWithToken(ITestService::descriptor);
    EXPECT_EQ(CallStatus(fd.get(), 0x00ffff00, unknownCode), STATUS_UNKNOWN_TRANSACTION);
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, PromisedButUnsentDataCostsNoMemory) {
    const long before = ServiceRssKb();
    ASSERT_GT(before, 0);
    // Eight clients each announce a 16 MiB parcel and send 1 KiB of it.
    std::vector<unique_fd> clients;
    const std::string kilobyte(1024, 'k');
    for (int i = 0; i < 8; ++i) {
        clients.push_back(Connect());
        binder::FrameHeader header = Header(16u << 20, 0);
        ASSERT_EQ(send(clients.back().get(), &header, sizeof(header), MSG_NOSIGNAL),
                  static_cast<ssize_t>(sizeof(header)));
        ASSERT_EQ(send(clients.back().get(), kilobyte.data(), kilobyte.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(kilobyte.size()));
    }
    // The service keeps serving others meanwhile.
    ExpectServiceAlive();
    const long after = ServiceRssKb();
    EXPECT_LT(after - before, 16 * 1024) << "RSS grew from " << before << " to " << after;
}

}  // namespace
}  // namespace zelkor::tessel::testing
