// The header repair after the boot loader reported a dump it could not finish.
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

// The blackbox's default map (TestImage.h): log slots of 8 MiB from 0x1000,
// the dump area from 0x3000000 with dump slots 10 MiB apart, the control
// block (crash history at +0x1000) from 0x9800000.
constexpr uint64_t kArea = 0x3000000;
constexpr uint64_t kSlot3 = kArea + 1024 + 3 * 0xA00000;
// The boot loader's log: 4096 bytes before region word 4 (0x4000) of the
// current log slot, behind the log content header at 0x400.
constexpr uint64_t XblSource(uint64_t logSlot) {
    return 0x400 + logSlot + 0x4000 - 4096;
}
constexpr uint64_t kXblSource = XblSource(kSlot1 + kSlotSize);

class FailHeaderTest : public MinidumpTest {
  protected:
    // The default headers with `logSlots` log slots, the last the current one
    // with boot index 77 and dump_process_fail `fail`.
    void MakeBlackbox(uint32_t logSlots, uint32_t fail) const {
        TestImage image(Host(kBlackbox), kImageSize);
        image.PutDefaultHeaders(logSlots);
        const uint64_t slot = kSlot1 + (logSlots - 1) * kSlotSize;
        image.PutWords(slot + 132, {77, fail});
        image.PutBytes(XblSource(slot), "XBL log start");
        EXPECT_TRUE(image.ok());
    }
    // Two log slots; no last-log magic, store index 3, counts 3, junk in the
    // words the repair stamps; slot 3 taken already, without a signature.
    // `control` ends the dump area.
    void MakeDamagedDump(uint64_t control = kControl) const {
        MakeBlackbox(2, 5);
        Put32(kBlackbox, 32, control);
        Put(kBlackbox, kXblSource + 12999, "Z!");  // last copied byte, first not
        PutWords(kBlackbox, kArea + 8, {3, 3});
        Put(kBlackbox, kArea + 16, std::string(40, '\xAB'));
        Put(kBlackbox, kSlot3 + 16, "DESRAP");
        Put(kBlackbox, kSlot3 + 152 + 13000, "\xEE");
    }
};

TEST_F(FailHeaderTest, RepairRebuildsHeadersAndCopiesTheBootLoaderLog) {
    MakeDamagedDump();
    ASSERT_EQ(RepairFailedDump(), 0);

    // The store index advanced, the counts follow it.
    EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
    ExpectFields(kBlackbox, {U32(kArea + 8, 4), U32(kArea + 12, 4), U64(kArea + 16, 1024),
                             U64(kArea + 24, 0x100000), U64(kArea + 32, 0x200000),
                             U64(kArea + 40, 0xA00000), U64(kArea + 48, 0x600000)});

    EXPECT_EQ(Get(kBlackbox, kSlot3, 8), "Raw_Dmp!");
    EXPECT_TRUE(Get(kBlackbox, kSlot3 + 16, 8) == std::string(8, '\0'));
    ExpectFields(kBlackbox,
                 {U32(kSlot3 + 8, 0x2000), U64(kSlot3 + 36, 0x600000), U32(kSlot3 + 52, 1),
                  U32(kSlot3 + 56 + 20, 77), U32(kSlot3 + 56 + 24, 5), U32(kSlot3 + 88, 1),
                  U64(kSlot3 + 88 + 12, kSlot3 + 152), U64(kSlot3 + 88 + 20, 0x600000)});
    EXPECT_TRUE(Get(kBlackbox, kSlot3 + 88 + 44, 20) ==
                std::string("md_XBL_LOG") + std::string(10, '\0'));
    EXPECT_TRUE(Get(kBlackbox, kSlot3 + 152, 13000) == Get(kBlackbox, kXblSource, 13000));
    EXPECT_TRUE(Get(kBlackbox, kSlot3 + 152 + 12999, 2) == "Z\xEE");

    // The run then finds a valid history.
    EXPECT_EQ(handle_mini_lastlog_header(), 0);
}

