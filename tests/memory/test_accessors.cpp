// Plain, page, word and routing decorators over the recording target.

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"
#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/shadowmemoryaccessor.h"
#include "sim/recordingmemory.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <numeric>

namespace {

typedef RecordingMemory RM;
typedef boost::shared_ptr<MemoryError> ErrorPtr;

boost::shared_ptr<RM> counting(uint64_t base, size_t size) {
    auto mem = boost::make_shared<RM>(base, size);
    std::iota(mem->contents().begin(), mem->contents().end(), 0);  // byte i = i mod 256
    return mem;
}

ErrorPtr newError() { return boost::make_shared<MemoryError>(); }

void expectCall(const RM::Call& c, RM::Kind kind, uint64_t address, uint64_t size) {
    EXPECT_EQ(kind, c.kind);
    EXPECT_EQ(address, c.address) << std::hex << "0x" << c.address;
    EXPECT_EQ(size, c.size);
}

// Status of every byte of [address, address + size) as the record tells it.
std::vector<int> statuses(MemoryError& e, uint64_t address, unsigned int size) {
    std::vector<int> out;
    for (unsigned int i = 0; i < size; ++i) {
        out.push_back(e.getStatus(address + i, nullptr));
    }
    return out;
}

}  // namespace

TEST(BoundedMemoryAccessor, CutsRequestsToTheWindowAndMarksTheRest) {
    auto mem = counting(0x100, 0x100);
    BoundedMemoryAccessor bounded(mem, 0x100, 0x100, 0x800000);

    std::vector<unsigned char> buf(0x20, 0xEE);
    ErrorPtr e = newError();
    bounded.read(0xF0, 0x20, buf.begin(), e, nullptr);
    ASSERT_EQ(1u, mem->calls().size());
    expectCall(mem->calls()[0], RM::KIND_READ, 0x100, 0x10);
    EXPECT_EQ(0xEE, buf[0xF]);  // out of window: left as it was
    EXPECT_EQ(0x00, buf[0x10]);
    EXPECT_EQ(0x0F, buf[0x1F]);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0xF0u, e->getRecords()[0].address);
    EXPECT_EQ(0x10u, e->getRecords()[0].size);
    EXPECT_EQ(MEM_UNKNOWN, e->getRecords()[0].status);

    mem->clearCalls();
    e = newError();
    bounded.read(0x1F0, 0x20, buf.begin(), e, nullptr);
    expectCall(mem->calls().at(0), RM::KIND_READ, 0x1F0, 0x10);
    EXPECT_EQ(0xF0, buf[0]);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0x200u, e->getRecords()[0].address);
    EXPECT_EQ(0x10u, e->getRecords()[0].size);

    // Wholly below, wholly above, and both sides at once.
    mem->clearCalls();
    e = newError();
    bounded.read(0x10, 0x20, buf.begin(), e, nullptr);
    bounded.write(0x300, 0x20, buf.cbegin(), e, nullptr, false);
    EXPECT_TRUE(mem->calls().empty());
    EXPECT_FALSE(e->allLocationsAreValid(0x10, 1));
    EXPECT_FALSE(e->allLocationsAreValid(0x31F, 1));
    EXPECT_TRUE(e->allLocationsAreValid(0x30, 0x2D0));

    std::vector<unsigned char> big(0x300);
    e = newError();
    bounded.read(0x80, 0x300, big.begin(), e, nullptr);
    expectCall(mem->calls().at(0), RM::KIND_READ, 0x100, 0x100);
    EXPECT_EQ(0xFF, big[0x17F]);
    EXPECT_EQ(std::vector<int>(0x80, MEM_UNKNOWN), statuses(*e, 0x80, 0x80));
    EXPECT_EQ(std::vector<int>(0x100, MEM_VALID), statuses(*e, 0x100, 0x100));
    EXPECT_EQ(std::vector<int>(0x180, MEM_UNKNOWN), statuses(*e, 0x200, 0x180));

    // Alias addresses reach the window; marks are made at the masked address.
    mem->clearCalls();
    e = newError();
    bounded.read(0x8000F8, 0x10, buf.begin(), e, nullptr);
    expectCall(mem->calls().at(0), RM::KIND_READ, 0x100, 0x8);
    EXPECT_EQ(MEM_UNKNOWN, e->getStatus(0xF8, nullptr));
    bounded.erase(0x800180, 0x40);
    expectCall(mem->calls().at(1), RM::KIND_ERASE, 0x180, 0x40);

    // Without an error record nothing is marked, and nothing breaks.
    bounded.read(0x0, 0x20, buf.begin(), ErrorPtr(), nullptr);
}

