#ifndef LIBCOMMON_ISYMBOLINFORMATION_H
#define LIBCOMMON_ISYMBOLINFORMATION_H

// The debug information of one program module, as a plug-in offers it to
// the expression engine. Both lookups give an empty pointer when the name
// is not known; wantType asks for a type of that name rather than an
// object.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

class ISymbolContext;

class ISymbolInformation {
public:
    virtual ~ISymbolInformation() {}
    // The symbol as seen from the instruction at address (locals of the
    // function there hide globals).
    virtual boost::shared_ptr<ISymbolContext> findSymbolAt(const std::string& name,
                                                           uint64_t address, bool wantType) = 0;
    virtual boost::shared_ptr<ISymbolContext> findGlobalSymbol(const std::string& name,
                                                               bool wantType) = 0;
};

#endif
