#include "libcommon/expr/symbolcontext.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/expr/memorylocation.h"
#include "libcommon/ilocation.h"
#include "libcommon/stringconstants.h"

#include <boost/make_shared.hpp>
#include <cctype>
#include <iterator>
#include <utility>

std::map<std::string, SymbolContext*> SymbolContext::internalTypes;

namespace {

unsigned long gSymbolContextCounter = 0;

std::string nextSymbolContextId() {
    return "Sym" + std::to_string(++gSymbolContextCounter);
}

void logDbgError(const std::string& text) {
    if ((gLogMask & LOG_MASK_ERROR) && BackendLogger::error_enabled(L_DBG))
        BackendLogger::error(L_DBG, text);
}

typedef std::vector<std::pair<boost::shared_ptr<ISymbolContext>, boost::shared_ptr<link_variant>>>
    BuildCache;

boost::shared_ptr<link_variant> prependDeclarator(const boost::shared_ptr<link_variant>& chain,
                                                  DeclaratorType type, uint32_t numele = 0) {
    boost::shared_ptr<link_variant> head = makeDeclaratorLink(type, numele);
    head->next = chain;
    return head;
}

// A new head link sharing the old one's specifier or declarator and tail.
// Marks made on the head of a built chain go on such a copy, so that a
// link held in the build cache (a struct that refers to itself) keeps its
// own name and memory space.
boost::shared_ptr<link_variant> copyHead(const boost::shared_ptr<link_variant>& chain) {
    return boost::make_shared<link_variant>(*chain);
}

std::string memberName(std::string name) {
    if (name.empty()) return name;
    auto allowed = [](char c, bool first) {
        unsigned char u = static_cast<unsigned char>(c);
        return std::isalpha(u) || c == '_' || c == '$' || (!first && std::isdigit(u));
    };
    for (size_t i = 0; i < name.size(); ++i)
        if (!allowed(name[i], i == 0)) name[i] = '_';
    return name;
}

boost::shared_ptr<symtab> newEntry(const std::string& name,
                                   const boost::shared_ptr<link_variant>& chain) {
    auto entry = boost::make_shared<symtab>(name);
    entry->type = chain;
    entry->etype = chain;
    return entry;
}

int unsignedSubtypeOfBytes(unsigned int size) {
    return size == 1 ? IT_UCHAR : size == 2 ? IT_USHORT : IT_ULONG;
}

// Whether two chains describe the same type, for telling whether a struct
// or enum met again is the one whose entries the types list already holds.
// Aggregates and enums compare by their entries' identity: a nested one met
// again was already matched and took over the older entries, so equal
// contents mean the same objects. The one exception is the aggregate being
// matched, which a member may point back at: its new link (self) stands for
// the older aggregate whose fields start at selfFields.
// a is the new chain, b the older one.
bool sameChain(const link_variant* a, const link_variant* b, const link_variant* self,
               const symtab* selfFields) {
    for (; a && b; a = a->next.get(), b = b->next.get()) {
        if (a->linkClass != b->linkClass || a->modifiers != b->modifiers ||
            a->isTypedef != b->isTypedef || a->typedefName != b->typedefName ||
            !a->decl != !b->decl || !a->spec != !b->spec)
            return false;
        if (a->decl && (a->decl->type != b->decl->type || a->decl->numele != b->decl->numele ||
                        a->decl->args != b->decl->args))
            return false;
        if (!a->spec) continue;
        const specifier &x = *a->spec, &y = *b->spec;
        if (x.noun != y.noun || x.sclass != y.sclass || x.subtype != y.subtype || x.val != y.val ||
            x.enumerators != y.enumerators || !x.structdef != !y.structdef)
            return false;
        if (x.structdef && x.structdef != y.structdef) {
            const structdef &dx = *x.structdef, &dy = *y.structdef;
            const symtab* fieldsOfX = a->spec == self->spec ? selfFields : dx.fields.get();
            if (dx.tag != dy.tag || dx.size != dy.size || fieldsOfX != dy.fields.get())
                return false;
        }
    }
    return !a && !b;
}

bool sameEntry(const symtab& a, const symtab& b, const link_variant* self,
               const symtab* selfFields) {
    return a.name == b.name && a.locofs == b.locofs && a.locsize == b.locsize &&
           a.isAnonymous == b.isAnonymous &&
           sameChain(a.type.get(), b.type.get(), self, selfFields);
}

// Whether the run of entries linked from newer, to its end, matches the one
// linked from older entry by entry.
bool sameRun(const symtab* newer, const symtab* older, const link_variant* self) {
    const symtab* start = older;
    for (; older && newer; older = older->next.get(), newer = newer->next.get())
        if (!sameEntry(*newer, *older, self, start)) return false;
    return !older && !newer;
}

class ChainBuilder {
public:
    ChainBuilder(boost::shared_ptr<SymtabList> types, boost::shared_ptr<SymtabList> symbols)
        : types(std::move(types)), symbols(std::move(symbols)), before(markTypes()) {}

