#include "exprfixture.h"

#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/symbolcontext.h"
#include "libcommon/memory/memorycontext.h"
#include "libcommon/stringconstants.h"

#include <boost/make_shared.hpp>
#include <cstring>
#include <stdexcept>

namespace {

int gTestSymbolCount = 0;

uint64_t floatBits(double d, int size) {
    if (size == 4) {
        float f = static_cast<float>(d);
        uint32_t bits;
        std::memcpy(&bits, &f, sizeof bits);
        return bits;
    }
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}

}  // namespace

// ---------------------------------------------------------------------------
// TestSymbol

TestSymbol::TestSymbol(const std::string& name)
    : ContextBase<ISymbolContext>("TSym_" + name + "_" + std::to_string(++gTestSymbolCount),
                                  boost::shared_ptr<IContextBase>()),
      name(name) {}

boost::shared_ptr<ILocation> TestSymbol::getLocation(boost::shared_ptr<IStackTraceContext> frame) {
    if (mode == ILocation::AM_NONE && pieces.empty()) return boost::shared_ptr<ILocation>();
    return boost::make_shared<MemoryLocation>(frame, mode, pieces);
}

boost::shared_ptr<ISymbolContext> TestSymbol::lookupChild(SymbolClass, const std::string& child) {
    for (const boost::shared_ptr<ISymbolContext>& c : children)
        if (c->getName() == child) return c;
    return boost::shared_ptr<ISymbolContext>();
}

json_spirit::Object TestSymbol::getProperties() {
    json_spirit::Object properties = ContextBase<ISymbolContext>::getProperties();
    if (memory != -1) properties.push_back(json_spirit::Pair(SYM_MEMORY, memory));
    return properties;
}

// ---------------------------------------------------------------------------
// TestSymbolInformation

boost::shared_ptr<ISymbolContext> TestSymbolInformation::findSymbolAt(const std::string& name,
                                                                      uint64_t address,
                                                                      bool wantType) {
    ++lookups;
    if (!wantType && address >= mainStart && address < mainEnd) {
        auto local = locals.find(name);
        if (local != locals.end()) return local->second;
    }
    const auto& table = wantType ? types : globals;
    auto found = table.find(name);
    return found == table.end() ? boost::shared_ptr<ISymbolContext>() : found->second;
}

boost::shared_ptr<ISymbolContext> TestSymbolInformation::findGlobalSymbol(const std::string& name,
                                                                          bool wantType) {
    ++lookups;
    const auto& table = wantType ? types : globals;
    auto found = table.find(name);
    return found == table.end() ? boost::shared_ptr<ISymbolContext>() : found->second;
}

// ---------------------------------------------------------------------------
// TestRegister and TestProcess

TestRegister::TestRegister(boost::shared_ptr<IProcessContext> process, const std::string& name,
                           int size, const std::string& role, unsigned int index,
                           std::vector<uint64_t>& file, size_t slot, bool bigEndian)
    : GeneralRegistersContext(process, name, "test register", size, bigEndian, 0,
                              boost::shared_ptr<IMemoryContext>(), role, index),
      file(file),
      slot(slot) {}

void TestRegister::readRegister(std::vector<uint8_t>& bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) {
        size_t shift = 8 * (isBigEndian() ? bytes.size() - 1 - i : i);
        bytes[i] = shift < 64 ? static_cast<uint8_t>(file[slot] >> shift) : 0;
    }
}

void TestRegister::writeRegister(const std::vector<uint8_t>& bytes) {
    ++writes;
    uint64_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        size_t shift = 8 * (isBigEndian() ? bytes.size() - 1 - i : i);
        if (shift < 64) value |= uint64_t(bytes[i]) << shift;
    }
    file[slot] = value;
}

boost::shared_ptr<IMemoryContext> TestProcess::getMemory(const std::string& name) {
    auto found = memories.find(name);
    return found == memories.end() ? boost::shared_ptr<IMemoryContext>() : found->second;
}

