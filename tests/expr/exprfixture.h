#ifndef LIBCOMMON_TESTS_EXPR_EXPRFIXTURE_H
#define LIBCOMMON_TESTS_EXPR_EXPRFIXTURE_H

// The program that the expression engine's tests evaluate against, stopped
// in main, on two targets:
//   - TARN8: a simulated 8-bit chip (devices/TN8R64.xml) with memory contexts
//     built from the device description; 16-bit int and pointers, 32-bit
//     double, one-byte registers R0..R31, SP, PC, SREG;
//   - TARN32: a 32-bit profile over in-memory targets (data and prog are
//     RecordingMemory), optionally big-endian; 32-bit int and pointers,
//     64-bit double, four-byte registers R0..R12, SP, LR, PC.
// The program, as its debug information describes it (addresses in "data"
// unless said otherwise; I is the size of int, P of a pointer):
//
//     int counter = 5;                       0x100
//     char ch = 'A';                         0x104
//     unsigned char uc = 200;                0x105
//     short sh = -2;                         0x106
//     long lg = 100000;                      0x108
//     unsigned long ul = 0xDEADBEEF;         0x10C
//     long long ll = 0x0102030405060708;     0x110
//     float fl = 1.5;                        0x118
//     double db = 2.25;                      0x120
//     struct Flags {                         0x130, 2I + 2I bytes
//         unsigned char a : 3;   // 5         byte 0, low bits
//         unsigned char b : 5;   // 17        byte 0, high bits
//         int c;                 // -300      offset I
//         struct { int x; int y; };  // 7, -8 offset 2I, anonymous
//     } flags;
//     char buf[8] = "hello";                 0x140, bytes 5..7 are 0xA5
//     int nums[4] = {10, 20, 30, 40};        0x160
//     enum Colour { RED, GREEN = 5, BLUE } colour = GREEN;   0x148, I bytes
//     typedef unsigned char u8_t;  u8_t small = 7;            0x14C
//     int *ptr = &counter;                   0x150
//     struct Node { int value; struct Node *next; } node = {42, &node};  0x158
//     void main(void);                       prog 0xD0 (byte address)
//     in main's frame (frame address 0x8F0):
//         int local = -7;      stack, FP-4
//         int ind = 1234;      register indirect: [R28:R29]+2 on TARN8, [R7]+2 on TARN32
//         char rv = 'z';       register R16 / R4
//         int rp = 0x1234;     register pair R24 R25 (TARN8);
//         long long rp = 0x0123456789ABCDEF;  register pair R2 R3 (TARN32)
//         int gone;            optimized away
//
// Every other data byte is 0xA5, so a lost neighbour shows. Types are found
// by name too: "int", "char", "unsigned char", "short", "long", "unsigned
// long", "long long", "float", "double", "u8_t", "Flags", "Node", "Colour".
//
// The fixture gives what a plug-in would hand to the engine: the symbol
// information, the frame (level 0) and an outer frame (level 1), the
// CompilerInfo, and the two shared symtab lists.

#include "libcommon/context/contextbase.h"
#include "libcommon/context/registerscontext.h"
#include "libcommon/context/stacktracecontext.h"
#include "libcommon/expr/typechains.h"
#include "libcommon/ilocation.h"
#include "libcommon/imemoryaccessor.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/isymbolcontext.h"
#include "libcommon/isymbolinformation.h"
#include "sim/recordingmemory.h"
#include "sim/tarn8chip.h"

#include "libcommon/core/status.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class MemoryContext;

// Runs f and gives the text of what it throws: a C string as it stands, a
// CoreException or GenericError by its message. "<nothing thrown>" when f
// returns.
template <class F>
std::string thrownText(F f) {
    try {
        f();
    } catch (const char* text) {
        return text;
    } catch (const GenericError& e) {
        return e.getString();
    } catch (const CoreException& e) {
        return e.getStatus()->getMessage();
    }
    return "<nothing thrown>";
}