    boost::shared_ptr<link_variant> build(const boost::shared_ptr<ISymbolContext>& symbol);

private:
    boost::shared_ptr<link_variant> byTypeClass(const boost::shared_ptr<ISymbolContext>& symbol);
    boost::shared_ptr<link_variant> composite(const boost::shared_ptr<ISymbolContext>& symbol);
    boost::shared_ptr<link_variant> enumeration(const boost::shared_ptr<ISymbolContext>& symbol);
    boost::shared_ptr<link_variant> function(const boost::shared_ptr<ISymbolContext>& symbol) {
        boost::shared_ptr<link_variant> link = makeDeclaratorLink(DECL_FUNCTION);
        cache.emplace_back(symbol, link);
        return link;
    }
    void addType(const boost::shared_ptr<symtab>& entry) {
        if (types) types->push_back(entry);
    }
    // Where the entries of an aggregate or enum start to be added: the last
    // entry before them, or the end of an empty list (which stays the end).
    SymtabList::iterator markTypes() {
        if (!types) return SymtabList::iterator();
        return types->empty() ? types->end() : std::prev(types->end());
    }
    boost::shared_ptr<symtab> reuseTypes(SymtabList::iterator mark,
                                         const boost::shared_ptr<symtab>& fresh,
                                         const link_variant* self);

