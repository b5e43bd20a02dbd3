#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "framework/HalvexHandler.h"
#include "framework/ModuleBase.h"

namespace zelkor::tessel {

using ModuleFactory = ModuleBase* (*)();

// One module's registry entry.
struct ModulePrio {
    uint32_t priority = 0;            // larger loads earlier
    ModuleBase* instance = nullptr;   // owned; null while removed
    bool stopped = true;              // not running; may be loaded by name
    ModuleFactory factory = nullptr;  // fresh instances for later loads
};

using ModuleList = std::map<std::string, ModulePrio>;

// The global module list, ready for registrars in any order of static
// initialisation. Read and changed only under ModuleListLock(): the load run
// and removals on the manager's thread, dump and load commands on binder
// threads.
ModuleList& GetModuleList();
std::recursive_mutex& ModuleListLock();

// Registers a module the way every registrar does: allocates its first
// instance with the factory and enters it under name, keeping the first
// registration of a name. registrarName names the caller in the log.
void RegisterModule(const char* registrarName, const std::string& name, uint32_t priority,
                    ModuleFactory factory);

// Posts the removal of one module to the manager's thread: its thread is
// stopped (after draining its queue when safely is true) and joined, its
// instance destroyed; the entry stays, so it can be loaded again.
void removeModule(const std::string& name, bool safely);

class ModuleManager {
  public:
    // Handler on the "ModuleManager" thread, which loads, removes and delivers.
    static std::shared_ptr<HalvexHandler> GetManagerHandler();

    // Posts the load run and returns at once.
    static void loadModules();
    static void _loadModules();
    // Loads one stopped module on the calling thread. False when unknown or
    // running; true otherwise, even if the module's OnInit refuses.
    static bool loadModule(const std::string& name);

    static bool cmp(const std::pair<std::string, ModulePrio>& a,
                    const std::pair<std::string, ModulePrio>& b) {
        return a.second.priority > b.second.priority;
    }

    // The dump command: all running modules, one module by name, or the
    // manager's own commands after "ModuleManager".
    static void dump(int fd, const char** args, uint32_t nargs);
    static void _dump(int fd, const char** args, uint32_t nargs);

  private:
    static void postInit(ModuleBase* module);
    static void dumpModule(int fd, const std::string& name, ModuleBase* module, const char** args,
                           uint32_t nargs);
};

}  // namespace zelkor::tessel
