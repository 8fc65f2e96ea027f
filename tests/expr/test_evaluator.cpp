#include "test_evaluation_support.h"

#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/symbolcontext.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

typedef std::vector<unsigned char> Bytes;

class EvaluatorTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    // The operations get the API an evaluation passes them: the fixture's
    // frame, CompilerInfo and lists.
    explicit EvaluatorTest(bool bigEndian = false) : fx(GetParam(), bigEndian), api(apiOver(fx)) {}

    // A variable of the program as the name lookup gives it: a copy of its
    // chain with the location's space on the head, its location, an lvalue.
    value var(const std::string& name) {
        value v;
        v.type = cloneTypeChain(fx.chainOf(name));
        v.location = fx.locationOf(name);
        setMemorySpaceCode(v.type, memorySpaceCodeOfName(v.location->getMemoryName()));
        v.etype = findChainEnd(v.type);
        v.sym = boost::make_shared<symtab>(name);
        v.lvalue = true;
        return v;
    }

    // A name that nothing knows: only sym, marked unresolved.
    value name(const std::string& text) {
        value v;
        v.sym = boost::make_shared<symtab>(text);
        v.sym->locsize = -1;
        return v;
    }

    value num(int32_t n, int subtype = IT_SINT) { return makeInt(subtype, n); }

    value dbl(double d) {
        ScopedCompilerInfo inForce(fx.compilerInfo);
        return makeFloat('d', d);
    }

    value bin(const std::string& op, value a, value b) {
        return exec_binary_operation(api, op, a, b, false);
    }
    value cmp(const std::string& op, value a, value b) {
        return exec_binary_operation(api, op, a, b, true);
    }
    value member(value composite, const std::string& field, int code = OP_DOT) {
        return exec_access(api, code, composite, name(field));
    }
    value index(value array, int i) { return exec_access(api, OP_INDEX, array, num(i)); }

    // The signed number a value holds at its kind's width.
    int64_t intOf(const value& v) { return int64_t(valueToDouble(v, api)); }
    double doubleOf(const value& v) { return valueToDouble(v, api); }
    int subtypeOf(const value& v) { return findChainEnd(v.type)->spec->subtype; }
    std::string text(const value& v) { return getTypeText(v.type, true, *fx.compilerInfo); }

    size_t I() const { return static_cast<size_t>(fx.intSize); }
    bool eightBit() const { return fx.profile == ExprFixture::TARN8; }

    const std::string& format() const { return api->getFormatString(); }

    ExprFixture fx;
    const SymbolApiPtr api;
};

}  // namespace

