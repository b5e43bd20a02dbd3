// AParcel in one process: every type written and read back, the wire layout
// the platform shares, and reads of data that is short, overlong or corrupt.
#include <aidl/tessel/test/Record.h>
#include <android/binder_parcel_utils.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "TestService.h"
#include "platform/host/binder_ndk/Limits.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::Record;

struct ParcelDeleter {
    void operator()(AParcel* parcel) const { AParcel_delete(parcel); }
};
using Parcel = std::unique_ptr<AParcel, ParcelDeleter>;

Parcel NewParcel() {
    return Parcel(AParcel_create());
}

void Rewind(const Parcel& parcel) {
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
}

template <typename T>
void ExpectNullableVectorRoundTrip(const std::vector<T>& value) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::optional<std::vector<T>>()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::optional<std::vector<T>>(value)),
              STATUS_OK);
    Rewind(parcel);
    std::optional<std::vector<T>> absent = std::vector<T>{};
    std::optional<std::vector<T>> present;
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &absent), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &present), STATUS_OK);
    EXPECT_FALSE(absent.has_value());
    EXPECT_EQ(present, value);
}

template <typename T>
void ExpectVectorRoundTrip(const std::vector<T>& value) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), value), STATUS_OK);
    Rewind(parcel);
    std::vector<T> read{T()};
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &read), STATUS_OK);
    EXPECT_EQ(read, value);
    // Strings have their own nullable form, with nullable elements.
    if constexpr (!std::is_same_v<T, std::string>) ExpectNullableVectorRoundTrip(value);
}

TEST(ParcelTest, ScalarsRoundTripAtPlatformSizes) {
    Parcel parcel = NewParcel();
    const int32_t start = AParcel_getDataPosition(parcel.get());
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), std::numeric_limits<int32_t>::min()), STATUS_OK);
    ASSERT_EQ(AParcel_writeUint32(parcel.get(), 0xdeadbeef), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt64(parcel.get(), -(int64_t{1} << 62)), STATUS_OK);
    ASSERT_EQ(AParcel_writeUint64(parcel.get(), ~uint64_t{0}), STATUS_OK);
    ASSERT_EQ(AParcel_writeFloat(parcel.get(), 2.5f), STATUS_OK);
    ASSERT_EQ(AParcel_writeDouble(parcel.get(), std::nan("")), STATUS_OK);
    ASSERT_EQ(AParcel_writeBool(parcel.get(), true), STATUS_OK);
    ASSERT_EQ(AParcel_writeChar(parcel.get(), u'€'), STATUS_OK);
    ASSERT_EQ(AParcel_writeByte(parcel.get(), -3), STATUS_OK);
    // int32, uint32, float, bool, char and byte take four bytes, the 64-bit
    // types eight.
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()) - start, 6 * 4 + 3 * 8);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 6 * 4 + 3 * 8);

    Rewind(parcel);
    int32_t i32;
    uint32_t u32;
    int64_t i64;
    uint64_t u64;
    float f;
    double d;
    bool b;
    char16_t c;
    int8_t byte;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &i32), STATUS_OK);
    ASSERT_EQ(AParcel_readUint32(parcel.get(), &u32), STATUS_OK);
    ASSERT_EQ(AParcel_readInt64(parcel.get(), &i64), STATUS_OK);
    ASSERT_EQ(AParcel_readUint64(parcel.get(), &u64), STATUS_OK);
    ASSERT_EQ(AParcel_readFloat(parcel.get(), &f), STATUS_OK);
    ASSERT_EQ(AParcel_readDouble(parcel.get(), &d), STATUS_OK);
    ASSERT_EQ(AParcel_readBool(parcel.get(), &b), STATUS_OK);
    ASSERT_EQ(AParcel_readChar(parcel.get(), &c), STATUS_OK);
    ASSERT_EQ(AParcel_readByte(parcel.get(), &byte), STATUS_OK);
    EXPECT_EQ(i32, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(u32, 0xdeadbeef);
    EXPECT_EQ(i64, -(int64_t{1} << 62));
    EXPECT_EQ(u64, ~uint64_t{0});
    EXPECT_EQ(f, 2.5f);
    EXPECT_TRUE(std::isnan(d));
    EXPECT_TRUE(b);
    EXPECT_EQ(c, u'€');
    EXPECT_EQ(byte, -3);
}

