// Writes the fuzzers' seed corpora with the project's own encoders: printk
// and pmsg records as the kernel and logd store them, a minidump partition as
// `tessel-image dump add` writes it, a parcel as the binder runtime marshals
// it and an intent as the internal channel sends it.
//   make_seeds OUT_DIR   (one folder per fuzzer under OUT_DIR)
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "framework/InternalBroadcastManager.h"
#include "modules/LogManager/LogConfig.h"
#include "tests/LogRecords.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace fs = std::filesystem;
using namespace zelkor::tessel;

namespace {

void Seed(const fs::path& dir, const std::string& name, const std::string& bytes) {
    fs::create_directories(dir);
    std::ofstream(dir / name, std::ios::binary) << bytes;
}

std::string Printk() {
    return testing::PrintkRecord(5000123000ull, 0, "Kernel panic - not syncing: Oops") +
           testing::PrintkRecord(5000124000ull, 4, "Call trace:") +
           testing::PrintkRecord(5000125000ull, 4, " dump_backtrace+0x0/0x1e0");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
        return 2;
    }
    const fs::path out = argv[1];
    // Section writers: the first byte picks the section (1: md_kmsg, 0: the
    // kmdt form, 2: md_pmsg, 8: md_XBL_LOG).
    Seed(out / "section", "kmsg", std::string(1, 1) + Printk());
    Seed(out / "section", "kmdt", std::string(1, 0) + Printk());
    Seed(out / "section", "pmsg",
         std::string(1, 2) + testing::PmsgRecord(3, 612, 640, 1700000000, 5000000, 6, "init",
                                                 "starting service"));
    Seed(out / "section", "xbl", std::string(1, 8) + "XBL boot\r\nPM_OCP\r\n");

    // A minidump partition holding one dump with a kernel log section.
    const fs::path work = out / "work";
    fs::create_directories(work);
    std::ofstream(work / "kmsg.bin", std::ios::binary) << Printk();
    image::DumpAddOptions options;
    options.image = (work / "minidump.img").string();
    options.minidumpPartition = true;
    options.time = "2026-11-24 10:00:00";
    options.bootIndex = 41;
    options.sections.push_back({"md_kmsg", (work / "kmsg.bin").string()});
    std::string error;
    if (!image::WriteDump(options, &error)) {
        fprintf(stderr, "make_seeds: %s\n", error.c_str());
        return 1;
    }
    std::ifstream image(options.image, std::ios::binary);
    const std::string partition((std::istreambuf_iterator<char>(image)),
                                std::istreambuf_iterator<char>());
    Seed(out / "dump_partition", "one_dump", partition);
    Seed(out / "image_inspect", "minidump", partition);
    fs::remove_all(work);

    Seed(out / "crash_parse", "oops",
         "[  163.745001][    L1] Unable to handle kernel NULL pointer dereference\n"
         "[  163.745012][    L1] Call trace:\n[  163.745019][    L1]  faulty_write+0x14/0x20\n"
         "#\nXBL boot\r\nPM_OCP\r\nS2 OCP Occured 0x40\r\n#\nPON by SMPL\n#\n[5](42)\n");
    Seed(out / "tzlog_dict", "dict_and_log",
         "42:MOD:started %d\n43:SEC:fault at 0x%x in %s\n#\n[5](42 7)\n[6](43 4096 abc)\n");
    Seed(out / "kmsg", "records", "6,1,100,-;Booting Linux\n4,2,2000,-;Call trace:\n");

    AParcel* parcel = AParcel_create();
    AParcel_writeInt32(parcel, 42);
    ndk::AParcel_writeString(parcel, std::string("héllo"));
    ndk::AParcel_writeVector(parcel, std::vector<int8_t>{1, 2, 3});
    std::string marshalled(static_cast<size_t>(AParcel_getDataSize(parcel)), '\0');
    AParcel_marshal(parcel, reinterpret_cast<uint8_t*>(marshalled.data()), 0, marshalled.size());
    AParcel_delete(parcel);
    Seed(out / "parcel", "mixed", std::string("\x01\x12\x23\x30", 4) + marshalled);

    Intent intent("zelkor.fuzz");
    intent.putExtra("seq", int32_t{41});
    intent.putExtra("name", std::string("bsplog"));
    Seed(out / "intent_json", "extras", InternalBroadcastManager::intentToJsonStr(intent));

    LogConfig modem;
    modem.folderName = "modem";
    modem.inVendor = true;
    modem.maxSize = 200 << 10;
    modem.maxValidDay = 7;
    modem.compress = true;
    LogConfig ssr;
    ssr.folderName = "ssr";
    ssr.maxLogNumber = 5;
    modem.children.push_back(ssr);
    std::string config;
    JsonHelper::ObjectToJson(modem, config);
    Seed(out / "logconfig", "modem", "[" + config + "]");
    Seed(out / "logconfig", "ramdump_name", "ramdump_modem_2024-03-07_12-05-09.bin");
    return 0;
}
