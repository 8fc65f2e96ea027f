#include "exprfixture.h"

#include "libcommon/expr/typechains.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cstring>

namespace {

typedef boost::shared_ptr<link_variant> Link;

Link spec(int subtype, Noun noun = NOUN_INT) {
    return makeSpecifierLink(noun, subtype);
}

Link decl(DeclaratorType type, Link next, uint32_t numele = 0) {
    Link link = makeDeclaratorLink(type, numele);
    link->next = next;
    return link;
}

Link bitfield(unsigned int width, int subtype = IT_UCHAR) {
    Link link = decl(DECL_FIELD_WIDTH, spec(subtype));
    link->decl->setBitField(width, 0);
    return link;
}

boost::shared_ptr<symtab> field(const std::string& name, Link chain) {
    auto entry = boost::make_shared<symtab>(name);
    entry->type = chain;
    entry->etype = findChainEnd(chain);
    return entry;
}

boost::shared_ptr<symtab> fieldList(std::vector<boost::shared_ptr<symtab>> fields) {
    for (size_t i = 0; i + 1 < fields.size(); ++i) fields[i]->next = fields[i + 1];
    return fields.front();
}

Link structOf(const std::string& tag, boost::shared_ptr<symtab> fields, const CompilerInfo& info,
              bool sequential = true) {
    auto def = boost::make_shared<structdef>();
    def->tag = tag;
    def->fields = fields;
    def->size = layoutFields(fields, sequential, info);
    Link link = spec(IT_CHAR, NOUN_STRUCT);
    link->setStructdef(def);
    return link;
}

const CompilerInfo k8 = CompilerInfo::tarn8();
const CompilerInfo k32 = CompilerInfo::tarn32();

}  // namespace

TEST(TypeChainSizes, FollowTheProfile) {
    EXPECT_EQ(get_bit_sizeof(spec(IT_INT), k8), 16u);
    EXPECT_EQ(get_bit_sizeof(spec(IT_INT), k32), 32u);
    EXPECT_EQ(get_bit_sizeof(spec(FT_DOUBLE, NOUN_FLOAT), k8), 32u);
    EXPECT_EQ(get_bit_sizeof(spec(FT_DOUBLE, NOUN_FLOAT), k32), 64u);
    EXPECT_EQ(get_bit_sizeof(decl(DECL_POINTER, spec(IT_CHAR)), k8), 16u);
    EXPECT_EQ(get_bit_sizeof(decl(DECL_FUNCTION, Link()), k8), 16u);
    EXPECT_EQ(get_bit_sizeof(decl(DECL_FUNCTION, Link()), k32), 32u);
    EXPECT_EQ(get_bit_sizeof(decl(DECL_ARRAY, spec(IT_LONG), 3), k8), 96u);
    EXPECT_EQ(get_bit_sizeof(decl(DECL_REFERENCE, spec(IT_SHORT)), k32), 16u);
    EXPECT_EQ(get_bit_sizeof(bitfield(5), k32), 5u);
    EXPECT_EQ(get_bit_sizeof(spec(IT_CHAR, NOUN_VOID), k32), 0u);
    EXPECT_EQ(get_bit_sizeof(spec(IT_CHAR, NOUN_UNUSED), k32), 0u);
    EXPECT_EQ(get_bit_sizeof(spec(IT_SHORT, NOUN_ENUM), k32), 16u);

    EXPECT_EQ(thrownText([] { get_bit_sizeof(spec(IT_INT, Noun(7)), k8); }),
              "get_bit_sizeof - Illegal type");
    EXPECT_EQ(thrownText([] { get_bit_sizeof(makeDeclaratorLink(DeclaratorType(9)), k8); }),
              "get_bit_sizeof - decl - Unknown type");
    // An array too large for the 32-bit size field is refused, not wrapped.
    EXPECT_EQ(thrownText([] { get_bit_sizeof(decl(DECL_ARRAY, spec(IT_U64), 0x10000000u), k32); }),
              "Type too large");
}