TEST(ParcelTest, ReadingPastTheEndIsNotEnoughData) {
    Parcel parcel = NewParcel();
    int32_t i32 = 7;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &i32), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(i32, 7);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
    Rewind(parcel);
    int64_t i64;
    EXPECT_EQ(AParcel_readInt64(parcel.get(), &i64), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 0);
    // A position past the end is allowed; reads there fail.
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 1000), STATUS_OK);
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &i32), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), -4), STATUS_BAD_VALUE);
}

TEST(ParcelTest, StringsInUtf8OverUtf16) {
    Parcel parcel = NewParcel();
    const std::string text = "héllo wörld € 𝄞";
    ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), text), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), std::string()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), std::optional<std::string>()), STATUS_OK);
    Rewind(parcel);
    // As String16: 16 UTF-16 units ("𝄞" is a surrogate pair), then a 0 unit.
    int32_t units = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &units), STATUS_OK);
    EXPECT_EQ(units, 16);
    Rewind(parcel);
    std::string read;
    std::string empty = "x";
    std::optional<std::string> null = "x";
    ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &empty), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &null), STATUS_OK);
    EXPECT_EQ(read, text);
    EXPECT_EQ(empty, "");
    EXPECT_FALSE(null.has_value());
    // A null string cannot be read as a required one.
    Rewind(parcel);
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), AParcel_getDataSize(parcel.get()) - 4),
              STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_UNEXPECTED_NULL);
}

TEST(ParcelTest, AsciiRunsOfEveryLengthAroundOtherCharacters) {
    // ASCII is widened and narrowed several bytes at a time: runs of every
    // length against characters whose units look ASCII in one byte ("Ł" is
    // 0x0141), take two bytes, three, or a surrogate pair.
    for (const std::string other : {"Ł", "é", "€", "𝄞"}) {
        for (size_t before = 0; before < 40; ++before) {
            for (size_t after : {size_t{0}, size_t{3}, size_t{9}, size_t{17}, size_t{33}}) {
                const std::string text =
                        std::string(before, 'a') + other + std::string(after, 'z') + other;
                Parcel parcel = NewParcel();
                ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), text), STATUS_OK);
                Rewind(parcel);
                int32_t units = 0;
                ASSERT_EQ(AParcel_readInt32(parcel.get(), &units), STATUS_OK);
                EXPECT_EQ(units, int32_t(before + after + (other == "𝄞" ? 4 : 2)));
                Rewind(parcel);
                std::string read;
                ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_OK);
                EXPECT_EQ(read, text) << before << " " << after;
            }
        }
    }
    // Surrogates from a peer: pairs give the code point, from the first one
    // past U+FFFF to the last; any unit of a pair without its partner reads as
    // U+FFFD, the rest intact.
    for (const auto& [units, expected] : std::vector<std::pair<std::u16string, std::string>>{
                 {u"abcde\xD800"
                  u"fghij",
                  "abcde\xEF\xBF\xBD"
                  "fghij"},
                 {u"\xDC00\xDC00x\xD800", "\xEF\xBF\xBD\xEF\xBF\xBDx\xEF\xBF\xBD"},
                 {u"\xD800\xDC00", "\xF0\x90\x80\x80"},
                 {u"\xDBFF\xDFFF", "\xF4\x8F\xBF\xBF"}}) {
        Parcel parcel = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), int32_t(units.size())), STATUS_OK);
        std::u16string terminated = units + u'\0';
        if (terminated.size() % 2 != 0) terminated += u'\0';
        for (size_t i = 0; i < terminated.size(); i += 2) {
            ASSERT_EQ(AParcel_writeInt32(parcel.get(),
                                         int32_t(terminated[i] | (terminated[i + 1] << 16))),
                      STATUS_OK);
        }
        Rewind(parcel);
        std::string read;
        ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_OK);
        EXPECT_TRUE(read == expected) << units.size();
    }
}

