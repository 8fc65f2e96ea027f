#ifndef LIBCOMMON_ISYMBOLCONTEXT_H
#define LIBCOMMON_ISYMBOLCONTEXT_H

// A symbol or a type as the debug context model shows it. Plug-ins with
// debug information implement it; the expression engine turns such a
// context into a type chain and back (see expr/symbolcontext.h). Plug-ins
// compile against the numbers of the three enumerations, so they never
// change.

#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class ILocation;
class IStackTraceContext;

class ISymbolContext : public IContextBase {
public:
    enum SymbolClass : int {
        SYMBOL_UNKNOWN = 0,  // gives a void chain
        SYMBOL_VALUE = 1,    // a constant; its bytes come from getValue()
        SYMBOL_OBJECT = 2,   // an object; the type class tells the chain
        SYMBOL_FUNCTION = 3,
        SYMBOL_TYPE = 4,  // a type; the type class tells the chain
        SYMBOL_ALIAS = 5  // stands for its type context
    };

    enum TypeClass : int {
        TYPE_NONE = 0,
        TYPE_UNSIGNED = 1,
        TYPE_SIGNED = 2,
        TYPE_FLOAT = 3,
        TYPE_POINTER = 4,
        TYPE_ARRAY = 5,
        TYPE_COMPOSITE = 6,  // struct, union or class
        TYPE_ENUM = 7,
        TYPE_FUNCTION = 8,
        TYPE_REFERENCE = 9
    };

    // Only STORAGE_MEMBER is read by the library: it makes a child a member
    // of a composite. Plug-ins may pass other numbers.
    enum StorageClass : int { STORAGE_NONE = 0, STORAGE_MEMBER = 3 };

    virtual std::string getName() = 0;
    virtual SymbolClass getSymbolClass() = 0;
    virtual StorageClass getStorageClass() = 0;
    virtual TypeClass getTypeClass() = 0;
    virtual boost::shared_ptr<ISymbolContext> getTypeContext() = 0;
    virtual boost::shared_ptr<ISymbolContext> getBaseTypeContext() = 0;
    virtual boost::shared_ptr<ISymbolContext> getIndexTypeContext() = 0;
    // Bytes.
    virtual int getSize() = 0;
    // Array elements.
    virtual int getLength() = 0;
    // Bytes from the start of the enclosing aggregate.
    virtual int getOffset() = 0;
    virtual uint64_t getAddress() = 0;
    // A constant's bytes, least significant first.
    virtual std::vector<unsigned char> getValue() = 0;
    virtual bool isBitField() = 0;
    virtual int getBitSize() = 0;
    virtual int getBitOffset() = 0;
    // Outermost dimension first.
    virtual std::vector<int> getArrayDimensions() = 0;
    virtual boost::shared_ptr<ILocation> getLocation(
        boost::shared_ptr<IStackTraceContext> frame) = 0;
    virtual std::vector<boost::shared_ptr<ISymbolContext>> getChildren(SymbolClass symbolClass) = 0;
    virtual boost::shared_ptr<ISymbolContext> lookupChild(SymbolClass symbolClass,
                                                          const std::string& name) = 0;
    virtual bool isEquivalent(boost::shared_ptr<ISymbolContext> other) const = 0;
};

#endif
