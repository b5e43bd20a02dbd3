// The host binder's frame reader over arbitrary bytes from a peer: header,
// sizes and data as they come off the socket, then the peer hangs up.
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "platform/host/binder_ndk/Wire.h"

using namespace zelkor::tessel::binder;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sv) != 0) return 0;
    // What fits in the socket's buffer goes in; the rest would block a peer too.
    for (size_t sent = 0; sent < size;) {
        const ssize_t n = send(sv[1], data + sent, size - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<size_t>(n);
    }
    close(sv[1]);
    for (int frames = 0; frames < 4; ++frames) {
        Frame frame;
        if (ReceiveFrame(sv[0], &frame, std::chrono::steady_clock::now()) != IoStatus::kOk) break;
    }
    close(sv[0]);
    return 0;
}
