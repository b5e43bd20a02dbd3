// BSPLogProcessor: the module that, once per start of the daemon, makes the
// raw log partitions and the diagnostic folder accessible, runs the whole
// processing of the previous boot's logs on its own thread and then removes
// itself from the module manager.
#pragma once

#include <functional>
#include <string>

#include "framework/ModuleBase.h"

namespace zelkor::tessel {

class BSPLogProcessor : public ModuleBase {
  public:
    static constexpr char kName[] = "BSPLogProcessor";
    static constexpr char kByNameDir[] = "/dev/block/by-name/";
    static constexpr char kDiagDir[] = "/data/vendor/diag/";
    // Pauses of one second while waiting for the diagnostic folder.
    static constexpr int kDiagDirWaits = 10;
    static constexpr int kPartitionMode = 0660;
    static constexpr int kDiagFileMode = 0664;

    // One pause of the wait for the diagnostic folder.
    using Sleeper = std::function<void()>;

    // Pauses for one second.
    BSPLogProcessor();
    // Tests pause with `sleeper` instead.
    explicit BSPLogProcessor(Sleeper sleeper);

    // PreparePartitions(); always true.
    bool OnInit() override;
    // The boot run, then removal from the module manager.
    void OnAllModulesLoaded() override;

    // Asks the core service to make the device nodes behind the by-name links
    // of the raw log partitions group-writable (0660).
    void PreparePartitions();
    // Asks the core service to make every entry of "/data/vendor/diag/"
    // readable by all (0664).
    void PrepareLogFolder();
    // Tests for "/data/vendor/diag/" up to eleven times with a pause between
    // tests; true once it is there.
    bool WaitForDiagDir();

  private:
    Sleeper mSleeper;
};

// Registers "BSPLogProcessor" with priority 0 at static initialisation.
class BSPLogProcessorRegister {
  public:
    BSPLogProcessorRegister();
    // A new module, or null when it cannot be allocated.
    static ModuleBase* createInstance();
};

}  // namespace zelkor::tessel
