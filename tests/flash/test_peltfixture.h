#ifndef LIBCOMMON_TESTS_FLASH_TEST_PELTFIXTURE_H
#define LIBCOMMON_TESTS_FLASH_TEST_PELTFIXTURE_H

// A TP32A512 PeltChip reached through SimpleTarn32MemoryAccessor, as a
// plug-in reaches a real chip, with the Pelt driver over it.

#include "sim/peltchip.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/flash/peltinternalflash.h"
#include "libcommon/memory/targetaccessors.h"
#include "tests/support/logcapture.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <random>
#include <string>
#include <vector>

class PeltFixture : public ::testing::Test {
protected:
    static constexpr uint64_t FLASH = 0x80000000;
    static constexpr uint64_t USER_PAGE = 0x80800000;
    static constexpr unsigned PAGE = 512;

    PeltFixture()
        : chip(PeltChip::fromDeviceFile("devices/TP32A512.xml")),
          bus(boost::make_shared<SimpleTarn32MemoryAccessor>(
              chip, static_cast<ITarn32Target::MemoryType>(1),
              static_cast<ITarn32Target::MemoryType>(1))),
          flash(boost::make_shared<PeltInternalFlash>(chip->getDevice(), bus)) {}

    ~PeltFixture() override {
        EXPECT_EQ(chip->getViolations(), std::vector<std::string>()) << "protocol violations";
    }

    static std::vector<unsigned char> randomBytes(size_t size, unsigned seed) {
        std::mt19937 random(seed);
        std::vector<unsigned char> bytes(size);
        for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
        return bytes;
    }

    // Page numbers of the accepted commands with this code, in order.
    std::vector<unsigned> pagesOf(unsigned code) const {
        std::vector<unsigned> pages;
        for (uint32_t word : chip->getCommandLog())
            if ((word & 0x3F) == code) pages.push_back((word >> 8) & 0xFFFF);
        return pages;
    }

    boost::shared_ptr<PeltChip> chip;
    boost::shared_ptr<SimpleTarn32MemoryAccessor> bus;
    boost::shared_ptr<PeltInternalFlash> flash;
};

// Runs f and gives the text of the GenericError it throws.
template <class F>
std::string genericFailure(F f) {
    try {
        f();
    } catch (const GenericError& e) {
        return e.getString();
    }
    ADD_FAILURE() << "no GenericError";
    return std::string();
}

#endif