TEST_P(EvaluatorTest, ArithmeticFollowsTheUsualConversions) {
    value sum = bin("+", var("counter"), num(1));
    EXPECT_EQ(subtypeOf(sum), IT_SINT);
    EXPECT_EQ(intOf(sum), 6);
    EXPECT_TRUE(isConstant(sum.type));

    // Unsigned char promotes to unsigned int, not int.
    value bytes = bin("+", var("uc"), var("uc"));
    EXPECT_EQ(subtypeOf(bytes), IT_UINT);
    EXPECT_EQ(intOf(bytes), 400);
    // -1 < 1u compares as unsigned int: false.
    EXPECT_EQ(intOf(cmp("<", num(-1), num(1, IT_UINT))), 0);
    EXPECT_EQ(intOf(cmp("<", num(-1), num(1))), 1);

    // A signed long makes the computation "long".
    value product = bin("*", var("sh"), var("lg"));
    EXPECT_EQ(subtypeOf(product), IT_LONG);
    EXPECT_EQ(intOf(product), -200000);
    EXPECT_EQ(subtypeOf(bin("+", var("ul"), var("lg"))), IT_ULONG);
    // A 64-bit signed against an unsigned long: unsigned 64-bit.
    value wide = bin("+", var("ll"), var("ul"));
    EXPECT_EQ(subtypeOf(wide), IT_U64);
    EXPECT_EQ(wide.val, 0x0102030405060708ull + 0xDEADBEEFull);
    EXPECT_EQ(subtypeOf(bin("+", num(1, IT_U64), num(1))), IT_U64);

    // Floats: the profile's double is 32 or 64 bits wide.
    value scaled = bin("*", var("fl"), num(3));
    EXPECT_EQ(subtypeOf(scaled), FT_FLOAT);
    EXPECT_EQ(doubleOf(scaled), 4.5);
    value third = bin("/", var("db"), num(3));
    EXPECT_EQ(subtypeOf(third), FT_DOUBLE);
    EXPECT_EQ(doubleOf(third), eightBit() ? double(2.25f / 3.0f) : 2.25 / 3.0);
    EXPECT_TRUE(std::isinf(doubleOf(bin("/", var("db"), num(0)))));
    EXPECT_TRUE(std::isnan(doubleOf(bin("/", dbl(0), num(0)))));

    EXPECT_EQ(thrownText([&] { bin("/", var("counter"), num(0)); }), "Illegal: Division by 0");
    EXPECT_EQ(thrownText([&] { bin("%", var("counter"), num(0)); }), "Illegal: Modulo 0");
    EXPECT_EQ(thrownText([&] { bin("%", var("fl"), num(2)); }),
              "INTERNAL : Unknown floating point operation");
    EXPECT_EQ(thrownText([&] { bin("&", var("fl"), num(2)); }),
              "INTERNAL : Unknown floating point operation");
    EXPECT_EQ(thrownText([&] { bin("@", var("counter"), num(2)); }),
              "INTERNAL : Unknown integral operation");
    EXPECT_EQ(thrownText([&] { cmp("@", var("counter"), num(2)); }),
              "INTERNAL : Unknown comparison operation");
    EXPECT_EQ(thrownText([&] { bin("+", var("flags"), num(1)); }),
              "Binop not allowed on struct objects");
    EXPECT_EQ(thrownText([&] { bin("+", var("counter"), name("nothing")); }),
              "Binary operation has at least one undefined operand");
}

TEST_P(EvaluatorTest, HostUndefinedOperationsGiveTheTargetsResult) {
    const int64_t intMin = eightBit() ? -32768 : std::numeric_limits<int32_t>::min();
    const int32_t intMax = eightBit() ? 32767 : std::numeric_limits<int32_t>::max();
    EXPECT_EQ(intOf(bin("+", num(intMax), num(1))), intMin);
    EXPECT_EQ(intOf(bin("/", num(int32_t(intMin)), num(-1))), intMin);
    EXPECT_EQ(intOf(bin("%", num(int32_t(intMin)), num(-1))), 0);
    EXPECT_EQ(intOf(bin("-", num(7), num(-7))), 14);
    EXPECT_EQ(intOf(bin("/", num(-7), num(2))), -3);
    EXPECT_EQ(intOf(bin("%", num(-7), num(2))), -1);

    // Shift counts up to 32 bits are taken modulo 32.
    EXPECT_EQ(bin("<", num(1, IT_ULONG), num(33)).val, 2u);
    EXPECT_EQ(intOf(bin(">", num(-16, IT_SLONG), num(2))), -4);
    EXPECT_EQ(bin(">", num(-16, IT_ULONG), num(2)).val, 0x3FFFFFFCu);
    // 64-bit shifts use the low 8 bits of the count; from 64 on all is out.
    const value one64 = makeConstant(IT_S64, 1);
    EXPECT_EQ(bin("<", one64, num(63)).val, 0x8000000000000000ull);
    EXPECT_EQ(bin("<", one64, num(64)).val, 0u);
    EXPECT_EQ(bin("<", one64, num(256 + 3)).val, 8u);
    EXPECT_EQ(bin(">", makeConstant(IT_S64, uint64_t(-8)), num(70)).val, ~uint64_t(0));
    EXPECT_EQ(bin(">", makeConstant(IT_U64, uint64_t(-8)), num(70)).val, 0u);
    const value min64 = makeConstant(IT_S64, uint64_t(1) << 63);
    EXPECT_EQ(bin("/", min64, makeConstant(IT_S64, uint64_t(-1))).val, uint64_t(1) << 63);
    EXPECT_EQ(bin("*", min64, makeConstant(IT_S64, uint64_t(-1))).val, uint64_t(1) << 63);
    EXPECT_EQ(bin(",", num(1), num(9)).val, 9u);
}

