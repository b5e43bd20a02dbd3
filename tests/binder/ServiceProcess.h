// Runs binder_test_service in its own process on a test's host root and
// connects to it through the service manager.
#pragma once

#include <aidl/tessel/test/ITestService.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "e2e/Subprocess.h"
#include "platform/host/binder_ndk/ServiceRegistry.h"

namespace zelkor::tessel::testing {

inline std::string TestServiceInstance() {
    return std::string(aidl::tessel::test::ITestService::descriptor) + "/default";
}

class ServiceProcess {
  public:
    explicit ServiceProcess(const std::string& root, std::vector<std::string> extraArgs = {})
        : mProcess(Arguments(root, std::move(extraArgs)), root + "/service") {}

    // The service once it is up (waiting without polling), or null after
    // ten seconds.
    std::shared_ptr<aidl::tessel::test::ITestService> connect() {
        ndk::SpAIBinder binder(WaitForBinder(TestServiceInstance()));
        return aidl::tessel::test::ITestService::fromBinder(binder);
    }

    static AIBinder* WaitForBinder(const std::string& instance) {
        return binder::WaitForService(instance,
                                      std::chrono::steady_clock::now() + std::chrono::seconds(10))
                .release();
    }

    bool running() const { return mProcess.running(); }
    void kill() {
        mProcess.signal(SIGKILL);
        mProcess.wait();
    }
    std::string errors() const { return mProcess.err(); }

  private:
    static std::vector<std::string> Arguments(const std::string& root,
                                              std::vector<std::string> extra) {
        std::vector<std::string> args{"binder_test_service", "--root", root};
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }

    Subprocess mProcess;
};

}  // namespace zelkor::tessel::testing
