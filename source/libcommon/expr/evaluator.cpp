#include "libcommon/expr/evaluator.h"

#include "libcommon/core/status.h"
#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/symbolaccess.h"
#include "libcommon/ilocation.h"

#include <boost/make_shared.hpp>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

// ---------------------------------------------------------------------------
// What an operation takes from the API.

// The target's sizes come from the API. Unit code may call an operation
// with an empty API; promotions and operation classes then use the
// CompilerInfo in force (ScopedCompilerInfo), which throws if there is none.
const CompilerInfo& infoOf(const SymbolApiPtr& api) {
    if (api && api->getCompilerInfo()) return *api->getCompilerInfo();
    return compilerInfoInForce();
}

// Pointer targets are made in the API's frame. Without an API they have no
// frame, so they can be described but not read.
boost::shared_ptr<IStackTraceContext> frameOf(const SymbolApiPtr& api) {
    return api ? api->getStackTrace() : boost::shared_ptr<IStackTraceContext>();
}

// The format suffix is kept by the API for evalExpression to hand back;
// without an API there is nobody to hand it to.
void storeFormatString(const SymbolApiPtr& api, const std::string& text) {
    if (api) api->setFormatString(text);
}

// ---------------------------------------------------------------------------
// Bits and kinds.

struct Kind {
    int opClass;
    unsigned int size;  // bytes
    bool isSigned;
    bool isFloat;
};

Kind kindOf(int subtype, const CompilerInfo& info) {
    Kind kind;
    kind.opClass = getOperationClass(subtype, info);
    kind.isFloat = kind.opClass == OC_FLOAT || kind.opClass == OC_DOUBLE;
    kind.size = kind.isFloat ? (kind.opClass == OC_FLOAT ? 4 : 8)
                             : getSubtypeSize(subtype, info, kind.isSigned);
    if (kind.isFloat) kind.isSigned = true;
    return kind;
}

uint64_t sizeMask(unsigned int size) {
    return size >= 8 ? ~uint64_t(0) : (uint64_t(1) << (8 * size)) - 1;
}

// Bits of an integer of that size, extended to 64 bits by its signedness:
// the representation of every integer result.
uint64_t normalize(uint64_t bits, unsigned int size, bool isSigned) {
    bits &= sizeMask(size);
    if (isSigned && size < 8 && (bits >> (8 * size - 1)) & 1) bits |= ~sizeMask(size);
    return bits;
}

int64_t asSigned(uint64_t bits) {
    int64_t s;
    std::memcpy(&s, &bits, sizeof s);
    return s;
}

double floatOf(uint64_t bits, const Kind& kind) {
    if (kind.opClass == OC_FLOAT) {
        uint32_t b32 = static_cast<uint32_t>(bits);
        float f;
        std::memcpy(&f, &b32, sizeof f);
        return f;
    }
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

uint64_t bitsOf(double d, const Kind& kind) {
    if (kind.opClass == OC_FLOAT) {
        float f = static_cast<float>(d);
        uint32_t b32;
        std::memcpy(&b32, &f, sizeof b32);
        return b32;
    }
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}

// A float to an integer, truncating towards zero. C leaves values outside
// the integer's range undefined; here they go through the unsigned integer
// of the same width when they fit it (so (unsigned)3e9 works) and saturate
// otherwise, and NaN gives 0.
uint64_t floatToInteger(double d, bool wide) {
    if (std::isnan(d)) return 0;
    d = std::trunc(d);
    if (wide) {
        if (d >= -9223372036854775808.0 && d < 9223372036854775808.0)
            return static_cast<uint64_t>(static_cast<int64_t>(d));
        if (d >= 0 && d < 18446744073709551616.0) return static_cast<uint64_t>(d);
        return d < 0 ? uint64_t(1) << 63 : ~uint64_t(0);
    }
    if (d >= -2147483648.0 && d < 2147483648.0)
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(d)));
    if (d >= 0 && d < 4294967296.0) return static_cast<uint32_t>(d);
    return d < 0 ? uint64_t(0x80000000u) : uint64_t(0xFFFFFFFFu);
}

uint64_t convertBits(const CompilerInfo& info, int targetSubtype, uint64_t bits,
                     int sourceSubtype) {
    const Kind from = kindOf(sourceSubtype, info);
    const Kind to = kindOf(targetSubtype, info);
    if (from.isFloat) {
        double d = floatOf(bits, from);
        if (to.isFloat) return bitsOf(d, to);
        return normalize(floatToInteger(d, to.size == 8), to.size, to.isSigned);
    }
    uint64_t n = normalize(bits, from.size, from.isSigned);
    if (to.isFloat)
        return bitsOf(from.isSigned ? static_cast<double>(asSigned(n)) : static_cast<double>(n),
                      to);
    return normalize(n, to.size, to.isSigned);
}

