// AParcel and AStatus: every type written and read back, the wire layout the
// platform shares, and reads of data that is short, overlong or corrupt.
#include <aidl/tessel/test/Record.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <sstream>

#include "TestService.h"
#include "platform/host/binder_ndk/Limits.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::Record;
using ndk::ScopedAStatus;

using Parcel = ndk::ScopedAParcel;

Parcel NewParcel() {
    return Parcel(AParcel_create());
}

void Rewind(const Parcel& parcel) {
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
}

// A parcel holding `words`, positioned at its start.
Parcel Words(const std::vector<int32_t>& words) {
    Parcel parcel = NewParcel();
    for (int32_t word : words) EXPECT_EQ(AParcel_writeInt32(parcel.get(), word), STATUS_OK);
    Rewind(parcel);
    return parcel;
}

// A parcel holding the string `text`, positioned at its start.
Parcel StringParcel(const std::string& text) {
    Parcel parcel = NewParcel();
    EXPECT_EQ(ndk::AParcel_writeString(parcel.get(), text), STATUS_OK);
    Rewind(parcel);
    return parcel;
}

// The next int32 or string, which must be there.
int32_t NextInt(const Parcel& parcel) {
    int32_t value = 0;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &value), STATUS_OK);
    return value;
}
std::string NextString(const Parcel& parcel) {
    std::string value;
    EXPECT_EQ(ndk::AParcel_readString(parcel.get(), &value), STATUS_OK);
    return value;
}

std::vector<uint8_t> Bytes(const Parcel& parcel) {
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel.get())));
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

// Writes `value`, which must take `size` bytes, and reads it back.
template <typename T>
void ExpectScalar(binder_status_t (*write)(AParcel*, T),
                  binder_status_t (*read)(const AParcel*, T*), T value, int32_t size) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(write(parcel.get(), value), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), size);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), size);
    Rewind(parcel);
    T back{};
    ASSERT_EQ(read(parcel.get(), &back), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), size);
    // Compared as bytes, so that a NaN equals itself.
    EXPECT_EQ(memcmp(&back, &value, sizeof(T)), 0) << +value;
}

template <typename T>
void ExpectNullableVectorRoundTrip(const std::vector<T>& value) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::optional<std::vector<T>>()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::optional(value)), STATUS_OK);
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
    // int32, uint32, float, bool, char and byte take four bytes, the 64-bit
    // types eight.
    ExpectScalar(AParcel_writeInt32, AParcel_readInt32, std::numeric_limits<int32_t>::min(), 4);
    ExpectScalar(AParcel_writeUint32, AParcel_readUint32, 0xdeadbeefu, 4);
    ExpectScalar(AParcel_writeInt64, AParcel_readInt64, -(int64_t{1} << 62), 8);
    ExpectScalar(AParcel_writeUint64, AParcel_readUint64, ~uint64_t{0}, 8);
    ExpectScalar(AParcel_writeFloat, AParcel_readFloat, 2.5f, 4);
    ExpectScalar(AParcel_writeDouble, AParcel_readDouble, std::nan(""), 8);
    ExpectScalar(AParcel_writeBool, AParcel_readBool, true, 4);
    ExpectScalar(AParcel_writeBool, AParcel_readBool, false, 4);
    ExpectScalar(AParcel_writeChar, AParcel_readChar, u'€', 4);
    ExpectScalar(AParcel_writeByte, AParcel_readByte, int8_t{-128}, 4);
}

