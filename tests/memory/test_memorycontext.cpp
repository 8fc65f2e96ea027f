// MemoryContext over in-memory targets: bus wrap, guards, fixed content,
// caches, write modes, fill and commit.

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"
#include "tests/memory/corefailure.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/memorycontext.h"
#include "sim/recordingmemory.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cstdlib>
#include <numeric>
#include <stdexcept>

namespace {

typedef std::vector<unsigned char> Bytes;
typedef boost::shared_ptr<IMemoryError> ErrorPtr;

boost::shared_ptr<MemoryContext> makeContext(boost::shared_ptr<IMemoryAccessor> accessor,
                                             int addressSize, uint64_t start, uint64_t size,
                                             bool readOnly = false, bool locked = false,
                                             const std::string& name = "data") {
    return boost::make_shared<MemoryContext>(boost::shared_ptr<IMemoryContext>(),
                                             boost::shared_ptr<IProcessContext>(), accessor, false,
                                             addressSize, 0, name, start, size,
                                             std::vector<std::string>(), readOnly, locked);
}

boost::shared_ptr<RecordingMemory> countingMemory(uint64_t base, size_t size) {
    auto memory = boost::make_shared<RecordingMemory>(base, size);
    for (size_t i = 0; i < size; ++i)
        memory->contents()[i] = static_cast<unsigned char>(i * 7 + 3);
    return memory;
}

Bytes pattern(size_t size, unsigned char seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(seed + i);
    return bytes;
}

template <class F>
std::string runtimeFailure(F f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    ADD_FAILURE() << "no std::runtime_error";
    return std::string();
}

// The records of an error, as (address, size, status) triples.
std::vector<std::tuple<uint64_t, uint32_t, int>> marks(const ErrorPtr& error) {
    std::vector<std::tuple<uint64_t, uint32_t, int>> result;
    auto concrete = boost::dynamic_pointer_cast<MemoryError>(error);
    if (concrete)
        for (const auto& record : concrete->getRecords())
            result.emplace_back(record.address, record.size, record.status);
    return result;
}

std::vector<std::pair<uint64_t, uint64_t>> writeCalls(const RecordingMemory& memory) {
    std::vector<std::pair<uint64_t, uint64_t>> result;
    for (const auto& call : memory.calls())
        if (call.kind == RecordingMemory::KIND_WRITE)
            result.emplace_back(call.address, call.size);
    return result;
}

struct ChangeLog {
    std::vector<IMemoryContext::ChangedRanges> events;
    void operator()(boost::shared_ptr<IMemoryContext>, const IMemoryContext::ChangedRanges& r) {
        events.push_back(r);
    }
};

class StubProcess : public IProcessContext {
public:
    std::string getId() const override { return "P1"; }
    boost::shared_ptr<IContextBase> getParent() override { return {}; }
    json_spirit::Object getProperties() override { return {}; }
    void setProperties(json_spirit::Object&) override {}
    boost::signals2::connection addContextChangedHandler(const ContextChangedSlot&) const override {
        return {};
    }
    int getOwner() const override { return 0; }
    void setOwner(int) override {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string&) override { return {}; }
    boost::shared_ptr<IDeviceContext> getDevice() override { return {}; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }
};

// Throws a plain std::exception for every write, as a driver outside the
// library's exception tree would.
class ForeignFailureAccessor : public IMemoryAccessor {
public:
    void read(uint64_t, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError>, IIntermediateResult*) override {
        std::fill_n(data, size, 0);
    }
    void write(uint64_t, unsigned int, std::vector<unsigned char>::const_iterator,
               boost::shared_ptr<MemoryError>, IIntermediateResult*, bool) override {
        throw std::runtime_error("driver gave up");
    }
};

}  // namespace

