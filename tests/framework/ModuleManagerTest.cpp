#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>

#include "LogCapture.h"
#include "TestSupport.h"
#include "framework/HalvexHandlerThread.h"
#include "framework/ModuleManager.h"

namespace zelkor::tessel {
namespace {

std::string CurrentThreadName() {
    char buf[16] = {};
    pthread_getname_np(pthread_self(), buf, sizeof(buf));
    return buf;
}

// What the test modules saw, in order, from whichever thread.
struct Events {
    std::mutex lock;
    std::vector<std::string> inits;            // "name@thread"
    std::map<std::string, std::string> posts;  // name -> thread of OnAllModulesLoaded
    int created = 0;                           // instances made
    bool refuserAccepts = false;

    bool waitPosts(size_t count) {
        return testing::WaitFor([&] {
            std::lock_guard<std::mutex> l(lock);
            return posts.size() >= count;
        });
    }
};

Events& events() {
    // Module threads outlive static destruction at exit.
    static auto* e = new Events;
    return *e;
}

// Every test module is of this one kind; "Refuser" refuses to start unless
// told to accept.
class TestModule : public ModuleBase {
  public:
    TestModule() {
        std::lock_guard<std::mutex> l(events().lock);
        ++events().created;
    }
    bool OnInit() override {
        std::lock_guard<std::mutex> l(events().lock);
        events().inits.push_back(getName() + "@" + CurrentThreadName());
        return getName() != "Refuser" || events().refuserAccepts;
    }
    void OnAllModulesLoaded() override {
        std::lock_guard<std::mutex> l(events().lock);
        events().posts[getName()] = CurrentThreadName();
    }
    void dump(int fd, const char** args, uint32_t nargs) override {
        std::string text = "state of " + getName() + " args";
        for (uint32_t i = 0; i < nargs; ++i) text += std::string(" ") + args[i];
        android::base::WriteStringToFd(text, fd);
    }
};

ModuleBase* NewTestModule() {
    return new (std::nothrow) TestModule();
}

// Registered at start-up, as the daemon's own modules are.
const bool sRegistered = [] {
    RegisterModule("AlphaRegister", "Alpha", 0, &NewTestModule);
    RegisterModule("BetaRegister", "Beta", 5, &NewTestModule);
    RegisterModule("GammaRegister", "Gamma", 1, &NewTestModule);
    RegisterModule("RefuserRegister", "Refuser", 2, &NewTestModule);
    return true;
}();

// Jobs of the manager's thread queue more jobs there: two rounds.
void DrainManager() {
    ASSERT_TRUE(testing::DrainManagerThread(2));
}

// What a dump with these arguments writes.
std::string Dump(std::vector<const char*> args) {
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    ModuleManager::dump(fd, args.data(), args.size());
    std::string out;
    EXPECT_TRUE(lseek(fd, 0, SEEK_SET) == 0 && android::base::ReadFdToString(fd, &out));
    close(fd);
    return out;
}

// Every case starts where the process starts: each module registered and
// stopped, with an instance of its own, nothing seen yet.
class ModuleManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::vector<std::string> names;
        {
            std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
            for (const auto& [name, entry] : GetModuleList()) names.push_back(name);
        }
        for (const std::string& name : names) removeModule(name, false);
        DrainManager();
        {
            std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
            for (auto& [name, entry] : GetModuleList()) {
                entry.instance = entry.factory();
                entry.stopped = true;
            }
        }
        std::lock_guard<std::mutex> l(events().lock);
        events().inits.clear();
        events().posts.clear();
        events().refuserAccepts = false;
    }
};

// Loads all test modules and waits until the run and its clean-up are over.
void LoadAll(bool alreadyPosted = false) {
    if (!alreadyPosted) ModuleManager::loadModules();
    ASSERT_TRUE(events().waitPosts(3));
    DrainManager();
}

TEST_F(ModuleManagerTest, LoadRunFollowsPriorityAndThreadsAndIgnoresARepeatedName) {
    testing::LogCapture log;
    // Same name again, first priority: must not replace the first entry.
    RegisterModule("AlphaCloneRegister", "Alpha", 9, &NewTestModule);
    EXPECT_TRUE(log.contains("Halvex-ModuleRegister",
                             "[AlphaCloneRegister] Can not register module! Module name MUST BE "
                             "UNIQUE!"));
    {
        // Hold the manager's thread, so the load run cannot start early.
        testing::Hold hold(*ModuleManager::GetManagerHandler());
        ModuleManager::loadModules();
        EXPECT_TRUE(events().inits.empty()) << "loadModules only posts the run";
    }
    LoadAll(/*alreadyPosted=*/true);

    EXPECT_EQ(events().inits,
              (std::vector<std::string>{"Beta@ModuleManager", "Refuser@ModuleManager",
                                        "Gamma@ModuleManager", "Alpha@ModuleManager"}));
    EXPECT_EQ(events().posts, (std::map<std::string, std::string>{
                                      {"Alpha", "Alpha"}, {"Beta", "Beta"}, {"Gamma", "Gamma"}}));
    EXPECT_TRUE(log.contains("Halvex-ModuleManager", "[_loadModules] Loaded 3 modules"));
    EXPECT_TRUE(log.contains("Halvex-ModuleManager",
                             "[_loadModules] Module \"Refuser\" ignored because OnInit returned "
                             "false"));
}