value floatConstant(const CompilerInfo& info, int subtype, double d) {
    return makeConstant(subtype, bitsOf(d, kindOf(subtype, info)));
}

// ---------------------------------------------------------------------------
// Chains.

void setChain(value& v, const boost::shared_ptr<link_variant>& chain) {
    v.type = chain;
    v.etype = findChainEnd(chain);
}

bool isPointerLike(const boost::shared_ptr<link_variant>& link) {
    return isPointer(link) || isArray(link) || isFunction(link);
}

uint32_t byteSize(const boost::shared_ptr<link_variant>& link, const CompilerInfo& info) {
    return get_bit_sizeof(link, info) / 8;
}

// The size a pointer steps by: its pointee's, 1 for code.
uint32_t elementSize(const boost::shared_ptr<link_variant>& pointer, const CompilerInfo& info) {
    if (isFunction(pointer) || isFunction(pointer->next) || !pointer->next) return 1;
    return byteSize(pointer->next, info);
}

std::string pointeeSpace(const boost::shared_ptr<link_variant>& pointer) {
    std::string space = getMemorySpaceName(pointer ? pointer->next : pointer);
    return space.empty() ? "data" : space;
}

// The same memory code on a copy of the head, so that the chains the value
// shares with others keep theirs.
void setHeadSpace(value& v, uint32_t code) {
    if (!v.type || getMemorySpaceCode(v.type) == code) return;
    auto head = boost::make_shared<link_variant>(*v.type);
    setMemorySpaceCode(head, code);
    if (v.etype == v.type) v.etype = head;
    v.type = head;
}

int offsetOrThrow(int64_t offset) {
    if (offset < std::numeric_limits<int>::min() || offset > std::numeric_limits<int>::max())
        throw "Offset outside the address space";
    return static_cast<int>(offset);
}

boost::shared_ptr<ILocation> targetOrThrow(const value& v) {
    if (!v.target) throw "Pointer has no target";
    return v.target;
}

bool isUnresolved(const value& v) {
    return v.sym && v.sym->locsize == -1;
}

// ---------------------------------------------------------------------------
// Bit-fields. The field's bits are counted from the top of its byte span:
// bitOffset is the distance of the field's top end from the span's top.

struct BitField {
    int subtype;
    Kind kind;
    unsigned int bytes;
    unsigned int shift;
    unsigned int width;
};

BitField bitFieldOf(const value& v, const CompilerInfo& info) {
    BitField field;
    boost::shared_ptr<link_variant> base = findChainEnd(v.type);
    if (!base || !base->spec) throw "Malformed type chain";
    int subtype = base->spec->subtype;
    switch (subtype) {
        case IT_CHAR:
            subtype = info.bitfieldsUnsigned ? IT_UCHAR : IT_SCHAR;
            break;
        case IT_SHORT:
            subtype = info.bitfieldsUnsigned ? IT_USHORT : IT_SSHORT;
            break;
        case IT_INT:
            subtype = info.bitfieldsUnsigned ? IT_UINT : IT_SINT;
            break;
        default:
            break;
    }
    subtype = promoteSubtype(subtype, info);
    if (!v.location) throw "Value has no location";
    const int bitOffset = v.location->getBitOffset();
    const int bitSize = v.location->getBitSize();
    const int bytes = v.location->getByteSize();
    if (bitOffset < 0 || bitSize < 0 || bitOffset + bitSize > 64 || bytes > 8 ||
        8 * bytes < bitOffset + bitSize)
        throw "Bitfield too wide";
    bool isSigned;
    while (static_cast<unsigned int>(bitSize) > 8 * getSubtypeSize(subtype, info, isSigned)) {
        switch (subtype) {
            // Promotion makes a long IT_SLONG; it widens like IT_LONG.
            case IT_LONG:
            case IT_SLONG:
                subtype = IT_S64;
                break;
            case IT_SINT:
                subtype = IT_SLONG;
                break;
            case IT_UINT:
                subtype = IT_ULONG;
                break;
            case IT_ULONG:
                subtype = IT_U64;
                break;
            default:
                throw "Bitfield too wide for base type";
        }
    }
    field.subtype = subtype;
    field.kind = kindOf(subtype, info);
    field.bytes = static_cast<unsigned int>(bytes);
    field.width = static_cast<unsigned int>(bitSize);
    field.shift = static_cast<unsigned int>(8 * bytes - bitOffset - bitSize);
    return field;
}