TEST_P(EvaluatorTest, ConvertScalarBetweenKinds) {
    const uint64_t minus27 = dbl(-2.7).val;
    EXPECT_EQ(int64_t(convertScalar(api, IT_SINT, minus27, FT_DOUBLE)), -2);
    EXPECT_EQ(convertScalar(api, IT_UCHAR, 0x1234, IT_UINT), 0x34u);
    EXPECT_EQ(int64_t(convertScalar(api, IT_SINT, 0x80, IT_SCHAR)), -128);
    EXPECT_EQ(convertScalar(api, IT_UINT, 0x80, IT_SCHAR), eightBit() ? 0xFF80u : 0xFFFFFF80u);
    EXPECT_EQ(convertScalar(api, IT_U64, uint64_t(-1), IT_SLONG), ~uint64_t(0));
    // Out of range floats go through the unsigned integer, then saturate.
    EXPECT_EQ(convertScalar(api, IT_ULONG, dbl(3e9).val, FT_DOUBLE), 3000000000u);
    EXPECT_EQ(convertScalar(api, IT_ULONG, dbl(1e30).val, FT_DOUBLE), 0xFFFFFFFFu);
    EXPECT_EQ(convertScalar(api, IT_S64, dbl(-1e30).val, FT_DOUBLE), uint64_t(1) << 63);
    EXPECT_EQ(convertScalar(api, IT_SLONG, dbl(std::nan("")).val, FT_DOUBLE), 0u);
    // Integers to floats round to nearest.
    const uint64_t f = convertScalar(api, FT_FLOAT, 16777217, IT_SLONG);
    float asFloat;
    uint32_t f32 = static_cast<uint32_t>(f);
    std::memcpy(&asFloat, &f32, sizeof asFloat);
    EXPECT_EQ(asFloat, 16777216.0f);

    EXPECT_EQ(valueToInt(var("lg"), api), eightBit() ? int16_t(100000 & 0xFFFF) : 100000);
    EXPECT_EQ(thrownText([&] { valueToInt(var("fl"), api); }), "Expected an integral expression");
    EXPECT_EQ(thrownText([&] { valueToDouble(var("ptr"), api); }),
              "Expected an floating point expression");
    EXPECT_TRUE(valueToBool(var("fl"), api));
    EXPECT_FALSE(valueToBool(num(0), api));
    EXPECT_TRUE(valueToBool(var("ptr"), api));
    EXPECT_EQ(thrownText([&] { valueToBool(var("flags"), api); }), "type cannot be used as bool");
    EXPECT_EQ(thrownText([&] { valueToBool(value(), api); }), "Invalid condition");
}

TEST_P(EvaluatorTest, LogicalOperatorsEvaluateBothSides) {
    EXPECT_EQ(intOf(exec_logical_operation(api, "||", num(0), var("fl"))), 1);
    EXPECT_EQ(intOf(exec_logical_operation(api, "&&", num(1), num(0))), 0);
    EXPECT_EQ(intOf(exec_logical_operation(api, "==", var("counter"), num(5))), 1);
    EXPECT_EQ(intOf(exec_logical_operation(api, ">=", var("sh"), num(-2))), 1);
    // No short-circuit: the right side is read although the left decides.
    EXPECT_EQ(thrownText([&] { exec_logical_operation(api, "&&", num(0), var("gone")); }),
              "Optimized away");
    EXPECT_EQ(thrownText([&] { exec_logical_operation(api, "||", num(1), name("x")); }),
              "at least one undefined operand in logical op");
}

