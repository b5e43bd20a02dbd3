#define LOG_TAG "Halvex-ModuleManager"

#include "framework/ModuleManager.h"

#include <android-base/file.h>

#include <algorithm>
#include <vector>

#include "framework/HalvexHandlerThread.h"
#include "platform/HalvexLog.h"

namespace zelkor::tessel {
namespace {

using android::base::WriteStringToFd;

HalvexHandlerThread* ManagerThread() {
    // Lives as long as the process, which has no shutdown path.
    static HalvexHandlerThread* thread = HalvexHandlerThread::create("ModuleManager");
    return thread;
}

// The manager's thread is up before main runs, so loadModules() can post at once.
HalvexHandlerThread* const sManagerThreadAtStartup = ManagerThread();

}  // namespace

ModuleList& GetModuleList() {
    static auto* list = new ModuleList;
    return *list;
}

std::recursive_mutex& ModuleListLock() {
    static auto* lock = new std::recursive_mutex;
    return *lock;
}

void RegisterModule(const char* registrarName, const std::string& name, uint32_t priority,
                    ModuleFactory factory) {
    std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
    ModuleList& list = GetModuleList();
    if (list.count(name) != 0) {
        HALVEX_LOG_FN(ANDROID_LOG_FATAL, "Halvex-ModuleRegister", registrarName,
                      "Can not register module! Module name MUST BE UNIQUE!");
    }
    ModuleBase* instance = factory();
    if (instance != nullptr) instance->mName = name;
    auto [it, inserted] = list.emplace(name, ModulePrio{priority, instance, true, factory});
    // The first registration of a name stays; the duplicate's instance goes.
    if (!inserted) delete instance;
}

std::shared_ptr<HalvexHandler> ModuleManager::GetManagerHandler() {
    static auto handler = std::make_shared<HalvexHandler>(ManagerThread()->getLooper());
    return handler;
}

void ModuleManager::loadModules() {
    GetManagerHandler()->post([] { _loadModules(); });
}

void ModuleManager::postInit(ModuleBase* module) {
    auto handler = std::make_shared<HalvexHandler>(module->mModuleThread->getLooper());
    handler->post([handler, module] { module->OnAllModulesLoaded(); });
}

void ModuleManager::_loadModules() {
    std::vector<std::pair<std::string, ModulePrio>> modules;
    {
        std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
        modules.assign(GetModuleList().begin(), GetModuleList().end());
    }
    std::sort(modules.begin(), modules.end(), cmp);

    // OnInit runs without the lock: a module may take its time there, and
    // dump commands must not wait for it. The entries stay stopped until the
    // run is over, so no dump or load touches them meanwhile, and removals run
    // on this same thread, after the run.
    std::vector<std::string> ignored;
    for (auto& [name, entry] : modules) {
        HLOGD("Loading module \"%s\"", name.c_str());
        auto* thread = HalvexHandlerThread::create(name);
        if (entry.instance != nullptr) entry.instance->mName = name;
        if (entry.instance != nullptr && entry.instance->OnInit()) {
            std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
            entry.instance->mModuleThread = thread;
        } else {
            ignored.push_back(name);
            delete thread;
            HLOGD("Module \"%s\" ignored because OnInit returned false", name.c_str());
        }
    }
    HLOGI("Loaded %d modules", static_cast<int>(modules.size() - ignored.size()));

    auto isIgnored = [&ignored](const std::string& name) {
        return std::find(ignored.begin(), ignored.end(), name) != ignored.end();
    };
    for (auto& [name, entry] : modules) {
        if (isIgnored(name)) continue;
        HLOGD("Post Init for module \"%s\"", name.c_str());
        postInit(entry.instance);
    }
    for (const std::string& name : ignored) {
        HLOGD("Cleanup ignored module \"%s\"", name.c_str());
        removeModule(name, false);
    }
    std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
    for (auto& [name, entry] : GetModuleList()) entry.stopped = false;
}

bool ModuleManager::loadModule(const std::string& name) {
    HalvexHandlerThread* refusedThread = nullptr;
    {
        // The whole load under the lock, OnInit included: a removal of the
        // same module (posted earlier, or by a refused load) waits until the
        // new instance is in place or known refused. Loads by name are rare
        // commands; the boot's load run does not take this path.
        std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
        ModuleList& list = GetModuleList();
        auto it = list.find(name);
        if (it == list.end()) {
            HLOGE("loadModule %s failed! Module not found!", name.c_str());
            return false;
        }
        HLOGD("Loading module \"%s\"", name.c_str());
        ModulePrio& entry = it->second;
        if (!entry.stopped || entry.instance != nullptr) {
            HLOGW("Module %s is already running!", name.c_str());
            return false;
        }
        entry.instance = entry.factory != nullptr ? entry.factory() : nullptr;
        auto* thread = HalvexHandlerThread::create(name);
        if (entry.instance != nullptr) entry.instance->mName = name;

        if (entry.instance != nullptr && entry.instance->OnInit()) {
            entry.instance->mModuleThread = thread;
            entry.stopped = false;
            HLOGD("Post Init for module \"%s\"", name.c_str());
            postInit(entry.instance);
        } else {
            thread->quit();
            removeModule(name, false);
            refusedThread = thread;
        }
    }
    delete refusedThread;  // joined outside the lock
    return true;
}

void removeModule(const std::string& name, bool safely) {
    ModuleManager::GetManagerHandler()->post([name, safely] {
        // Out of the list first, under the lock: a dump in progress holds it,
        // so the module is never destroyed under a dump, and no later dump
        // finds it. Its thread is then stopped and joined, and the instance
        // destroyed, without the lock.
        ModuleBase* instance = nullptr;
        {
            std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
            ModuleList& list = GetModuleList();
            auto it = list.find(name);
            if (it == list.end()) {
                HLOGE("module %s not found!!!", name.c_str());
                return;
            }
            ModulePrio& entry = it->second;
            entry.stopped = true;
            instance = entry.instance;
            entry.instance = nullptr;
        }
        if (instance != nullptr) {
            instance->OnStop();
            if (HalvexHandlerThread* thread = instance->getModuleThread()) {
                if (safely) thread->quitSafely();
                delete thread;  // quits the looper and joins
            }
        }
        delete instance;
    });
}

void ModuleManager::dumpModule(int fd, const std::string& name, ModuleBase* module,
                               const char** args, uint32_t nargs) {
    WriteStringToFd("Dumping module " + name + ": \n", fd);
    module->dump(fd, args, nargs);
    WriteStringToFd("\n-------------------------------------\n", fd);
}

void ModuleManager::dump(int fd, const char** args, uint32_t nargs) {
    const std::string first = nargs > 0 && args[0] != nullptr ? args[0] : "";
    if (first == "ModuleManager" || first == "modulemanager") {
        _dump(fd, args, nargs);
        return;
    }
    // Held for the rest of the command, module dumps included: a module
    // being removed is out of the list before it goes, or waits for the dump.
    std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
    const ModuleList modules = GetModuleList();
    if (nargs == 0 || first == "-a") {
        for (const auto& [name, entry] : modules) {
            if (!entry.stopped && entry.instance != nullptr) {
                dumpModule(fd, name, entry.instance, args, nargs);
            }
        }
        return;
    }
    auto it = modules.find(first);
    if (it == modules.end()) {
        WriteStringToFd("Module " + first + " not found!!\n", fd);
    } else if (it->second.stopped || it->second.instance == nullptr) {
        WriteStringToFd("Module " + first + " is not running\n", fd);
    } else {
        dumpModule(fd, first, it->second.instance, args, nargs);
    }
}

void ModuleManager::_dump(int fd, const char** args, uint32_t nargs) {
    const std::string command = nargs > 1 && args[1] != nullptr ? args[1] : "";
    if (command == "load" && nargs > 2 && args[2] != nullptr) {
        const std::string name = args[2];
        WriteStringToFd(loadModule(name)
                                ? "Load module " + name + " succeed!\n"
                                : "Load module " + name + " failed! See Logcat for details.\n",
                        fd);
    } else if (command == "dump") {
        std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
        std::string text = "Current Modules:\n-------------------------\nName \t\t Status\n";
        for (const auto& [name, entry] : GetModuleList()) {
            text += name + "\t\t" + (entry.stopped ? "Stopped" : "Running") + "\n";
        }
        WriteStringToFd(text, fd);
    } else {
        WriteStringToFd(
                "Halvex ModuleManager:\n"
                "load <module name> \t\t Load a module that is not running\n"
                "dump \t\t Get Current Modules Status.\n",
                fd);
    }
}

}  // namespace zelkor::tessel
