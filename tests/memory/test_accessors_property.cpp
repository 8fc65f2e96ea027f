// Random stacks of decorators over the recording target, checked against a
// plain byte array: what is written reads back, exactly the bytes outside the
// window are marked, and no layer touches target bytes beyond the pages that
// hold the request.

#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/shadowmemoryaccessor.h"
#include "sim/recordingmemory.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <random>
#include <sstream>

namespace {

typedef RecordingMemory RM;
typedef boost::shared_ptr<IMemoryAccessor> AccessorPtr;

const uint64_t TARGET_BASE = 0x10000;
const size_t TARGET_SIZE = 0x3000;
const uint64_t WINDOW_IN_TARGET = 0x10800;  // aligned to the largest page
const uint64_t WINDOW_SIZE = 0x1800;
const uint64_t MAX_PAGE = 0x200;
const uint64_t ALIAS_BIT = 0x1000000;

struct Stack {
    boost::shared_ptr<RM> target;
    AccessorPtr top;
    uint64_t window = 0;  // window start in the top layer's addresses
    uint64_t shift = 0;   // top address + shift = target address
    bool paged = false;   // some layer widens accesses to pages
    std::vector<boost::shared_ptr<ShadowMemoryAccessor>> shadows;  // top first
    std::string description;
};

// Builds a stack from the target upward. Offsets are multiples of the
// largest page so that every layer sees the window page aligned.
Stack buildStack(std::mt19937& rng, bool flash) {
    Stack s;
    s.target = boost::make_shared<RM>(TARGET_BASE, TARGET_SIZE, flash ? 0xFF : 0x00);
    s.target->setFlashMode(flash);
    std::ostringstream desc;
    AccessorPtr layer = s.target;
    uint64_t toTarget = 0;  // this layer's address + toTarget = target address
    std::vector<boost::shared_ptr<ShadowMemoryAccessor>> bottomUp;
    if (flash) {
        // Flash only clears bits: something has to erase before every write.
        layer = boost::make_shared<PagedMemoryAccessor>(layer, 0x80, true, true);
        s.paged = true;
        desc << "paged(80,erase) ";
    }
    const int depth = std::uniform_int_distribution<int>(0, 5)(rng);
    for (int i = 0; i < depth; ++i) {
        switch (std::uniform_int_distribution<int>(0, 4)(rng)) {
        case 0: {
            const int64_t pages = std::uniform_int_distribution<int64_t>(-16, 16)(rng);
            const uint64_t offset = static_cast<uint64_t>(pages * int64_t(MAX_PAGE));
            layer = boost::make_shared<OffsettingMemoryAccessor>(layer, offset);
            toTarget += offset;
            desc << "offset(" << pages << "p) ";
            break;
        }
        case 1: {
            const unsigned chunk = std::uniform_int_distribution<unsigned>(1, 0x300)(rng);
            layer = boost::make_shared<ChunkedMemoryAccessor>(layer, chunk);
            desc << "chunked(" << chunk << ") ";
            break;
        }
        case 2: {
            const unsigned page = 1u << std::uniform_int_distribution<unsigned>(0, 9)(rng);
            const bool erase = flash && (rng() & 1);
            const bool ignore = rng() & 1;
            layer = boost::make_shared<PagedMemoryAccessor>(layer, page, erase, ignore);
            s.paged = true;
            desc << "paged(" << page << (erase ? ",erase" : "") << (ignore ? ",ignore" : "") << ") ";
            break;
        }
        case 3: {
            const unsigned page = 1u << std::uniform_int_distribution<unsigned>(2, 9)(rng);
            auto shadow = boost::make_shared<ShadowMemoryAccessor>(
                layer, page, static_cast<unsigned>(WINDOW_SIZE), WINDOW_IN_TARGET - toTarget);
            bottomUp.push_back(shadow);
            layer = shadow;
            s.paged = true;
            desc << "shadow(" << page << ") ";
            break;
        }
        default:
            layer = boost::make_shared<ByteWriteMemoryAccessor>(layer);
            desc << "bytewrite ";
            break;
        }
    }
    s.window = WINDOW_IN_TARGET - toTarget;
    s.shift = toTarget;
    s.top = boost::make_shared<BoundedMemoryAccessor>(layer, s.window, WINDOW_SIZE, ALIAS_BIT);
    s.shadows.assign(bottomUp.rbegin(), bottomUp.rend());
    s.description = desc.str();
    return s;
}

// Every target call of the last operation lies within the request's window
// part, widened to whole pages where a layer works in pages.
void expectCallsInside(const Stack& s, uint64_t from, uint64_t to) {
    if (from >= to) {
        EXPECT_TRUE(s.target->calls().empty()) << "a request outside the window reached the target";
        return;
    }
    uint64_t lo = from + s.shift;
    uint64_t hi = to + s.shift;
    if (s.paged) {
        lo -= lo % MAX_PAGE;
        hi += (MAX_PAGE - hi % MAX_PAGE) % MAX_PAGE;
    }
    for (const RM::Call& c : s.target->calls()) {
        ASSERT_GE(c.address, lo) << std::hex << "call at 0x" << c.address;
        ASSERT_LE(c.address + c.size, hi) << std::hex << "call at 0x" << c.address << "+0x" << c.size;
    }
}

void runStack(uint32_t seed, bool flash) {
    std::mt19937 rng(seed);
    Stack s = buildStack(rng, flash);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << s.description);
    std::vector<unsigned char> model(s.target->contents());