TEST_P(EvaluatorTest, PointersStepByTheirPointee) {
    value ptr = var("ptr");
    EXPECT_EQ(fetchValue(ptr, api).val, 0x100u);
    value next = bin("+", ptr, num(1));
    EXPECT_EQ(text(next), "{data}int*");
    EXPECT_FALSE(next.lvalue);
    EXPECT_EQ(fetchValue(next, api).val, 0x100u + I());
    EXPECT_EQ(fetchValue(bin("-", next, num(1)), api).val, 0x100u);
    // The integer on the left is swapped over.
    EXPECT_EQ(fetchValue(bin("+", num(2), ptr), api).val, 0x100u + 2 * I());
    EXPECT_EQ(fetchValue(bin("-", num(1), next), api).val, 0x100u);
    EXPECT_EQ(intOf(bin("-", bin("+", ptr, num(3)), ptr)), 3);
    EXPECT_EQ(intOf(cmp("<", ptr, next)), 1);
    EXPECT_EQ(intOf(cmp("==", ptr, next)), 0);
    EXPECT_EQ(thrownText([&] { bin("-", ptr, var("buf")); }),
              "Pointers in difference point to different types");

    // Dereference and index through the pointer's target.
    EXPECT_EQ(intOf(exec_unary_operation(api, '*', ptr)), 5);
    EXPECT_EQ(intOf(index(var("nums"), 2)), 30);
    EXPECT_EQ(intOf(index(var("buf"), 1)), 'e');
    EXPECT_EQ(thrownText([&] { index(var("counter"), 1); }), "cannot index into a non pointer");

    // A function steps by bytes.
    value main;
    main.type = makeDeclaratorLink(DECL_FUNCTION);
    main.etype = main.type;
    main.location = fx.locationOf("main");
    main.lvalue = true;
    EXPECT_EQ(fetchValue(bin("+", main, num(1)), api).val, 0xD1u);

    // The array view: "ptr, 3" is an array of three ints at the pointee.
    value view = bin(",", ptr, num(3));
    EXPECT_EQ(text(view), "int[3]");
    EXPECT_EQ(view.location->getByteSize(), 3 * fx.intSize);
    EXPECT_EQ(intOf(index(view, 0)), 5);
    EXPECT_EQ(thrownText([&] { bin(",", ptr, dbl(2)); }), "Expected an integral expression");

    // Address-of gives a pointer to the object.
    value address = exec_unary_operation(api, '&', var("counter"));
    EXPECT_EQ(text(address), "{data}int*");
    EXPECT_EQ(fetchValue(address, api).val, 0x100u);
    EXPECT_EQ(intOf(exec_unary_operation(api, '*', address)), 5);
    EXPECT_EQ(thrownText([&] { exec_unary_operation(api, '&', num(1)); }),
              "cannot take address of non-lvalue");
    EXPECT_EQ(thrownText([&] { exec_unary_operation(api, '&', member(var("flags"), "a")); }),
              "cannot take address of a bitfield");
}

TEST_P(EvaluatorTest, MembersIncludingAnonymousOnes) {
    EXPECT_EQ(intOf(member(var("flags"), "c")), -300);
    EXPECT_EQ(intOf(member(var("flags"), "x")), 7);
    EXPECT_EQ(intOf(member(var("flags"), "y")), -8);
    value a = member(var("flags"), "a");
    EXPECT_EQ(intOf(a), 5);
    EXPECT_EQ(intOf(member(var("flags"), "b")), 17);
    EXPECT_EQ(getTypeText(fetchValue(a, api).type, false, *fx.compilerInfo), "unsigned char:3");

    // node.next->next->value: the list points to itself.
    value next = member(var("node"), "next");
    EXPECT_EQ(intOf(member(member(next, "next", OP_ARROW), "value", OP_ARROW)), 42);
    EXPECT_EQ(text(member(next, "value", OP_ARROW)), "{data}int");

    EXPECT_EQ(thrownText([&] { member(var("flags"), "zz"); }),
              "No such field name <zz> in struct : zz");
    EXPECT_EQ(thrownText([&] { member(var("counter"), "c"); }), "left of . or -> is not a struct");
    EXPECT_EQ(thrownText([&] { member(var("flags"), "c", OP_ARROW); }),
              "left of '->' is not a pointer");
    EXPECT_EQ(thrownText([&] { exec_access(api, OP_DOT, var("flags"), num(1)); }),
              "field name in struct accessors is not a proper name");
    EXPECT_EQ(thrownText([&] { member(name("nowhere"), "c"); }),
              "Left of dot operand is an undefined composite object");
}

