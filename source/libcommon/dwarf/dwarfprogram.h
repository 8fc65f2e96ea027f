#ifndef LIBCOMMON_DWARF_DWARFPROGRAM_H
#define LIBCOMMON_DWARF_DWARFPROGRAM_H

// The debug information of one ELF program, read once with libdw into a
// model of its own: types, global and static variables, and functions with
// their parameters and locals. Nothing here refers back to libdw after
// reading, so lookups are plain map searches and the model can outlive any
// parse state.
//
// What the model keeps, and how it simplifies DWARF:
//   - const and volatile are transparent: a qualified type is its
//     unqualified type, since qualifiers change neither the size, the
//     layout nor the value of an object;
//   - a multi-dimensional array is one array type with one count per
//     dimension, outermost first, whether DWARF spells it with several
//     subranges or as arrays of arrays;
//   - bit-fields are stored as a byte span (offset and size) and the
//     distance of the field's most significant bit from the top of the span,
//     in the target's byte order, whichever DWARF attribute described them;
//   - a declaration-only struct is replaced by a complete one of the same
//     tag where the program has one;
//   - a variable's location is kept when it is one of the forms a watch
//     expression can reach without running code: an absolute address, an
//     offset from the frame base, a register, or an offset from a register;
//     any other form is kept as unsupported, never guessed.
//
// Reading fails with a CoreException (component "dwarf", ERR_FILE_IO for a
// file without usable debug information, ERR_NOT_SUPPORTED for DWARF that
// libdw cannot walk), never with a crash or a partial model.
//
//     boost::shared_ptr<DwarfProgram> program = DwarfProgram::read(ElfImage::open(path));
//     const DwarfVariable* v = program->findGlobalVariable("counter");
//     v->location.address, v->type->byteSize ...

#include "libcommon/dwarf/elfimage.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

struct DwarfType;

struct DwarfMember {
    std::string name;  // empty for an anonymous struct or union member
    const DwarfType* type = nullptr;
    uint64_t byteOffset = 0;  // of the member, or of a bit-field's span
    uint32_t byteSize = 0;    // of the member, or of a bit-field's span
    bool bitField = false;
    int bitSize = 0;
    int bitOffset = 0;  // distance of the field's top bit from the top of the span
};

struct DwarfEnumerator {
    std::string name;
    uint64_t value = 0;  // two's complement for negative enumerators
};

struct DwarfType {
    enum Kind { VOID, BASE, TYPEDEF, POINTER, REFERENCE, ARRAY, STRUCT, UNION, ENUM, FUNCTION };

    Kind kind = VOID;
    std::string name;       // base type, typedef or tag name; empty when anonymous
    uint64_t byteSize = 0;  // whole array for ARRAY
    int encoding = 0;       // DW_ATE_* of a base type, or of an enum's underlying type
    // TYPEDEF: the aliased type; POINTER, REFERENCE: the pointee; ARRAY: the
    // element; ENUM: the underlying type when DWARF names one. Null for void.
    const DwarfType* target = nullptr;
    std::vector<uint64_t> dimensions;  // ARRAY, outermost first; 0 for []
    std::vector<DwarfMember> members;  // STRUCT, UNION
    std::vector<DwarfEnumerator> enumerators;
    bool declaration = false;  // incomplete struct, union or enum
};

struct DwarfLocation {
    enum Kind {
        NONE,             // no location attribute: optimised away
        ADDRESS,          // address
        FRAME_OFFSET,     // offset from the function's frame base
        REGISTER,         // in DWARF register reg
        REGISTER_OFFSET,  // at the value of DWARF register reg plus offset
        UNSUPPORTED       // a location list or an expression that needs running code
    };
    Kind kind = NONE;
    uint64_t address = 0;
    int64_t offset = 0;
    int reg = 0;
};

struct DwarfVariable {
    std::string name;
    const DwarfType* type = nullptr;
    DwarfLocation location;
    bool external = false;
    bool parameter = false;
    size_t unit = 0;  // index of the compilation unit
};

