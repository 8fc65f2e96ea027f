// Watch expressions: any text, parsed and evaluated against the expression
// tests' fixture program (32-bit profile, memory in host RAM), ends either
// with a value or with one of the engine's own failures: a C-string text,
// a GenericError (syntax errors among them) or a CoreException of the
// layers below. Anything else escaping, or a crash, is a finding. A value
// that has a type has a size the type printer can name.

#include "fuzzcheck.h"

#include "libcommon/expr/evaluation.h"
#include "libcommon/expr/symbolaccess.h"

// The fixture program of the expression tests, built into the harness.
#include "../tests/expr/exprfixture.cpp"

#include <boost/make_shared.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

namespace {

struct Program {
    ExprFixture fx{ExprFixture::TARN32};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Program program;
    ExprFixture& fx = program.fx;
    // Fresh lists for every input, so definitions of one input do not
    // decide the outcome of the next.
    auto api = boost::make_shared<SymbolAccessorApi>(
        fx.symbolInformation, fx.frame, fx.compilerInfo, boost::make_shared<SymtabList>(),
        boost::make_shared<SymtabList>());
    // A struct that points to itself leaves a reference cycle in the lists;
    // whoever owns the lists breaks it when dropping them, as a plug-in does
    // at the end of its session.
    struct Release {
        SymbolAccessorApi& api;
        ~Release() {
            releaseSymtabList(*api.getTypes());
            releaseSymtabList(*api.getSymbols());
        }
    } release{*api};
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        std::string format;
        int bits = -1;
        value v = evalExpression(text, api, &format, &bits);
        FUZZ_CHECK(v.type ? bits >= 0 : bits == 0, "size of the result");
        if (v.type) FUZZ_CHECK(!getTypeText(v.type, true, *fx.compilerInfo).empty(), "type text");
    } catch (const char*) {
    } catch (const GenericError&) {
    } catch (const CoreException&) {
    } catch (const std::exception& e) {
        FUZZ_CHECK(false, std::string("foreign exception: ") + e.what());
    } catch (...) {
        FUZZ_CHECK(false, "unknown exception");
    }
    return 0;
}