TEST(TypeChainSizes, AlignmentFollowsSizeNotLargestMember) {
    // A 3-byte struct member aligns to 24 bits.
    CompilerInfo info = k32;
    Link three = structOf("T",
                          fieldList({field("a", spec(IT_CHAR)), field("b", spec(IT_CHAR)),
                                     field("c", spec(IT_CHAR))}),
                          info);
    EXPECT_EQ(get_bit_sizeof(three, info), 24u);
    EXPECT_EQ(get_bit_alignment(three, info), 24u);
    EXPECT_EQ(get_bit_alignment(decl(DECL_ARRAY, spec(IT_SHORT), 7), info), 16u);
    EXPECT_EQ(get_bit_alignment(bitfield(3), info), 1u);

    auto outer = fieldList({field("x", spec(IT_CHAR)), field("t", three)});
    structOf("O", outer, info);
    EXPECT_EQ(outer->next->locofs, 3);

    // A zero-sized member cannot be aligned. An empty array aligns like its
    // element and passes; an empty struct does not.
    Link empty = structOf("E", fieldList({field("z", decl(DECL_ARRAY, spec(IT_INT), 0))}), info);
    EXPECT_EQ(get_bit_sizeof(empty, info), 0u);
    EXPECT_EQ(thrownText([&] {
                  structOf("Z", fieldList({field("a", spec(IT_CHAR)), field("e", empty)}), info);
              }),
              "INTERNAL, get_bit_alignment: Object aligned on zero boundary\n");
}

TEST(TypeChainLayout, BitFieldsPackAndIntsMoveToTheirAlignment) {
    for (const CompilerInfo& info : {k8, k32}) {
        auto fields = fieldList({field("a", bitfield(3)), field("b", bitfield(5)),
                                 field("c", bitfield(3)), field("i", spec(IT_INT))});
        Link s = structOf("Bits", fields, info);
        symtab& a = *fields;
        symtab& b = *a.next;
        symtab& c = *b.next;
        symtab& i = *c.next;
        EXPECT_EQ(a.locofs, 0);
        EXPECT_EQ(a.locsize, 1);
        EXPECT_EQ(a.type->decl->getBitOffset(), 5u);
        EXPECT_EQ(a.type->decl->getBitSize(), 3u);
        EXPECT_EQ(b.locofs, 0);
        EXPECT_EQ(b.locsize, 1);
        EXPECT_EQ(b.type->decl->getBitOffset(), 0u);
        // The third field starts the next byte.
        EXPECT_EQ(c.locofs, 1);
        EXPECT_EQ(c.type->decl->getBitOffset(), 5u);
        // The int after 11 bits moves up to the next multiple of intBits.
        const int32_t intBytes = info.intBits / 8;
        EXPECT_EQ(i.locofs, intBytes);
        EXPECT_EQ(i.locsize, intBytes);
        EXPECT_EQ(get_bit_sizeof(s, info), uint32_t(16 * intBytes));
    }
}

TEST(TypeChainLayout, FieldSpanningTwoBytesAndUnions) {
    // 4 bits, then 8 bits that straddle bytes 0 and 1.
    auto fields = fieldList({field("lo", bitfield(4)), field("mid", bitfield(8, IT_USHORT))});
    structOf("S", fields, k8);
    EXPECT_EQ(fields->next->locofs, 0);
    EXPECT_EQ(fields->next->locsize, 2);
    EXPECT_EQ(fields->next->type->decl->getBitOffset(), 4u);

    // A union is as large as its largest member, with no rounding.
    auto members =
        fieldList({field("c", spec(IT_CHAR)), field("arr", decl(DECL_ARRAY, spec(IT_CHAR), 3)),
                   field("s", spec(IT_SHORT))});
    Link u = structOf("union U", members, k32, false);
    EXPECT_EQ(get_bit_sizeof(u, k32), 24u);
    for (auto m = members; m; m = m->next) EXPECT_EQ(m->locofs, 0);

    EXPECT_EQ(thrownText([] { structOf("W", field("w", bitfield(129, IT_U64)), k32); }),
              "Bitfield size  is too large (128 max)");
}

