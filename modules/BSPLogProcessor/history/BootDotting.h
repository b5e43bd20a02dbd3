// The boot run's own record in the blackbox dotting ring: why the device
// powered up and why it last powered off, as the boot info nodes say.
#pragma once

#include <sys/sysinfo.h>

#include <cstdint>
#include <string>

#include "modules/blackbox/BlackBoxDotting.h"
#include "modules/blackbox/BlackBoxHeaders.h"

namespace zelkor::tessel::Minidump {

constexpr char kPoweroffReasonNode[] = "/sys/bootinfo/poweroff_reason";
// Bytes read from a boot info node.
constexpr size_t kBootReasonReadMax = 512;
// Longest reason text of the record.
constexpr size_t kBootReasonTextMax = 399;

// The text of a boot info node: up to 512 bytes, the last byte read (the
// node's line end) dropped. Empty when the node cannot be read.
std::string read_boot_reason(const char* node);

// "powerup_reason:%s, power_off_reason:%s" from the two boot info nodes, at
// most 399 characters.
std::string boot_reason_text();

// Opens the blackbox partition, runs the header pass (repairs, boot index
// property) into `headers` and writes the boot reasons as the next dotting
// record. False when the partition could not be opened; `headers` is then
// left as it was.
bool black_box_dotting(blackbox::BlackBoxHeaders* headers,
                       const blackbox::SysinfoFn& get_sysinfo = ::sysinfo);

}  // namespace zelkor::tessel::Minidump
