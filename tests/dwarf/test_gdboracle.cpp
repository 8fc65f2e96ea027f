// The library's answers against GDB's: every expression of
// tests/data/watchprog.expressions is evaluated through the engine on the
// program's DWARF and image, and by gdb-multiarch on the same ELF file;
// value and type size must agree. Where they may not, the expression is
// listed below with the reason: the engine's own rules that depart from C.

#include "gdbprint.h"
#include "libcommon/dwarf/elfwatch.h"
#include "testprograms.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace {

struct Departure {
    const char* expression;
    const char* programs;  // part of the names of the programs it applies to, or "all"
    bool sizeOnly;         // the value must still agree
    const char* reason;
};

// Host: the 64-bit program, where long has eight bytes.
const char* const LONG_CONSTANTS =
    "an integer constant is a long to the engine (hexadecimal ones unsigned long), so "
    "arithmetic with one is long arithmetic, eight bytes wide where long is";
const char* const ENUM_AS_LONG =
    "an enum of four bytes is a long to the engine, eight bytes on the host; its four bytes "
    "are read without sign extension";

const Departure departures[] = {
    {"GREEN", "all", false,
     "an enumeration constant is a plain long constant to the engine, not a value of its enum"},
    {"NEGATIVE", "all", false,
     "an enumeration constant is a plain long constant to the engine, not a value of its enum"},
    {"(points + 2)->y", "all", false,
     "array plus integer keeps the array's own type in the engine (it does not decay to a "
     "pointer), so -> refuses it"},
    {"&points[3] - &points[0]", "arm", true,
     "a pointer difference is a 64-bit signed integer in the engine"},
    {"p_point - points", "arm", true,
     "a pointer difference is a 64-bit signed integer in the engine"},
    {"combine", "all", true,
     "a function's size is the size of a code address in the engine, 1 in GDB"},
    {"(unsigned)c_schar", "all", false,
     "unsigned alone names unsigned char in the engine's casts, not unsigned int"},
    {"(unsigned short)e_negative", "arm", false,
     "a one-byte enum is a plain char to the engine, unsigned on Cortex-M, so its negative "
     "constant reads as 253"},
    {"c_short | 0x10", "all", false,
     "a hexadecimal constant is unsigned long in the engine, so the result is unsigned"},
    {"c_short & 0xff", "host", true, LONG_CONSTANTS},
    {"c_short ^ c_ushort", "all", false,
     "unsigned short promotes to unsigned int in the engine, so the result is unsigned"},
    {"c_schar < c_uchar", "all", false,
     "unsigned char promotes to unsigned int in the engine: -5 compares as a large unsigned "
     "number"},
    {"c_ullong >> 32", "arm", false,
     "unsigned long long with a long constant converts to unsigned long in the engine's usual "
     "conversions, four bytes on Cortex-M"},
    {"e_colour", "host", true, ENUM_AS_LONG},
    {"e_mode", "host", true, ENUM_AS_LONG},
    {"e_negative", "host", false, ENUM_AS_LONG},
    {"e_colour + 1", "host", true, LONG_CONSTANTS},
    {"status.delta * 2", "host", true, LONG_CONSTANTS},
    {"status.spill + 1", "host", true, LONG_CONSTANTS},
    {"combine", "host", true, "a function's size is the size of a code address in the engine"},
    {"c_int * 3", "host", true, LONG_CONSTANTS},
    {"c_int / 7", "host", true, LONG_CONSTANTS},
    {"c_int % 7", "host", true, LONG_CONSTANTS},
    {"c_ushort << 3", "host", true, LONG_CONSTANTS},
    {"c_int >> 4", "host", true, LONG_CONSTANTS},
    {"c_uint >> 4", "host", true, LONG_CONSTANTS},
    {"t_u16 + 1", "host", true, LONG_CONSTANTS},
    {"c_int ? 1 : 2", "host", true, LONG_CONSTANTS},
    {"c_char - 'A' + 1", "host", true, LONG_CONSTANTS},
    {"c_uint + 1", "host", true, LONG_CONSTANTS},
};