TEST(TypeChainText, ReadsLikeCDeclarations) {
    EXPECT_EQ(getTypeText(decl(DECL_POINTER, spec(IT_INT)), false, k32), "int*");
    EXPECT_EQ(getTypeText(decl(DECL_ARRAY, spec(IT_UCHAR), 8), false, k32), "unsigned char[8]");
    EXPECT_EQ(getTypeText(decl(DECL_REFERENCE, spec(IT_S64)), false, k32), "si64&");
    Link width = bitfield(3, IT_UINT);
    EXPECT_EQ(getTypeText(width, false, k32), "unsigned int:3");
    EXPECT_EQ(getTypeText(spec(IT_CHAR, NOUN_ENUM), false, k32), "enum");
    EXPECT_EQ(getTypeText(spec(IT_CHAR, NOUN_VOID), false, k32), "void");
    EXPECT_EQ(getTypeText(spec(42), false, k32), "unknown");
    EXPECT_EQ(getTypeText(spec(IT_CHAR, Noun(7)), false, k32), "unknown type");
    EXPECT_EQ(getTypeText(decl(DECL_FUNCTION, Link()), false, k8), "function(word address) ");
    EXPECT_EQ(getTypeText(decl(DECL_FUNCTION, Link()), false, k32), "function ");

    Link tagged = structOf("Flags", field("a", spec(IT_CHAR)), k32);
    EXPECT_EQ(getTypeText(tagged, false, k32), "struct Flags");
    tagged->getStructdef()->tag = "union U";
    EXPECT_EQ(getTypeText(tagged, false, k32), "union U");

    // The short words of compiler 2 replace only the four unsigned kinds.
    CompilerInfo words = k8;
    words.compilerId = 2;
    EXPECT_EQ(getTypeText(spec(IT_UCHAR), false, words), "byte");
    EXPECT_EQ(getTypeText(spec(IT_USHORT), false, words), "word");
    EXPECT_EQ(getTypeText(spec(IT_UINT), false, words), "word");
    EXPECT_EQ(getTypeText(spec(IT_ULONG), false, words), "dword");
    EXPECT_EQ(getTypeText(spec(IT_U64), false, words), "ui64");

    // The memory space leads where asked, and not inside arrays.
    Link pointee = spec(IT_INT);
    setMemorySpaceCode(pointee, MEMSPACE_PROG);
    Link p = decl(DECL_POINTER, pointee);
    EXPECT_EQ(getTypeText(p, true, k32), "{prog}int*");
    EXPECT_EQ(getTypeText(p, false, k32), "int*");
    EXPECT_EQ(getTypeText(decl(DECL_ARRAY, pointee, 2), true, k32), "int[2]");

    Link named = spec(IT_UCHAR);
    named->isTypedef = true;
    named->typedefName = "u8_t";
    setMemorySpaceCode(named, MEMSPACE_EEPROM);
    EXPECT_EQ(getTypeText(named, true, k32), "{eeprom}u8_t");
}

TEST(TypeChainKinds, PromotionAndOperationClasses) {
    CompilerInfo unsignedChar = k8;
    unsignedChar.charIsSigned = false;
    EXPECT_EQ(promoteSubtype(IT_CHAR, k8), IT_SINT);
    EXPECT_EQ(promoteSubtype(IT_CHAR, unsignedChar), IT_UINT);
    EXPECT_EQ(promoteSubtype(IT_UCHAR, k8), IT_UINT);
    EXPECT_EQ(promoteSubtype(IT_USHORT, k8), IT_UINT);
    EXPECT_EQ(promoteSubtype(IT_SHORT, k8), IT_SINT);
    EXPECT_EQ(promoteSubtype(IT_LONG, k8), IT_SLONG);
    EXPECT_EQ(promoteSubtype(IT_I64, k8), IT_S64);
    EXPECT_EQ(promoteSubtype(IT_LONGLONG, k8), IT_LONGLONG);
    EXPECT_EQ(promoteSubtype(FT_FLOAT, k8), FT_FLOAT);

    EXPECT_EQ(getOperationClass(IT_SINT, k8), OC_S16);
    EXPECT_EQ(getOperationClass(IT_SINT, k32), OC_S32);
    EXPECT_EQ(getOperationClass(IT_CHAR, k8), OC_S8);
    EXPECT_EQ(getOperationClass(IT_CHAR, unsignedChar), OC_U8);
    EXPECT_EQ(getOperationClass(IT_U64, k8), OC_U64);
    EXPECT_EQ(getOperationClass(FT_DOUBLE, k8), OC_FLOAT);
    EXPECT_EQ(getOperationClass(FT_DOUBLE, k32), OC_DOUBLE);
    CompilerInfo wide = k32;
    wide.longDoubleBits = 80;
    wide.shortBits = 24;
    EXPECT_EQ(thrownText([&] { getOperationClass(FT_LONGDOUBLE, wide); }),
              "Invalid floating point length");
    EXPECT_EQ(thrownText([&] { getOperationClass(IT_SHORT, wide); }), "Unsupported type");

    EXPECT_EQ(unsignedSubtypeOfBits(16, k8), IT_USHORT);  // short before int
    EXPECT_EQ(unsignedSubtypeOfBits(32, k8), IT_ULONG);
    EXPECT_EQ(unsignedSubtypeOfBits(32, k32), IT_UINT);
    EXPECT_EQ(thrownText([] { unsignedSubtypeOfBits(24, k32); }),
              "Could not locate a corresponding type");

    // Pointers, arrays and functions take part as the pointer kind; a
    // bit-field as the kind it ends in.
    CompilerInfo info = k32;
    info.pointerSubtype = IT_ULONG;
    EXPECT_EQ(getArithmeticSubtype(decl(DECL_ARRAY, spec(IT_CHAR), 2), info), IT_ULONG);
    EXPECT_EQ(getArithmeticSubtype(decl(DECL_FUNCTION, Link()), info), IT_ULONG);
    EXPECT_EQ(getArithmeticSubtype(bitfield(3, IT_SHORT), info), IT_SHORT);
}