TEST(ParcelTest, StringsTakeExactlyTheirUnitsWhereverTheyAreWritten) {
    // Each string takes its length, its units, a 0 unit and zero padding to
    // four bytes, whether appended or written over data already there.
    for (const auto& [text, units] :
         std::vector<std::pair<std::string, size_t>>{{"", 0},
                                                     {"a", 1},
                                                     {"ab", 2},
                                                     {"abc", 3},
                                                     {std::string(33, 'q'), 33},
                                                     {"€€€", 3},
                                                     {"𝄞", 2},
                                                     {std::string(21, 'e') + "é", 22}}) {
        Parcel appended = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(appended.get(), 7), STATUS_OK);
        ASSERT_EQ(ndk::AParcel_writeString(appended.get(), text), STATUS_OK);
        const size_t size = 4 + 4 + ((units + 1) * 2 + 3) / 4 * 4;
        ASSERT_EQ(size_t(AParcel_getDataSize(appended.get())), size) << text;
        EXPECT_EQ(size_t(AParcel_getDataPosition(appended.get())), size);
        std::vector<uint8_t> bytes(size);
        ASSERT_EQ(AParcel_marshal(appended.get(), bytes.data(), 0, size), STATUS_OK);
        int32_t count = -1;
        memcpy(&count, bytes.data() + 4, 4);
        EXPECT_EQ(size_t(count), units);
        for (size_t i = 8 + units * 2; i < size; ++i) EXPECT_EQ(bytes[i], 0) << text << " " << i;

        // The same bytes over 64 bytes of 0xFF words, which stay after them.
        Parcel over = NewParcel();
        for (int i = 0; i < 16; ++i) ASSERT_EQ(AParcel_writeInt32(over.get(), -1), STATUS_OK);
        ASSERT_EQ(AParcel_setDataPosition(over.get(), 0), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(over.get(), 7), STATUS_OK);
        ASSERT_EQ(ndk::AParcel_writeString(over.get(), text), STATUS_OK);
        EXPECT_EQ(size_t(AParcel_getDataPosition(over.get())), size);
        const size_t total = std::max<size_t>(64, size);
        ASSERT_EQ(size_t(AParcel_getDataSize(over.get())), total);
        std::vector<uint8_t> overBytes(total);
        ASSERT_EQ(AParcel_marshal(over.get(), overBytes.data(), 0, total), STATUS_OK);
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), overBytes.begin())) << text;
        EXPECT_TRUE(std::all_of(overBytes.begin() + size, overBytes.end(),
                                [](uint8_t b) { return b == 0xFF; }));
    }
}

TEST(ParcelTest, ARefusedStringLeavesTheParcelAsItWas) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 7), STATUS_OK);
    // Valid text, a run long enough to be encoded in blocks, then a bad byte.
    const std::string bad = std::string(40, 'a') + "é\xff";
    EXPECT_EQ(AParcel_writeString(parcel.get(), bad.data(), int32_t(bad.size())), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
    ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), std::string("ok")), STATUS_OK);
    Rewind(parcel);
    int32_t seven = 0;
    std::string read;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &seven), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_OK);
    EXPECT_EQ(seven, 7);
    EXPECT_EQ(read, "ok");
}

TEST(ParcelTest, AStringTooLongForAUnitPerByteStillFitsByItsUnits) {
    // 17 MiB of three-byte characters: a unit per byte would pass the
    // parcel's limit, its 5.9 million units do not.
    std::string text;
    text.reserve(size_t{17} << 20);
    while (text.size() + 3 <= (size_t{17} << 20)) text += "€";
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), text), STATUS_OK);
    EXPECT_EQ(size_t(AParcel_getDataSize(parcel.get())),
              4 + ((text.size() / 3 + 1) * 2 + 3) / 4 * 4);
    Rewind(parcel);
    std::string read;
    ASSERT_EQ(ndk::AParcel_readString(parcel.get(), &read), STATUS_OK);
    EXPECT_TRUE(read == text);
    // Half the limit in ASCII bytes is more than the limit in units.
    const std::string ascii(binder::kMaxParcelBytes / 2, 'a');
    Parcel tooLong = NewParcel();
    EXPECT_EQ(ndk::AParcel_writeString(tooLong.get(), ascii), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(tooLong.get()), 0);
}

TEST(ParcelTest, InvalidUtf8IsRefused) {
    Parcel parcel = NewParcel();
    EXPECT_EQ(AParcel_writeString(parcel.get(), "\xff\xfe", 2), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), "\xc3", 1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), "\xc0\xaf", 2), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), nullptr, 3), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), "abc", -2), STATUS_BAD_VALUE);
}