uint64_t gather(const std::vector<unsigned char>& bytes, bool bigEndian) {
    uint64_t n = 0;
    for (size_t i = 0; i < bytes.size() && i < 8; ++i)
        n |= uint64_t(bytes[i]) << (8 * (bigEndian ? bytes.size() - 1 - i : i));
    return n;
}

std::vector<unsigned char> scatter(uint64_t n, size_t size, bool bigEndian) {
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size && i < 8; ++i)
        bytes[i] = static_cast<unsigned char>(n >> (8 * (bigEndian ? size - 1 - i : i)));
    return bytes;
}

uint64_t widthMask(unsigned int width) {
    return width >= 64 ? ~uint64_t(0) : (uint64_t(1) << width) - 1;
}

value readBitField(const value& v, const CompilerInfo& info) {
    BitField field = bitFieldOf(v, info);
    std::vector<unsigned char> bytes;
    v.location->readContent(bytes);
    uint64_t bits = (gather(bytes, info.bigEndian) >> field.shift) & widthMask(field.width);
    if (field.kind.isSigned && field.width > 0 && field.width < 64 &&
        (bits >> (field.width - 1)) & 1)
        bits |= ~widthMask(field.width);
    value result =
        makeConstant(field.subtype, normalize(bits, field.kind.size, field.kind.isSigned));
    result.type->isTypedef = true;
    result.type->typedefName = getTypeText(v.type, false, info);
    result.sym = v.sym;
    result.location = v.location;
    result.lvalue = true;
    return result;
}

void writeBitField(const value& left, const value& source, const CompilerInfo& info) {
    BitField field = bitFieldOf(left, info);
    uint64_t bits =
        convertBits(info, field.subtype, source.val, getArithmeticSubtype(source.type, info));
    bits = (bits & widthMask(field.width)) << field.shift;
    const uint64_t mask = widthMask(field.width) << field.shift;
    std::vector<unsigned char> bytes;
    left.location->readContent(bytes);
    uint64_t word = (gather(bytes, info.bigEndian) & ~mask) | bits;
    left.location->writeContent(scatter(word, bytes.size(), info.bigEndian));
}

// ---------------------------------------------------------------------------
// Operator families.

bool compareTyped(const std::string& op, const Kind& kind, uint64_t a, uint64_t b) {
    const char second = op.size() > 1 ? op[1] : '\0';
    auto decide = [&](auto x, auto y) {
        switch (op[0]) {
            case '!':
                if (second == '=') return x != y;
                break;
            case '=':
                if (second == '=') return x == y;
                break;
            case '<':
                return second == '=' ? x <= y : x < y;
            case '>':
                return second == '=' ? x >= y : x > y;
            default:
                break;
        }
        throw "INTERNAL : Unknown comparison operation";
    };
    if (op.empty()) throw "INTERNAL : Unknown comparison operation";
    if (kind.isFloat) return decide(floatOf(a, kind), floatOf(b, kind));
    if (kind.isSigned)
        return decide(asSigned(normalize(a, kind.size, true)),
                      asSigned(normalize(b, kind.size, true)));
    return decide(normalize(a, kind.size, false), normalize(b, kind.size, false));
}

// Integer arithmetic at the class's width, in two's complement: every
// operation is done on unsigned 64-bit numbers and cut to the width, so
// overflow wraps as on the target and never reaches undefined host
// behaviour.
uint64_t integerArithmetic(char op, const Kind& kind, uint64_t a, uint64_t b) {
    a = normalize(a, kind.size, kind.isSigned);
    b = normalize(b, kind.size, kind.isSigned);
    const bool wide = kind.size == 8;
    uint64_t r;
    switch (op) {
        case '+':
            r = a + b;
            break;
        case '-':
            r = a - b;
            break;
        case '*':
            r = a * b;
            break;
        case '/':
        case '%': {
            if (b == 0) throw op == '/' ? "Illegal: Division by 0" : "Illegal: Modulo 0";
            if (!kind.isSigned) {
                r = op == '/' ? a / b : a % b;
                break;
            }
            const int64_t x = asSigned(a);
            const int64_t y = asSigned(b);
            // The most negative number divided by -1 wraps to itself.
            if (y == -1)
                r = op == '/' ? uint64_t(0) - a : 0;
            else
                r = static_cast<uint64_t>(op == '/' ? x / y : x % y);
            break;
        }
        case '&':
            r = a & b;
            break;
        case '|':
            r = a | b;
            break;
        case '^':
            r = a ^ b;
            break;
        case '<':
        case '>': {
            // Up to 32 bits the count is taken modulo 32; 64-bit classes use
            // its low 8 bits, and from 64 on everything is shifted out.
            const unsigned int count =
                wide ? static_cast<unsigned int>(b & 0xFF) : static_cast<unsigned int>(b & 31);
            if (op == '<') {
                r = count >= 64 ? 0 : a << count;
            } else if (kind.isSigned && asSigned(a) < 0) {
                r = count >= 64 ? ~uint64_t(0) : ~(~a >> count);
            } else {
                r = count >= 64 ? 0 : a >> count;
            }
            break;
        }
        case ',':
            r = b;
            break;
        default:
            throw "INTERNAL : Unknown integral operation";
    }
    return normalize(r, kind.size, kind.isSigned);
}

