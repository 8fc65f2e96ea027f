// Memory contexts built from the sample device files over the simulated
// chip: every address space end to end, the guards on real stacks, and the
// traffic of programming a large image through the cache.

#include "libcommon/core/status.h"
#include "tests/memory/corefailure.h"
#include "libcommon/device/devicefile.h"
#include "libcommon/device/devicemodel.h"
#include "libcommon/device/didevicehelper.h"
#include "libcommon/memory/memorycontext.h"
#include "sim/tarn8chip.h"

#include <gtest/gtest.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <iostream>

namespace {

typedef std::vector<unsigned char> Bytes;
typedef boost::shared_ptr<IMemoryError> ErrorPtr;

Bytes pattern(size_t size, unsigned char seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(seed + i * 13);
    return bytes;
}

boost::shared_ptr<MemoryContext> makeContext(const boost::shared_ptr<Tarn8Chip>& chip,
                                             const std::string& name, bool debug) {
    return boost::make_shared<MemoryContext>(boost::shared_ptr<IMemoryContext>(),
                                             boost::shared_ptr<IProcessContext>(), name,
                                             chip->getDevice(), chip, debug);
}

// The 8-bit sample devices, by path.
std::vector<std::string> sampleDevices() {
    std::vector<std::string> paths;
    for (const auto& entry : boost::filesystem::directory_iterator("devices")) {
        if (entry.path().extension() != ".xml")
            continue;
        const std::string path = entry.path().string();
        const std::string arch = DeviceFile::load(path)->getArchitecture();
        if (arch.compare(0, 5, "TARN8") == 0)
            paths.push_back(path);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// The memories a context can be built for: the address spaces of a
// classic or Orbit part; program, data and the data segments of a Sprig.
std::vector<std::string> contextNames(const boost::shared_ptr<DIDevice>& device) {
    std::vector<std::string> names;
    const bool sprig = DIDeviceHelper::isArch4(device);
    for (const auto& space : device->getAddressSpaces()) {
        auto model = boost::dynamic_pointer_cast<ModelAddressSpace>(space);
        if (!model)
            continue;
        names.push_back(model->getName());
        if (sprig && model->getName() == "data")
            for (const auto& segment : space->getMemorySegments())
                names.push_back(boost::algorithm::to_lower_copy(segment->getName()));
    }
    return names;
}

bool isReadOnlyName(const std::string& name) {
    return name == "signatures" || name == "prod_signatures" || name == "osccal";
}

// Where a context address lands in the chip: memory name and offset.
std::pair<std::string, uint32_t> chipLocation(const Tarn8Chip& chip, const std::string& context,
                                              uint64_t address) {
    const bool sprig = DIDeviceHelper::isArch4(chip.getDevice());
    if (sprig && context == "data") {
        for (const auto& name : chip.getMemoryNames()) {
            const Tarn8Chip::Memory& memory = chip.getMemory(name);
            if (name != "prog" && address >= memory.start &&
                address < memory.start + memory.bytes.size())
                return std::make_pair(name, static_cast<uint32_t>(address - memory.start));
        }
        return std::make_pair(std::string(), 0u);
    }
    // Segment contexts of a Sprig count from 0; spaces count like the chip.
    const uint32_t base = sprig ? 0 : chip.getMemory(context).start;
    return std::make_pair(context, static_cast<uint32_t>(address - base));
}

struct Range {
    uint64_t address;
    uint64_t size;
};

// An unaligned range well inside the memory, or all of a small one. On the
// Sprig data space, a range of its RAM.
Range testRange(const Tarn8Chip& chip, const std::string& context, uint64_t start,
                uint64_t size) {
    if (DIDeviceHelper::isArch4(chip.getDevice()) && context == "data") {
        const Tarn8Chip::Memory& ram = chip.getMemory("internal_sram");
        return Range{ram.start + 0x13, 0x101};
    }
    if (size <= 16)
        return Range{start, size};
    return Range{start + size / 4 + 3, std::min<uint64_t>(size / 2, 0x305)};
}

unsigned int cachePageSize(const Tarn8Chip& chip, const std::string& context, uint64_t size) {
    if (context == "prog")
        return chip.getFlashPageSize();
    if (chip.hasMemory(context)) {
        const unsigned int pageSize = chip.getMemory(context).pageSize;
        if (pageSize != 0 && size % pageSize == 0)
            return pageSize;
    }
    return 1;
}

// An accessor-stack view of a context that the tests can reuse.
class StackOf : public MemoryContext {
public:
    using MemoryContext::getAccessor;
    using MemoryContext::MemoryContext;
};

}  // namespace

TEST(MemoryContextDevices, EverySpaceWritesThroughTheCacheAndReadsBackDirect) {
    const std::vector<std::string> devices = sampleDevices();
    ASSERT_GE(devices.size(), 3u);
    size_t written = 0;
    for (const std::string& path : devices) {
        const std::vector<std::string> names = contextNames(DeviceFile::load(path));
        for (const std::string& name : names) {
            for (bool debug : {true, false}) {
                SCOPED_TRACE(path + " " + name + (debug ? " debug" : " programming"));
                auto chip = Tarn8Chip::fromDeviceFile(path);
                const bool sprig = DIDeviceHelper::isArch4(chip->getDevice());
                if (name == "mapped_progmem" || name == "registers" ||
                    (!sprig && name == "data" && !debug))
                    continue;  // refused; see the next tests
                auto context = makeContext(chip, name, debug);
                const uint64_t start = context->getMemoryStartBound();
                const uint64_t size = context->getMemoryEndBound() - start + 1;
                const Range range = testRange(*chip, name, start, size);
                const auto where = chipLocation(*chip, name, range.address);
                ASSERT_FALSE(where.first.empty());
                const Bytes before =
                    chip->peek(where.first, where.second, static_cast<uint32_t>(range.size));

                context->defineCacheRegion(start, static_cast<unsigned int>(size),
                                           cachePageSize(*chip, name, size));
                const Bytes data = pattern(range.size, 0x21);
                ErrorPtr error;
                context->setMemory(range.address, 0, data, 0, range.size, AccessPlain, nullptr,
                                   error);
                if (isReadOnlyName(name)) {
                    ASSERT_TRUE(error);
                    EXPECT_EQ(error->getStatus(range.address, nullptr), MEM_WRITE_FAILED);
                    context->commitCachedChanges(nullptr, error);
                    EXPECT_EQ(chip->peek(where.first, where.second,
                                         static_cast<uint32_t>(range.size)),
                              before);
                    continue;
                }
                ASSERT_FALSE(error) << error->getMessage(0x100000000ull);
                EXPECT_EQ(chip->peek(where.first, where.second, static_cast<uint32_t>(range.size)),
                          before);

                context->commitCachedChanges(nullptr, error);
                ASSERT_FALSE(error) << error->getMessage(0x100000000ull);
                Bytes back(range.size, 0);
                context->getMemory(range.address, 0, back, 0, range.size, AccessDirect, nullptr,
                                   error);
                ASSERT_FALSE(error) << error->getMessage(0x100000000ull);
                EXPECT_EQ(back, data);
                EXPECT_EQ(chip->peek(where.first, where.second, static_cast<uint32_t>(range.size)),
                          data);
                ++written;
            }
        }
    }
    // Three families, each with program memory, eeprom, fuses and more.
    EXPECT_GE(written, 30u);
}

TEST(MemoryContextDevices, SetUpFollowsTheDescription) {
    auto classic = Tarn8Chip::fromDeviceFile("devices/TN8C328.xml");
    auto prog = makeContext(classic, "prog", false);
    EXPECT_EQ(prog->getMemoryAddressSize(), 2);
    EXPECT_EQ(prog->getMemoryEndBound(), 0x7FFFu);
    EXPECT_EQ(makeContext(classic, "fuses", true)->getMemoryAddressSize(), 1);

    // Read-only by name, with the bytes the chip holds.
    auto signatures = makeContext(classic, "signatures", false);
    Bytes id(3);
    ErrorPtr error;
    signatures->getMemory(0, 0, id, 0, 3, AccessPlain, nullptr, error);
    EXPECT_EQ(id, (Bytes{0x5A, 0x95, 0x2C}));
    signatures->setMemory(0, 0, Bytes(3, 0), 0, 3, AccessPlain, nullptr, error);
    ASSERT_TRUE(error);
    EXPECT_EQ(classic->getCounters().writeCalls, 0u);

    // A Sprig memory that is a data segment counts from 0.
    auto sprig = Tarn8Chip::fromDeviceFile("devices/TN8X16.xml");
    auto eeprom = makeContext(sprig, "eeprom", true);
    EXPECT_EQ(eeprom->getMemoryStartBound(), 0u);
    EXPECT_EQ(eeprom->getMemoryEndBound(), 0xFFu);
    auto sprigSignatures = makeContext(sprig, "signatures", true);
    sprigSignatures->getMemory(0, 0, id, 0, 3, AccessPlain, nullptr, error);
    EXPECT_EQ(id, (Bytes{0x5A, 0x94, 0x31}));

    // One byte more than 64 KiB needs three address bytes.
    auto device = boost::make_shared<ModelDevice>("TN8R65", "TARN8_ORBIT", "test");
    device->addAddressSpace("prog", 0, 0x10000)->addSegment("FLASH", "flash", 0, 0x10000, 256);
    device->addAddressSpace("eeprom", 0, 0x10001)->addSegment("EEPROM", "eeprom", 0, 0x10001, 1);
    auto chip = boost::make_shared<Tarn8Chip>(device);
    EXPECT_EQ(makeContext(chip, "prog", false)->getMemoryAddressSize(), 2);
    EXPECT_EQ(makeContext(chip, "eeprom", false)->getMemoryAddressSize(), 3);
}

TEST(MemoryContextDevices, UnsupportedMemoriesAreRefusedWithTheirFamily) {
    auto classic = Tarn8Chip::fromDeviceFile("devices/TN8C328.xml");
    auto missing = coreFailure([&] { makeContext(classic, "nothing", true); });
    EXPECT_EQ(missing.first, ERR_OPERATION_FAILED);
    EXPECT_EQ(missing.second, "Could not find address space nothing in device XML file.");
    // A segment of that name exists, but the classic family needs a space.
    auto segmentOnly = coreFailure([&] { makeContext(classic, "io", true); });
    EXPECT_EQ(segmentOnly.first, ERR_NOT_DECLARED);
    EXPECT_EQ(segmentOnly.second, "The address space io is not declared in the device file.");
    EXPECT_EQ(coreFailure([&] { makeContext(classic, "data", false); }).first, ERR_NOT_SUPPORTED);

    auto sprig = Tarn8Chip::fromDeviceFile("devices/TN8X16.xml");
    auto unmapped = coreFailure([&] { makeContext(sprig, "mapped_progmem", true); });
    EXPECT_EQ(unmapped.first, ERR_NOT_DECLARED);
    EXPECT_EQ(unmapped.second, "Unsupported address space name for TARN Sprig.");

    auto orbitDevice = boost::make_shared<ModelDevice>("TN8R1", "TARN8_ORBIT", "test");
    orbitDevice->addAddressSpace("prog", 0, 0x400)->addSegment("FLASH", "flash", 0, 0x400, 64);
    orbitDevice->addAddressSpace("base", 0, 0x10);
    auto orbit = boost::make_shared<Tarn8Chip>(orbitDevice);
    EXPECT_EQ(coreFailure([&] { makeContext(orbit, "base", true); }).second,
              "Unsupported address space name for TARN Orbit.");
}

TEST(MemoryContextDevices, CacheRegionDecidesWhatAContextFromTheDescriptionReaches) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8C328.xml");
    chip->poke("eeprom", 0x10, {1, 2, 3, 4});
    auto context = makeContext(chip, "eeprom", true);
    Bytes buffer(4);
    ErrorPtr error;
    context->getMemory(0x10, 0, buffer, 0, 4, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(buffer, (Bytes{1, 2, 3, 4}));

    context->defineCacheRegion(0x100, 0x100, 4);
    context->getMemory(0x10, 0, buffer, 0, 4, AccessPlain, nullptr, error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getStatus(0x10, nullptr), MEM_UNKNOWN);
    // The direct path still reaches the whole space.
    error.reset();
    context->getMemory(0x10, 0, buffer, 0, 4, AccessDirect, nullptr, error);
    EXPECT_FALSE(error);
}

TEST(MemoryContextDevices, LockedChipSendsNothingToTheTarget) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    auto context = makeContext(chip, "prog", false);
    context->SetChipLocked(true);
    Bytes buffer(16);
    ErrorPtr error;
    EXPECT_EQ(coreFailure([&] {
                  context->getMemory(0, 0, buffer, 0, 16, AccessDirect, nullptr, error);
              }).first,
              ERR_ACCESS_REFUSED);
    EXPECT_EQ(coreFailure([&] {
                  context->setMemory(0, 0, buffer, 0, 16, AccessPlain, nullptr, error);
              }).first,
              ERR_ACCESS_REFUSED);
    EXPECT_EQ(chip->getCounters().readCalls + chip->getCounters().writeCalls, 0u);
}

TEST(MemoryContextDevices, OrbitBootSectionIsReachedThroughItsOwnTypeAndGuarded) {
    auto chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
    ASSERT_EQ(chip->getBootStart(), 0xF000u);
    chip->setRecording(true);

    // Unguarded: a write into the boot section erases and programs it with
    // the boot type, at addresses counted from the section's start.
    auto plain = boost::make_shared<StackOf>(boost::shared_ptr<IMemoryContext>(),
                                             boost::shared_ptr<IProcessContext>(), "prog",
                                             chip->getDevice(), chip, false);
    ErrorPtr error;
    const Bytes code = pattern(0x10, 0x40);
    plain->setMemory(0xF080, 0, code, 0, 0x10, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(chip->peek("prog", 0xF080, 0x10), code);
    bool bootErase = false, bootWrite = false;
    for (const auto& call : chip->getCalls()) {
        if (call.operation == Tarn8Chip::OP_ERASE_MEMORY_PAGE && call.type == 5 &&
            call.address == 0)
            bootErase = true;
        if (call.operation == Tarn8Chip::OP_WRITE && call.type == ITarn8Target::MemTypeBoot &&
            call.address == 0 && call.size == 0x100)
            bootWrite = true;
    }
    EXPECT_TRUE(bootErase);
    EXPECT_TRUE(bootWrite);

    // Guarded: the same stack with the boot section as bootloader area.
    auto guarded = boost::make_shared<MemoryContext>(
        boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(),
        plain->getAccessor(), false, 2, 0, "prog", 0, 0x10000, chip->getBootStart(),
        chip->getBootSize(), std::vector<std::string>(), false, false);
    const Bytes boot = chip->peek("prog", 0xF000, 0x1000);
    const Bytes image = pattern(0x200, 0x11);
    guarded->setMemory(0xEF00, 0, image, 0, 0x200, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(chip->peek("prog", 0xEF00, 0x100), Bytes(image.begin(), image.begin() + 0x100));
    guarded->setMemory(0xF800, 0, image, 0, 0x200, AccessPlain, nullptr, error);
    EXPECT_EQ(chip->peek("prog", 0xF000, 0x1000), boot);
}

TEST(MemoryContextDevices, ProgrammingALargeImageMovesWholePagesOnce) {
    // An Orbit part with 128 KiB of flash, so that 64 KiB with a ragged
    // head and tail fit.
    auto device = boost::make_shared<ModelDevice>("TN8R128", "TARN8_ORBIT", "test");
    device->addAddressSpace("prog", 0, 0x20000)->addSegment("FLASH", "flash", 0, 0x20000, 256);
    auto chip = boost::make_shared<Tarn8Chip>(device);
    chip->setTransferLimits(256, 256);
    chip->setRecording(true);
    auto context = makeContext(chip, "prog", false);
    context->defineCacheRegion(0, 0x20000, 256);

    const uint64_t start = 0x80;
    const Bytes image = pattern(0x10000, 0x5);
    ErrorPtr error;
    context->setMemory(start, 0, image, 0, image.size(), AccessPlain, nullptr, error);
    context->commitCachedChanges(nullptr, error);
    ASSERT_FALSE(error);
    EXPECT_EQ(chip->peek("prog", start, 0x10000), image);

    const Tarn8Chip::Counters& counters = chip->getCounters();
    // Only the two partial pages are read, once each.
    EXPECT_EQ(counters.readCalls, 2u);
    EXPECT_EQ(counters.bytesRead, 2u * 256);
    std::vector<uint32_t> readPages;
    for (const auto& call : chip->getCalls())
        if (call.operation == Tarn8Chip::OP_READ)
            readPages.push_back(call.offset);
    EXPECT_EQ(readPages, (std::vector<uint32_t>{0, 0x10000}));
    // Every touched page is erased and written exactly once, nothing else.
    const std::vector<unsigned int> perPage = chip->writesPerPage("prog");
    for (size_t page = 0; page < perPage.size(); ++page)
        ASSERT_EQ(perPage[page], page <= 0x100 ? 1u : 0u) << "page " << page;
    EXPECT_EQ(counters.bytesWritten, 257u * 256);
    EXPECT_EQ(counters.eraseCalls, 257u);

    std::cout << "[ traffic  ] 64 KiB image at 0x80: " << counters.bytesRead << " bytes read in "
              << counters.readCalls << " calls, " << counters.bytesWritten << " bytes written in "
              << counters.writeCalls << " calls, " << counters.eraseCalls << " page erases"
              << std::endl;
}