TEST(ParcelTest, CorruptStringsAreErrors) {
    std::string read;
    Parcel beyond = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(beyond.get(), 1000), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(beyond.get(), 0x00620061), STATUS_OK);
    Rewind(beyond);
    EXPECT_EQ(ndk::AParcel_readString(beyond.get(), &read), STATUS_NOT_ENOUGH_DATA);

    Parcel unterminated = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(unterminated.get(), 1), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(unterminated.get(), 0x00620061), STATUS_OK);
    Rewind(unterminated);
    EXPECT_EQ(ndk::AParcel_readString(unterminated.get(), &read), STATUS_BAD_VALUE);

    Parcel negative = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(negative.get(), -9), STATUS_OK);
    Rewind(negative);
    EXPECT_EQ(ndk::AParcel_readString(negative.get(), &read), STATUS_BAD_VALUE);
}

TEST(ParcelTest, VectorsOfEveryElementType) {
    ExpectVectorRoundTrip<int32_t>({1, -1, std::numeric_limits<int32_t>::max()});
    ExpectVectorRoundTrip<uint32_t>({0, 0xffffffff});
    ExpectVectorRoundTrip<int64_t>({int64_t{1} << 50, -1});
    ExpectVectorRoundTrip<uint64_t>({~uint64_t{0}});
    ExpectVectorRoundTrip<float>({0.5f, -8.f});
    ExpectVectorRoundTrip<double>({1e300, -0.25});
    ExpectVectorRoundTrip<bool>({true, false, false, true});
    ExpectVectorRoundTrip<char16_t>({u'a', u'ü', 0xd800});
    ExpectVectorRoundTrip<int8_t>({-128, 0, 127, 5, 6});
    ExpectVectorRoundTrip<uint8_t>({0, 255, 1});
    ExpectVectorRoundTrip<std::string>({"a", "", "ö"});
    ExpectVectorRoundTrip<int32_t>({});
}

TEST(ParcelTest, PackedArraysArePaddedToFourBytes) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::vector<int8_t>{1, 2, 3, 4, 5}),
              STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4 + 8);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 42), STATUS_OK);
    Rewind(parcel);
    std::vector<int8_t> bytes;
    int32_t after = 0;
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &bytes), STATUS_OK);
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &after), STATUS_OK);
    EXPECT_EQ(after, 42);
}

// An allocator that counts its calls: an overlong length must be refused
// before anything is allocated for it.
int gAllocations = 0;
bool CountingAllocator(void* data, int32_t length, int32_t** buffer) {
    ++gAllocations;
    return ndk::AParcel_stdVectorAllocator<int32_t>(data, length, buffer);
}

TEST(ParcelTest, OverlongArrayLengthsAllocateNothing) {
    for (int32_t length : {0x7fffffff, 0x40000000, 3}) {
        Parcel parcel = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), length), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
        Rewind(parcel);
        std::vector<int32_t> read;
        gAllocations = 0;
        EXPECT_EQ(AParcel_readInt32Array(parcel.get(), &read, CountingAllocator),
                  STATUS_NOT_ENOUGH_DATA)
                << length;
        EXPECT_EQ(gAllocations, 0);
        EXPECT_TRUE(read.empty());
    }
    Parcel strings = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(strings.get(), 0x7fffffff), STATUS_OK);
    Rewind(strings);
    std::vector<std::string> names;
    EXPECT_EQ(ndk::AParcel_readVector(strings.get(), &names), STATUS_NOT_ENOUGH_DATA);

    Parcel negative = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(negative.get(), -2), STATUS_OK);
    Rewind(negative);
    std::vector<int64_t> longs;
    EXPECT_EQ(ndk::AParcel_readVector(negative.get(), &longs), STATUS_BAD_VALUE);
}

TEST(ParcelTest, OutArraySizesAreBounded) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 1 << 30), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVectorSize(parcel.get(), std::vector<int32_t>(3)), STATUS_OK);
    Rewind(parcel);
    std::vector<int64_t> huge;
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel.get(), &huge), STATUS_BAD_VALUE);
    std::vector<int32_t> three;
    ASSERT_EQ(ndk::AParcel_resizeVector(parcel.get(), &three), STATUS_OK);
    EXPECT_EQ(three.size(), 3u);
}

