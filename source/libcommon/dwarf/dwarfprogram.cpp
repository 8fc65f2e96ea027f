#include "libcommon/dwarf/dwarfprogram.h"

#include "libcommon/core/status.h"

#include <dwarf.h>
#include <elfutils/libdw.h>
#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <set>
#include <unordered_map>

namespace {

const char* const COMPONENT = "dwarf";

// Deeper nesting than this is damage, not a program: it would only exhaust
// the stack of the recursive walks below.
const int MAX_DEPTH = 256;

bool hasDebugInfo(Elf* elf) {
    size_t count = 0, namesIndex = 0;
    if (elf_getshdrnum(elf, &count) != 0 || elf_getshdrstrndx(elf, &namesIndex) != 0) return false;
    for (size_t i = 1; i < count; ++i) {
        GElf_Shdr header;
        Elf_Scn* scn = elf_getscn(elf, i);
        if (!scn || !gelf_getshdr(scn, &header)) continue;
        const char* name = elf_strptr(elf, namesIndex, header.sh_name);
        if (name && (std::string(name) == ".debug_info" || std::string(name) == ".zdebug_info"))
            return true;
    }
    return false;
}

std::string dieName(Dwarf_Die* die) {
    Dwarf_Attribute attr;
    const char* name = nullptr;
    if (dwarf_attr_integrate(die, DW_AT_name, &attr)) name = dwarf_formstring(&attr);
    return name ? name : "";
}

bool flag(Dwarf_Die* die, unsigned int name) {
    Dwarf_Attribute attr;
    bool value = false;
    return dwarf_attr_integrate(die, name, &attr) && dwarf_formflag(&attr, &value) == 0 && value;
}

bool unsignedAttr(Dwarf_Die* die, unsigned int name, Dwarf_Word& value) {
    Dwarf_Attribute attr;
    return dwarf_attr_integrate(die, name, &attr) && dwarf_formudata(&attr, &value) == 0;
}

bool signedAttr(Dwarf_Die* die, unsigned int name, Dwarf_Sword& value) {
    Dwarf_Attribute attr;
    return dwarf_attr_integrate(die, name, &attr) && dwarf_formsdata(&attr, &value) == 0;
}

bool isSignedEncoding(int encoding) {
    return encoding == DW_ATE_signed || encoding == DW_ATE_signed_char;
}

// Whether [low, high) holds pc; an unknown range (both 0) holds nothing.
bool holds(uint64_t low, uint64_t high, uint64_t pc) {
    return low <= pc && pc < high;
}

}  // namespace

class DwarfReader {
public:
    DwarfReader(DwarfProgram& program, Dwarf* dwarf) : program(program), dwarf(dwarf) {}

    void readUnits();
    void finish();

private:
    [[noreturn]] void damaged() const {
        CoreException::createAndThrow(COMPONENT, ERR_NOT_SUPPORTED,
                                      "%s: damaged debug information: %s",
                                      program.image->getName().c_str(), dwarf_errmsg(-1));
    }
    // Calls f with each child of die.
    template <class F>
    void forEachChild(Dwarf_Die* die, F f) {
        Dwarf_Die child;
        int result = dwarf_child(die, &child);
        if (result < 0) damaged();
        while (result == 0) {
            f(&child);
            result = dwarf_siblingof(&child, &child);
            if (result < 0) damaged();
        }
    }

    void readUnit(Dwarf_Die* unitDie);
    void readUnitChild(Dwarf_Die* die);
    const DwarfType* typeOf(Dwarf_Die* die, int depth);
    const DwarfType* readType(Dwarf_Die* die, int depth);
    void readMembers(Dwarf_Die* die, DwarfType& type, int depth);
    void readArray(Dwarf_Die* die, DwarfType& type, int depth);
    void readEnum(Dwarf_Die* die, DwarfType& type, int depth);
    bool readMember(Dwarf_Die* die, DwarfMember& member, int depth);
    DwarfLocation readLocation(Dwarf_Die* die, const DwarfLocation* frameBase);
    bool readVariable(Dwarf_Die* die, DwarfVariable& variable, const DwarfLocation* frameBase,
                      int depth);
    void readFunction(Dwarf_Die* die);
    void readScope(Dwarf_Die* die, DwarfScope& scope, const DwarfLocation& frameBase, int depth);
    void readPcRange(Dwarf_Die* die, uint64_t& low, uint64_t& high);