TEST(ParcelTest, AsciiRunsOfEveryLengthAroundOtherCharacters) {
    // ASCII is widened and narrowed several bytes at a time: runs of every
    // length against characters whose units look ASCII in one byte ("Ł" is
    // 0x0141), take two bytes, three, or a surrogate pair, and against a NUL,
    // which ends nothing.
    for (const std::string& other : {std::string("Ł"), std::string("é"), std::string("€"),
                                     std::string("𝄞"), std::string(1, '\0')}) {
        for (size_t before = 0; before < 40; ++before) {
            for (size_t after : {size_t{0}, size_t{3}, size_t{9}, size_t{17}, size_t{33}}) {
                const std::string text =
                        std::string(before, 'a') + other + std::string(after, 'z') + other;
                Parcel parcel = StringParcel(text);
                EXPECT_EQ(NextInt(parcel), int32_t(before + after + (other == "𝄞" ? 4 : 2)));
                Rewind(parcel);
                EXPECT_TRUE(NextString(parcel) == text) << before << " " << after;
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
        // The units two to a word, then a 0 unit and padding.
        std::vector<int32_t> words{int32_t(units.size())};
        const std::u16string terminated = units + u'\0' + u'\0';
        for (size_t i = 0; i + 1 < terminated.size(); i += 2) {
            words.push_back(int32_t(terminated[i] | (terminated[i + 1] << 16)));
        }
        EXPECT_TRUE(NextString(Words(words)) == expected) << units.size();
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
        const std::vector<uint8_t> bytes = Bytes(appended);
        int32_t count = -1;
        memcpy(&count, bytes.data() + 4, 4);
        EXPECT_EQ(size_t(count), units);
        for (size_t i = 8 + units * 2; i < size; ++i) EXPECT_EQ(bytes[i], 0) << text << " " << i;

        // The same bytes over 64 bytes of 0xFF words, which stay after them.
        Parcel over = Words(std::vector<int32_t>(16, -1));
        ASSERT_EQ(AParcel_writeInt32(over.get(), 7), STATUS_OK);
        ASSERT_EQ(ndk::AParcel_writeString(over.get(), text), STATUS_OK);
        EXPECT_EQ(size_t(AParcel_getDataPosition(over.get())), size);
        const size_t total = std::max<size_t>(64, size);
        ASSERT_EQ(size_t(AParcel_getDataSize(over.get())), total);
        const std::vector<uint8_t> overBytes = Bytes(over);
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), overBytes.begin())) << text;
        EXPECT_TRUE(std::all_of(overBytes.begin() + size, overBytes.end(),
                                [](uint8_t b) { return b == 0xFF; }));
    }
}

TEST(ParcelTest, RefusedStringsLeaveTheParcelAsItWas) {
    // Invalid UTF-8 (last after a run long enough to be encoded in blocks), a
    // null pointer with a length, a negative length.
    const std::string longBad = std::string(40, 'a') + "é\xff";
    for (const auto& [text, length] :
         std::vector<std::pair<const char*, int32_t>>{{"\xff\xfe", 2},
                                                      {"\xc3", 1},
                                                      {"\xc0\xaf", 2},
                                                      {nullptr, 3},
                                                      {"abc", -2},
                                                      {longBad.c_str(), int32_t(longBad.size())}}) {
        Parcel parcel = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), 7), STATUS_OK);
        EXPECT_EQ(AParcel_writeString(parcel.get(), text, length), STATUS_BAD_VALUE) << length;
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
        ASSERT_EQ(ndk::AParcel_writeString(parcel.get(), std::string("ok")), STATUS_OK);
        Rewind(parcel);
        EXPECT_EQ(NextInt(parcel), 7);
        EXPECT_EQ(NextString(parcel), "ok");
    }
}

TEST(ParcelTest, DataFitsUpToTheParcelSizeLimit) {
    // 17 MiB of three-byte characters: a unit per byte would pass the
    // parcel's limit, its 5.9 million units do not.
    std::string text;
    text.reserve(size_t{17} << 20);
    while (text.size() + 3 <= (size_t{17} << 20)) text += "€";
    Parcel parcel = StringParcel(text);
    EXPECT_EQ(size_t(AParcel_getDataSize(parcel.get())),
              4 + ((text.size() / 3 + 1) * 2 + 3) / 4 * 4);
    EXPECT_TRUE(NextString(parcel) == text);
    // Half the limit in ASCII bytes is more than the limit in units.
    const std::string ascii(binder::kMaxParcelBytes / 2, 'a');
    Parcel tooLong = NewParcel();
    EXPECT_EQ(ndk::AParcel_writeString(tooLong.get(), ascii), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(tooLong.get()), 0);

    // The length word and the bytes fill the parcel exactly; one byte more
    // (padded to four) does not fit.
    Parcel full = NewParcel();
    std::vector<int8_t> bytes(binder::kMaxParcelBytes - 4);
    EXPECT_EQ(ndk::AParcel_writeVector(full.get(), bytes), STATUS_OK);
    bytes.push_back(0);
    EXPECT_EQ(ndk::AParcel_writeVector(tooLong.get(), bytes), STATUS_NO_MEMORY);
}

