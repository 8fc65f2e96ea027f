#include "libcommon/dwarf/dwarfsymbolinformation.h"

#include "libcommon/context/contextbase.h"
#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/typechains.h"
#include "libcommon/isymbolcontext.h"

#include <dwarf.h>
#include <elf.h>

#include <boost/make_shared.hpp>

#include <atomic>
#include <climits>

namespace {

typedef boost::shared_ptr<ISymbolContext> Context;

// The name of every location's memory: a Cortex-M (or host) program has one
// address space for code and data.
const char* const MEMORY = "data";

int clampToInt(uint64_t n) {
    return n > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

const DwarfType* withoutTypedefs(const DwarfType* t) {
    // Cycles were cut when the program was read, so this ends.
    while (t && t->kind == DwarfType::TYPEDEF) t = t->target;
    return t;
}

bool isVoid(const DwarfType* t) {
    t = withoutTypedefs(t);
    return !t || t->kind == DwarfType::VOID;
}

std::string nextId() {
    static std::atomic<unsigned long> counter(0);
    return "DwarfSym" + std::to_string(++counter);
}

// What every context of this reader has in common: the program it keeps
// alive, the identity that makes two contexts equivalent, and the empty
// answers of the interface.
class DwarfContext : public ContextBase<ISymbolContext> {
public:
    DwarfContext(boost::shared_ptr<const DwarfProgram> program, const void* identity,
                 SymbolClass symbolClass, std::string name)
        : ContextBase<ISymbolContext>(nextId(), boost::shared_ptr<IContextBase>()),
          program(std::move(program)),
          identity(identity),
          symbolClass(symbolClass),
          name(std::move(name)) {}

    std::string getName() override { return name; }
    SymbolClass getSymbolClass() override { return symbolClass; }
    StorageClass getStorageClass() override { return STORAGE_NONE; }
    TypeClass getTypeClass() override { return TYPE_NONE; }
    Context getTypeContext() override { return Context(); }
    Context getBaseTypeContext() override { return Context(); }
    Context getIndexTypeContext() override { return Context(); }
    int getSize() override { return 0; }
    int getLength() override { return 0; }
    int getOffset() override { return 0; }
    uint64_t getAddress() override { return 0; }
    std::vector<unsigned char> getValue() override { return {}; }
    bool isBitField() override { return false; }
    int getBitSize() override { return 0; }
    int getBitOffset() override { return 0; }
    std::vector<int> getArrayDimensions() override { return {}; }
    boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext>) override {
        return boost::shared_ptr<ILocation>();
    }
    std::vector<Context> getChildren(SymbolClass) override { return {}; }
    Context lookupChild(SymbolClass symbolClass, const std::string& childName) override {
        for (const Context& child : getChildren(symbolClass))
            if (child->getName() == childName) return child;
        return Context();
    }
    bool isEquivalent(boost::shared_ptr<ISymbolContext> other) const override {
        const DwarfContext* o = dynamic_cast<const DwarfContext*>(other.get());
        return o && o->identity == identity && o->symbolClass == symbolClass;
    }

protected:
    boost::shared_ptr<const DwarfProgram> program;
    const void* identity;
    SymbolClass symbolClass;
    std::string name;
};

Context typeContext(const boost::shared_ptr<const DwarfProgram>& program, const DwarfType* t);

ISymbolContext::TypeClass typeClassOf(const DwarfType* t) {
    t = withoutTypedefs(t);
    if (!t) return ISymbolContext::TYPE_NONE;
    switch (t->kind) {
        case DwarfType::BASE:
            if (t->encoding == DW_ATE_float) return ISymbolContext::TYPE_FLOAT;
            if (t->encoding == DW_ATE_signed || t->encoding == DW_ATE_signed_char)
                return ISymbolContext::TYPE_SIGNED;
            return ISymbolContext::TYPE_UNSIGNED;
        case DwarfType::POINTER:
            return ISymbolContext::TYPE_POINTER;
        case DwarfType::REFERENCE:
            return ISymbolContext::TYPE_REFERENCE;
        case DwarfType::ARRAY:
            return ISymbolContext::TYPE_ARRAY;
        case DwarfType::STRUCT:
        case DwarfType::UNION:
            return ISymbolContext::TYPE_COMPOSITE;
        case DwarfType::ENUM:
            return ISymbolContext::TYPE_ENUM;
        case DwarfType::FUNCTION:
            return ISymbolContext::TYPE_FUNCTION;
        default:
            return ISymbolContext::TYPE_NONE;
    }
}

// A member of a struct or union.
class MemberContext : public DwarfContext {
public:
    MemberContext(boost::shared_ptr<const DwarfProgram> program, const DwarfMember& member)
        : DwarfContext(std::move(program), &member, SYMBOL_OBJECT, member.name), member(member) {}

