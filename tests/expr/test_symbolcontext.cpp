#include "exprfixture.h"

#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/symbolcontext.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

namespace {

typedef boost::shared_ptr<link_variant> Link;

class SymbolChainTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    SymbolChainTest() : fx(GetParam()) {}

    std::string text(const Link& chain) { return getTypeText(chain, true, *fx.compilerInfo); }

    boost::shared_ptr<symtab> typeEntry(const std::string& name) {
        for (const auto& entry : *fx.types)
            if (entry->name == name) return entry;
        return boost::shared_ptr<symtab>();
    }

    ExprFixture fx;
};

std::string profileName(const ::testing::TestParamInfo<ExprFixture::Profile>& info) {
    return info.param == ExprFixture::TARN8 ? "Tarn8" : "Tarn32";
}

boost::shared_ptr<TestSymbol> composite(const std::string& name, int size,
                                        std::vector<boost::shared_ptr<ISymbolContext>> children) {
    auto s = boost::make_shared<TestSymbol>(name);
    s->symbolClass = ISymbolContext::SYMBOL_TYPE;
    s->typeClass = ISymbolContext::TYPE_COMPOSITE;
    s->size = size;
    s->children = std::move(children);
    return s;
}

boost::shared_ptr<TestSymbol> member(const std::string& name,
                                     boost::shared_ptr<ISymbolContext> type, int offset, int size) {
    auto m = boost::make_shared<TestSymbol>(name);
    m->symbolClass = ISymbolContext::SYMBOL_OBJECT;
    m->storageClass = ISymbolContext::STORAGE_MEMBER;
    m->typeContext = type;
    m->offset = offset;
    m->size = size;
    return m;
}

}  // namespace

TEST_P(SymbolChainTest, ScalarsPointersAndArraysFromDebugInformation) {
    EXPECT_EQ(text(fx.chainOf("counter")), "int");
    EXPECT_EQ(text(fx.chainOf("uc")), "unsigned char");
    EXPECT_EQ(text(fx.chainOf("ul")), "unsigned long");
    EXPECT_EQ(fx.chainOf("ll")->spec->subtype, IT_I64);
    EXPECT_EQ(fx.chainOf("db")->spec->subtype, FT_DOUBLE);
    EXPECT_EQ(text(fx.chainOf("ptr")), "int*");
    EXPECT_EQ(text(fx.chainOf("buf")), "char[8]");
    EXPECT_EQ(get_bit_sizeof(fx.chainOf("nums"), *fx.compilerInfo), 32u * fx.intSize);

    // A typedef keeps its name at the head, over the base type's specifier.
    Link small = fx.chainOf("small");
    EXPECT_EQ(text(small), "u8_t");
    EXPECT_EQ(small->spec->subtype, IT_UCHAR);

    // A function symbol is a function declarator without return type.
    Link main = createLinkVariantFromISymbolContext(fx.symbol("main"), fx.types, fx.symbols);
    EXPECT_TRUE(isFunction(main));
    EXPECT_FALSE(main->next);

    // The plug-in's memory number of a pointer goes to the pointee.
    boost::shared_ptr<TestSymbol> progPtr = boost::make_shared<TestSymbol>("pp");
    progPtr->symbolClass = ISymbolContext::SYMBOL_TYPE;
    progPtr->typeClass = ISymbolContext::TYPE_POINTER;
    progPtr->baseTypeContext = fx.symbol("int");
    progPtr->memory = 1;
    Link p = createLinkVariantFromISymbolContext(progPtr, fx.types, fx.symbols);
    EXPECT_EQ(text(p), "{prog}int*");
    // ... without marking the shared int of other chains.
    EXPECT_EQ(text(fx.chainOf("ptr")), "int*");
}

