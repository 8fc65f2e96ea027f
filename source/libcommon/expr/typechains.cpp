#include "libcommon/expr/typechains.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"

#include <boost/make_shared.hpp>
#include <cstring>
#include <string>

namespace {

// The CompilerInfo in force; see ScopedCompilerInfo. Process-wide like the
// evaluation that sets it, which holds the evaluation lock meanwhile.
boost::shared_ptr<CompilerInfo> gCompilerInfoInForce;

const char* const kMalformedChain = "Malformed type chain";

struct SubtypeRow {
    int32_t CompilerInfo::*bits;
    int sign;  // 1 signed, 0 unsigned, -1 as charIsSigned
    const char* text;
    const char* shortText;  // for compilerId 2, or null
};

const SubtypeRow kSubtypes[] = {
    {&CompilerInfo::charBits, -1, "char", nullptr},
    {&CompilerInfo::shortBits, 1, "short", nullptr},
    {&CompilerInfo::intBits, 1, "int", nullptr},
    {&CompilerInfo::longBits, 1, "long", nullptr},
    {&CompilerInfo::int64Bits, 1, "i64", nullptr},
    {&CompilerInfo::bitBits, 0, "bit", nullptr},
    {&CompilerInfo::nibbleBits, 0, "nibble", nullptr},
    {&CompilerInfo::longLongBits, 1, "long long", nullptr},
    {&CompilerInfo::charBits, 1, "signed char", nullptr},
    {&CompilerInfo::shortBits, 1, "signed short", nullptr},
    {&CompilerInfo::intBits, 1, "signed int", nullptr},
    {&CompilerInfo::longBits, 1, "signed long", nullptr},
    {&CompilerInfo::int64Bits, 1, "si64", nullptr},
    {&CompilerInfo::charBits, 0, "unsigned char", "byte"},
    {&CompilerInfo::shortBits, 0, "unsigned short", "word"},
    {&CompilerInfo::intBits, 0, "unsigned int", "word"},
    {&CompilerInfo::longBits, 0, "unsigned long", "dword"},
    {&CompilerInfo::int64Bits, 0, "ui64", nullptr},
    {&CompilerInfo::floatBits, 1, "float", nullptr},
    {&CompilerInfo::doubleBits, 1, "double", nullptr},
    {&CompilerInfo::longDoubleBits, 1, "long double", nullptr},
};
const int kSubtypeCount = sizeof(kSubtypes) / sizeof(kSubtypes[0]);

bool isValidSubtype(int subtype) {
    return subtype >= 0 && subtype < kSubtypeCount;
}

bool isFloatSubtype(int subtype) {
    return subtype >= FT_FLOAT && subtype <= FT_LONGDOUBLE;
}

bool hasDeclType(const boost::shared_ptr<link_variant>& link, int type) {
    return link && link->linkClass == DECLARATOR && link->decl && link->decl->type == type;
}

bool hasNoun(const boost::shared_ptr<link_variant>& link, int noun) {
    return link && link->linkClass == SPECIFIER && link->spec && link->spec->noun == noun;
}

specifier& specOf(const boost::shared_ptr<link_variant>& link) {
    if (!link || !link->spec) throw kMalformedChain;
    return *link->spec;
}

// A chain's size above 32 bits cannot be represented in the records.
uint32_t checkedBits(uint64_t bits) {
    if (bits > 0xFFFFFFFFull) throw "Type too large";
    return static_cast<uint32_t>(bits);
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

void logUnknownSubtype(const std::string& name) {
    if (gLogMask & LOG_MASK_ERROR) BackendLogger::error(L_DBG, "Unknown subtype " + name);
}

const char* const kMemorySpaceNames[] = {"",
                                         "prog",
                                         "data",
                                         "data",
                                         "io",
                                         "registers",
                                         "eeprom",
                                         "fuses",
                                         "lockbits",
                                         "signatures",
                                         "user_signatures",
                                         "prod_signatures"};

}  // namespace

// ---------------------------------------------------------------------------
// Links.

link_variant::link_variant() : linkClass(MODIFIER) {}

link_variant::link_variant(DeclaratorType type)
    : linkClass(DECLARATOR), decl(boost::make_shared<declarator>()) {
    decl->type = type;
}

link_variant::link_variant(Noun noun)
    : linkClass(SPECIFIER), spec(boost::make_shared<specifier>()) {
    spec->noun = noun;
}

boost::shared_ptr<structdef> link_variant::getStructdef() const {
    return spec ? spec->structdef : boost::shared_ptr<::structdef>();
}

void link_variant::setStructdef(const boost::shared_ptr<::structdef>& s) {
    if (!spec) throw kMalformedChain;
    spec->structdef = s;
}

void link_variant::setSubtype(int subtype) {
    if (!spec) throw kMalformedChain;
    spec->subtype = subtype;
}

void link_variant::setArgs(const boost::shared_ptr<symtab>& args) {
    if (!decl) throw kMalformedChain;
    decl->args = args;
}

boost::shared_ptr<link_variant> makeDeclaratorLink(DeclaratorType type, uint32_t numele) {
    auto link = boost::make_shared<link_variant>(type);
    link->decl->numele = numele;
    return link;
}

boost::shared_ptr<link_variant> makeSpecifierLink(Noun noun, int subtype) {
    auto link = boost::make_shared<link_variant>(noun);
    link->spec->subtype = subtype;
    return link;
}

boost::shared_ptr<link_variant> makeModifierLink(uint32_t modifiers) {
    auto link = boost::make_shared<link_variant>();
    link->modifiers = modifiers;
    return link;
}

// ---------------------------------------------------------------------------
// The CompilerInfo in force.

ScopedCompilerInfo::ScopedCompilerInfo(boost::shared_ptr<CompilerInfo> info)
    : previous(gCompilerInfoInForce) {
    gCompilerInfoInForce = std::move(info);
}

ScopedCompilerInfo::~ScopedCompilerInfo() {
    gCompilerInfoInForce = previous;
}

boost::shared_ptr<CompilerInfo> getCompilerInfoInForce() {
    return gCompilerInfoInForce;
}

const CompilerInfo& compilerInfoInForce() {
    if (!gCompilerInfoInForce) throw "No compiler information in force";
    return *gCompilerInfoInForce;
}

// ---------------------------------------------------------------------------
// Predicates.

bool isDeclarator(const boost::shared_ptr<link_variant>& link) {
    return link && link->linkClass == DECLARATOR;
}
bool isSpecifier(const boost::shared_ptr<link_variant>& link) {
    return link && link->linkClass == SPECIFIER;
}
bool isModifier(const boost::shared_ptr<link_variant>& link) {
    return link && link->linkClass == MODIFIER;
}
bool isPointer(const boost::shared_ptr<link_variant>& link) {
    return hasDeclType(link, DECL_POINTER);
}
bool isNativePointer(const boost::shared_ptr<link_variant>& link) {
    return isPointer(link) && link->decl->numele == 1;
}
bool isArray(const boost::shared_ptr<link_variant>& link) {
    return hasDeclType(link, DECL_ARRAY);
}
bool isFunction(const boost::shared_ptr<link_variant>& link) {
    return hasDeclType(link, DECL_FUNCTION);
}
bool isReference(const boost::shared_ptr<link_variant>& link) {
    return hasDeclType(link, DECL_REFERENCE);
}
bool isFieldSpecWidth(const boost::shared_ptr<link_variant>& link) {
    return hasDeclType(link, DECL_FIELD_WIDTH);
}
bool isAggregate(const boost::shared_ptr<link_variant>& link) {
    return isArray(link) || isStruct(link);
}
bool isStruct(const boost::shared_ptr<link_variant>& link) {
    return hasNoun(link, NOUN_STRUCT);
}
bool isInt(const boost::shared_ptr<link_variant>& link) {
    return hasNoun(link, NOUN_INT);
}
bool isEnum(const boost::shared_ptr<link_variant>& link) {
    return hasNoun(link, NOUN_ENUM);
}
bool isIntegral(const boost::shared_ptr<link_variant>& link) {
    return isInt(link) || isEnum(link);
}
bool isFloat(const boost::shared_ptr<link_variant>& link) {
    return hasNoun(link, NOUN_FLOAT);
}
bool isVoid(const boost::shared_ptr<link_variant>& link) {
    return hasNoun(link, NOUN_VOID);
}
bool isConstant(const boost::shared_ptr<link_variant>& link) {
    return isSpecifier(link) && link->spec && link->spec->sclass == SC_CONSTANT;
}

// ---------------------------------------------------------------------------
// Sizes and kinds.

unsigned int getSubtypeSize(int subtype, const CompilerInfo& info, bool& isSigned) {
    if (!isValidSubtype(subtype)) throw "Unknown subtype number";
    const SubtypeRow& row = kSubtypes[subtype];
    isSigned = row.sign < 0 ? info.charIsSigned : row.sign != 0;
    return static_cast<unsigned int>(info.*row.bits) / 8;
}

uint32_t get_bit_sizeof(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info) {
    if (!link) throw kMalformedChain;
    bool isSigned;
    if (link->linkClass == SPECIFIER && link->spec) {
        switch (link->spec->noun) {
            case NOUN_INT:
            case NOUN_FLOAT:
            case NOUN_ENUM:
                return 8 * getSubtypeSize(link->spec->subtype, info, isSigned);
            case NOUN_VOID:
            case NOUN_UNUSED:
                return 0;
            case NOUN_STRUCT:
                // A tag that was only named, never defined, has no size yet.
                return link->spec->structdef ? link->spec->structdef->size : 0;
            default:
                throw "get_bit_sizeof - Illegal type";
        }
    }
    if (link->linkClass == DECLARATOR && link->decl) {
        switch (link->decl->type) {
            case DECL_FIELD_WIDTH:
                return link->decl->getBitSize();
            case DECL_ARRAY:
                return checkedBits(uint64_t(get_bit_sizeof(link->next, info)) * link->decl->numele);
            case DECL_POINTER:
                return 8 * getSubtypeSize(info.pointerSubtype, info, isSigned);
            case DECL_FUNCTION:
                return static_cast<uint32_t>(info.functionBits);
            case DECL_REFERENCE:
                return get_bit_sizeof(link->next, info);
            default:
                throw "get_bit_sizeof - decl - Unknown type";
        }
    }
    throw "get_bit_sizeof - Illegal type";
}

uint32_t get_bit_alignment(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info) {
    if (isArray(link)) return get_bit_alignment(link->next, info);
    if (isFieldSpecWidth(link)) return 1;
    uint32_t size = get_bit_sizeof(link, info);
    if (size == 0) throw "INTERNAL, get_bit_alignment: Object aligned on zero boundary\n";
    return size;
}

int promoteSubtype(int subtype, const CompilerInfo& info) {
    switch (subtype) {
        case IT_CHAR:
            return info.charIsSigned ? IT_SINT : IT_UINT;
        case IT_SHORT:
        case IT_INT:
        case IT_SCHAR:
        case IT_SSHORT:
        case IT_SINT:
            return IT_SINT;
        case IT_LONG:
        case IT_SLONG:
            return IT_SLONG;
        case IT_I64:
        case IT_S64:
            return IT_S64;
        // Unsigned char and short promote to unsigned int, not to int as in
        // C: the front end relies on values of unsigned kinds staying
        // unsigned through arithmetic.
        case IT_BIT:
        case IT_NIBBLE:
        case IT_UCHAR:
        case IT_USHORT:
        case IT_UINT:
            return IT_UINT;
        case IT_LONGLONG:
        case IT_ULONG:
        case IT_U64:
        case FT_FLOAT:
        case FT_DOUBLE:
        case FT_LONGDOUBLE:
            return subtype;
        default:
            throw "Unknown subtype number";
    }
}

int promoteSubtype(int subtype) {
    return promoteSubtype(subtype, compilerInfoInForce());
}

int getArithmeticSubtype(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info) {
    if (isFunction(link) || isPointer(link) || isArray(link)) return info.pointerSubtype;
    // A field width or a reference computes as the kind it ends in.
    return specOf(findChainEnd(link)).subtype;
}

int getArithmeticSubtype(const boost::shared_ptr<link_variant>& link) {
    return getArithmeticSubtype(link, compilerInfoInForce());
}

int getOperationClass(int subtype, const CompilerInfo& info) {
    bool isSigned;
    unsigned int size = getSubtypeSize(subtype, info, isSigned);
    if (isFloatSubtype(subtype)) {
        if (size == 4) return OC_FLOAT;
        if (size == 8) return OC_DOUBLE;
        throw "Invalid floating point length";
    }
    switch (size) {
        case 1:
            return isSigned ? OC_S8 : OC_U8;
        case 2:
            return isSigned ? OC_S16 : OC_U16;
        case 4:
            return isSigned ? OC_S32 : OC_U32;
        case 8:
            return isSigned ? OC_S64 : OC_U64;
        default:
            throw "Unsupported type";
    }
}

int getOperationClass(int subtype) {
    return getOperationClass(subtype, compilerInfoInForce());
}

int unsignedSubtypeOfBits(unsigned int bits, const CompilerInfo& info) {
    const int64_t b = bits;
    if (b == info.charBits) return IT_UCHAR;
    if (b == info.shortBits) return IT_USHORT;
    if (b == info.intBits) return IT_UINT;
    if (b == info.longBits) return IT_ULONG;
    if (b == info.int64Bits) return IT_U64;
    throw "Could not locate a corresponding type";
}

int unsignedSubtypeOfBits(unsigned int bits) {
    return unsignedSubtypeOfBits(bits, compilerInfoInForce());
}

// ---------------------------------------------------------------------------
// Memory spaces.

std::string memorySpaceNameOfCode(uint32_t code) {
    uint32_t index = (code & MOD_MEMSPACE_MASK) >> 4;
    if (code != (code & MOD_MEMSPACE_MASK) ||
        index >= sizeof(kMemorySpaceNames) / sizeof(kMemorySpaceNames[0]))
        return std::string();
    return kMemorySpaceNames[index];
}

uint32_t memorySpaceCodeOfName(const std::string& name) {
    if (name.empty()) return MEMSPACE_NONE;
    // 0x30 is a second code of "data" that is only read back; a name maps
    // to the first.
    for (uint32_t index = 1; index < sizeof(kMemorySpaceNames) / sizeof(kMemorySpaceNames[0]);
         ++index)
        if (name == kMemorySpaceNames[index]) return index << 4;
    return MEMSPACE_NONE;
}

uint32_t getMemorySpaceCode(const boost::shared_ptr<link_variant>& chain) {
    return chain ? (chain->modifiers & MOD_MEMSPACE_MASK) : 0;
}

void setMemorySpaceCode(const boost::shared_ptr<link_variant>& chain, uint32_t code) {
    if (!chain) throw kMalformedChain;
    chain->modifiers =
        (chain->modifiers & ~uint32_t(MOD_MEMSPACE_MASK)) | (code & MOD_MEMSPACE_MASK);
}

std::string getMemorySpaceName(const boost::shared_ptr<link_variant>& chain) {
    return memorySpaceNameOfCode(getMemorySpaceCode(chain));
}

// ---------------------------------------------------------------------------
// Type text.

std::string getTypeText(const boost::shared_ptr<link_variant>& chain, bool withMemorySpace,
                        const CompilerInfo& info) {
    if (!chain) return "unknown type";
    std::string text;
    if (withMemorySpace) {
        std::string space = getMemorySpaceName(chain);
        if (!space.empty()) text = "{" + space + "}";
    }
    if (chain->isTypedef) return text + chain->typedefName;
    if (isFloat(chain) || isInt(chain)) {
        int subtype = chain->spec->subtype;
        if (!isValidSubtype(subtype)) return text + "unknown";
        const SubtypeRow& row = kSubtypes[subtype];
        return text + (info.compilerId == 2 && row.shortText ? row.shortText : row.text);
    }
    if (isPointer(chain)) return text + getTypeText(chain->next, withMemorySpace, info) + "*";
    if (isReference(chain)) return text + getTypeText(chain->next, withMemorySpace, info) + "&";
    if (isArray(chain))
        return text + getTypeText(chain->next, false, info) + "[" +
               std::to_string(chain->decl->numele) + "]";
    if (isFieldSpecWidth(chain))
        return text + getTypeText(chain->next, false, info) + ":" +
               std::to_string(chain->decl->getBitSize());
    if (isStruct(chain)) {
        std::string tag = chain->spec->structdef ? chain->spec->structdef->tag : std::string();
        if (tag.rfind("struct ", 0) == 0 || tag.rfind("class ", 0) == 0 ||
            tag.rfind("union ", 0) == 0)
            return text + tag;
        return text + "struct " + tag;
    }
    if (isFunction(chain))
        return text + (info.intBits == 16 ? "function(word address) " : "function ");
    if (isEnum(chain)) return text + "enum";
    if (isVoid(chain)) return text + "void";
    return text + "unknown type";
}

// ---------------------------------------------------------------------------
// Chains.

void setSubtypeFromName(const boost::shared_ptr<link_variant>& link, const std::string& name) {
    specifier& spec = specOf(link);
    // Longer names are tested before the names they contain: "long long"
    // and "long double" before "long", "long double" before "double".
    if (contains(name, "unsigned")) {
        if (contains(name, "short"))
            spec.subtype = IT_USHORT;
        else if (contains(name, "char"))
            spec.subtype = IT_UCHAR;
        else if (contains(name, "long long"))
            spec.subtype = IT_U64;
        else if (contains(name, "long"))
            spec.subtype = IT_ULONG;
        else if (contains(name, "i64"))
            spec.subtype = IT_U64;
        else if (contains(name, "int"))
            spec.subtype = IT_UINT;
        else {
            logUnknownSubtype(name);
            throw GenericError("Unknown subtype:" + name);
        }
    } else if (contains(name, "signed")) {
        if (contains(name, "short"))
            spec.subtype = IT_SSHORT;
        else if (contains(name, "char"))
            spec.subtype = IT_SCHAR;
        else if (contains(name, "long long"))
            spec.subtype = IT_S64;
        else if (contains(name, "long"))
            spec.subtype = IT_SLONG;
        else if (contains(name, "i64"))
            spec.subtype = IT_S64;
        else if (contains(name, "int"))
            spec.subtype = IT_SINT;
        else
            logUnknownSubtype(name);
    } else if (name == "_Bool" || name == "bool") {
        spec.subtype = IT_UCHAR;
        link->isTypedef = true;
        link->typedefName = "bool";
    } else if (contains(name, "short")) {
        spec.subtype = IT_SHORT;
    } else if (contains(name, "char")) {
        spec.subtype = IT_CHAR;
    } else if (contains(name, "long long")) {
        spec.subtype = IT_I64;
    } else if (contains(name, "long double")) {
        spec.subtype = FT_LONGDOUBLE;
    } else if (contains(name, "long")) {
        spec.subtype = IT_LONG;
    } else if (contains(name, "i64")) {
        spec.subtype = IT_I64;
    } else if (contains(name, "double")) {
        spec.subtype = FT_DOUBLE;
    } else if (contains(name, "float")) {
        spec.subtype = FT_FLOAT;
    } else if (contains(name, "int")) {
        spec.subtype = IT_INT;
    } else if (contains(name, "enum")) {
        spec.noun = NOUN_ENUM;
        spec.subtype = IT_INT;
    } else {
        logUnknownSubtype(name);
    }
}

boost::shared_ptr<link_variant> cloneTypeChain(const boost::shared_ptr<link_variant>& chain) {
    if (!chain) throw kMalformedChain;
    boost::shared_ptr<link_variant> head;
    boost::shared_ptr<link_variant> tail;
    for (boost::shared_ptr<link_variant> link = chain; link; link = link->next) {
        auto copy = boost::make_shared<link_variant>(*link);
        copy->next.reset();
        if (tail)
            tail->next = copy;
        else
            head = copy;
        tail = copy;
    }
    return head;
}

boost::shared_ptr<link_variant> findChainEnd(const boost::shared_ptr<link_variant>& chain) {
    boost::shared_ptr<link_variant> link = chain;
    while (link && link->next) link = link->next;
    return link;
}

uint32_t layoutFields(const boost::shared_ptr<symtab>& fields, bool sequential,
                      const CompilerInfo& info) {
    uint64_t pos = 0;
    for (boost::shared_ptr<symtab> field = fields; field; field = field->next) {
        uint64_t size = get_bit_sizeof(field->type, info);
        uint64_t place = 0;
        if (sequential) {
            uint64_t align = get_bit_alignment(field->type, info);
            place = (pos + align - 1) / align * align;
            pos = place + size;
        } else {
            pos = pos > size ? pos : size;
        }
        // The byte span the field touches, and for a bit-field the distance
        // of its top end from the top of that span.
        uint64_t spanEnd = (place + 7 + size) / 8;
        field->locofs = static_cast<int32_t>(checkedBits(place / 8));
        field->locsize = static_cast<int32_t>(checkedBits(spanEnd - place / 8));
        if (isFieldSpecWidth(field->type)) {
            uint64_t bitOffset = 8 * spanEnd - place - size;
            if (bitOffset > 65535) throw "Bitfield offset is too large";
            if (size > 128) throw "Bitfield size  is too large (128 max)";
            field->type->decl->setBitField(static_cast<unsigned int>(size),
                                           static_cast<unsigned int>(bitOffset));
        } else if (size % 8 != 0) {
            throw "Field size is not a whole number of bytes";
        }
    }
    return checkedBits(pos);
}

boost::shared_ptr<link_variant> combineSpecifiers(boost::shared_ptr<link_variant> first,
                                                  boost::shared_ptr<link_variant> second) {
    if (!first || !second) throw kMalformedChain;
    if (isModifier(first) && !isModifier(second)) std::swap(first, second);

    if (isModifier(first)) {
        if (first->modifiers == second->modifiers) throw "too many modifiers";
        uint32_t joined = first->modifiers | second->modifiers;
        if ((joined & MOD_SIGNED) && (joined & MOD_UNSIGNED))
            throw "Illegal redefinition of signedness";
        first->modifiers = joined;
        return first;
    }

    if (isModifier(second)) {
        uint32_t mods = second->modifiers;
        if (mods & MOD_REGISTER) {
            if (isDeclarator(first)) throw "Invalid register variable";
            specOf(first).sclass = SC_REGISTER;
        }
        if (mods & MOD_MEMSPACE_MASK) first->modifiers = mods;
        if (!(mods & (MOD_SIGNED | MOD_UNSIGNED)) || !first->spec) return first;
        // Only a set of exactly the signed bit makes a kind signed: a signed
        // that came joined with another qualifier reads as unsigned, which
        // is how the front end's declarations have always been taken.
        const bool onlySigned = mods == MOD_SIGNED;
        int& subtype = first->spec->subtype;
        switch (subtype) {
            case IT_CHAR:
                subtype = onlySigned ? IT_SCHAR : IT_UCHAR;
                break;
            case IT_SHORT:
                subtype = onlySigned ? IT_SSHORT : IT_USHORT;
                break;
            case IT_INT:
                subtype = onlySigned ? IT_SINT : IT_UINT;
                break;
            case IT_LONG:
                subtype = onlySigned ? IT_SLONG : IT_ULONG;
                break;
            case FT_FLOAT:
            case FT_DOUBLE:
            case FT_LONGDOUBLE:
                throw "Illegal signed/unsigned modifier for a floating point type";
            default:
                if (subtype >= IT_SCHAR && subtype <= IT_U64 && onlySigned)
                    throw "illegal syntax signed unsigned";
                break;
        }
        return first;
    }

    if (isDeclarator(first) || isDeclarator(second))
        throw "Internal cannot combine declarators in a decl";
    specifier& a = specOf(first);
    specifier& b = specOf(second);
    if (b.subtype == IT_LONG && a.subtype == FT_DOUBLE && isFloat(first)) {
        a.subtype = FT_LONGDOUBLE;
        return first;
    }
    if (isIntegral(first) != isIntegral(second))
        throw "cannot combine float and integral types in a declaration";
    if (!isIntegral(second)) throw "cannot combine types in a declaration";
    if (a.subtype == IT_INT) {
        if (b.subtype != IT_SHORT && b.subtype != IT_LONG)
            throw "cannot combine integral types in a declaration. short int, long int are the "
                  "only legal combinations";
        a.subtype = b.subtype;
    }
    if (b.sclass == SC_CONSTANT) a.val = b.val;
    if (b.noun == NOUN_STRUCT) a.structdef = b.structdef;
    return first;
}

void assembleType(const boost::shared_ptr<symtab>& list, boost::shared_ptr<link_variant> chain) {
    if (!chain) throw kMalformedChain;
    if (isModifier(chain) && !chain->next)
        chain = combineSpecifiers(makeSpecifierLink(NOUN_INT, IT_CHAR), chain);
    for (boost::shared_ptr<symtab> entry = list; entry; entry = entry->next) {
        boost::shared_ptr<link_variant> copy = cloneTypeChain(chain);
        if (entry->etype)
            entry->etype->next = copy;
        else
            entry->type = copy;
        entry->etype = findChainEnd(copy);
    }
}

void releaseSymtabList(SymtabList& list) {
    for (const boost::shared_ptr<symtab>& entry : list) {
        if (!entry) continue;
        entry->type.reset();
        entry->etype.reset();
        entry->next.reset();
    }
    list.clear();
}

// ---------------------------------------------------------------------------
// Constants.

value makeConstant(int subtype, uint64_t bits) {
    boost::shared_ptr<link_variant> link =
        makeSpecifierLink(isFloatSubtype(subtype) ? NOUN_FLOAT : NOUN_INT, subtype);
    link->spec->sclass = SC_CONSTANT;
    link->spec->val = bits;
    value result;
    result.type = link;
    result.etype = link;
    result.val = bits;
    return result;
}

value makeInt(int subtype, int32_t number) {
    return makeConstant(subtype, static_cast<uint64_t>(static_cast<int64_t>(number)));
}

value makeFloat(char kind, double number) {
    int subtype = kind == 'd' ? FT_DOUBLE : kind == 'l' ? FT_LONGDOUBLE : FT_FLOAT;
    CompilerInfo fallback;
    const CompilerInfo& info = gCompilerInfoInForce ? *gCompilerInfoInForce : fallback;
    bool isSigned;
    uint64_t bits = 0;
    if (getSubtypeSize(subtype, info, isSigned) == 4) {
        float f = static_cast<float>(number);
        uint32_t b32;
        std::memcpy(&b32, &f, sizeof b32);
        bits = b32;
    } else {
        std::memcpy(&bits, &number, sizeof bits);
    }
    return makeConstant(subtype, bits);
}