    StorageClass getStorageClass() override { return STORAGE_MEMBER; }
    TypeClass getTypeClass() override { return typeClassOf(member.type); }
    Context getTypeContext() override { return typeContext(program, member.type); }
    int getSize() override { return static_cast<int>(member.byteSize); }
    int getOffset() override { return clampToInt(member.byteOffset); }
    bool isBitField() override { return member.bitField; }
    int getBitSize() override { return member.bitSize; }
    int getBitOffset() override { return member.bitOffset; }

private:
    const DwarfMember& member;
};

// An enumeration constant. It is always given as a signed 32-bit number:
// the engine makes a plain int constant of it whatever its enum, and would
// lose the sign of a short enum's negative constant given in fewer bytes.
class EnumeratorContext : public DwarfContext {
public:
    EnumeratorContext(boost::shared_ptr<const DwarfProgram> program, const DwarfType& type,
                      size_t index)
        : DwarfContext(std::move(program), &type.enumerators[index], SYMBOL_VALUE,
                       type.enumerators[index].name),
          enumerator(type.enumerators[index]) {}

    TypeClass getTypeClass() override { return TYPE_SIGNED; }
    int getSize() override { return 4; }
    std::vector<unsigned char> getValue() override {
        std::vector<unsigned char> bytes(4);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>(enumerator.value >> (8 * i));
        return bytes;
    }

private:
    const DwarfEnumerator& enumerator;
};

class TypeContext : public DwarfContext {
public:
    TypeContext(boost::shared_ptr<const DwarfProgram> program, const DwarfType& type)
        : DwarfContext(std::move(program), &type, isVoid(&type) ? SYMBOL_UNKNOWN : SYMBOL_TYPE,
                       nameOf(type)),
          type(type) {}

    TypeClass getTypeClass() override { return typeClassOf(&type); }
    Context getTypeContext() override {
        return type.kind == DwarfType::TYPEDEF ? typeContext(program, type.target) : Context();
    }
    Context getBaseTypeContext() override {
        switch (type.kind) {
            case DwarfType::POINTER:
            case DwarfType::REFERENCE:
            case DwarfType::ARRAY:
                return typeContext(program, type.target);
            default:
                return Context();
        }
    }
    int getSize() override { return clampToInt(type.byteSize); }
    int getLength() override {
        return type.kind == DwarfType::ARRAY ? clampToInt(type.dimensions.at(0)) : 0;
    }
    std::vector<int> getArrayDimensions() override {
        std::vector<int> dimensions;
        for (uint64_t d : type.dimensions) dimensions.push_back(clampToInt(d));
        return dimensions;
    }
    std::vector<Context> getChildren(SymbolClass) override {
        std::vector<Context> children;
        for (const DwarfMember& m : type.members)
            children.push_back(boost::make_shared<MemberContext>(program, m));
        for (size_t i = 0; i < type.enumerators.size(); ++i)
            children.push_back(boost::make_shared<EnumeratorContext>(program, type, i));
        return children;
    }

private:
    // Aggregates are named the way C spells them, keyword and all, so that
    // the engine prints "union word" and tells an anonymous member ("union ")
    // from a named one.
    static std::string nameOf(const DwarfType& t) {
        switch (t.kind) {
            case DwarfType::STRUCT:
                return "struct " + t.name;
            case DwarfType::UNION:
                return "union " + t.name;
            case DwarfType::ENUM:
                return t.name.empty() ? std::string() : "enum " + t.name;
            case DwarfType::BASE:
            case DwarfType::TYPEDEF:
                return t.name;
            default:
                return std::string();
        }
    }