TEST(MemoryContextBus, ReadsAndWritesWrapAroundTheTopOfTheBus) {
    auto memory = countingMemory(0, 0x10000);
    auto context = makeContext(memory, 2, 0, 0x10000);
    ErrorPtr error;

    Bytes buffer(0x12, 0xEE);
    context->getMemory(0x1FFF8, 0, buffer, 1, 0x10, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(buffer[0], 0xEE);
    EXPECT_EQ(Bytes(buffer.begin() + 1, buffer.begin() + 9), memory->bytesAt(0xFFF8, 8));
    EXPECT_EQ(Bytes(buffer.begin() + 9, buffer.begin() + 17), memory->bytesAt(0, 8));
    EXPECT_EQ(buffer[17], 0xEE);

    memory->clearCalls();
    const Bytes data = pattern(8, 0x40);
    context->setMemory(0xFFFC, 0, data, 0, 8, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    // The part at address 0 goes first.
    EXPECT_EQ(writeCalls(*memory),
              (std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {0xFFFC, 4}}));
    EXPECT_EQ(memory->bytesAt(0xFFFC, 4), Bytes(data.begin(), data.begin() + 4));
    EXPECT_EQ(memory->bytesAt(0, 4), Bytes(data.begin() + 4, data.end()));

    // Failures in both parts all reach the caller.
    memory->failAt(0x2, RecordingMemory::KIND_READ, RecordingMemory::FAIL_MARK);
    memory->failAt(0xFFFA, RecordingMemory::KIND_READ, RecordingMemory::FAIL_MARK);
    context->getMemory(0xFFF8, 0, buffer, 0, 0x10, AccessPlain, nullptr, error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(MemoryError::SUMMARY_ADDRESS),
              "00000002-00000003 0000fffa-0000fffb ");
}

TEST(MemoryContextBus, RefusesRequestsWiderThanTheBusAndEmptyOnes) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ErrorPtr error;
    Bytes buffer(0x101);

    auto tooLarge = coreFailure(
        [&] { context->getMemory(0, 0, buffer, 0, 0x101, AccessPlain, nullptr, error); });
    EXPECT_EQ(tooLarge.first, ERR_ACCESS_REFUSED);
    EXPECT_EQ(tooLarge.second, "Cannot read memory. Read request too large.");
    EXPECT_EQ(coreFailure([&] {
                  context->getMemory(0, 0, buffer, 0, 0, AccessPlain, nullptr, error);
              }).second,
              "Cannot read memory. Read request too large.");
    EXPECT_NO_THROW(context->getMemory(0x80, 0, buffer, 0, 0x100, AccessPlain, nullptr, error));

    for (uint64_t size : {0x101u, 0u}) {
        auto refused = coreFailure(
            [&] { context->setMemory(0, 0, buffer, 0, size, AccessPlain, nullptr, error); });
        EXPECT_EQ(refused.first, ERR_ACCESS_REFUSED);
        EXPECT_EQ(refused.second, "Cannot write memory. Write request too large.");
    }
    EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
}

TEST(MemoryContextBus, RefusesAWholeFourGibibyteRequest) {
    // The whole 32-bit bus fits the bus check but not the 32-bit sizes of
    // the layers below; it must fail loudly rather than move no bytes.
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 4, 0, 0x100);
    ErrorPtr error;
    Bytes buffer(0x10);
    EXPECT_EQ(coreFailure([&] {
                  context->getMemory(0, 0, buffer, 0, 0x100000000ull, AccessPlain, nullptr, error);
              }).second,
              "Cannot read memory. Read request too large.");
    EXPECT_EQ(coreFailure([&] {
                  context->setMemory(0, 0, buffer, 0, 0x100000000ull, AccessPlain, nullptr, error);
              }).second,
              "Cannot write memory. Write request too large.");
}

TEST(MemoryContextBus, ShortBufferAndUnknownWidthFailCleanly) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ErrorPtr error;
    Bytes buffer(0x10);
    EXPECT_EQ(coreFailure([&] {
                  context->getMemory(0, 0, buffer, 8, 0x10, AccessPlain, nullptr, error);
              }).first,
              ERR_INVALID_ARGUMENT);
    EXPECT_EQ(coreFailure([&] {
                  context->setMemory(0, 0, buffer, 0, 0x11, AccessPlain, nullptr, error);
              }).first,
              ERR_INVALID_ARGUMENT);
    // The single-part forms are public as well and guard the buffer alike.
    EXPECT_EQ(coreFailure([&] {
                  context->getMemoryNoStraddle(0, 0, buffer, 8, 0x10, AccessPlain, nullptr, error);
              }).first,
              ERR_INVALID_ARGUMENT);
    EXPECT_EQ(coreFailure([&] {
                  context->setMemoryNoStraddle(0, 0, buffer, 1, 0x10, AccessPlain, nullptr, error);
              }).first,
              ERR_INVALID_ARGUMENT);
    EXPECT_EQ(memory->countCalls(), 0u);

    auto odd = makeContext(memory, 5, 0, 0x100);
    try {
        odd->getMemory(0, 0, buffer, 0, 1, AccessPlain, nullptr, error);
        ADD_FAILURE() << "no throw";
    } catch (const char* text) {
        EXPECT_STREQ(text, "Unhandled bus width");
    }
}

