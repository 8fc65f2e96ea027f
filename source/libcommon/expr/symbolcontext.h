#ifndef LIBCOMMON_EXPR_SYMBOLCONTEXT_H
#define LIBCOMMON_EXPR_SYMBOLCONTEXT_H

// The bridge between debug-information symbols and type chains, both ways:
//   - createLinkVariantFromISymbolContext turns a plug-in's symbol context
//     into a chain, so the interpreter can use debug information. Members
//     and enumerators it meets are stored in the types list, where later
//     lookups find them by name;
//   - SymbolContext, createSymbolContext and createSymbolContextFromLinkVariant
//     show a chain (the type of an evaluated value) to the front end as a
//     symbol context;
//   - the symtab makers give ready entries for registers, bit-fields and
//     named constants, which a plug-in can offer through a name resolver or
//     storeSymbol.
// Conversion failures are thrown as plain C strings; a missing symbol is a
// CoreException (ERR_NOT_FOUND).
//
//     auto chain = createLinkVariantFromISymbolContext(sym->getTypeContext(), types, symbols);
//     auto shown = createSymbolContextFromLinkVariant(chain, location, compilerInfo);
//     shown->getName();   // "int*@0x0100"
//
// Every SymbolContext is listed by id in a process-wide map from its
// construction to its destruction. The map and the id counter are not
// synchronised: contexts are made and dropped from one thread at a time.

#include "libcommon/context/contextbase.h"
#include "libcommon/expr/typechains.h"
#include "libcommon/isymbolcontext.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

class IStackTraceContext;

class SymbolContext : public ContextBase<ISymbolContext> {
public:
    struct SymbolInfo {
        std::string name;
        SymbolClass symbolClass = SYMBOL_UNKNOWN;
        TypeClass typeClass = TYPE_NONE;
        boost::shared_ptr<ISymbolContext> typeContext;
        boost::shared_ptr<ISymbolContext> baseTypeContext;
        boost::shared_ptr<ISymbolContext> indexTypeContext;
        int size = 0;
        int length = 0;
        int offset = 0;
        uint64_t address = 0;
        bool multiLocation = false;
        std::vector<unsigned char> value;
    };

    // The id is "Sym" and the next number of a process-wide counter. An id
    // still alive throws "SymbolContext id is reused".
    SymbolContext(SymbolInfo& info, boost::shared_ptr<link_variant> linkVariant);
    ~SymbolContext() override;

    // The living context of that id, or empty.
    static boost::shared_ptr<SymbolContext> getContextFromId(const std::string& id);
    // Logs every living context's id at debug level on "dbg".
    static void dumpContexts();

    bool hasMultipleLocation() const { return info.multiLocation; }
    const boost::shared_ptr<link_variant>& getLinkVariant() const { return linkVariant; }

    std::string getName() override;
    SymbolClass getSymbolClass() override;
    StorageClass getStorageClass() override;
    TypeClass getTypeClass() override;
    boost::shared_ptr<ISymbolContext> getTypeContext() override;
    boost::shared_ptr<ISymbolContext> getBaseTypeContext() override;
    boost::shared_ptr<ISymbolContext> getIndexTypeContext() override;
    int getSize() override;
    int getLength() override;
    int getOffset() override;
    uint64_t getAddress() override;
    std::vector<unsigned char> getValue() override;
    bool isBitField() override;
    int getBitSize() override;
    int getBitOffset() override;
    std::vector<int> getArrayDimensions() override;
    boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext> frame) override;
    // A struct's fields or an enum's constants as new contexts, kept alive
    // by this one; every call makes new ones. Empty for other types.
    std::vector<boost::shared_ptr<ISymbolContext>> getChildren(SymbolClass symbolClass) override;
    boost::shared_ptr<ISymbolContext> lookupChild(SymbolClass symbolClass,
                                                  const std::string& name) override;
    bool isEquivalent(boost::shared_ptr<ISymbolContext> other) const override;
    json_spirit::Object getProperties() override;

private:
    std::list<boost::shared_ptr<SymbolContext>> children;
    boost::shared_ptr<link_variant> linkVariant;
    SymbolInfo info;

    static std::map<std::string, SymbolContext*> internalTypes;
};

// A context of a constant or function chain (SYMBOL_VALUE) or of a type
// (SYMBOL_TYPE), with the given name, size and address.
boost::shared_ptr<ISymbolContext> createSymbolContext(boost::shared_ptr<link_variant> link,
                                                      const std::string& name, int size,
                                                      unsigned long address);
// A type context of the chain, named by its type text, and "@" and the
// location's text when there is a location.
boost::shared_ptr<ISymbolContext> createSymbolContextFromLinkVariant(
    boost::shared_ptr<link_variant> link, boost::shared_ptr<ILocation> location,
    boost::shared_ptr<CompilerInfo> compilerInfo);
// The chain of a symbol context. Members and enumerators of composites and
// enums go to the end of types; symbols is only passed along.
boost::shared_ptr<link_variant> createLinkVariantFromISymbolContext(
    boost::shared_ptr<ISymbolContext> symbol, boost::shared_ptr<SymtabList> types,
    boost::shared_ptr<SymtabList> symbols);

// An unsigned integer entry over the process register at position reg; named
// by the location's text when name is empty.
boost::shared_ptr<symtab> createRegisterSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                               const std::string& name, int reg, int size);
// The same as a float (double for 8 bytes).
boost::shared_ptr<symtab> createFpRegisterSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                                 const std::string& name, int reg, int size);
// An unsigned integer of size bytes at a "data" address; the bit numbers are
// only kept in the location.
boost::shared_ptr<symtab> createBitfieldSymbol(boost::shared_ptr<IStackTraceContext> stack,
                                               const std::string& name, unsigned int address,
                                               unsigned int size, unsigned int bitOffset,
                                               unsigned int bitSize);
// An unsigned integer constant of size bytes, with no location.
boost::shared_ptr<symtab> createNamedIntegerConstant(const std::string& name, uint64_t value,
                                                     unsigned int size);

#endif
