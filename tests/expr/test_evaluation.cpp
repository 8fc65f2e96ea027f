// Whole evaluations on the shared fixture: constants, names, sizeof,
// casts, statements, the format suffix, syntax errors and the lock.

#include "test_evaluation_support.h"

#include "libcommon/expr/symbolcontext.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

class EvaluationTest : public EvaluationFixtureTest {
protected:
    int subtypeOf(const std::string& text) { return findChainEnd(eval(text).type)->spec->subtype; }
    bool tarn8() const { return fx.profile == ExprFixture::TARN8; }
};

double asDouble(const value& v) {
    double d;
    std::memcpy(&d, &v.val, sizeof d);
    return d;
}

float asFloat(const value& v) {
    float f;
    const uint32_t bits = static_cast<uint32_t>(v.val);
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

TEST_P(EvaluationTest, IntegerConstantsTakeTheirKindFromBaseAndSuffix) {
    EXPECT_EQ(subtypeOf("5"), IT_LONG);
    EXPECT_EQ(subtypeOf("5u"), IT_ULONG);
    EXPECT_EQ(subtypeOf("5L"), IT_LONG);
    EXPECT_EQ(subtypeOf("5UL"), IT_ULONG);
    EXPECT_EQ(subtypeOf("0x10"), IT_ULONG);
    EXPECT_EQ(subtypeOf("010"), IT_LONG);
    EXPECT_EQ(subtypeOf("5ll"), IT_S64);
    EXPECT_EQ(subtypeOf("5i64"), IT_S64);
    EXPECT_EQ(subtypeOf("5ull"), IT_U64);
    EXPECT_EQ(subtypeOf("0x5ui64"), IT_U64);
    EXPECT_EQ(subtypeOf("'a'"), IT_LONG);

    EXPECT_EQ(number("0x1F"), 31);
    EXPECT_EQ(number("017"), 15);
    EXPECT_EQ(number("-5"), -5);
    EXPECT_EQ(number("+-+7"), -7);
    EXPECT_EQ(number("--7"), 7);
    EXPECT_EQ(number("0x123456789abcdefull"), 0x123456789abcdefll);
    // Without a 64-bit suffix a number is cut to a long and sign-extended.
    EXPECT_EQ(number("4294967295"), -1);
    EXPECT_EQ(number("0xFFFFFFFF"), 0xFFFFFFFFll);
    EXPECT_EQ(number("4294967296"), 0);
    EXPECT_EQ(failure("09"), "invalid numeric constant");
    EXPECT_EQ(failure("09ll"), "invalid int64 constant");
    EXPECT_EQ(failure("0x10000000000000000ull"), "invalid int64 constant");
}

TEST_P(EvaluationTest, CharacterConstants) {
    EXPECT_EQ(number("'a'"), 'a');
    EXPECT_EQ(number("'\\n'"), 10);
    EXPECT_EQ(number("'\\t'"), 9);
    EXPECT_EQ(number("'\\v'"), 11);
    EXPECT_EQ(number("'\\''"), '\'');
    EXPECT_EQ(number("'\\\\'"), '\\');
    EXPECT_EQ(number("'\\012'"), 10);
    EXPECT_EQ(number("'\\0'"), 0);
    // Characters are signed bytes.
    EXPECT_EQ(number("'\xE9'"), -23);
    EXPECT_EQ(failure("'\\x'"), "invalid char constant");
    EXPECT_EQ(failure("'\\09'"), "Syntax error: parsing stopped at '\\09'.");
}

TEST_P(EvaluationTest, FloatConstants) {
    // Doubles of the 8-bit profile are 32 bits wide.
    if (tarn8()) {
        EXPECT_EQ(subtypeOf("1.5"), FT_FLOAT);
        EXPECT_EQ(subtypeOf("1.5l"), FT_FLOAT);
        EXPECT_EQ(asFloat(eval("2.5e1")), 25.0f);
    } else {
        EXPECT_EQ(subtypeOf("1.5"), FT_DOUBLE);
        EXPECT_EQ(subtypeOf("1.5l"), FT_LONGDOUBLE);
        EXPECT_EQ(asDouble(eval("2.5e1")), 25.0);
        EXPECT_EQ(asDouble(eval(".5")), 0.5);
        EXPECT_EQ(asDouble(eval("-1.")), -1.0);
    }
    EXPECT_EQ(subtypeOf("1.5f"), FT_FLOAT);
    EXPECT_EQ(subtypeOf("1.5L"), FT_FLOAT);
    EXPECT_EQ(subtypeOf("1.5F"), FT_FLOAT);
    EXPECT_EQ(asFloat(eval("1.5f")), 1.5f);
    // A tie between real and integer goes to the integer.
    EXPECT_EQ(subtypeOf("1"), IT_LONG);
}

TEST_P(EvaluationTest, NamesReadTheTarget) {
    EXPECT_EQ(number("counter"), 5);
    EXPECT_EQ(number("sh"), -2);
    EXPECT_EQ(number("uc"), 200);
    EXPECT_EQ(number("local"), -7);
    EXPECT_EQ(number("rv"), 'z');
    EXPECT_EQ(number("GREEN"), 5);
    EXPECT_EQ(number("colour"), 5);

    fx.pokeNumber(0x100, 1234, static_cast<size_t>(fx.intSize));
    EXPECT_EQ(number("counter"), 1234);

    // An unknown name alone is no failure: it has no type, and is marked.
    const value unknown = eval("nosuch");
    EXPECT_FALSE(unknown.type);
    ASSERT_TRUE(unknown.sym);
    EXPECT_EQ(unknown.sym->locsize, -1);
    EXPECT_EQ(failure("(char)nosuch"), "Cast of unknown variable");
}

TEST_P(EvaluationTest, RegistersAreTheLastSource) {
    fx.process->registerFile[3] = 0x5A;
    EXPECT_EQ(number("$R3"), 0x5A);
    EXPECT_EQ(number("r03"), 0x5A);
    EXPECT_EQ(eval("$R3").sym->name, "$R3");
    // A resolver's symbol comes before a register of the same name.
    api->addNameResolver([](const std::string& name) {
        return name == "R3" ? createNamedIntegerConstant("R3", 77, 2) : boost::shared_ptr<symtab>();
    });
    EXPECT_EQ(number("R3"), 77);
    EXPECT_EQ(number("$R3"), 0x5A);
}

TEST_P(EvaluationTest, SizeofOfTypesAndExpressions) {
    const int64_t I = fx.intSize;
    EXPECT_EQ(number("sizeof counter"), I);
    EXPECT_EQ(number("sizeof(counter)"), I);
    EXPECT_EQ(number("sizeof flags"), 4 * I);
    EXPECT_EQ(number("sizeof nums"), 4 * I);
    EXPECT_EQ(number("sizeof buf"), 8);
    EXPECT_EQ(number("sizeof(struct Flags)"), 4 * I);
    EXPECT_EQ(number("sizeof(int)"), I);
    EXPECT_EQ(number("sizeof(double)"), tarn8() ? 4 : 8);
    EXPECT_EQ(number("sizeof(char)"), 1);
    EXPECT_EQ(number("sizeof 1.5f"), 4);
    EXPECT_EQ(number("sizeof 5ll"), 8);
    EXPECT_EQ(subtypeOf("sizeof(int)"), IT_UINT);
    // sizeof never reads: a variable that cannot be read still measures.
    EXPECT_EQ(number("sizeof gone"), I);
    EXPECT_EQ(failure("sizeof nosuch"), "undefined operand in unary op");
    // A string literal is a pointer held by the evaluator.
    EXPECT_EQ(number("sizeof(\"ab\")"), fx.pointerSize);
    EXPECT_EQ(failure("\"ab\""), "String literals not supported");
}

TEST_P(EvaluationTest, CastsOfConstants) {
    EXPECT_EQ(number("(char)0x141"), 0x41);
    EXPECT_EQ(number("(unsigned char)-1"), 255);
    EXPECT_EQ(number("(short)70000"), 4464);
    EXPECT_EQ(subtypeOf("(short)70000"), IT_SHORT);
    EXPECT_EQ(number("(int)2.9"), 2);
    EXPECT_EQ(number("(long)-2.9"), -2);
    EXPECT_EQ(asFloat(eval("(float)3")), 3.0f);
    EXPECT_EQ(number("(char)(short)0x1234"), 0x34);
    EXPECT_EQ(failure("(struct Flags)1"), "Illegal cast-to type");
    EXPECT_EQ(failure("(int [2])1"), "Illegal cast-to type");
    EXPECT_EQ(failure("(int)nosuch"), "Cast of unknown variable");
}

TEST_P(EvaluationTest, StatementsFormatAndSize) {
    EXPECT_EQ(number("1; counter"), 5);
    EXPECT_EQ(number("counter;"), 5);

    std::string format = "unchanged";
    int bits = -1;
    value v = evalExpression("counter, hex", api, &format, &bits);
    EXPECT_EQ(v.val, 5u);
    EXPECT_EQ(format, "hex");
    EXPECT_EQ(bits, 8 * fx.intSize);
    // The format stays with the API until the next suffix.
    evalExpression("counter", api, &format, &bits);
    EXPECT_EQ(format, "hex");
    evalExpression("sizeof(char)", api, nullptr, &bits);
    EXPECT_EQ(bits, 8 * fx.intSize);
    // The left side of a format suffix is read like any value.
    EXPECT_EQ(failure("nothing, x"), "Could not resolve name");
}

TEST_P(EvaluationTest, SyntaxErrorsComeBeforeAnyEvaluation) {
    EXPECT_EQ(failure("counter counter"), "Syntax error: parsing stopped at counter.");
    EXPECT_EQ(failure("nosuch )"), "Syntax error: parsing stopped at ).");
    EXPECT_EQ(failure(""), "Syntax error: parsing stopped at .");
    EXPECT_THROW(evalExpression("counter", boost::shared_ptr<SymbolAccessorApi>()), const char*);
}

TEST_P(EvaluationTest, ScopePrefixesReachTheDebugInformation) {
    fx.symbolInformation->globals["{main,main.c}counter"] =
        fx.symbolInformation->globals["counter"];
    EXPECT_EQ(number("{main,\"main.c\"}counter"), 5);
    EXPECT_EQ(number("{main,main.c}counter"), 5);
    EXPECT_FALSE(eval("{other}counter").type);
    EXPECT_FALSE(eval("{,other.c}counter").type);
    // The scope ends with the name.
    EXPECT_EQ(number("{other}counter; counter"), 5);
}

TEST_P(EvaluationTest, DeepNestingEvaluatesWithLinearLookups) {
    auto lookupsFor = [&](int depth) {
        std::string text = "counter";
        for (int i = 0; i < depth; ++i) text = "(counter + " + text + ")";
        const int before = fx.symbolInformation->lookups;
        EXPECT_EQ(number(text), 5 * (depth + 1)) << depth;
        return fx.symbolInformation->lookups - before;
    };
    const int shallow = lookupsFor(10);
    const int deep = lookupsFor(200);
    // Twenty times the nesting, at most twenty-one times the questions.
    EXPECT_LE(deep, 21 * shallow);
}

TEST_P(EvaluationTest, ListsKeptForASessionStopGrowing) {
    // A plug-in keeps the two lists for a whole session and evaluates its
    // watch expressions again at every stop.
    const std::vector<std::string> watches = {
        "flags.c",   "node.next->value",  "colour == BLUE",       "sizeof(struct Flags)",
        "(Colour)5", "flags.x + nums[1]", "counter = counter + 1"};
    for (const std::string& text : watches) eval(text);
    const size_t types = fx.types->size(), symbols = fx.symbols->size();
    for (int round = 0; round < 200; ++round)
        for (const std::string& text : watches) eval(text);
    EXPECT_EQ(fx.types->size(), types);
    EXPECT_EQ(fx.symbols->size(), symbols);
    EXPECT_EQ(number("node.next->next->value"), 42);
    EXPECT_EQ(number("colour == GREEN"), 1);
    EXPECT_EQ(number("flags.y"), -8);
    EXPECT_EQ(number("counter"), 5 + 201);
}

INSTANTIATE_TEST_SUITE_P(Profiles, EvaluationTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

// Two threads that evaluate at once take turns: a slow name resolver never
// runs in both at the same time.
TEST(EvaluationLock, SerialisesEvaluationsOfAllApis) {
    ExprFixture fx(ExprFixture::TARN32);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    auto makeApi = [&] {
        auto api = boost::make_shared<SymbolAccessorApi>(
            fx.symbolInformation, fx.frame, fx.compilerInfo, boost::make_shared<SymtabList>(),
            boost::make_shared<SymtabList>());
        api->addNameResolver([&](const std::string& name) {
            const int now = ++inside;
            int seen = most.load();
            while (now > seen && !most.compare_exchange_weak(seen, now)) {
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            --inside;
            return createNamedIntegerConstant(name, 42, 4);
        });
        return api;
    };
    auto first = makeApi();
    auto second = makeApi();
    uint64_t results[2] = {0, 0};
    std::thread a([&] { results[0] = evalExpression("slow1", first).val; });
    std::thread b([&] { results[1] = evalExpression("slow2", second).val; });
    a.join();
    b.join();
    EXPECT_EQ(most.load(), 1);
    EXPECT_EQ(results[0], 42u);
    EXPECT_EQ(results[1], 42u);
}

}  // namespace