TEST_P(SymbolChainTest, StructLayoutMatchesTheEnginesOwn) {
    Link flags = fx.chainOf("flags");
    ASSERT_TRUE(isStruct(flags));
    boost::shared_ptr<structdef> def = flags->getStructdef();
    EXPECT_EQ(def->tag, "Flags");
    EXPECT_EQ(def->size, 32u * fx.intSize);
    EXPECT_EQ(text(flags), "struct Flags");

    boost::shared_ptr<symtab> a = def->fields;
    ASSERT_TRUE(a && a->next && a->next->next && a->next->next->next);
    boost::shared_ptr<symtab> b = a->next, c = b->next, anon = c->next;
    EXPECT_EQ(a->name, "a");
    EXPECT_TRUE(isFieldSpecWidth(a->type));
    EXPECT_EQ(a->type->decl->getBitSize(), 3u);
    EXPECT_EQ(a->type->decl->getBitOffset(), 5u);
    EXPECT_EQ(text(a->type), "unsigned char:3");
    EXPECT_EQ(b->type->decl->getBitOffset(), 0u);
    EXPECT_EQ(c->locofs, fx.intSize);
    EXPECT_FALSE(c->isAnonymous);
    // The unnamed struct member is found through its parent.
    EXPECT_EQ(anon->name, "anon1");
    EXPECT_TRUE(anon->isAnonymous);
    EXPECT_EQ(anon->locofs, 2 * fx.intSize);
    EXPECT_EQ(anon->type->getStructdef()->fields->next->name, "y");

    // Members and their nested members are stored among the types.
    ASSERT_TRUE(typeEntry("x"));
    ASSERT_TRUE(typeEntry("anon1"));

    // Laying out the same fields again gives what the debug information said.
    std::vector<std::pair<int32_t, int32_t>> given;
    for (auto f = def->fields; f; f = f->next) given.push_back({f->locofs, f->locsize});
    EXPECT_EQ(layoutFields(def->fields, true, *fx.compilerInfo), def->size);
    size_t i = 0;
    for (auto f = def->fields; f; f = f->next, ++i)
        EXPECT_EQ(std::make_pair(f->locofs, f->locsize), given[i]) << f->name;
    EXPECT_EQ(a->type->decl->getBitOffset(), 5u);
}

TEST_P(SymbolChainTest, SelfReferenceEndsAtTheCachedStruct) {
    Link node = fx.chainOf("node");
    boost::shared_ptr<symtab> next = node->getStructdef()->fields->next;
    EXPECT_EQ(next->name, "next");
    ASSERT_TRUE(isPointer(next->type));
    EXPECT_EQ(next->type->next->spec, node->spec);
    EXPECT_EQ(next->locofs, fx.intSize);
    EXPECT_EQ(text(next->type), "struct Node*");
}

TEST_P(SymbolChainTest, EnumConstantsBecomeTypes) {
    Link colour = fx.chainOf("colour");
    ASSERT_TRUE(isEnum(colour));
    EXPECT_EQ(colour->spec->subtype, fx.intSize == 2 ? IT_SHORT : IT_LONG);
    EXPECT_EQ(text(colour), "Colour");
    boost::shared_ptr<symtab> e = colour->spec->enumerators;
    std::vector<std::pair<std::string, uint64_t>> constants;
    for (; e; e = e->next) constants.push_back({e->name, e->type->spec->val});
    EXPECT_EQ(constants, (std::vector<std::pair<std::string, uint64_t>>{
                             {"RED", 0}, {"GREEN", 5}, {"BLUE", 6}}));
    boost::shared_ptr<symtab> green = typeEntry("GREEN");
    ASSERT_TRUE(green);
    EXPECT_TRUE(isConstant(green->etype));
}