// ---------------------------------------------------------------------------
// ExprFixture

ExprFixture::ExprFixture(Profile profile, bool bigEndian)
    : profile(profile),
      compilerInfo(boost::make_shared<CompilerInfo>(profile == TARN8 ? CompilerInfo::tarn8()
                                                                     : CompilerInfo::tarn32())),
      intSize(profile == TARN8 ? 2 : 4),
      pointerSize(profile == TARN8 ? 2 : 4),
      process(boost::make_shared<TestProcess>()),
      types(boost::make_shared<SymtabList>()),
      symbols(boost::make_shared<SymtabList>()) {
    compilerInfo->bigEndian = bigEndian;
    inForce = boost::make_shared<ScopedCompilerInfo>(compilerInfo);
    buildTarget(bigEndian);
    buildRegisters();
    buildSymbols();
    writeInitialValues();
}

// Debug information is a graph with cycles (a struct whose member points
// back at it, an enum and its constants); the fixture cuts them so that
// the symbols go with it.
ExprFixture::~ExprFixture() {
    releaseSymtabList(*types);
    releaseSymtabList(*symbols);
    std::vector<boost::shared_ptr<ISymbolContext>> pending;
    for (const auto* table :
         {&symbolInformation->locals, &symbolInformation->globals, &symbolInformation->types})
        for (const auto& entry : *table) pending.push_back(entry.second);
    while (!pending.empty()) {
        auto symbol = boost::dynamic_pointer_cast<TestSymbol>(pending.back());
        pending.pop_back();
        if (!symbol) continue;
        for (auto link : {symbol->typeContext, symbol->baseTypeContext, symbol->indexTypeContext})
            if (link) pending.push_back(link);
        pending.insert(pending.end(), symbol->children.begin(), symbol->children.end());
        symbol->typeContext.reset();
        symbol->baseTypeContext.reset();
        symbol->indexTypeContext.reset();
        symbol->children.clear();
    }
}

void ExprFixture::buildTarget(bool bigEndian) {
    if (profile == TARN8) {
        chip = Tarn8Chip::fromDeviceFile("devices/TN8R64.xml");
        chip->fill("data", 0xA5);
        for (const char* name : {"prog", "data", "eeprom"})
            process->memories[name] = boost::make_shared<MemoryContext>(
                boost::shared_ptr<IMemoryContext>(), process, name, chip->getDevice(), chip, true);
        return;
    }
    dataRam = boost::make_shared<RecordingMemory>(0, 0x10000, 0xA5);
    progRam = boost::make_shared<RecordingMemory>(0, 0x10000, 0xFF);
    dataRam->setRecording(false);
    progRam->setRecording(false);
    process->memories["data"] = boost::make_shared<MemoryContext>(
        boost::shared_ptr<IMemoryContext>(), process, dataRam, bigEndian, 4, 0, "data", 0, 0x10000,
        std::vector<std::string>{ACCESS_TYPE_DATA}, false, false);
    process->memories["prog"] = boost::make_shared<MemoryContext>(
        boost::shared_ptr<IMemoryContext>(), process, progRam, bigEndian, 4, 0, "prog", 0, 0x10000,
        std::vector<std::string>{ACCESS_TYPE_INSTRUCTION}, false, false);
}

