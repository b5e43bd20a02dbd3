#define LOG_TAG "Halvex-ModuleBase"

#include "framework/ModuleBase.h"

#include "platform/HalvexLog.h"

namespace zelkor::tessel {

ModuleBase::~ModuleBase() {
    HLOGD("Bye~ %s", mName.c_str());
}

void ModuleBase::dump(int, const char**, uint32_t) {}

}  // namespace zelkor::tessel