TEST_P(EvaluatorTest, AssignmentsReachTheTarget) {
    value counter = var("counter");
    exec_assignment(api, '=', counter, num(5));
    value old = exec_unary_operation(api, OP_POSTFIX_INCREMENT, counter);
    EXPECT_EQ(intOf(old), 5);
    EXPECT_FALSE(old.lvalue);
    EXPECT_EQ(intOf(counter), 6);
    EXPECT_EQ(fx.peekNumber(0x100, I()), 6u);

    exec_assignment(api, '+', counter, num(10));
    EXPECT_EQ(fx.peekNumber(0x100, I()), 16u);
    exec_assignment(api, '<', counter, num(2));
    EXPECT_EQ(fx.peekNumber(0x100, I()), 64u);
    exec_unary_operation(api, OP_PREFIX_DECREMENT, counter);
    EXPECT_EQ(fx.peekNumber(0x100, I()), 63u);
    // The neighbour behind stays.
    EXPECT_EQ(fx.peek("data", 0x100 + I(), 1), Bytes{eightBit() ? uint8_t(0xA5) : uint8_t('A')});

    // Converted to the left side's type: a float truncates, a wide value
    // narrows.
    exec_assignment(api, '=', var("lg"), bin("*", var("fl"), num(3)));
    EXPECT_EQ(fx.peekNumber(0x108, 4), 4u);
    exec_assignment(api, '=', var("uc"), num(0x1FF));
    EXPECT_EQ(fx.peekNumber(0x105, 1), 0xFFu);
    exec_assignment(api, '=', var("fl"), num(-3));
    EXPECT_EQ(doubleOf(var("fl")), -3.0);

    // A pointer steps by its pointee when incremented.
    value ptr = var("ptr");
    exec_unary_operation(api, OP_PREFIX_INCREMENT, ptr);
    EXPECT_EQ(fx.peekNumber(0x150, static_cast<size_t>(fx.pointerSize)), 0x100u + I());

    // A register variable of the innermost frame reaches the register.
    exec_assignment(api, '=', var("rv"), num('k'));
    EXPECT_EQ(fx.targetRegister(fx.regVar), uint64_t('k'));

    EXPECT_EQ(thrownText([&] { exec_assignment(api, '=', num(1), num(2)); }),
              "assignee is not an l-value");
    EXPECT_EQ(thrownText([&] { exec_assignment(api, '=', var("buf"), num(2)); }),
              "assignment is only allowed to scalar types");
    EXPECT_EQ(thrownText([&] { exec_assignment(api, '=', var("fl"), var("ptr")); }),
              "assignment source is a pointer and cannot be converted floating point");
    EXPECT_EQ(thrownText([&] { exec_assignment(api, '=', var("counter"), name("q")); }),
              "assignment has at least one undefined operand");
}

