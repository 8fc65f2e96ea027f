// Logging mask, string building, timer, bit helper, base64, packet and CRC.

#include "libcommon/core/logging.h"
#include "libcommon/core/packet.h"
#include "libcommon/core/utilities.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

// Collects what reaches a Poco logger.
class CaptureChannel : public Poco::Channel {
public:
    void log(const Poco::Message& msg) override { messages.push_back(msg.getText()); }
    std::vector<std::string> messages;
};

class MaskGuard {
public:
    MaskGuard() : saved(gLogMask) {}
    ~MaskGuard() { gLogMask = saved; }

private:
    int saved;
};

}  // namespace

TEST(Logging, MaskDecidesWhatIsSentPocoLevelWhatIsEnabled) {
    MaskGuard guard;
    Poco::AutoPtr<CaptureChannel> channel(new CaptureChannel);
    Poco::Logger& logger = Poco::Logger::get("test-mask");
    logger.setChannel(channel);
    BackendLogger::set_log_level("test-mask", BackendLogger::LEVEL_TRACE);

    EXPECT_EQ(0xE8, gLogMask);
    BackendLogger::info("test-mask", "hidden");
    BackendLogger::debug("test-mask", "hidden");
    BackendLogger::warn("test-mask", "warned");
    BackendLogger::error("test-mask", "failed");
    EXPECT_EQ((std::vector<std::string>{"warned", "failed"}), channel->messages);

    gLogMask = LOG_MASK_INFO;
    BackendLogger::info("test-mask", "shown");
    BackendLogger::error("test-mask", "masked");
    EXPECT_EQ("shown", channel->messages.back());
    EXPECT_EQ(3u, channel->messages.size());

    gLogMask = 0;
    EXPECT_TRUE(BackendLogger::error_enabled("test-mask")) << "enabled ignores the mask";
    BackendLogger::set_log_level("test-mask", BackendLogger::LEVEL_WARN);
    EXPECT_TRUE(BackendLogger::warn_enabled("test-mask"));
    EXPECT_FALSE(BackendLogger::notice_enabled("test-mask"));
    EXPECT_FALSE(BackendLogger::trace_enabled("test-mask"));
    EXPECT_TRUE(BackendLogger::fatal_enabled("test-mask"));
    logger.setChannel(nullptr);
}

TEST(Logging, ChannelsHaveTheirShortNames) {
    EXPECT_EQ("cal", L_FLO);
    EXPECT_EQ("dbg", L_DBG);
    EXPECT_EQ("msg", L_MSG);
}

TEST(FormatString, GrowsForLongResultsAndStaysReusable) {
    std::string thousand(1000, 'x');
    FormatString f("%s", thousand.c_str());
    EXPECT_EQ(thousand, std::string(f));
    f("%d-%s", 7, "short");
    EXPECT_STREQ("7-short", f.c_str());
    EXPECT_STREQ("a1b2", FormatString()("a%d", 1)("a%db%d", 1, 2).c_str());
    EXPECT_STREQ("", FormatString().c_str());
    FormatString copy(f);
    f("changed");
    EXPECT_STREQ("7-short", copy.c_str());
}

TEST(FormatString, StopsGrowingAtOneMebibyte) {
    std::string huge(3 * 1024 * 1024, 'y');
    FormatString f("%s", huge.c_str());
    EXPECT_EQ(0x100000u - 1, std::string(f).size());
}

TEST(Timer, NewTimerNeverTimesOutRestartSetsADeadline) {
    Timer t;
    EXPECT_FALSE(t.timedOut());
    t.restart(60000);
    EXPECT_FALSE(t.timedOut());
    EXPECT_GT(t.remaining(), 50000);
    Timer shared(t);
    t.restart(-1);
    EXPECT_TRUE(shared.timedOut()) << "copies share the deadline";
    EXPECT_LT(shared.remaining(), 0);
}

TEST(Utilities, TrailingZeroes) {
    EXPECT_EQ(4, getTrailingZeroes(0));
    EXPECT_EQ(0, getTrailingZeroes(1));
    EXPECT_EQ(3, getTrailingZeroes(0x18));
    EXPECT_EQ(31, getTrailingZeroes(0x80000000UL));
}