// Floats compute in double and round to the class. Division by zero gives
// the IEEE result, built here rather than left to the host's division.
uint64_t floatArithmetic(char op, const Kind& kind, uint64_t a, uint64_t b) {
    const double x = floatOf(a, kind);
    const double y = floatOf(b, kind);
    double r;
    switch (op) {
        case '+':
            r = x + y;
            break;
        case '-':
            r = x - y;
            break;
        case '*':
            r = x * y;
            break;
        case '/':
            if (y == 0) {
                if (x == 0 || std::isnan(x))
                    r = std::numeric_limits<double>::quiet_NaN();
                else
                    r = (std::signbit(x) != std::signbit(y) ? -1 : 1) *
                        std::numeric_limits<double>::infinity();
            } else {
                r = x / y;
            }
            break;
        case ',':
            r = y;
            break;
        default:
            throw "INTERNAL : Unknown floating point operation";
    }
    return bitsOf(r, kind);
}

// The space a format suffix names, or empty for a name that keeps it.
std::string formatSpace(const std::string& name) {
    if (name == "program" || name == "prog" || name == "flash") return "prog";
    if (name == "data" || name == "io" || name == "eeprom") return name;
    if (name == "registers" || name == "reg") return "registers";
    if (name == "fusebytes") return "fuses";
    if (name == "lockbytes") return "lockbits";
    if (name == "signature") return "signatures";
    if (name == "usersign") return "user_signatures";
    if (name == "prodsign") return "prod_signatures";
    return std::string();
}

boost::shared_ptr<ILocation> relocated(const boost::shared_ptr<ILocation>& location,
                                       const std::string& space, const SymbolApiPtr& api) {
    if (!location) return location;
    return createAbsoluteLocation(frameOf(api), space, location->getAbsoluteAddress(),
                                  static_cast<unsigned int>(location->getByteSize()), 0, 0);
}

value formatSuffix(const SymbolApiPtr& api, value left, const std::string& name) {
    storeFormatString(api, name);
    const std::string space = formatSpace(name);
    if (space.empty()) return left;
    const uint32_t code = memorySpaceCodeOfName(space);
    if (!left.type || code == getMemorySpaceCode(left.type)) return left;
    left.location = relocated(left.location, space, api);
    left.target = relocated(left.target, space, api);
    setHeadSpace(left, code);
    return left;
}

value pointerArithmetic(const SymbolApiPtr& api, const std::string& op, value pointer,
                        const value& integer, const CompilerInfo& info) {
    const int64_t n = valueToInt(integer, api);
    const uint32_t size = elementSize(pointer.type, info);
    const int64_t sign = op[0] == '-' ? -1 : 1;
    value result;
    setChain(result, cloneTypeChain(pointer.type));
    result.location = targetOrThrow(pointer)->createAtOffset(
        offsetOrThrow(n * int64_t(size) * sign), size, 0, size * 8);
    result.target = result.location;
    return result;
}

value arrayView(const SymbolApiPtr& api, const value& pointer, const value& count,
                const CompilerInfo& info) {
    const int32_t n = valueToInt(count, api);
    if (n < 0) throw "Array view needs a count of 0 or more";
    const uint32_t size = elementSize(pointer.type, info);
    boost::shared_ptr<link_variant> array = makeDeclaratorLink(DECL_ARRAY, uint32_t(n));
    array->next = pointer.type->next ? cloneTypeChain(pointer.type->next) : nullptr;
    value result;
    setChain(result, array);
    result.val = pointer.val;
    const uint64_t total = uint64_t(n) * size;
    if (total > 0xFFFFFFFFu) throw "Type too large";
    result.location =
        targetOrThrow(pointer)->createAtOffset(0, static_cast<unsigned int>(total), 0, 0);
    result.target = result.location;
    return result;
}