    for (int op = 0; op < 24; ++op) {
        const uint64_t start =
            s.window - 0x300 + std::uniform_int_distribution<uint64_t>(0, WINDOW_SIZE + 0x600)(rng);
        const unsigned size = std::uniform_int_distribution<unsigned>(0, 0x500)(rng);
        const uint64_t requested = (rng() % 4 == 0) ? (start | ALIAS_BIT) : start;
        const uint64_t from = std::max(start, s.window);
        const uint64_t to = std::min(start + size, s.window + WINDOW_SIZE);
        s.target->clearCalls();
        auto error = boost::make_shared<MemoryError>();

        if (rng() & 1) {
            std::vector<unsigned char> data(size);
            for (unsigned char& b : data) {
                b = static_cast<unsigned char>(rng());
            }
            s.top->write(requested, size, data.cbegin(), error, nullptr, false);
            for (const auto& shadow : s.shadows) {
                shadow->commitChanges(nullptr, error);
            }
            for (uint64_t a = from; a < to; ++a) {
                model[a + s.shift - TARGET_BASE] = data[a - start];
            }
            ASSERT_EQ(model, s.target->contents()) << "write at 0x" << std::hex << start << "+0x" << size;
        } else {
            std::vector<unsigned char> buf(size, 0xEE);
            s.top->read(requested, size, buf.begin(), error, nullptr);
            for (uint64_t a = start; a < start + size; ++a) {
                const bool inside = a >= from && a < to;
                const unsigned char expected = inside ? model[a + s.shift - TARGET_BASE] : 0xEE;
                ASSERT_EQ(expected, buf[a - start]) << std::hex << "read at 0x" << a;
            }
            EXPECT_EQ(0u, s.target->countCalls(RM::KIND_WRITE | RM::KIND_ERASE));
        }
        // Exactly the out-of-window bytes are marked.
        uint64_t marked = 0;
        for (const MemoryError::Record& r : error->getRecords()) {
            EXPECT_EQ(MEM_UNKNOWN, r.status);
            marked += r.size;
        }
        const uint64_t inside = from < to ? to - from : 0;
        EXPECT_EQ(size - inside, marked);
        if (from < to) {
            EXPECT_TRUE(error->allLocationsAreValid(from, static_cast<unsigned>(inside)));
        }
        expectCallsInside(s, from, to);
    }
}

}  // namespace

TEST(AccessorStackProperty, RandomStacksOverRam) {
    for (uint32_t seed = 1; seed <= 150; ++seed) {
        runStack(seed, false);
        if (testing::Test::HasFatalFailure()) {
            return;
        }
    }
}

TEST(AccessorStackProperty, RandomStacksOverFlash) {
    for (uint32_t seed = 1001; seed <= 1100; ++seed) {
        runStack(seed, true);
        if (testing::Test::HasFatalFailure()) {
            return;
        }
    }
}