void ExprFixture::buildRegisters() {
    struct Spec {
        std::string name;
        int size;
        std::string role;
        unsigned int index;
    };
    std::vector<Spec> specs;
    if (profile == TARN8) {
        for (unsigned int r = 0; r < 32; ++r) specs.push_back({"R" + std::to_string(r), 1, "", r});
        specs.push_back({"SP", 2, ROLE_SP, 32});
        specs.push_back({"PC", 2, ROLE_PC, 33});
        specs.push_back({"SREG", 1, ROLE_SREG, 34});
        specs.push_back({"Y", 2, ROLE_ALIAS, 35});
        regVar = 16;
        pairLow = 24;
        pairHigh = 25;
        spIndex = 32;
    } else {
        for (unsigned int r = 0; r < 13; ++r) specs.push_back({"R" + std::to_string(r), 4, "", r});
        specs.push_back({"SP", 4, ROLE_SP, 13});
        specs.push_back({"LR", 4, ROLE_RET, 14});
        specs.push_back({"PC", 4, ROLE_PC, 15});
        specs.push_back({"xPSR", 4, ROLE_SREG, 16});
        specs.push_back({"FP", 4, ROLE_ALIAS, 17});
        regVar = 4;
        pairLow = 2;
        pairHigh = 3;
        spIndex = 13;
    }
    // A register that no frame holds a value of.
    specs.push_back({"DEBUG", 1, "", 0xFFFFFFFFu});

    process->registerFile.assign(specs.size(), 0);
    frameRegisters.assign(specs.size() - 1, 0);
    for (size_t slot = 0; slot < specs.size(); ++slot)
        process->registers.push_back(boost::make_shared<TestRegister>(
            process, specs[slot].name, specs[slot].size, specs[slot].role, specs[slot].index,
            process->registerFile, slot));

    frame = boost::make_shared<GeneralStackTraceContext>(
        "Frame_0", "main", boost::shared_ptr<IContextBase>(), process, 0x8F0, 0x200, 0xD4, 0, 0, 0,
        frameRegisters);
    frame->setFuncAndLineInfo("main", "main.c", 12);
    outerRegisters.assign(frameRegisters.size(), 0);
    outerFrame = boost::make_shared<GeneralStackTraceContext>(
        "Frame_1", "caller", boost::shared_ptr<IContextBase>(), process, 0x900, 0x300, 0x200, 0, 0,
        1, outerRegisters);
}

