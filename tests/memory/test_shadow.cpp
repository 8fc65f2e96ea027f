// The shadow page cache: fetching on demand, write-back, and failed commits.

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"
#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/shadowmemoryaccessor.h"
#include "sim/recordingmemory.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

typedef RecordingMemory RM;
typedef boost::shared_ptr<MemoryError> ErrorPtr;

const uint64_t BASE = 0x2000;
const unsigned int PAGE = 0x100;

struct ShadowTest : testing::Test {
    boost::shared_ptr<RM> target = boost::make_shared<RM>(BASE, 0x800);
    ShadowMemoryAccessor shadow{target, PAGE, 0x800, BASE};

    ShadowTest() {
        for (size_t i = 0; i < target->getSize(); ++i) {
            target->contents()[i] = static_cast<unsigned char>(i / PAGE + 1);  // page number + 1
        }
    }
    std::vector<unsigned char> readAll(ErrorPtr e = ErrorPtr()) {
        std::vector<unsigned char> all(0x800);
        shadow.read(BASE, 0x800, all.begin(), e, nullptr);
        return all;
    }
};

}  // namespace

TEST(ShadowMemoryAccessorSetup, SizeMustBeWholePages) {
    auto target = boost::make_shared<RM>(0, 0x1000);
    try {
        ShadowMemoryAccessor bad(target, 0x300, 0x1000, 0);
        FAIL() << "no exception";
    } catch (const CoreException& ex) {
        EXPECT_EQ(ERR_INVALID_ARGUMENT, ex.getStatus()->getErrorCode());
        EXPECT_EQ("ShadowMemoryAccessor: memory size must be divisible by page size",
                  ex.getStatus()->getMessage());
    }
    EXPECT_THROW(ShadowMemoryAccessor(target, 0, 0x1000, 0), CoreException);
}

TEST_F(ShadowTest, ReadsFetchEachPageOnce) {
    std::vector<unsigned char> buf(0x200);
    shadow.read(BASE + 0xF0, 0x20, buf.begin(), ErrorPtr(), nullptr);
    ASSERT_EQ(2u, target->calls().size());
    EXPECT_EQ(BASE, target->calls()[0].address);
    EXPECT_EQ(PAGE, target->calls()[0].size);
    EXPECT_EQ(1, buf[0xF]);
    EXPECT_EQ(2, buf[0x10]);
    shadow.read(BASE + 0x10, 0x1F0, buf.begin(), ErrorPtr(), nullptr);
    EXPECT_EQ(2u, target->calls().size());

    // Populated pages are served without the target.
    const std::vector<unsigned char> known(PAGE, 0x77);
    shadow.populate(BASE + 0x300, PAGE, known.cbegin());
    shadow.read(BASE + 0x380, 4, buf.begin(), ErrorPtr(), nullptr);
    EXPECT_EQ(0x77, buf[0]);
    EXPECT_EQ(2u, target->calls().size());
    EXPECT_FALSE(shadow.isPageDirty(3));

    // A later erase of the target does not reach the image.
    target->setFlashMode(true);
    shadow.erase(BASE, 0x800);
    shadow.read(BASE, 4, buf.begin(), ErrorPtr(), nullptr);
    EXPECT_EQ(1, buf[0]);
    EXPECT_EQ(0xFF, target->byteAt(BASE));
}

TEST_F(ShadowTest, FailedFetchMarksThePageAndStops) {
    target->failAt(BASE + 0x150, RM::KIND_READ, RM::FAIL_MARK);
    std::vector<unsigned char> buf(0x300, 0xEE);
    ErrorPtr e(new MemoryError());
    shadow.read(BASE, 0x300, buf.begin(), e, nullptr);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(BASE + 0x100, e->getRecords()[0].address);
    EXPECT_EQ(PAGE, e->getRecords()[0].size);
    EXPECT_EQ(MEM_UNKNOWN, e->getRecords()[0].status);
    EXPECT_EQ(2u, target->calls().size());  // page 2 never asked for
    EXPECT_EQ(0xEE, buf[0]);                // output untouched
    EXPECT_TRUE(shadow.isPagePopulated(0));
    EXPECT_FALSE(shadow.isPagePopulated(1));

    target->clearFailures();
    e.reset(new MemoryError());
    shadow.read(BASE, 0x300, buf.begin(), e, nullptr);
    EXPECT_TRUE(e->isOk());
    EXPECT_EQ(2, buf[0x150]);
}

TEST_F(ShadowTest, AWriteWhoseFetchThrowsLeavesNothingToCommit) {
    target->failAt(BASE + 0x150, RM::KIND_READ);
    const std::vector<unsigned char> one{0xAB};
    EXPECT_THROW(shadow.write(BASE + 0x180, 1, one.cbegin(), ErrorPtr(), nullptr, false),
                 CoreException);
    EXPECT_FALSE(shadow.hasDirtyPages());

    target->clearFailures();
    target->clearCalls();
    ErrorPtr e(new MemoryError());
    shadow.commitChanges(nullptr, e);
    EXPECT_EQ(0u, target->countCalls(RM::KIND_WRITE));  // the target page keeps its bytes
    EXPECT_TRUE(e->isOk());
}

