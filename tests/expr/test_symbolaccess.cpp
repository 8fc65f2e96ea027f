// Name look-up through SymbolAccessorApi: the order of the sources, what
// each of them gives, and the register name rules.

#include "test_evaluation_support.h"

#include "libcommon/expr/symbolaccess.h"
#include "libcommon/ilocation.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <string>
#include <vector>

namespace {

// Debug information of one more module, which records the names asked.
class RecordingSymbolInformation : public TestSymbolInformation {
public:
    boost::shared_ptr<ISymbolContext> findSymbolAt(const std::string& name, uint64_t address,
                                                   bool wantType) override {
        asked.push_back(name);
        return TestSymbolInformation::findSymbolAt(name, address, wantType);
    }
    boost::shared_ptr<ISymbolContext> findGlobalSymbol(const std::string& name,
                                                       bool wantType) override {
        asked.push_back(name);
        return TestSymbolInformation::findGlobalSymbol(name, wantType);
    }
    std::vector<std::string> asked;
};

class Module : public IProcessModule {
public:
    explicit Module(boost::shared_ptr<ISymbolInformation> info) : info(std::move(info)) {}
    boost::shared_ptr<ISymbolInformation> getSymbolInformation() override { return info; }
    boost::shared_ptr<ISymbolInformation> info;
};

boost::shared_ptr<symtab> namedInt(const std::string& name) {
    auto entry = boost::make_shared<symtab>(name);
    entry->type = entry->etype = makeSpecifierLink(NOUN_INT, IT_INT);
    return entry;
}

class SymbolAccessTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    SymbolAccessTest() : fx(GetParam()) {}

    boost::shared_ptr<SymbolAccessorApi> api(bool withInformation = true) {
        return boost::make_shared<SymbolAccessorApi>(
            withInformation ? fx.symbolInformation : boost::shared_ptr<TestSymbolInformation>(),
            fx.frame, fx.compilerInfo, fx.types, fx.symbols);
    }

    ExprFixture fx;
};

TEST_P(SymbolAccessTest, DebugInformationComesBeforeTheStoredLists) {
    auto a = api();
    a->storeSymbol("counter", namedInt("counter"));
    auto counter = a->findvar("counter");
    ASSERT_TRUE(counter);
    ASSERT_TRUE(counter->location);
    EXPECT_EQ(counter->location->getAbsoluteAddress(), 0x100u);
    EXPECT_EQ(counter->etype, findChainEnd(counter->type));

    // Locals are seen from the frame's instruction address.
    auto local = a->findvar("local");
    ASSERT_TRUE(local);
    EXPECT_EQ(local->location->getAddressingMode(), ILocation::AM_STACK);

    // A name only in the list is found, also without any debug information.
    a->storeSymbol("ignored", namedInt("stored"));
    EXPECT_FALSE(a->findvar("ignored"));
    EXPECT_TRUE(a->findvar("stored"));
    EXPECT_TRUE(api(false)->findvar("stored"));
    EXPECT_FALSE(api(false)->findvar("ch"));
}

TEST_P(SymbolAccessTest, OtherModulesGiveTheirGlobalsOnly) {
    auto other = boost::make_shared<RecordingSymbolInformation>();
    auto shared = fx.symbolInformation->globals["counter"];
    other->globals["elsewhere"] = shared;
    fx.process->modules = {boost::make_shared<Module>(boost::shared_ptr<ISymbolInformation>()),
                           boost::make_shared<Module>(fx.symbolInformation),
                           boost::make_shared<Module>(other)};
    auto a = api();
    const int before = fx.symbolInformation->lookups;
    EXPECT_TRUE(a->findvar("elsewhere"));
    // The API's own module was asked once, from the frame, not again as a
    // module.
    EXPECT_EQ(fx.symbolInformation->lookups, before + 1);
    EXPECT_EQ(other->asked, std::vector<std::string>{"elsewhere"});
    EXPECT_TRUE(api(false)->findvar("counter"));
}

TEST_P(SymbolAccessTest, ResolversAreAskedInOrderAndOnlyUntilTheyAnswer) {
    auto a = api();
    std::vector<std::string> calls;
    a->addNameResolver([&](const std::string& name) {
        calls.push_back("first " + name);
        return boost::shared_ptr<symtab>();
    });
    a->addNameResolver([&](const std::string& name) {
        calls.push_back("second " + name);
        return name == "made" ? namedInt("made") : boost::shared_ptr<symtab>();
    });
    auto made = a->findvar("made");
    ASSERT_TRUE(made);
    EXPECT_EQ(calls, (std::vector<std::string>{"first made", "second made"}));
    ASSERT_FALSE(fx.symbols->empty());
    EXPECT_EQ(fx.symbols->back(), made);

    // Kept in the list: the resolvers are not asked again for it, but are
    // for a name they could not resolve.
    calls.clear();
    EXPECT_EQ(a->findvar("made"), made);
    EXPECT_TRUE(calls.empty());
    EXPECT_FALSE(a->findvar("nothing"));
    EXPECT_FALSE(a->findvar("nothing"));
    EXPECT_EQ(calls.size(), 4u);
}