void ExprFixture::buildSymbols() {
    symbolInformation = boost::make_shared<TestSymbolInformation>();
    TestSymbolInformation& info = *symbolInformation;
    info.mainStart = 0xD0;
    info.mainEnd = 0x120;
    const int I = intSize;
    const int P = pointerSize;
    const int doubleSize = profile == TARN8 ? 4 : 8;

    auto type = [&](const std::string& name, ISymbolContext::TypeClass typeClass, int size) {
        auto t = boost::make_shared<TestSymbol>(name);
        t->symbolClass = ISymbolContext::SYMBOL_TYPE;
        t->typeClass = typeClass;
        t->size = size;
        info.types[name] = t;
        return t;
    };
    auto member = [&](const std::string& name, boost::shared_ptr<TestSymbol> t, int offset) {
        auto m = boost::make_shared<TestSymbol>(name);
        m->symbolClass = ISymbolContext::SYMBOL_OBJECT;
        m->storageClass = ISymbolContext::STORAGE_MEMBER;
        m->typeContext = t;
        m->size = t->size;
        m->offset = offset;
        return m;
    };
    auto object = [&](std::map<std::string, boost::shared_ptr<TestSymbol>>& table,
                      const std::string& name, boost::shared_ptr<TestSymbol> t,
                      ILocation::AddressingMode mode, std::vector<MemoryPiece> pieces) {
        auto o = boost::make_shared<TestSymbol>(name);
        o->symbolClass = ISymbolContext::SYMBOL_OBJECT;
        o->typeContext = t;
        o->size = t ? t->size : 0;
        o->mode = mode;
        o->pieces = std::move(pieces);
        table[name] = o;
        return o;
    };
    auto dataPiece = [](uint64_t address, int size) {
        MemoryPiece piece;
        piece.address = address;
        piece.memoryName = "data";
        piece.byteSize = size;
        return std::vector<MemoryPiece>{piece};
    };
    auto global = [&](const std::string& name, boost::shared_ptr<TestSymbol> t, uint64_t address) {
        return object(info.globals, name, t, ILocation::AM_GLOBAL, dataPiece(address, t->size));
    };

    auto tInt = type("int", ISymbolContext::TYPE_SIGNED, I);
    auto tChar = type("char", ISymbolContext::TYPE_SIGNED, 1);
    auto tUChar = type("unsigned char", ISymbolContext::TYPE_UNSIGNED, 1);
    auto tShort = type("short", ISymbolContext::TYPE_SIGNED, 2);
    auto tLong = type("long", ISymbolContext::TYPE_SIGNED, 4);
    auto tULong = type("unsigned long", ISymbolContext::TYPE_UNSIGNED, 4);
    auto tLongLong = type("long long", ISymbolContext::TYPE_SIGNED, 8);
    auto tFloat = type("float", ISymbolContext::TYPE_FLOAT, 4);
    auto tDouble = type("double", ISymbolContext::TYPE_FLOAT, doubleSize);

    // typedef unsigned char u8_t
    auto tU8 = type("u8_t", ISymbolContext::TYPE_UNSIGNED, 1);
    tU8->typeContext = tUChar;

    // struct Flags, laid out as the engine lays out a declared struct: an
    // int aligns to its size, a struct member to the whole struct.
    auto tAnon = boost::make_shared<TestSymbol>("");
    tAnon->symbolClass = ISymbolContext::SYMBOL_TYPE;
    tAnon->typeClass = ISymbolContext::TYPE_COMPOSITE;
    tAnon->size = 2 * I;
    tAnon->children = {member("x", tInt, 0), member("y", tInt, I)};
    auto tFlags = type("Flags", ISymbolContext::TYPE_COMPOSITE, 4 * I);
    auto a = member("a", tUChar, 0);
    a->bitField = true;
    a->bitSize = 3;
    a->bitOffset = 5;
    auto b = member("b", tUChar, 0);
    b->bitField = true;
    b->bitSize = 5;
    b->bitOffset = 0;
    tFlags->children = {a, b, member("c", tInt, I), member("", tAnon, 2 * I)};

    auto tBuf = type("char[8]", ISymbolContext::TYPE_ARRAY, 8);
    tBuf->baseTypeContext = tChar;
    tBuf->length = 8;
    tBuf->dimensions = {8};
    info.types.erase("char[8]");
    auto tNums = type("int[4]", ISymbolContext::TYPE_ARRAY, 4 * I);
    tNums->baseTypeContext = tInt;
    tNums->length = 4;
    tNums->dimensions = {4};
    info.types.erase("int[4]");

    auto tColour = type("Colour", ISymbolContext::TYPE_ENUM, I);
    int enumValue = 0;
    for (const char* name : {"RED", "GREEN", "BLUE"}) {
        auto constant = boost::make_shared<TestSymbol>(name);
        constant->symbolClass = ISymbolContext::SYMBOL_VALUE;
        constant->typeClass = ISymbolContext::TYPE_SIGNED;
        constant->typeContext = tColour;
        constant->size = I;
        constant->value = {static_cast<unsigned char>(enumValue), 0};
        tColour->children.push_back(constant);
        info.globals[name] = constant;
        enumValue = enumValue == 0 ? 5 : enumValue + 1;
    }

    auto tIntPtr = type("int*", ISymbolContext::TYPE_POINTER, P);
    tIntPtr->baseTypeContext = tInt;
    info.types.erase("int*");

    auto tNode = type("Node", ISymbolContext::TYPE_COMPOSITE, I + P);
    auto tNodePtr = boost::make_shared<TestSymbol>("Node*");
    tNodePtr->symbolClass = ISymbolContext::SYMBOL_TYPE;
    tNodePtr->typeClass = ISymbolContext::TYPE_POINTER;
    tNodePtr->size = P;
    tNodePtr->baseTypeContext = tNode;
    tNode->children = {member("value", tInt, 0), member("next", tNodePtr, I)};

    global("counter", tInt, 0x100);
    global("ch", tChar, 0x104);
    global("uc", tUChar, 0x105);
    global("sh", tShort, 0x106);
    global("lg", tLong, 0x108);
    global("ul", tULong, 0x10C);
    global("ll", tLongLong, 0x110);
    global("fl", tFloat, 0x118);
    global("db", tDouble, 0x120);
    global("flags", tFlags, 0x130);
    global("buf", tBuf, 0x140);
    global("nums", tNums, 0x160);
    global("colour", tColour, 0x148);
    global("small", tU8, 0x14C);
    global("ptr", tIntPtr, 0x150);
    global("node", tNode, 0x158);

    auto fn = boost::make_shared<TestSymbol>("main");
    fn->symbolClass = ISymbolContext::SYMBOL_FUNCTION;
    fn->typeClass = ISymbolContext::TYPE_FUNCTION;
    fn->size = P;
    fn->mode = ILocation::AM_GLOBAL;
    MemoryPiece code;
    code.address = 0xD0;
    code.memoryName = "prog";
    code.byteSize = P;
    fn->pieces = {code};
    info.globals["main"] = fn;

    // Locals of main.
    MemoryPiece stackPiece;
    stackPiece.offset = -4;
    stackPiece.memoryName = "data";
    stackPiece.byteSize = I;
    object(info.locals, "local", tInt, ILocation::AM_STACK, {stackPiece});

    MemoryPiece indirect;
    indirect.offset = 2;
    indirect.memoryName = "data";
    indirect.byteSize = I;
    if (profile == TARN8) {
        // The frame pointer pair: two pieces name R28 and R29.
        MemoryPiece high = indirect;
        indirect.registerId = 28;
        high.registerId = 29;
        object(info.locals, "ind", tInt, ILocation::AM_REGISTER_INDIRECT, {indirect, high});
    } else {
        indirect.registerId = 7;
        object(info.locals, "ind", tInt, ILocation::AM_REGISTER_INDIRECT, {indirect});
    }

    MemoryPiece reg;
    reg.registerId = regVar;
    reg.byteSize = 1;
    object(info.locals, "rv", tChar, ILocation::AM_REGISTER, {reg});

    const int regSize = profile == TARN8 ? 1 : 4;
    MemoryPiece low, high;
    low.registerId = pairLow;
    low.byteSize = regSize;
    high.registerId = pairHigh;
    high.byteSize = regSize;
    object(info.locals, "rp", profile == TARN8 ? tInt : tLongLong, ILocation::AM_REGISTER_LIST,
           {low, high});

    object(info.locals, "gone", tInt, ILocation::AM_OPTIMIZED_AWAY, {});
}