// A debug-information symbol with public, settable fields.
class TestSymbol : public ContextBase<ISymbolContext> {
public:
    explicit TestSymbol(const std::string& name);

    std::string name;
    SymbolClass symbolClass = SYMBOL_UNKNOWN;
    StorageClass storageClass = STORAGE_NONE;
    TypeClass typeClass = TYPE_NONE;
    boost::shared_ptr<ISymbolContext> typeContext;
    boost::shared_ptr<ISymbolContext> baseTypeContext;
    boost::shared_ptr<ISymbolContext> indexTypeContext;
    int size = 0;
    int length = 0;
    int offset = 0;
    uint64_t address = 0;
    std::vector<unsigned char> value;
    bool bitField = false;
    int bitSize = 0;
    int bitOffset = 0;
    std::vector<int> dimensions;
    std::vector<boost::shared_ptr<ISymbolContext>> children;
    // The "Memory" property of a pointer type; -1 leaves it out.
    int memory = -1;
    // Where an object lies: a MemoryLocation of this mode and pieces in the
    // frame asked for. No pieces and AM_NONE: no location.
    ILocation::AddressingMode mode = ILocation::AM_NONE;
    std::vector<MemoryPiece> pieces;

    std::string getName() override { return name; }
    SymbolClass getSymbolClass() override { return symbolClass; }
    StorageClass getStorageClass() override { return storageClass; }
    TypeClass getTypeClass() override { return typeClass; }
    boost::shared_ptr<ISymbolContext> getTypeContext() override { return typeContext; }
    boost::shared_ptr<ISymbolContext> getBaseTypeContext() override { return baseTypeContext; }
    boost::shared_ptr<ISymbolContext> getIndexTypeContext() override { return indexTypeContext; }
    int getSize() override { return size; }
    int getLength() override { return length; }
    int getOffset() override { return offset; }
    uint64_t getAddress() override { return address; }
    std::vector<unsigned char> getValue() override { return value; }
    bool isBitField() override { return bitField; }
    int getBitSize() override { return bitSize; }
    int getBitOffset() override { return bitOffset; }
    std::vector<int> getArrayDimensions() override { return dimensions; }
    boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext> frame) override;
    std::vector<boost::shared_ptr<ISymbolContext>> getChildren(SymbolClass) override {
        return children;
    }
    boost::shared_ptr<ISymbolContext> lookupChild(SymbolClass, const std::string& child) override;
    bool isEquivalent(boost::shared_ptr<ISymbolContext> other) const override {
        return other.get() == this;
    }
    json_spirit::Object getProperties() override;
};

// Symbols by name: locals of main are seen only from inside main; types
// and objects are kept apart as wantType asks. Counts the lookups.
class TestSymbolInformation : public ISymbolInformation {
public:
    boost::shared_ptr<ISymbolContext> findSymbolAt(const std::string& name, uint64_t address,
                                                   bool wantType) override;
    boost::shared_ptr<ISymbolContext> findGlobalSymbol(const std::string& name,
                                                       bool wantType) override;

    std::map<std::string, boost::shared_ptr<TestSymbol>> globals;
    std::map<std::string, boost::shared_ptr<TestSymbol>> locals;
    std::map<std::string, boost::shared_ptr<TestSymbol>> types;
    // Instruction addresses [mainStart, mainEnd) see the locals.
    uint64_t mainStart = 0;
    uint64_t mainEnd = 0;
    int lookups = 0;
};

// A register of the simulated target: its value lives in the process's
// register file, the target's side; frames hold their own copies.
class TestRegister : public GeneralRegistersContext {
public:
    TestRegister(boost::shared_ptr<IProcessContext> process, const std::string& name, int size,
                 const std::string& role, unsigned int index, std::vector<uint64_t>& file,
                 size_t slot, bool bigEndian = false);

