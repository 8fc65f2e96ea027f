// Work counters and their scaling onto a parent's share.

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::_;
using ::testing::InSequence;

namespace {
class MockParent : public IIntermediateResult {
public:
    MOCK_METHOD(void, beginTask, (const std::string&, unsigned int), (override));
    MOCK_METHOD(void, done, (), (override));
    MOCK_METHOD(void, worked, (unsigned int), (override));
    MOCK_METHOD(void, setCancel, (bool), (override));
    MOCK_METHOD(bool, isCanceled, (), (const, override));
    MOCK_METHOD(void, setDescription, (const std::string&), (override));
    MOCK_METHOD(std::string, getDescription, (), (const, override));
};
}  // namespace

TEST(IntermediateResult, CountsClipAndDoneResets) {
    IntermediateResult r;
    r.beginTask("Writing", 10);
    r.worked(4);
    r.worked(100);
    EXPECT_EQ(10u, r.getWorkCompleted());
    EXPECT_EQ(10u, r.getWorkTotal());
    EXPECT_EQ("Writing", r.getDescription());
    r.done();
    EXPECT_EQ(0u, r.getWorkCompleted());
    EXPECT_EQ(0u, r.getWorkTotal());
    EXPECT_TRUE(r.isDone());
}

TEST(IntermediateResult, SecondBeginTaskContinuesFromTheOldCount) {
    IntermediateResult r;
    r.beginTask("a", 100);
    r.worked(60);
    r.beginTask("b", 50);
    EXPECT_EQ(50u, r.getWorkCompleted()) << "clipped to the new total";
    r.beginTask("c", 200);
    EXPECT_EQ(50u, r.getWorkCompleted());
    r.worked(0xFFFFFFFFu);
    EXPECT_EQ(200u, r.getWorkCompleted()) << "no overflow on huge amounts";
}

TEST(SubIntermediateResult, ReportsOnlyWholeParentUnits) {
    MockParent parent;
    EXPECT_CALL(parent, setDescription("Writing"));
    {
        InSequence seq;
        EXPECT_CALL(parent, worked(0u));  // the worked(0) of beginTask always reaches the parent
        EXPECT_CALL(parent, worked(1u));  // at 1.2 units
        EXPECT_CALL(parent, worked(0u));  // an explicit worked(0)
    }
    SubIntermediateResult sub(parent, 40);
    sub.beginTask("Writing", 100);
    sub.worked(1);
    sub.worked(1);
    sub.worked(1);
    sub.worked(0);
}

TEST(SubIntermediateResult, StepsAreComputedFromTheSumNotEachStep) {
    IntermediateResult parent;
    parent.beginTask("all", 1000);
    SubIntermediateResult sub(parent, 40);
    sub.beginTask("three", 3);
    sub.worked(1);
    sub.worked(1);
    sub.worked(1);
    EXPECT_EQ(40u, parent.getWorkCompleted());
    sub.done();
    EXPECT_EQ(40u, parent.getWorkCompleted()) << "done adds nothing when all was reported";
    EXPECT_EQ(0u, sub.getWorkCompleted()) << "no ratio after done";
}

TEST(SubIntermediateResult, OverrunIsCutAndDoneGivesTheRest) {
    IntermediateResult parent;
    parent.beginTask("all", 1000);
    SubIntermediateResult sub(parent, 40);
    sub.beginTask("x", 100);
    sub.worked(100);
    sub.worked(100);
    EXPECT_EQ(40u, parent.getWorkCompleted());
    EXPECT_EQ(100u, sub.getWorkCompleted());

    SubIntermediateResult partial(parent, 30);
    partial.beginTask("y", 7);
    partial.worked(2);
    EXPECT_EQ(40u + 8u, parent.getWorkCompleted());
    partial.done();
    EXPECT_EQ(70u, parent.getWorkCompleted());
}

TEST(SubIntermediateResult, ZeroTotalAcceptsOnlyZeroWork) {
    MockParent parent;
    EXPECT_CALL(parent, setDescription(_)).Times(0);
    EXPECT_CALL(parent, worked(5u));
    SubIntermediateResult sub(parent, 5);
    sub.beginTask("ignored", 0);
    sub.worked(0);
    try {
        sub.worked(1);
        FAIL() << "work without a total must fail";
    } catch (const CoreException& e) {
        EXPECT_STREQ("Invalid state in SubIntermediateResult::worked", e.what());
        EXPECT_EQ(ERR_OPERATION_FAILED, e.getStatus()->getErrorCode());
        EXPECT_EQ("core", e.getStatus()->getComponent());
    }
    sub.done();  // the whole share goes to the parent
}

TEST(SubIntermediateResult, CancelAndDescriptionReachTheOutermostCounter) {
    IntermediateResult root;
    SubIntermediateResult mid(root, 50);
    SubIntermediateResult leaf(mid, 10);
    leaf.setCancel(true);
    EXPECT_TRUE(root.isCanceled());
    EXPECT_TRUE(mid.isCanceled());
    leaf.setDescription("deep");
    EXPECT_EQ("deep", root.getDescription());
    EXPECT_EQ("deep", mid.getDescription());
}

TEST(SubIntermediateResult, NestedSharesAddUp) {
    IntermediateResult root;
    root.beginTask("root", 100);
    SubIntermediateResult mid(root, 50);
    mid.beginTask("mid", 10);
    SubIntermediateResult leaf(mid, 10);
    leaf.beginTask("leaf", 1000);
    for (int i = 0; i < 1000; ++i) leaf.worked(1);
    leaf.done();
    mid.done();
    EXPECT_EQ(50u, root.getWorkCompleted());
}