    BuildCache cache;
    boost::shared_ptr<SymtabList> types;
    // Passed along for symbols that need it; the conversion stores nothing
    // there.
    boost::shared_ptr<SymtabList> symbols;
    // The last entry that was in types before this conversion. Only entries
    // up to it can be reused: the ones this conversion adds may still be
    // missing their next members.
    SymtabList::iterator before;
};

// The types list lives as long as a debug session, and every evaluation
// converts the types it meets again. Each conversion of an aggregate or
// enum first adds its entries as a new one would (so the list keeps the
// order a first conversion gives it), then looks among the entries that
// were there before the conversion began for a run of the same entries.
// If there is one, the new entries leave the list again and the older run
// is returned to be used in their place, so converting the same type again
// and again leaves the list as it was. Look-ups cannot tell: an older
// entry of a name hides a newer one anyway. Empty when the entries are new.
boost::shared_ptr<symtab> ChainBuilder::reuseTypes(SymtabList::iterator mark,
                                                   const boost::shared_ptr<symtab>& fresh,
                                                   const link_variant* self) {
    if (!types || !fresh || before == types->end()) return boost::shared_ptr<symtab>();
    const SymtabList::iterator added = mark == types->end() ? types->begin() : std::next(mark);
    for (auto older = types->begin(); older != std::next(before); ++older) {
        if (*older && (*older)->name == fresh->name && sameRun(fresh.get(), older->get(), self)) {
            boost::shared_ptr<symtab> run = *older;
            types->erase(added, types->end());
            return run;
        }
    }
    return boost::shared_ptr<symtab>();
}

boost::shared_ptr<link_variant> ChainBuilder::build(
    const boost::shared_ptr<ISymbolContext>& symbol) {
    if (!symbol) return makeSpecifierLink(NOUN_VOID);
    for (const auto& entry : cache)
        if (entry.first->isEquivalent(symbol)) return entry.second;

    const ISymbolContext::SymbolClass symbolClass = symbol->getSymbolClass();
    boost::shared_ptr<ISymbolContext> typeContext = symbol->getTypeContext();
    if (typeContext && typeContext != symbol && symbolClass != ISymbolContext::SYMBOL_ALIAS &&
        typeContext->getSymbolClass() != ISymbolContext::SYMBOL_ALIAS) {
        // A named symbol with a type stands for that type under its name.
        boost::shared_ptr<link_variant> chain = copyHead(build(typeContext));
        chain->isTypedef = true;
        chain->typedefName = symbol->getName();
        return chain;
    }

    switch (symbolClass) {
        case ISymbolContext::SYMBOL_UNKNOWN:
            return makeSpecifierLink(NOUN_VOID);
        case ISymbolContext::SYMBOL_VALUE: {
            boost::shared_ptr<link_variant> link;
            switch (symbol->getTypeClass()) {
                case ISymbolContext::TYPE_UNSIGNED:
                case ISymbolContext::TYPE_SIGNED:
                    link = makeSpecifierLink(NOUN_INT);
                    break;
                case ISymbolContext::TYPE_FLOAT:
                    link = makeSpecifierLink(NOUN_FLOAT);
                    break;
                default:
                    logDbgError("Unexpected constant type");
                    throw "Unexpected constant type";
            }
            link->spec->sclass = SC_CONSTANT;
            setSubtypeFromName(link, symbol->getName());
            return link;
        }
        case ISymbolContext::SYMBOL_FUNCTION:
            return function(symbol);
        case ISymbolContext::SYMBOL_ALIAS: {
            boost::shared_ptr<link_variant> chain = build(typeContext);
            if (symbol->getName().empty()) {
                // An unnamed alias is a qualified type: it keeps only the
                // const mark, which changes nothing in sizes and texts.
                chain = copyHead(chain);
                chain->modifiers = MOD_CONST;
            }
            return chain;
        }
        case ISymbolContext::SYMBOL_OBJECT:
        case ISymbolContext::SYMBOL_TYPE:
            return byTypeClass(symbol);
        default:
            logDbgError(FormatString("Unsupported symbolclass %d", static_cast<int>(symbolClass)));
            throw "Unsupported symbolclass";
    }
}

boost::shared_ptr<link_variant> ChainBuilder::byTypeClass(
    const boost::shared_ptr<ISymbolContext>& symbol) {
    switch (symbol->getTypeClass()) {
        case ISymbolContext::TYPE_UNSIGNED:
        case ISymbolContext::TYPE_SIGNED: {
            boost::shared_ptr<link_variant> link = makeSpecifierLink(NOUN_INT);
            setSubtypeFromName(link, symbol->getName());
            return link;
        }
        case ISymbolContext::TYPE_FLOAT: {
            boost::shared_ptr<link_variant> link = makeSpecifierLink(NOUN_FLOAT);
            setSubtypeFromName(link, symbol->getName());
            return link;
        }
        case ISymbolContext::TYPE_POINTER: {
            boost::shared_ptr<link_variant> base = build(symbol->getBaseTypeContext());
            // The pointee's memory space, when the plug-in names one.
            int memory = findIntegerProperty(symbol->getProperties(), SYM_MEMORY, -1);
            if (memory != -1) {
                base = copyHead(base);
                setMemorySpaceCode(base, static_cast<uint32_t>(memory) << 4);
            }
            return prependDeclarator(base, DECL_POINTER);
        }
        case ISymbolContext::TYPE_ARRAY: {
            boost::shared_ptr<link_variant> chain = build(symbol->getBaseTypeContext());
            std::vector<int> dimensions = symbol->getArrayDimensions();
            // A plug-in that lists no dimensions still gives the length of
            // its one dimension; without this an array would read as its
            // first element.
            if (dimensions.empty() && symbol->getLength() > 0)
                dimensions.push_back(symbol->getLength());
            for (auto d = dimensions.rbegin(); d != dimensions.rend(); ++d)
                chain = prependDeclarator(chain, DECL_ARRAY, static_cast<uint32_t>(*d));
            return chain;
        }
        case ISymbolContext::TYPE_COMPOSITE:
            return composite(symbol);
        case ISymbolContext::TYPE_ENUM:
            return enumeration(symbol);
        case ISymbolContext::TYPE_FUNCTION:
            return function(symbol);
        case ISymbolContext::TYPE_REFERENCE:
            return prependDeclarator(build(symbol->getBaseTypeContext()), DECL_REFERENCE);
        default:
            throw "Unknown type class";
    }
}

boost::shared_ptr<link_variant> ChainBuilder::composite(
    const boost::shared_ptr<ISymbolContext>& symbol) {
    auto def = boost::make_shared<structdef>();
    boost::shared_ptr<link_variant> link = makeSpecifierLink(NOUN_STRUCT);
    link->spec->structdef = def;
    // Cached before the members are read, so a member that points back at
    // this struct ends at this link.
    cache.emplace_back(symbol, link);
    const SymtabList::iterator mark = markTypes();

    unsigned int anonymous = 1;
    boost::shared_ptr<symtab> last;
    for (const boost::shared_ptr<ISymbolContext>& child :
         symbol->getChildren(ISymbolContext::SYMBOL_UNKNOWN)) {
        boost::shared_ptr<ISymbolContext> childType = child->getTypeContext();
        if (!childType || child->getStorageClass() != ISymbolContext::STORAGE_MEMBER) continue;
        boost::shared_ptr<link_variant> chain = build(childType);

        std::string name = child->getName();
        // Every aggregate member is searched as part of the enclosing
        // aggregate, so s.x also finds x in a struct member of s.
        const bool isAnonymous = childType->getTypeClass() == ISymbolContext::TYPE_COMPOSITE;
        if (isAnonymous) {
            if (name.empty() && chain->getStructdef()) name = chain->getStructdef()->tag;
            if (name.empty() || name == "struct " || name == "union ")
                name += "anon" + std::to_string(anonymous++);
        }
        if (name.empty()) continue;

        auto entry = boost::make_shared<symtab>(memberName(name));
        addType(entry);
        assembleType(entry, chain);
        entry->isAnonymous = isAnonymous;

        int size = child->getSize();
        if (child->isBitField()) {
            int bits = child->getBitSize();
            int offset = child->getBitOffset();
            if (bits < 0 || bits > 0xFFFF) throw "bit count too large";
            // A negative offset reaches below the member's bytes: widen the
            // span by the bytes it reaches into.
            if (offset < 0) {
                int bytes = ((-offset - 1) / 8) + 1;
                size += bytes;
                offset += bytes * 8;
            }
            boost::shared_ptr<link_variant> width = makeDeclaratorLink(DECL_FIELD_WIDTH);
            width->decl->setBitField(static_cast<unsigned int>(bits),
                                     static_cast<unsigned int>(offset));
            width->next = entry->type;
            entry->type = width;
        }
        entry->locofs = child->getOffset();
        entry->locsize = size;

        if (last)
            last->next = entry;
        else
            def->fields = entry;
        last = entry;
    }
    def->size = static_cast<uint32_t>(8 * int64_t(symbol->getSize()));
    def->tag = symbol->getName();
    if (boost::shared_ptr<symtab> older = reuseTypes(mark, def->fields, link.get()))
        def->fields = older;
    return link;
}

boost::shared_ptr<link_variant> ChainBuilder::enumeration(
    const boost::shared_ptr<ISymbolContext>& symbol) {
    boost::shared_ptr<link_variant> link = makeSpecifierLink(NOUN_ENUM);
    std::string name = symbol->getName();
    if (!name.empty()) {
        link->isTypedef = true;
        link->typedefName = name;
    }
    const int size = symbol->getSize();
    link->spec->subtype = size == 1 ? IT_CHAR : size == 2 ? IT_SHORT : IT_LONG;
    const SymtabList::iterator mark = markTypes();

    boost::shared_ptr<symtab> last;
    for (const boost::shared_ptr<ISymbolContext>& child :
         symbol->getChildren(ISymbolContext::SYMBOL_UNKNOWN)) {
        std::vector<unsigned char> bytes = child->getValue();
        uint64_t number = 0;
        for (size_t i = 0; i < bytes.size() && i < 8; ++i) number |= uint64_t(bytes[i]) << (8 * i);
        auto entry = boost::make_shared<symtab>(child->getName());
        addType(entry);
        assembleType(entry,
                     makeInt(link->spec->subtype, static_cast<int32_t>(uint32_t(number))).type);
        if (last)
            last->next = entry;
        else
            link->spec->enumerators = entry;
        last = entry;
    }
    if (boost::shared_ptr<symtab> older = reuseTypes(mark, link->spec->enumerators, link.get()))
        link->spec->enumerators = older;
    return link;
}

}  // namespace

