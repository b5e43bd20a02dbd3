#include <dirent.h>
#include <stdio.h>

#include <cstring>
#include <string>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel::Minidump {

void delete_log() {
    const std::string dir = platform::DevicePath(kDiagDir);
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        MD_LOGE("Unable to open directory: %s\n", kDiagDir);
        return;
    }
    while (struct dirent* entry = readdir(d)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        // remove() takes files and empty folders; a folder with content stays.
        if (remove((dir + "/" + entry->d_name).c_str()) != 0) {
            MD_PRINT("Unable to delete %s/%s\n", kDiagDir, entry->d_name);
        }
    }
    MD_PRINT("delete old file suceess !\n");
    closedir(d);
}

}  // namespace zelkor::tessel::Minidump
