#ifndef LIBCOMMON_EXPR_TYPECHAINS_H
#define LIBCOMMON_EXPR_TYPECHAINS_H

// The type chains of the C interpreter, the symbol entry, the target
// compiler's sizes and the result record of an expression.
//
// A type is a chain of links read from its head: a run of declarator links
// (pointer, array, function, reference, bit-field width) that ends in one
// specifier link holding the base type. `int *a[4]` is: array of 4, pointer,
// int. Links, specifiers, declarators, struct definitions and symbol entries
// are all held through shared pointers. Copying a link copies the pointers,
// not the records: a specifier changed through one chain changes in every
// copy of it, and cloneTypeChain makes new links only.
//
// Sizes are computed for the target from a CompilerInfo. The operations that
// take no CompilerInfo use the one in force: the evaluation sets it for its
// whole run, and code outside an evaluation sets it with a
// ScopedCompilerInfo. Calling them with none in force throws.
//
// Failures are thrown as plain C strings, except "Unknown subtype:" which is
// a GenericError, so that the evaluation entry points turn both into a
// status for the caller.
//
//     auto info = boost::make_shared<CompilerInfo>(CompilerInfo::tarn8());
//     ScopedCompilerInfo inForce(info);
//     auto p = makeDeclaratorLink(DECL_POINTER);
//     p->setNext(makeSpecifierLink(NOUN_INT, IT_INT));
//     get_bit_sizeof(p, *info);         // 16 on the 8-bit profile
//     getTypeText(p, false, *info);     // "int*"
//
// Nothing here is synchronised; evaluations are serialised by their lock.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <list>
#include <string>

class ILocation;
class ISymbolContext;
class SymbolAccessorApi;
struct declarator;
struct link_variant;
struct specifier;
struct structdef;
struct symtab;

// ---------------------------------------------------------------------------
// Enumerations. The numbers are part of the records' meaning.

enum LinkClass : int32_t { DECLARATOR = 0, SPECIFIER = 1, MODIFIER = 2 };

// Bits of link_variant::modifiers. Only the memory space code stays in a
// finished chain; the others live on a MODIFIER link while a declaration is
// being assembled.
enum ModifierBits : uint32_t {
    MOD_UNSIGNED = 0x001,
    MOD_SIGNED = 0x002,
    MOD_REGISTER = 0x004,
    MOD_CONST = 0x008,
    MOD_MEMSPACE_MASK = 0x0F0,
    MOD_VOLATILE = 0x100
};

// Memory space codes in the MOD_MEMSPACE_MASK field of modifiers.
enum MemorySpaceCode : uint32_t {
    MEMSPACE_NONE = 0x00,
    MEMSPACE_PROG = 0x10,
    MEMSPACE_DATA = 0x20,
    MEMSPACE_DATA_ALT = 0x30,  // only read back, also means "data"
    MEMSPACE_IO = 0x40,
    MEMSPACE_REGISTERS = 0x50,
    MEMSPACE_EEPROM = 0x60,
    MEMSPACE_FUSES = 0x70,
    MEMSPACE_LOCKBITS = 0x80,
    MEMSPACE_SIGNATURES = 0x90,
    MEMSPACE_USER_SIGNATURES = 0xA0,
    MEMSPACE_PROD_SIGNATURES = 0xB0
};

// specifier::noun. Noun 3 has no use and sizes to 0.
enum Noun : int32_t {
    NOUN_INT = 0,
    NOUN_VOID = 1,
    NOUN_STRUCT = 2,
    NOUN_UNUSED = 3,
    NOUN_FLOAT = 4,
    NOUN_ENUM = 5
};

// specifier::sclass.
enum StorageClassCode : int32_t { SC_NONE = 0, SC_REGISTER = 1, SC_CONSTANT = 3 };

// specifier::subtype: the kinds of scalar.
enum Subtype : int32_t {
    IT_CHAR = 0,
    IT_SHORT = 1,
    IT_INT = 2,
    IT_LONG = 3,
    IT_I64 = 4,
    IT_BIT = 5,
    IT_NIBBLE = 6,
    IT_LONGLONG = 7,
    IT_SCHAR = 8,
    IT_SSHORT = 9,
    IT_SINT = 10,
    IT_SLONG = 11,
    IT_S64 = 12,
    IT_UCHAR = 13,
    IT_USHORT = 14,
    IT_UINT = 15,
    IT_ULONG = 16,
    IT_U64 = 17,
    FT_FLOAT = 18,
    FT_DOUBLE = 19,
    FT_LONGDOUBLE = 20
};

// declarator::type.
enum DeclaratorType : int32_t {
    DECL_POINTER = 0,
    DECL_ARRAY = 1,
    DECL_FUNCTION = 2,
    DECL_REFERENCE = 3,
    DECL_FIELD_WIDTH = 4
};