    int writes = 0;

protected:
    void readRegister(std::vector<uint8_t>& bytes) override;
    void writeRegister(const std::vector<uint8_t>& bytes) override;

private:
    std::vector<uint64_t>& file;
    size_t slot;
};

class TestProcess : public ContextBase<IProcessContext> {
public:
    TestProcess() : ContextBase<IProcessContext>("Proc_test", boost::shared_ptr<IContextBase>()) {}

    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return modules; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return registers; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override;
    boost::shared_ptr<IDeviceContext> getDevice() override { return {}; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return stackTrace; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return expressions; }

    std::map<std::string, boost::shared_ptr<IMemoryContext>> memories;
    std::vector<boost::shared_ptr<IRegistersContext>> registers;
    std::vector<boost::shared_ptr<IProcessModule>> modules;
    boost::shared_ptr<IStackTraceService> stackTrace;
    boost::shared_ptr<IExpressionService> expressions;
    // The target's register values, one slot per register in `registers`.
    std::vector<uint64_t> registerFile;
};

struct ExprFixture {
    enum Profile { TARN8, TARN32 };

    // Fixtures put their CompilerInfo in force; when two live at once, the
    // younger must go first.
    explicit ExprFixture(Profile profile, bool bigEndian = false);
    ~ExprFixture();
    ExprFixture(const ExprFixture&) = delete;
    ExprFixture& operator=(const ExprFixture&) = delete;

    Profile profile;
    boost::shared_ptr<CompilerInfo> compilerInfo;
    int intSize;      // bytes of int
    int pointerSize;  // bytes of a pointer

    // TARN8: the chip; TARN32: the two in-memory targets.
    boost::shared_ptr<Tarn8Chip> chip;
    boost::shared_ptr<RecordingMemory> dataRam;
    boost::shared_ptr<RecordingMemory> progRam;

    boost::shared_ptr<TestProcess> process;
    // The frames' register value caches, by register index.
    std::vector<uint64_t> frameRegisters;
    std::vector<uint64_t> outerRegisters;
    boost::shared_ptr<GeneralStackTraceContext> frame;       // main, level 0
    boost::shared_ptr<GeneralStackTraceContext> outerFrame;  // its caller, level 1
    boost::shared_ptr<TestSymbolInformation> symbolInformation;
    boost::shared_ptr<SymtabList> types;
    boost::shared_ptr<SymtabList> symbols;
    // Puts compilerInfo in force for the fixture's life.
    boost::shared_ptr<ScopedCompilerInfo> inForce;

    // Register indices of the profile.
    int regVar;             // rv's register
    int pairLow, pairHigh;  // rp's registers, low bytes first
    int spIndex;

    // ---- the target, past the library ----
    std::vector<unsigned char> peek(const std::string& memory, uint64_t address, size_t size) const;
    void poke(const std::string& memory, uint64_t address, const std::vector<unsigned char>& bytes);
    // A number of size bytes in the target's byte order.
    uint64_t peekNumber(uint64_t address, size_t size) const;
    void pokeNumber(uint64_t address, uint64_t value, size_t size);
    // The target's (not the frame's) register value, by register index.
    uint64_t targetRegister(int index) const;

    // ---- symbols ----
    // A global, local or type of the program; throws for an unknown name.
    boost::shared_ptr<TestSymbol> symbol(const std::string& name) const;
    // The chain of a symbol's type, through createLinkVariantFromISymbolContext.
    boost::shared_ptr<link_variant> chainOf(const std::string& name) const;
    // The symbol's location in the level-0 frame.
    boost::shared_ptr<ILocation> locationOf(const std::string& name) const;
    // The symbol's location in the outer frame.
    boost::shared_ptr<ILocation> outerLocationOf(const std::string& name) const;

private:
    void buildTarget(bool bigEndian);
    void buildRegisters();
    void buildSymbols();
    void writeInitialValues();
};

#endif