// ---------------------------------------------------------------------------
// SymbolContext

SymbolContext::SymbolContext(SymbolInfo& info, boost::shared_ptr<link_variant> linkVariant)
    : ContextBase<ISymbolContext>(nextSymbolContextId(), boost::shared_ptr<IContextBase>()),
      linkVariant(std::move(linkVariant)),
      info(info) {
    if (internalTypes.count(getId())) {
        logDbgError("SymbolContext id is reused");
        throw "SymbolContext id is reused";
    }
    internalTypes[getId()] = this;
}

SymbolContext::~SymbolContext() {
    auto it = internalTypes.find(getId());
    if (it != internalTypes.end() && it->second == this) internalTypes.erase(it);
}

boost::shared_ptr<SymbolContext> SymbolContext::getContextFromId(const std::string& id) {
    auto it = internalTypes.find(id);
    if (it == internalTypes.end()) return boost::shared_ptr<SymbolContext>();
    // Empty for a context that is being destroyed or was never owned.
    return boost::static_pointer_cast<SymbolContext>(it->second->weak_from_this().lock());
}

void SymbolContext::dumpContexts() {
    if (!(gLogMask & LOG_MASK_DEBUG) || !BackendLogger::debug_enabled(L_DBG)) return;
    for (const auto& entry : internalTypes)
        BackendLogger::debug(L_DBG, "Context " + entry.first + " is alive ");
}

