#ifndef LIBCOMMON_TESTS_FLASH_NVMRIG_H
#define LIBCOMMON_TESTS_FLASH_NVMRIG_H

// A simulated NVM chip with a driver over it, and helpers the NVM tests
// share.

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/flash/flashinformation.h"
#include "libcommon/flash/nvmcontroller.h"
#include "sim/nvmchip.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

typedef std::vector<unsigned char> Bytes;

struct NvmRig {
    boost::shared_ptr<NvmChip> chip;
    NvmControllerInformation info;
    boost::shared_ptr<NvmController> flash;

    explicit NvmRig(boost::shared_ptr<DIDevice> device, bool passThrough = false)
        : chip(boost::make_shared<NvmChip>(device)),
          info(device),
          flash(boost::make_shared<NvmController>(info, chip, passThrough)) {
        chip->setRecording(true);
    }
    explicit NvmRig(const std::string& file, bool passThrough = false)
        : NvmRig(DeviceFile::load(file), passThrough) {}

    // Commands the chip saw, code and latched address, in order.
    std::vector<std::pair<unsigned, uint64_t>> commands() const {
        std::vector<std::pair<unsigned, uint64_t>> seen;
        for (const NvmChip::Event& e : chip->getEvents()) {
            if (e.type == NvmChip::Event::COMMAND) seen.emplace_back(e.code, e.address);
        }
        return seen;
    }
    uint32_t config() const {
        return chip->peekRegister(info.configRegisterOffset, info.configRegisterWidth);
    }
};

inline Bytes randomBytes(size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    Bytes bytes(size);
    for (unsigned char& b : bytes) b = (unsigned char)generator();
    return bytes;
}

// Code and text of the CoreException that f throws (code 0 and the text
// for a GenericError).
inline std::pair<unsigned, std::string> thrown(const std::function<void()>& f) {
    try {
        f();
    } catch (const GenericError& e) {
        return {0u, e.what()};
    } catch (const CoreException& e) {
        return {unsigned(e.getStatus()->getErrorCode()), e.what()};
    }
    ADD_FAILURE() << "nothing thrown";
    return {0u, std::string()};
}

#endif
