#ifndef LIBCOMMON_TESTS_EXPR_TEST_EVALUATION_SUPPORT_H
#define LIBCOMMON_TESTS_EXPR_TEST_EVALUATION_SUPPORT_H

// What the whole-evaluation tests share: the fixture program on one
// profile, a SymbolAccessorApi over its frame and lists, and helpers that
// evaluate a text.

#include "exprfixture.h"

#include "libcommon/expr/evaluation.h"
#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/symbolaccess.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <string>

inline boost::shared_ptr<SymbolAccessorApi> apiOver(const ExprFixture& fx) {
    return boost::make_shared<SymbolAccessorApi>(fx.symbolInformation, fx.frame, fx.compilerInfo,
                                                 fx.types, fx.symbols);
}

// Test names of the two profiles.
inline std::string profileName(const ::testing::TestParamInfo<ExprFixture::Profile>& info) {
    return info.param == ExprFixture::TARN8 ? "Tarn8" : "Tarn32";
}

class EvaluationFixtureTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    EvaluationFixtureTest() : fx(GetParam()), api(apiOver(fx)) {}

    value eval(const std::string& text) { return evalExpression(text, api); }
    // The value as a number of its own kind's width and signedness.
    int64_t number(const std::string& text) {
        const value v = eval(text);
        return static_cast<int64_t>(
            convertScalar(api, IT_S64, v.val, getArithmeticSubtype(v.type)));
    }
    std::string failure(const std::string& text) {
        return thrownText([&] { eval(text); });
    }

    ExprFixture fx;
    boost::shared_ptr<SymbolAccessorApi> api;
};

#endif