TEST(BoundedMemoryAccessor, ReadsDropProgressWritesKeepIt) {
    auto mem = counting(0, 0x100);
    BoundedMemoryAccessor bounded(mem, 0, 0x100, 0);
    IntermediateResult progress;
    std::vector<unsigned char> buf(4);
    bounded.read(0, 4, buf.begin(), newError(), &progress);
    bounded.write(0, 4, buf.cbegin(), newError(), &progress, true);
    bounded.read(0, 0, buf.begin(), newError(), &progress);
    ASSERT_EQ(2u, mem->calls().size());
    EXPECT_FALSE(mem->calls()[0].hadProgress);
    EXPECT_TRUE(mem->calls()[1].hadProgress);
    EXPECT_TRUE(mem->calls()[1].erased);

    EXPECT_THROW(BoundedMemoryAccessor(mem, 0, 0, 0), CoreException);
    EXPECT_THROW(BoundedMemoryAccessor(boost::shared_ptr<IMemoryAccessor>(), 0, 1, 0), CoreException);
}

TEST(PlainAccessors, OffsetChunkAndByteWriteShapeTheCalls) {
    auto mem = counting(0x1000, 0x200);
    auto offsetting = boost::make_shared<OffsettingMemoryAccessor>(mem, 0x1000);
    ChunkedMemoryAccessor chunked(offsetting, 0x40);

    std::vector<unsigned char> buf(0x90);
    chunked.read(0x8, 0x90, buf.begin(), newError(), nullptr);
    ASSERT_EQ(3u, mem->calls().size());
    expectCall(mem->calls()[0], RM::KIND_READ, 0x1008, 0x40);
    expectCall(mem->calls()[1], RM::KIND_READ, 0x1048, 0x40);
    expectCall(mem->calls()[2], RM::KIND_READ, 0x1088, 0x10);
    for (size_t i = 0; i < buf.size(); ++i) {
        ASSERT_EQ(static_cast<unsigned char>(0x8 + i), buf[i]) << i;
    }

    // Marks from below stay in the lower layer's addresses.
    mem->failAt(0x1010, RM::KIND_READ, RM::FAIL_MARK);
    ErrorPtr e = newError();
    offsetting->read(0x0, 0x20, buf.begin(), e, nullptr);
    EXPECT_EQ(MEM_READ_FAILED, e->getStatus(0x1010, nullptr));
    EXPECT_EQ(MEM_VALID, e->getStatus(0x10, nullptr));

    mem->clearCalls();
    ByteWriteMemoryAccessor bytewise(offsetting);
    const std::vector<unsigned char> data{1, 2, 3};
    bytewise.write(0x20, 3, data.cbegin(), newError(), nullptr, true);
    bytewise.write(0x20, 0, data.cbegin(), newError(), nullptr, true);
    ASSERT_EQ(3u, mem->calls().size());
    for (unsigned i = 0; i < 3; ++i) {
        expectCall(mem->calls()[i], RM::KIND_WRITE, 0x1020 + i, 1);
        EXPECT_TRUE(mem->calls()[i].erased);
    }
    EXPECT_EQ(data, mem->bytesAt(0x1020, 3));

    EXPECT_THROW(ChunkedMemoryAccessor(mem, 0), CoreException);
}

TEST(ReadOnlyMemoryAccessor, RefusesWritesButLetsErasesThrough) {
    auto mem = counting(0, 0x100);
    ReadOnlyMemoryAccessor ro(mem);
    const std::vector<unsigned char> data(0x10, 0xAA);
    ErrorPtr e = newError();
    ro.write(0x20, 0x10, data.cbegin(), e, nullptr, false);
    ro.write(0x40, 0x10, data.cbegin(), ErrorPtr(), nullptr, false);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0x20u, e->getRecords()[0].address);
    EXPECT_EQ(0x10u, e->getRecords()[0].size);
    EXPECT_EQ(MEM_WRITE_FAILED, e->getRecords()[0].status);
    EXPECT_TRUE(mem->calls().empty());
    EXPECT_EQ(0x20, mem->byteAt(0x20));

    ro.erase(0x0, 0x100);
    std::vector<unsigned char> buf(2);
    ro.read(0x30, 2, buf.begin(), e, nullptr);
    EXPECT_EQ(2u, mem->calls().size());
    EXPECT_EQ(0x30, buf[0]);
}