// Generated parcelables leave scalar fields uninitialised.
Record MakeRecord() {
    Record record;
    record.name = "log";
    record.size = 4096;
    record.mtime = 1700000000;
    record.flag = false;
    record.ratio = 1.0;
    record.inner.id = 3;
    record.inner.label = "inner";
    record.values = {9, 8};
    record.tags = {"t"};
    record.note = "n";
    return record;
}

TEST(ParcelTest, GeneratedParcelableRoundTrip) {
    Record record = MakeRecord();
    Parcel parcel = NewParcel();
    ASSERT_EQ(record.writeToParcel(parcel.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 77), STATUS_OK);
    Rewind(parcel);
    Record read;
    ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(read.name, "log");
    EXPECT_EQ(read.size, 4096);
    EXPECT_EQ(read.inner.label, "inner");
    EXPECT_EQ(read.values, record.values);
    EXPECT_EQ(read.note, "n");
    int32_t after = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &after), STATUS_OK);
    EXPECT_EQ(after, 77);
}

TEST(ParcelTest, ParcelableVectorLengthsAreBoundedByMemoryNotOnlyByWireBytes) {
    // Four wire bytes per claimed element would pass the length check, but
    // as records the claim would need hundreds of times that in memory.
    const int32_t claimed = (int32_t{8} << 20) / 4;
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), claimed), STATUS_OK);
    const std::vector<int8_t> filler(size_t{8} << 20);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), filler), STATUS_OK);
    Rewind(parcel);
    std::vector<Record> records;
    EXPECT_NE(ndk::AParcel_readVector(parcel.get(), &records), STATUS_OK);
    EXPECT_TRUE(records.empty());

    // A modest vector still reads.
    Parcel small = NewParcel();
    ASSERT_EQ(
            ndk::AParcel_writeVector(small.get(), std::vector<Record>{MakeRecord(), MakeRecord()}),
            STATUS_OK);
    Rewind(small);
    ASSERT_EQ(ndk::AParcel_readVector(small.get(), &records), STATUS_OK);
    EXPECT_EQ(records.size(), 2u);
}

TEST(ParcelTest, CorruptParcelableSizeIsAnError) {
    Record record = MakeRecord();
    Parcel parcel = NewParcel();
    ASSERT_EQ(record.writeToParcel(parcel.get()), STATUS_OK);
    // The size field follows the non-null marker.
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 4), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), -100), STATUS_OK);
    Rewind(parcel);
    Record read;
    EXPECT_EQ(read.readFromParcel(parcel.get()), STATUS_BAD_VALUE);

    Parcel truncated = NewParcel();
    ASSERT_EQ(record.writeToParcel(truncated.get()), STATUS_OK);
    ASSERT_EQ(AParcel_setDataPosition(truncated.get(), 4), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(truncated.get(), 0x7ffffff0), STATUS_OK);
    std::vector<uint8_t> bytes(12);
    ASSERT_EQ(AParcel_marshal(truncated.get(), bytes.data(), 0, bytes.size()), STATUS_OK);
    ASSERT_EQ(AParcel_unmarshal(truncated.get(), bytes.data(), bytes.size()), STATUS_OK);
    EXPECT_NE(read.readFromParcel(truncated.get()), STATUS_OK);
}

TEST(ParcelTest, FileDescriptorsAreDuplicated) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ndk::ScopedFileDescriptor readEnd(fds[0]);
    ndk::ScopedFileDescriptor writeEnd(fds[1]);
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeRequiredParcelFileDescriptor(parcel.get(), writeEnd), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableParcelFileDescriptor(parcel.get(),
                                                             ndk::ScopedFileDescriptor()),
              STATUS_OK);
    writeEnd.set(-1);  // the parcel holds its own copy
    Rewind(parcel);
    ndk::ScopedFileDescriptor read;
    ndk::ScopedFileDescriptor null;
    ASSERT_EQ(ndk::AParcel_readRequiredParcelFileDescriptor(parcel.get(), &read), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readRequiredParcelFileDescriptor(parcel.get(), &null),
              STATUS_UNEXPECTED_NULL);
    ASSERT_EQ(write(read.get(), "ok", 2), 2);
    char buffer[3] = {};
    ASSERT_EQ(::read(readEnd.get(), buffer, 2), 2);
    EXPECT_STREQ(buffer, "ok");
    // Parcels with descriptors cannot be marshalled into plain bytes.
    uint8_t byte;
    EXPECT_EQ(AParcel_marshal(parcel.get(), &byte, 0, 1), STATUS_INVALID_OPERATION);
}