    const DwarfType* complete(const DwarfType* type) const;
    void completeScope(DwarfScope& scope);
    void breakCycles();
    void index();

    DwarfProgram& program;
    Dwarf* dwarf;
    size_t unit = 0;
    std::unordered_map<Dwarf_Off, const DwarfType*> typesByOffset;
    const DwarfType* voidType = nullptr;
};

void DwarfReader::readUnits() {
    DwarfType v;
    v.kind = DwarfType::VOID;
    v.name = "void";
    program.types.push_back(v);
    voidType = &program.types.back();

    Dwarf_CU* cu = nullptr;
    Dwarf_CU* next = nullptr;
    for (;;) {
        Dwarf_Half version = 0;
        uint8_t unitType = 0;
        Dwarf_Die unitDie, subDie;
        int result = dwarf_get_units(dwarf, cu, &next, &version, &unitType, &unitDie, &subDie);
        if (result > 0) break;
        if (result < 0) damaged();
        cu = next;
        if (unitType == DW_UT_compile || unitType == DW_UT_partial) readUnit(&unitDie);
    }
    if (program.units.empty())
        CoreException::createAndThrow(COMPONENT, ERR_FILE_IO,
                                      "%s: no debug information (compile with -g)",
                                      program.image->getName().c_str());
}

void DwarfReader::readUnit(Dwarf_Die* unitDie) {
    unit = program.units.size();
    DwarfUnit u;
    u.name = dieName(unitDie);
    Dwarf_Attribute attr;
    if (dwarf_attr(unitDie, DW_AT_producer, &attr) && dwarf_formstring(&attr))
        u.producer = dwarf_formstring(&attr);
    Dwarf_Addr base = 0, start = 0, end = 0;
    ptrdiff_t offset = 0;
    while ((offset = dwarf_ranges(unitDie, offset, &base, &start, &end)) > 0) {
        u.ranges.emplace_back(start, end);
        if (u.lowPc == u.highPc) {
            u.lowPc = start;
            u.highPc = end;
        } else {
            u.lowPc = std::min<uint64_t>(u.lowPc, start);
            u.highPc = std::max<uint64_t>(u.highPc, end);
        }
    }
    program.units.push_back(u);
    forEachChild(unitDie, [this](Dwarf_Die* die) { readUnitChild(die); });
}

void DwarfReader::readUnitChild(Dwarf_Die* die) {
    switch (dwarf_tag(die)) {
        case DW_TAG_variable: {
            DwarfVariable variable;
            if (readVariable(die, variable, nullptr, 0)) program.variables.push_back(variable);
            break;
        }
        case DW_TAG_subprogram:
            readFunction(die);
            break;
        case DW_TAG_base_type:
        case DW_TAG_typedef:
        case DW_TAG_structure_type:
        case DW_TAG_union_type:
        case DW_TAG_class_type:
        case DW_TAG_enumeration_type:
            // Types nobody refers to still belong to the program: a user may
            // cast to them.
            readType(die, 0);
            break;
        default:
            break;
    }
}

const DwarfType* DwarfReader::typeOf(Dwarf_Die* die, int depth) {
    Dwarf_Attribute attr;
    Dwarf_Die target;
    if (!dwarf_attr_integrate(die, DW_AT_type, &attr)) return voidType;
    if (!dwarf_formref_die(&attr, &target)) damaged();
    return readType(&target, depth + 1);
}