// A function body or a lexical block in it.
struct DwarfScope {
    uint64_t lowPc = 0, highPc = 0;  // [lowPc, highPc); both 0 when unknown
    std::vector<DwarfVariable> variables;
    std::vector<DwarfScope> blocks;
};

struct DwarfFunction {
    std::string name;
    uint64_t lowPc = 0, highPc = 0;
    const DwarfType* type = nullptr;  // FUNCTION type with the return type as target
    bool external = false;
    // Where DW_OP_fbreg offsets count from: FRAME_OFFSET 0 for the
    // canonical frame address, REGISTER_OFFSET for a register-based frame.
    DwarfLocation frameBase;
    DwarfScope body;  // parameters first, then locals; nested blocks
    size_t unit = 0;
};

struct DwarfUnit {
    std::string name;
    std::string producer;
    uint64_t lowPc = 0, highPc = 0;
    std::vector<std::pair<uint64_t, uint64_t>> ranges;  // [low, high) code ranges
};

class DwarfProgram {
public:
    // Reads every compilation unit of image. The image is kept.
    static boost::shared_ptr<DwarfProgram> read(boost::shared_ptr<const ElfImage> image);

    DwarfProgram(const DwarfProgram&) = delete;
    DwarfProgram& operator=(const DwarfProgram&) = delete;

    const boost::shared_ptr<const ElfImage>& getImage() const { return image; }
    const std::vector<DwarfUnit>& getUnits() const { return units; }
    const std::vector<DwarfFunction>& getFunctions() const { return functions; }

    // An external variable of that name, else a file-static one of any unit.
    const DwarfVariable* findGlobalVariable(const std::string& name) const;
    // The file-static variable of that name in unit, or null.
    const DwarfVariable* findStaticVariable(size_t unit, const std::string& name) const;
    const DwarfFunction* findFunction(const std::string& name) const;
    // The function whose code holds pc, or null.
    const DwarfFunction* findFunctionAt(uint64_t pc) const;
    // The unit whose code holds pc, or null.
    const DwarfUnit* findUnitAt(uint64_t pc) const;
    // Looks name up in the scopes of function that hold pc, innermost first
    // (parameters are in the outermost scope). Null when none declares it.
    static const DwarfVariable* findLocal(const DwarfFunction& function, uint64_t pc,
                                          const std::string& name);
    // A type by typedef, tag or base type name. Where a typedef and a tag
    // share a name the typedef wins; complete types win over declarations.
    const DwarfType* findType(const std::string& name) const;
    // An enumeration constant: its enum type and its position there, or a
    // null type. The first enum that declares the name wins.
    std::pair<const DwarfType*, size_t> findEnumerator(const std::string& name) const;
    // A base type by its DWARF name ("int", "long unsigned int", ...).
    const DwarfType* findBaseType(const std::string& name) const;
    // The size in bytes of the target's pointers (from the ELF class).
    unsigned int getAddressSize() const { return addressSize; }

private:
    friend class DwarfReader;
    explicit DwarfProgram(boost::shared_ptr<const ElfImage> image);

    boost::shared_ptr<const ElfImage> image;
    unsigned int addressSize = 4;
    std::deque<DwarfType> types;  // stable addresses for the pointers above
    std::vector<DwarfUnit> units;
    std::vector<DwarfVariable> variables;  // external and file-static
    std::vector<DwarfFunction> functions;
    std::unordered_map<std::string, size_t> externalVariables;
    std::map<std::pair<size_t, std::string>, size_t> staticVariables;
    std::unordered_map<std::string, size_t> anyStaticVariables;
    std::unordered_map<std::string, size_t> functionsByName;
    std::map<uint64_t, size_t> functionsByAddress;  // lowPc -> index
    std::unordered_map<std::string, const DwarfType*> typesByName;
    std::unordered_map<std::string, const DwarfType*> baseTypes;
    std::unordered_map<std::string, std::pair<const DwarfType*, size_t>> enumerators;
};

#endif