TEST(ParcelTest, DescriptorCountAndSizeAreCapped) {
    Parcel parcel = NewParcel();
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    binder_status_t status = STATUS_OK;
    int written = 0;
    while ((status = AParcel_writeParcelFileDescriptor(parcel.get(), fds[0])) == STATUS_OK) {
        ++written;
        ASSERT_LT(written, 1000);
    }
    EXPECT_EQ(written, 253);
    EXPECT_EQ(status, STATUS_NO_MEMORY);
    close(fds[0]);
    close(fds[1]);

    // The length word and the bytes fill the parcel exactly; one byte more
    // (padded to four) does not fit.
    Parcel full = NewParcel();
    std::vector<int8_t> bytes(binder::kMaxParcelBytes - 4);
    EXPECT_EQ(ndk::AParcel_writeVector(full.get(), bytes), STATUS_OK);
    Parcel big = NewParcel();
    bytes.push_back(0);
    EXPECT_EQ(ndk::AParcel_writeVector(big.get(), bytes), STATUS_NO_MEMORY);
}

TEST(ParcelTest, BytesNeverWrittenGoOutAsZeros) {
    // A reset keeps the buffer; what it held before must not reach a peer
    // through a gap left by a position past the end, nor through padding.
    Parcel parcel = NewParcel();
    for (int i = 0; i < 16; ++i) ASSERT_EQ(AParcel_writeInt32(parcel.get(), -1), STATUS_OK);
    ASSERT_EQ(AParcel_reset(parcel.get()), STATUS_OK);
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 8), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::vector<int8_t>{7}), STATUS_OK);
    std::vector<uint8_t> bytes(16);
    ASSERT_EQ(AParcel_getDataSize(parcel.get()), 16);
    ASSERT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size()), STATUS_OK);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0}));
}

TEST(ParcelTest, ObjectRecordsAreCheckedAgainstTheParcel) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ndk::ScopedFileDescriptor readEnd(fds[0]);
    ndk::ScopedFileDescriptor writeEnd(fds[1]);
    // A descriptor record: non-null marker, tag, index into the parcel's
    // descriptors (of which there is one).
    Parcel descriptor = NewParcel();
    ASSERT_EQ(AParcel_writeParcelFileDescriptor(descriptor.get(), readEnd.get()), STATUS_OK);
    for (int32_t index : {1, -1}) {
        ASSERT_EQ(AParcel_setDataPosition(descriptor.get(), 8), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(descriptor.get(), index), STATUS_OK);
        Rewind(descriptor);
        int fd = -1;
        EXPECT_EQ(AParcel_readParcelFileDescriptor(descriptor.get(), &fd), STATUS_BAD_VALUE)
                << index;
        EXPECT_EQ(fd, -1);
    }

    // A binder record: tag, index, then the identity key's length.
    auto service = ndk::SharedRefBase::make<TestService>();
    Parcel binder = NewParcel();
    ASSERT_EQ(AParcel_writeStrongBinder(binder.get(), service->asBinder().get()), STATUS_OK);
    ASSERT_EQ(AParcel_setDataPosition(binder.get(), 4), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(binder.get(), 1), STATUS_OK);
    Rewind(binder);
    AIBinder* read = nullptr;
    EXPECT_EQ(AParcel_readStrongBinder(binder.get(), &read), STATUS_BAD_VALUE);
    ASSERT_EQ(AParcel_setDataPosition(binder.get(), 4), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(binder.get(), 0), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(binder.get(), 1 << 20), STATUS_OK);
    Rewind(binder);
    EXPECT_EQ(AParcel_readStrongBinder(binder.get(), &read), STATUS_BAD_VALUE);
    EXPECT_EQ(read, nullptr);
}