const DwarfType* DwarfReader::readType(Dwarf_Die* die, int depth) {
    Dwarf_Off offset = dwarf_dieoffset(die);
    auto known = typesByOffset.find(offset);
    if (known != typesByOffset.end()) return known->second;
    if (depth > MAX_DEPTH)
        CoreException::createAndThrow(COMPONENT, ERR_NOT_SUPPORTED,
                                      "%s: debug information nests too deeply",
                                      program.image->getName().c_str());
    int tag = dwarf_tag(die);
    // Qualifiers are transparent (see the header).
    if (tag == DW_TAG_const_type || tag == DW_TAG_volatile_type || tag == DW_TAG_restrict_type ||
        tag == DW_TAG_atomic_type) {
        typesByOffset[offset] = voidType;  // a qualifier of itself is void
        const DwarfType* t = typeOf(die, depth);
        typesByOffset[offset] = t;
        return t;
    }
    program.types.emplace_back();
    DwarfType& type = program.types.back();
    // Registered before anything it refers to is read, so that a struct
    // that points to itself ends the recursion here.
    typesByOffset[offset] = &type;
    type.name = dieName(die);
    type.declaration = flag(die, DW_AT_declaration);
    Dwarf_Word size = 0;
    if (unsignedAttr(die, DW_AT_byte_size, size)) type.byteSize = size;
    switch (tag) {
        case DW_TAG_base_type: {
            Dwarf_Word encoding = 0;
            unsignedAttr(die, DW_AT_encoding, encoding);
            type.kind = DwarfType::BASE;
            type.encoding = static_cast<int>(encoding);
            break;
        }
        case DW_TAG_unspecified_type:
            type.kind = DwarfType::VOID;
            break;
        case DW_TAG_typedef:
            type.kind = DwarfType::TYPEDEF;
            type.target = typeOf(die, depth);
            type.byteSize = type.target->byteSize;
            break;
        case DW_TAG_pointer_type:
        case DW_TAG_reference_type:
        case DW_TAG_rvalue_reference_type:
            type.kind = tag == DW_TAG_pointer_type ? DwarfType::POINTER : DwarfType::REFERENCE;
            if (!type.byteSize) type.byteSize = program.addressSize;
            type.target = typeOf(die, depth);
            break;
        case DW_TAG_structure_type:
        case DW_TAG_class_type:
        case DW_TAG_union_type:
            type.kind = tag == DW_TAG_union_type ? DwarfType::UNION : DwarfType::STRUCT;
            readMembers(die, type, depth);
            break;
        case DW_TAG_enumeration_type:
            type.kind = DwarfType::ENUM;
            readEnum(die, type, depth);
            break;
        case DW_TAG_array_type:
            type.kind = DwarfType::ARRAY;
            readArray(die, type, depth);
            break;
        case DW_TAG_subroutine_type:
            type.kind = DwarfType::FUNCTION;
            type.target = typeOf(die, depth);
            break;
        default:
            // A kind of type C has no words for (string, set, pointer to
            // member...): the engine sees it as void rather than guess.
            type.kind = DwarfType::VOID;
            break;
    }
    return &type;
}

void DwarfReader::readMembers(Dwarf_Die* die, DwarfType& type, int depth) {
    forEachChild(die, [&](Dwarf_Die* child) {
        if (dwarf_tag(child) != DW_TAG_member) return;
        DwarfMember member;
        if (readMember(child, member, depth)) type.members.push_back(member);
    });
}