TEST_P(EvaluatorTest, BitFieldAssignmentKeepsItsNeighbours) {
    exec_assignment(api, '=', member(var("flags"), "a"), num(2));
    EXPECT_EQ(fx.peekNumber(0x130, 1), (17u << 3) | 2u);
    exec_assignment(api, '=', member(var("flags"), "b"), num(31));
    EXPECT_EQ(fx.peekNumber(0x130, 1), (31u << 3) | 2u);
    // Too large a value keeps only the field's bits.
    exec_assignment(api, '=', member(var("flags"), "a"), num(9));
    EXPECT_EQ(fx.peekNumber(0x130, 1), (31u << 3) | 1u);
    exec_assignment(api, '+', member(var("flags"), "b"), num(1));
    EXPECT_EQ(fx.peekNumber(0x130, 1), 1u);
    // The byte before and the member behind stay.
    EXPECT_EQ(fx.peek("data", 0x12F, 1), Bytes{0xA5});
    EXPECT_EQ(intOf(member(var("flags"), "c")), -300);
}

TEST_P(EvaluatorTest, SignedBitFieldsFollowTheCompiler) {
    // struct { int f : 3; int g : 5; } at 0x130, whose first byte holds 0x8D:
    // f = 0b101, g = 0b10001.
    auto f = boost::make_shared<symtab>("f");
    f->type = makeDeclaratorLink(DECL_FIELD_WIDTH);
    f->type->next = makeSpecifierLink(NOUN_INT, IT_INT);
    f->etype = f->type->next;
    auto g = boost::make_shared<symtab>("g");
    g->type = cloneTypeChain(f->type);
    g->type->decl = boost::make_shared<declarator>(*f->type->decl);
    g->type->decl->setBitField(5, 0);
    f->type->decl->setBitField(3, 0);
    f->next = g;
    auto def = boost::make_shared<structdef>();
    def->tag = "S";
    def->fields = f;
    def->size = layoutFields(f, true, *fx.compilerInfo);
    value s;
    s.type = makeSpecifierLink(NOUN_STRUCT);
    s.type->setStructdef(def);
    s.etype = s.type;
    s.location = createAbsoluteLocation(fx.frame, "data", 0x130, def->size / 8, 0, 0);
    s.lvalue = true;

    EXPECT_EQ(intOf(member(s, "f")), -3);
    EXPECT_EQ(intOf(member(s, "g")), -15);
    fx.compilerInfo->bitfieldsUnsigned = true;
    EXPECT_EQ(intOf(member(s, "f")), 5);
    EXPECT_EQ(intOf(member(s, "g")), 17);
}

TEST_P(EvaluatorTest, UnaryOperators) {
    EXPECT_EQ(intOf(exec_unary_operation(api, '-', var("counter"))), -5);
    EXPECT_EQ(intOf(exec_unary_operation(api, '+', var("counter"))), 5);
    EXPECT_EQ(intOf(exec_unary_operation(api, '~', num(0))), -1);
    EXPECT_EQ(intOf(exec_unary_operation(api, '!', num(0))), 1);
    EXPECT_EQ(intOf(exec_unary_operation(api, '!', var("ptr"))), 0);
    EXPECT_EQ(thrownText([&] { exec_unary_operation(api, '!', dbl(1.5)); }),
              "Expected an integral expression");
    EXPECT_EQ(thrownText([&] { exec_unary_operation(api, '!', value()); }),
              "INTERNAL: type is 0 in exec_unary_operation");
    EXPECT_EQ(thrownText([&] { exec_unary_operation(api, '-', value()); }),
              "undefined operand in unary op");

    EXPECT_EQ(intOf(exec_unary_operation(api, OP_SIZEOF, var("counter"))), fx.intSize);
    EXPECT_EQ(intOf(exec_unary_operation(api, OP_SIZEOF, var("buf"))), 8);
    EXPECT_EQ(intOf(exec_unary_operation(api, OP_SIZEOF, var("flags"))), 4 * fx.intSize);

    // BY, WO, DW: pointers to unsigned data of 1, 2, 4 bytes.
    value by = exec_unary_operation(api, 'B', num(0x100));
    EXPECT_EQ(text(by), "unsigned char*");
    EXPECT_EQ(by.target->getMemoryName(), "data");
    EXPECT_EQ(intOf(exec_unary_operation(api, '*', by)), 5);
    value wo = exec_unary_operation(api, 'W', num(0x106));
    EXPECT_EQ(intOf(exec_unary_operation(api, '*', wo)), 0xFFFE);
    value dw = exec_unary_operation(api, 'D', num(0x10C));
    EXPECT_EQ(exec_unary_operation(api, '*', dw).location->getByteSize(), 4);
    EXPECT_EQ(fetchValue(exec_unary_operation(api, '*', dw), api).val, 0xDEADBEEFu);
}

