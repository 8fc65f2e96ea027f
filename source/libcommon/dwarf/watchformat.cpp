#include "libcommon/dwarf/watchformat.h"

#include "libcommon/expr/typechains.h"
#include "libcommon/ilocation.h"

#include <boost/format.hpp>

#include <cstring>
#include <regex>

namespace {

// Runs of more than this many equal elements are folded, as debuggers do.
const size_t REPEAT_THRESHOLD = 10;
// Elements shown of one array before "...".
const size_t MAX_ELEMENTS = 200;

// A member without a name of its own gets one made up from "anon" and a
// count (after the tag's keyword when it has one); it is shown without one.
bool isAnonymousName(const std::string& name) {
    static const std::regex made(R"(((struct|union)_)?anon[0-9]+)");
    return std::regex_match(name, made);
}

bool isCharSubtype(int subtype) {
    return subtype == IT_CHAR || subtype == IT_SCHAR || subtype == IT_UCHAR;
}

unsigned int bytesOf(const boost::shared_ptr<link_variant>& chain, const CompilerInfo& info) {
    return get_bit_sizeof(chain, info) / 8;
}

// The scalar of size bytes at bytes[offset], in the target's byte order.
uint64_t gather(const std::vector<unsigned char>& bytes, size_t offset, unsigned int size,
                bool bigEndian) {
    uint64_t v = 0;
    for (unsigned int i = 0; i < size && i < 8 && offset + i < bytes.size(); ++i)
        v |= uint64_t(bytes[offset + i]) << (8 * (bigEndian ? size - 1 - i : i));
    return v;
}

uint64_t mask(uint64_t v, unsigned int bits) {
    return bits >= 64 ? v : v & ((uint64_t(1) << bits) - 1);
}

int64_t signExtend(uint64_t v, unsigned int bits) {
    if (bits == 0 || bits >= 64) return static_cast<int64_t>(v);
    v = mask(v, bits);
    if ((v >> (bits - 1)) & 1) v |= ~uint64_t(0) << bits;
    return static_cast<int64_t>(v);
}

std::string formatInteger(const boost::shared_ptr<link_variant>& link, uint64_t bits,
                          const CompilerInfo& info) {
    int subtype = link->spec->subtype;
    bool isSigned = false;
    unsigned int size = getSubtypeSize(subtype, info, isSigned);
    if (subtype == IT_CHAR) isSigned = info.charIsSigned;
    bits = mask(bits, size * 8);
    if (link->isTypedef && link->typedefName == "bool") return bits ? "true" : "false";
    std::string text = isSigned ? std::to_string(signExtend(bits, size * 8)) : std::to_string(bits);
    if (isCharSubtype(subtype))
        text += " " + quoteWatchChar(static_cast<unsigned char>(bits), '\'');
    return text;
}

std::string formatEnum(const boost::shared_ptr<link_variant>& link, uint64_t bits,
                       const CompilerInfo& info) {
    bool isSigned = false;
    unsigned int size = getSubtypeSize(link->spec->subtype, info, isSigned);
    int64_t number = signExtend(bits, size * 8);
    for (boost::shared_ptr<symtab> e = link->spec->enumerators; e; e = e->next) {
        boost::shared_ptr<link_variant> c = e->type;
        if (c && c->spec && signExtend(c->spec->val, size * 8) == number) return e->name;
    }
    return std::to_string(number);
}

std::string formatFloat(unsigned int size, uint64_t bits) {
    if (size == 4) {
        uint32_t b = static_cast<uint32_t>(bits);
        float f;
        std::memcpy(&f, &b, 4);
        return (boost::format("%.9g") % f).str();
    }
    if (size == 8) {
        double d;
        std::memcpy(&d, &bits, 8);
        return (boost::format("%.17g") % d).str();
    }
    return "<unsupported float of " + std::to_string(size) + " bytes>";
}

// A scalar of the chain's type from its bits.
std::string formatScalar(const boost::shared_ptr<link_variant>& link, uint64_t bits,
                         const CompilerInfo& info) {
    if (isPointer(link) || isFunction(link) || isReference(link)) {
        bool isSigned = false;
        unsigned int size = getSubtypeSize(info.pointerSubtype, info, isSigned);
        return (boost::format("0x%x") % mask(bits, size * 8)).str();
    }
    if (isEnum(link)) return formatEnum(link, bits, info);
    if (isFloat(link)) {
        bool isSigned = false;
        return formatFloat(getSubtypeSize(link->spec->subtype, info, isSigned), bits);
    }
    if (isInt(link)) return formatInteger(link, bits, info);
    if (isVoid(link)) return "void";
    return "?";
}

// One element run of an array: the text and how often it repeats.
std::string joinRuns(const std::vector<std::string>& elements, bool truncated) {
    std::string out;
    for (size_t i = 0; i < elements.size();) {
        size_t run = 1;
        while (i + run < elements.size() && elements[i + run] == elements[i]) ++run;
        if (!out.empty()) out += ", ";
        if (run > REPEAT_THRESHOLD) {
            out += elements[i] + " <repeats " + std::to_string(run) + " times>";
            i += run;
        } else {
            out += elements[i];
            ++i;
        }
    }
    if (truncated) out += "...";
    return out;
}

std::string formatCharArray(const std::vector<unsigned char>& chars, bool truncated) {
    // The terminating NUL of a string is not shown.
    size_t n = chars.size();
    if (!truncated && n > 0 && chars[n - 1] == 0) --n;
    if (n == 0) return "\"\"";
    std::string out;
    std::string pending;  // characters of the open quoted segment
    auto flush = [&]() {
        if (pending.empty()) return;
        if (!out.empty()) out += ", ";
        out += "\"" + pending + "\"";
        pending.clear();
    };
    for (size_t i = 0; i < n;) {
        size_t run = 1;
        while (i + run < n && chars[i + run] == chars[i]) ++run;
        if (run > REPEAT_THRESHOLD) {
            flush();
            if (!out.empty()) out += ", ";
            out += quoteWatchChar(chars[i], '\'') + " <repeats " + std::to_string(run) + " times>";
            i += run;
        } else {
            for (size_t k = 0; k < run; ++k) {
                std::string q = quoteWatchChar(chars[i], '"');
                pending += q.substr(1, q.size() - 2);
            }
            i += run;
        }
    }
    flush();
    if (truncated) out += "...";
    return out;
}

}  // namespace

