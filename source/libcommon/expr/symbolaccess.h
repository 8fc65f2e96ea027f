#ifndef LIBCOMMON_EXPR_SYMBOLACCESS_H
#define LIBCOMMON_EXPR_SYMBOLACCESS_H

// SymbolAccessorApi: the one door between the expression interpreter and
// the rest of the system. A plug-in builds one for a stack frame from the
// program's debug information, the frame, the target's CompilerInfo and
// two lists of symtab entries that outlive a single evaluation, and passes
// it to evalExpression. Names, typedefs, registers and the format suffix
// all go through it.
//
// Look-up order of a variable name (findvar), first answer wins:
//   1. debug information: the symbol information of the API, seen from the
//      frame's instruction address, then every other module of the process
//      (globals only); a type found here is passed over;
//   2. the `symbols` list, oldest entry first;
//   3. the name resolvers, in the order they were added; an answer is
//      appended to `symbols`, so a resolver is asked once per name;
//   4. the process's registers, case-insensitively, with an optional "$"
//      and leading zeros of the number ignored ("r1", "R01" and "$r001"
//      all name R1).
// So a variable named like a register hides it. A type name (findtype)
// looks at debug information, then the `types` list.
//
// Nothing is thrown for an unknown name: the look-ups give an empty
// pointer. Exceptions of the symbol information, the frame and the
// location layer pass through.
//
//     auto types = boost::make_shared<SymtabList>();
//     auto symbols = boost::make_shared<SymtabList>();
//     auto api = boost::make_shared<SymbolAccessorApi>(info, frame, compilerInfo,
//                                                      types, symbols);
//     api->findvar("counter");     // a symtab with chain and location
//
// Copies share the two lists (value semantics for the rest). Not
// synchronised: evaluations run under the evaluation lock.

#include "libcommon/expr/typechains.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <list>
#include <string>
#include <vector>

class IRegistersContext;
class IStackTraceContext;
class ISymbolContext;
class ISymbolInformation;

class SymbolAccessorApi {
public:
    typedef boost::function<boost::shared_ptr<symtab>(const std::string&)> NameResolver;

    SymbolAccessorApi(boost::shared_ptr<ISymbolInformation> symbolInformation,
                      boost::shared_ptr<IStackTraceContext> stackTrace,
                      boost::shared_ptr<CompilerInfo> compilerInfo,
                      boost::shared_ptr<SymtabList> types, boost::shared_ptr<SymtabList> symbols);
    SymbolAccessorApi(const SymbolAccessorApi&) = default;
    SymbolAccessorApi(SymbolAccessorApi&&) = default;
    SymbolAccessorApi& operator=(const SymbolAccessorApi&) = default;
    SymbolAccessorApi& operator=(SymbolAccessorApi&&) = default;
    ~SymbolAccessorApi();

    // The symbol of that name in debug information: the API's own module
    // seen from the frame, then the other modules' globals. Empty if none.
    boost::shared_ptr<ISymbolContext> findsymbol(const std::string& name, bool wantType);
    boost::shared_ptr<symtab> findtype(const std::string& name);
    boost::shared_ptr<symtab> findvar(const std::string& name);

    // Append to the lists; the name argument is not looked at, later
    // look-ups compare the entry's own name.
    void storeSymbol(const std::string& name, boost::shared_ptr<symtab> entry);
    void storeType(const std::string& name, boost::shared_ptr<symtab> entry);
    void addNameResolver(NameResolver resolver);

    // Struct scopes have no effect on look-ups.
    void pushScope(const std::string&) {}
    void popScope() {}
    // The text put in front of a name during a scoped look-up ("{fn,file}");
    // scopes do not nest.
    void pushSymbolScope(const std::string& scope) { symbolScope = scope; }
    void popSymbolScope() { symbolScope.clear(); }

    boost::shared_ptr<CompilerInfo> getCompilerInfo() const { return compilerInfo; }
    const std::string& getFormatString() const { return formatString; }
    void setFormatString(const std::string& format) { formatString = format; }

    boost::shared_ptr<ISymbolInformation> getSymbolInformation() const { return symbolInformation; }
    boost::shared_ptr<IStackTraceContext> getStackTrace() const { return stackTrace; }
    boost::shared_ptr<SymtabList> getTypes() const { return types; }
    boost::shared_ptr<SymtabList> getSymbols() const { return symbols; }

private:
    boost::shared_ptr<symtab> findRegister(const std::string& name);

    boost::shared_ptr<ISymbolInformation> symbolInformation;
    boost::shared_ptr<IStackTraceContext> stackTrace;
    boost::shared_ptr<CompilerInfo> compilerInfo;
    boost::shared_ptr<SymtabList> types;
    boost::shared_ptr<SymtabList> symbols;
    std::vector<boost::shared_ptr<IRegistersContext>> registers;
    std::string formatString;
    std::list<NameResolver> nameResolvers;
    std::string symbolScope;
};

// Whether a register's name r matches the text s of a register look-up:
// first characters equal ignoring case, then zeros after the first
// character skipped on both sides (keeping at least one character), then
// the rest of s, upper-cased, equal to the rest of r.
bool registerNameMatches(const std::string& r, const std::string& s);

#endif