boost::shared_ptr<symtab> findField(const boost::shared_ptr<symtab>& fields,
                                    const std::string& name, int64_t& offset) {
    for (boost::shared_ptr<symtab> field = fields; field; field = field->next) {
        if (field->name == name) {
            offset += field->locofs;
            return field;
        }
        if (field->isAnonymous && field->type) {
            boost::shared_ptr<structdef> def = findChainEnd(field->type)->getStructdef();
            int64_t inner = offset + field->locofs;
            boost::shared_ptr<symtab> found = def ? findField(def->fields, name, inner) : nullptr;
            if (found) {
                offset = inner;
                return found;
            }
        }
    }
    return boost::shared_ptr<symtab>();
}

}  // namespace

// ---------------------------------------------------------------------------
// Reading values.

int usualArithmeticSubtype(int ct1, int ct2) {
    auto either = [&](int s) { return ct1 == s || ct2 == s; };
    auto unsignedWide = [](int s) { return s == IT_UINT || s == IT_ULONG || s == IT_U64; };
    if (either(FT_LONGDOUBLE)) return FT_LONGDOUBLE;
    if (either(FT_DOUBLE)) return FT_DOUBLE;
    if (either(FT_FLOAT)) return FT_FLOAT;
    if ((ct1 == IT_S64 && unsignedWide(ct2)) || (ct2 == IT_S64 && unsignedWide(ct1))) return IT_U64;
    if (either(IT_S64)) return IT_S64;
    if ((ct1 == IT_SLONG && unsignedWide(ct2)) || (ct2 == IT_SLONG && unsignedWide(ct1)) ||
        either(IT_ULONG))
        return IT_ULONG;
    // A signed long makes the computation "long", not "signed long": the
    // two have the same size and arithmetic.
    if (either(IT_SLONG)) return IT_LONG;
    if (either(IT_UINT)) return IT_UINT;
    // The rules above leave out the 64-bit kinds without a sign mark: an
    // unsigned 64-bit operand makes the computation unsigned 64-bit, a long
    // long one signed 64-bit.
    if (either(IT_U64)) return IT_U64;
    if (either(IT_LONGLONG)) return IT_LONGLONG;
    return IT_SINT;
}

uint64_t convertScalar(const SymbolApiPtr& api, int targetSubtype, uint64_t sourceBits,
                       int sourceSubtype) {
    return convertBits(infoOf(api), targetSubtype, sourceBits, sourceSubtype);
}

value fetchValue(const value& v, const SymbolApiPtr& api) {
    value result = v;
    if (isConstant(v.type)) {
        result.val = v.type->spec->val;
        return result;
    }
    if (isUnresolved(v)) throw "Could not resolve name";
    if (!v.type) throw "Value has no type";
    const CompilerInfo& info = infoOf(api);
    const boost::shared_ptr<link_variant>& head = v.type;

    if (isFunction(head) || isPointer(head) || isArray(head) || isReference(head)) {
        if (isNativePointer(head)) throw "String literals not supported";
        if (v.location) result.val = v.location->getAbsoluteAddress();
    }
    if (!v.lvalue) return result;
    if (isFieldSpecWidth(head)) return readBitField(v, info);
    if (isArray(head) || isStruct(head) || isFunction(head)) {
        result.target = v.location;
        return result;
    }

    if (!v.location) throw "Value has no location";
    const int n = v.location->getByteSize();
    if (n > 8) throw "Variable content is too large";
    std::vector<unsigned char> bytes;
    v.location->readContent(bytes);
    bytes.resize(static_cast<size_t>(n));
    result.val = gather(bytes, info.bigEndian);

    if (isPointer(head) || isReference(head)) {
        const uint32_t size =
            head->next && !isFunction(head->next) ? byteSize(head->next, info) : 1;
        boost::shared_ptr<ILocation> target =
            createAbsoluteLocation(frameOf(api), pointeeSpace(head), result.val, size, 0, 0);
        if (isPointer(head)) {
            result.target = target;
            return result;
        }
        // A reference reads as the object it refers to; the chain keeps the
        // referring type's text in its typedef name.
        value referent;
        boost::shared_ptr<link_variant> chain = cloneTypeChain(head->next);
        chain->typedefName = getTypeText(head, false, info);
        setChain(referent, chain);
        referent.sym = v.sym;
        referent.location = target;
        referent.lvalue = true;
        return fetchValue(referent, api);
    }
    return result;
}

bool valueToBool(const value& v, const SymbolApiPtr& api) {
    if (!v.type && !isUnresolved(v)) throw "Invalid condition";
    value f = fetchValue(v, api);
    const CompilerInfo& info = infoOf(api);
    if (isFloat(f.type))
        return floatOf(convertBits(info, FT_FLOAT, f.val, f.type->spec->subtype),
                       kindOf(FT_FLOAT, info)) != 0;
    if (isIntegral(f.type)) return convertBits(info, IT_S64, f.val, f.type->spec->subtype) != 0;
    // A fetched pointer always has a target, also at address 0: a pointer
    // is true whatever its address, which is what the front end has always
    // shown.
    if (isPointer(f.type)) return static_cast<bool>(f.target);
    throw "type cannot be used as bool";
}

