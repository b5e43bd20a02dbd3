// `tesselctl logconfig FILE.json`: a log-folder configuration array checked
// the way the daemon converts it, before anyone sends it.
#pragma once

namespace zelkor::tessel::tools {

// Prints each record the daemon would keep, with its resolved folder and
// limits, then the first conversion error by record and key. 0 when every
// record converts, 1 otherwise (also for an unreadable or non-JSON file).
int CheckLogConfig(const char* path);

}  // namespace zelkor::tessel::tools