std::string quoteWatchChar(unsigned char c, char quote) {
    std::string body;
    switch (c) {
        case '\a':
            body = "\\a";
            break;
        case '\b':
            body = "\\b";
            break;
        case '\f':
            body = "\\f";
            break;
        case '\n':
            body = "\\n";
            break;
        case '\r':
            body = "\\r";
            break;
        case '\t':
            body = "\\t";
            break;
        case '\v':
            body = "\\v";
            break;
        case 27:
            body = "\\033";
            break;
        default:
            if (c == '\\' || c == static_cast<unsigned char>(quote))
                body = std::string("\\") + static_cast<char>(c);
            else if (c >= 0x20 && c < 0x7F)
                body = std::string(1, static_cast<char>(c));
            else
                body = (boost::format("\\%03o") % static_cast<unsigned int>(c)).str();
    }
    return std::string(1, quote) + body + std::string(1, quote);
}

std::string formatWatchBytes(const boost::shared_ptr<link_variant>& chain,
                             const std::vector<unsigned char>& bytes, size_t offset,
                             const CompilerInfo& info) {
    if (!chain) return "void";
    if (isArray(chain)) {
        boost::shared_ptr<link_variant> element = chain->next;
        size_t count = chain->decl->numele;
        unsigned int size = bytesOf(element, info);
        bool truncated = count > MAX_ELEMENTS;
        size_t shown = truncated ? MAX_ELEMENTS : count;
        if (size == 1 && element->spec && isInt(element) && isCharSubtype(element->spec->subtype) &&
            !(element->isTypedef && element->typedefName == "bool")) {
            std::vector<unsigned char> chars;
            for (size_t i = 0; i < shown && offset + i < bytes.size(); ++i)
                chars.push_back(bytes[offset + i]);
            return formatCharArray(chars, truncated);
        }
        std::vector<std::string> elements;
        for (size_t i = 0; i < shown; ++i)
            elements.push_back(formatWatchBytes(element, bytes, offset + i * size, info));
        return "{" + joinRuns(elements, truncated) + "}";
    }
    if (isStruct(chain)) {
        std::string out = "{";
        boost::shared_ptr<structdef> def = chain->getStructdef();
        for (boost::shared_ptr<symtab> f = def ? def->fields : boost::shared_ptr<symtab>(); f;
             f = f->next) {
            if (out.size() > 1) out += ", ";
            if (!isAnonymousName(f->name)) out += f->name + " = ";
            if (f->type && isFieldSpecWidth(f->type)) {
                // The span gathered in target order, the field cut from its
                // top end, as the engine reads bit-fields.
                unsigned int span = static_cast<unsigned int>(f->locsize);
                uint64_t whole = gather(bytes, offset + f->locofs, span, info.bigEndian);
                unsigned int bitSize = f->type->decl->getBitSize();
                unsigned int bitOffset = f->type->decl->getBitOffset();
                uint64_t bits = mask(whole >> (8 * span - bitOffset - bitSize), bitSize);
                boost::shared_ptr<link_variant> base = f->type->next;
                bool isSigned = false;
                if (base && base->spec && isInt(base)) {
                    getSubtypeSize(base->spec->subtype, info, isSigned);
                    if (base->spec->subtype == IT_CHAR) isSigned = info.charIsSigned;
                }
                out += isSigned ? std::to_string(signExtend(bits, bitSize)) : std::to_string(bits);
            } else {
                out += formatWatchBytes(f->type, bytes, offset + f->locofs, info);
            }
        }
        return out + "}";
    }
    unsigned int size = isFunction(chain) ? 0 : bytesOf(chain, info);
    return formatScalar(chain, gather(bytes, offset, size, info.bigEndian), info);
}

std::string formatWatchValue(const value& v, const CompilerInfo& info) {
    if (!v.type) return "void";
    if (isArray(v.type) || isStruct(v.type)) {
        boost::shared_ptr<ILocation> where = v.location ? v.location : v.target;
        if (!where) return "<no location>";
        std::vector<unsigned char> bytes;
        where->readContent(bytes);
        return formatWatchBytes(v.type, bytes, 0, info);
    }
    return formatScalar(v.type, v.val, info);
}
