// ContextBase<T>: ids, parent and owner, the base property list, the
// context-changed signal, the id counters and the property-list lookups.

#include "libcommon/context/contextbase.h"
#include "libcommon/core/status.h"

#include <boost/smart_ptr/bad_weak_ptr.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// A specialised interface of the simplest kind, as the eight real ones are.
class ITestContext : public IContextBase {
public:
    virtual int extra() const = 0;
};

class TestContext : public ContextBase<ITestContext> {
public:
    TestContext(const std::string& id, boost::shared_ptr<IContextBase> parent)
        : ContextBase<ITestContext>(id, parent) {}
    int extra() const override { return 42; }

    // What concrete classes do: take the base list, append behind it.
    json_spirit::Object getProperties() override {
        json_spirit::Object properties = ContextBase<ITestContext>::getProperties();
        properties.push_back(json_spirit::Pair("Name", "test"));
        return properties;
    }
    std::string address() const { return adrStr(); }
};

// Uses the base list unchanged, to see that getParent is asked virtually.
class ReparentedContext : public ContextBase<ITestContext> {
public:
    ReparentedContext(boost::shared_ptr<IContextBase> fake)
        : ContextBase<ITestContext>("child", boost::shared_ptr<IContextBase>()), fake(fake) {}
    int extra() const override { return 0; }
    boost::shared_ptr<IContextBase> getParent() override { return fake; }

private:
    boost::shared_ptr<IContextBase> fake;
};

// Number behind the last '_' of an id.
int counterOf(const std::string& id) { return std::stoi(id.substr(id.rfind('_') + 1)); }

}  // namespace

TEST(ContextBase, RootAndChildPropertyLists) {
    auto root = boost::make_shared<TestContext>("tool-1", boost::shared_ptr<IContextBase>());
    EXPECT_EQ("tool-1", root->getId());
    EXPECT_FALSE(root->getParent());
    json_spirit::Object rootList = root->ContextBase<ITestContext>::getProperties();
    ASSERT_EQ(1u, rootList.size());
    EXPECT_EQ("ID", rootList[0].name_);
    EXPECT_EQ("tool-1", rootList[0].value_.get_str());

    auto child = boost::make_shared<TestContext>("dev-1", root);
    EXPECT_EQ(root, child->getParent());
    json_spirit::Object childList = child->getProperties();
    ASSERT_EQ(3u, childList.size());
    EXPECT_EQ("ID", childList[0].name_);
    EXPECT_EQ("dev-1", childList[0].value_.get_str());
    EXPECT_EQ("ParentID", childList[1].name_);
    EXPECT_EQ("tool-1", childList[1].value_.get_str());
    EXPECT_EQ("Name", childList[2].name_);

    auto reparented = boost::make_shared<ReparentedContext>(root);
    json_spirit::Object list = reparented->getProperties();
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ("tool-1", list[1].value_.get_str());
}

TEST(ContextBase, ChildKeepsParentAlive) {
    boost::weak_ptr<TestContext> weakRoot;
    boost::shared_ptr<TestContext> child;
    {
        auto root = boost::make_shared<TestContext>("root", boost::shared_ptr<IContextBase>());
        weakRoot = root;
        child = boost::make_shared<TestContext>("child", root);
    }
    EXPECT_FALSE(weakRoot.expired());
    child.reset();
    EXPECT_TRUE(weakRoot.expired());
}

TEST(ContextBase, SetPropertiesIgnoresEverythingAndOwnerIsATag) {
    auto context = boost::make_shared<TestContext>("c", boost::shared_ptr<IContextBase>());
    json_spirit::Object empty;
    context->setProperties(empty);
    json_spirit::Object unknown;
    unknown.push_back(json_spirit::Pair("ID", "other"));
    unknown.push_back(json_spirit::Pair("Whatever", 5));
    EXPECT_NO_THROW(context->setProperties(unknown));
    EXPECT_EQ("c", context->getId());

    EXPECT_EQ(0, context->getOwner());
    context->setOwner(-7);
    EXPECT_EQ(-7, context->getOwner());
    EXPECT_EQ(42, context->extra());
}

TEST(ContextBase, ChangedSignalReachesHandlersUntilDisconnected) {
    auto context = boost::make_shared<TestContext>("c", boost::shared_ptr<IContextBase>());
    context->signalContextChanged();  // no handler: nothing happens

    std::vector<std::string> seen;
    const TestContext& constRef = *context;  // handlers can be added through const
    boost::signals2::connection first = constRef.addContextChangedHandler(
        [&seen](boost::shared_ptr<IContextBase> c) { seen.push_back("1:" + c->getId()); });
    boost::signals2::connection second = constRef.addContextChangedHandler(
        [&seen](boost::shared_ptr<IContextBase> c) { seen.push_back("2:" + c->getId()); });
    context->signalContextChanged();
    EXPECT_EQ((std::vector<std::string>{"1:c", "2:c"}), seen);

    first.disconnect();
    seen.clear();
    context->signalContextChanged();
    EXPECT_EQ((std::vector<std::string>{"2:c"}), seen);

    // The context hands itself out as the same object the owner holds.
    boost::shared_ptr<IContextBase> received;
    context->addContextChangedHandler(
        [&received](boost::shared_ptr<IContextBase> c) { received = c; });
    context->signalContextChanged();
    EXPECT_EQ(static_cast<IContextBase*>(context.get()), received.get());

    // Destroying the context ends its connections.
    received.reset();
    context.reset();
    EXPECT_FALSE(second.connected());
}

