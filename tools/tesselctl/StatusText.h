// Names of binder status and exception codes, for messages people read.
#pragma once

#include <android/binder_status.h>

#include <string>

namespace zelkor::tessel::tools {

const char* StatusName(binder_status_t status);
const char* ExceptionName(binder_exception_t exception);
// "EX_SERVICE_SPECIFIC (-8): code 3: message" and the like.
std::string DescribeStatus(const AStatus* status);

}  // namespace zelkor::tessel::tools