    const DwarfType& type;
};

Context typeContext(const boost::shared_ptr<const DwarfProgram>& program, const DwarfType* t) {
    if (!t || t->kind == DwarfType::VOID) return Context();
    return boost::make_shared<TypeContext>(program, *t);
}

// A piece of the location of a size-byte object in the data memory.
MemoryPiece dataPiece(uint64_t size) {
    MemoryPiece piece;
    piece.memoryName = MEMORY;
    piece.byteSize = clampToInt(size);
    return piece;
}

class VariableContext : public DwarfContext {
public:
    VariableContext(boost::shared_ptr<const DwarfProgram> program, const DwarfVariable& variable)
        : DwarfContext(std::move(program), &variable, SYMBOL_OBJECT, variable.name),
          variable(variable) {}

    TypeClass getTypeClass() override { return typeClassOf(variable.type); }
    Context getTypeContext() override { return typeContext(program, variable.type); }
    int getSize() override { return clampToInt(variable.type ? variable.type->byteSize : 0); }
    uint64_t getAddress() override {
        return variable.location.kind == DwarfLocation::ADDRESS ? variable.location.address : 0;
    }
    boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext> frame) override {
        const DwarfLocation& where = variable.location;
        MemoryPiece piece = dataPiece(variable.type ? variable.type->byteSize : 0);
        ILocation::AddressingMode mode = ILocation::AM_UNKNOWN;
        switch (where.kind) {
            case DwarfLocation::NONE:
                return boost::make_shared<MemoryLocation>(frame, ILocation::AM_OPTIMIZED_AWAY,
                                                          std::vector<MemoryPiece>());
            case DwarfLocation::ADDRESS:
                mode = ILocation::AM_GLOBAL;
                piece.address = where.address;
                break;
            case DwarfLocation::FRAME_OFFSET:
                mode = ILocation::AM_STACK;
                piece.offset = static_cast<int32_t>(where.offset);
                break;
            case DwarfLocation::REGISTER:
                mode = ILocation::AM_REGISTER;
                piece.registerId = where.reg;
                piece.memoryName.clear();
                break;
            case DwarfLocation::REGISTER_OFFSET:
                mode = ILocation::AM_REGISTER_INDIRECT;
                piece.registerId = where.reg;
                piece.offset = static_cast<int32_t>(where.offset);
                break;
            case DwarfLocation::UNSUPPORTED:
                break;
        }
        return boost::make_shared<MemoryLocation>(frame, mode, std::vector<MemoryPiece>{piece});
    }

private:
    const DwarfVariable& variable;
};

class FunctionContext : public DwarfContext {
public:
    FunctionContext(boost::shared_ptr<const DwarfProgram> program, const DwarfFunction& function)
        : DwarfContext(std::move(program), &function, SYMBOL_FUNCTION, function.name),
          function(function) {}

    TypeClass getTypeClass() override { return TYPE_FUNCTION; }
    uint64_t getAddress() override { return function.lowPc; }
    int getSize() override { return clampToInt(function.highPc - function.lowPc); }
    boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext> frame) override {
        MemoryPiece piece = dataPiece(program->getAddressSize());
        piece.address = function.lowPc;
        return boost::make_shared<MemoryLocation>(frame, ILocation::AM_GLOBAL,
                                                  std::vector<MemoryPiece>{piece});
    }

private:
    const DwarfFunction& function;
};

}  // namespace

boost::shared_ptr<DwarfSymbolInformation> DwarfSymbolInformation::open(const std::string& path) {
    return boost::make_shared<DwarfSymbolInformation>(DwarfProgram::read(ElfImage::open(path)));
}

