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
using binder::IoStatus;

constexpr uint32_t kEchoUtf8 = FIRST_CALL_TRANSACTION + 0;
constexpr uint32_t kEchoInt = FIRST_CALL_TRANSACTION + 1;
constexpr uint32_t kEchoBytes = FIRST_CALL_TRANSACTION + 2;

// A call's frame header: magic "TBND", version 1, kind 1 (call), code,
// flags, data size, descriptor count.
std::string Header(uint32_t code, uint32_t dataSize, uint32_t fdCount) {
    binder::FrameHeader header{0, 1, 1, code, 0, dataSize, fdCount};
    memcpy(&header.magic, "TBND", 4);
    return std::string(reinterpret_cast<const char*>(&header), sizeof(header));
}

class MalformedInputTest : public ServiceTest {
  protected:
    // A raw connection to the service's socket, after `bytes` sent on it.
    unique_fd Connect(const std::string& bytes = "") {
        unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string path =
                mRoot.path() + "/dev/binderfs/sm/" + binder::SocketNameFor(TestServiceInstance());
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        return fd;
    }

    // A connection that has sent a frame header for `dataSize` bytes and
    // `fdCount` descriptors, then `bytes`.
    unique_fd SendHeader(uint32_t dataSize, uint32_t fdCount, const std::string& bytes = "") {
        return Connect(Header(kEchoUtf8, dataSize, fdCount) + bytes);
    }

    // True when the service closes `fd` (rather than answering); closing with
    // our bytes still unread resets the connection.
    static bool ClosedByPeer(int fd) {
        char byte;
        ssize_t n = recv(fd, &byte, 1, 0);
        return n == 0 || (n < 0 && errno == ECONNRESET);
    }

    // The reply status to a raw call on `fd` with the interface token for
    // `descriptor` (none when empty) and then `words`.
    static int32_t CallStatus(int fd, uint32_t code, const std::string& descriptor,
                              const std::vector<int32_t>& words) {
        AParcel request;
        if (!descriptor.empty()) {
            EXPECT_EQ(binder::WriteInterfaceToken(&request, descriptor), STATUS_OK);
        }
        for (int32_t word : words) EXPECT_EQ(AParcel_writeInt32(&request, word), STATUS_OK);
        const std::string frame = Header(code, static_cast<uint32_t>(request.data.size()), 0) +
                                  std::string(reinterpret_cast<const char*>(request.data.data()),
                                              request.data.size());
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) != ssize_t(frame.size())) return 1;
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
};

TEST_F(MalformedInputTest, BadFramesCloseTheConnection) {
    // Garbage, an oversized frame, too many descriptors, and one descriptor
    // announced but none sent.
    EXPECT_TRUE(ClosedByPeer(Connect(std::string(64, 'g')).get()));
    EXPECT_TRUE(ClosedByPeer(SendHeader(64u << 20, 0).get()));
    EXPECT_TRUE(ClosedByPeer(SendHeader(0, 1000).get()));
    EXPECT_TRUE(ClosedByPeer(SendHeader(0, 1).get()));
    // A truncated frame from a client that leaves.
    SendHeader(100, 0, "0123456789");
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, BadCallsAreErrorsOnAConnectionThatStaysUp) {
    unique_fd fd = Connect();
    const std::string token = ITestService::descriptor;
    struct Case {
        uint32_t code;
        std::string descriptor;
        std::vector<int32_t> words;
        int32_t status;
    };
    for (const Case& c :
         std::vector<Case>{// A wrong interface token, or none.
                           {kEchoUtf8, "evil.IImpostor", {1, 0x78}, STATUS_BAD_TYPE},
                           {kEchoUtf8, "", {5}, STATUS_BAD_TYPE},
                           // Arguments that do not read; ParcelTest has every way an
                           // argument can fail to.
                           {kEchoBytes, token, {0x7fffffff, 1}, STATUS_NOT_ENOUGH_DATA},
                           {kEchoInt, token, {}, STATUS_NOT_ENOUGH_DATA},
                           {0x00ffff00, token, {}, STATUS_UNKNOWN_TRANSACTION}}) {
        EXPECT_EQ(CallStatus(fd.get(), c.code, c.descriptor, c.words), c.status)
                << c.code << " " << c.descriptor;
    }
    ExpectServiceAlive();
}

TEST_F(MalformedInputTest, PromisedButUnsentDataCostsNoMemory) {
    const long before = ServiceRssKb();
    ASSERT_GT(before, 0);
    // Eight clients each announce a 16 MiB parcel and send 1 KiB of it.
    std::vector<unique_fd> clients;
    for (int i = 0; i < 8; ++i) clients.push_back(SendHeader(16u << 20, 0, std::string(1024, 'k')));
    // The service keeps serving others meanwhile.
    ExpectServiceAlive();
    const long after = ServiceRssKb();
    EXPECT_LT(after - before, 16 * 1024) << "RSS grew from " << before << " to " << after;
}

}  // namespace
}  // namespace zelkor::tessel::testing
