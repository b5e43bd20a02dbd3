// The header repair after the boot loader reported a dump it could not finish.
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kArea = 0x100000;  // minidump_offset
constexpr uint64_t kSlot3 = kArea + 1024 + 3 * 0xA00000;
constexpr uint64_t kXblSource = 0xA400;   // 0x400 + 0x1000 + 1 * 0x8000 + 0x2000 - 4096
constexpr uint64_t kControl = 0x1F80000;  // control_content_offset: the dump area's end

class FailHeaderTest : public MinidumpTest {
  protected:
    void MakeBlackbox() {
        MakeImage(kBlackbox, 0x2000000);
        Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);      // log_table_header
        Put32(kBlackbox, 20, 0x400);                     // log_content_offset
        Put32(kBlackbox, 24, kArea);                     // minidump_offset
        Put32(kBlackbox, 32, kControl);                  // control_content_offset
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

TEST_F(FailHeaderTest, RepairMayFillTheDumpAreaToItsLastByte) {
    // Slot 3's headers and the 13000 copied bytes end exactly at the control
    // block: allowed. One byte less of room: nothing of the dump is written.
    MakeBlackbox();
    Put32(kBlackbox, 32, kSlot3 + 152 + 13000);
    ASSERT_EQ(RepairFailedDump(), 0);
    EXPECT_EQ(Get(kBlackbox, kSlot3, 8), "Raw_Dmp!");
    EXPECT_EQ(Get(kBlackbox, kSlot3 + 152, 13000), Get(kBlackbox, kXblSource, 13000));

    reset_minidump_state();
    MakeBlackbox();
    Put32(kBlackbox, 32, kSlot3 + 152 + 12999);
    const std::string slot = Get(kBlackbox, kSlot3, 152 + 13000);
    EXPECT_EQ(RepairFailedDump(), -1);
    EXPECT_EQ(Get(kBlackbox, kSlot3, 152 + 13000), slot);
    EXPECT_EQ(mLog.count(kTag, "[handle_minidump_fail_header]write dump_header  err=34("), 1);
    EXPECT_EQ(mLog.count(kTag, "handle dump fail header fail 34("), 1);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 3u) << "the store index is not advanced";
}

// A blackbox with the default map: log slots of 8 MiB from 0x1000, the dump
// area from 0x3000000, the control block (crash history at +0x1000) from
// 0x9800000. With the blackbox formula and 32-bit wrap-around, store index
// 0xFFFFFFFF (erased flash) lands in log slot 4, 420 on the crash history and
// 1224 on the log_content_header.
class FailHeaderDefaultMapTest : public MinidumpTest {
  protected:
    static constexpr uint64_t kArea = 0x3000000;
    static constexpr uint64_t kControl = 0x9800000;
    static constexpr uint64_t kSize = kControl + 0x100000;

    void MakeBlackbox(uint32_t storeIndex) {
        MakeImage(kBlackbox, kSize);
        Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);
        Put32(kBlackbox, 20, 0x400);     // log_content_offset
        Put32(kBlackbox, 24, kArea);     // minidump_offset
        Put32(kBlackbox, 32, kControl);  // control_content_offset
        Put64(kBlackbox, 0x400, 0xE99BB480DD25E1F0ull);
        Put32(kBlackbox, 0x400 + 16, 0x1000);             // log_offset
        Put32(kBlackbox, 0x400 + 20, 1);                  // dump_count
        Put32(kBlackbox, 0x400 + 24, 0x800000);           // log_size
        Put64(kBlackbox, 0x1000, 0xB5C4D2A5E936DB79ull);  // current slot header
        Put32(kBlackbox, 0x1000 + 24, 0x2000);            // region word at 24
        Put32(kBlackbox, 0x1000 + 136, 1);                // dump_process_fail
        Put(kBlackbox, 0x2400, "XBL log start");          // 0x400 + 0x1000 + 0x2000 - 4096
        Put(kBlackbox, 0x2001000, "log slot 4");
        Put64(kBlackbox, kControl, 0x9DBFA34954526BECull);
        Put32(kBlackbox, kControl + 12, 0x1000);  // crash_history_offset
        Put(kBlackbox, kControl + 0x1000, "crash history");
        // The last-log header as erased flash, then the store index.
        Put(kBlackbox, kArea, std::string(56, '\xFF'));
        Put32(kBlackbox, kArea + 8, storeIndex);
    }
    // Everything outside the dump area: the bytes the repair must not touch.
    std::string Outside() const {
        return Get(kBlackbox, 0, kArea) + Get(kBlackbox, kControl, kSize - kControl);
    }
    static uint64_t FirstDifference(const std::string& a, const std::string& b) {
        const size_t n = std::min(a.size(), b.size());
        for (size_t i = 0; i < n; ++i) {
            if (a[i] != b[i]) return i;
        }
        return n;
    }
};

TEST_F(FailHeaderDefaultMapTest, StoreIndexOutsideTheDumpAreaChangesNothingOutsideIt) {
    int runs = 0;
    for (uint32_t storeIndex : {0xFFFFFFFFu, 420u, 1224u}) {
        SCOPED_TRACE(storeIndex);
        ++runs;
        reset_minidump_state();
        MakeBlackbox(storeIndex);
        const std::string before = Outside();

        EXPECT_EQ(RepairFailedDump(), -1);

        const std::string after = Outside();
        ASSERT_EQ(after.size(), before.size());
        EXPECT_TRUE(after == before) << "first change at image byte 0x" << std::hex << [&] {
            uint64_t i = FirstDifference(before, after);
            return i < kArea ? i : i - kArea + kControl;
        }();
        EXPECT_EQ(mLog.count(kTag, "[handle_minidump_fail_header]write dump_header  err=34("),
                  runs);
        EXPECT_EQ(mLog.count(kTag, "handle dump fail header fail 34("), runs);
        EXPECT_EQ(mLog.count(kTag, "update lastlog header fail"), 0);
        // The last-log header inside the area was repaired, its index kept.
        EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
        EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), storeIndex);

        // The run goes on: the next step reads the header and rejects the
        // index.
        EXPECT_EQ(handle_mini_lastlog_header(), -1);
        EXPECT_EQ(mLog.count(kTag, "lastlog index:" + std::to_string(storeIndex)), 1);
    }
}

TEST_F(FailHeaderDefaultMapTest, StoreIndexInsideTheDumpAreaIsRepaired) {
    MakeBlackbox(9);  // slot 9 at 0x8A00400, the last one below the control block
    const std::string before = Outside();
    ASSERT_EQ(RepairFailedDump(), 0);
    EXPECT_TRUE(Outside() == before);
    EXPECT_EQ(Get(kBlackbox, 0x8A00400, 8), "Raw_Dmp!");
    EXPECT_EQ(Get(kBlackbox, 0x8A00400 + 152, 13), "XBL log start");
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 0u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 12, 4), 10u);
}

}  // namespace
}  // namespace zelkor::tessel::testing