void ExprFixture::writeInitialValues() {
    const size_t I = static_cast<size_t>(intSize);
    pokeNumber(0x100, 5, I);
    pokeNumber(0x104, 'A', 1);
    pokeNumber(0x105, 200, 1);
    pokeNumber(0x106, static_cast<uint64_t>(-2), 2);
    pokeNumber(0x108, 100000, 4);
    pokeNumber(0x10C, 0xDEADBEEF, 4);
    pokeNumber(0x110, 0x0102030405060708ull, 8);
    pokeNumber(0x118, floatBits(1.5, 4), 4);
    const size_t doubleSize = profile == TARN8 ? 4 : 8;
    pokeNumber(0x120, floatBits(2.25, static_cast<int>(doubleSize)), doubleSize);
    // flags: a = 5 in the low 3 bits, b = 17 in the high 5 bits of byte 0.
    pokeNumber(0x130, (17u << 3) | 5u, 1);
    pokeNumber(0x130 + I, static_cast<uint64_t>(-300), I);
    pokeNumber(0x130 + 2 * I, 7, I);
    pokeNumber(0x130 + 3 * I, static_cast<uint64_t>(-8), I);
    poke("data", 0x140, {'h', 'e', 'l', 'l', 'o'});
    for (size_t i = 0; i < 4; ++i) pokeNumber(0x160 + i * I, 10 * (i + 1), I);
    pokeNumber(0x148, 5, I);
    pokeNumber(0x14C, 7, 1);
    pokeNumber(0x150, 0x100, static_cast<size_t>(pointerSize));
    pokeNumber(0x158, 42, I);
    pokeNumber(0x158 + I, 0x158, static_cast<size_t>(pointerSize));

    pokeNumber(0x8F0 - 4, static_cast<uint64_t>(-7), I);
    pokeNumber(0x8F0 + 2, 1234, I);

    std::vector<uint64_t>& file = process->registerFile;
    file[static_cast<size_t>(regVar)] = 'z';
    if (profile == TARN8) {
        file[24] = 0x34;
        file[25] = 0x12;
        file[28] = 0xF0;
        file[29] = 0x08;
        file[static_cast<size_t>(spIndex)] = 0x8E0;
    } else {
        file[2] = 0x89ABCDEF;
        file[3] = 0x01234567;
        file[7] = 0x8F0;
        file[static_cast<size_t>(spIndex)] = 0x8E0;
    }
    // At the stop the innermost frame holds the target's values; the caller's
    // frame differs in the register variable's register.
    for (size_t i = 0; i < frameRegisters.size(); ++i) frameRegisters[i] = file[i];
    outerRegisters = frameRegisters;
    outerRegisters[static_cast<size_t>(regVar)] = 'o';
}