int32_t valueToInt(const value& v, const SymbolApiPtr& api) {
    value f = fetchValue(v, api);
    if (!isIntegral(f.type)) throw "Expected an integral expression";
    const CompilerInfo& info = infoOf(api);
    return static_cast<int32_t>(convertBits(info, IT_SINT, f.val, f.type->spec->subtype));
}

double valueToDouble(const value& v, const SymbolApiPtr& api) {
    value f = fetchValue(v, api);
    if (!isIntegral(f.type) && !isFloat(f.type)) throw "Expected an floating point expression";
    const CompilerInfo& info = infoOf(api);
    return floatOf(convertBits(info, FT_DOUBLE, f.val, f.type->spec->subtype),
                   kindOf(FT_DOUBLE, info));
}

// ---------------------------------------------------------------------------
// Operators.

value exec_binary_operation(const SymbolApiPtr& api, const std::string& op, value left, value right,
                            bool comparison) {
    if (op.empty()) throw "INTERNAL : Unknown integral operation";
    left = fetchValue(left, api);
    if (right.sym && op[0] == ',') return formatSuffix(api, left, right.sym->name);
    if (!left.type || !right.type) throw "Binary operation has at least one undefined operand";
    if (isStruct(left.type) || isStruct(right.type)) throw "Binop not allowed on struct objects";
    right = fetchValue(right, api);
    const CompilerInfo& info = infoOf(api);

    const bool lp = isPointerLike(left.type);
    const bool rp = isPointerLike(right.type);
    int subtype;
    uint64_t a = left.val;
    uint64_t b = right.val;
    if (!lp && !rp) {
        const int ls = getArithmeticSubtype(left.type, info);
        const int rs = getArithmeticSubtype(right.type, info);
        subtype = usualArithmeticSubtype(promoteSubtype(ls, info), promoteSubtype(rs, info));
        a = convertBits(info, subtype, a, ls);
        b = convertBits(info, subtype, b, rs);
    } else {
        subtype = info.pointerSubtype;
        if (!lp) a = convertBits(info, subtype, a, getArithmeticSubtype(left.type, info));
        if (!rp) b = convertBits(info, subtype, b, getArithmeticSubtype(right.type, info));
    }
    const Kind kind = kindOf(subtype, info);

    if (lp && rp) {
        // Two pointers compare as signed 64-bit addresses, whatever the
        // pointer kind.
        if (comparison)
            return makeInt(IT_SINT, compareTyped(op, kindOf(IT_S64, info), a, b) ? 1 : 0);
        if (op == "-") {
            const uint32_t size = elementSize(left.type, info);
            if (size != elementSize(right.type, info))
                throw "Pointers in difference point to different types";
            // The difference of the low 32 bits, divided unsigned: the
            // front end's long-standing result. A pointee without size
            // (void) counts in bytes.
            const uint32_t diff = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
            return makeInt(IT_S64, static_cast<int32_t>(diff / (size ? size : 1)));
        }
    } else if (lp != rp && !comparison && (op[0] == '+' || op[0] == '-')) {
        // The integer on the left is swapped over, so "1 - p" steps p back.
        return lp ? pointerArithmetic(api, op, left, right, info)
                  : pointerArithmetic(api, op, right, left, info);
    } else if (lp && !rp && op == ",") {
        return arrayView(api, left, right, info);
    }

    if (comparison) return makeInt(IT_SINT, compareTyped(op, kind, a, b) ? 1 : 0);
    return makeConstant(subtype, kind.isFloat ? floatArithmetic(op[0], kind, a, b)
                                              : integerArithmetic(op[0], kind, a, b));
}

value exec_logical_operation(const SymbolApiPtr& api, const std::string& op, value left,
                             value right) {
    if (!left.type || !right.type) throw "at least one undefined operand in logical op";
    // Both sides were evaluated before the operator runs: && and || do not
    // short-circuit, so a failing right side fails the expression.
    if (!op.empty() && (op[0] == '|' || op[0] == '&')) {
        const bool a = valueToBool(left, api);
        const bool b = valueToBool(right, api);
        return makeInt(IT_SINT, (op[0] == '|' ? (a || b) : (a && b)) ? 1 : 0);
    }
    return exec_binary_operation(api, op, left, right, true);
}

