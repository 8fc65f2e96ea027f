#include "elf.h"

#include "errors.h"

#include "libcommon/core/status.h"
#include "libcommon/dwarf/elfimage.h"

#include <fstream>

namespace tarnprog {

bool isElfFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char magic[4] = {};
    return in.read(magic, 4) && magic[0] == 0x7F && magic[1] == 'E' && magic[2] == 'L' &&
           magic[3] == 'F';
}

FlashImage loadElfImage(const std::string& path) {
    FlashImage image;
    try {
        for (const ElfSegment& segment : ElfImage::open(path)->getLoadableSegments())
            image.add(segment.loadAddress, segment.bytes);
    } catch (const CoreException& e) {
        throw UsageError(e.what());
    }
    return image;
}

}  // namespace tarnprog
