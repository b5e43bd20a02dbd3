// The host service manager: registration, lookup, waiting, permissions,
// and declarations read from VINTF manifest fragments.
#include <android/binder_manager.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "ServiceProcess.h"
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

TEST_F(ServiceManagerTest, OwnRegistrationIsAPrivateSocketAndLooksUpAsTheLocalObject) {
    // Invalid registrations are refused first.
    EXPECT_EQ(AServiceManager_addService(nullptr, kInstance), EX_ILLEGAL_ARGUMENT);
    for (const std::string& name : {std::string(), std::string("has space/default"),
                                    std::string(128, 'a'), std::string("..")}) {
        EXPECT_EQ(AServiceManager_addService(mService->asBinder().get(), name.c_str()),
                  EX_ILLEGAL_ARGUMENT)
                << name;
    }
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    ndk::SpAIBinder found(AServiceManager_checkService(kInstance));
    EXPECT_EQ(found.get(), mService->asBinder().get());
    ndk::SpAIBinder waited(AServiceManager_waitForService(kInstance));
    EXPECT_EQ(waited.get(), found.get());
    EXPECT_EQ(AServiceManager_checkService("tessel.test.ITestService/missing"), nullptr);

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

TEST_F(ServiceManagerTest, BoundedWaitGivesUpAndWaitIsWokenByALaterRegistration) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(binder::WaitForService(kInstance, start + std::chrono::milliseconds(100)));
    auto waiter = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kInstance));
    });
    EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    ASSERT_EQ(AServiceManager_addService(mService->asBinder().get(), kInstance), EX_NONE);
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(waiter.get().get(), mService->asBinder().get());

    // A root that has gone is not made again by a wait.
    const std::string gone = mRoot.path() + "/gone";
    ASSERT_TRUE(std::filesystem::create_directory(gone));
    ASSERT_TRUE(platform::SetRoot(gone));
    std::filesystem::remove(gone);
    EXPECT_FALSE(binder::WaitForService(kInstance, std::chrono::steady_clock::now()));
    EXPECT_FALSE(std::filesystem::exists(gone));
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

    for (const auto& [instance, declared] : std::vector<std::pair<std::string, bool>>{
                 {"vendor.zelkor.hardware.tessel.common.ITesselImpl/default", true},
                 {"vendor.zelkor.hardware.tessel.common.IHalvexIntl/default", true},
                 {"zelkor.system.halvex.common.IHalvexSsi/backup", true},
                 {"vendor.zelkor.hardware.tessel.common.ITesselImpl/other", false},
                 {"android.hardware.legacy.ILegacy/default", false},
                 {"commented.out.IGone/default", false},
                 {"not.a.IManifest/default", false}}) {
        EXPECT_EQ(AServiceManager_isDeclared(instance.c_str()), declared) << instance;
    }

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