value exec_assignment(const SymbolApiPtr& api, char op, value left, value right) {
    if (!left.type || !right.type) throw "assignment has at least one undefined operand";
    if (!left.lvalue) throw "assignee is not an l-value";
    if (isArray(left.type) || isStruct(left.type) || isFunction(left.type))
        throw "assignment is only allowed to scalar types";
    value source =
        op == '=' ? right : exec_binary_operation(api, std::string(1, op), left, right, false);
    source = fetchValue(source, api);
    if (isReference(left.type)) left = fetchValue(left, api);
    const CompilerInfo& info = infoOf(api);
    if (isFloat(left.type) && isPointerLike(source.type))
        throw "assignment source is a pointer and cannot be converted floating "
          "point";
    if (isFieldSpecWidth(left.type)) {
        writeBitField(left, source, info);
        return left;
    }
    if (!left.location) throw "Value has no location";
    const int leftSubtype = getArithmeticSubtype(left.type, info);
    const uint64_t bits =
        convertBits(info, leftSubtype, source.val, getArithmeticSubtype(source.type, info));
    bool isSigned;
    const unsigned int size = getSubtypeSize(leftSubtype, info, isSigned);
    left.location->writeContent(scatter(bits, size, info.bigEndian));
    return left;
}

value exec_access(const SymbolApiPtr& api, int code, value left, value right) {
    const CompilerInfo& info = infoOf(api);
    if (code == OP_INDEX || code == OP_DEREFERENCE) {
        if (!left.type || !right.type) throw "indexing has at least one undefined operand";
        const int64_t index = code == OP_INDEX ? valueToInt(right, api) : 0;
        left = fetchValue(left, api);
        if (!isArray(left.type) && !isPointer(left.type)) throw "cannot index into a non pointer";
        const uint32_t size = left.type->next ? byteSize(left.type->next, info) : 0;
        value result;
        setChain(result, cloneTypeChain(left.type->next));
        result.location = targetOrThrow(left)->createAtOffset(offsetOrThrow(index * int64_t(size)),
                                                              size, 0, size * 8);
        result.lvalue = true;
        // Where the head carries a space (an array in eeprom), its elements
        // are in it too; a plain head leaves the pointee's own space.
        if (getMemorySpaceCode(left.type)) setHeadSpace(result, getMemorySpaceCode(left.type));
        return result;
    }
    if (code != OP_DOT && code != OP_ARROW) throw "unknown operation";

    if (!left.type) throw "Left of dot operand is an undefined composite object";
    left = fetchValue(left, api);
    boost::shared_ptr<link_variant> composite = left.type;
    if (code == OP_ARROW) {
        if (!isPointer(left.type)) throw "left of '->' is not a pointer";
        composite = left.type->next;
    }
    if (!isStruct(composite)) throw "left of . or -> is not a struct";
    if (!right.sym) throw "field name in struct accessors is not a proper name";
    const std::string& name = right.sym->name;
    int64_t offset = 0;
    boost::shared_ptr<structdef> def = composite->getStructdef();
    boost::shared_ptr<symtab> field = def ? findField(def->fields, name, offset) : nullptr;
    if (!field) throw GenericError("No such field name <" + name + "> in struct : " + name);

    value result;
    setChain(result, cloneTypeChain(field->type));
    if (getMemorySpaceCode(left.type)) setHeadSpace(result, getMemorySpaceCode(left.type));
    unsigned int bitOffset = 0;
    unsigned int bitSize = 0;
    if (isFieldSpecWidth(field->type)) {
        bitOffset = field->type->decl->getBitOffset();
        bitSize = field->type->decl->getBitSize();
    }
    boost::shared_ptr<ILocation> base = left.target ? left.target : left.location;
    if (!base) throw "Pointer has no target";
    result.location = base->createAtOffset(
        offsetOrThrow(offset), static_cast<unsigned int>(field->locsize), bitOffset, bitSize);
    result.sym = field;
    result.lvalue = true;
    return result;
}