bool DwarfReader::readMember(Dwarf_Die* die, DwarfMember& member, int depth) {
    if (flag(die, DW_AT_external)) return false;  // a static member: no part of the object
    member.name = dieName(die);
    member.type = typeOf(die, depth);
    uint64_t offset = 0;
    Dwarf_Attribute attr;
    if (dwarf_attr_integrate(die, DW_AT_data_member_location, &attr)) {
        Dwarf_Word value = 0;
        Dwarf_Op* ops = nullptr;
        size_t count = 0;
        if (dwarf_formudata(&attr, &value) == 0)
            offset = value;
        else if (dwarf_getlocation(&attr, &ops, &count) == 0 && count == 1 &&
                 ops[0].atom == DW_OP_plus_uconst)
            offset = ops[0].number;
        else
            return false;  // a location that needs an object to compute
    }
    member.byteOffset = offset;
    member.byteSize = static_cast<uint32_t>(member.type->byteSize);
    Dwarf_Word bitSize = 0;
    if (!unsignedAttr(die, DW_AT_bit_size, bitSize) || bitSize == 0) return true;
    if (bitSize > 64) return false;  // wider than any value the engine computes with
    // The field's position as bits from the start of the aggregate, counted
    // the way the target numbers them: from the least significant bit of
    // the first byte on a little-endian target, from the most significant
    // bit on a big-endian one.
    bool bigEndian = program.image->isBigEndian();
    uint64_t dataBitOffset = 0;
    Dwarf_Word value = 0;
    if (unsignedAttr(die, DW_AT_data_bit_offset, value)) {
        dataBitOffset = value;
    } else {
        // DW_AT_bit_offset counts from the most significant bit of a
        // storage unit of DW_AT_byte_size bytes at the member location.
        Dwarf_Word unitBytes = 0;
        if (!unsignedAttr(die, DW_AT_byte_size, unitBytes)) unitBytes = member.type->byteSize;
        Dwarf_Sword fromTop = 0;
        if (!signedAttr(die, DW_AT_bit_offset, fromTop)) fromTop = 0;
        int64_t bit = bigEndian ? fromTop
                                : static_cast<int64_t>(unitBytes * 8) - fromTop -
                                      static_cast<int64_t>(bitSize);
        if (bit < 0 && static_cast<uint64_t>(-bit) > offset * 8) return false;
        dataBitOffset = offset * 8 + bit;
    }
    uint64_t first = dataBitOffset / 8;
    uint64_t last = (dataBitOffset + bitSize - 1) / 8;
    uint64_t spanBytes = last - first + 1;
    uint64_t inSpan = dataBitOffset - first * 8;  // from the start of the span's first byte
    member.bitField = true;
    member.bitSize = static_cast<int>(bitSize);
    member.byteOffset = first;
    member.byteSize = static_cast<uint32_t>(spanBytes);
    member.bitOffset = static_cast<int>(bigEndian ? inSpan : spanBytes * 8 - inSpan - bitSize);
    return true;
}

void DwarfReader::readArray(Dwarf_Die* die, DwarfType& type, int depth) {
    type.target = typeOf(die, depth);
    forEachChild(die, [&](Dwarf_Die* child) {
        int tag = dwarf_tag(child);
        if (tag != DW_TAG_subrange_type && tag != DW_TAG_enumeration_type) return;
        Dwarf_Word count = 0;
        Dwarf_Sword lower = 0, upper = 0;
        if (unsignedAttr(child, DW_AT_count, count)) {
        } else if (signedAttr(child, DW_AT_upper_bound, upper)) {
            signedAttr(child, DW_AT_lower_bound, lower);
            count = upper >= lower ? static_cast<Dwarf_Word>(upper - lower + 1) : 0;
        }
        type.dimensions.push_back(count);
    });
    if (type.dimensions.empty()) type.dimensions.push_back(0);
    // An array of arrays is one array of more dimensions, as C writes it.
    if (type.target && type.target->kind == DwarfType::ARRAY && type.target != &type) {
        const DwarfType* inner = type.target;
        type.dimensions.insert(type.dimensions.end(), inner->dimensions.begin(),
                               inner->dimensions.end());
        type.target = inner->target;
    }
    uint64_t elements = 1;
    for (uint64_t d : type.dimensions) elements = d && elements > UINT64_MAX / d ? 0 : elements * d;
    const DwarfType* element = type.target;
    uint64_t elementSize = element ? element->byteSize : 0;
    if (!type.byteSize)
        type.byteSize =
            elementSize && elements > UINT64_MAX / elementSize ? 0 : elements * elementSize;
}