TEST_P(SymbolChainTest, ConvertingATypeAgainReusesItsEntries) {
    auto convert = [&](const std::string& name) {
        return createLinkVariantFromISymbolContext(fx.symbol(name)->typeContext, fx.types,
                                                   fx.symbols);
    };
    const Link flags = convert("flags"), node = convert("node"), colour = convert("colour");
    const size_t size = fx.types->size();
    for (int i = 0; i < 50; ++i)
        for (const char* name : {"flags", "node", "colour"}) convert(name);
    EXPECT_EQ(fx.types->size(), size);

    // The new chains use the entries already listed and read the same.
    const Link node2 = convert("node");
    EXPECT_EQ(node2->getStructdef()->fields, node->getStructdef()->fields);
    EXPECT_EQ(text(node2->getStructdef()->fields->next->type), "struct Node*");
    EXPECT_EQ(convert("flags")->getStructdef()->fields, flags->getStructdef()->fields);
    EXPECT_EQ(convert("colour")->spec->enumerators, colour->spec->enumerators);
    EXPECT_EQ(get_bit_sizeof(convert("flags"), *fx.compilerInfo),
              get_bit_sizeof(flags, *fx.compilerInfo));

    // Same names, another member type or another constant value: new entries.
    auto small = member("value", fx.symbol("unsigned char"), 0, 1);
    auto next = member("next", fx.symbol("node")->typeContext, 1, 1);
    Link other = createLinkVariantFromISymbolContext(composite("Node", 2, {small, next}), fx.types,
                                                     fx.symbols);
    EXPECT_EQ(fx.types->size(), size + 2);
    EXPECT_NE(other->getStructdef()->fields, node->getStructdef()->fields);
    auto colours = boost::make_shared<TestSymbol>("Colour");
    colours->symbolClass = ISymbolContext::SYMBOL_TYPE;
    colours->typeClass = ISymbolContext::TYPE_ENUM;
    colours->size = fx.intSize;
    for (const char* constant : {"RED", "GREEN", "BLUE"}) {
        auto c = boost::make_shared<TestSymbol>(constant);
        c->value = {static_cast<unsigned char>(constant[0])};
        colours->children.push_back(c);
    }
    Link otherColours = createLinkVariantFromISymbolContext(colours, fx.types, fx.symbols);
    EXPECT_EQ(fx.types->size(), size + 5);
    EXPECT_EQ(otherColours->spec->enumerators->type->spec->val, uint64_t('R'));
    // An older entry hides a newer one of its name, so look-ups still find
    // the first ones.
    EXPECT_EQ(typeEntry("RED")->type->spec->val, 0u);

    // A member struct laid out like the start of the one around it keeps
    // its own single field: the outer one's entries are not finished while
    // the member is converted.
    const int I = fx.intSize;
    auto inner = composite("In", I, {member("first", fx.symbol("int"), 0, I)});
    auto outer = composite("Out", 2 * I,
                           {member("first", fx.symbol("int"), 0, I), member("in", inner, I, I)});
    for (int i = 0; i < 2; ++i) {
        Link out = createLinkVariantFromISymbolContext(outer, fx.types, fx.symbols);
        boost::shared_ptr<symtab> in = out->getStructdef()->fields->next;
        ASSERT_TRUE(in);
        EXPECT_FALSE(findChainEnd(in->type)->getStructdef()->fields->next);
    }
}