TEST(Base64, EncodesWithPadding) {
    std::vector<unsigned char> none;
    EXPECT_EQ("", base64_encode(none));
    std::vector<unsigned char> ab{'A', 'B'};
    EXPECT_EQ("QUI=", base64_encode(ab));
    std::vector<unsigned char> one{0xFF};
    EXPECT_EQ("/w==", base64_encode(one));
    std::vector<unsigned char> three{'M', 'a', 'n'};
    EXPECT_EQ("TWFu", base64_encode(three));
}

TEST(Base64, DecodingStopsQuietlyAndAppends) {
    auto decode = [](const std::string& s) {
        std::vector<unsigned char> out;
        base64_decode(s, out);
        return out;
    };
    EXPECT_EQ((std::vector<unsigned char>{'A', 'B'}), decode("QUI="));
    EXPECT_EQ((std::vector<unsigned char>{'A', 'B'}), decode("QUI"));
    EXPECT_TRUE(decode("Q").empty());
    EXPECT_EQ(1u, decode("QU!JD").size());
    EXPECT_EQ((std::vector<unsigned char>{'M', 'a', 'n'}), decode("TWFu\nTWFu")) << "no line breaks";

    std::vector<unsigned char> out{9};
    base64_decode("TWFu", out);
    EXPECT_EQ((std::vector<unsigned char>{9, 'M', 'a', 'n'}), out);
}

TEST(Base64, RoundTripsRandomData) {
    std::mt19937 rng(42);
    for (std::size_t len = 0; len < 40; ++len) {
        std::vector<unsigned char> data(len);
        for (auto& b : data) b = static_cast<unsigned char>(rng());
        std::vector<unsigned char> back;
        base64_decode(base64_encode(data), back);
        EXPECT_EQ(data, back) << "length " << len;
    }
}

TEST(Packet, SixteenBitValuesAreLittleEndianAndBoundsChecked) {
    Packet p;
    p.append16(0x1234);
    EXPECT_EQ((Packet{0x34, 0x12}), p);
    EXPECT_EQ(0x1234, p.get16(0));
    p.set16(0, 0xBEEF);
    EXPECT_EQ(0xEF, p[0]);
    EXPECT_THROW(p.get16(1), std::out_of_range);
    EXPECT_THROW(p.set16(2, 1), std::out_of_range);
}

TEST(Crc16, MatchesThePublishedParameterSet) {
    EXPECT_EQ(0x1189, TarnToolsCrc16::table()[1]);
    const std::string check = "123456789";
    Packet p(check.begin(), check.end());
    EXPECT_EQ(0x6F91, TarnToolsCrc16::getCrc(p)) << "CRC-16/MCRF4XX check value";

    std::mt19937 rng(7);
    Packet random(1000);
    for (auto& b : random) b = static_cast<unsigned char>(rng());
    boost::crc_optimal<16, 0x1021, 0xFFFF, 0, true, true> reference;
    reference.process_bytes(random.data(), random.size());
    EXPECT_EQ(reference.checksum(), TarnToolsCrc16::getCrc(random));
}

TEST(Crc16, AddUpdateAndCheck) {
    Packet empty;
    TarnToolsCrc16::addCrc(empty);
    EXPECT_EQ((Packet{0xFF, 0xFF}), empty);

    Packet two{1, 2};
    TarnToolsCrc16::updateCrc(two);
    EXPECT_EQ((Packet{0xFF, 0xFF}), two);

    Packet frame{0x10, 0x20, 0x30};
    TarnToolsCrc16::addCrc(frame);
    EXPECT_EQ(5u, frame.size());
    EXPECT_TRUE(TarnToolsCrc16::checkCrc(frame));
    for (std::size_t i = 0; i < frame.size(); ++i) {
        Packet broken(frame);
        broken[i] ^= 0x01;
        EXPECT_FALSE(TarnToolsCrc16::checkCrc(broken)) << "byte " << i;
    }
    frame[0] = 0x11;
    TarnToolsCrc16::updateCrc(frame);
    EXPECT_TRUE(TarnToolsCrc16::checkCrc(frame));

    Packet tiny{1};
    EXPECT_FALSE(TarnToolsCrc16::checkCrc(tiny));
    EXPECT_THROW(TarnToolsCrc16::updateCrc(tiny), std::out_of_range);
}
