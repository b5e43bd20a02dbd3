// tessel-peer: the system side of a Tessel daemon on a host root. It serves
// the core service, the report sink and the system end of the internal
// channel, declares them in its own manifest fragment and records what it
// receives under <root>/data/peer/.
#define LOG_TAG "tessel-peer"

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "framework/HalvexUtil.h"
#include "platform/Platform.h"
#include "tools/tessel-peer/LogConfigSender.h"
#include "tools/tessel-peer/PeerServices.h"
#include "utils/FileUtil.h"
#include "utils/JsonUtil.h"

namespace platform = zelkor::tessel::platform;
using namespace zelkor::tessel;
using namespace zelkor::tessel::peer;

namespace {

constexpr char kManifestDir[] = "/system/etc/vintf/manifest";

const char* const kFragment = R"(<manifest version="1.0" type="framework">
    <hal format="aidl">
        <name>vendor.zelkor.hardware.tessel.core</name>
        <fqname>ITesselCore/default</fqname>
    </hal>
    <hal format="aidl">
        <name>zelkor.system.halvex.common</name>
        <fqname>IHalvexSsi/default</fqname>
        <fqname>IHalvexSsiIntl/default</fqname>
    </hal>
</manifest>
)";

bool DeclareServices() {
    const std::string dir = platform::DevicePath(kManifestDir);
    const std::string path = dir + "/tessel-peer.xml";
    const std::string tmp = path + ".tmp";
    return FileUtil::CreateDirectory(dir, 0755) &&
           android::base::WriteStringToFile(kFragment, tmp) &&
           rename(tmp.c_str(), path.c_str()) == 0;
}

template <typename Service>
std::shared_ptr<Service> Register() {
    auto service = ndk::SharedRefBase::make<Service>();
    const std::string instance = std::string(Service::descriptor) + "/default";
    binder_status_t status =
            AServiceManager_addService(service->asBinder().get(), instance.c_str());
    CHECK_EQ(status, STATUS_OK) << instance;
    return service;
}

// The configuration array of --log-config FILE; null without the option.
bool ReadLogConfig(int argc, char** argv, Json::Value* config) {
    if (argc == 1) return true;
    if (argc != 3 || strcmp(argv[1], "--log-config") != 0) return false;
    std::string text;
    if (!android::base::ReadFileToString(argv[2], &text)) {
        fprintf(stderr, "tessel-peer: cannot read %s\n", argv[2]);
        return false;
    }
    if (!JsonUtil::ConvertStringToJson(text, *config)) {
        fprintf(stderr, "tessel-peer: %s is not JSON\n", argv[2]);
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (!platform::InitPlatform(&argc, argv)) return 2;
    Json::Value logConfig;
    if (!ReadLogConfig(argc, argv, &logConfig)) {
        fprintf(stderr, "usage: %s --root DIR [--log-config FILE.json]\n", argv[0]);
        return 2;
    }
    if (!DeclareServices()) {
        fprintf(stderr, "tessel-peer: cannot write %s under the root\n", kManifestDir);
        return 1;
    }
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    auto core = Register<TesselCoreService>();
    auto ssi = Register<HalvexSsiService>();
    auto ssiIntl = Register<HalvexSsiIntlService>();
    HalvexUtil::SetHalvexSsiIntl(ssiIntl);
    // Lives as long as the process, registered on its bus.
    static std::unique_ptr<LogConfigSender> sender;
    if (!logConfig.isNull()) {
        sender = std::make_unique<LogConfigSender>(logConfig);
        sender->start();
    }
    LOG(INFO) << "tessel-peer is serving";
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 1;
}
