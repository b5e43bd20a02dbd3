// The writers parse_log dispatches to, one per kind of section. Each reads the
// section through `in` and writes text to the open last-log file(s).
#pragma once

#include <cstdint>

#include "modules/BSPLogProcessor/minidump/SectionStream.h"
#include "modules/BSPLogProcessor/minidump/TzLogDict.h"

namespace zelkor::tessel::Minidump {

// Kernel printk records as "<level> [sec.usec] text" lines ("md_KMDT0x110.BIN").
void WriteKmdt(const Section& in, int out);
// Kernel printk records as kernel log lines; `dumpTime` (may be null) heads
// the file with the dump's time ("md_kmsg").
void WriteKmsg(const Section& in, int out, const char* dumpTime);
// Android pmsg records as logcat lines ("md_pmsg").
void WritePmsg(const Section& in, int out);
// The section's text with NUL padding left out ("md_cpusys", "md_XBL_LOG").
void WriteText(const Section& in, int out);
// The section's bytes as a hex dump ("md_TZ_IMEM").
void WriteHexDump(const Section& in, int out);
// The trust-zone log as it is, and translated with the dictionary into
// `parsed` unless that is -1 ("md_ltz").
void WriteTzLog(const Section& in, int raw, int parsed);
// The trust-zone diagnostic area, its log translated likewise ("md_TZ_DIAG").
void WriteTzDiag(const Section& in, int out, int parsed);
// The hypervisor diagnostic area ("md_HYP_DIAG").
void WriteHypLog(const Section& in, int out);
// A trust-zone log-key region into "last_tzlog_key", the file started afresh
// (`startFile`) or continued.
void WriteKeyRegion(const Section& in, uint32_t lateIndex, bool startFile);

// What CopyText does with NUL bytes: leaves them out (boot loaders and rings
// pad with them), ends the text at the first, or keeps them in `out` (a raw
// copy; the translator still sees the text without them).
enum class NulBytes { kLeftOut, kEndText, kKept };

// Copies the text of `source` to `out`, and feeds it to `translator` when one
// is given.
void CopyText(ByteSource& source, OutBuffer& out, TzlogTranslator* translator,
              NulBytes nul = NulBytes::kLeftOut);

}  // namespace zelkor::tessel::Minidump
