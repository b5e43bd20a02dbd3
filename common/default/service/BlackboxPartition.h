// What the blackbox service's methods share: opening the partition and
// reading its headers for one call, the dot routine, the bookkeeping record
// and writing to a client's descriptor.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/sysinfo.h>

#include <string>

#include "modules/blackbox/BlackBoxDotting.h"
#include "modules/blackbox/BlackBoxHeaders.h"

namespace zelkor::tessel {

// "/dev/block/by-name/blackbox" opened read-write and non-blocking; a failure
// is logged ("open black_box_log partition fail, error: ").
android::base::unique_fd OpenBlackbox();

// The partition's headers as the dot routine reads them. Each call keeps its
// own copy: headers whose magic is wrong read as the defaults, in memory only.
// False after a short read of the slot header.
bool ReadBlackboxHeaders(int fd, blackbox::BlackBoxHeaders* headers);

// The dot routine: one record "{"N", "first", "time", "third"}\n" (cut to 511
// characters) in the current slot's dotting ring, the slot header updated.
// An empty `time` stamps the current local time. Returns the slot header
// write's result: 140, or -1.
int dot_from_external(const std::string& first, const std::string& time, const std::string& third,
                      const blackbox::SysinfoFn& get_sysinfo = ::sysinfo);

// The record a successful operation leaves: who, now, and which operation.
void AddBookkeeping(const std::string& caller, const char* operation);

// Writes all of `data` to a client's descriptor. A client that closed its end
// gives EPIPE, never a SIGPIPE that would end the daemon.
bool WriteToClient(int fd, const char* data, size_t size);

}  // namespace zelkor::tessel