TEST_P(SymbolAccessTest, RegistersMatchWithoutCaseDollarOrLeadingZeros) {
    auto a = api();
    const int r1 = a->findvar("R1")->location->getRegisterId();
    for (const char* text : {"R1", "r1", "$R1", "$r001", "R01"}) {
        auto reg = a->findvar(text);
        ASSERT_TRUE(reg) << text;
        EXPECT_EQ(reg->name, text);
        ASSERT_TRUE(reg->location) << text;
        EXPECT_EQ(reg->location->getRegisterId(), r1) << text;
    }
    EXPECT_FALSE(a->findvar("r1x"));
    EXPECT_FALSE(a->findvar("$"));
    EXPECT_NE(a->findvar("r10")->location->getRegisterId(), r1);

    // A variable of that name hides the register; "$R1" asks for a variable
    // named "$R1" first, then goes to the registers.
    a->storeSymbol("R1", namedInt("R1"));
    EXPECT_FALSE(a->findvar("R1")->location);
    EXPECT_TRUE(a->findvar("$R1")->location);
}

TEST(RegisterNames, ZerosAfterTheFirstCharacterAreSkippedOnBothSides) {
    EXPECT_TRUE(registerNameMatches("R01", "r1"));
    EXPECT_TRUE(registerNameMatches("R1", "R001"));
    EXPECT_TRUE(registerNameMatches("R0", "r00"));
    EXPECT_TRUE(registerNameMatches("SREG", "sreg"));
    EXPECT_FALSE(registerNameMatches("R1", "r10"));
    EXPECT_FALSE(registerNameMatches("R10", "r1"));
    EXPECT_FALSE(registerNameMatches("", "r1"));
    // The register's own letters after the first are compared as they
    // stand, so a lower-case name only matches its upper-cased form.
    EXPECT_FALSE(registerNameMatches("Rx", "rx"));
}

TEST_P(SymbolAccessTest, TypesComeFromDebugInformationThenTheTypesList) {
    auto a = api();
    auto own = namedInt("int");
    a->storeType("int", own);
    auto fromDebug = a->findtype("int");
    ASSERT_TRUE(fromDebug);
    EXPECT_NE(fromDebug, own);

    auto older = namedInt("mine");
    a->storeType("mine", older);
    a->storeType("mine", namedInt("mine"));
    EXPECT_EQ(a->findtype("mine"), older);
    EXPECT_FALSE(a->findtype("counter"));

    // A variable look-up that meets a type in debug information goes on to
    // the lists.
    a->storeSymbol("u8_t", namedInt("u8_t"));
    auto variable = a->findvar("u8_t");
    ASSERT_TRUE(variable);
    EXPECT_EQ(variable, fx.symbols->back());
}

TEST_P(SymbolAccessTest, AScopeIsPutBeforeTheNameInDebugInformationOnly) {
    auto recording = boost::make_shared<RecordingSymbolInformation>();
    auto a = boost::make_shared<SymbolAccessorApi>(recording, fx.frame, fx.compilerInfo, fx.types,
                                                   fx.symbols);
    a->storeSymbol("x", namedInt("x"));
    a->pushSymbolScope("{main,file.c}");
    EXPECT_TRUE(a->findvar("x"));
    a->popSymbolScope();
    a->findvar("y");
    EXPECT_EQ(recording->asked, (std::vector<std::string>{"{main,file.c}x", "y"}));
}

TEST_P(SymbolAccessTest, EntriesFromDebugInformation) {
    auto a = api();
    // An enumerator is a constant with its value in the specifier.
    auto green = a->findvar("GREEN");
    ASSERT_TRUE(green);
    ASSERT_TRUE(isConstant(green->etype));
    EXPECT_EQ(green->etype->spec->val, 5u);
    EXPECT_EQ(green->etype->spec->subtype, IT_SLONG);
    EXPECT_FALSE(green->location);

    // An object takes the memory space of its location.
    auto counter = a->findvar("counter");
    EXPECT_EQ(getMemorySpaceName(counter->type), "data");

    auto type = a->findtype("Flags");
    ASSERT_TRUE(type);
    EXPECT_TRUE(isStruct(type->type));
    EXPECT_FALSE(type->location);

    // Code of a 16-bit-int target is word-addressed.
    auto main = a->findvar("main");
    ASSERT_TRUE(main);
    ASSERT_TRUE(isFunction(main->type));
    EXPECT_EQ(getMemorySpaceName(main->type), "prog");
    EXPECT_EQ(main->location->getAbsoluteAddress(),
              GetParam() == ExprFixture::TARN8 ? 0x68u : 0xD0u);
}

TEST_P(SymbolAccessTest, CopiesShareTheListsAndTheFormatStringIsTheirOwn) {
    auto a = api();
    SymbolAccessorApi copy(*a);
    copy.storeSymbol("shared", namedInt("shared"));
    EXPECT_TRUE(a->findvar("shared"));
    copy.setFormatString("hex");
    EXPECT_EQ(copy.getFormatString(), "hex");
    EXPECT_EQ(a->getFormatString(), "");
}

INSTANTIATE_TEST_SUITE_P(Profiles, SymbolAccessTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

}  // namespace