TEST_F(ShadowTest, WritesStayInTheImageUntilCommitted) {
    const std::vector<unsigned char> one{0xAB};
    shadow.write(BASE + 0x180, 1, one.cbegin(), ErrorPtr(), nullptr, false);
    ASSERT_EQ(1u, target->calls().size());  // the page is fetched once
    EXPECT_EQ(RM::KIND_READ, target->calls()[0].kind);
    EXPECT_EQ(2, target->byteAt(BASE + 0x180));
    std::vector<unsigned char> buf(3);
    shadow.read(BASE + 0x17F, 3, buf.begin(), ErrorPtr(), nullptr);
    EXPECT_EQ((std::vector<unsigned char>{2, 0xAB, 2}), buf);

    const std::vector<unsigned char> page(PAGE, 0x55);
    shadow.write(BASE + 0x400, PAGE, page.cbegin(), ErrorPtr(), nullptr, true);
    EXPECT_EQ(1u, target->calls().size());  // a whole page needs no fetch
    EXPECT_TRUE(shadow.isPageDirty(1));
    EXPECT_TRUE(shadow.isPageDirty(4));
    EXPECT_FALSE(shadow.isPageDirty(2));

    IntermediateResult progress;
    progress.beginTask("all", 100);
    ErrorPtr e(new MemoryError());
    target->clearCalls();
    shadow.commitChanges(&progress, e);
    EXPECT_TRUE(e->isOk());
    ASSERT_EQ(2u, target->calls().size());
    EXPECT_EQ(BASE + 0x100, target->calls()[0].address);
    EXPECT_EQ(PAGE, target->calls()[0].size);  // whole page for a one-byte change
    EXPECT_EQ(BASE + 0x400, target->calls()[1].address);
    // The flag of the last write applies to every page of the commit.
    EXPECT_TRUE(target->calls()[0].erased);
    EXPECT_TRUE(target->calls()[1].erased);
    EXPECT_TRUE(target->calls()[0].hadProgress);
    EXPECT_EQ(0xAB, target->byteAt(BASE + 0x180));
    EXPECT_EQ(2, target->byteAt(BASE + 0x181));
    EXPECT_EQ(0x55, target->byteAt(BASE + 0x4FF));
    EXPECT_FALSE(shadow.hasDirtyPages());
    EXPECT_EQ(40u, progress.getWorkCompleted());

    // Nothing dirty: nothing written, the share is still handed over.
    target->clearCalls();
    IntermediateResult again;
    again.beginTask("again", 100);
    shadow.commitChanges(&again, e);
    EXPECT_TRUE(target->calls().empty());
    EXPECT_EQ(40u, again.getWorkCompleted());
    shadow.commitChanges(nullptr, e);  // a missing counter does not stop a commit
}

TEST_F(ShadowTest, FailedPageStaysDirtyWhileTheOthersAreCommitted) {
    std::vector<unsigned char> data(0x300, 0xC3);
    shadow.write(BASE + 0x200, 0x300, data.cbegin(), ErrorPtr(), nullptr, false);
    target->failAt(BASE + 0x3FF, RM::KIND_WRITE);

    IntermediateResult progress;
    ErrorPtr e(new MemoryError());
    shadow.commitChanges(&progress, e);

    EXPECT_FALSE(shadow.isPageDirty(2));
    EXPECT_TRUE(shadow.isPageDirty(3));
    EXPECT_FALSE(shadow.isPageDirty(4));
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(BASE + 0x300, e->getRecords()[0].address);
    EXPECT_EQ(PAGE, e->getRecords()[0].size);
    EXPECT_EQ(MEM_WRITE_FAILED, e->getRecords()[0].status);
    EXPECT_EQ(0xC3, target->byteAt(BASE + 0x2FF));
    EXPECT_EQ(0xC3, target->byteAt(BASE + 0x400));
    EXPECT_EQ(4, target->byteAt(BASE + 0x300));

    // The image now shows what the target really holds on the failed page.
    std::vector<unsigned char> all = readAll();
    EXPECT_EQ(4, all[0x300]);
    EXPECT_EQ(0xC3, all[0x200]);

    // Once the target accepts it, the page can be written and committed.
    target->clearFailures();
    shadow.write(BASE + 0x300, 0x300 - 0x200, data.cbegin(), ErrorPtr(), nullptr, false);
    e.reset(new MemoryError());
    shadow.commitChanges(&progress, e);
    EXPECT_TRUE(e->isOk());
    EXPECT_FALSE(shadow.hasDirtyPages());
    EXPECT_EQ(0xC3, target->byteAt(BASE + 0x3FF));
}

TEST_F(ShadowTest, OnlyCoreExceptionsAreSurvivedByACommit) {
    std::vector<unsigned char> data(0x200, 0x11);
    shadow.write(BASE, 0x200, data.cbegin(), ErrorPtr(), nullptr, false);
    target->failWhen([](const RM::Call& c) -> bool {
        if (c.kind == RM::KIND_WRITE) {
            throw std::runtime_error("link lost");
        }
        return false;
    });
    IntermediateResult progress;
    EXPECT_THROW(shadow.commitChanges(&progress, ErrorPtr()), std::runtime_error);
    EXPECT_TRUE(shadow.isPageDirty(0));
    EXPECT_TRUE(shadow.isPageDirty(1));
}

TEST_F(ShadowTest, RequestsOutsideTheRegionAreRefused) {
    std::vector<unsigned char> buf(0x10);
    EXPECT_THROW(shadow.read(BASE - 1, 2, buf.begin(), ErrorPtr(), nullptr), CoreException);
    EXPECT_THROW(shadow.write(BASE + 0x7F8, 0x10, buf.cbegin(), ErrorPtr(), nullptr, false),
                 CoreException);
    EXPECT_THROW(shadow.populate(BASE + 0x800, 1, buf.cbegin()), CoreException);
    EXPECT_TRUE(target->calls().empty());
    EXPECT_FALSE(shadow.hasDirtyPages());
}