TEST(ContextBase, SignallingWithoutOwnerThrowsAndCallsNobody) {
    TestContext unowned("u", boost::shared_ptr<IContextBase>());
    bool called = false;
    unowned.addContextChangedHandler([&called](boost::shared_ptr<IContextBase>) { called = true; });
    EXPECT_THROW(unowned.signalContextChanged(), boost::bad_weak_ptr);
    EXPECT_FALSE(called);
}

TEST(ContextBase, AddressTextIsHexadecimalAndPadded) {
    auto context = boost::make_shared<TestContext>("c", boost::shared_ptr<IContextBase>());
    std::string text = context->address();
    EXPECT_GE(text.size(), 8u);
    std::ostringstream expected;
    expected << std::hex << reinterpret_cast<uintptr_t>(context.get());
    EXPECT_NE(std::string::npos, text.find(expected.str()));
}

TEST(ContextIds, EachKindCountsOnItsOwn) {
    std::string reg1 = makeRegistersContextId("PC");
    std::string reg2 = makeRegistersContextId("PC");
    std::string mem1 = makeMemoryContextId("prog");
    std::string msg1 = makeMessageContextId();
    std::string msg2 = makeMessageContextId();
    std::string reg3 = makeRegistersContextId("SP");

    EXPECT_EQ(0u, reg1.rfind("Reg_PC_", 0));
    EXPECT_EQ(0u, reg3.rfind("Reg_SP_", 0));
    EXPECT_EQ(0u, mem1.rfind("Mem_prog_", 0));
    EXPECT_EQ(0u, msg1.rfind("Msg_", 0));
    EXPECT_NE(reg1, reg2);
    EXPECT_EQ(counterOf(reg1) + 1, counterOf(reg2));
    EXPECT_EQ(counterOf(reg2) + 1, counterOf(reg3));  // no other kind in between
    EXPECT_EQ(counterOf(msg1) + 1, counterOf(msg2));
    EXPECT_GE(counterOf(mem1), 1);
    // A name with underscores still ends in the counter.
    std::string odd = makeRegistersContextId("R_1");
    EXPECT_EQ(counterOf(reg3) + 1, counterOf(odd));
}

TEST(ContextIds, UniqueAcrossThreads) {
    const int perThread = 500;
    std::vector<std::vector<std::string>> ids(4);
    std::vector<std::thread> threads;
    for (auto& list : ids)
        threads.emplace_back([&list] {
            for (int i = 0; i < perThread; ++i)
                list.push_back(makeMemoryContextId("m"));
        });
    for (auto& t : threads)
        t.join();
    std::set<std::string> all;
    for (const auto& list : ids)
        all.insert(list.begin(), list.end());
    EXPECT_EQ(4u * perThread, all.size());
}

TEST(PropertyLookup, FirstMatchExactKey) {
    json_spirit::Object list;
    list.push_back(json_spirit::Pair("Size", 4));
    list.push_back(json_spirit::Pair("size", "lower"));
    list.push_back(json_spirit::Pair("Size", 8));
    list.push_back(json_spirit::Pair("Address", static_cast<uint64_t>(0xFFFFFFFF00000000ULL)));

    json_spirit::Value out("untouched");
    EXPECT_FALSE(findProperty(list, "SIZE", out));
    EXPECT_EQ("untouched", out.get_str());
    EXPECT_TRUE(findProperty(list, "Size", out));
    EXPECT_EQ(4, out.get_int());
    EXPECT_TRUE(findProperty(list, "size", out));
    EXPECT_EQ("lower", out.get_str());
    EXPECT_FALSE(findProperty(json_spirit::Object(), "Size", out));

    EXPECT_TRUE(findTypedProperty(list, "Address", json_spirit::int_type, out));
    EXPECT_EQ(0xFFFFFFFF00000000ULL, out.get_uint64());
    EXPECT_FALSE(findTypedProperty(list, "Missing", json_spirit::str_type, out));
}

TEST(PropertyLookup, WrongKindThrowsNamingTheKey) {
    json_spirit::Object list;
    list.push_back(json_spirit::Pair("Name", "r0"));
    list.push_back(json_spirit::Pair("Level", 3));
    list.push_back(json_spirit::Pair("Null", json_spirit::Value()));
    json_spirit::Value out;
    try {
        findTypedProperty(list, "Name", json_spirit::bool_type, out);
        FAIL() << "wrong kind must throw";
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_OPERATION_FAILED, e.getStatus()->getErrorCode());
        EXPECT_EQ("Property Name is not of expected type", e.getStatus()->getMessage());
    }

    EXPECT_EQ(3, findIntegerProperty(list, "Level", -1));
    EXPECT_EQ(-1, findIntegerProperty(list, "Memory", -1));
    EXPECT_THROW(findIntegerProperty(list, "Name", -1), CoreException);
    EXPECT_THROW(findIntegerProperty(list, "Null", -1), CoreException);
}