TEST(TypeChainKinds, InForceScopesNest) {
    // Other tests may have one in force; this test stacks its own on top.
    auto eight = boost::make_shared<CompilerInfo>(k8);
    auto wide = boost::make_shared<CompilerInfo>(k32);
    {
        ScopedCompilerInfo outer(eight);
        EXPECT_EQ(getOperationClass(IT_INT), OC_S16);
        {
            ScopedCompilerInfo inner(wide);
            EXPECT_EQ(getOperationClass(IT_INT), OC_S32);
        }
        EXPECT_EQ(getOperationClass(IT_INT), OC_S16);
        ScopedCompilerInfo none{boost::shared_ptr<CompilerInfo>()};
        EXPECT_EQ(thrownText([] { promoteSubtype(IT_INT); }), "No compiler information in force");
    }
}

TEST(TypeChainNames, SubtypeFromDebugInformationNames) {
    auto subtypeOf = [](const std::string& name) {
        Link link = spec(IT_CHAR);
        setSubtypeFromName(link, name);
        return link->spec->subtype;
    };
    EXPECT_EQ(subtypeOf("unsigned long long"), IT_U64);
    EXPECT_EQ(subtypeOf("long long int"), IT_I64);
    EXPECT_EQ(subtypeOf("long long unsigned int"), IT_U64);
    EXPECT_EQ(subtypeOf("long unsigned int"), IT_ULONG);
    EXPECT_EQ(subtypeOf("short unsigned int"), IT_USHORT);
    EXPECT_EQ(subtypeOf("signed char"), IT_SCHAR);
    EXPECT_EQ(subtypeOf("long double"), FT_LONGDOUBLE);
    EXPECT_EQ(subtypeOf("double"), FT_DOUBLE);
    EXPECT_EQ(subtypeOf("long int"), IT_LONG);
    EXPECT_EQ(subtypeOf("int"), IT_INT);
    EXPECT_EQ(subtypeOf("__i64"), IT_I64);
    // Unknown names other than unsigned ones only log.
    EXPECT_EQ(subtypeOf("wchar_t"), IT_CHAR);
    EXPECT_EQ(subtypeOf("signed"), IT_CHAR);

    Link boolean = spec(IT_INT);
    setSubtypeFromName(boolean, "_Bool");
    EXPECT_EQ(boolean->spec->subtype, IT_UCHAR);
    EXPECT_TRUE(boolean->isTypedef);
    EXPECT_EQ(getTypeText(boolean, false, k32), "bool");

    Link e = spec(IT_CHAR);
    setSubtypeFromName(e, "enum colour");
    EXPECT_TRUE(isEnum(e));
    EXPECT_EQ(e->spec->subtype, IT_INT);

    EXPECT_EQ(thrownText([] { setSubtypeFromName(spec(IT_CHAR), "unsigned thing"); }),
              "Unknown subtype:unsigned thing");
}

TEST(TypeChainCopies, CloneSharesSpecifiersNotLinks) {
    Link original = decl(DECL_POINTER, decl(DECL_ARRAY, spec(IT_INT), 4));
    Link copy = cloneTypeChain(original);
    ASSERT_NE(copy, original);
    ASSERT_NE(copy->next, original->next);
    EXPECT_EQ(copy->decl, original->decl);
    EXPECT_EQ(copy->next->next->spec, original->next->next->spec);
    EXPECT_EQ(findChainEnd(copy)->spec, findChainEnd(original)->spec);

    // A changed specifier shows in both; a changed link only in its chain.
    findChainEnd(copy)->setSubtype(IT_ULONG);
    EXPECT_EQ(getTypeText(original, false, k32), "unsigned long[4]*");
    setMemorySpaceCode(copy, MEMSPACE_EEPROM);
    EXPECT_EQ(getMemorySpaceName(original), "");
    EXPECT_EQ(getMemorySpaceName(copy), "eeprom");

    EXPECT_EQ(thrownText([] { cloneTypeChain(Link()); }), "Malformed type chain");
}

