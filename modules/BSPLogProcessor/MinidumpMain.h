// The boot run over the previous boot's logs, as BSPLogProcessor starts it
// once per start of the daemon.
#pragma once

namespace zelkor::tessel::Minidump {

// In this order: reset "vendor.minidump.is.valid", empty the diagnostic
// folder, take the run's time, write the boot dotting record (blackbox header
// pass included), repair the dump headers after a dump the boot loader could
// not finish, take a new dump and the stored ones, record the crash in the
// crash history (or the dump history when that cannot be opened), compress
// the raw dump when a new one was taken, and copy the kernel boot log into
// the blackbox slot. No step stops the run.
void minidump_main();

}  // namespace zelkor::tessel::Minidump
