// Host roots the daemon's binaries run on in end-to-end tests and benchmarks:
// the daemon's manifest fragment, the folders and boot reasons a boot run
// reads, and tessel-peer serving the system side.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Subprocess.h"

namespace zelkor::tessel::testing {

// The daemon's VINTF fragment under `root`, installed as the device build does.
inline void InstallDaemonManifest(const std::string& root) {
    const std::string manifests = root + "/vendor/etc/vintf/manifest";
    std::filesystem::create_directories(manifests);
    std::filesystem::copy_file(
            std::string(TESSEL_SOURCE_DIR) + "/common/default/vendor.zelkor.hardware.tessel.xml",
            manifests + "/vendor.zelkor.hardware.tessel.xml",
            std::filesystem::copy_options::overwrite_existing);
}

// A root a boot run can start on: the manifest, the by-name and diagnostic
// folders, and the boot reasons of a power-key start after a hard reset.
inline void PrepareBootRoot(const std::string& root) {
    InstallDaemonManifest(root);
    for (const char* dir : {"/dev/block/by-name", "/data/vendor/diag", "/sys/bootinfo"}) {
        std::filesystem::create_directories(root + dir);
    }
    std::ofstream(root + "/sys/bootinfo/powerup_reason") << "0x20 PON_KPDPWR\n";
    std::ofstream(root + "/sys/bootinfo/poweroff_reason") << "0x0 OTHER_HARDRESET\n";
}

inline bool PeerServing(const Subprocess& peer) {
    return peer.err().find("tessel-peer is serving") != std::string::npos;
}

// Starts tessel-peer on `root` with `options` and waits until it serves
// (PeerServing() tells whether it came up); its output goes to "<root>/peer.*".
inline std::unique_ptr<Subprocess> StartPeer(const std::string& root,
                                             std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"tessel-peer", "--root", root});
    auto peer = std::make_unique<Subprocess>(std::move(options), root + "/peer");
    WaitFor([&] { return PeerServing(*peer); });
    return peer;
}

}  // namespace zelkor::tessel::testing
