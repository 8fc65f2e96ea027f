// The program's debug information as the expression engine asks for it:
// symbol contexts for variables, functions, constants and types, their
// locations in a frame of the not-yet-run program, and the compiler's sizes.

#include "libcommon/dwarf/dwarfsymbolinformation.h"
#include "libcommon/dwarf/elfprocess.h"
#include "libcommon/expr/symbolcontext.h"
#include "libcommon/expr/typechains.h"
#include "libcommon/ilocation.h"
#include "libcommon/isymbolcontext.h"
#include "testprograms.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

namespace {

typedef boost::shared_ptr<ISymbolContext> Context;

class Symbols : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        symbols = DwarfSymbolInformation::open(testProgram(GetParam()));
        process = ElfProcessContext::create(symbols);
        frame = process->createFrame(0);
        combine = symbols->getProgram()->findFunction("combine");
        ASSERT_TRUE(combine);
    }
    Context object(const std::string& name) {
        Context c = symbols->findGlobalSymbol(name, false);
        if (!c) throw std::runtime_error("no symbol " + name);
        return c;
    }
    Context type(const std::string& name) {
        Context c = symbols->findGlobalSymbol(name, true);
        if (!c) throw std::runtime_error("no type " + name);
        return c;
    }
    static Context child(const Context& composite, const std::string& name) {
        Context c = composite->lookupChild(ISymbolContext::SYMBOL_UNKNOWN, name);
        if (!c) throw std::runtime_error("no child " + name);
        return c;
    }
    bool host() { return symbols->getProgram()->getImage()->is64Bit(); }
    const DwarfProgram* program() { return symbols->getProgram().get(); }

    boost::shared_ptr<DwarfSymbolInformation> symbols;
    boost::shared_ptr<ElfProcessContext> process;
    boost::shared_ptr<IStackTraceContext> frame;
    const DwarfFunction* combine = nullptr;
};

TEST_P(Symbols, CompilerInfoFollowsTheProgram) {
    auto info = symbols->getCompilerInfo();
    EXPECT_EQ(8, info->charBits);
    EXPECT_EQ(16, info->shortBits);
    EXPECT_EQ(32, info->intBits);
    EXPECT_EQ(host() ? 64 : 32, info->longBits);
    EXPECT_EQ(64, info->int64Bits);
    EXPECT_EQ(64, info->doubleBits);
    EXPECT_EQ(host() ? 64 : 32, info->functionBits);
    EXPECT_EQ(host() ? IT_ULONG : IT_UINT, info->pointerSubtype);
    EXPECT_EQ(host(), info->charIsSigned);
    EXPECT_FALSE(info->bigEndian);
}

TEST_P(Symbols, GlobalsReadFromTheImageThroughTheirLocation) {
    Context c = object("c_int");
    EXPECT_EQ(ISymbolContext::SYMBOL_OBJECT, c->getSymbolClass());
    EXPECT_EQ(ISymbolContext::TYPE_SIGNED, c->getTypeClass());
    EXPECT_EQ(4, c->getSize());
    EXPECT_EQ("int", c->getTypeContext()->getName());
    auto location = c->getLocation(frame);
    ASSERT_TRUE(location);
    EXPECT_EQ(c->getAddress(), location->getAbsoluteAddress());
    EXPECT_EQ(4, location->getByteSize());
    std::vector<unsigned char> bytes;
    location->readContent(bytes);
    EXPECT_EQ((std::vector<unsigned char>{0xC0, 0x1D, 0xFE, 0xFF}), bytes);
    // .bss reads as zeros; a write to the image is refused.
    object("zeroed")->getLocation(frame)->readContent(bytes);
    EXPECT_EQ(std::vector<unsigned char>(16, 0), bytes);
    EXPECT_ANY_THROW(location->writeContent({1, 2, 3, 4}));
}

