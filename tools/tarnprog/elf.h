#ifndef TARNPROG_ELF_H
#define TARNPROG_ELF_H

// ELF programs as images: what a linker's output puts into flash is its
// loadable segments' file contents at their load (physical) addresses,
// which is also where the initial values of .data are stored. Zero-filled
// memory (.bss) is the program's own business and is not programmed.

#include "libcommon/flash/flashprogrammer.h"

#include <string>

namespace tarnprog {

// Whether the file starts with the ELF magic bytes.
bool isElfFile(const std::string& path);

// The loadable segments of an ELF program. Throws UsageError for a damaged
// file or one without loadable contents.
FlashImage loadElfImage(const std::string& path);

}  // namespace tarnprog

#endif