void DwarfReader::readEnum(Dwarf_Die* die, DwarfType& type, int depth) {
    Dwarf_Attribute attr;
    if (dwarf_attr_integrate(die, DW_AT_type, &attr)) {
        type.target = typeOf(die, depth);
        type.encoding = type.target->encoding;
        if (!type.byteSize) type.byteSize = type.target->byteSize;
    } else {
        // Without an underlying type the enum is signed when any of its
        // constants is negative; the forms below tell that.
        type.encoding = DW_ATE_unsigned;
    }
    forEachChild(die, [&](Dwarf_Die* child) {
        if (dwarf_tag(child) != DW_TAG_enumerator) return;
        DwarfEnumerator e;
        e.name = dieName(child);
        Dwarf_Attribute value;
        if (!dwarf_attr(child, DW_AT_const_value, &value)) return;
        Dwarf_Word raw = 0;
        Dwarf_Sword signedValue = 0;
        unsigned int form = dwarf_whatform(&value);
        if (form == DW_FORM_sdata || form == DW_FORM_implicit_const) {
            if (dwarf_formsdata(&value, &signedValue) != 0) return;
            raw = static_cast<Dwarf_Word>(signedValue);
            if (signedValue < 0 && !type.target) type.encoding = DW_ATE_signed;
        } else {
            if (dwarf_formudata(&value, &raw) != 0) return;
            // Fixed-size forms carry no sign: the underlying type gives it.
            unsigned bytes = form == DW_FORM_data1   ? 1
                             : form == DW_FORM_data2 ? 2
                             : form == DW_FORM_data4 ? 4
                                                     : 8;
            if (bytes < 8 && isSignedEncoding(type.encoding) && (raw >> (bytes * 8 - 1)) & 1)
                raw |= ~((uint64_t(1) << (bytes * 8)) - 1);
        }
        e.value = raw;
        type.enumerators.push_back(e);
    });
    if (!type.byteSize) type.byteSize = 4;
}

DwarfLocation DwarfReader::readLocation(Dwarf_Die* die, const DwarfLocation* frameBase) {
    DwarfLocation location;
    Dwarf_Attribute attr;
    if (!dwarf_attr_integrate(die, DW_AT_location, &attr)) return location;  // NONE: optimised away
    Dwarf_Op* ops = nullptr;
    size_t count = 0;
    location.kind = DwarfLocation::UNSUPPORTED;
    if (dwarf_getlocation(&attr, &ops, &count) != 0 || count == 0)
        return location;  // a location list: the place depends on the pc
    // A trailing DW_OP_stack_value or piece would make it no plain place.
    if (count != 1 && !(count == 2 && ops[1].atom == DW_OP_plus_uconst)) return location;
    uint64_t extra = count == 2 ? ops[1].number : 0;
    uint8_t atom = ops[0].atom;
    Dwarf_Attribute indexed;
    Dwarf_Addr address = 0;
    if (atom == DW_OP_addr) {
        location.kind = DwarfLocation::ADDRESS;
        location.address = ops[0].number + extra;
    } else if (atom == DW_OP_addrx || atom == DW_OP_GNU_addr_index) {
        // DWARF 5 keeps addresses in a table of the unit (clang does so).
        if (dwarf_getlocation_attr(&attr, &ops[0], &indexed) == 0 &&
            dwarf_formaddr(&indexed, &address) == 0) {
            location.kind = DwarfLocation::ADDRESS;
            location.address = address + extra;
        }
    } else if (atom == DW_OP_fbreg && frameBase) {
        location = *frameBase;
        if (location.kind == DwarfLocation::FRAME_OFFSET ||
            location.kind == DwarfLocation::REGISTER_OFFSET)
            location.offset += static_cast<int64_t>(ops[0].number) + extra;
        else
            location.kind = DwarfLocation::UNSUPPORTED;
    } else if (atom >= DW_OP_reg0 && atom <= DW_OP_reg31 && count == 1) {
        location.kind = DwarfLocation::REGISTER;
        location.reg = atom - DW_OP_reg0;
    } else if (atom == DW_OP_regx && count == 1) {
        location.kind = DwarfLocation::REGISTER;
        location.reg = static_cast<int>(ops[0].number);
    } else if (atom >= DW_OP_breg0 && atom <= DW_OP_breg31) {
        location.kind = DwarfLocation::REGISTER_OFFSET;
        location.reg = atom - DW_OP_breg0;
        location.offset = static_cast<int64_t>(ops[0].number) + extra;
    } else if (atom == DW_OP_bregx) {
        location.kind = DwarfLocation::REGISTER_OFFSET;
        location.reg = static_cast<int>(ops[0].number);
        location.offset = static_cast<int64_t>(ops[0].number2) + extra;
    } else if (atom == DW_OP_call_frame_cfa && count == 1) {
        location.kind = DwarfLocation::FRAME_OFFSET;
        location.offset = 0;
    }
    return location;
}