TEST_P(Symbols, LocalsAreSeenFromInsideTheirFunctionOnly) {
    // At the program's start no function holds the address: the global.
    EXPECT_EQ(ISymbolContext::TYPE_COMPOSITE, object("origin")->getTypeClass());
    uint64_t pc = combine->lowPc;
    Context local = symbols->findSymbolAt("origin", pc, false);
    ASSERT_TRUE(local);
    EXPECT_EQ(2, local->getSize());
    EXPECT_EQ(ISymbolContext::TYPE_SIGNED, local->getTypeClass());
    auto frameInCombine = process->createFrame(pc);
    auto location = local->getLocation(frameInCombine);
    // Below the canonical frame address, where the frame keeps its locals
    // (gcc), or below the frame pointer register (clang).
    if (location->getAddressingMode() == ILocation::AM_STACK) {
        EXPECT_NE(std::string::npos, location->getLocationAsString().find("(FP-"));
    } else {
        EXPECT_EQ(ILocation::AM_REGISTER_INDIRECT, location->getAddressingMode());
    }
    EXPECT_LT(location->getOffset(), 0);
    // Parameters and the statics of the function's own file are in scope;
    // the inner block's local only inside the block.
    EXPECT_TRUE(symbols->findSymbolAt("a", pc, false));
    EXPECT_TRUE(symbols->findSymbolAt("file_static", pc, false));
    EXPECT_FALSE(symbols->findSymbolAt("a", 0, false));
    EXPECT_FALSE(symbols->findSymbolAt("inner", pc, false));
    // A static local lives at a fixed address.
    Context calls = symbols->findSymbolAt("calls", pc, false);
    ASSERT_TRUE(calls);
    EXPECT_EQ(ILocation::AM_GLOBAL, calls->getLocation(frameInCombine)->getAddressingMode());
}

TEST_P(Symbols, FunctionsAndConstants) {
    Context f = object("combine");
    EXPECT_EQ(ISymbolContext::SYMBOL_FUNCTION, f->getSymbolClass());
    EXPECT_EQ(combine->lowPc, f->getAddress());
    EXPECT_FALSE(f->getTypeContext());
    EXPECT_EQ(combine->lowPc, f->getLocation(frame)->getAbsoluteAddress());

    Context blue = object("BLUE");
    EXPECT_EQ(ISymbolContext::SYMBOL_VALUE, blue->getSymbolClass());
    EXPECT_EQ(ISymbolContext::TYPE_SIGNED, blue->getTypeClass());
    EXPECT_EQ((std::vector<unsigned char>{6, 0, 0, 0}), blue->getValue());
    EXPECT_EQ((std::vector<unsigned char>{0xFD, 0xFF, 0xFF, 0xFF}), object("NEGATIVE")->getValue());
    EXPECT_EQ((std::vector<unsigned char>{4, 0, 0, 0}), object("MODE_SLEEP")->getValue());
}

TEST_P(Symbols, TypesAreFoundByTypedefTagAndBaseName) {
    Context point = type("point");
    EXPECT_EQ(ISymbolContext::SYMBOL_TYPE, point->getSymbolClass());
    EXPECT_EQ(ISymbolContext::TYPE_COMPOSITE, point->getTypeClass());
    EXPECT_EQ("struct point", point->getName());
    EXPECT_EQ(4, point->getSize());
    Context y = child(point, "y");
    EXPECT_EQ(ISymbolContext::STORAGE_MEMBER, y->getStorageClass());
    EXPECT_EQ(2, y->getOffset());
    EXPECT_EQ(program()->findBaseType(y->getTypeContext()->getName()),
              program()->findType("point")->members[1].type);

    Context reg = type("reg32");
    EXPECT_EQ("reg32", reg->getName());
    EXPECT_EQ("u32", reg->getTypeContext()->getName());
    EXPECT_EQ(ISymbolContext::TYPE_UNSIGNED, reg->getTypeClass());
    EXPECT_EQ("union word", type("word")->getName());
    EXPECT_EQ(ISymbolContext::TYPE_FLOAT, type("double")->getTypeClass());
    EXPECT_FALSE(symbols->findGlobalSymbol("pointx", true));
    EXPECT_FALSE(symbols->findGlobalSymbol("c_int", true));
    EXPECT_FALSE(symbols->findGlobalSymbol("point", false));
}