const Departure* departureFor(const std::string& expression, const std::string& program) {
    for (const Departure& d : departures)
        if (expression == d.expression &&
            (std::string(d.programs) == "all" || program.find(d.programs) != std::string::npos))
            return &d;
    return nullptr;
}

// GDB adds to a pointer the symbol it points at and to a char pointer the
// string, also inside aggregates; a function shows its type first. The
// number is what is compared.
std::string gdbValue(const GdbAnswer& a) {
    std::string v = a.value;
    if (!v.empty() && v[0] == '{' && a.type.find('(') != std::string::npos) {
        size_t close = v.find("} ");
        if (close != std::string::npos) v = v.substr(close + 2);
    }
    static const std::regex annotation(R"((0x[0-9a-f]+) (<[^>]*>|"(\\.|[^"\\])*"))");
    return std::regex_replace(v, annotation, "$1");
}

class GdbOracle : public ::testing::TestWithParam<const char*> {};

TEST_P(GdbOracle, AgreesWithGdb) {
    std::string program = GetParam();
    std::string elf = testProgram(program);
    std::vector<std::string> expressions =
        readExpressionList(std::string(LIBCOMMON_DWARF_TEST_DATA) + "/watchprog.expressions");
    std::vector<GdbAnswer> gdb = askGdb(elf, expressions);
    ElfWatch watch(elf);
    int compared = 0;
    std::ostringstream mismatches;
    for (size_t i = 0; i < expressions.size(); ++i) {
        const std::string& e = expressions[i];
        WatchResult ours = watch.evaluate(e);
        const Departure* departure = departureFor(e, program);
        if (departure && !departure->sizeOnly) continue;
        ASSERT_TRUE(gdb[i].ok) << e << ": GDB refuses it: " << gdb[i].error;
        ++compared;
        if (!ours.ok)
            mismatches << "  " << e << ": library fails: " << ours.error
                       << " (GDB: " << gdb[i].value << ")\n";
        else if (ours.value != gdbValue(gdb[i]) || (!departure && ours.size != gdb[i].size))
            mismatches << "  " << e << ": library " << ours.value << " (" << ours.type << ", "
                       << ours.size << " bytes), GDB " << gdb[i].value << " (" << gdb[i].type
                       << ", " << gdb[i].size << " bytes)\n";
    }
    EXPECT_GE(compared, 60);
    EXPECT_EQ("", mismatches.str()) << program;
}

INSTANTIATE_TEST_SUITE_P(Programs, GdbOracle, ::testing::ValuesIn(debugPrograms), programTestName);

TEST(ElfWatchFailures, UnknownNamesFailAloneWithTheEnginesMessage) {
    ElfWatch watch(testProgram("watchprog-arm.elf"));
    WatchResult unknown = watch.evaluate("no_such_symbol");
    EXPECT_FALSE(unknown.ok);
    EXPECT_EQ("Could not resolve name", unknown.error);
    WatchResult inSum = watch.evaluate("c_int + no_such_symbol");
    EXPECT_FALSE(inSum.ok);
    EXPECT_NE("", inSum.error);
    // A failure leaves the next evaluation alone.
    WatchResult next = watch.evaluate("c_int");
    EXPECT_TRUE(next.ok);
    EXPECT_EQ("-123456", next.value);
    EXPECT_EQ("int", next.type);
    EXPECT_EQ(4, next.size);
}

TEST(ElfWatchFailures, LocalsHaveNoContentBeforeTheProgramRuns) {
    ElfWatch watch(testProgram("watchprog-arm.elf"));
    const DwarfFunction* combine = watch.getSymbols()->getProgram()->findFunction("combine");
    ASSERT_TRUE(combine);
    WatchResult sum = watch.evaluate("sum", combine->lowPc);
    EXPECT_FALSE(sum.ok);
    EXPECT_EQ("Could not read memory content for stack variable", sum.error);
    // Seen from outside the function the name is unknown.
    EXPECT_EQ("Could not resolve name", watch.evaluate("sum").error);
    // Outside the image: a pointer to nowhere reads nothing.
    EXPECT_EQ("Could not read memory content for global variable",
              watch.evaluate("*(p_int - 0x10000000)").error);
}

}  // namespace