std::vector<unsigned char> ExprFixture::peek(const std::string& memory, uint64_t address,
                                             size_t size) const {
    if (chip)
        return chip->peek(memory, static_cast<uint32_t>(address), static_cast<uint32_t>(size));
    const RecordingMemory& ram = memory == "prog" ? *progRam : *dataRam;
    return ram.bytesAt(address, size);
}

void ExprFixture::poke(const std::string& memory, uint64_t address,
                       const std::vector<unsigned char>& bytes) {
    if (chip)
        chip->poke(memory, static_cast<uint32_t>(address), bytes);
    else
        (memory == "prog" ? *progRam : *dataRam).setBytes(address, bytes);
}

uint64_t ExprFixture::peekNumber(uint64_t address, size_t size) const {
    std::vector<unsigned char> bytes = peek("data", address, size);
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        size_t shift = 8 * (compilerInfo->bigEndian ? size - 1 - i : i);
        value |= uint64_t(bytes[i]) << shift;
    }
    return value;
}

void ExprFixture::pokeNumber(uint64_t address, uint64_t value, size_t size) {
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        size_t shift = 8 * (compilerInfo->bigEndian ? size - 1 - i : i);
        bytes[i] = static_cast<unsigned char>(value >> shift);
    }
    poke("data", address, bytes);
}

uint64_t ExprFixture::targetRegister(int index) const {
    for (size_t slot = 0; slot < process->registers.size(); ++slot)
        if (process->registers[slot]->getIndex() == static_cast<unsigned int>(index))
            return process->registerFile[slot];
    throw std::out_of_range("no register of that index");
}

boost::shared_ptr<TestSymbol> ExprFixture::symbol(const std::string& name) const {
    for (const auto* table :
         {&symbolInformation->locals, &symbolInformation->globals, &symbolInformation->types}) {
        auto found = table->find(name);
        if (found != table->end()) return found->second;
    }
    throw std::out_of_range("no symbol " + name);
}

boost::shared_ptr<link_variant> ExprFixture::chainOf(const std::string& name) const {
    boost::shared_ptr<TestSymbol> s = symbol(name);
    boost::shared_ptr<ISymbolContext> typed =
        s->symbolClass == ISymbolContext::SYMBOL_TYPE ? s : s->typeContext;
    return createLinkVariantFromISymbolContext(typed, types, symbols);
}

boost::shared_ptr<ILocation> ExprFixture::locationOf(const std::string& name) const {
    return symbol(name)->getLocation(frame);
}

boost::shared_ptr<ILocation> ExprFixture::outerLocationOf(const std::string& name) const {
    return symbol(name)->getLocation(outerFrame);
}