TEST_P(EvaluatorTest, FormatSuffixSwitchesTheMemorySpace) {
    value hex = bin(",", var("counter"), name("hex"));
    EXPECT_EQ(format(), "hex");
    EXPECT_EQ(intOf(hex), 5);
    EXPECT_EQ(hex.location->getMemoryName(), "data");

    fx.poke("prog", 0x100, {0x42, 0x00, 0x00, 0x00});
    value prog = bin(",", var("counter"), name("prog"));
    EXPECT_EQ(format(), "prog");
    EXPECT_EQ(prog.location->getMemoryName(), "prog");
    EXPECT_EQ(prog.location->getAbsoluteAddress(), 0x100u);
    EXPECT_EQ(getMemorySpaceName(prog.type), "prog");
    EXPECT_EQ(intOf(prog), 0x42);
    // The variable's own chain keeps its space.
    EXPECT_EQ(intOf(var("counter")), 5);
    // A resolved name on the right is a format name too.
    bin(",", var("counter"), var("ch"));
    EXPECT_EQ(format(), "ch");
}

TEST_P(EvaluatorTest, TheApisSizesWinOverTheOnesInForce) {
    // The other profile's fixture puts its CompilerInfo in force while it
    // lives; an operation given the API still works at the API's widths.
    ExprFixture other(eightBit() ? ExprFixture::TARN32 : ExprFixture::TARN8);
    value sum = bin("+", num(0x7FFF), num(1));
    EXPECT_EQ(intOf(sum), eightBit() ? -32768 : 32768);
    EXPECT_EQ(intOf(exec_unary_operation(api, OP_SIZEOF, var("counter"))), fx.intSize);

    // Without an API the one in force decides (here the other profile's).
    const SymbolApiPtr none;
    EXPECT_EQ(
        int64_t(valueToDouble(exec_binary_operation(none, "+", num(0x7FFF), num(1), false), none)),
        eightBit() ? 32768 : -32768);
    // ... and a format suffix has nowhere to go: the API's store is untouched.
    exec_binary_operation(none, ",", var("counter"), name("hex"), false);
    EXPECT_EQ(format(), "");
}

TEST_P(EvaluatorTest, BuiltInFunctionsAndCasts) {
    value callee = name("fmod");
    EXPECT_EQ(doubleOf(exec_function_call(api, callee, {num(7), num(3)})), 1.0);
    EXPECT_EQ(doubleOf(exec_function_call(api, name("cos"), {num(0)})), 1.0);
    EXPECT_NEAR(doubleOf(exec_function_call(api, name("exp"), {num(1)})), M_E, 1e-6);
    EXPECT_EQ(thrownText([&] {
                  exec_function_call(api, name("sin"), {num(0), num(1)});
              }),
              "Call to unknown function:sin");
    EXPECT_EQ(thrownText([&] { exec_function_call(api, num(1), {}); }), "Illegal function call");

    auto typeOf = [](boost::shared_ptr<link_variant> chain) {
        auto entry = boost::make_shared<symtab>("tn");
        entry->type = chain;
        entry->etype = findChainEnd(chain);
        return entry;
    };
    EXPECT_EQ(exec_cast(api, typeOf(makeSpecifierLink(NOUN_INT, IT_UCHAR)), num(0x1234)).val,
              0x34u);
    EXPECT_EQ(
        doubleOf(exec_cast(api, typeOf(makeSpecifierLink(NOUN_FLOAT, FT_FLOAT)), var("counter"))),
        5.0);
    EXPECT_EQ(intOf(exec_cast(api, typeOf(makeSpecifierLink(NOUN_INT, IT_SINT)), dbl(-2.9))), -2);

    boost::shared_ptr<link_variant> intPtr = makeDeclaratorLink(DECL_POINTER);
    intPtr->next = makeSpecifierLink(NOUN_INT, IT_INT);
    value p = exec_cast(api, typeOf(intPtr), makeConstant(IT_U64, 0xABCD0100ull));
    EXPECT_EQ(p.val, eightBit() ? 0x0100u : 0xABCD0100u);
    EXPECT_EQ(p.target->getByteSize(), fx.intSize);
    if (eightBit()) {
        EXPECT_EQ(intOf(exec_unary_operation(api, '*', p)), 5);
    }

    EXPECT_EQ(thrownText([&] { exec_cast(api, typeOf(intPtr), var("fl")); }),
              "unsupported cast from float");
    EXPECT_EQ(thrownText([&] {
                  exec_cast(api, typeOf(makeSpecifierLink(NOUN_INT, IT_INT)), var("flags"));
              }),
              "unsupported cast to struct");
    EXPECT_EQ(thrownText([&] { exec_cast(api, typeOf(intPtr), name("nothing")); }),
              "undefined cast operand");
}