// Reads a T from `parcel`, giving the status; a read that fails leaves the
// caller's value empty.
template <typename T>
binder_status_t ReadInto(const AParcel* parcel) {
    T value;
    binder_status_t status;
    if constexpr (std::is_same_v<T, std::string>) {
        status = ndk::AParcel_readString(parcel, &value);
    } else {
        status = ndk::AParcel_readVector(parcel, &value);
    }
    EXPECT_TRUE(status == STATUS_OK || value.empty());
    return status;
}

// An allocator that counts its calls: an overlong length must be refused
// before anything is allocated for it.
int gAllocations = 0;
bool CountingAllocator(void* data, int32_t length, int32_t** buffer) {
    ++gAllocations;
    return ndk::AParcel_stdVectorAllocator<int32_t>(data, length, buffer);
}

TEST(ParcelTest, ShortOrCorruptDataIsAnError) {
    using Reader = std::function<binder_status_t(const AParcel*)>;
    const Reader string = ReadInto<std::string>;
    const Reader strings = ReadInto<std::vector<std::string>>;
    const Reader longs = ReadInto<std::vector<int64_t>>;
    const Reader bytes = ReadInto<std::vector<uint8_t>>;
    const Reader records = ReadInto<std::vector<Record>>;
    // A scalar that is not all there leaves the value and the position alone.
    const Reader int64 = [](const AParcel* parcel) {
        int64_t value = 7;
        binder_status_t result = AParcel_readInt64(parcel, &value);
        EXPECT_EQ(value, 7);
        EXPECT_EQ(AParcel_getDataPosition(parcel), 0);
        return result;
    };
    const Reader countedInts = [](const AParcel* parcel) {
        std::vector<int32_t> value;
        gAllocations = 0;
        binder_status_t result = AParcel_readInt32Array(parcel, &value, CountingAllocator);
        EXPECT_EQ(gAllocations, 0);
        EXPECT_TRUE(value.empty());
        return result;
    };
    const Reader outLongs = [](const AParcel* parcel) {
        std::vector<int64_t> value;
        return ndk::AParcel_resizeVector(parcel, &value);
    };
    const Reader status = [](const AParcel* parcel) {
        ScopedAStatus value;
        binder_status_t result = AParcel_readStatusHeader(parcel, value.getR());
        EXPECT_EQ(value.get(), nullptr);
        return result;
    };
    const Reader record = [](const AParcel* parcel) { return Record().readFromParcel(parcel); };
    // Four wire bytes per claimed record pass the length check, but as
    // records the claim would need hundreds of times that in memory.
    std::vector<int32_t> recordClaim((size_t{2} << 20) + 1);
    recordClaim[0] = int32_t{2} << 20;
    struct Case {
        const char* what;
        std::vector<int32_t> words;
        Reader read;
        binder_status_t expected;
    };
    for (const Case& c : std::vector<Case>{
                 {"int64 from an empty parcel", {}, int64, STATUS_NOT_ENOUGH_DATA},
                 {"int64 from one word", {1}, int64, STATUS_NOT_ENOUGH_DATA},
                 {"string past the end", {1000, 0x00620061}, string, STATUS_NOT_ENOUGH_DATA},
                 {"string without its 0 unit", {1, 0x00620061}, string, STATUS_BAD_VALUE},
                 {"negative string length", {-9}, string, STATUS_BAD_VALUE},
                 {"null string read as a required one", {-1}, string, STATUS_UNEXPECTED_NULL},
                 {"string array past the end", {0x7fffffff}, strings, STATUS_NOT_ENOUGH_DATA},
                 {"negative array length", {-2}, longs, STATUS_BAD_VALUE},
                 {"negative byte array length", {-2}, bytes, STATUS_BAD_VALUE},
                 {"null byte array for a vector", {-1}, bytes, STATUS_UNEXPECTED_NULL},
                 {"large byte array past the end",
                  {(1 << 20) + 1, 7},
                  bytes,
                  STATUS_NOT_ENOUGH_DATA},
                 {"byte array past its padding", {5, 0x04030201}, bytes, STATUS_NOT_ENOUGH_DATA},
                 {"int32 array of 2^31-1", {0x7fffffff, 1}, countedInts, STATUS_NOT_ENOUGH_DATA},
                 {"int32 array of 2^30", {0x40000000, 1}, countedInts, STATUS_NOT_ENOUGH_DATA},
                 {"int32 array of 3", {3, 1}, countedInts, STATUS_NOT_ENOUGH_DATA},
                 {"out array too long", {1 << 30}, outLongs, STATUS_BAD_VALUE},
                 {"exception without message", {EX_ILLEGAL_STATE}, status, STATUS_NOT_ENOUGH_DATA},
                 {"stack trace past the end",
                  {EX_ILLEGAL_STATE, 1, 'm', 1 << 20},
                  status,
                  STATUS_BAD_VALUE},
                 // A reply header smaller than its own size word would be read
                 // again as the exception code.
                 {"reply header of size 0", {-128, 0, EX_NONE}, status, STATUS_BAD_VALUE},
                 {"reply header of size 2", {-128, 2, EX_NONE}, status, STATUS_BAD_VALUE},
                 // Non-null marker, size, then the fields.
                 {"negative parcelable size", {1, -100, 0}, record, STATUS_BAD_VALUE},
                 {"parcelable past the end", {1, 0x7ffffff0, 3}, record, STATUS_NOT_ENOUGH_DATA},
                 {"record array longer than memory allows", recordClaim, records, STATUS_NO_MEMORY},
         }) {
        EXPECT_EQ(c.read(Words(c.words).get()), c.expected) << c.what;
    }
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
    std::vector<uint8_t> large((size_t{1} << 20) + 3);
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i % 251);
    ExpectVectorRoundTrip(large);
    ExpectVectorRoundTrip<std::string>({"a", "", "ö"});
    ExpectVectorRoundTrip<int32_t>({});
    ExpectNullableVectorRoundTrip<std::optional<std::string>>({"a", std::nullopt, ""});

    // An out array travels as its size alone.
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeVectorSize(parcel.get(), std::vector<int32_t>(3)), STATUS_OK);
    Rewind(parcel);
    std::vector<int32_t> three;
    ASSERT_EQ(ndk::AParcel_resizeVector(parcel.get(), &three), STATUS_OK);
    EXPECT_EQ(three.size(), 3u);
}