TEST(MemoryContextGuards, LockedChipRefusesEveryAccessUntilUnlocked) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100, false, true);
    ErrorPtr error;
    Bytes buffer(4);

    for (uint64_t address : {0x0u, 0x80u, 0xFFu}) {
        auto read = coreFailure(
            [&] { context->getMemory(address, 0, buffer, 0, 1, AccessPlain, nullptr, error); });
        EXPECT_EQ(read.first, ERR_ACCESS_REFUSED);
        EXPECT_EQ(read.second, "Cannot read memory. Security bit is set.");
    }
    EXPECT_EQ(coreFailure([&] {
                  context->setMemory(0, 0, buffer, 0, 4, AccessPlain, nullptr, error);
              }).second,
              "Cannot write memory. Security bit is set.");
    EXPECT_EQ(coreFailure([&] {
                  context->fillMemory(0, 0, buffer, 4, AccessPlain, nullptr, error);
              }).second,
              "Cannot fill memory. Security bit is set.");
    EXPECT_EQ(memory->countCalls(), 0u);

    context->SetChipLocked(false);
    context->getMemory(0x10, 0, buffer, 0, 4, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer, memory->bytesAt(0x10, 4));
}

TEST(MemoryContextGuards, ReadOnlySpaceMarksTheWholeWriteAndStaysSilent) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100, true);
    ChangeLog log;
    context->addMemoryChangedHandler(boost::ref(log));
    ErrorPtr error;
    const Bytes data = pattern(0x10, 1);
    const Bytes before = memory->contents();

    context->setMemory(0x20, 0, data, 0, 0x10, AccessPlain, nullptr, error);
    ASSERT_TRUE(error);
    EXPECT_EQ(marks(error), (std::vector<std::tuple<uint64_t, uint32_t, int>>{
                                {0x20, 0x10, MEM_WRITE_FAILED}}));
    EXPECT_TRUE(log.events.empty());
    EXPECT_EQ(memory->contents(), before);

    // Reading is unaffected.
    Bytes buffer(4);
    ErrorPtr readError;
    context->getMemory(0x20, 0, buffer, 0, 4, AccessPlain, nullptr, readError);
    EXPECT_FALSE(readError);
    EXPECT_EQ(buffer, memory->bytesAt(0x20, 4));
}

TEST(MemoryContextFixedContent, OverlaysMostSignificantByteFirst) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    context->addFixedMemoryContent(0x10, 0x1234);
    ErrorPtr error;

    Bytes buffer(8);
    context->getMemory(0x10, 0, buffer, 0, 8, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer[0], 0x12);
    EXPECT_EQ(buffer[1], 0x34);
    EXPECT_EQ(buffer[2], memory->byteAt(0x12));

    // At the last byte of a read only the low byte shows.
    context->getMemory(0x09, 0, buffer, 0, 8, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer[6], memory->byteAt(0x0F));
    EXPECT_EQ(buffer[7], 0x34);

    // A record just below the read changes nothing, not even its second byte.
    context->getMemory(0x11, 0, buffer, 0, 8, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer, memory->bytesAt(0x11, 8));

    // Records pile up; removing takes away the first of an address only.
    context->addFixedMemoryContent(0x10, 0xABCD);
    context->removeFixedMemoryContent(0x10);
    context->getMemory(0x10, 0, buffer, 0, 2, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer[0], 0xAB);
    context->removeFixedMemoryContent(0x10);
    context->getMemory(0x10, 0, buffer, 0, 2, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer[0], memory->byteAt(0x10));
}

