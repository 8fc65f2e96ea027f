#include "libcommon/expr/symbolaccess.h"

#include "libcommon/expr/symbolcontext.h"
#include "libcommon/ilocation.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/iregisterscontext.h"
#include "libcommon/istacktracecontext.h"
#include "libcommon/isymbolcontext.h"
#include "libcommon/isymbolinformation.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

boost::shared_ptr<symtab> findInList(const boost::shared_ptr<SymtabList>& list,
                                     const std::string& name) {
    if (!list) return boost::shared_ptr<symtab>();
    for (const auto& entry : *list) {
        if (entry && entry->name == name) return entry;
    }
    return boost::shared_ptr<symtab>();
}

char upper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// From position 1 on, skips zeros as long as a character remains behind.
std::size_t skipZeros(const std::string& text) {
    std::size_t i = 1;
    while (i + 1 < text.size() && text[i] == '0') ++i;
    return i;
}

}  // namespace

bool registerNameMatches(const std::string& r, const std::string& s) {
    if (r.empty() || s.empty() || upper(r[0]) != upper(s[0])) return false;
    std::size_t i = skipZeros(r);
    std::size_t j = skipZeros(s);
    if (r.size() - i != s.size() - j) return false;
    for (; i < r.size(); ++i, ++j) {
        if (upper(s[j]) != r[i]) return false;
    }
    return true;
}

SymbolAccessorApi::SymbolAccessorApi(boost::shared_ptr<ISymbolInformation> symbolInformation,
                                     boost::shared_ptr<IStackTraceContext> stackTrace,
                                     boost::shared_ptr<CompilerInfo> compilerInfo,
                                     boost::shared_ptr<SymtabList> types,
                                     boost::shared_ptr<SymtabList> symbols)
    : symbolInformation(std::move(symbolInformation)),
      stackTrace(std::move(stackTrace)),
      compilerInfo(std::move(compilerInfo)),
      types(std::move(types)),
      symbols(std::move(symbols)) {}

SymbolAccessorApi::~SymbolAccessorApi() = default;

boost::shared_ptr<ISymbolContext> SymbolAccessorApi::findsymbol(const std::string& name,
                                                                bool wantType) {
    if (symbolInformation && stackTrace) {
        auto found =
            symbolInformation->findSymbolAt(name, stackTrace->getInstructionAddress(), wantType);
        if (found) return found;
    }
    auto process = stackTrace ? stackTrace->getProcess() : boost::shared_ptr<IProcessContext>();
    if (process) {
        for (const auto& module : process->getModules()) {
            auto information =
                module ? module->getSymbolInformation() : boost::shared_ptr<ISymbolInformation>();
            if (!information || information == symbolInformation) continue;
            auto found = information->findGlobalSymbol(name, wantType);
            if (found) return found;
        }
    }
    return boost::shared_ptr<ISymbolContext>();
}

boost::shared_ptr<symtab> SymbolAccessorApi::findtype(const std::string& name) {
    auto symbol = findsymbol(name, true);
    if (symbol && symbol->getSymbolClass() == ISymbolContext::SYMBOL_TYPE)
        return boost::make_shared<symtab>(symbol, *this);
    return findInList(types, name);
}

boost::shared_ptr<symtab> SymbolAccessorApi::findvar(const std::string& name) {
    // Only debug information knows scopes; the lists hold plain names.
    auto symbol = findsymbol(symbolScope + name, false);
    if (symbol && symbol->getSymbolClass() != ISymbolContext::SYMBOL_TYPE)
        return boost::make_shared<symtab>(symbol, *this);
    if (auto stored = findInList(symbols, name)) return stored;
    for (const auto& resolver : nameResolvers) {
        auto resolved = resolver(name);
        if (resolved) {
            // Kept, so the resolver is not asked again for this name.
            if (symbols) symbols->push_back(resolved);
            return resolved;
        }
    }
    return findRegister(name);
}

boost::shared_ptr<symtab> SymbolAccessorApi::findRegister(const std::string& name) {
    if (registers.empty() && stackTrace) {
        // Filled once: the register set of a process does not change.
        auto process = stackTrace->getProcess();
        if (process) registers = process->getRegisters();
    }
    const std::string wanted = !name.empty() && name[0] == '$' ? name.substr(1) : name;
    for (std::size_t index = 0; index < registers.size(); ++index) {
        const auto& reg = registers[index];
        if (!reg || !registerNameMatches(reg->getName(), wanted)) continue;
        const int position = static_cast<int>(index);
        return reg->isFloat() ? createFpRegisterSymbol(stackTrace, name, position, reg->getSize())
                              : createRegisterSymbol(stackTrace, name, position, reg->getSize());
    }
    return boost::shared_ptr<symtab>();
}

void SymbolAccessorApi::storeSymbol(const std::string&, boost::shared_ptr<symtab> entry) {
    if (symbols) symbols->push_back(std::move(entry));
}

void SymbolAccessorApi::storeType(const std::string&, boost::shared_ptr<symtab> entry) {
    if (types) types->push_back(std::move(entry));
}

void SymbolAccessorApi::addNameResolver(NameResolver resolver) {
    nameResolvers.push_back(std::move(resolver));
}

// An entry for a debug-information symbol, located in the API's frame.
symtab::symtab(const boost::shared_ptr<ISymbolContext>& symbol, const SymbolAccessorApi& api)
    : name(symbol->getName()) {
    switch (symbol->getSymbolClass()) {
        case ISymbolContext::SYMBOL_VALUE: {
            const std::vector<unsigned char> bytes = symbol->getValue();
            auto typeContext = symbol->getTypeContext();
            if (symbol->getTypeClass() == ISymbolContext::TYPE_SIGNED) {
                type = makeInt(IT_SLONG, 0).type;
            } else {
                type = createLinkVariantFromISymbolContext(typeContext, api.getTypes(),
                                                           api.getSymbols());
            }
            auto end = findChainEnd(type);
            if (end && end->spec) {
                // The constant gets a specifier of its own, so the type it
                // was described with is not turned into a constant.
                end->spec = boost::make_shared<specifier>(*end->spec);
                end->spec->sclass = SC_CONSTANT;
                uint64_t bits = 0;
                std::memcpy(&bits, bytes.data(), std::min<std::size_t>(bytes.size(), 8));
                end->spec->val = bits;
            }
            break;
        }
        case ISymbolContext::SYMBOL_TYPE:
            type = createLinkVariantFromISymbolContext(symbol, api.getTypes(), api.getSymbols());
            break;
        default: {
            location = symbol->getLocation(api.getStackTrace());
            auto typeContext = symbol->getTypeContext();
            type = typeContext ? createLinkVariantFromISymbolContext(typeContext, api.getTypes(),
                                                                     api.getSymbols())
                               : makeDeclaratorLink(DECL_FUNCTION);
            if (type && location) {
                const uint32_t code = memorySpaceCodeOfName(location->getMemoryName());
                if (code != MEMSPACE_NONE) setMemorySpaceCode(type, code);
            }
            break;
        }
    }
    const auto info = api.getCompilerInfo();
    if (type && location && info && info->intBits == 16 &&
        getMemorySpaceCode(type) == MEMSPACE_PROG &&
        (isFunction(type) || (isPointer(type) && isFunction(type->next)))) {
        // Code on these targets is word-addressed: the debug information's
        // byte address becomes the word address the program uses.
        const auto address = location->getAbsoluteAddress();
        location = location->createAtOffset(-static_cast<int>(address / 2),
                                            static_cast<unsigned int>(info->functionBits), 0, 0);
    }
    if (type) etype = findChainEnd(type);
}