std::string SymbolContext::getName() {
    return info.name;
}
ISymbolContext::SymbolClass SymbolContext::getSymbolClass() {
    return info.symbolClass;
}
ISymbolContext::StorageClass SymbolContext::getStorageClass() {
    return STORAGE_NONE;
}
ISymbolContext::TypeClass SymbolContext::getTypeClass() {
    return info.typeClass;
}
boost::shared_ptr<ISymbolContext> SymbolContext::getTypeContext() {
    return info.typeContext;
}
boost::shared_ptr<ISymbolContext> SymbolContext::getBaseTypeContext() {
    return info.baseTypeContext;
}
boost::shared_ptr<ISymbolContext> SymbolContext::getIndexTypeContext() {
    return info.indexTypeContext;
}
int SymbolContext::getSize() {
    return info.size;
}
int SymbolContext::getLength() {
    return info.length;
}
int SymbolContext::getOffset() {
    return info.offset;
}
uint64_t SymbolContext::getAddress() {
    return info.address;
}
std::vector<unsigned char> SymbolContext::getValue() {
    return info.value;
}
bool SymbolContext::isBitField() {
    return false;
}
int SymbolContext::getBitSize() {
    return 0;
}
int SymbolContext::getBitOffset() {
    return 0;
}
std::vector<int> SymbolContext::getArrayDimensions() {
    return std::vector<int>();
}
boost::shared_ptr<ILocation> SymbolContext::getLocation(boost::shared_ptr<IStackTraceContext>) {
    return boost::shared_ptr<ILocation>();
}
boost::shared_ptr<ISymbolContext> SymbolContext::lookupChild(SymbolClass, const std::string&) {
    return boost::shared_ptr<ISymbolContext>();
}

bool SymbolContext::isEquivalent(boost::shared_ptr<ISymbolContext> other) const {
    auto same = boost::dynamic_pointer_cast<SymbolContext>(other);
    return same && same->getId() == getId();
}