value exec_unary_operation(const SymbolApiPtr& api, int op, value operand) {
    if (!operand.type) {
        if (op == '!') throw "INTERNAL: type is 0 in exec_unary_operation";
        throw "undefined operand in unary op";
    }
    const CompilerInfo& info = infoOf(api);
    switch (op) {
        case '+':
            return operand;
        case '-':
            return exec_binary_operation(api, "-", makeInt(IT_SINT, 0), operand, false);
        case '~':
            return makeInt(IT_SINT,
                           static_cast<int32_t>(~static_cast<uint32_t>(valueToInt(operand, api))));
        case '!':
            if (isPointer(operand.type) || isArray(operand.type))
                return makeInt(IT_SINT, fetchValue(operand, api).target ? 0 : 1);
            return makeInt(IT_SINT, valueToInt(operand, api) == 0 ? 1 : 0);
        case '*':
            return exec_access(api, OP_DEREFERENCE, operand, operand);
        case '&': {
            if (!operand.lvalue) throw "cannot take address of non-lvalue";
            if (isFieldSpecWidth(operand.type)) throw "cannot take address of a bitfield";
            if (isReference(operand.type)) {
                operand = fetchValue(operand, api);
                operand.type = boost::make_shared<link_variant>(*operand.type);
                operand.type->typedefName.clear();
            }
            value result;
            boost::shared_ptr<link_variant> pointer = makeDeclaratorLink(DECL_POINTER);
            pointer->next = cloneTypeChain(operand.type);
            setChain(result, pointer);
            result.location = operand.location;
            result.target = operand.location;
            return result;
        }
        case 'B':
        case 'W':
        case 'D': {
            const unsigned int size = op == 'B' ? 1 : op == 'W' ? 2 : 4;
            value address = fetchValue(operand, api);
            boost::shared_ptr<link_variant> pointer = makeDeclaratorLink(DECL_POINTER);
            pointer->next = makeSpecifierLink(NOUN_INT, unsignedSubtypeOfBits(8 * size, info));
            value result;
            setChain(result, pointer);
            result.val = address.val & sizeMask(byteSize(pointer, info));
            result.location = createAbsoluteLocation(frameOf(api), "data", result.val, size, 0, 0);
            result.target = result.location;
            return result;
        }
        case OP_PREFIX_INCREMENT:
        case OP_PREFIX_DECREMENT:
            exec_assignment(api, op == OP_PREFIX_INCREMENT ? '+' : '-', operand,
                            makeInt(IT_SINT, 1));
            return operand;
        case OP_POSTFIX_INCREMENT:
        case OP_POSTFIX_DECREMENT: {
            value fetched = fetchValue(operand, api);
            value old;
            setChain(old, cloneTypeChain(operand.type));
            old.val = fetched.val;
            old.target = fetched.target;
            exec_assignment(api, op == OP_POSTFIX_INCREMENT ? '+' : '-', operand,
                            makeInt(IT_SINT, 1));
            return old;
        }
        case OP_SIZEOF: {
            const boost::shared_ptr<link_variant>& sized =
                isReference(operand.type) ? operand.type->next : operand.type;
            return makeInt(IT_UINT, static_cast<int32_t>(byteSize(sized, info)));
        }
        default:
            throw "INTERNAL : Unknown unary operation";
    }
}

value exec_function_call(const SymbolApiPtr& api, const value& callee,
                         const std::vector<value>& arguments) {
    if (!callee.sym) throw "Illegal function call";
    const std::string& name = callee.sym->name;
    const CompilerInfo& info = infoOf(api);
    if (arguments.size() == 1) {
        double (*f)(double) = name == "sin"   ? static_cast<double (*)(double)>(std::sin)
                              : name == "cos" ? static_cast<double (*)(double)>(std::cos)
                              : name == "exp" ? static_cast<double (*)(double)>(std::exp)
                              : name == "log" ? static_cast<double (*)(double)>(std::log)
                                              : nullptr;
        if (f) return floatConstant(info, FT_DOUBLE, f(valueToDouble(arguments[0], api)));
    } else if (arguments.size() == 2 && name == "fmod") {
        const double x = valueToDouble(arguments[0], api);
        const double y = valueToDouble(arguments[1], api);
        return floatConstant(info, FT_DOUBLE, std::fmod(x, y));
    }
    throw GenericError("Call to unknown function:" + name);
}

value exec_cast(const SymbolApiPtr& api, const boost::shared_ptr<symtab>& type, value operand) {
    if (!operand.type || !type || !type->type) throw "undefined cast operand";
    if (isArray(type->type) || isStruct(type->type)) throw "Illegal cast-to type";
    const CompilerInfo& info = infoOf(api);
    value result;
    setChain(result, cloneTypeChain(type->type));
    operand = fetchValue(operand, api);
    if (isFloat(operand.type) && !isFloat(result.type) && !isIntegral(result.type))
        throw "unsupported cast from float";
    if (isStruct(operand.type)) throw "unsupported cast to struct";
    result.val = convertBits(info, getArithmeticSubtype(result.type, info), operand.val,
                             getArithmeticSubtype(operand.type, info));
    if (isPointer(result.type)) {
        result.val &= sizeMask(byteSize(result.type, info));
        const boost::shared_ptr<link_variant>& pointee = result.type->next;
        const uint32_t size = pointee && !isFunction(pointee) ? byteSize(pointee, info) : 1;
        result.target =
            createAbsoluteLocation(frameOf(api), pointeeSpace(result.type), result.val, size, 0, 0);
    }
    return result;
}
