// tessel-image dump add: the command-line face of the dump writer.
#include <iostream>

#include "tools/tessel-image/Commands.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::image {

int RunDumpAdd(const Args& args) {
    return RunDumpAdd(args, std::cout, std::cerr);
}

}  // namespace zelkor::tessel::image