TEST_P(EvaluatorTest, FetchRefusesWhatItCannotRead) {
    EXPECT_EQ(thrownText([&] { fetchValue(name("nothing"), api); }), "Could not resolve name");
    EXPECT_EQ(thrownText([&] { fetchValue(value(), api); }), "Value has no type");

    value literal;
    literal.type = makeDeclaratorLink(DECL_POINTER, 1);
    literal.type->next = makeSpecifierLink(NOUN_INT, IT_CHAR);
    literal.etype = literal.type->next;
    EXPECT_EQ(thrownText([&] { fetchValue(literal, api); }), "String literals not supported");

    value huge = var("counter");
    huge.location = createAbsoluteLocation(fx.frame, "data", 0x100, 9, 0, 0);
    EXPECT_EQ(thrownText([&] { fetchValue(huge, api); }), "Variable content is too large");

    // A reference reads as its referent: ptr's bytes hold counter's address.
    value ref = var("ptr");
    ref.type->decl = boost::make_shared<declarator>(*ref.type->decl);
    ref.type->decl->type = DECL_REFERENCE;
    value referent = fetchValue(ref, api);
    EXPECT_EQ(intOf(referent), 5);
    EXPECT_TRUE(referent.lvalue);
    EXPECT_EQ(referent.location->getAbsoluteAddress(), 0x100u);
    EXPECT_EQ(intOf(exec_unary_operation(api, OP_SIZEOF, ref)), fx.intSize);
}

INSTANTIATE_TEST_SUITE_P(Profiles, EvaluatorTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

namespace {
class BigEndianEvaluatorTest : public EvaluatorTest {
protected:
    BigEndianEvaluatorTest() : EvaluatorTest(true) {}
};
}  // namespace

TEST_P(BigEndianEvaluatorTest, ScalarsAndBitFieldsUseTheTargetsOrder) {
    EXPECT_EQ(intOf(var("counter")), 5);
    EXPECT_EQ(fetchValue(var("ul"), api).val, 0xDEADBEEFu);
    exec_assignment(api, '=', var("counter"), num(0x01020304));
    EXPECT_EQ(fx.peek("data", 0x100, 4), (Bytes{1, 2, 3, 4}));
    exec_assignment(api, '=', member(var("flags"), "b"), num(3));
    EXPECT_EQ(fx.peekNumber(0x130, 1), (3u << 3) | 5u);
    EXPECT_EQ(intOf(member(var("flags"), "x")), 7);
}

INSTANTIATE_TEST_SUITE_P(Profiles, BigEndianEvaluatorTest, ::testing::Values(ExprFixture::TARN32),
                         profileName);