bool DwarfReader::readVariable(Dwarf_Die* die, DwarfVariable& variable,
                               const DwarfLocation* frameBase, int depth) {
    // A declaration holds no storage; its definition (which names it with
    // DW_AT_specification) does.
    if (flag(die, DW_AT_declaration)) return false;
    variable.name = dieName(die);
    if (variable.name.empty()) return false;
    variable.type = typeOf(die, depth);
    variable.external = flag(die, DW_AT_external);
    variable.parameter = dwarf_tag(die) == DW_TAG_formal_parameter;
    variable.location = readLocation(die, frameBase);
    variable.unit = unit;
    return true;
}

void DwarfReader::readPcRange(Dwarf_Die* die, uint64_t& low, uint64_t& high) {
    Dwarf_Addr base = 0, start = 0, end = 0;
    ptrdiff_t offset = 0;
    low = high = 0;
    while ((offset = dwarf_ranges(die, offset, &base, &start, &end)) > 0) {
        if (low == high) {
            low = start;
            high = end;
        } else {
            low = std::min<uint64_t>(low, start);
            high = std::max<uint64_t>(high, end);
        }
    }
}

void DwarfReader::readFunction(Dwarf_Die* die) {
    if (flag(die, DW_AT_declaration)) return;
    DwarfFunction function;
    readPcRange(die, function.lowPc, function.highPc);
    if (function.lowPc == function.highPc)
        return;  // an abstract instance of an inlined function: no code of its own
    function.name = dieName(die);
    function.external = flag(die, DW_AT_external);
    function.unit = unit;
    program.types.emplace_back();
    DwarfType& type = program.types.back();
    type.kind = DwarfType::FUNCTION;
    type.target = typeOf(die, 0);
    function.type = &type;
    Dwarf_Attribute attr;
    function.frameBase.kind = DwarfLocation::UNSUPPORTED;
    if (dwarf_attr(die, DW_AT_frame_base, &attr)) {
        Dwarf_Op* ops = nullptr;
        size_t count = 0;
        if (dwarf_getlocation(&attr, &ops, &count) == 0 && count == 1) {
            uint8_t atom = ops[0].atom;
            if (atom == DW_OP_call_frame_cfa) {
                function.frameBase.kind = DwarfLocation::FRAME_OFFSET;
            } else if (atom >= DW_OP_breg0 && atom <= DW_OP_breg31) {
                function.frameBase.kind = DwarfLocation::REGISTER_OFFSET;
                function.frameBase.reg = atom - DW_OP_breg0;
                function.frameBase.offset = static_cast<int64_t>(ops[0].number);
            } else if (atom >= DW_OP_reg0 && atom <= DW_OP_reg31) {
                // The frame base is the register's value itself.
                function.frameBase.kind = DwarfLocation::REGISTER_OFFSET;
                function.frameBase.reg = atom - DW_OP_reg0;
            }
        }
    }
    function.body.lowPc = function.lowPc;
    function.body.highPc = function.highPc;
    readScope(die, function.body, function.frameBase, 0);
    program.functions.push_back(std::move(function));
}

void DwarfReader::readScope(Dwarf_Die* die, DwarfScope& scope, const DwarfLocation& frameBase,
                            int depth) {
    if (depth > MAX_DEPTH)
        CoreException::createAndThrow(COMPONENT, ERR_NOT_SUPPORTED,
                                      "%s: debug information nests too deeply",
                                      program.image->getName().c_str());
    forEachChild(die, [&](Dwarf_Die* child) {
        switch (dwarf_tag(child)) {
            case DW_TAG_formal_parameter:
            case DW_TAG_variable: {
                DwarfVariable variable;
                if (readVariable(child, variable, &frameBase, 0))
                    scope.variables.push_back(variable);
                break;
            }
            case DW_TAG_lexical_block: {
                DwarfScope block;
                readPcRange(child, block.lowPc, block.highPc);
                readScope(child, block, frameBase, depth + 1);
                scope.blocks.push_back(std::move(block));
                break;
            }
            case DW_TAG_base_type:
            case DW_TAG_typedef:
            case DW_TAG_structure_type:
            case DW_TAG_union_type:
            case DW_TAG_enumeration_type:
                readType(child, 0);
                break;
            default:
                break;
        }
    });
}

