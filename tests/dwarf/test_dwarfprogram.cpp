// The debug information model over real compiler output: each program
// variant must give the same C-level answers, whatever DWARF version or
// target spelled them.

#include "libcommon/dwarf/dwarfprogram.h"
#include "libcommon/dwarf/elfimage.h"
#include "testprograms.h"

#include <dwarf.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

namespace {

class EachProgram : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        image = ElfImage::open(testProgram(GetParam()));
        program = DwarfProgram::read(image);
        memory = boost::make_shared<ElfImageMemoryAccessor>(image);
    }
    const DwarfVariable& global(const std::string& name) {
        const DwarfVariable* v = program->findGlobalVariable(name);
        if (!v) throw std::runtime_error("no variable " + name);
        return *v;
    }
    static const DwarfType* resolve(const DwarfType* t) {
        while (t && t->kind == DwarfType::TYPEDEF) t = t->target;
        return t;
    }
    static const DwarfMember& member(const DwarfType* t, const std::string& name) {
        for (const DwarfMember& m : resolve(t)->members)
            if (m.name == name) return m;
        throw std::runtime_error("no member " + name);
    }
    // A bit-field's value the way the expression engine computes it: the
    // span gathered in target byte order, shifted down by what lies below
    // the field, masked and sign-extended.
    int64_t bitField(uint64_t base, const DwarfMember& m, bool isSigned) {
        std::vector<unsigned char> span(m.byteSize);
        memory->read(base + m.byteOffset, m.byteSize, span.begin(),
                     boost::shared_ptr<MemoryError>(), nullptr);
        uint64_t whole = 0;
        for (size_t i = 0; i < span.size(); ++i)
            whole |= uint64_t(span[i]) << (8 * (image->isBigEndian() ? span.size() - 1 - i : i));
        uint64_t value = whole >> (8 * m.byteSize - m.bitOffset - m.bitSize);
        value &= m.bitSize == 64 ? ~0ull : (1ull << m.bitSize) - 1;
        if (isSigned && (value >> (m.bitSize - 1)) & 1) value |= ~0ull << m.bitSize;
        return static_cast<int64_t>(value);
    }

    boost::shared_ptr<ElfImage> image;
    boost::shared_ptr<DwarfProgram> program;
    boost::shared_ptr<ElfImageMemoryAccessor> memory;
};

TEST_P(EachProgram, BaseTypesCarryNameSizeAndEncoding) {
    struct Expect {
        const char* variable;
        uint64_t size;
        int encoding;
    };
    bool host = image->is64Bit();
    for (const Expect& e :
         {Expect{"c_schar", 1, DW_ATE_signed_char}, Expect{"c_uchar", 1, DW_ATE_unsigned_char},
          Expect{"c_short", 2, DW_ATE_signed}, Expect{"c_uint", 4, DW_ATE_unsigned},
          Expect{"c_long", host ? 8u : 4u, DW_ATE_signed}, Expect{"c_ullong", 8, DW_ATE_unsigned},
          Expect{"c_double", 8, DW_ATE_float}, Expect{"c_bool", 1, DW_ATE_boolean}}) {
        const DwarfType* t = global(e.variable).type;
        ASSERT_EQ(DwarfType::BASE, t->kind) << e.variable;
        EXPECT_EQ(e.size, t->byteSize) << e.variable;
        EXPECT_EQ(e.encoding, t->encoding) << e.variable;
    }
    // Plain char is unsigned on Cortex-M and signed on the host.
    EXPECT_EQ(host ? DW_ATE_signed_char : DW_ATE_unsigned_char,
              program->findBaseType("char")->encoding);
    // Qualifiers are transparent.
    EXPECT_EQ(program->findBaseType("int"), global("k_limit").type);
    EXPECT_EQ(program->findBaseType("unsigned int"), global("v_counter").type);
}

TEST_P(EachProgram, TypedefsChainToTheirBaseType) {
    const DwarfType* reg = global("t_reg").type;
    ASSERT_EQ(DwarfType::TYPEDEF, reg->kind);
    EXPECT_EQ("reg32", reg->name);
    EXPECT_EQ(4u, reg->byteSize);
    ASSERT_EQ(DwarfType::TYPEDEF, reg->target->kind);
    EXPECT_EQ("u32", reg->target->name);
    EXPECT_EQ(program->findBaseType("unsigned int"), reg->target->target);
    EXPECT_EQ(reg, program->findType("reg32"));
}