// Generated parcelables leave scalar fields uninitialised.
Record MakeRecord(const std::string& name) {
    Record record;
    record.name = name;
    record.size = int64_t{1} << 40;
    record.mtime = -17;
    record.flag = true;
    record.ratio = 0.125;
    record.inner.id = 99;
    record.inner.label = "inner " + name;
    record.values = {1, -2, 3};
    record.tags = {"a", "", "ünï"};
    record.note = name;
    return record;
}

// Every field, for comparison.
auto Fields(const Record& r) {
    return std::tie(r.name, r.size, r.mtime, r.flag, r.ratio, r.inner.id, r.inner.label, r.values,
                    r.tags, r.note);
}

TEST(ParcelTest, GeneratedParcelablesRoundTrip) {
    Record noNote = MakeRecord("");
    noNote.note = std::nullopt;
    noNote.flag = false;
    const std::vector<Record> records{MakeRecord("log"), noNote, MakeRecord("ünï")};
    Parcel parcel = NewParcel();
    ASSERT_EQ(records[0].writeToParcel(parcel.get()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), records), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 77), STATUS_OK);
    Rewind(parcel);
    Record read;
    std::vector<Record> readRecords;
    ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &readRecords), STATUS_OK);
    EXPECT_EQ(NextInt(parcel), 77);
    EXPECT_EQ(Fields(read), Fields(records[0]));
    ASSERT_EQ(readRecords.size(), records.size());
    for (size_t i = 0; i < records.size(); ++i)
        EXPECT_EQ(Fields(readRecords[i]), Fields(records[i]));
}