TEST(ParcelTest, StatusHeaderLayout) {
    ndk::ScopedAStatus specific =
            ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(42, "bad");
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeStatusHeader(parcel.get(), specific.get()), STATUS_OK);
    // exception, String16 "bad" (length, 3 units and a 0 unit), empty stack
    // trace header, code.
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4 + 4 + 8 + 4 + 4);
    Rewind(parcel);
    int32_t word = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &word), STATUS_OK);
    EXPECT_EQ(word, EX_SERVICE_SPECIFIC);
    Rewind(parcel);
    ndk::ScopedAStatus read;
    ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), read.getR()), STATUS_OK);
    EXPECT_EQ(read.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(read.getServiceSpecificError(), 42);
    EXPECT_STREQ(read.getMessage(), "bad");

    Parcel ok = NewParcel();
    ASSERT_EQ(AParcel_writeStatusHeader(ok.get(), ndk::ScopedAStatus::ok().get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(ok.get()), 4);

    // A transport error is returned, not written.
    Parcel failed = NewParcel();
    EXPECT_EQ(AParcel_writeStatusHeader(failed.get(),
                                        ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).get()),
              STATUS_DEAD_OBJECT);
    EXPECT_EQ(AParcel_getDataSize(failed.get()), 0);
}

TEST(ParcelTest, ParcelableExceptionWithItsEmptyBlobRoundTrips) {
    ndk::ScopedAStatus sent =
            ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_PARCELABLE, "blob");
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeStatusHeader(parcel.get(), sent.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 77), STATUS_OK);
    Rewind(parcel);
    ndk::ScopedAStatus read;
    ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), read.getR()), STATUS_OK);
    EXPECT_EQ(read.getExceptionCode(), EX_PARCELABLE);
    EXPECT_STREQ(read.getMessage(), "blob");
    int32_t after = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &after), STATUS_OK);
    EXPECT_EQ(after, 77);
}

TEST(ParcelTest, CorruptStatusHeadersAreErrors) {
    ndk::ScopedAStatus read;
    Parcel truncated = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(truncated.get(), EX_ILLEGAL_STATE), STATUS_OK);
    Rewind(truncated);
    EXPECT_EQ(AParcel_readStatusHeader(truncated.get(), read.getR()), STATUS_NOT_ENOUGH_DATA);

    Parcel stackTrace = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(stackTrace.get(), EX_ILLEGAL_STATE), STATUS_OK);
    ASSERT_EQ(AParcel_writeString(stackTrace.get(), "m", 1), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(stackTrace.get(), 1 << 20), STATUS_OK);
    Rewind(stackTrace);
    EXPECT_EQ(AParcel_readStatusHeader(stackTrace.get(), read.getR()), STATUS_BAD_VALUE);
    EXPECT_EQ(read.get(), nullptr);

    // A reply header smaller than its own size word would be read again as
    // the exception code.
    for (int32_t size : {0, 2}) {
        Parcel header = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(header.get(), -128), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(header.get(), size), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(header.get(), EX_NONE), STATUS_OK);
        Rewind(header);
        EXPECT_EQ(AParcel_readStatusHeader(header.get(), read.getR()), STATUS_BAD_VALUE) << size;
    }
}

TEST(ParcelTest, ResetMarshalAndAppend) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 2), STATUS_OK);
    Parcel copy = NewParcel();
    ASSERT_EQ(AParcel_appendFrom(parcel.get(), copy.get(), 4, 4), STATUS_OK);
    EXPECT_EQ(AParcel_appendFrom(parcel.get(), copy.get(), 4, 8), STATUS_BAD_VALUE);
    Rewind(copy);
    int32_t value = 0;
    ASSERT_EQ(AParcel_readInt32(copy.get(), &value), STATUS_OK);
    EXPECT_EQ(value, 2);

    uint8_t bytes[8];
    ASSERT_EQ(AParcel_marshal(parcel.get(), bytes, 0, 8), STATUS_OK);
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes, 4, 8), STATUS_BAD_VALUE);
    Parcel restored = NewParcel();
    ASSERT_EQ(AParcel_unmarshal(restored.get(), bytes, 8), STATUS_OK);
    ASSERT_EQ(AParcel_readInt32(restored.get(), &value), STATUS_OK);
    EXPECT_EQ(value, 1);

    ASSERT_EQ(AParcel_reset(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