TEST_P(EachProgram, GlobalsLieInDataAndBssAndStaticsAreFound) {
    const DwarfVariable& c = global("c_int");
    EXPECT_EQ(DwarfLocation::ADDRESS, c.location.kind);
    EXPECT_TRUE(c.external);
    const DwarfVariable& s = global("file_static");
    EXPECT_FALSE(s.external);
    EXPECT_EQ(&s, program->findStaticVariable(s.unit, "file_static"));
    EXPECT_EQ(nullptr, program->findStaticVariable(s.unit + 1, "file_static"));
    EXPECT_EQ(nullptr, program->findGlobalVariable("c_in"));
    EXPECT_EQ(nullptr, program->findGlobalVariable("c_int_"));
    // zeroed has no initialiser: it lies in a no-bits section.
    const ElfSection* bss = image->findSection(global("zeroed").location.address);
    ASSERT_TRUE(bss);
    EXPECT_TRUE(bss->noBits);
}

TEST_P(EachProgram, AggregatesKeepTheirLayout) {
    const DwarfType* line = global("diagonal").type;
    ASSERT_EQ(DwarfType::STRUCT, line->kind);
    EXPECT_EQ("line", line->name);
    EXPECT_EQ(image->is64Bit() ? 16u : 12u, line->byteSize);
    EXPECT_EQ(4u, member(line, "to").byteOffset);
    EXPECT_EQ(program->findType("point"), member(line, "to").type);
    EXPECT_EQ(program->findType("struct point"), member(line, "to").type);

    const DwarfType* matrix = global("matrix").type;
    ASSERT_EQ(DwarfType::ARRAY, matrix->kind);
    EXPECT_EQ((std::vector<uint64_t>{2, 3}), matrix->dimensions);
    EXPECT_EQ(24u, matrix->byteSize);
    EXPECT_EQ(program->findBaseType("int"), matrix->target);

    const DwarfType* points = global("points").type;
    EXPECT_EQ((std::vector<uint64_t>{4}), points->dimensions);
    EXPECT_EQ(16u, points->byteSize);

    // The union member of packet has no name; its members stay reachable.
    const DwarfType* packet = global("pkt").type;
    const DwarfMember& anonymous = packet->members.at(1);
    EXPECT_EQ("", anonymous.name);
    ASSERT_EQ(DwarfType::UNION, anonymous.type->kind);
    EXPECT_EQ(2u, anonymous.type->byteSize);
    EXPECT_EQ("raw", anonymous.type->members.at(1).name);
    EXPECT_EQ(0u, anonymous.type->members.at(1).byteOffset);
    EXPECT_EQ(4u, member(packet, "pair").byteOffset);

    // A struct that points to itself is one type, not an endless chain.
    const DwarfType* node = resolve(global("nodes").type->target);
    const DwarfType* next = member(node, "next").type;
    ASSERT_EQ(DwarfType::POINTER, next->kind);
    EXPECT_EQ(node, next->target);
    EXPECT_EQ(image->is64Bit() ? 8u : 4u, next->byteSize);
}

TEST_P(EachProgram, BitFieldsReadBackTheirInitialValues) {
    // struct flags status = {1, 5, -7, 0xABC, 0x5A, 0xFEDCB};
    const DwarfVariable& status = global("status");
    uint64_t base = status.location.address;
    const DwarfType* flags = status.type;
    EXPECT_EQ(1, bitField(base, member(flags, "ready"), false));
    EXPECT_EQ(5, bitField(base, member(flags, "mode"), false));
    EXPECT_EQ(-7, bitField(base, member(flags, "delta"), true));
    EXPECT_EQ(0xABC, bitField(base, member(flags, "wide"), false));
    EXPECT_EQ(0xFEDCB, bitField(base, member(flags, "spill"), false));
    const DwarfMember& tail = member(flags, "tail");
    EXPECT_FALSE(tail.bitField);
    EXPECT_EQ(3u, tail.byteOffset);
    // wide (bits 9 to 20) straddles bytes 1 and 2: its span is exactly them.
    const DwarfMember& wide = member(flags, "wide");
    EXPECT_EQ(1u, wide.byteOffset);
    EXPECT_EQ(2u, wide.byteSize);
    EXPECT_EQ(12, wide.bitSize);
}