TEST(MemoryContextCache, RegionCachesWritesUntilCommitAndLeavesTheRestDirect) {
    auto memory = countingMemory(0, 0x1000);
    auto context = makeContext(memory, 2, 0, 0x1000);
    context->defineCacheRegion(0x400, 0x400, 0x100);
    ErrorPtr error;

    const Bytes outside = pattern(4, 0x10);
    context->setMemory(0x100, 0, outside, 0, 4, AccessPlain, nullptr, error);
    EXPECT_EQ(memory->bytesAt(0x100, 4), outside);

    const Bytes inside = pattern(4, 0x80);
    const Bytes old = memory->bytesAt(0x480, 4);
    memory->clearCalls();
    context->setMemory(0x480, 0, inside, 0, 4, AccessPlain, nullptr, error);
    EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
    EXPECT_EQ(memory->bytesAt(0x480, 4), old);

    Bytes buffer(4);
    context->getMemory(0x480, 0, buffer, 0, 4, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer, inside);
    context->getMemory(0x480, 0, buffer, 0, 4, AccessDirect, nullptr, error);
    EXPECT_EQ(buffer, old);

    memory->clearCalls();
    context->commitCachedChanges(nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(writeCalls(*memory), (std::vector<std::pair<uint64_t, uint64_t>>{{0x400, 0x100}}));
    EXPECT_EQ(memory->bytesAt(0x480, 4), inside);

    std::vector<IMemoryContext::PersistedMemSegment> segments;
    context->getPersistedSegments(segments);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0].start, 0x400u);
    EXPECT_EQ(segments[0].size, 0x400u);
    EXPECT_EQ(segments[0].pageSize, 0x100u);
}

TEST(MemoryContextCache, PopulateFillsTheCacheWithoutTouchingTheTarget) {
    auto memory = countingMemory(0, 0x400);
    auto context = makeContext(memory, 2, 0, 0x400);
    ChangeLog log;
    context->addMemoryChangedHandler(boost::ref(log));
    ErrorPtr error;
    const Bytes known = pattern(0x100, 0x30);

    // Without a cache region there is nothing to fill, but it still signals.
    context->setMemory(0x100, 0, known, 0, 0x100, AccessPopulate, nullptr, error);
    EXPECT_EQ(memory->countCalls(), 0u);
    EXPECT_EQ(log.events.size(), 1u);

    context->defineCacheRegion(0x100, 0x100, 0x100);
    context->setMemory(0x100, 0, known, 0, 0x100, AccessPopulate, nullptr, error);
    Bytes buffer(0x100);
    context->getMemory(0x100, 0, buffer, 0, 0x100, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer, known);
    EXPECT_EQ(memory->countCalls(), 0u);
    // Populated pages are clean: nothing to commit.
    context->commitCachedChanges(nullptr, error);
    EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
    EXPECT_FALSE(error);
}

TEST(MemoryContextModes, VerifyComparesWithTheTargetPastTheCache) {
    auto memory = countingMemory(0, 0x200);
    auto context = makeContext(memory, 2, 0, 0x200);
    context->defineCacheRegion(0, 0x200, 0x100);
    ErrorPtr error;
    const Bytes target = memory->bytesAt(0x20, 4);
    const Bytes changed = pattern(4, 0x90);

    context->setMemory(0x20, 0, changed, 0, 4, AccessPlain, nullptr, error);
    EXPECT_NO_THROW(context->setMemory(0x20, 0, target, 0, 4, AccessVerify, nullptr, error));
    auto failure = coreFailure(
        [&] { context->setMemory(0x20, 0, changed, 0, 4, AccessVerify, nullptr, error); });
    EXPECT_EQ(failure.first, ERR_OPERATION_FAILED);
    EXPECT_EQ(failure.second, "Validation of memory failed in region: offset = 32, size = 4.");
    EXPECT_EQ(memory->bytesAt(0x20, 4), target);
}

TEST(MemoryContextModes, ErasedFlagFollowsModeAndEnvironment) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ErrorPtr error;
    const Bytes data = pattern(2, 1);
    auto lastErased = [&] { return memory->calls().back().erased; };

    ::unsetenv("VELMORA_BACKEND_ALLOW_WRITES_WITHOUT_ERASE");
    for (MemoryAccessMode mode : {AccessPlain, AccessPlainAlt1, AccessPlainAlt3, AccessNoErase}) {
        context->setMemory(0x10, 0, data, 0, 2, mode, nullptr, error);
        EXPECT_FALSE(lastErased()) << mode;
    }
    ::setenv("VELMORA_BACKEND_ALLOW_WRITES_WITHOUT_ERASE", "", 1);
    context->setMemory(0x10, 0, data, 0, 2, AccessNoErase, nullptr, error);
    EXPECT_TRUE(lastErased());
    context->setMemory(0x10, 0, data, 0, 2, AccessPlain, nullptr, error);
    EXPECT_FALSE(lastErased());
    ::unsetenv("VELMORA_BACKEND_ALLOW_WRITES_WITHOUT_ERASE");
}

