// The log manager's listener: a new entry in a watched folder makes the module
// check that folder on its own thread.
#pragma once

#include "utils/FileEventListener.h"

namespace zelkor::tessel {

class LogManagerVendor;

class LogMgrFileEventListener : public FileEventListener {
  public:
    LogMgrFileEventListener(LogManagerVendor* module, const std::vector<std::string>& paths,
                            uint32_t mask);
    ~LogMgrFileEventListener() override;

    void OnFileEvent(uint32_t mask, std::optional<std::string> name,
                     const std::string& basePath) override;
    // Lost events: every watched folder is checked once.
    void OnQueueOverflow() override;

  private:
    LogManagerVendor* const mModule;
};

}  // namespace zelkor::tessel