std::vector<boost::shared_ptr<ISymbolContext>> SymbolContext::getChildren(SymbolClass) {
    std::vector<boost::shared_ptr<ISymbolContext>> result;
    if (isStruct(linkVariant)) {
        boost::shared_ptr<structdef> def = linkVariant->getStructdef();
        for (boost::shared_ptr<symtab> field = def ? def->fields : nullptr; field;
             field = field->next) {
            SymbolInfo fieldInfo;
            fieldInfo.name = field->name;
            result.push_back(boost::make_shared<SymbolContext>(fieldInfo, field->type));
        }
    } else if (isEnum(linkVariant)) {
        for (boost::shared_ptr<symtab> constant = linkVariant->spec->enumerators; constant;
             constant = constant->next) {
            SymbolInfo constantInfo;
            constantInfo.name = constant->name;
            constantInfo.symbolClass = SYMBOL_VALUE;
            constantInfo.typeClass = TYPE_SIGNED;
            if (constant->type && constant->type->spec)
                constantInfo.offset =
                    static_cast<int>(static_cast<uint32_t>(constant->type->spec->val));
            result.push_back(boost::make_shared<SymbolContext>(constantInfo, constant->type));
        }
    }
    for (const boost::shared_ptr<ISymbolContext>& child : result)
        children.push_back(boost::static_pointer_cast<SymbolContext>(child));
    return result;
}

json_spirit::Object SymbolContext::getProperties() {
    json_spirit::Object properties = ContextBase<ISymbolContext>::getProperties();
    properties.push_back(json_spirit::Pair(SYM_ID, getId()));
    properties.push_back(json_spirit::Pair(SYM_NAME, info.name));
    properties.push_back(json_spirit::Pair(SYM_CLASS, static_cast<int>(info.symbolClass)));
    properties.push_back(json_spirit::Pair(SYM_TYPE_CLASS, static_cast<int>(info.typeClass)));
    if (info.typeContext)
        properties.push_back(json_spirit::Pair(SYM_TYPE_ID, info.typeContext->getId()));
    if (info.baseTypeContext)
        properties.push_back(json_spirit::Pair(SYM_BASE_TYPE_ID, info.baseTypeContext->getId()));
    if (info.indexTypeContext)
        properties.push_back(json_spirit::Pair(SYM_INDEX_TYPE_ID, info.indexTypeContext->getId()));
    properties.push_back(json_spirit::Pair(SYM_SIZE, info.size));
    properties.push_back(json_spirit::Pair(SYM_LENGTH, info.length));
    properties.push_back(json_spirit::Pair(SYM_OFFSET, info.offset));
    properties.push_back(json_spirit::Pair(SYM_ADDRESS, info.address));
    properties.push_back(json_spirit::Pair(SYM_MULTI_LOCATION, info.multiLocation));
    if (!info.value.empty()) {
        json_spirit::Array bytes;
        for (unsigned char b : info.value) bytes.push_back(json_spirit::Value(static_cast<int>(b)));
        properties.push_back(json_spirit::Pair(SYM_VALUE, bytes));
    }
    return properties;
}

// ---------------------------------------------------------------------------
// Free functions

boost::shared_ptr<ISymbolContext> createSymbolContext(boost::shared_ptr<link_variant> link,
                                                      const std::string& name, int size,
                                                      unsigned long address) {
    SymbolContext::SymbolInfo info;
    info.name = name;
    info.size = size;
    info.address = address;
    info.typeClass = ISymbolContext::TYPE_UNSIGNED;
    info.symbolClass = isConstant(link) || isFunction(link) ? ISymbolContext::SYMBOL_VALUE
                                                            : ISymbolContext::SYMBOL_TYPE;
    return boost::make_shared<SymbolContext>(info, link);
}