TEST(MemoryContextModes, DirectAndUnknownModesCannotWrite) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ErrorPtr error;
    const Bytes data(1, 0);
    for (int mode : {5, 7, -1}) {
        auto failure = coreFailure([&] {
            context->setMemory(0, 0, data, 0, 1, static_cast<MemoryAccessMode>(mode), nullptr,
                               error);
        });
        EXPECT_EQ(failure.first, ERR_OPERATION_FAILED);
        EXPECT_EQ(failure.second, "MemoryAccessMode not supported.");
    }
    EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
}

TEST(MemoryContextSignal, ReportsEachWrittenPart) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ChangeLog log;
    boost::signals2::connection connection = context->addMemoryChangedHandler(boost::ref(log));
    ErrorPtr error;
    const Bytes data = pattern(8, 0);

    context->setMemory(0x10, 0, data, 0, 8, AccessPlain, nullptr, error);
    context->setMemory(0xFC, 0, data, 0, 8, AccessPlain, nullptr, error);
    ASSERT_EQ(log.events.size(), 3u);
    EXPECT_EQ(log.events[0], (IMemoryContext::ChangedRanges{{0x10, 8}}));
    EXPECT_EQ(log.events[1], (IMemoryContext::ChangedRanges{{0, 4}}));
    EXPECT_EQ(log.events[2], (IMemoryContext::ChangedRanges{{0xFC, 4}}));

    connection.disconnect();
    context->setMemory(0x10, 0, data, 0, 8, AccessPlain, nullptr, error);
    EXPECT_EQ(log.events.size(), 3u);
}

TEST(MemoryContextFill, RepeatsThePatternAndCutsTheLastCopy) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ChangeLog log;
    context->addMemoryChangedHandler(boost::ref(log));
    ErrorPtr error;
    const Bytes fill = {0xDE, 0xAD, 0xBE, 0xEF};

    context->fillMemory(0x20, 0, fill, 10, AccessPlain, nullptr, error);
    EXPECT_FALSE(error);
    EXPECT_EQ(writeCalls(*memory),
              (std::vector<std::pair<uint64_t, uint64_t>>{{0x20, 4}, {0x24, 4}, {0x28, 2}}));
    EXPECT_EQ(memory->bytesAt(0x20, 10),
              (Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0xDE, 0xAD, 0xBE, 0xEF, 0xDE, 0xAD}));
    EXPECT_EQ(log.events, (std::vector<IMemoryContext::ChangedRanges>{{{0x20, 10}}}));
}

TEST(MemoryContextFill, ChecksRangeAlignmentAndPatternInOrder) {
    auto memory = countingMemory(0x100, 0x100);
    auto context = makeContext(memory, 2, 0x100, 0x100);
    ErrorPtr error;
    const Bytes fill = {1, 2};
    const Bytes none;

    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0xFE, 0, fill, 4, AccessPlain, nullptr, error);
              }),
              "Memory access is prior to memory start boundary");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0xFE, 0, fill, 0x10000, AccessPlain, nullptr, error);
              }),
              "Memory access is prior to memory start boundary");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0x1FE, 0, fill, 4, AccessPlain, nullptr, error);
              }),
              "Memory access is beyond memory end boundary");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0x100, 0, fill, 0x10000, AccessPlain, nullptr, error);
              }),
              "Memory access is beyond memory end boundary");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0x101, 2, fill, 3, AccessPlain, nullptr, error);
              }),
              "Memory access size is not word aligned.");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0x101, 2, fill, 4, AccessPlain, nullptr, error);
              }),
              "Memory access start address is not word aligned.");
    EXPECT_EQ(runtimeFailure([&] {
                  context->fillMemory(0x100, 2, none, 4, AccessPlain, nullptr, error);
              }),
              "Empty pattern in fill memory");
    EXPECT_EQ(memory->countCalls(), 0u);
}