DwarfSymbolInformation::DwarfSymbolInformation(boost::shared_ptr<const DwarfProgram> program)
    : program(std::move(program)) {}

boost::shared_ptr<ISymbolContext> DwarfSymbolInformation::findSymbolAt(const std::string& name,
                                                                       uint64_t address,
                                                                       bool wantType) {
    if (wantType) return findType(name);
    return findObject(name, program->findFunctionAt(address), address);
}

boost::shared_ptr<ISymbolContext> DwarfSymbolInformation::findGlobalSymbol(const std::string& name,
                                                                           bool wantType) {
    if (wantType) return findType(name);
    return findObject(name, nullptr, 0);
}

boost::shared_ptr<ISymbolContext> DwarfSymbolInformation::findType(const std::string& name) {
    return typeContext(program, program->findType(name));
}

boost::shared_ptr<ISymbolContext> DwarfSymbolInformation::findObject(const std::string& name,
                                                                     const DwarfFunction* function,
                                                                     uint64_t pc) {
    const DwarfVariable* variable = nullptr;
    if (function) {
        variable = DwarfProgram::findLocal(*function, pc, name);
        if (!variable) variable = program->findStaticVariable(function->unit, name);
    }
    if (!variable) variable = program->findGlobalVariable(name);
    if (variable) return boost::make_shared<VariableContext>(program, *variable);
    if (const DwarfFunction* f = program->findFunction(name))
        return boost::make_shared<FunctionContext>(program, *f);
    std::pair<const DwarfType*, size_t> e = program->findEnumerator(name);
    if (e.first) return boost::make_shared<EnumeratorContext>(program, *e.first, e.second);
    return Context();
}

boost::shared_ptr<CompilerInfo> DwarfSymbolInformation::getCompilerInfo() const {
    auto info = boost::make_shared<CompilerInfo>();
    const ElfImage& image = *program->getImage();
    int pointerBits = static_cast<int>(program->getAddressSize() * 8);
    // What the ELF class implies where the program has no such base type.
    info->charBits = 8;
    info->shortBits = 16;
    info->intBits = 32;
    info->longBits = pointerBits;
    info->int64Bits = 64;
    info->longLongBits = 64;
    info->floatBits = 32;
    info->doubleBits = 64;
    info->longDoubleBits = 64;
    info->functionBits = pointerBits;
    info->bigEndian = image.isBigEndian();
    info->bitfieldsUnsigned = false;
    // Each compiler spells some base types its own way.
    auto bits = [this](std::initializer_list<const char*> names, int32_t& field) {
        for (const char* n : names)
            if (const DwarfType* t = program->findBaseType(n)) {
                if (t->byteSize) field = static_cast<int32_t>(t->byteSize * 8);
                return t;
            }
        return static_cast<const DwarfType*>(nullptr);
    };
    const DwarfType* plainChar = bits({"char"}, info->charBits);
    bits({"short int", "short"}, info->shortBits);
    bits({"int"}, info->intBits);
    bits({"long int", "long"}, info->longBits);
    bits({"long long int", "long long"}, info->int64Bits);
    info->longLongBits = info->int64Bits;
    bits({"float"}, info->floatBits);
    bits({"double"}, info->doubleBits);
    bits({"long double"}, info->longDoubleBits);
    // Without a plain char in the program, the target's ABI decides: ARM
    // and PowerPC make it unsigned, the others signed.
    if (plainChar)
        info->charIsSigned =
            plainChar->encoding == DW_ATE_signed_char || plainChar->encoding == DW_ATE_signed;
    else
        info->charIsSigned = image.getMachine() != EM_ARM && image.getMachine() != EM_PPC &&
                             image.getMachine() != EM_PPC64;
    // Pointers compute as the unsigned integer of their size.
    if (pointerBits == info->intBits)
        info->pointerSubtype = IT_UINT;
    else if (pointerBits == info->longBits)
        info->pointerSubtype = IT_ULONG;
    else if (pointerBits == info->shortBits)
        info->pointerSubtype = IT_USHORT;
    else
        info->pointerSubtype = IT_U64;
    return info;
}