TEST(PagedMemoryAccessor, ReadsWholePagesAndKeepsPartialOnesApart) {
    auto mem = counting(0, 0x400);
    PagedMemoryAccessor paged(mem, 0x100, false, false);
    std::vector<unsigned char> buf(0x210, 0xEE);
    paged.read(0xF8, 0x208, buf.begin(), newError(), nullptr);
    ASSERT_EQ(3u, mem->calls().size());
    expectCall(mem->calls()[0], RM::KIND_READ, 0x000, 0x100);
    expectCall(mem->calls()[1], RM::KIND_READ, 0x100, 0x100);
    expectCall(mem->calls()[2], RM::KIND_READ, 0x200, 0x100);
    for (size_t i = 0; i < 0x208; ++i) {
        ASSERT_EQ(static_cast<unsigned char>(0xF8 + i), buf[i]) << i;
    }
    EXPECT_EQ(0xEE, buf[0x208]);  // nothing behind the request
    for (const RM::Call& c : mem->calls()) {
        EXPECT_FALSE(c.hadProgress);
    }

    mem->clearCalls();
    paged.read(0x110, 0x10, buf.begin(), newError(), nullptr);  // inside one page
    ASSERT_EQ(1u, mem->calls().size());
    EXPECT_EQ(0x10, buf[0]);
}

TEST(PagedMemoryAccessor, ServesPagesThatEndAtTheTopOfTheAddressSpace) {
    // The request's end address is 0 here; every page must still be moved.
    const uint64_t base = 0xFFFFFFFFFFFFFD00ULL;
    auto mem = counting(base, 0x300);
    PagedMemoryAccessor paged(mem, 0x100, false, false);
    std::vector<unsigned char> buf(0x108, 0xEE);
    paged.read(0xFFFFFFFFFFFFFEF8ULL, 0x108, buf.begin(), newError(), nullptr);
    ASSERT_EQ(2u, mem->calls().size());
    for (size_t i = 0; i < buf.size(); ++i) {
        ASSERT_EQ(static_cast<unsigned char>(0xF8 + i), buf[i]) << i;
    }

    const std::vector<unsigned char> data(0x108, 0xAA);
    paged.write(0xFFFFFFFFFFFFFEF8ULL, 0x108, data.cbegin(), newError(), nullptr, false);
    EXPECT_EQ(0xF7, mem->byteAt(0xFFFFFFFFFFFFFEF7ULL));
    EXPECT_EQ(0xAA, mem->byteAt(0xFFFFFFFFFFFFFEF8ULL));
    EXPECT_EQ(0xAA, mem->byteAt(0xFFFFFFFFFFFFFFFFULL));
}

TEST(PagedMemoryAccessor, WriteDoesReadModifyWriteAtBothEnds) {
    auto mem = counting(0, 0x400);
    PagedMemoryAccessor paged(mem, 0x100, false, false);
    IntermediateResult progress;
    progress.beginTask("w", 1000);
    const std::vector<unsigned char> data(0x10, 0xAA);
    paged.write(0x1F8, 0x10, data.cbegin(), newError(), &progress, false);

    ASSERT_EQ(4u, mem->calls().size());
    expectCall(mem->calls()[0], RM::KIND_READ, 0x100, 0x100);
    EXPECT_FALSE(mem->calls()[0].hadError);  // a failed head read must leave no mark
    expectCall(mem->calls()[1], RM::KIND_WRITE, 0x100, 0x100);
    expectCall(mem->calls()[2], RM::KIND_READ, 0x200, 0x100);
    EXPECT_TRUE(mem->calls()[2].hadError);
    expectCall(mem->calls()[3], RM::KIND_WRITE, 0x200, 0x100);
    EXPECT_EQ(0xF7, mem->byteAt(0x1F7));
    EXPECT_EQ(0xAA, mem->byteAt(0x1F8));
    EXPECT_EQ(0xAA, mem->byteAt(0x207));
    EXPECT_EQ(0x08, mem->byteAt(0x208));
    EXPECT_EQ(0x08u + 0x8u, progress.getWorkCompleted());  // head counts to its page end

    mem->clearCalls();
    const std::vector<unsigned char> two(0x200, 0x55);
    paged.write(0x200, 0x200, two.cbegin(), newError(), nullptr, false);
    EXPECT_EQ(0u, mem->countCalls(RM::KIND_READ));
    EXPECT_EQ(2u, mem->countCalls(RM::KIND_WRITE));
}