// Operator families of getOperationClass: signed integers of 1, 2, 4, 8
// bytes, unsigned ones, float and double. 103, 108 and 110 do not occur.
enum OperationClass : int {
    OC_S8 = 100,
    OC_S16 = 101,
    OC_S32 = 102,
    OC_S64 = 104,
    OC_U8 = 105,
    OC_U16 = 106,
    OC_U32 = 107,
    OC_U64 = 109,
    OC_FLOAT = 111,
    OC_DOUBLE = 112
};

// ---------------------------------------------------------------------------
// Records.

// The target compiler's sizes, all in bits. The caller of the symbol API
// fills it in; the library only reads it.
struct CompilerInfo {
    int32_t compilerId = 0;  // 2 selects the short type texts ("byte", "word", "dword")
    int32_t charBits = 8;
    int32_t shortBits = 16;
    int32_t intBits = 32;
    int32_t longBits = 32;
    int32_t int64Bits = 64;
    int32_t bitBits = 8;
    int32_t nibbleBits = 8;
    int32_t longLongBits = 64;
    int32_t functionBits = 32;  // size of a function or code address
    int32_t reserved = 0;       // not read by the library
    int32_t floatBits = 32;
    int32_t doubleBits = 64;
    int32_t longDoubleBits = 64;
    bool charIsSigned = true;
    bool bigEndian = false;
    bool bitfieldsUnsigned = false;  // plain char/short/int bit-fields are unsigned
    int32_t pointerSubtype = IT_UINT;

    // The two profiles the library's own tests and tools use: the 8-bit
    // Tarn core (16-bit int and pointers, 32-bit double, word-addressed
    // code) and a 32-bit core.
    static CompilerInfo tarn8() {
        CompilerInfo info;
        info.intBits = 16;
        info.functionBits = 16;
        info.doubleBits = 32;
        info.longDoubleBits = 32;
        return info;
    }
    static CompilerInfo tarn32() { return CompilerInfo(); }
};

struct specifier {
    int32_t noun = NOUN_INT;
    int32_t sclass = SC_NONE;
    int32_t subtype = IT_CHAR;
    // A constant's bytes; a float constant keeps its IEEE bits here.
    uint64_t val = 0;
    boost::shared_ptr<::structdef> structdef;  // noun STRUCT
    // An enum from debug information: its constants, linked by symtab::next.
    boost::shared_ptr<symtab> enumerators;
};

struct declarator {
    int32_t type = DECL_POINTER;
    // Array: element count. Pointer: 1 marks a pointer into host memory (a
    // string literal held by the evaluator), else 0. Field width: low 16 bits
    // the width, high 16 bits the offset of the field's top end from the top
    // of its byte span.
    uint32_t numele = 0;
    boost::shared_ptr<symtab> args;  // function: parameter list

    unsigned int getBitSize() const { return numele & 0xFFFFu; }
    unsigned int getBitOffset() const { return numele >> 16; }
    void setBitField(unsigned int bitSize, unsigned int bitOffset) {
        numele = (bitSize & 0xFFFFu) | ((bitOffset & 0xFFFFu) << 16);
    }
};

struct structdef {
    std::string tag;  // "st" for an aggregate without a tag
    boost::shared_ptr<symtab> fields;
    uint32_t size = 0;  // bits
};

struct link_variant {
    int32_t linkClass = SPECIFIER;
    uint32_t modifiers = 0;
    boost::shared_ptr<specifier> spec;   // class SPECIFIER
    boost::shared_ptr<declarator> decl;  // class DECLARATOR
    boost::shared_ptr<link_variant> next;
    std::string typedefName;  // the name this chain was declared under
    bool isTypedef = false;   // the chain stands for a typedef name

    // A MODIFIER link with no bits.
    link_variant();
    // A declarator link of that type, every other field empty.
    explicit link_variant(DeclaratorType type);
    // A specifier link of that noun, subtype 0, sclass 0, val 0.
    explicit link_variant(Noun noun);

    const boost::shared_ptr<link_variant>& getNext() const { return next; }
    void setNext(const boost::shared_ptr<link_variant>& n) { next = n; }
    // Of the specifier; empty on a declarator link.
    boost::shared_ptr<::structdef> getStructdef() const;
    void setStructdef(const boost::shared_ptr<::structdef>& s);
    void setSubtype(int subtype);
    const std::string& getTypedefName() const { return typedefName; }
    void setTypedefName(const std::string& name) { typedefName = name; }
    // On the link's declarator.
    void setArgs(const boost::shared_ptr<symtab>& args);
};