TEST_P(EachProgram, EnumsKeepSignedAndAnonymousConstants) {
    const DwarfType* colour = global("e_colour").type;
    ASSERT_EQ(DwarfType::ENUM, colour->kind);
    EXPECT_EQ("colour", colour->name);
    ASSERT_EQ(4u, colour->enumerators.size());
    EXPECT_EQ("BLUE", colour->enumerators[2].name);
    EXPECT_EQ(6u, colour->enumerators[2].value);
    EXPECT_EQ(static_cast<uint64_t>(-3), colour->enumerators[3].value);
    EXPECT_EQ(std::make_pair(colour, size_t(2)), program->findEnumerator("BLUE"));
    EXPECT_EQ(nullptr, program->findEnumerator("BLU").first);
    const DwarfType* mode = global("e_mode").type;
    ASSERT_EQ(DwarfType::TYPEDEF, mode->kind);
    EXPECT_EQ("", mode->target->name);
    EXPECT_EQ(4u, mode->target->enumerators.at(2).value);
}

TEST_P(EachProgram, PointersAndFunctions) {
    const DwarfType* greeting = global("greeting").type;
    ASSERT_EQ(DwarfType::POINTER, greeting->kind);
    EXPECT_EQ(program->findBaseType("char"), greeting->target);
    const DwarfType* pp = global("pp_int").type;
    EXPECT_EQ(DwarfType::POINTER, pp->target->kind);
    const DwarfType* handler = global("handler").type;
    ASSERT_EQ(DwarfType::POINTER, handler->kind);
    ASSERT_EQ(DwarfType::FUNCTION, handler->target->kind);
    EXPECT_EQ(program->findBaseType("int"), handler->target->target);
}

TEST_P(EachProgram, FunctionsHoldTheirParametersAndLocals) {
    const DwarfFunction* combine = program->findFunction("combine");
    ASSERT_TRUE(combine);
    EXPECT_LT(combine->lowPc, combine->highPc);
    EXPECT_EQ(combine, program->findFunctionAt(combine->lowPc));
    EXPECT_EQ(combine, program->findFunctionAt(combine->highPc - 1));
    EXPECT_NE(combine, program->findFunctionAt(combine->highPc));
    EXPECT_EQ(program->findBaseType("int"), combine->type->target);
    const DwarfVariable* a = DwarfProgram::findLocal(*combine, combine->lowPc, "a");
    ASSERT_TRUE(a);
    EXPECT_TRUE(a->parameter);
    const DwarfVariable* local = DwarfProgram::findLocal(*combine, combine->lowPc, "local");
    ASSERT_TRUE(local);
    EXPECT_FALSE(local->parameter);
    EXPECT_EQ(program->findType("point"), local->type);
    // At -O0 locals live in the frame: at an offset from the canonical
    // frame address, or from the frame register where the frame base is one.
    EXPECT_TRUE(local->location.kind == DwarfLocation::FRAME_OFFSET ||
                local->location.kind == DwarfLocation::REGISTER_OFFSET);
    EXPECT_NE(0, local->location.offset);
    // A static local has a fixed address like a global.
    const DwarfVariable* calls = DwarfProgram::findLocal(*combine, combine->lowPc, "calls");
    ASSERT_TRUE(calls);
    EXPECT_EQ(DwarfLocation::ADDRESS, calls->location.kind);
    EXPECT_EQ(nullptr, DwarfProgram::findLocal(*combine, combine->lowPc, "sum_"));
    EXPECT_EQ(program->findUnitAt(combine->lowPc), &program->getUnits().at(combine->unit));
}

INSTANTIATE_TEST_SUITE_P(Programs, EachProgram, ::testing::ValuesIn(debugPrograms),
                         programTestName);

TEST(DwarfProgramRead, RefusesAProgramWithoutDebugInformation) {
    auto image = ElfImage::open(testProgram("watchprog-arm-nodebug.elf"));
    auto failure = coreFailure([&] { DwarfProgram::read(image); });
    EXPECT_EQ(ERR_FILE_IO, failure.first);
    EXPECT_NE(std::string::npos, failure.second.find("no debug information"));
    EXPECT_NE(std::string::npos, failure.second.find("watchprog-arm-nodebug.elf"));
}

}  // namespace