TEST(MemoryContextFill, AFailedCopyMarksTheRestAndStillSignals) {
    auto memory = countingMemory(0, 0x100);
    auto context = makeContext(memory, 1, 0, 0x100);
    ChangeLog log;
    context->addMemoryChangedHandler(boost::ref(log));

    // A mode that cannot write ends the loop at the first copy.
    ErrorPtr error;
    context->fillMemory(0x20, 0, Bytes(4, 0x55), 12, AccessDirect, nullptr, error);
    ASSERT_TRUE(error);
    EXPECT_EQ(marks(error), (std::vector<std::tuple<uint64_t, uint32_t, int>>{
                                {0x20, 12, MEM_WRITE_FAILED}}));
    EXPECT_EQ(log.events, (std::vector<IMemoryContext::ChangedRanges>{{{0x20, 12}}}));
    EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);

    // A target failure inside the mapped range is taken by the map: only
    // that copy is lost, the fill goes on.
    memory->failAt(0x25, RecordingMemory::KIND_WRITE);
    ErrorPtr mapped;
    context->fillMemory(0x20, 0, Bytes(4, 0x55), 12, AccessPlain, nullptr, mapped);
    ASSERT_TRUE(mapped);
    EXPECT_EQ(marks(mapped), (std::vector<std::tuple<uint64_t, uint32_t, int>>{
                                 {0x24, 4, MEM_UNKNOWN}}));
    EXPECT_EQ(memory->bytesAt(0x20, 4), Bytes(4, 0x55));
    EXPECT_EQ(memory->bytesAt(0x28, 4), Bytes(4, 0x55));

    // Fill does not stop at read-only: it goes to the write path directly.
    auto readOnly = makeContext(memory, 1, 0, 0x100, true);
    ErrorPtr roError;
    readOnly->fillMemory(0x40, 0, Bytes(1, 0x66), 2, AccessPlain, nullptr, roError);
    EXPECT_FALSE(roError);
    EXPECT_EQ(memory->bytesAt(0x40, 2), Bytes(2, 0x66));
}

namespace {

struct BootloaderCase {
    uint64_t address;
    uint64_t size;
    // Expected write: address, size, buffer offset; size 0 for none.
    uint64_t writeAddress;
    uint64_t writeSize;
    uint64_t bufferOffset;
};

}  // namespace

TEST(MemoryContextBootloader, WritesAroundTheBootloaderButNeverIntoIt) {
    const BootloaderCase cases[] = {
        {0x1000, 0x100, 0, 0, 0},          // exactly the bootloader
        {0x1020, 0x20, 0, 0, 0},           // inside it
        {0xF80, 0x100, 0xF80, 0x80, 0},    // runs into it
        {0x1080, 0x100, 0x1100, 0x80, 0x80},  // starts inside it
        {0xF00, 0x100, 0xF00, 0x100, 0},   // ends right at its start
        {0x1100, 0x10, 0x1100, 0x10, 0},   // starts right behind it
        {0x200, 0x10, 0x200, 0x10, 0},     // far away
    };
    for (const BootloaderCase& c : cases) {
        auto memory = boost::make_shared<RecordingMemory>(0, 0x2000);
        auto context = boost::make_shared<MemoryContext>(
            boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(), memory,
            false, 2, 0, "prog", 0, 0x2000, 0x1000, 0x100, std::vector<std::string>(), false,
            false);
        ErrorPtr error;
        const Bytes data = pattern(c.size, 1);
        context->setMemory(c.address, 0, data, 0, c.size, AccessPlain, nullptr, error);
        SCOPED_TRACE(c.address);
        if (c.writeSize == 0) {
            EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
            continue;
        }
        EXPECT_EQ(writeCalls(*memory), (std::vector<std::pair<uint64_t, uint64_t>>{
                                           {c.writeAddress, c.writeSize}}));
        EXPECT_EQ(memory->bytesAt(c.writeAddress, c.writeSize),
                  Bytes(data.begin() + c.bufferOffset,
                        data.begin() + c.bufferOffset + c.writeSize));
        EXPECT_EQ(memory->bytesAt(0x1000, 0x100), Bytes(0x100, 0));
    }
}

TEST(MemoryContextBootloader, RefusesARequestThatHoldsTheWholeBootloader) {
    for (uint64_t address : {0xF00u, 0xF80u}) {
        auto memory = boost::make_shared<RecordingMemory>(0, 0x2000);
        auto context = boost::make_shared<MemoryContext>(
            boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(), memory,
            false, 2, 0, "prog", 0, 0x2000, 0x1000, 0x100, std::vector<std::string>(), false,
            false);
        ErrorPtr error;
        const Bytes data(0x200, 0xAA);
        auto failure = coreFailure(
            [&] { context->setMemory(address, 0, data, 0, 0x200, AccessPlain, nullptr, error); });
        EXPECT_EQ(failure.first, ERR_OPERATION_FAILED);
        EXPECT_EQ(failure.second, "Cannot write memory, bootloader is mislocated.");
        EXPECT_EQ(memory->countCalls(RecordingMemory::KIND_WRITE), 0u);
    }
}