// That a descriptor read back is a working copy is seen across processes in
// RoundTripTest; here what a parcel refuses.
TEST(ParcelTest, DescriptorsAreCountedAndFoundByIndex) {
    Parcel parcel = NewParcel();
    ASSERT_EQ(ndk::AParcel_writeRequiredParcelFileDescriptor(
                      parcel.get(), ndk::ScopedFileDescriptor(dup(STDERR_FILENO))),
              STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableParcelFileDescriptor(parcel.get(),
                                                             ndk::ScopedFileDescriptor()),
              STATUS_OK);
    Rewind(parcel);
    ndk::ScopedFileDescriptor read;
    ndk::ScopedFileDescriptor null;
    ASSERT_EQ(ndk::AParcel_readRequiredParcelFileDescriptor(parcel.get(), &read), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readRequiredParcelFileDescriptor(parcel.get(), &null),
              STATUS_UNEXPECTED_NULL);
    // Parcels with descriptors cannot be marshalled into plain bytes.
    uint8_t byte;
    EXPECT_EQ(AParcel_marshal(parcel.get(), &byte, 0, 1), STATUS_INVALID_OPERATION);

    // The record is a non-null marker, a tag and an index into the parcel's
    // descriptors, of which there is one.
    for (int32_t index : {1, -1}) {
        ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 8), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), index), STATUS_OK);
        Rewind(parcel);
        int fd = -1;
        EXPECT_EQ(AParcel_readParcelFileDescriptor(parcel.get(), &fd), STATUS_BAD_VALUE) << index;
        EXPECT_EQ(fd, -1);
    }

    // A parcel holds at most 253, the one above included.
    binder_status_t status = STATUS_OK;
    int written = 1;
    while ((status = AParcel_writeParcelFileDescriptor(parcel.get(), STDERR_FILENO)) == STATUS_OK) {
        ASSERT_LT(++written, 1000);
    }
    EXPECT_EQ(written, 253);
    EXPECT_EQ(status, STATUS_NO_MEMORY);
}

TEST(ParcelTest, PackedArraysArePaddedAndBytesNeverWrittenGoOutAsZeros) {
    // A reset keeps the buffer; what it held before must not reach a peer
    // through a gap left by a position past the end, nor through padding.
    Parcel parcel = Words(std::vector<int32_t>(16, -1));
    ASSERT_EQ(AParcel_reset(parcel.get()), STATUS_OK);
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 8), STATUS_OK);
    const std::vector<int8_t> five{1, 2, 3, 4, 5};
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), std::vector<int8_t>{7}), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVector(parcel.get(), five), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 42), STATUS_OK);
    EXPECT_EQ(Bytes(parcel),
              (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 7,  0, 0, 0,
                                    5, 0, 0, 0, 1, 2, 3, 4, 5, 0, 0, 0, 42, 0, 0, 0}));
    // Reads skip the padding too.
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 16), STATUS_OK);
    std::vector<int8_t> bytes;
    ASSERT_EQ(ndk::AParcel_readVector(parcel.get(), &bytes), STATUS_OK);
    EXPECT_EQ(bytes, five);
    EXPECT_EQ(NextInt(parcel), 42);
}

TEST(ParcelTest, BinderRecordsAreCheckedAgainstTheParcel) {
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

TEST(ParcelTest, PositionsAppendMarshalAndReset) {
    Parcel parcel = Words({1, 2});
    // A position past the end is allowed; reads there fail.
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 1000), STATUS_OK);
    int32_t value;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &value), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), -4), STATUS_BAD_VALUE);
    Parcel copy = NewParcel();
    ASSERT_EQ(AParcel_appendFrom(parcel.get(), copy.get(), 4, 4), STATUS_OK);
    EXPECT_EQ(AParcel_appendFrom(parcel.get(), copy.get(), 4, 8), STATUS_BAD_VALUE);
    Rewind(copy);
    EXPECT_EQ(NextInt(copy), 2);

    uint8_t bytes[8];
    ASSERT_EQ(AParcel_marshal(parcel.get(), bytes, 0, 8), STATUS_OK);
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes, 4, 8), STATUS_BAD_VALUE);
    Parcel restored = NewParcel();
    ASSERT_EQ(AParcel_unmarshal(restored.get(), bytes, 8), STATUS_OK);
    EXPECT_EQ(NextInt(restored), 1);

    ASSERT_EQ(AParcel_reset(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 0);
}

