// The hardware-info module: once per boot it collects the device's hardware
// identifiers and writes each twice, as text into a kernel node (which the
// kernel puts into its own crash dumps) and RSA-encrypted into the blackbox
// partition's hardware-information region.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "framework/ModuleBase.h"

namespace zelkor::tessel {

class HalvexHandler;

// Where one identifier comes from.
struct InfoItem {
    std::optional<std::string> file;      // takes precedence over the property
    std::optional<std::string> property;  // read when there is no file
    int32_t line = 1;                     // 1-based line of the file
    // When the first pass finds nothing: negative gives up; otherwise the
    // delay of the one retry (file) or the longest wait for the property.
    int32_t waitMs = 0;
};

class HardWareInfoModule : public ModuleBase {
  public:
    static constexpr char kName[] = "HardWareInfo";
    static constexpr char kKernelNode[] = "/sys/kernel/hardware_info_to_dump/hardw_info";

    HardWareInfoModule();

    void OnAllModulesLoaded() override;

    std::optional<InfoItem> FindInfoByKey(const std::string& key) const;
    std::optional<std::string> ReadInfo(const std::optional<InfoItem>& item) const;
    bool WriteToKernel(const std::pair<std::string, std::string>& record);
    bool WriteToBlackbox(const std::pair<std::string, std::string>& record);
    void PrepareBlackbox();
    // Encrypts, encodes and writes one record at fd's position: the sum of
    // the two write results, or -1.
    static int WriteEncryptData(int fd, const char* text);

    const std::vector<std::pair<std::string, InfoItem>>& items() const { return mItems; }

  private:
    // Writes a value to both places, with the run's messages.
    void Write(const std::string& key, const std::string& value);
    void Collect(const std::string& key, const InfoItem& item);
    // The one delayed retry of a file item, on the module's thread.
    void Retry(const std::string& key, const InfoItem& item);

    std::vector<std::pair<std::string, InfoItem>> mItems;
    std::shared_ptr<HalvexHandler> mHandler;
};

class HardWareInfoModuleRegister {
  public:
    HardWareInfoModuleRegister();
    static ModuleBase* createInstance();
};

}  // namespace zelkor::tessel