boost::shared_ptr<ISymbolContext> createSymbolContextFromLinkVariant(
    boost::shared_ptr<link_variant> link, boost::shared_ptr<ILocation> location,
    boost::shared_ptr<CompilerInfo> compilerInfo) {
    if (!compilerInfo) throw "No compiler information";
    SymbolContext::SymbolInfo info;
    info.name = getTypeText(link, true, *compilerInfo);
    if (location) {
        info.name += "@" + location->getLocationAsString();
        info.multiLocation = location->hasMultipleLocation();
    }
    info.symbolClass = ISymbolContext::SYMBOL_TYPE;
    info.size = static_cast<int>(get_bit_sizeof(link, *compilerInfo) / 8);

    if (isArray(link)) {
        info.typeClass = ISymbolContext::TYPE_ARRAY;
        info.length = static_cast<int>(link->decl->numele);
        info.indexTypeContext = createSymbolContextFromLinkVariant(
            makeInt(IT_SINT, 1).type, boost::shared_ptr<ILocation>(), compilerInfo);
        // The element type is given as the base type, as for a pointer, so
        // that a front end (and the conversion back to a chain) can see what
        // the array holds.
        info.baseTypeContext = createSymbolContextFromLinkVariant(
            link->next, boost::shared_ptr<ILocation>(), compilerInfo);
    } else if (isPointer(link)) {
        info.typeClass = ISymbolContext::TYPE_POINTER;
        info.baseTypeContext = createSymbolContextFromLinkVariant(
            link->next, boost::shared_ptr<ILocation>(), compilerInfo);
    } else if (isFunction(link)) {
        info.typeClass = ISymbolContext::TYPE_FUNCTION;
    } else if (isEnum(link)) {
        info.typeClass = ISymbolContext::TYPE_ENUM;
    } else if (isStruct(link)) {
        info.typeClass = ISymbolContext::TYPE_COMPOSITE;
    } else if (isFloat(link)) {
        info.typeClass = ISymbolContext::TYPE_FLOAT;
    } else if (isInt(link)) {
        bool isSigned;
        getSubtypeSize(link->spec->subtype, *compilerInfo, isSigned);
        info.typeClass = isSigned ? ISymbolContext::TYPE_SIGNED : ISymbolContext::TYPE_UNSIGNED;
    } else {
        info.typeClass = ISymbolContext::TYPE_NONE;
    }
    return boost::make_shared<SymbolContext>(info, link);
}

boost::shared_ptr<link_variant> createLinkVariantFromISymbolContext(
    boost::shared_ptr<ISymbolContext> symbol, boost::shared_ptr<SymtabList> types,
    boost::shared_ptr<SymtabList> symbols) {
    if (!symbol)
        CoreException::createAndThrow(
            "", ERR_NOT_FOUND, "NULL symbolContext ptr in createLinkVarianFromISymbolContext");
    ChainBuilder builder(std::move(types), std::move(symbols));
    return builder.build(symbol);
}

namespace {

// An entry of the chain over the process register at position reg, named
// by the location when it has no name of its own.
boost::shared_ptr<symtab> registerEntry(boost::shared_ptr<IStackTraceContext> stack,
                                        const std::string& name, int reg, int size,
                                        const boost::shared_ptr<link_variant>& chain) {
    boost::shared_ptr<ILocation> location =
        createRegisterLocation(stack, reg, static_cast<unsigned int>(size));
    auto entry = newEntry(name.empty() ? location->getLocationAsString() : name, chain);
    entry->location = location;
    return entry;
}

}  // namespace

boost::shared_ptr<symtab> createRegisterSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                               const std::string& name, int reg, int size) {
    return registerEntry(stack, name, reg, size,
                         makeSpecifierLink(NOUN_INT, size == 1 ? IT_UCHAR : IT_ULONG));
}

boost::shared_ptr<symtab> createFpRegisterSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                                 const std::string& name, int reg, int size) {
    return registerEntry(stack, name, reg, size,
                         makeSpecifierLink(NOUN_FLOAT, size == 8 ? FT_DOUBLE : FT_FLOAT));
}

boost::shared_ptr<symtab> createBitfieldSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                               const std::string& name, unsigned int address,
                                               unsigned int size, unsigned int bitOffset,
                                               unsigned int bitSize) {
    auto entry = newEntry(name, makeSpecifierLink(NOUN_INT, unsignedSubtypeOfBytes(size)));
    entry->location = createAbsoluteLocation(
        stack, "data", address, size, static_cast<int>(bitOffset), static_cast<int>(bitSize));
    return entry;
}

boost::shared_ptr<symtab> createNamedIntegerConstant(const std::string& name, uint64_t value,
                                                     unsigned int size) {
    boost::shared_ptr<link_variant> link =
        makeSpecifierLink(NOUN_INT, unsignedSubtypeOfBytes(size));
    link->spec->sclass = SC_CONSTANT;
    link->spec->val = value;
    return newEntry(name, link);
}
