// The ELF image as memory: initial contents at run addresses, zeros for
// no-bits sections, marks (or an exception) for everything else, writes
// refused; and damaged files refused with the file's name.

#include "libcommon/dwarf/dwarfprogram.h"
#include "libcommon/dwarf/elfimage.h"
#include "testprograms.h"

#include <elf.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <fstream>
#include <iterator>

namespace {

std::vector<unsigned char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
}

class ArmImage : public ::testing::Test {
protected:
    void SetUp() override {
        image = ElfImage::open(testProgram("watchprog-arm.elf"));
        program = DwarfProgram::read(image);
        memory = boost::make_shared<ElfImageMemoryAccessor>(image);
    }
    uint64_t addressOf(const std::string& name) {
        const DwarfVariable* v = program->findGlobalVariable(name);
        EXPECT_TRUE(v);
        return v ? v->location.address : 0;
    }
    const ElfSection& section(const std::string& name) {
        for (const ElfSection& s : image->getSections())
            if (s.name == name) return s;
        throw std::runtime_error("no section " + name);
    }

    boost::shared_ptr<ElfImage> image;
    boost::shared_ptr<DwarfProgram> program;
    boost::shared_ptr<ElfImageMemoryAccessor> memory;
};

TEST_F(ArmImage, DescribesTheTarget) {
    EXPECT_EQ(EM_ARM, image->getMachine());
    EXPECT_FALSE(image->is64Bit());
    EXPECT_FALSE(image->isBigEndian());
    EXPECT_EQ(0x08000000u, section(".text").address);
    EXPECT_EQ(0x20000000u, section(".data").address);
    EXPECT_TRUE(section(".bss").noBits);
}

TEST_F(ArmImage, ReadsInitialisedDataAtItsRunAddress) {
    // c_int = -123456 lives in .data, whose initial values are stored in
    // flash; the program sees them in RAM.
    uint64_t at = addressOf("c_int");
    EXPECT_EQ(0x20000000u, at & 0xF0000000u);
    std::vector<unsigned char> buffer(4);
    auto error = boost::make_shared<MemoryError>();
    memory->read(at, 4, buffer.begin(), error, nullptr);
    EXPECT_TRUE(error->isOk());
    EXPECT_EQ((std::vector<unsigned char>{0xC0, 0x1D, 0xFE, 0xFF}), buffer);
}

TEST_F(ArmImage, ReadsAcrossDataIntoZeroedBssAndMarksTheRest) {
    const ElfSection& data = section(".data");
    const ElfSection& bss = section(".bss");
    ASSERT_EQ(data.address + data.size, bss.address);
    // Two bytes of .data, all of .bss, then four bytes beyond any section.
    uint64_t start = bss.address - 2;
    unsigned int size = static_cast<unsigned int>(2 + bss.size + 4);
    std::vector<unsigned char> buffer(size, 0xAA);
    auto error = boost::make_shared<MemoryError>();
    memory->read(start, size, buffer.begin(), error, nullptr);
    EXPECT_EQ(data.data[data.size - 2], buffer[0]);
    EXPECT_EQ(data.data[data.size - 1], buffer[1]);
    for (uint64_t i = 0; i < bss.size; ++i) ASSERT_EQ(0, buffer[2 + i]) << i;
    // The unreadable tail is marked exactly and left as it was.
    ASSERT_EQ(1u, error->getRecords().size());
    EXPECT_EQ(bss.address + bss.size, error->getRecords()[0].address);
    EXPECT_EQ(4u, error->getRecords()[0].size);
    EXPECT_EQ(MEM_UNKNOWN, error->getRecords()[0].status);
    EXPECT_EQ((std::vector<unsigned char>(4, 0xAA)),
              std::vector<unsigned char>(buffer.end() - 4, buffer.end()));
}

TEST_F(ArmImage, MarksTheGapBetweenFlashAndRam) {
    const ElfSection& text = section(".text");
    std::vector<unsigned char> buffer(8, 0xAA);
    auto error = boost::make_shared<MemoryError>();
    memory->read(text.address + text.size - 4, 8, buffer.begin(), error, nullptr);
    EXPECT_EQ(text.data[text.size - 1], buffer[3]);
    ASSERT_EQ(1u, error->getRecords().size());
    EXPECT_EQ(text.address + text.size, error->getRecords()[0].address);
    EXPECT_EQ(4u, error->getRecords()[0].size);
    EXPECT_EQ(0xAA, buffer[4]);
}

