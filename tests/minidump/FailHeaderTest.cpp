// The header repair after the boot loader reported a dump it could not finish.
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kArea = 0x100000;  // minidump_offset
constexpr uint64_t kSlot3 = kArea + 1024 + 3 * 0xA00000;
constexpr uint64_t kXblSource = 0xA400;  // 0x400 + 0x1000 + 1 * 0x8000 + 0x2000 - 4096

class FailHeaderTest : public MinidumpTest {
  protected:
    void MakeBlackbox() {
        MakeImage(kBlackbox, 0x2000000);
        Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);      // log_table_header
        Put32(kBlackbox, 20, 0x400);                     // log_content_offset
        Put32(kBlackbox, 24, kArea);                     // minidump_offset
        Put64(kBlackbox, 0x400, 0xE99BB480DD25E1F0ull);  // log_content_header
        Put32(kBlackbox, 0x400 + 16, 0x1000);            // log_offset
        Put32(kBlackbox, 0x400 + 20, 2);                 // dump_count
        Put32(kBlackbox, 0x400 + 24, 0x8000);            // log_size
        const uint64_t slot = 0x1000 + 0x8000;           // current blackbox slot
        Put64(kBlackbox, slot, 0xB5C4D2A5E936DB79ull);
        Put32(kBlackbox, slot + 24, 0x2000);  // region word at 24
        Put32(kBlackbox, slot + 132, 77);
        Put32(kBlackbox, slot + 136, 5);  // dump_process_fail
        Put(kBlackbox, kXblSource, "XBL log start");
        Put(kBlackbox, kXblSource + 12999, "Z!");  // last copied byte, first not
        // Last-log header: no magic, store index 3, counts 3, junk in the
        // words the repair stamps.
        Put32(kBlackbox, kArea + 8, 3);
        Put32(kBlackbox, kArea + 12, 3);
        Put(kBlackbox, kArea + 16, std::string(40, '\xAB'));
        // The partial dump: taken already, and no signature.
        Put(kBlackbox, kSlot3 + 16, "DESRAP");
        Put(kBlackbox, kSlot3 + 152 + 13000, "\xEE");
    }
};

TEST_F(FailHeaderTest, RepairRebuildsHeadersAndCopiesTheBootLoaderLog) {
    MakeBlackbox();
    ASSERT_EQ(RepairFailedDump(), 0);

    EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 4u);   // store index advanced
    EXPECT_EQ(GetLE(kBlackbox, kArea + 12, 4), 4u);  // counts follow it
    EXPECT_EQ(GetLE(kBlackbox, kArea + 16, 8), 1024u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 24, 8), 0x100000u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 32, 8), 0x200000u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 40, 8), 0xA00000u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 48, 8), 0x600000u);

    EXPECT_EQ(Get(kBlackbox, kSlot3, 8), "Raw_Dmp!");
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 8, 4), 0x2000u);
    EXPECT_EQ(Get(kBlackbox, kSlot3 + 16, 8), std::string(8, '\0'));
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 36, 8), 0x600000u);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 52, 4), 1u);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 56 + 20, 4), 77u);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 56 + 24, 4), 5u);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 88, 4), 1u);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 88 + 12, 8), kSlot3 + 152);
    EXPECT_EQ(GetLE(kBlackbox, kSlot3 + 88 + 20, 8), 0x600000u);
    EXPECT_EQ(Get(kBlackbox, kSlot3 + 88 + 44, 20),
              std::string("md_XBL_LOG\0\0\0\0\0\0\0\0\0\0", 20));
    EXPECT_EQ(Get(kBlackbox, kSlot3 + 152, 13000), Get(kBlackbox, kXblSource, 13000));
    EXPECT_EQ(Get(kBlackbox, kSlot3 + 152 + 12999, 2), "Z\xEE");
    EXPECT_TRUE(mLog.contains(kTag, "begin parser generate_xbl_ramdump_log"));
    EXPECT_TRUE(mLog.contains(kTag, "finish parser generate_xbl_ramdump_log"));

    // The run then finds a valid history.
    EXPECT_EQ(handle_mini_lastlog_header(), 0);
}

TEST_F(FailHeaderTest, HistoryHeaderIsKeptWhenAlreadyValid) {
    MakeBlackbox();
    Put(kBlackbox, kArea, "cigamgol");
    Put64(kBlackbox, kArea + 16, 1024);
    Put64(kBlackbox, kArea + 40, 0xA00000);
    ASSERT_EQ(RepairFailedDump(), 0);
    EXPECT_EQ(Get(kBlackbox, kArea + 24, 16), std::string(16, '\xAB'));
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 4u);
    EXPECT_EQ(Get(kBlackbox, kSlot3, 8), "Raw_Dmp!");
}

TEST_F(FailHeaderTest, StoreIndexAndCountsRules) {
    MakeImage(kMinidump, 0x1000);
    int fd = OpenImage(kMinidump);
    ASSERT_GE(fd, 0);
    struct Case {
        uint32_t store, counts, newStore, newCounts;
    };
    for (Case c : {Case{9, 5, 0, 10}, Case{4, 10, 5, 10}, Case{2, 7, 3, 3}, Case{0, 0, 1, 1}}) {
        Put32(kMinidump, 8, c.store);
        Put32(kMinidump, 12, c.counts);
        ASSERT_EQ(update_lastlog_header(fd, blackbox::BlackBoxHeaders{}), 0);
        EXPECT_EQ(GetLE(kMinidump, 8, 4), c.newStore) << c.store << "/" << c.counts;
        EXPECT_EQ(GetLE(kMinidump, 12, 4), c.newCounts) << c.store << "/" << c.counts;
    }
    close(fd);
}

TEST_F(FailHeaderTest, SlotOutsideThePartitionStopsBeforeTheIndexUpdate) {
    MakeImage(kMinidump, 0x10000);
    Put32(kMinidump, 8, 2);  // store index 2: 20 MiB in, past the end
    EXPECT_EQ(RepairFailedDump(), -1);
    EXPECT_EQ(mLog.count(kTag, "handle dump fail header fail"), 1);
    EXPECT_EQ(mLog.count(kTag, "update lastlog header fail"), 0);
    EXPECT_EQ(Get(kMinidump, 0, 8), "cigamgol");
    EXPECT_EQ(GetLE(kMinidump, 8, 4), 2u);

    reset_minidump_state();
    std::filesystem::remove(Host(kMinidump));
    EXPECT_EQ(RepairFailedDump(), -1);
    EXPECT_EQ(mLog.count(kTag, "open blackbox partition fail"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