TEST(TypeChainMemorySpaces, CodesAndNames) {
    EXPECT_EQ(memorySpaceCodeOfName("prog"), MEMSPACE_PROG);
    EXPECT_EQ(memorySpaceCodeOfName("data"), MEMSPACE_DATA);
    EXPECT_EQ(memorySpaceCodeOfName("prod_signatures"), MEMSPACE_PROD_SIGNATURES);
    EXPECT_EQ(memorySpaceCodeOfName("flash"), MEMSPACE_NONE);
    EXPECT_EQ(memorySpaceCodeOfName("Data"), MEMSPACE_NONE);
    EXPECT_EQ(memorySpaceNameOfCode(MEMSPACE_DATA_ALT), "data");
    EXPECT_EQ(memorySpaceNameOfCode(MEMSPACE_USER_SIGNATURES), "user_signatures");
    EXPECT_EQ(memorySpaceNameOfCode(0xC0), "");
    EXPECT_EQ(memorySpaceNameOfCode(0), "");

    // The space replaces only its own bits.
    Link link = spec(IT_INT);
    link->modifiers = MOD_CONST | MOD_VOLATILE;
    setMemorySpaceCode(link, MEMSPACE_IO);
    EXPECT_EQ(link->modifiers, uint32_t(MOD_CONST | MOD_VOLATILE | MEMSPACE_IO));
    EXPECT_EQ(getMemorySpaceName(link), "io");
    // const and volatile change neither size nor text.
    EXPECT_EQ(get_bit_sizeof(link, k8), 16u);
    EXPECT_EQ(getTypeText(link, true, k8), "{io}int");
}

TEST(TypeChainDeclarations, CombiningSpecifiers) {
    auto combined = [](Link first, Link second) { return combineSpecifiers(first, second); };

    // The tail of the list comes first: in "long double" double is first.
    EXPECT_EQ(combined(spec(FT_DOUBLE, NOUN_FLOAT), spec(IT_LONG))->spec->subtype, FT_LONGDOUBLE);
    EXPECT_EQ(combined(spec(IT_INT), spec(IT_LONG))->spec->subtype, IT_LONG);
    EXPECT_EQ(combined(spec(IT_LONG), spec(IT_INT))->spec->subtype, IT_LONG);
    // "long long" stays a long.
    EXPECT_EQ(combined(spec(IT_LONG), spec(IT_LONG))->spec->subtype, IT_LONG);

    // A modifier goes second whichever side it came from.
    EXPECT_EQ(combined(makeModifierLink(MOD_SIGNED), spec(IT_CHAR))->spec->subtype, IT_SCHAR);
    EXPECT_EQ(combined(spec(IT_SHORT), makeModifierLink(MOD_UNSIGNED))->spec->subtype, IT_USHORT);
    // Only the signed bit alone makes a kind signed.
    EXPECT_EQ(combined(spec(IT_INT), makeModifierLink(MOD_SIGNED | MOD_CONST))->spec->subtype,
              IT_UINT);
    Link reg = combined(spec(IT_INT), makeModifierLink(MOD_REGISTER));
    EXPECT_EQ(reg->spec->sclass, SC_REGISTER);
    Link mem = combined(spec(IT_INT), makeModifierLink(MEMSPACE_EEPROM));
    EXPECT_EQ(getMemorySpaceName(mem), "eeprom");

    Link mods = combined(makeModifierLink(MOD_CONST), makeModifierLink(MOD_UNSIGNED));
    EXPECT_EQ(mods->modifiers, uint32_t(MOD_CONST | MOD_UNSIGNED));

    Link constant = spec(IT_INT);
    constant->spec->sclass = SC_CONSTANT;
    constant->spec->val = 77;
    EXPECT_EQ(combined(spec(IT_SHORT), constant)->spec->val, 77u);

    EXPECT_EQ(
        thrownText([&] { combined(makeModifierLink(MOD_CONST), makeModifierLink(MOD_CONST)); }),
        "too many modifiers");
    EXPECT_EQ(
        thrownText([&] { combined(makeModifierLink(MOD_SIGNED), makeModifierLink(MOD_UNSIGNED)); }),
        "Illegal redefinition of signedness");
    EXPECT_EQ(thrownText([&] {
                  combined(decl(DECL_POINTER, spec(IT_INT)), makeModifierLink(MOD_REGISTER));
              }),
              "Invalid register variable");
    EXPECT_EQ(thrownText([&] { combined(spec(IT_UCHAR), makeModifierLink(MOD_SIGNED)); }),
              "illegal syntax signed unsigned");
    EXPECT_EQ(
        thrownText([&] { combined(spec(FT_FLOAT, NOUN_FLOAT), makeModifierLink(MOD_UNSIGNED)); }),
        "Illegal signed/unsigned modifier for a floating point type");
    EXPECT_EQ(thrownText([&] { combined(decl(DECL_POINTER, spec(IT_INT)), spec(IT_INT)); }),
              "Internal cannot combine declarators in a decl");
    EXPECT_EQ(thrownText([&] { combined(spec(FT_FLOAT, NOUN_FLOAT), spec(IT_INT)); }),
              "cannot combine float and integral types in a declaration");
    EXPECT_EQ(thrownText([&] { combined(spec(FT_FLOAT, NOUN_FLOAT), spec(FT_FLOAT, NOUN_FLOAT)); }),
              "cannot combine types in a declaration");
    EXPECT_EQ(thrownText([&] { combined(spec(IT_INT), spec(IT_CHAR)); }),
              "cannot combine integral types in a declaration. short int, long int are the only "
              "legal combinations");
}