// AStatus: what each constructor means to the getters and the description,
// and the reply header it travels in: the exception, the message as a
// String16, an empty stack trace header, then the service-specific code or an
// empty parcelable blob. The data after a header is read from where it ends.
TEST(StatusTest, GettersDescriptionsAndReplyHeaders) {
    struct Case {
        ScopedAStatus status;
        binder_exception_t exception;
        binder_status_t code;
        int32_t specific;
        const char* message;
        const char* description;
        int32_t headerSize;  // 0: a transport error, returned instead of written
    };
    const Case cases[] = {
            {ScopedAStatus::ok(), EX_NONE, STATUS_OK, 0, "", "No error", 4},
            {ScopedAStatus::fromStatus(STATUS_OK), EX_NONE, STATUS_OK, 0, "", "No error", 4},
            {ScopedAStatus::fromExceptionCode(EX_NONE), EX_NONE, STATUS_OK, 0, "", "No error", 4},
            // Transport errors are transaction failures.
            {ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT), EX_TRANSACTION_FAILED,
             STATUS_DEAD_OBJECT, 0, "", "Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", 0},
            {ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED), EX_TRANSACTION_FAILED,
             STATUS_FAILED_TRANSACTION, 0, "",
             "Status(-129, EX_TRANSACTION_FAILED): 'FAILED_TRANSACTION: '", 0},
            // Values outside the defined sets collapse to their catch-alls.
            {ScopedAStatus::fromStatus(12345), EX_TRANSACTION_FAILED, STATUS_UNKNOWN_ERROR, 0, "",
             "Status(-129, EX_TRANSACTION_FAILED): 'UNKNOWN_ERROR: '", 0},
            {ScopedAStatus::fromExceptionCode(-77), EX_TRANSACTION_FAILED,
             STATUS_FAILED_TRANSACTION, 0, "",
             "Status(-129, EX_TRANSACTION_FAILED): 'FAILED_TRANSACTION: '", 0},
            // "no" is a length, two units and a 0 unit, padded to eight bytes.
            {ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "no"),
             EX_ILLEGAL_ARGUMENT, STATUS_OK, 0, "no", "Status(-3, EX_ILLEGAL_ARGUMENT): 'no'", 20},
            {ScopedAStatus::fromExceptionCodeWithMessage(EX_PARCELABLE, "blob"), EX_PARCELABLE,
             STATUS_OK, 0, "blob", "Status(-9, EX_PARCELABLE): 'blob'", 28},
            {ScopedAStatus::fromServiceSpecificErrorWithMessage(-22, "invalid"),
             EX_SERVICE_SPECIFIC, STATUS_OK, -22, "invalid",
             "Status(-8, EX_SERVICE_SPECIFIC): '-22: invalid'", 32},
            {ScopedAStatus::fromServiceSpecificError(3), EX_SERVICE_SPECIFIC, STATUS_OK, 3, "",
             "Status(-8, EX_SERVICE_SPECIFIC): '3: '", 20},
    };
    for (const Case& c : cases) {
        Parcel parcel = NewParcel();
        const binder_status_t written = AParcel_writeStatusHeader(parcel.get(), c.status.get());
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), c.headerSize) << c.description;
        ScopedAStatus read;
        if (c.headerSize == 0) {
            EXPECT_EQ(written, c.code) << c.description;
        } else {
            ASSERT_EQ(written, STATUS_OK) << c.description;
            ASSERT_EQ(AParcel_writeInt32(parcel.get(), 77), STATUS_OK);
            Rewind(parcel);
            ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), read.getR()), STATUS_OK);
            EXPECT_EQ(NextInt(parcel), 77) << c.description;
        }
        // The status as made and as read back from its header.
        const ScopedAStatus* const statuses[] = {&c.status, &read};
        for (const ScopedAStatus* status : statuses) {
            if (status->get() == nullptr) continue;
            EXPECT_EQ(status->isOk(), c.exception == EX_NONE) << c.description;
            EXPECT_EQ(status->getExceptionCode(), c.exception) << c.description;
            EXPECT_EQ(status->getStatus(), c.code) << c.description;
            EXPECT_EQ(status->getServiceSpecificError(), c.specific) << c.description;
            EXPECT_STREQ(status->getMessage(), c.message);
            std::ostringstream text;
            text << *status;
            EXPECT_EQ(text.str(), c.description);
        }
    }
    // An empty holder was never given a result.
    EXPECT_FALSE(ScopedAStatus().isOk());
}

}  // namespace
}  // namespace zelkor::tessel::testing
