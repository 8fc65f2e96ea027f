#include "libcommon/dwarf/elfwatch.h"

#include "libcommon/core/status.h"
#include "libcommon/dwarf/watchformat.h"
#include "libcommon/expr/evaluation.h"
#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/symbolaccess.h"

#include <boost/make_shared.hpp>

ElfWatch::ElfWatch(const std::string& path) : ElfWatch(DwarfSymbolInformation::open(path)) {}

ElfWatch::ElfWatch(boost::shared_ptr<DwarfSymbolInformation> symbolInformation)
    : symbols(std::move(symbolInformation)),
      process(ElfProcessContext::create(symbols)),
      compilerInfo(symbols->getCompilerInfo()) {}

boost::shared_ptr<IStackTraceContext> ElfWatch::frame(uint64_t instructionAddress) {
    return process->createFrame(instructionAddress);
}

WatchResult ElfWatch::evaluate(const std::string& expression, uint64_t instructionAddress) {
    auto types = boost::make_shared<SymtabList>();
    auto names = boost::make_shared<SymtabList>();
    WatchResult result;
    try {
        auto api = boost::make_shared<SymbolAccessorApi>(symbols, frame(instructionAddress),
                                                         compilerInfo, types, names);
        value v = evalExpression(expression, api, nullptr, nullptr);
        // A name nobody knows comes back untyped; fetching it gives the
        // engine's own failure for it.
        if (!v.type) {
            ScopedCompilerInfo inForce(compilerInfo);
            v = fetchValue(v, api);
        }
        result = describe(expression, v);
    } catch (...) {
        result.expression = expression;
        result.error = watchErrorText(std::current_exception());
    }
    // The chains of a struct that points to itself hold each other through
    // the member entries of these lists; nothing outlives this evaluation.
    releaseSymtabList(*types);
    releaseSymtabList(*names);
    return result;
}

WatchResult ElfWatch::describe(const std::string& expression, const value& v) {
    WatchResult result;
    result.expression = expression;
    try {
        ScopedCompilerInfo inForce(compilerInfo);
        result.type = v.type ? getTypeText(v.type, false, *compilerInfo) : "void";
        result.size = v.type ? static_cast<int>(get_bit_sizeof(v.type, *compilerInfo) / 8) : 0;
        result.value = formatWatchValue(v, *compilerInfo);
        result.ok = true;
    } catch (...) {
        result.error = watchErrorText(std::current_exception());
    }
    return result;
}

std::string watchErrorText(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const GenericError& e) {
        return e.getString();
    } catch (const CoreException& e) {
        return e.getStatus() ? e.getStatus()->getMessage() : e.what();
    } catch (const std::exception& e) {
        return e.what();
    } catch (const char* text) {
        return text;
    } catch (...) {
        return "unknown failure";
    }
}
