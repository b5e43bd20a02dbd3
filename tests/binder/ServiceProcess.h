// Runs binder_test_service in its own process on a test's host root and
// connects to it through the service manager. Every test gets its own host
// root, which holds the service sockets and manifests the binder runtime uses.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "TempRoot.h"
#include "TestService.h"
#include "e2e/Subprocess.h"
#include "platform/Platform.h"
#include "platform/host/binder_ndk/ServiceRegistry.h"

namespace zelkor::tessel::testing {

class HostRootTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    TempRoot mRoot;
};

class ServiceProcess {
  public:
    explicit ServiceProcess(const std::string& root, std::vector<std::string> extraArgs = {})
        : mProcess(Arguments(root, std::move(extraArgs)), root + "/service") {}

    // The service once it is up (waiting without polling), or null after
    // ten seconds.
    std::shared_ptr<aidl::tessel::test::ITestService> connect() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        ndk::SpAIBinder binder(binder::WaitForService(TestServiceInstance(), deadline).release());
        return aidl::tessel::test::ITestService::fromBinder(binder);
    }

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

// A test whose service runs in its own process on the test's root.
class ServiceTest : public HostRootTest {
  protected:
    void SetUp() override {
        HostRootTest::SetUp();
        mProcess = std::make_unique<ServiceProcess>(mRoot.path());
        mService = mProcess->connect();
        ASSERT_NE(mService, nullptr) << mProcess->errors();
        std::vector<int32_t> ids;
        ASSERT_TRUE(mService->callerIds(&ids).isOk());
        mServicePid = ids[2];
    }

    std::unique_ptr<ServiceProcess> mProcess;
    std::shared_ptr<aidl::tessel::test::ITestService> mService;
    pid_t mServicePid = 0;
};

}  // namespace zelkor::tessel::testing
