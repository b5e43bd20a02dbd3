#define LOG_TAG "Halvex-HardWareInfo"

#include "modules/HardWareInfo/hwInfoModule.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <sstream>

#include "framework/HalvexHandler.h"
#include "framework/HalvexLooper.h"
#include "framework/ModuleManager.h"
#include "modules/HardWareInfo/HwInfoCrypto.h"
#include "modules/blackbox/BlackBoxHwinfo.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackboxLayout.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel {
namespace {

// What is read of a source file: far more than any identifier needs (sysfs
// gives one page), far less than a file on a host could hold.
constexpr size_t kSourceReadMax = 64 * 1024;

// Process-wide, as the kernel keeps one node: a module that removed itself
// after opening it leaves it open until the process ends.
android::base::unique_fd& KernelFd() {
    static auto* fd = new android::base::unique_fd();
    return *fd;
}
android::base::unique_fd& BlackboxFd() {
    static auto* fd = new android::base::unique_fd();
    return *fd;
}

std::string RecordText(const std::pair<std::string, std::string>& record) {
    return "[" + record.first + "]: " + record.second + "\n";
}

int OpenKernelNode() {
    return open(platform::DevicePath(HardWareInfoModule::kKernelNode).c_str(), O_RDWR | O_CLOEXEC);
}

InfoItem File(const char* path, int32_t line = 1) {
    return InfoItem{std::string(path), std::nullopt, line, 0};
}
InfoItem Property(const char* name, int32_t waitMs = 0) {
    return InfoItem{std::nullopt, std::string(name), 1, waitMs};
}

}  // namespace

HardWareInfoModule::HardWareInfoModule()
    : mItems{{"DDR", File("/proc/mv", 1)},
             {"UFS", File("/proc/mv", 2)},
             {"SOC_VERSION", File("/sys/devices/soc0/revision")},
             {"SOC_SN", File("/sys/devices/soc0/serial_number")},
             {"SOC_ID", File("/sys/devices/soc0/soc_id")},
             {"DISPLAY", File("/sys/class/zk_display/disp-DSI-0/panel_info")},
             {"TP_IC_FW_VERSION", File("/proc/tp_fw_version")},
             {"TP_HW_INFO", File("/proc/tp_lockdown_info")},
             {"POWERUP_REASON", File("/sys/bootinfo/powerup_reason")},
             {"POWEROFF_REASON", File("/sys/bootinfo/poweroff_reason")},
             {"BATTERY", File("/sys/class/qcom-battery/fg_vendor")},
             {"FINGERPRINT", Property("persist.vendor.sys.fp.vendor")},
             {"WLAN&BT", Property("vendor.wlan.firmware.version")},
             {"NFC", Property("ro.vendor.se.chip.model")},
             {"CAMERA_FRONTMAIN", Property("vendor.camera.sensor.frontMain.fuseID")},
             {"CAMERA_REARMAIN", Property("vendor.camera.sensor.rearMain.fuseID", 1000)},
             {"CAMERA_REARTELE", Property("vendor.camera.sensor.rearTele.fuseID", 100)},
             {"CAMERA_REARULTRA", Property("vendor.camera.sensor.rearUltra.fuseID", 100)}} {}

std::optional<InfoItem> HardWareInfoModule::FindInfoByKey(const std::string& key) const {
    if (key.empty()) return std::nullopt;
    for (const auto& [name, item] : mItems) {
        if (name == key) return item;
    }
    return std::nullopt;
}

std::optional<std::string> HardWareInfoModule::ReadInfo(const std::optional<InfoItem>& item) const {
    if (!item.has_value()) return std::nullopt;
    if (item->file.has_value()) {
        std::ifstream in(platform::DevicePath(*item->file));
        if (!in) {
            HLOGE("ReadInfo failed!!");
            return std::nullopt;
        }
        // Kernel files hold a line or two; only their first part is read, so
        // a file of any size costs a bounded buffer.
        std::string head(kSourceReadMax, '\0');
        in.read(head.data(), static_cast<std::streamsize>(head.size()));
        head.resize(static_cast<size_t>(in.gcount()));
        std::istringstream lines(head);
        int read = 0;
        for (std::string line; std::getline(lines, line);) {
            if (++read == item->line) return line;
        }
        if (read + 1 < item->line) HLOGE("line index is invalid, max line index is %d", read + 1);
        HLOGF("HWInfo Map info is invalid!");
        return std::nullopt;
    }
    if (item->property.has_value()) {
        std::string value = platform::GetProperty(*item->property, "");
        if (value.empty()) return std::nullopt;
        return value;
    }
    HLOGF("HWInfo Map info is invalid!");
    return std::nullopt;
}