TEST_P(SymbolChainTest, RoundTripThroughSymbolContexts) {
    // Debug information -> chain -> context describes the same type.
    for (const char* name : {"counter", "ch", "uc", "sh", "lg", "ul", "ll", "fl", "db", "flags",
                             "buf", "nums", "ptr", "node", "colour", "small"}) {
        boost::shared_ptr<TestSymbol> object = fx.symbol(name);
        auto shown = createSymbolContextFromLinkVariant(fx.chainOf(name), fx.locationOf(name),
                                                        fx.compilerInfo);
        boost::shared_ptr<ISymbolContext> type = object->typeContext;
        ISymbolContext::TypeClass expected = type->getTypeClass();
        if (type->getTypeContext())  // a typedef shows its base class
            expected = type->getTypeContext()->getTypeClass();
        EXPECT_EQ(shown->getTypeClass(), expected) << name;
        EXPECT_EQ(shown->getSize(), type->getSize()) << name;
        EXPECT_EQ(shown->getLength(), type->getLength()) << name;
    }
    // Chain -> context -> chain gives the type back for what a context can
    // describe without members.
    for (const char* name : {"counter", "uc", "ul", "fl", "ptr", "buf", "nums"}) {
        Link chain = fx.chainOf(name);
        auto shown = createSymbolContextFromLinkVariant(chain, boost::shared_ptr<ILocation>(),
                                                        fx.compilerInfo);
        Link back = createLinkVariantFromISymbolContext(shown, fx.types, fx.symbols);
        EXPECT_EQ(text(back), text(chain)) << name;
        EXPECT_EQ(get_bit_sizeof(back, *fx.compilerInfo), get_bit_sizeof(chain, *fx.compilerInfo))
            << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, SymbolChainTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

TEST(SymbolChainMembers, AnonymousNamesAndNegativeBitOffsets) {
    ExprFixture fx(ExprFixture::TARN32);
    auto tInt = fx.symbol("int");
    auto inner = [&](const std::string& tag) {
        return composite(tag, 4, {member("v", tInt, 0, 4)});
    };
    auto odd = member("odd", fx.symbol("unsigned char"), 1, 2);
    odd->bitField = true;
    odd->bitSize = 2;
    odd->bitOffset = -3;
    auto hidden = member("hidden", tInt, 2, 4);
    hidden->storageClass = ISymbolContext::STORAGE_NONE;  // not a member
    auto outer =
        composite("Outer", 24,
                  {member("", inner(""), 0, 4), member("", inner("struct "), 4, 4),
                   member("", inner("Tagged"), 8, 4), odd, hidden, member("9lives", tInt, 16, 4)});
    Link chain = createLinkVariantFromISymbolContext(outer, fx.types, fx.symbols);
    std::vector<std::string> names;
    for (auto f = chain->getStructdef()->fields; f; f = f->next) names.push_back(f->name);
    EXPECT_EQ(names,
              (std::vector<std::string>{"anon1", "struct_anon2", "Tagged", "odd", "_lives"}));

    boost::shared_ptr<symtab> f = chain->getStructdef()->fields->next->next->next;
    EXPECT_EQ(f->locsize, 3);
    EXPECT_EQ(f->type->decl->getBitOffset(), 5u);
    EXPECT_EQ(f->type->decl->getBitSize(), 2u);

    // The count starts again in every struct.
    Link again = createLinkVariantFromISymbolContext(
        composite("Again", 4, {member("", inner(""), 0, 4)}), fx.types, fx.symbols);
    EXPECT_EQ(again->getStructdef()->fields->name, "anon1");

    auto wide = member("wide", tInt, 0, 4);
    wide->bitField = true;
    wide->bitSize = 0x10000;
    EXPECT_EQ(thrownText([&] {
                  createLinkVariantFromISymbolContext(composite("W", 4, {wide}), fx.types,
                                                      fx.symbols);
              }),
              "bit count too large");
}

TEST(SymbolChainMembers, EnumSizesAndAliasesAndFailures) {
    ExprFixture fx(ExprFixture::TARN32);
    auto e = boost::make_shared<TestSymbol>("Small");
    e->symbolClass = ISymbolContext::SYMBOL_TYPE;
    e->typeClass = ISymbolContext::TYPE_ENUM;
    e->size = 2;
    auto k = boost::make_shared<TestSymbol>("BIG");
    k->value = {0x34, 0x12};
    e->children = {k};
    Link chain = createLinkVariantFromISymbolContext(e, fx.types, fx.symbols);
    EXPECT_EQ(chain->spec->subtype, IT_SHORT);
    EXPECT_EQ(chain->spec->enumerators->type->spec->val, 0x1234u);
    EXPECT_EQ(chain->spec->enumerators->type->spec->subtype, IT_SHORT);

    // An unnamed alias is the const-qualified type: same text and size.
    auto alias = boost::make_shared<TestSymbol>("");
    alias->symbolClass = ISymbolContext::SYMBOL_ALIAS;
    alias->typeContext = fx.symbol("int");
    Link constInt = createLinkVariantFromISymbolContext(alias, fx.types, fx.symbols);
    EXPECT_EQ(constInt->modifiers, uint32_t(MOD_CONST));
    EXPECT_EQ(getTypeText(constInt, true, *fx.compilerInfo), "int");

    auto bad = boost::make_shared<TestSymbol>("k");
    bad->symbolClass = ISymbolContext::SYMBOL_VALUE;
    bad->typeClass = ISymbolContext::TYPE_POINTER;
    EXPECT_EQ(thrownText([&] { createLinkVariantFromISymbolContext(bad, fx.types, fx.symbols); }),
              "Unexpected constant type");
    bad->symbolClass = ISymbolContext::SymbolClass(9);
    EXPECT_EQ(thrownText([&] { createLinkVariantFromISymbolContext(bad, fx.types, fx.symbols); }),
              "Unsupported symbolclass");
    bad->symbolClass = ISymbolContext::SYMBOL_TYPE;
    bad->typeClass = ISymbolContext::TypeClass(42);
    EXPECT_EQ(thrownText([&] { createLinkVariantFromISymbolContext(bad, fx.types, fx.symbols); }),
              "Unknown type class");
    EXPECT_EQ(thrownText([&] {
                  createLinkVariantFromISymbolContext(boost::shared_ptr<ISymbolContext>(), fx.types,
                                                      fx.symbols);
              }),
              "NULL symbolContext ptr in createLinkVarianFromISymbolContext");
    // An object without type reads as void.
    auto untyped = boost::make_shared<TestSymbol>("u");
    EXPECT_TRUE(isVoid(createLinkVariantFromISymbolContext(untyped, fx.types, fx.symbols)));
}

TEST(SymbolContexts, IdsChildrenAndLifetime) {
    ExprFixture fx(ExprFixture::TARN32);
    boost::shared_ptr<ISymbolContext> flags = createSymbolContextFromLinkVariant(
        fx.chainOf("flags"), boost::shared_ptr<ILocation>(), fx.compilerInfo);
    const std::string id = flags->getId();
    ASSERT_EQ(id.rfind("Sym", 0), 0u);
    EXPECT_EQ(SymbolContext::getContextFromId(id), flags);
    EXPECT_TRUE(flags->isEquivalent(SymbolContext::getContextFromId(id)));
    EXPECT_FALSE(flags->isEquivalent(fx.symbol("int")));

    std::vector<boost::shared_ptr<ISymbolContext>> first =
        flags->getChildren(ISymbolContext::SYMBOL_UNKNOWN);
    std::vector<boost::shared_ptr<ISymbolContext>> second =
        flags->getChildren(ISymbolContext::SYMBOL_UNKNOWN);
    ASSERT_EQ(first.size(), 4u);
    EXPECT_EQ(first[2]->getName(), "c");
    EXPECT_EQ(first[3]->getName(), "anon1");
    EXPECT_NE(first[0]->getId(), second[0]->getId());
    // Children live as long as their parent, also when nobody else holds them.
    std::string childId = first[0]->getId();
    first.clear();
    second.clear();
    EXPECT_TRUE(SymbolContext::getContextFromId(childId));

    auto colour = createSymbolContextFromLinkVariant(
        fx.chainOf("colour"), boost::shared_ptr<ILocation>(), fx.compilerInfo);
    auto constants = colour->getChildren(ISymbolContext::SYMBOL_UNKNOWN);
    ASSERT_EQ(constants.size(), 3u);
    EXPECT_EQ(constants[1]->getName(), "GREEN");
    EXPECT_EQ(constants[1]->getSymbolClass(), ISymbolContext::SYMBOL_VALUE);
    EXPECT_EQ(constants[1]->getTypeClass(), ISymbolContext::TYPE_SIGNED);
    EXPECT_EQ(constants[1]->getOffset(), 5);

    auto scalar = createSymbolContextFromLinkVariant(fx.chainOf("counter"),
                                                     fx.locationOf("counter"), fx.compilerInfo);
    EXPECT_TRUE(scalar->getChildren(ISymbolContext::SYMBOL_UNKNOWN).empty());
    EXPECT_FALSE(scalar->getLocation(fx.frame));
    EXPECT_EQ(scalar->getStorageClass(), ISymbolContext::STORAGE_NONE);

    flags.reset();
    EXPECT_FALSE(SymbolContext::getContextFromId(id));
    EXPECT_FALSE(SymbolContext::getContextFromId(childId));
}

TEST(SymbolContexts, ShownTypesAndProperties) {
    ExprFixture fx(ExprFixture::TARN8);
    auto pointer = createSymbolContextFromLinkVariant(fx.chainOf("ptr"), fx.locationOf("ptr"),
                                                      fx.compilerInfo);
    EXPECT_EQ(pointer->getName(), "int*@0x0150");
    EXPECT_EQ(pointer->getSymbolClass(), ISymbolContext::SYMBOL_TYPE);
    EXPECT_EQ(pointer->getTypeClass(), ISymbolContext::TYPE_POINTER);
    EXPECT_EQ(pointer->getSize(), 2);
    ASSERT_TRUE(pointer->getBaseTypeContext());
    EXPECT_EQ(pointer->getBaseTypeContext()->getName(), "int");

    Link chars = makeDeclaratorLink(DECL_ARRAY, 3);
    chars->next = makeSpecifierLink(NOUN_INT, IT_CHAR);
    auto array =
        createSymbolContextFromLinkVariant(chars, boost::shared_ptr<ILocation>(), fx.compilerInfo);
    EXPECT_EQ(array->getTypeClass(), ISymbolContext::TYPE_ARRAY);
    EXPECT_EQ(array->getLength(), 3);
    EXPECT_EQ(array->getSize(), 3);
    EXPECT_EQ(array->getIndexTypeContext()->getName(), "signed int");
    EXPECT_EQ(array->getBaseTypeContext()->getName(), "char");

    auto unsignedShown = createSymbolContextFromLinkVariant(
        makeSpecifierLink(NOUN_INT, IT_UCHAR), boost::shared_ptr<ILocation>(), fx.compilerInfo);
    EXPECT_EQ(unsignedShown->getTypeClass(), ISymbolContext::TYPE_UNSIGNED);
    auto fn = createSymbolContextFromLinkVariant(makeDeclaratorLink(DECL_FUNCTION),
                                                 boost::shared_ptr<ILocation>(), fx.compilerInfo);
    EXPECT_EQ(fn->getTypeClass(), ISymbolContext::TYPE_FUNCTION);
    EXPECT_EQ(fn->getName(), "function(word address) ");

    // The property list: the base's, then the symbol's in a fixed order.
    SymbolContext::SymbolInfo info;
    info.name = "k";
    info.symbolClass = ISymbolContext::SYMBOL_VALUE;
    info.typeClass = ISymbolContext::TYPE_SIGNED;
    info.typeContext = array;
    info.size = 2;
    info.address = 0x1234;
    info.value = {0x34, 0x12};
    auto k = boost::make_shared<SymbolContext>(info, makeInt(IT_SINT, 0x1234).type);
    json_spirit::Object properties = k->getProperties();
    std::vector<std::string> keys;
    for (const json_spirit::Pair& p : properties) keys.push_back(p.name_);
    EXPECT_EQ(keys,
              (std::vector<std::string>{"ID", "ID", "Name", "Class", "TypeClass", "TypeID", "Size",
                                        "Length", "Offset", "Address", "MultiLocation", "Value"}));
    json_spirit::Value v;
    ASSERT_TRUE(findProperty(properties, "TypeID", v));
    EXPECT_EQ(v.get_str(), array->getId());
    ASSERT_TRUE(findProperty(properties, "Value", v));
    ASSERT_EQ(v.get_array().size(), 2u);
    EXPECT_EQ(v.get_array()[1].get_int(), 0x12);
    ASSERT_TRUE(findProperty(properties, "Class", v));
    EXPECT_EQ(v.get_int(), 1);

    auto constant = createSymbolContext(makeInt(IT_SINT, 3).type, "three", 2, 0);
    EXPECT_EQ(constant->getSymbolClass(), ISymbolContext::SYMBOL_VALUE);
    EXPECT_EQ(constant->getTypeClass(), ISymbolContext::TYPE_UNSIGNED);
    auto typeOnly = createSymbolContext(makeSpecifierLink(NOUN_INT, IT_INT), "int", 2, 0);
    EXPECT_EQ(typeOnly->getSymbolClass(), ISymbolContext::SYMBOL_TYPE);
}

TEST(SymbolMakers, RegistersBitFieldsAndConstants) {
    ExprFixture fx(ExprFixture::TARN8);
    boost::shared_ptr<symtab> r5 = createRegisterSymbol(fx.frame, "", 5, 1);
    EXPECT_EQ(r5->name, "R5");
    EXPECT_EQ(r5->type, r5->etype);
    EXPECT_EQ(r5->type->spec->subtype, IT_UCHAR);
    EXPECT_EQ(r5->location->getLocationAsString(), "R5");
    EXPECT_EQ(createRegisterSymbol(fx.frame, "$sp", 32, 2)->type->spec->subtype, IT_ULONG);
    EXPECT_EQ(createRegisterSymbol(fx.frame, "$sp", 32, 2)->name, "$sp");

    boost::shared_ptr<symtab> fp = createFpRegisterSymbol(fx.frame, "d0", 3, 8);
    EXPECT_TRUE(isFloat(fp->type));
    EXPECT_EQ(fp->type->spec->subtype, FT_DOUBLE);
    EXPECT_EQ(createFpRegisterSymbol(fx.frame, "s0", 3, 4)->type->spec->subtype, FT_FLOAT);

    boost::shared_ptr<symtab> bits = createBitfieldSymbol(fx.frame, "ready", 0x130, 2, 3, 4);
    EXPECT_TRUE(isInt(bits->type));  // no field-width link: reads as a whole word
    EXPECT_EQ(bits->type->spec->subtype, IT_USHORT);
    EXPECT_EQ(bits->location->getMemoryName(), "data");
    EXPECT_EQ(bits->location->getAbsoluteAddress(), 0x130u);
    EXPECT_EQ(bits->location->getBitOffset(), 3);
    EXPECT_EQ(bits->location->getBitSize(), 4);

    boost::shared_ptr<symtab> k = createNamedIntegerConstant("LIMIT", 0x1FFFF, 4);
    EXPECT_FALSE(k->location);
    EXPECT_TRUE(isConstant(k->etype));
    EXPECT_EQ(k->type->spec->val, 0x1FFFFu);
    EXPECT_EQ(k->type->spec->subtype, IT_ULONG);
    EXPECT_EQ(createNamedIntegerConstant("B", 1, 1)->type->spec->subtype, IT_UCHAR);
}