TEST(TypeChainDeclarations, AssembleHangsACopyOnEveryEntry) {
    // "(unsigned)x": a lone modifier is an unsigned char.
    auto cast = boost::make_shared<symtab>("tn");
    assembleType(cast, makeModifierLink(MOD_UNSIGNED));
    EXPECT_EQ(cast->type->spec->subtype, IT_UCHAR);
    EXPECT_EQ(cast->type, cast->etype);

    // "int *p, q": the pointer entry keeps its declarator at the head.
    auto p = boost::make_shared<symtab>("p");
    p->type = p->etype = makeDeclaratorLink(DECL_POINTER);
    auto q = boost::make_shared<symtab>("q");
    p->next = q;
    Link base = spec(IT_INT);
    assembleType(p, base);
    EXPECT_EQ(getTypeText(p->type, false, k32), "int*");
    EXPECT_EQ(getTypeText(q->type, false, k32), "int");
    EXPECT_NE(p->etype, q->type);
    EXPECT_EQ(p->etype->spec, q->type->spec);
    EXPECT_EQ(q->etype, q->type);
}

TEST(TypeChainConstants, MakersGiveTheTargetsBits) {
    value v = makeInt(IT_SLONG, -2);
    EXPECT_EQ(v.val, 0xFFFFFFFFFFFFFFFEull);
    EXPECT_EQ(v.type, v.etype);
    EXPECT_TRUE(isConstant(v.type));
    EXPECT_TRUE(isInt(v.type));
    EXPECT_EQ(v.type->spec->val, v.val);
    EXPECT_FALSE(v.lvalue);
    EXPECT_FALSE(v.location);

    value f = makeConstant(FT_FLOAT, 0x3FC00000);
    EXPECT_TRUE(isFloat(f.type));

    // A double of the 8-bit profile is 32 bits wide and keeps float bits.
    {
        ScopedCompilerInfo eight(boost::make_shared<CompilerInfo>(k8));
        value d = makeFloat('d', 1.5);
        EXPECT_EQ(d.type->spec->subtype, FT_DOUBLE);
        EXPECT_EQ(d.val, 0x3FC00000u);
    }
    {
        ScopedCompilerInfo wide(boost::make_shared<CompilerInfo>(k32));
        value d = makeFloat('d', 1.5);
        EXPECT_EQ(d.val, 0x3FF8000000000000ull);
        value l = makeFloat('l', 1.5);
        EXPECT_EQ(l.type->spec->subtype, FT_LONGDOUBLE);
        EXPECT_EQ(l.val, 0x3FF8000000000000ull);
        value s = makeFloat('f', 1.5);
        EXPECT_EQ(s.type->spec->subtype, FT_FLOAT);
        EXPECT_EQ(s.val, 0x3FC00000u);
    }
}
