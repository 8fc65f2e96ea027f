#ifndef TARNPROG_IMAGE_H
#define TARNPROG_IMAGE_H

// Image files: Intel HEX or raw binary, chosen by the file name's extension
// (.hex, .ihex, .ihx) unless a format is given.

#include "libcommon/flash/flashprogrammer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnprog {

enum class ImageFormat { Auto, Hex, Binary };

ImageFormat parseImageFormat(const std::string& text);
bool isHexFile(const std::string& path, ImageFormat format);

// Reads an image. A HEX file is checked line by line and a fault names the
// file and line; a binary file lands at base. Throws UsageError, also for a
// file without data.
FlashImage loadImage(const std::string& path, ImageFormat format, bool haveBase, uint64_t base);

// Writes size bytes read at address, as HEX or binary. Throws UsageError.
void saveImage(const std::string& path, ImageFormat format, uint64_t address,
               const std::vector<unsigned char>& data);

}  // namespace tarnprog

#endif