TEST(PagedMemoryAccessor, EraseFlagsCombine) {
    struct Case {
        bool erasePages, ignoreErased, erased;
        size_t erases;
        bool passed;
    };
    const Case cases[] = {
        {true, false, false, 2, true},   // erase each page, then tell below it is erased
        {true, false, true, 0, true},    // caller says it is erased already
        {true, true, true, 2, true},     // ... but the flag is not trusted
        {false, true, true, 0, false},   // untrusted flag does not reach below
        {false, false, true, 0, true},
        {false, false, false, 0, false},
    };
    const std::vector<unsigned char> data(0x10, 0xAA);
    for (const Case& c : cases) {
        auto mem = boost::make_shared<RM>(0, 0x400, 0xFF);
        mem->setFlashMode(true);
        PagedMemoryAccessor paged(mem, 0x100, c.erasePages, c.ignoreErased);
        paged.write(0x1F8, 0x10, data.cbegin(), newError(), nullptr, c.erased);
        SCOPED_TRACE(testing::Message() << c.erasePages << c.ignoreErased << c.erased);
        EXPECT_EQ(c.erases, mem->countCalls(RM::KIND_ERASE));
        for (const RM::Call& call : mem->calls()) {
            if (call.kind == RM::KIND_WRITE) {
                EXPECT_EQ(c.passed, call.erased);
            }
        }
        if (c.erases) {
            // Each erase is of the page that is written right after it.
            expectCall(mem->calls()[1], RM::KIND_ERASE, 0x100, 0x100);
            expectCall(mem->calls()[2], RM::KIND_WRITE, 0x100, 0x100);
        }
    }
}

TEST(RevertEndiannessWordAlignedMemoryAccessor, SwapsBytesWithinWords) {
    auto mem = boost::make_shared<RM>(0, 0x20);
    mem->setBytes(0, {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08});
    RevertEndiannessWordAlignedMemoryAccessor swapped(mem, 4);

    std::vector<unsigned char> buf(8);
    swapped.read(1, 1, buf.begin(), newError(), nullptr);
    EXPECT_EQ(0x03, buf[0]);
    expectCall(mem->calls()[0], RM::KIND_READ, 0, 4);
    swapped.read(2, 5, buf.begin(), newError(), nullptr);
    EXPECT_EQ((std::vector<unsigned char>{0x02, 0x01, 0x08, 0x07, 0x06}),
              std::vector<unsigned char>(buf.begin(), buf.begin() + 5));

    mem->clearCalls();
    const std::vector<unsigned char> one{0xAB};
    swapped.write(1, 1, one.cbegin(), newError(), nullptr, false);
    ASSERT_EQ(2u, mem->calls().size());
    expectCall(mem->calls()[0], RM::KIND_READ, 0, 4);
    expectCall(mem->calls()[1], RM::KIND_WRITE, 0, 4);
    EXPECT_EQ((std::vector<unsigned char>{0x01, 0x02, 0xAB, 0x04}), mem->bytesAt(0, 4));

    // Across words, unaligned at both ends: what goes in comes out, and only
    // the words touched are rewritten.
    mem->clearCalls();
    const std::vector<unsigned char> six{0x11, 0x12, 0x13, 0x14, 0x15, 0x16};
    swapped.write(3, 6, six.cbegin(), newError(), nullptr, false);
    EXPECT_EQ(2u, mem->countCalls(RM::KIND_READ));
    expectCall(mem->calls().back(), RM::KIND_WRITE, 0, 12);
    std::vector<unsigned char> back(12);
    swapped.read(0, 12, back.begin(), newError(), nullptr);
    EXPECT_EQ((std::vector<unsigned char>{0x04, 0xAB, 0x02, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16,
                                          0x00, 0x00, 0x00}),
              back);
}

