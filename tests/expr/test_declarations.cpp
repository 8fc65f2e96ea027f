// Type names inside expressions: specifier combinations, declarators, and
// struct, union and enum definitions that outlive the type name.

#include "test_evaluation_support.h"

#include <string>

namespace {

class DeclarationTest : public EvaluationFixtureTest {
protected:
    std::string typeOf(const std::string& text) {
        return getTypeText(eval(text).type, false, *fx.compilerInfo);
    }
    boost::shared_ptr<symtab> stored(const SymtabList& list, const std::string& name) {
        for (const auto& entry : list) {
            if (entry->name == name) return entry;
        }
        return boost::shared_ptr<symtab>();
    }
};

TEST_P(DeclarationTest, SpecifierWordsCombineAsTheirOrderSays) {
    EXPECT_EQ(typeOf("(const int)5"), "int");
    EXPECT_EQ(typeOf("(unsigned long)5"), "unsigned long");
    EXPECT_EQ(typeOf("(long unsigned)5"), "unsigned long");
    EXPECT_EQ(typeOf("(signed char)5"), "signed char");
    EXPECT_EQ(typeOf("(int short)5"), "short");
    EXPECT_EQ(typeOf("(int char)5"), "char");
    EXPECT_EQ(typeOf("(long int)5"), "long");
    // "unsigned" alone is an unsigned char.
    EXPECT_EQ(typeOf("(unsigned)5"), "unsigned char");
    EXPECT_EQ(failure("(unsigned unsigned)5"), "too many modifiers");
    EXPECT_EQ(failure("(signed unsigned)5"), "Illegal redefinition of signedness");
    EXPECT_EQ(failure("(char int)5"),
              "cannot combine integral types in a declaration. short int, long int are the only "
              "legal combinations");
    EXPECT_EQ(failure("(float double)5"), "cannot combine types in a declaration");
    EXPECT_EQ(failure("(float int)5"), "cannot combine float and integral types in a declaration");
}

TEST_P(DeclarationTest, CombiningDoesNotChangeTheStoredType) {
    // The target's "long" comes from debug information; an unsigned cast
    // must not turn every later "long" unsigned.
    EXPECT_EQ(typeOf("(unsigned long)5"), "unsigned long");
    EXPECT_EQ(typeOf("(long)5"), "long");
    EXPECT_EQ(number("(long)-1"), -1);
}

TEST_P(DeclarationTest, DeclaratorsReadFromTheInsideOut) {
    const int64_t I = fx.intSize, P = fx.pointerSize;
    EXPECT_EQ(number("sizeof(int *)"), P);
    EXPECT_EQ(number("sizeof(int [4])"), 4 * I);
    EXPECT_EQ(number("sizeof(int *[4])"), 4 * P);
    EXPECT_EQ(number("sizeof(int (*)[4])"), P);
    // Every suffix counts, the outer dimension first.
    EXPECT_EQ(number("sizeof(char [2][3])"), 6);
    EXPECT_EQ(number("sizeof(char [2][3][4])"), 24);
    // An empty dimension is a pointer; a function suffix without
    // parameters adds nothing.
    EXPECT_EQ(number("sizeof(char [])"), P);
    EXPECT_EQ(number("sizeof(long ())"), 4);
    EXPECT_EQ(number("sizeof(int (*)(char, long *))"), P);
    // A float dimension is truncated, anything but a number refused.
    EXPECT_EQ(number("sizeof(char [2.7])"), 2);
    EXPECT_EQ(failure("sizeof(char [ptr])"), "array dim is not numeric.");
    EXPECT_EQ(failure("sizeof(char [-1])"), "array dim is out of range.");
}

TEST_P(DeclarationTest, StructDefinitionsPersistInTheCallersLists) {
    const int64_t I = fx.intSize;
    const int64_t defined = number("sizeof(struct s {char a; int b : 3;}); sizeof(struct s)");
    EXPECT_EQ(number("sizeof(struct s)"), defined);
    auto s = stored(*fx.types, "s");
    ASSERT_TRUE(s);
    ASSERT_TRUE(isStruct(s->type));
    EXPECT_EQ(s->type->getStructdef()->tag, "s");
    // The members went to the symbols list.
    EXPECT_TRUE(stored(*fx.symbols, "a"));
    EXPECT_TRUE(stored(*fx.symbols, "b"));

    // A member may point at its own struct, which is stored before its
    // members are read.
    EXPECT_EQ(number("sizeof(struct list {struct list *next; int v;})"), fx.pointerSize + I);

    // Unions and classes lay their members over one another.
    EXPECT_EQ(number("sizeof(class c {int a; char b;})"), I);
    auto c = stored(*fx.types, "c");
    ASSERT_TRUE(c);
    auto fields = c->type->getStructdef()->fields;
    ASSERT_TRUE(fields && fields->next);
    EXPECT_EQ(fields->locofs, 0);
    EXPECT_EQ(fields->next->locofs, 0);
    EXPECT_EQ(number("sizeof(union u {char a; long b;})"), 4);

    // An anonymous struct is tagged "st"; a width-only member is "sd".
    EXPECT_EQ(number("sizeof(struct {char x; int : 4;})"), 1);
    EXPECT_TRUE(stored(*fx.symbols, "sd"));
}

TEST_P(DeclarationTest, AFailedDefinitionKeepsItsTag) {
    const std::string text = "sizeof(struct t {int a; struct nosuch b;})";
    EXPECT_EQ(failure(text), "<struct/class/union> used together with an unknown name");
    EXPECT_EQ(failure(text), "struct/class/union definition redefines a name");
    // A name the debug information knows cannot be defined again either.
    EXPECT_EQ(failure("sizeof(struct Flags {int a;})"),
              "struct/class/union definition redefines a name");
    EXPECT_EQ(number("sizeof(struct Flags)"), 4 * fx.intSize);
}

TEST_P(DeclarationTest, BitFieldWidths) {
    EXPECT_EQ(failure("sizeof(struct w {long a : 129;})"), "Bitfield has too many bits (max 128).");
    EXPECT_EQ(failure("sizeof(struct w2 {long a : 2.5;})"), "Expected an integral expression");
    // Two small fields pack into one byte.
    EXPECT_EQ(number("sizeof(struct w3 {char a : 3; char b : 5;})"), 1);
}

TEST_P(DeclarationTest, EnumDefinitionsStoreTheirConstants) {
    EXPECT_EQ(number("sizeof(enum {e0, e5 = 5, e6})"), fx.intSize);
    EXPECT_EQ(number("e0"), 0);
    EXPECT_EQ(number("e5"), 5);
    EXPECT_EQ(number("e6"), 6);
    // A named enum is a type for the rest of the lists' life.
    EXPECT_EQ(number("sizeof(enum level {LOW = -2, MID, HIGH = MID + 10})"), fx.intSize);
    EXPECT_EQ(number("MID"), -1);
    EXPECT_EQ(number("HIGH"), 9);
    EXPECT_EQ(number("sizeof(enum level)"), fx.intSize);
    EXPECT_EQ(failure("sizeof(enum level {AGAIN})"), "enum redefinition");
    EXPECT_EQ(failure("sizeof(enum nosuch)"), "Unknown enum name");
    EXPECT_EQ(failure("sizeof(enum {F = 1.5})"), "enum initializer is a floating point");
    // A non-constant initializer keeps the running count.
    EXPECT_EQ(number("sizeof(enum {V0 = counter, V1}); V1"), 1);
}

TEST_P(DeclarationTest, TypedefNamesOfTheTargetAreTypes) {
    EXPECT_EQ(number("(u8_t)300"), 44);
    EXPECT_EQ(number("sizeof(u8_t)"), 1);
    EXPECT_EQ(number("sizeof(u8_t *)"), fx.pointerSize);
    EXPECT_EQ(failure("u8_t"), "unexpected typedef in expression");
}

TEST_P(DeclarationTest, MemorySpaceQualifiersStayOnThePointee) {
    value v = eval("(__mem_eeprom unsigned char *)0x10");
    ASSERT_TRUE(isPointer(v.type));
    EXPECT_EQ(getMemorySpaceName(v.type->getNext()), "eeprom");
    EXPECT_EQ(getMemorySpaceName(eval("(__mem_flash char *)0").type->getNext()), "prog");
}

INSTANTIATE_TEST_SUITE_P(Profiles, DeclarationTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

}  // namespace