const DwarfType* DwarfReader::complete(const DwarfType* type) const {
    if (!type || !type->declaration || type->name.empty()) return type;
    auto found = program.typesByName.find((type->kind == DwarfType::ENUM    ? "enum "
                                           : type->kind == DwarfType::UNION ? "union "
                                                                            : "struct ") +
                                          type->name);
    return found != program.typesByName.end() ? found->second : type;
}

void DwarfReader::completeScope(DwarfScope& scope) {
    for (DwarfVariable& v : scope.variables) v.type = complete(v.type);
    for (DwarfScope& block : scope.blocks) completeScope(block);
}

// Damaged debug information can make a type its own target without a struct
// in between (a typedef of itself, an array of itself). C cannot say that,
// and every walk along targets would loop: such a link is cut to void.
void DwarfReader::breakCycles() {
    for (DwarfType& start : program.types) {
        std::set<const DwarfType*> seen;
        DwarfType* t = &start;
        while (t && t->target) {
            if (t->kind == DwarfType::STRUCT || t->kind == DwarfType::UNION) break;
            seen.insert(t);
            if (seen.count(t->target)) {
                t->target = voidType;
                break;
            }
            t = const_cast<DwarfType*>(t->target);
        }
    }
}

void DwarfReader::index() {
    // Tags are indexed with their keyword so that a typedef and a tag of
    // the same name can both be found; see findType for the plain names.
    auto better = [](const DwarfType* have, const DwarfType* candidate) {
        return have->declaration && !candidate->declaration;
    };
    for (const DwarfType& t : program.types) {
        for (size_t i = 0; i < t.enumerators.size(); ++i)
            program.enumerators.emplace(t.enumerators[i].name, std::make_pair(&t, i));
        if (t.name.empty()) continue;
        std::string key;
        switch (t.kind) {
            case DwarfType::STRUCT:
                key = "struct " + t.name;
                break;
            case DwarfType::UNION:
                key = "union " + t.name;
                break;
            case DwarfType::ENUM:
                key = "enum " + t.name;
                break;
            case DwarfType::TYPEDEF:
                key = t.name;
                break;
            case DwarfType::BASE:
                key = t.name;
                program.baseTypes.emplace(t.name, &t);
                break;
            default:
                continue;
        }
        auto inserted = program.typesByName.emplace(key, &t);
        if (!inserted.second && better(inserted.first->second, &t)) inserted.first->second = &t;
    }
}

void DwarfReader::finish() {
    index();
    for (DwarfType& t : program.types) {
        t.target = complete(t.target);
        for (DwarfMember& m : t.members) m.type = complete(m.type);
    }
    for (DwarfVariable& v : program.variables) v.type = complete(v.type);
    for (DwarfFunction& f : program.functions) completeScope(f.body);
    breakCycles();
    // A typedef read before the struct it names was complete took its size
    // from the declaration.
    for (DwarfType& t : program.types) {
        const DwarfType* target = &t;
        for (int steps = 0;
             target->kind == DwarfType::TYPEDEF && target->target && steps < MAX_DEPTH; ++steps)
            target = target->target;
        if (t.kind == DwarfType::TYPEDEF) t.byteSize = target->byteSize;
    }

    for (size_t i = 0; i < program.variables.size(); ++i) {
        const DwarfVariable& v = program.variables[i];
        if (v.external)
            program.externalVariables.emplace(v.name, i);
        else {
            program.staticVariables.emplace(std::make_pair(v.unit, v.name), i);
            program.anyStaticVariables.emplace(v.name, i);
        }
    }
    for (size_t i = 0; i < program.functions.size(); ++i) {
        const DwarfFunction& f = program.functions[i];
        auto known = program.functionsByName.find(f.name);
        if (known == program.functionsByName.end() ||
            (f.external && !program.functions[known->second].external))
            program.functionsByName[f.name] = i;
        program.functionsByAddress.emplace(f.lowPc, i);
    }
}