TEST(CompositeMemoryAccessor, FirstAddressChoosesTheAccessor) {
    auto ranged = counting(0, 0x200);
    auto fallback = counting(0, 0x400);
    CompositeMemoryAccessor composite(ranged, fallback, CompositeMemoryAccessor::AddressRange{0x100, 0x200},
                                      -0x100);
    std::vector<unsigned char> buf(0x10);
    composite.read(0x110, 0x10, buf.begin(), newError(), nullptr);
    expectCall(ranged->calls().at(0), RM::KIND_READ, 0x10, 0x10);
    composite.read(0xF8, 0x10, buf.begin(), newError(), nullptr);
    expectCall(fallback->calls().at(0), RM::KIND_READ, 0xF8, 0x10);

    try {
        composite.read(0x1F8, 0x10, buf.begin(), newError(), nullptr);
        FAIL() << "no exception";
    } catch (const CoreException& ex) {
        EXPECT_EQ(ERR_ADDRESS_RANGE, ex.getStatus()->getErrorCode());
        EXPECT_EQ("The last address 0x208,  is beyond the range of this memory accessor [0x100, 0x200]",
                  ex.getStatus()->getMessage());
    }
    try {
        composite.write(0x1F8, 0x10, buf.cbegin(), newError(), nullptr, false);
        FAIL() << "no exception";
    } catch (const CoreException& ex) {
        EXPECT_EQ("The last address 0x208, exceeds is beyond the range of this memory accessor "
                  "[0x100, 0x200]",
                  ex.getStatus()->getMessage());
    }
    composite.erase(0x1F8, 0x100);  // no check of the end
    expectCall(ranged->calls().back(), RM::KIND_ERASE, 0xF8, 0x100);
    EXPECT_EQ(1u, ranged->countCalls(RM::KIND_READ));
}

TEST(AggregatingMemoryAccessor, NewRangesWinOverOldOnes) {
    typedef AggregatingMemoryAccessor::AddressRange R;
    auto a = counting(0, 0x100);
    auto b = counting(0, 0x100);
    auto c = counting(0, 0x100);
    AggregatingMemoryAccessor agg({{R{0x00, 0x30}, a}});
    agg.addRange({R{0x10, 0x20}, b});
    std::vector<AggregatingMemoryAccessor::Entry> map = agg.getMap();
    ASSERT_EQ(3u, map.size());
    EXPECT_EQ(0x00u, map[0].first.start);
    EXPECT_EQ(0x10u, map[0].first.end);
    EXPECT_EQ(a, map[0].second);
    EXPECT_EQ(0x10u, map[1].first.start);
    EXPECT_EQ(b, map[1].second);
    EXPECT_EQ(0x20u, map[2].first.start);
    EXPECT_EQ(0x30u, map[2].first.end);
    EXPECT_EQ(a, map[2].second);

    // Trims at both ends and removal of a covered entry in one go.
    agg.addRange({R{0x08, 0x28}, c});
    map = agg.getMap();
    ASSERT_EQ(3u, map.size());
    EXPECT_EQ(0x08u, map[0].first.end);
    EXPECT_EQ(c, map[1].second);
    EXPECT_EQ(0x08u, map[1].first.start);
    EXPECT_EQ(0x28u, map[1].first.end);
    EXPECT_EQ(0x28u, map[2].first.start);

    agg.addRange({R{0x08, 0x28}, b});
    map = agg.getMap();
    ASSERT_EQ(3u, map.size());
    EXPECT_EQ(b, map[1].second);
}