TEST(MemoryContextCommit, ForeignFailureOfOneRegionDoesNotStopTheOthers) {
    auto memory = countingMemory(0, 0x400);
    auto failing = boost::make_shared<ForeignFailureAccessor>();
    // Two regions over different stacks: a composite of the failing
    // accessor below 0x200 and the memory above.
    CompositeMemoryAccessor::AddressRange upper;
    upper.start = 0x200;
    upper.end = 0x400;
    auto stack = boost::make_shared<CompositeMemoryAccessor>(memory, failing, upper, 0);
    auto context = makeContext(stack, 2, 0, 0x400);
    context->defineCacheRegion(0, 0x100, 0x100);
    context->defineCacheRegion(0x200, 0x100, 0x100);
    ErrorPtr error;
    const Bytes data = pattern(4, 0x70);
    context->setMemory(0x10, 0, data, 0, 4, AccessPlain, nullptr, error);
    context->setMemory(0x210, 0, data, 0, 4, AccessPlain, nullptr, error);

    ErrorPtr commitError;
    EXPECT_NO_THROW(context->commitCachedChanges(nullptr, commitError));
    EXPECT_EQ(memory->bytesAt(0x210, 4), data);
}

TEST(MemoryContextCommit, LeavesTheCallersErrorAloneWhenAllIsWell) {
    auto memory = countingMemory(0, 0x200);
    auto context = makeContext(memory, 2, 0, 0x200);
    context->defineCacheRegion(0, 0x200, 0x100);
    ErrorPtr error;
    context->setMemory(0x10, 0, pattern(4, 1), 0, 4, AccessPlain, nullptr, error);

    ErrorPtr sentinel(boost::make_shared<MemoryError>());
    ErrorPtr commitError = sentinel;
    IntermediateResult progress;
    context->commitCachedChanges(&progress, commitError);
    EXPECT_EQ(commitError, sentinel);
    EXPECT_EQ(memory->bytesAt(0x10, 4), pattern(4, 1));

    // A page that the target refuses is reported and stays dirty; the cache
    // then shows what the target really holds.
    const Bytes held = memory->bytesAt(0x150, 4);
    memory->failAt(0x150, RecordingMemory::KIND_WRITE);
    context->setMemory(0x150, 0, pattern(4, 9), 0, 4, AccessPlain, nullptr, error);
    ErrorPtr failed;
    context->commitCachedChanges(nullptr, failed);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->getStatus(0x100, nullptr), MEM_WRITE_FAILED);
    Bytes buffer(4);
    context->getMemory(0x150, 0, buffer, 0, 4, AccessPlain, nullptr, error);
    EXPECT_EQ(buffer, held);

    memory->clearFailures();
    memory->clearCalls();
    ErrorPtr retried;
    context->commitCachedChanges(nullptr, retried);
    EXPECT_FALSE(retried);
    EXPECT_EQ(writeCalls(*memory), (std::vector<std::pair<uint64_t, uint64_t>>{{0x100, 0x100}}));
}

namespace {

// A context of the kind a plug-in writes: no accessor, its own read.
class SubclassedContext : public MemoryContext {
public:
    SubclassedContext()
        : MemoryContext(boost::shared_ptr<IMemoryContext>(), boost::shared_ptr<IProcessContext>(),
                        false, 2, 0, "registers", 0x100, 0x100, std::vector<std::string>(),
                        false) {}

    struct Read {
        uint64_t address, offset, size;
    };
    std::vector<Read> reads;

protected:
    void getMemoryImpl(uint64_t address, int, std::vector<unsigned char>& buffer, uint64_t offset,
                       uint64_t size, MemoryAccessMode, IIntermediateResult*,
                       boost::shared_ptr<MemoryError>) override {
        reads.push_back(Read{address, offset, size});
        std::fill_n(buffer.begin() + offset, size, 0xAA);
    }
};

}  // namespace

