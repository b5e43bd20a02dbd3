// The host service manager: registration, lookup, waiting, permissions,
// stale sockets, and declarations read from VINTF manifest fragments.
#include <android/binder_manager.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "HostRootTest.h"
#include "ServiceProcess.h"
#include "TestService.h"
#include "platform/host/binder_ndk/VintfManifest.h"

namespace zelkor::tessel::testing {
namespace {

const char* kInstance = "tessel.test.ITestService/default";

class ServiceManagerTest : public HostRootTest {
  protected:
    std::string SocketDir() const { return mRoot.path() + "/dev/binderfs/sm"; }

    void WriteFile(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
    }

    std::shared_ptr<TestService> mService = ndk::SharedRefBase::make<TestService>();
};

TEST_F(ServiceManagerTest, OwnRegistrationLooksUpAsTheLocalObject) {
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    ndk::SpAIBinder found(AServiceManager_checkService(kInstance));
    EXPECT_EQ(found.get(), mService->asBinder().get());
    ndk::SpAIBinder waited(AServiceManager_waitForService(kInstance));
    EXPECT_EQ(waited.get(), found.get());
    EXPECT_EQ(AServiceManager_checkService("tessel.test.ITestService/missing"), nullptr);
}

TEST_F(ServiceManagerTest, SocketsArePrivateAndNamedAfterTheInstance) {
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    struct stat dir {};
    struct stat socketFile {};
    ASSERT_EQ(stat(SocketDir().c_str(), &dir), 0);
    ASSERT_EQ(stat((SocketDir() + "/tessel.test.ITestService%2Fdefault").c_str(), &socketFile), 0);
    EXPECT_EQ(dir.st_mode & 0777, 0700u);
    EXPECT_TRUE(S_ISSOCK(socketFile.st_mode));
    EXPECT_EQ(socketFile.st_mode & 0777, 0600u);
    // Nothing but the registration is left in the folder.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(SocketDir()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST_F(ServiceManagerTest, InvalidRegistrationsAreRefused) {
    ndk::SpAIBinder held = mService->asBinder();
    AIBinder* binder = held.get();
    EXPECT_EQ(AServiceManager_addService(nullptr, kInstance), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(binder, ""), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(binder, "has space/default"), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(binder, std::string(128, 'a').c_str()),
              EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(binder, ".."), EX_ILLEGAL_ARGUMENT);
}

TEST_F(ServiceManagerTest, WaitIsWokenByALaterRegistration) {
    auto waiter = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kInstance));
    });
    EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(waiter.get().get(), mService->asBinder().get());
}

TEST_F(ServiceManagerTest, WaitIsWokenByAnotherProcess) {
    auto waiter = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(TestServiceInstance().c_str()));
    });
    ServiceProcess process(mRoot.path());
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(10)), std::future_status::ready)
            << process.errors();
    ndk::SpAIBinder binder = waiter.get();
    EXPECT_TRUE(AIBinder_isRemote(binder.get()));
    EXPECT_EQ(AIBinder_ping(binder.get()), STATUS_OK);
}

TEST_F(ServiceManagerTest, BoundedWaitGivesUp) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(binder::WaitForService(kInstance, start + std::chrono::milliseconds(100)));
}

TEST_F(ServiceManagerTest, StaleSocketFileNeitherResolvesNorBlocks) {
    // What a killed process leaves: a socket file nobody listens on.
    std::filesystem::create_directories(SocketDir());
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = SocketDir() + "/tessel.test.ITestService%2Fdefault";
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    close(fd);

    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    ndk::SpAIBinder found(AServiceManager_checkService(kInstance));
    EXPECT_EQ(found.get(), mService->asBinder().get());
}

TEST_F(ServiceManagerTest, ProxiesCannotBeRegistered) {
    ServiceProcess process(mRoot.path());
    ndk::SpAIBinder remote(ServiceProcess::WaitForBinder(TestServiceInstance()));
    ASSERT_NE(remote.get(), nullptr) << process.errors();
    EXPECT_EQ(AServiceManager_addService(remote.get(), "tessel.test.Relay/default"),
              EX_UNSUPPORTED_OPERATION);
}

TEST_F(ServiceManagerTest, DeclarationsComeFromManifestFragments) {
    WriteFile(mRoot.path() + "/vendor/etc/vintf/manifest/tessel.xml", R"(
<manifest version="1.0" type="device">
    <!-- <hal format="aidl"><name>commented.out</name><fqname>IGone/default</fqname></hal> -->
    <hal format="aidl">
        <name>vendor.zelkor.hardware.tessel.common</name>
        <fqname>ITesselImpl/default</fqname>
        <fqname>IHalvexIntl/default</fqname>
    </hal>
    <hal format="hidl">
        <name>android.hardware.legacy</name>
        <fqname>@1.0::ILegacy/default</fqname>
    </hal>
</manifest>)");
    WriteFile(mRoot.path() + "/system/etc/vintf/manifest/peer.xml", R"(
<manifest version='1.0' type='framework'>
  <hal format='aidl'>
    <name>zelkor.system.halvex.common</name>
    <interface>
      <name>IHalvexSsi</name>
      <instance>default</instance>
      <instance>backup</instance>
    </interface>
  </hal>
</manifest>)");
    WriteFile(mRoot.path() + "/vendor/etc/vintf/manifest/notes.txt",
              "<hal format=\"aidl\"><name>not.a</name><fqname>IManifest/default</fqname></hal>");

    EXPECT_TRUE(
            AServiceManager_isDeclared("vendor.zelkor.hardware.tessel.common.ITesselImpl/default"));
    EXPECT_TRUE(
            AServiceManager_isDeclared("vendor.zelkor.hardware.tessel.common.IHalvexIntl/default"));
    EXPECT_TRUE(AServiceManager_isDeclared("zelkor.system.halvex.common.IHalvexSsi/backup"));
    EXPECT_FALSE(
            AServiceManager_isDeclared("vendor.zelkor.hardware.tessel.common.ITesselImpl/other"));
    EXPECT_FALSE(AServiceManager_isDeclared("android.hardware.legacy.ILegacy/default"));
    EXPECT_FALSE(AServiceManager_isDeclared("commented.out.IGone/default"));
    EXPECT_FALSE(AServiceManager_isDeclared("not.a.IManifest/default"));

    std::vector<std::string> instances;
    AServiceManager_forEachDeclaredInstance(
            "zelkor.system.halvex.common.IHalvexSsi", &instances,
            [](const char* instance, void* context) {
                static_cast<std::vector<std::string>*>(context)->push_back(instance);
            });
    EXPECT_EQ(instances, (std::vector<std::string>{"default", "backup"}));
}

TEST(VintfManifestTest, ToleratesBrokenDocuments) {
    std::vector<std::string> instances;
    binder::ParseVintfManifest("<hal format=\"aidl\"><name>a.b</name><fqname>IX/d</fqname>",
                               &instances);
    binder::ParseVintfManifest("<hal format=\"aidl\"><fqname>IX/d</fqname></hal>", &instances);
    binder::ParseVintfManifest("<hal format=\"aidl\"><name>a.b</name><fqname>IX</fqname></hal>",
                               &instances);
    binder::ParseVintfManifest("<!-- unterminated", &instances);
    EXPECT_TRUE(instances.empty());
    binder::ParseVintfManifest(
            "<hals/><hal format=\"aidl\" optional=\"true\"><name> a.b </name>"
            "<version>2</version><fqname> IX/d </fqname></hal>",
            &instances);
    EXPECT_EQ(instances, (std::vector<std::string>{"a.b.IX/d"}));
}

}  // namespace
}  // namespace zelkor::tessel::testing