TEST(AggregatingMemoryAccessor, SplitsRequestsAndMarksWhatNoRangeServes) {
    typedef AggregatingMemoryAccessor::AddressRange R;
    auto low = counting(0, 0x100);
    auto high = counting(0, 0x100);
    AggregatingMemoryAccessor agg({{R{0x20, 0x30}, high}, {R{0x00, 0x10}, low}});

    std::vector<unsigned char> buf(0x40, 0xEE);
    ErrorPtr e = newError();
    agg.read(0, 0x40, buf.begin(), e, nullptr);
    expectCall(low->calls().at(0), RM::KIND_READ, 0x00, 0x10);
    expectCall(high->calls().at(0), RM::KIND_READ, 0x20, 0x10);
    EXPECT_EQ(0x0F, buf[0x0F]);
    EXPECT_EQ(0xEE, buf[0x10]);
    EXPECT_EQ(0x20, buf[0x20]);
    std::vector<int> expected(0x40, MEM_VALID);
    std::fill(expected.begin() + 0x10, expected.begin() + 0x20, MEM_UNKNOWN);
    std::fill(expected.begin() + 0x30, expected.end(), MEM_UNKNOWN);
    EXPECT_EQ(expected, statuses(*e, 0, 0x40));

    // A throwing range is marked; the next one is still served.
    low->failAt(0x4, RM::KIND_READ);
    std::fill(buf.begin(), buf.end(), 0xEE);
    e = newError();
    agg.read(0, 0x40, buf.begin(), e, nullptr);
    std::fill(expected.begin(), expected.begin() + 0x10, MEM_UNKNOWN);
    EXPECT_EQ(expected, statuses(*e, 0, 0x40));
    EXPECT_EQ(0x2F, buf[0x2F]);

    // Erase and populate carry no error record: failures vanish silently.
    agg.erase(0, 0x40);
    EXPECT_EQ(1u, high->countCalls(RM::KIND_ERASE));

    // populate reaches shadows only.
    auto target = counting(0x100, 0x100);
    auto shadow = boost::make_shared<ShadowMemoryAccessor>(target, 0x10, 0x100, 0x100);
    agg.addRange({R{0x100, 0x200}, shadow});
    const std::vector<unsigned char> data(0x120, 0x5A);
    agg.populate(0x0, 0x120, data.cbegin());
    EXPECT_EQ(0u, low->countCalls(RM::KIND_WRITE));
    agg.read(0x100, 0x20, buf.begin(), newError(), nullptr);
    EXPECT_EQ(0x5A, buf[0x1F]);
    EXPECT_TRUE(target->calls().empty());
}

TEST(SwitchingAccessors, DualAndDynamicDisable) {
    auto reads = counting(0, 0x100);
    auto writes = counting(0, 0x100);
    DualMemoryAccessor dual(reads, writes);
    std::vector<unsigned char> buf(4, 0x77);
    dual.read(0, 4, buf.begin(), newError(), nullptr);
    dual.write(0, 4, buf.cbegin(), newError(), nullptr, false);
    dual.erase(0, 4);
    EXPECT_EQ(1u, reads->calls().size());
    EXPECT_EQ(2u, writes->calls().size());

    unsigned int flags = 0x4;
    auto mem = counting(0, 0x100);
    DynamicDisableMemoryAccessor sw(mem, &flags, 0x4);
    ErrorPtr e = newError();
    sw.read(0x10, 4, buf.begin(), e, nullptr);
    EXPECT_TRUE(e->isOk());
    EXPECT_EQ(0x10, buf[0]);
    flags = 0x3;
    std::fill(buf.begin(), buf.end(), 0x77);
    sw.read(0x10, 4, buf.begin(), e, nullptr);
    sw.write(0x20, 4, buf.cbegin(), e, nullptr, false);
    sw.erase(0, 0x100);
    EXPECT_EQ(0x77, buf[0]);
    EXPECT_EQ(MEM_READ_FAILED, e->getStatus(0x13, nullptr));
    EXPECT_EQ(MEM_WRITE_FAILED, e->getStatus(0x20, nullptr));
    EXPECT_EQ(1u, mem->calls().size());
}