TEST(MemoryContextSubclass, OwnBoundsCheckStripsAndMarksWhatLiesOutside) {
    auto context = boost::make_shared<SubclassedContext>();
    Bytes buffer(0x20, 0);
    ErrorPtr error;
    context->getMemory(0xF0, 0, buffer, 0, 0x20, AccessPlain, nullptr, error);
    ASSERT_EQ(context->reads.size(), 1u);
    EXPECT_EQ(context->reads[0].address, 0x100u);
    EXPECT_EQ(context->reads[0].offset, 0x10u);
    EXPECT_EQ(context->reads[0].size, 0x10u);
    EXPECT_EQ(buffer[0x0F], 0);
    EXPECT_EQ(buffer[0x10], 0xAA);
    EXPECT_EQ(marks(error), (std::vector<std::tuple<uint64_t, uint32_t, int>>{
                                {0xF0, 0x10, MEM_UNKNOWN}}));

    error.reset();
    context->getMemory(0x1F0, 0, buffer, 0, 0x20, AccessPlain, nullptr, error);
    EXPECT_EQ(context->reads.back().size, 0x10u);
    EXPECT_EQ(marks(error), (std::vector<std::tuple<uint64_t, uint32_t, int>>{
                                {0x200, 0x10, MEM_UNKNOWN}}));

    // Its default write path has nothing to write through.
    EXPECT_EQ(coreFailure([&] {
                  context->setMemory(0x100, 0, buffer, 0, 1, AccessPlain, nullptr, error);
              }).first,
              ERR_NOT_SUPPORTED);
}

TEST(MemoryContextDescription, PropertiesInOrderWithTheirKinds) {
    auto process = boost::make_shared<StubProcess>();
    auto parent = makeContext(countingMemory(0, 0x10), 1, 0, 0x10);
    const std::vector<std::string> types = {"instruction", "data"};
    auto context = boost::make_shared<MemoryContext>(
        parent, process, countingMemory(0, 0x2000), true, 2, 0, "prog", 0x100, 0x1F00, 0x1000,
        0x200, types, false, false);

    json_spirit::Object properties = context->getProperties();
    std::vector<std::string> keys;
    for (const auto& pair : properties)
        keys.push_back(pair.name_);
    EXPECT_EQ(keys, (std::vector<std::string>{"ID", "ParentID", "ProcessID", "BigEndian",
                                              "AddressSize", "Name", "StartBound", "EndBound",
                                              "BootloaderStartAddr", "BootloaderSize",
                                              "AccessTypes"}));
    EXPECT_EQ(properties[2].value_.get_str(), "P1");
    EXPECT_TRUE(properties[3].value_.get_bool());
    EXPECT_EQ(properties[4].value_.get_int(), 2);
    EXPECT_EQ(properties[5].value_.get_str(), "prog");
    EXPECT_FALSE(properties[6].value_.is_uint64());
    EXPECT_EQ(properties[6].value_.get_int64(), 0x100);
    EXPECT_EQ(properties[7].value_.get_int64(), 0x1FFF);
    EXPECT_TRUE(properties[8].value_.is_uint64());
    EXPECT_EQ(properties[8].value_.get_uint64(), 0x1000u);
    EXPECT_EQ(properties[9].value_.get_uint64(), 0x200u);
    ASSERT_EQ(properties[10].value_.get_array().size(), 2u);
    EXPECT_EQ(properties[10].value_.get_array()[1].get_str(), "data");
    EXPECT_EQ(context->getMemoryEndBound(), 0x1FFFu);

    // The process is held weakly: once gone, its id is no longer reported.
    process.reset();
    EXPECT_FALSE(context->getProcess());
    keys.clear();
    for (const auto& pair : context->getProperties())
        keys.push_back(pair.name_);
    EXPECT_EQ(std::count(keys.begin(), keys.end(), "ProcessID"), 0);

    // Without bootloader and access types both groups are left out.
    auto plain = makeContext(countingMemory(0, 0x10), 1, 0, 0x10);
    EXPECT_EQ(plain->getProperties().size(), 6u);
}

TEST(MemoryContextDescription, IdsCountUpPerContext) {
    auto first = makeContext(countingMemory(0, 0x10), 1, 0, 0x10, false, false, "eeprom");
    auto second = makeContext(countingMemory(0, 0x10), 1, 0, 0x10, false, false, "eeprom");
    const std::string a = first->getId();
    const std::string b = second->getId();
    ASSERT_EQ(a.rfind("Mem_eeprom_", 0), 0u);
    ASSERT_EQ(b.rfind("Mem_eeprom_", 0), 0u);
    EXPECT_EQ(std::stoi(b.substr(11)), std::stoi(a.substr(11)) + 1);
}
