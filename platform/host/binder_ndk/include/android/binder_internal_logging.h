// Logging available to the binder C++ helper headers without liblog: syslog,
// kept from clobbering liblog's LOG_PRI macro.
#pragma once

#pragma push_macro("LOG_PRI")
#ifdef LOG_PRI
#undef LOG_PRI
#endif
#include <syslog.h>
#pragma pop_macro("LOG_PRI")