TEST(CatchAndDegradeMemoryAccessor, MarksOnlyTheFailingWords) {
    auto mem = counting(0, 0x100);
    mem->failAt(0x10, RM::KIND_READ | RM::KIND_WRITE);
    CatchAndDegradeMemoryAccessor degrade(mem);

    std::vector<unsigned char> buf(0x20, 0xEE);
    ErrorPtr e = newError();
    degrade.read(0, 0x20, buf.begin(), e, nullptr);
    std::vector<int> expected(0x20, MEM_VALID);
    std::fill(expected.begin() + 0x10, expected.begin() + 0x14, MEM_READ_FAILED);
    EXPECT_EQ(expected, statuses(*e, 0, 0x20));
    for (unsigned i = 0; i < 0x20; ++i) {
        ASSERT_EQ(i >= 0x10 && i < 0x14 ? 0xEE : i, buf[i]) << i;
    }

    const std::vector<unsigned char> data(0x20, 0xA5);
    e = newError();
    degrade.write(0, 0x20, data.cbegin(), e, nullptr, true);
    EXPECT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(MEM_WRITE_FAILED, e->getStatus(0x13, nullptr));
    EXPECT_EQ(0xA5, mem->byteAt(0x0F));
    EXPECT_EQ(0x10, mem->byteAt(0x10));
    EXPECT_EQ(0xA5, mem->byteAt(0x14));
    EXPECT_FALSE(mem->calls().back().erased);  // word retries never trust the flag

    // A degraded write that is not word aligned cannot be retried.
    EXPECT_THROW(degrade.write(0xC, 6, data.cbegin(), e, nullptr, false), const char*);
    try {
        degrade.write(2, 0x10, data.cbegin(), e, nullptr, false);
        FAIL() << "no exception";
    } catch (const char* text) {
        EXPECT_STREQ("Unaligned Catch and Degrade write", text);
    }

    // The same retry for a request that ends at the top of the address
    // space, where its end address is 0: head bytes, then words.
    auto top = counting(0xFFFFFFFFFFFFFF00ULL, 0x100);
    top->failAt(0xFFFFFFFFFFFFFFF8ULL, RM::KIND_READ);
    CatchAndDegradeMemoryAccessor topDegrade(top);
    std::fill(buf.begin(), buf.end(), 0xEE);
    e = newError();
    topDegrade.read(0xFFFFFFFFFFFFFFF1ULL, 0xF, buf.begin(), e, nullptr);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0xFFFFFFFFFFFFFFF8ULL, e->getRecords()[0].address);
    EXPECT_EQ(4u, e->getRecords()[0].size);
    for (unsigned i = 0; i < 0xF; ++i) {
        ASSERT_EQ(i >= 7 && i < 0xB ? 0xEE : 0xF1 + i, buf[i]) << i;
    }
}

TEST(CatchAndDegradeMemoryAccessor, GivesUpAfter32FailuresInARow) {
    auto mem = counting(0, 0x1100);
    // Whole words fail; single bytes and everything else work.
    mem->failWhen([](const RM::Call& c) { return c.size >= 4; });
    CatchAndDegradeMemoryAccessor degrade(mem);

    std::vector<unsigned char> buf(0x1000, 0xEE);
    ErrorPtr e = newError();
    degrade.read(0x2, 0xFFF, buf.begin(), e, nullptr);
    EXPECT_EQ(1u + 2 + 32 + 1, mem->countCalls(RM::KIND_READ));  // block, head, words, tail
    expectCall(mem->calls()[0], RM::KIND_READ, 0x2, 0xFFF);
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0x4u, e->getRecords()[0].address);
    EXPECT_EQ(0xFFCu, e->getRecords()[0].size);
    // Head and tail bytes land where they belong also after the stop.
    EXPECT_EQ(0x02, buf[0]);
    EXPECT_EQ(0x03, buf[1]);
    EXPECT_EQ(0xEE, buf[2]);
    EXPECT_EQ(0x00, buf[0xFFE]);  // address 0x1000
    EXPECT_EQ(0xEE, buf[0xFFF]);  // not part of the request

    mem->clearCalls();
    const std::vector<unsigned char> data(0x1000, 0xA5);
    e = newError();
    degrade.write(0, 0x1000, data.cbegin(), e, nullptr, false);
    EXPECT_EQ(1u + 32, mem->countCalls(RM::KIND_WRITE));
    ASSERT_EQ(1u, e->getRecords().size());
    EXPECT_EQ(0x1000u, e->getRecords()[0].size);

    // A success in between starts the count again: 31 failures, one good
    // word, 31 failures... never stop.
    mem->failWhen([](const RM::Call& c) { return c.size > 4 || (c.size == 4 && c.address % 0x80 != 0); });
    mem->clearCalls();
    e = newError();
    degrade.read(0, 0x1000, buf.begin(), e, nullptr);
    EXPECT_EQ(1u + 0x400, mem->countCalls(RM::KIND_READ));
    EXPECT_EQ(0x20u, e->getRecords().size());
    EXPECT_TRUE(e->allLocationsAreValid(0x800, 4));

    // Something that is no std::exception is not caught.
    mem->failWhen([](const RM::Call&) -> bool { throw 7; });
    EXPECT_THROW(degrade.read(0, 4, buf.begin(), e, nullptr), int);
}