TEST_P(Symbols, AggregatesDescribeTheirParts) {
    Context matrix = object("matrix")->getTypeContext();
    EXPECT_EQ(ISymbolContext::TYPE_ARRAY, matrix->getTypeClass());
    EXPECT_EQ((std::vector<int>{2, 3}), matrix->getArrayDimensions());
    EXPECT_EQ(2, matrix->getLength());
    EXPECT_EQ(24, matrix->getSize());
    EXPECT_EQ("int", matrix->getBaseTypeContext()->getName());

    // The anonymous union of a packet: a member without a name whose type
    // says which kind of aggregate it is.
    Context packet = object("pkt")->getTypeContext();
    auto members = packet->getChildren(ISymbolContext::SYMBOL_UNKNOWN);
    ASSERT_EQ(5u, members.size());
    EXPECT_EQ("", members[1]->getName());
    EXPECT_EQ("union ", members[1]->getTypeContext()->getName());
    EXPECT_EQ(2, members[1]->getOffset());

    Context flags = object("status")->getTypeContext();
    Context delta = child(flags, "delta");
    EXPECT_TRUE(delta->isBitField());
    EXPECT_EQ(5, delta->getBitSize());
    // ready (1 bit) and mode (3 bits) lie below delta in its byte.
    EXPECT_EQ(0, delta->getOffset());
    EXPECT_EQ(2, delta->getSize());
    EXPECT_EQ(16 - 4 - 5, delta->getBitOffset());
    EXPECT_FALSE(child(flags, "tail")->isBitField());

    // A struct that points to itself comes back to an equivalent context.
    Context node = type("node");
    Context next = child(node, "next")->getTypeContext();
    EXPECT_EQ(ISymbolContext::TYPE_POINTER, next->getTypeClass());
    EXPECT_TRUE(next->getBaseTypeContext()->isEquivalent(node));
    EXPECT_FALSE(next->getBaseTypeContext()->isEquivalent(type("point")));
    // void * has no base type context: the engine makes void of it.
    EXPECT_FALSE(object("opaque")->getTypeContext()->getBaseTypeContext());
    EXPECT_TRUE(
        object("opaque")->getTypeContext()->isEquivalent(object("opaque")->getTypeContext()));
}

// The engine's type chains built from these contexts give every variable
// the size the compiler gave it, and every member the compiler's offset.
TEST_P(Symbols, EngineChainsKeepTheCompilersLayout) {
    auto info = symbols->getCompilerInfo();
    ScopedCompilerInfo inForce(info);
    // (An enum of four bytes is a long to the engine, which is eight bytes
    // on the 64-bit host; e_colour is checked where long has four.)
    for (const char* name :
         {"c_char", "c_ullong", "c_double", "c_bool", "t_reg", host() ? "c_int" : "e_colour",
          "origin", "points",   "diagonal", "status", "w",     "pkt",
          "matrix", "text",     "greeting", "pp_int", "nodes", "list",
          "zeroed", "handler",  "opaque"}) {
        Context variable = object(name);
        auto types = boost::make_shared<SymtabList>();
        auto chain = createLinkVariantFromISymbolContext(variable->getTypeContext(), types,
                                                         boost::make_shared<SymtabList>());
        EXPECT_EQ(8u * variable->getSize(), get_bit_sizeof(chain, *info)) << name;
        releaseSymtabList(*types);
    }
    auto chain = createLinkVariantFromISymbolContext(object("pkt")->getTypeContext(),
                                                     boost::make_shared<SymtabList>(),
                                                     boost::make_shared<SymtabList>());
    ASSERT_TRUE(isStruct(chain));
    std::vector<std::pair<std::string, int>> fields;
    for (auto f = chain->getStructdef()->fields; f; f = f->next)
        fields.emplace_back(f->name, f->locofs);
    EXPECT_EQ((std::vector<std::pair<std::string, int>>{{"kind", 0},
                                                        {"union_anon1", 2},
                                                        {"pair", 4},
                                                        {"values", 8},
                                                        {"where", host() ? 24 : 20}}),
              fields);
    auto flags = createLinkVariantFromISymbolContext(object("status")->getTypeContext(),
                                                     boost::make_shared<SymtabList>(),
                                                     boost::make_shared<SymtabList>());
    auto delta = flags->getStructdef()->fields->next->next;
    ASSERT_EQ("delta", delta->name);
    ASSERT_TRUE(isFieldSpecWidth(delta->type));
    EXPECT_EQ(5u, delta->type->decl->getBitSize());
    EXPECT_EQ(7u, delta->type->decl->getBitOffset());
    EXPECT_EQ("enum colour",
              getTypeText(createLinkVariantFromISymbolContext(object("e_colour")->getTypeContext(),
                                                              boost::make_shared<SymtabList>(),
                                                              boost::make_shared<SymtabList>()),
                          false, *info));
}

INSTANTIATE_TEST_SUITE_P(Programs, Symbols, ::testing::ValuesIn(debugPrograms), programTestName);

}  // namespace
