// A partition read that fails inside a section (an I/O error on the flash) is
// an error the writers log, not the end of the section's data.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "LogCapture.h"
#include "TempRoot.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"

namespace zelkor::tessel::Minidump {
namespace {

using testing::LogCapture;
using testing::TempRoot;

TEST(SectionReadErrorTest, UnreadablePartitionIsLoggedAndWritesNothing) {
    TempRoot root;
    LogCapture log;
    const std::string partition = root.path() + "/minidump";
    const std::string file = root.path() + "/out";
    // Written but not readable through this descriptor: every read fails
    // with EBADF, as a failing flash read would fail with EIO.
    int in = open(partition.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(in, 0);
    ASSERT_EQ(write(in, std::string(4096, 'x').data(), 4096), 4096);
    int out = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(out, 0);

    const Section section{in, "md_cpusys", 0, 4096};
    WriteText(section, out);
    WriteHexDump(section, out);
    close(in);
    close(out);

    EXPECT_EQ(log.count("BSPLogProcessor", "read section fail 9(Bad file descriptor)"), 2);
    EXPECT_EQ(std::filesystem::file_size(file), 0u);
}

}  // namespace
}  // namespace zelkor::tessel::Minidump
