#ifndef TARNPROG_STATEFILE_H
#define TARNPROG_STATEFILE_H

// The state file of a simulated chip: named byte blocks of one device,
// sealed with a CRC-32 so that a damaged file is refused rather than
// programmed into a chip.
//
//     tarnprog-state 1
//     device <name>
//     block <name> <size>
//     <size raw bytes>
//     ...
//     end <crc-32 of everything above, 8 hexadecimal digits>
//
// Saving writes a temporary file beside the target and renames it over the
// old one, so an interrupted run never leaves half a state behind.

#include <string>
#include <utility>
#include <vector>

namespace tarnprog {

struct ChipState {
    std::string device;
    std::vector<std::pair<std::string, std::vector<unsigned char>>> blocks;

    const std::vector<unsigned char>* find(const std::string& name) const;
};

// False when there is no file at path; TargetError when it cannot be read
// or is not a state file.
bool loadState(const std::string& path, ChipState& state);
void saveState(const std::string& path, const ChipState& state);

}  // namespace tarnprog

#endif