TEST_F(ModuleManagerTest, RefusedOrRemovedModuleLoadsAgainWithAFreshInstance) {
    testing::LogCapture log;
    LoadAll();
    const int created = events().created;

    // Refusing again still counts as a successful load command.
    EXPECT_EQ(Dump({"ModuleManager", "load", "Refuser"}), "Load module Refuser succeed!\n");
    EXPECT_EQ(events().created, created + 1);
    DrainManager();
    EXPECT_EQ(Dump({"Refuser"}), "Module Refuser is not running\n");

    events().refuserAccepts = true;
    EXPECT_EQ(Dump({"ModuleManager", "load", "Refuser"}), "Load module Refuser succeed!\n");
    ASSERT_TRUE(events().waitPosts(4));
    EXPECT_EQ(events().posts["Refuser"], "Refuser");
    EXPECT_EQ(Dump({"ModuleManager", "load", "Refuser"}),
              "Load module Refuser failed! See Logcat for details.\n");

    // A removed module stops its thread (a safe removal lets work already
    // queued there finish) and can come back.
    HalvexHandlerThread* thread = GetModuleList().at("Gamma").instance->getModuleThread();
    ASSERT_NE(thread, nullptr);
    std::atomic<int> ran{0};
    HalvexHandler handler(thread->getLooper());
    handler.postDelayed([&ran] { ++ran; }, 60 * 60 * 1000);
    removeModule("Gamma", true);
    removeModule("Nope", false);
    DrainManager();
    EXPECT_EQ(ran.load(), 1);
    EXPECT_EQ(Dump({"Gamma"}), "Module Gamma is not running\n");
    EXPECT_TRUE(log.contains("Halvex-ModuleBase", "[~ModuleBase] Bye~ Gamma"));
    EXPECT_TRUE(log.contains("Halvex-ModuleManager", "[operator()] module Nope not found!!!"));

    events().posts.erase("Gamma");
    EXPECT_TRUE(ModuleManager::loadModule("Gamma"));
    ASSERT_TRUE(events().waitPosts(4));
    EXPECT_EQ(Dump({"Gamma"}).substr(0, 22), "Dumping module Gamma: ");
}

TEST_F(ModuleManagerTest, DumpCommands) {
    LoadAll();
    const std::string sep = "\n-------------------------------------\n";
    auto all = [&](const std::string& args) {
        std::string out;
        for (const char* name : {"Alpha", "Beta", "Gamma"}) {
            out += std::string("Dumping module ") + name + ": \nstate of " + name + " args" + args +
                   sep;
        }
        return out;
    };
    const std::string help =
            "Halvex ModuleManager:\nload <module name> \t\t Load a module that is not running\n"
            "dump \t\t Get Current Modules Status.\n";
    const std::pair<std::vector<const char*>, std::string> cases[] = {
            {{"Nope"}, "Module Nope not found!!\n"},
            {{"Refuser"}, "Module Refuser is not running\n"},
            {{"Beta", "x"}, "Dumping module Beta: \nstate of Beta args Beta x" + sep},
            {{}, all("")},
            {{"-a"}, all(" -a")},
            {{"modulemanager", "dump"},
             "Current Modules:\n-------------------------\nName \t\t Status\nAlpha\t\tRunning\n"
             "Beta\t\tRunning\nGamma\t\tRunning\nRefuser\t\tStopped\n"},
            {{"ModuleManager"}, help},
            {{"ModuleManager", "load"}, help},
            {{"ModuleManager", "unload", "Beta"}, help},
            {{"ModuleManager", "load", "Nope"},
             "Load module Nope failed! See Logcat for details.\n"},
    };
    for (const auto& [args, expected] : cases) {
        EXPECT_EQ(Dump(args), expected) << (args.empty() ? "" : args[0]);
    }
}

TEST_F(ModuleManagerTest, DumpsAndLoadsFromManyThreadsWhileModulesComeAndGo) {
    LoadAll();
    std::atomic<bool> stop{false};
    std::vector<std::thread> commands;
    for (const char* target : {"Gamma", "Alpha", "Refuser"}) {
        commands.emplace_back([&stop, target] {
            while (!stop) {
                Dump({});
                Dump({target});
                Dump({"ModuleManager", "dump"});
                Dump({"ModuleManager", "load", target});
            }
        });
    }
    for (int round = 0; round < 100; ++round) {
        removeModule("Gamma", round % 2 == 0);
        removeModule("Alpha", false);
        DrainManager();
        ModuleManager::loadModule("Alpha");
    }
    stop = true;
    for (std::thread& thread : commands) thread.join();
    DrainManager();

    // Whatever the interleaving, a module listed as running has its instance
    // and thread, and a stopped one has none.
    std::lock_guard<std::recursive_mutex> guard(ModuleListLock());
    for (const auto& [name, entry] : GetModuleList()) {
        SCOPED_TRACE(name);
        EXPECT_EQ(entry.stopped, entry.instance == nullptr);
        if (entry.instance != nullptr) {
            EXPECT_NE(entry.instance->getModuleThread(), nullptr);
        }
    }
}

}  // namespace
}  // namespace zelkor::tessel