struct symtab {
    std::string name;
    boost::shared_ptr<ILocation> location;  // empty for a pure type or an enumerator
    int32_t locsize = 0;  // field: bytes the field's span covers; -1 marks an unknown name
    int32_t locofs = 0;   // field: byte offset from the start of the aggregate
    // Field: an aggregate member whose fields are found as members of the
    // enclosing aggregate.
    bool isAnonymous = false;
    boost::shared_ptr<link_variant> type;   // head of the chain
    boost::shared_ptr<link_variant> etype;  // last link; declarations append here
    boost::shared_ptr<symtab> next;         // next field, parameter or declarator

    symtab() = default;
    explicit symtab(const std::string& name) : name(name) {}
    // An entry for a symbol from debug information, located in the API's
    // frame. Defined with the symbol access API.
    symtab(const boost::shared_ptr<ISymbolContext>& symbol, const SymbolAccessorApi& api);

    const boost::shared_ptr<symtab>& getNext() const { return next; }
    void setNext(const boost::shared_ptr<symtab>& n) { next = n; }
};

// The result of an expression. Copied freely; copies share the chain and
// the locations.
struct value {
    boost::shared_ptr<link_variant> type;   // empty: no type yet
    boost::shared_ptr<link_variant> etype;  // last link of the chain
    boost::shared_ptr<symtab> sym;          // the name this value came from
    // The scalar's bytes in host order, low bytes first; float kinds hold
    // their IEEE bits; an address for pointers.
    uint64_t val = 0;
    boost::shared_ptr<ILocation> target;    // pointee; for aggregates and functions the object
    boost::shared_ptr<ILocation> location;  // where this value lies on the target
    bool lvalue = false;
};

typedef std::list<boost::shared_ptr<symtab>> SymtabList;

// ---------------------------------------------------------------------------
// The CompilerInfo in force.

// Puts info in force for its lifetime and restores the previous one after.
// Scopes nest; they are not synchronised (one evaluation at a time).
class ScopedCompilerInfo {
public:
    explicit ScopedCompilerInfo(boost::shared_ptr<CompilerInfo> info);
    ~ScopedCompilerInfo();
    ScopedCompilerInfo(const ScopedCompilerInfo&) = delete;
    ScopedCompilerInfo& operator=(const ScopedCompilerInfo&) = delete;

private:
    boost::shared_ptr<CompilerInfo> previous;
};

// Empty when none is in force.
boost::shared_ptr<CompilerInfo> getCompilerInfoInForce();
// Throws "No compiler information in force" when none is.
const CompilerInfo& compilerInfoInForce();

// ---------------------------------------------------------------------------
// Making links.

boost::shared_ptr<link_variant> makeDeclaratorLink(DeclaratorType type, uint32_t numele = 0);
boost::shared_ptr<link_variant> makeSpecifierLink(Noun noun, int subtype = IT_CHAR);
boost::shared_ptr<link_variant> makeModifierLink(uint32_t modifiers);

// ---------------------------------------------------------------------------
// Predicates on a link; all false for an empty pointer.

bool isDeclarator(const boost::shared_ptr<link_variant>& link);
bool isSpecifier(const boost::shared_ptr<link_variant>& link);
bool isModifier(const boost::shared_ptr<link_variant>& link);
bool isPointer(const boost::shared_ptr<link_variant>& link);
bool isNativePointer(const boost::shared_ptr<link_variant>& link);
bool isArray(const boost::shared_ptr<link_variant>& link);
bool isFunction(const boost::shared_ptr<link_variant>& link);
bool isReference(const boost::shared_ptr<link_variant>& link);
bool isFieldSpecWidth(const boost::shared_ptr<link_variant>& link);
bool isAggregate(const boost::shared_ptr<link_variant>& link);
bool isStruct(const boost::shared_ptr<link_variant>& link);
bool isInt(const boost::shared_ptr<link_variant>& link);
bool isEnum(const boost::shared_ptr<link_variant>& link);
bool isIntegral(const boost::shared_ptr<link_variant>& link);
bool isFloat(const boost::shared_ptr<link_variant>& link);
bool isVoid(const boost::shared_ptr<link_variant>& link);
bool isConstant(const boost::shared_ptr<link_variant>& link);

// ---------------------------------------------------------------------------
// Sizes, kinds and texts.