TEST_F(FailHeaderTest, HistoryHeaderIsKeptWhenAlreadyValid) {
    MakeDamagedDump();
    Put(kBlackbox, kArea, "cigamgol");
    Put64(kBlackbox, kArea + 16, 1024);
    Put64(kBlackbox, kArea + 40, 0xA00000);
    ASSERT_EQ(RepairFailedDump(), 0);
    EXPECT_TRUE(Get(kBlackbox, kArea + 24, 16) == std::string(16, '\xAB'));
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
        SCOPED_TRACE(std::to_string(c.store) + "/" + std::to_string(c.counts));
        Put32(kMinidump, 8, c.store);
        Put32(kMinidump, 12, c.counts);
        ASSERT_EQ(update_lastlog_header(fd, blackbox::BlackBoxHeaders{}), 0);
        ExpectFields(kMinidump, {U32(8, c.newStore), U32(12, c.newCounts)});
    }
    close(fd);
}

TEST_F(FailHeaderTest, SlotOutsideThePartitionStopsBeforeTheIndexUpdate) {
    MakeImage(kMinidump, 0x10000);
    Put32(kMinidump, 8, 2);  // store index 2: 20 MiB in, past the end
    EXPECT_EQ(RepairFailedDump(), -1);
    EXPECT_EQ(mLog.count(kTag, "handle dump fail header fail"), 1);
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
    MakeDamagedDump(kSlot3 + 152 + 13000);
    ASSERT_EQ(RepairFailedDump(), 0);
    EXPECT_EQ(Get(kBlackbox, kSlot3, 8), "Raw_Dmp!");
    EXPECT_TRUE(Get(kBlackbox, kSlot3 + 152, 13000) == Get(kBlackbox, kXblSource, 13000));

    reset_minidump_state();
    MakeDamagedDump(kSlot3 + 152 + 12999);
    const std::string slot = Get(kBlackbox, kSlot3, 152 + 13000);
    EXPECT_EQ(RepairFailedDump(), -1);
    EXPECT_TRUE(Get(kBlackbox, kSlot3, 152 + 13000) == slot);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 3u) << "the store index is not advanced";
}

// With the blackbox formula and 32-bit wrap-around, store index 0xFFFFFFFF
// (erased flash) lands in log slot 4, 420 on the crash history and 1224 on
// the log_content_header; index 9 is the last slot below the control block,
// at 0x8A00400.
TEST_F(FailHeaderTest, DefaultMapRepairStaysInsideTheDumpArea) {
    // Everything outside the dump area: the bytes the repair must not touch.
    auto outside = [&] {
        return Get(kBlackbox, 0, kArea) + Get(kBlackbox, kControl, kImageSize - kControl);
    };
    int failures = 0;
    for (uint32_t storeIndex : {0xFFFFFFFFu, 420u, 1224u, 9u}) {
        SCOPED_TRACE(storeIndex);
        reset_minidump_state();
        MakeBlackbox(1, 1);
        Put(kBlackbox, kSlot1 + 4 * kSlotSize, "log slot 4");
        Put(kBlackbox, kControl + 0x1000, "crash history");
        // The last-log header as erased flash, then the store index.
        Put(kBlackbox, kArea, std::string(56, '\xFF'));
        Put32(kBlackbox, kArea + 8, storeIndex);
        const std::string before = outside();

        const bool inside = storeIndex == 9;
        EXPECT_EQ(RepairFailedDump(), inside ? 0 : -1);

        EXPECT_TRUE(outside() == before);
        EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
        if (inside) {
            EXPECT_EQ(Get(kBlackbox, 0x8A00400, 8), "Raw_Dmp!");
            EXPECT_EQ(Get(kBlackbox, 0x8A00400 + 152, 13), "XBL log start");
            ExpectFields(kBlackbox, {U32(kArea + 8, 0), U32(kArea + 12, 10)});
            continue;
        }
        ++failures;
        EXPECT_EQ(mLog.count(kTag, "handle dump fail header fail 34("), failures);
        // The last-log header inside the area was repaired, its index kept;
        // the next step of the run reads it and rejects the index.
        EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), storeIndex);
        EXPECT_EQ(handle_mini_lastlog_header(), -1);
        EXPECT_EQ(mLog.count(kTag, "lastlog index:" + std::to_string(storeIndex)), 1);
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