DwarfProgram::DwarfProgram(boost::shared_ptr<const ElfImage> elfImage)
    : image(std::move(elfImage)), addressSize(image->is64Bit() ? 8 : 4) {}

boost::shared_ptr<DwarfProgram> DwarfProgram::read(boost::shared_ptr<const ElfImage> image) {
    if (!image) CoreException::createAndThrow(COMPONENT, ERR_INVALID_ARGUMENT, "No ELF image");
    if (!hasDebugInfo(image->getElf()))
        CoreException::createAndThrow(COMPONENT, ERR_FILE_IO,
                                      "%s: no debug information (compile with -g)",
                                      image->getName().c_str());
    Dwarf* dwarf = dwarf_begin_elf(image->getElf(), DWARF_C_READ, nullptr);
    if (!dwarf)
        CoreException::createAndThrow(COMPONENT, ERR_FILE_IO,
                                      "%s: unreadable debug information: %s",
                                      image->getName().c_str(), dwarf_errmsg(-1));
    boost::shared_ptr<DwarfProgram> program(new DwarfProgram(image));
    try {
        DwarfReader reader(*program, dwarf);
        reader.readUnits();
        reader.finish();
    } catch (...) {
        dwarf_end(dwarf);
        throw;
    }
    dwarf_end(dwarf);
    return program;
}

const DwarfVariable* DwarfProgram::findGlobalVariable(const std::string& name) const {
    auto e = externalVariables.find(name);
    if (e != externalVariables.end()) return &variables[e->second];
    auto s = anyStaticVariables.find(name);
    return s != anyStaticVariables.end() ? &variables[s->second] : nullptr;
}

const DwarfVariable* DwarfProgram::findStaticVariable(size_t unit, const std::string& name) const {
    auto s = staticVariables.find(std::make_pair(unit, name));
    return s != staticVariables.end() ? &variables[s->second] : nullptr;
}

const DwarfFunction* DwarfProgram::findFunction(const std::string& name) const {
    auto f = functionsByName.find(name);
    return f != functionsByName.end() ? &functions[f->second] : nullptr;
}

const DwarfFunction* DwarfProgram::findFunctionAt(uint64_t pc) const {
    auto after = functionsByAddress.upper_bound(pc);
    if (after == functionsByAddress.begin()) return nullptr;
    const DwarfFunction& f = functions[std::prev(after)->second];
    return holds(f.lowPc, f.highPc, pc) ? &f : nullptr;
}

const DwarfUnit* DwarfProgram::findUnitAt(uint64_t pc) const {
    for (const DwarfUnit& u : units)
        for (const auto& range : u.ranges)
            if (holds(range.first, range.second, pc)) return &u;
    return nullptr;
}

namespace {

const DwarfVariable* findInScope(const DwarfScope& scope, uint64_t pc, const std::string& name) {
    for (const DwarfScope& block : scope.blocks)
        if (holds(block.lowPc, block.highPc, pc))
            if (const DwarfVariable* v = findInScope(block, pc, name)) return v;
    for (const DwarfVariable& v : scope.variables)
        if (v.name == name) return &v;
    return nullptr;
}

}  // namespace

const DwarfVariable* DwarfProgram::findLocal(const DwarfFunction& function, uint64_t pc,
                                             const std::string& name) {
    return findInScope(function.body, pc, name);
}

const DwarfType* DwarfProgram::findType(const std::string& name) const {
    for (const char* prefix : {"", "struct ", "union ", "enum "}) {
        auto t = typesByName.find(prefix + name);
        if (t != typesByName.end()) return t->second;
    }
    return nullptr;
}

std::pair<const DwarfType*, size_t> DwarfProgram::findEnumerator(const std::string& name) const {
    auto e = enumerators.find(name);
    return e != enumerators.end() ? e->second
                                  : std::make_pair<const DwarfType*, size_t>(nullptr, 0);
}

const DwarfType* DwarfProgram::findBaseType(const std::string& name) const {
    auto t = baseTypes.find(name);
    return t != baseTypes.end() ? t->second : nullptr;
}