// Size in bits. Throws "get_bit_sizeof - Illegal type" for an unknown noun,
// "get_bit_sizeof - decl - Unknown type" for an unknown declarator and
// "Malformed type chain" for an empty link or a declarator without a next.
uint32_t get_bit_sizeof(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info);
// Alignment in bits: an array like its element, a field width to 1 bit,
// anything else to its own size (so a struct member aligns to the whole
// struct). A size of 0 throws
// "INTERNAL, get_bit_alignment: Object aligned on zero boundary\n".
uint32_t get_bit_alignment(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info);
// Size of a subtype in bytes, and whether it is signed. A number outside
// the subtypes throws "Unknown subtype number".
unsigned int getSubtypeSize(int subtype, const CompilerInfo& info, bool& isSigned);
// The subtype after the usual integer promotion.
int promoteSubtype(int subtype, const CompilerInfo& info);
int promoteSubtype(int subtype);
// Pointer, array and function take part as pointerSubtype, anything else
// as its specifier's subtype.
int getArithmeticSubtype(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info);
int getArithmeticSubtype(const boost::shared_ptr<link_variant>& link);
// The OperationClass of a subtype. Throws "Unsupported type" for an integer
// size and "Invalid floating point length" for a float size that has no
// family.
int getOperationClass(int subtype, const CompilerInfo& info);
int getOperationClass(int subtype);
// The unsigned subtype of that many bits; "Could not locate a corresponding
// type" when there is none.
int unsignedSubtypeOfBits(unsigned int bits, const CompilerInfo& info);
int unsignedSubtypeOfBits(unsigned int bits);
// The C text of a type; with withMemorySpace the head's memory space leads
// as "{name}".
std::string getTypeText(const boost::shared_ptr<link_variant>& chain, bool withMemorySpace,
                        const CompilerInfo& info);

// ---------------------------------------------------------------------------
// Memory spaces.

// The address-space name of a code ("prog", "data", ...), empty for 0 and
// unknown codes.
std::string memorySpaceNameOfCode(uint32_t code);
// The code of an address-space name, MEMSPACE_NONE for any other name.
uint32_t memorySpaceCodeOfName(const std::string& name);
// The code in the modifiers of the head link, 0 for an empty chain.
uint32_t getMemorySpaceCode(const boost::shared_ptr<link_variant>& chain);
// Replaces the code in the head link's modifiers, keeping the other bits.
void setMemorySpaceCode(const boost::shared_ptr<link_variant>& chain, uint32_t code);
// Name of the memory space of the head link, empty when the code is 0.
std::string getMemorySpaceName(const boost::shared_ptr<link_variant>& chain);

// ---------------------------------------------------------------------------
// Chains.

// Sets subtype (and noun for an enum) of a specifier link from the name of
// a base type as debug information spells it, by substring search.
void setSubtypeFromName(const boost::shared_ptr<link_variant>& link, const std::string& name);
// New links sharing the specifiers and declarators; "Malformed type chain"
// for an empty chain.
boost::shared_ptr<link_variant> cloneTypeChain(const boost::shared_ptr<link_variant>& chain);
// The last link, empty for an empty chain.
boost::shared_ptr<link_variant> findChainEnd(const boost::shared_ptr<link_variant>& chain);

// Places the fields of an aggregate and gives its size in bits (no padding
// at the end). sequential lays a struct out field after field; otherwise
// (a union) every field starts at bit 0. Sets locofs, locsize and the
// bit-field numbers of every field.
uint32_t layoutFields(const boost::shared_ptr<symtab>& fields, bool sequential,
                      const CompilerInfo& info);

// Joins two links of a declaration's specifier list into one; a MODIFIER
// link goes second. Throws the declaration errors as texts.
boost::shared_ptr<link_variant> combineSpecifiers(boost::shared_ptr<link_variant> first,
                                                  boost::shared_ptr<link_variant> second);
// Hangs a copy of the specifier chain behind the end of each entry of the
// list (linked by symtab::next). A lone MODIFIER link is first combined
// with a plain char, so "unsigned" alone means unsigned char.
void assembleType(const boost::shared_ptr<symtab>& list, boost::shared_ptr<link_variant> chain);

// Drops the chains of every entry of the list and empties it. A struct
// that points to itself (struct Node { struct Node *next; }) is a cycle of
// shared pointers: its specifier owns the member entries, whose chains lead
// back to that specifier. Such structs are kept by the member entries in a
// types list (see createLinkVariantFromISymbolContext); whoever drops that
// list for good releases them with this call. Chains still in use by other
// entries lose their members.
void releaseSymtabList(SymtabList& list);

// ---------------------------------------------------------------------------
// Constants.

// A constant value of a new specifier link (noun FLOAT for the FT kinds,
// else INT; sclass constant; val in the specifier and the value).
value makeConstant(int subtype, uint64_t bits);
// makeConstant with the number sign-extended.
value makeInt(int subtype, int32_t number);
// A float constant: kind 'd' double, 'l' long double, anything else float.
// The bits are those of the kind's size in the CompilerInfo in force (a
// 32-bit double keeps float bits), double bits when none is in force.
value makeFloat(char kind, double number);

#endif