TEST_F(ArmImage, ThrowsForUnreadableBytesWhenNobodyCollectsMarks) {
    std::vector<unsigned char> buffer(4);
    auto failure = coreFailure([&] {
        memory->read(0x10000000, 4, buffer.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    });
    EXPECT_EQ(ERR_ADDRESS_RANGE, failure.first);
    EXPECT_NE(std::string::npos, failure.second.find("0x10000000"));
    // Readable bytes need no record.
    memory->read(addressOf("c_int"), 4, buffer.begin(), boost::shared_ptr<MemoryError>(), nullptr);
}

TEST_F(ArmImage, RefusesWritesAndKeepsTheImage) {
    uint64_t at = addressOf("c_int");
    std::vector<unsigned char> zeros(4, 0);
    auto error = boost::make_shared<MemoryError>();
    memory->write(at, 4, zeros.begin(), error, nullptr, false);
    ASSERT_EQ(1u, error->getRecords().size());
    EXPECT_EQ(MEM_WRITE_FAILED, error->getRecords()[0].status);
    EXPECT_EQ(4u, error->getRecords()[0].size);
    std::vector<unsigned char> buffer(4);
    memory->read(at, 4, buffer.begin(), boost::shared_ptr<MemoryError>(), nullptr);
    EXPECT_EQ(0xC0, buffer[0]);
}

TEST_F(ArmImage, LoadableSegmentsCarryDataAtItsLoadAddress) {
    std::vector<ElfSegment> segments = image->getLoadableSegments();
    ASSERT_EQ(2u, segments.size());
    const ElfSection& text = section(".text");
    const ElfSection& data = section(".data");
    EXPECT_EQ(text.address, segments[0].loadAddress);
    // .data is programmed into flash right behind the code, at its load
    // address, with its initial values; .bss is not programmed.
    const ElfSegment& ram = segments[1];
    EXPECT_EQ(data.address, ram.runAddress);
    EXPECT_EQ(0x08000000u, ram.loadAddress & 0xFF000000u);
    EXPECT_EQ(data.size, ram.bytes.size());
    EXPECT_EQ(data.size + section(".bss").size, ram.memorySize);
    EXPECT_TRUE(std::equal(ram.bytes.begin(), ram.bytes.end(), data.data));
}

TEST(ElfImageOpen, RefusesWhatIsNoUsableElfFile) {
    std::vector<unsigned char> elf = fileBytes(testProgram("watchprog-arm.elf"));
    ASSERT_GT(elf.size(), 0x1000u);
    struct Case {
        const char* what;
        std::vector<unsigned char> bytes;
        const char* message;
    };
    std::vector<unsigned char> headerOnly(elf.begin(), elf.begin() + 52);
    std::vector<unsigned char> cutInData(elf.begin(), elf.begin() + 0x2010);
    std::vector<unsigned char> text = {'h', 'e', 'l', 'l', 'o', '\n'};
    std::vector<unsigned char> magicOnly(elf.begin(), elf.begin() + 4);
    // .data's file offset (section 2, 32-bit headers) moved past the end.
    std::vector<unsigned char> dataOutside = elf;
    uint32_t sectionTable =
        elf[0x20] | elf[0x21] << 8 | elf[0x22] << 16 | uint32_t(elf[0x23]) << 24;
    for (int i = 0; i < 4; ++i) dataOutside[sectionTable + 2 * 40 + 16 + i] = i == 0 ? 0x00 : 0xFF;
    for (const Case& c :
         {Case{"empty", {}, "not an ELF file"}, Case{"text", text, "not an ELF file"},
          Case{"magic only", magicOnly, "not an ELF file"},
          Case{"header only", headerOnly, "section table"},
          Case{"cut inside .data", cutInData, "section table"},
          Case{".data outside", dataOutside, "section .data lies beyond the end of the file"}}) {
        auto failure = coreFailure([&] { ElfImage::fromBytes(c.bytes, "broken.elf"); });
        EXPECT_EQ(ERR_FILE_IO, failure.first) << c.what;
        EXPECT_EQ(0u, failure.second.find("broken.elf: ")) << c.what << ": " << failure.second;
        EXPECT_NE(std::string::npos, failure.second.find(c.message))
            << c.what << ": " << failure.second;
    }
    auto missing = coreFailure([] { ElfImage::open(testProgram("no-such-file.elf")); });
    EXPECT_EQ(ERR_FILE_IO, missing.first);
    EXPECT_NE(std::string::npos, missing.second.find("no-such-file.elf"));
}

}  // namespace
