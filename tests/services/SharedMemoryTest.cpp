// Transfers through a client's shared-memory region.
#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <limits>

#include "FileServiceFixture.h"
#include "LogCapture.h"

namespace zelkor::tessel::testing {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::common::Ashmem;

constexpr int64_t k128MB = 134217728;

// A region as a client makes one: `size` bytes, optionally claiming another.
Ashmem Region(size_t size, const std::string& content = "",
              int64_t claimed = std::numeric_limits<int64_t>::min()) {
    Ashmem mem;
    int fd = ashmem_create_region("test", size);
    if (!content.empty()) {
        void* at = mmap(nullptr, size, PROT_WRITE, MAP_SHARED, fd, 0);
        memcpy(at, content.data(), content.size());
        munmap(at, size);
    }
    mem.fd = ndk::ScopedFileDescriptor(fd);
    mem.mSize =
            claimed != std::numeric_limits<int64_t>::min() ? claimed : static_cast<int64_t>(size);
    return mem;
}

std::string RegionText(const Ashmem& mem, size_t length) {
    void* at =
            mmap(nullptr, static_cast<size_t>(mem.mSize), PROT_READ, MAP_SHARED, mem.fd.get(), 0);
    std::string text(static_cast<const char*>(at), length);
    munmap(at, static_cast<size_t>(mem.mSize));
    return text;
}

// Mappings of shared-memory regions in this process (host regions are
// unlinked files named "android-ashmem-..."): none may outlive a call.
size_t RegionMappings() {
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("android-ashmem") != std::string::npos ? 1 : 0;
    }
    return count;
}

TEST_F(FileServiceTest, FilesGoBothWaysThroughTheRegion) {
    std::string content(1 << 20, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 + 7);
    ASSERT_EQ(StatusOf(mService->WriteToFile(Region(content.size(), content), "/data", "f",
                                             static_cast<int64_t>(content.size()))),
              STATUS_OK);
    EXPECT_TRUE(Slurp(Host("/data/f")) == content);
    EXPECT_EQ(ModeOf(Host("/data/f")), 0644u);
    // The requested size, not the region's, is what lands in the file.
    ASSERT_EQ(StatusOf(mService->WriteToFile(Region(4096, "head-and-more"), "/data", "g", 4)),
              STATUS_OK);
    EXPECT_EQ(Slurp(Host("/data/g")), "head");

    Ashmem in = Region(content.size() + 100);
    ASSERT_EQ(StatusOf(mService->ReadFromFile(in, "/data", "f")), STATUS_OK);
    EXPECT_TRUE(RegionText(in, content.size()) == content);
    Plant("/data/empty", "");
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(1), "/data", "empty")), STATUS_OK);
    EXPECT_EQ(RegionMappings(), 0u);
}

TEST_F(FileServiceTest, BadRegionsAndSizesGetTheirStatus) {
    LogCapture log;
    Plant("/data/f", "12345678");
    Ashmem noFd;
    noFd.mSize = 8;
    EXPECT_EQ(StatusOf(mService->WriteToFile(noFd, "/data", "w", 1)), kInvalidOp);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(noFd, "/data", "f")), kInvalidOp);
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "", "w", 1)), kInvalidOp);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8), "/data", "")), kInvalidOp);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8), "/data", "/f")), kInval);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8, "", -5), "/data", "f")), kInvalidOp);

    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8, "", 0), "/data", "w", 0)), kNoent);
    EXPECT_TRUE(log.contains("tessel.impl", "mSize is 0, return TESSEL_NOENT\n"));
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "/data", "w", k128MB + 1)), kInval);
    EXPECT_TRUE(
            log.contains("tessel.impl", "WriteToFile request size too large, max size=128MB\n"));
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "/data", "w", 9)), kInval);
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "/data", "w", -1)), kInval);
    // A region claiming more than it holds is never touched past its end.
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(4096, "", 1 << 20), "/data", "w", 1 << 20)),
              kNoent);
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "/data", "/w", 1)), kInval);
    EXPECT_EQ(StatusOf(mService->WriteToFile(Region(8), "/data/missing", "w", 8)), kInval);
    EXPECT_FALSE(std::filesystem::exists(Host("/data/w")));

    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(7), "/data", "f")), kInval);
    EXPECT_TRUE(log.contains(
            "tessel.impl", "ReadFromFile fileSize too large, fileSize: 8, sharedMemorySize: 7.\n"));
    Plant("/data/empty", "");
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8, "", 0), "/data", "empty")), kInval);
    EXPECT_TRUE(log.contains("tessel.impl",
                             "size of memory block is 0, abort, return TESSEL_EINVAL\n"));
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(4096, "", 1 << 20), "/data", "f")), kNoent);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8), "/data", "missing")), kInval);

    // Over 128 MB: a sparse file costs nothing to make.
    { std::ofstream(Host("/data/huge")); }
    std::filesystem::resize_file(Host("/data/huge"), k128MB + 1);
    EXPECT_EQ(StatusOf(mService->ReadFromFile(Region(8, "", k128MB + 1), "/data", "huge")), kInval);

    // A region the daemon may only read cannot take a file.
    Ashmem readOnly = Region(8);
    readOnly.fd = ndk::ScopedFileDescriptor(
            open(("/proc/self/fd/" + std::to_string(readOnly.fd.get())).c_str(), O_RDONLY));
    EXPECT_EQ(StatusOf(mService->ReadFromFile(readOnly, "/data", "f")), kNoent);
    // A plain file is not a region.
    Ashmem plain;
    plain.fd = ndk::ScopedFileDescriptor(open(Host("/data/f").c_str(), O_RDWR));
    plain.mSize = 8;
    EXPECT_EQ(StatusOf(mService->ReadFromFile(plain, "/data", "f")), kNoent);
    EXPECT_EQ(Slurp(Host("/data/f")), "12345678");
    EXPECT_EQ(RegionMappings(), 0u) << "no path leaves a mapping behind";
}

}  // namespace
}  // namespace zelkor::tessel::testing