bool HardWareInfoModule::WriteToKernel(const std::pair<std::string, std::string>& record) {
    android::base::unique_fd& fd = KernelFd();
    if (!fd.ok()) {
        HLOGW("kernel fd closed unexpected! reopen for write. but please debug it also!");
        fd.reset(OpenKernelNode());
        if (!fd.ok()) {
            HLOGE("reopen failed! error %d(%s)", errno, strerror(errno));
            return false;
        }
    }
    const std::string text = RecordText(record);
    return write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool HardWareInfoModule::WriteToBlackbox(const std::pair<std::string, std::string>& record) {
    if (!BlackboxFd().ok()) return false;
    WriteEncryptData(BlackboxFd().get(), RecordText(record).c_str());
    return true;
}

int HardWareInfoModule::WriteEncryptData(int fd, const char* text) {
    if (fd < 0 || text == nullptr) return -1;
    unsigned char* cipher = nullptr;
    const int length = HwInfo::rsa_pub_encrypt(text, &cipher);
    if (length < 0) return -1;
    char* encoded = HwInfo::base64_encode(cipher, length);
    free(cipher);
    if (encoded == nullptr) return -1;
    const size_t size = strlen(encoded);
    // The region ends where the partition does: a record that would run past
    // it is not written (an image file would grow instead).
    const off_t at = lseek(fd, 0, SEEK_CUR);
    const int64_t limit = blackbox::partition_size(fd);
    static const char kEnd[2] = {'\n', '\0'};
    int result = -1;
    if (at < 0 || limit < 0 ||
        !blackbox::range_fits(static_cast<uint64_t>(at), size + sizeof(kEnd),
                              static_cast<uint64_t>(limit))) {
        errno = ENOSPC;
        HLOGE("write encode buf fail %d(%s)\n", errno, strerror(errno));
    } else {
        const ssize_t first = write(fd, encoded, size);
        if (first < 0) HLOGE("write encode buf fail %d(%s)\n", errno, strerror(errno));
        const ssize_t second = write(fd, kEnd, sizeof(kEnd));
        if (second < 0) HLOGE("write buf fail %d(%s)\n", errno, strerror(errno));
        result = static_cast<int>(first + second);
    }
    free(encoded);
    return result;
}

void HardWareInfoModule::PrepareBlackbox() {
    android::base::unique_fd& fd = BlackboxFd();
    fd.reset(open(platform::DevicePath(blackbox::kBlackboxPartition).c_str(), O_RDWR | O_CLOEXEC));
    if (!fd.ok()) {
        HLOGW("Open blackbox partition failed! This device may not supported blackbox. error: "
              "%d(%s)",
              errno, strerror(errno));
        return;
    }
    const blackbox::HwinfoLocation where = blackbox::read_hwinfo_location(fd.get());
    if (where.table_short_read) HLOGE("Read log_table_header error!!!");
    if (!where.table_valid) HLOGE("Blackbox Log table is invalid!");
    HLOGI("log_table_header: header info before write: control_content_offset = 0x%x, "
          "boot_index = %d \n",
          where.control_content_offset, static_cast<int>(where.boot_index));
    if (where.control_short_read) HLOGE("Read control_content_header error!!!");
    if (!where.control_valid) HLOGI("after init, hwinfo_offset: %d.", where.hwinfo_offset);
    lseek(fd.get(), where.hwinfo_offset, SEEK_SET);
}

void HardWareInfoModule::Write(const std::string& key, const std::string& value) {
    if (!WriteToKernel({key, value})) HLOGE("Write to kernel failed!");
    if (!WriteToBlackbox({key, value})) HLOGW("Write to blackbox failed!");
}

void HardWareInfoModule::Collect(const std::string& key, const InfoItem& item) {
    std::optional<std::string> value = ReadInfo(item);
    if (value.has_value()) {
        Write(key, *value);
        return;
    }
    if (item.waitMs < 0) {
        HLOGE("Getting info for %s failed! ignored!", key.c_str());
        return;
    }
    HLOGW("Result is empty. retry or waiting for %s", key.c_str());
    if (item.file.has_value()) {
        // One retry, after the delay, on this thread: behind the first pass.
        mHandler->postDelayed([this, key, item]() { Retry(key, item); }, item.waitMs);
        return;
    }
    platform::WaitForPropertyCreation(*item.property, std::chrono::milliseconds(item.waitMs));
    value = ReadInfo(item);
    if (value.has_value()) {
        Write(key, *value);
    } else {
        HLOGE("Getting info for %s failed after wait! ignored!", key.c_str());
    }
}

void HardWareInfoModule::Retry(const std::string& key, const InfoItem& item) {
    std::optional<std::string> value = ReadInfo(item);
    if (value.has_value()) {
        Write(key, *value);
    } else {
        HLOGE("Getting info for %s failed after retry! ignored!", key.c_str());
    }
}

void HardWareInfoModule::OnAllModulesLoaded() {
    HLOGI("initing...");
    const std::optional<InfoItem> front = FindInfoByKey("CAMERA_FRONTMAIN");
    if (!ReadInfo(front).has_value()) {
        // The camera service publishes its fuse ids once it runs; the whole
        // collection waits for it.
        HLOGD("not ready, waiting for camera hal init");
        platform::WaitForPropertyCreation(*front->property);
        HLOGD("continue");
    }

    android::base::unique_fd& kernel = KernelFd();
    kernel.reset(OpenKernelNode());
    if (!kernel.ok()) {
        HLOGE("Open kernel node failed! can not continue!! error: %d(%s)", errno, strerror(errno));
        removeModule(kName, false);
        return;
    }
    char first = 0;
    if (read(kernel.get(), &first, 1) == 1 && first != '\n') {
        HLOGE("kernel buff is not empty, will not continue!");
        removeModule(kName, false);
        return;
    }
    PrepareBlackbox();
    mHandler = std::make_shared<HalvexHandler>(HalvexLooper::myLooper());
    for (const auto& [key, item] : mItems) Collect(key, item);
}

HardWareInfoModuleRegister::HardWareInfoModuleRegister() {
    RegisterModule("HardWareInfoModuleRegister", HardWareInfoModule::kName, 0, &createInstance);
}

ModuleBase* HardWareInfoModuleRegister::createInstance() {
    return new (std::nothrow) HardWareInfoModule();
}

// Its construction is the registration; the daemon links this library whole
// so that the object is kept.
static HardWareInfoModuleRegister sHardWareInfoModuleRegister;

}  // namespace zelkor::tessel
