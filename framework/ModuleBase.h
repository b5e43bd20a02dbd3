#pragma once

#include <cstdint>
#include <string>

namespace zelkor::tessel {

class HalvexHandlerThread;

// Base of every module. A module is registered by name at static
// initialisation, initialised on the manager's thread and then runs its work on
// a handler thread of its own, named after it.
class ModuleBase {
  public:
    ModuleBase() = default;
    ModuleBase(const ModuleBase&) = delete;
    ModuleBase& operator=(const ModuleBase&) = delete;
    // Does not stop or free the module thread: the manager does that first.
    virtual ~ModuleBase();

    // Called once on the manager's thread; false keeps the module from running.
    virtual bool OnInit() { return true; }
    // Called once on the module's own thread after every module's OnInit.
    virtual void OnAllModulesLoaded() {}
    // Called on the manager's thread when the module is being removed, before
    // its thread is stopped: a module whose other threads post to its thread
    // stops them here.
    virtual void OnStop() {}
    // Writes the module's state as text to fd. args holds the whole dump
    // command, the module's own name included.
    virtual void dump(int fd, const char** args, uint32_t nargs);

    const std::string& getName() const { return mName; }
    HalvexHandlerThread* getModuleThread() const { return mModuleThread; }

  private:
    friend class ModuleManager;
    friend void RegisterModule(const char* registrarName, const std::string& name,
                               uint32_t priority, ModuleBase* (*factory)());

    // Owned, but created and destroyed by the manager alone.
    HalvexHandlerThread* mModuleThread = nullptr;
    std::string mName;
};

}  // namespace zelkor::tessel
