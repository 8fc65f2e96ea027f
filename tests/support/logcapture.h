#ifndef LIBCOMMON_TESTS_SUPPORT_LOGCAPTURE_H
#define LIBCOMMON_TESTS_SUPPORT_LOGCAPTURE_H

// Collects what the library logs on one channel while it lives: sets the
// channel's Poco logger to pass everything and adds the given bits to
// gLogMask, and puts both back afterwards.

#include "libcommon/core/logging.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <algorithm>
#include <string>
#include <vector>

class LogCapture {
public:
    LogCapture(const std::string& channelName, int maskBits)
        : name(channelName), channel(new Collector), savedMask(gLogMask) {
        Poco::Logger& logger = Poco::Logger::get(name);
        savedLevel = logger.getLevel();
        savedChannel = logger.getChannel();
        logger.setChannel(channel);
        logger.setLevel(Poco::Message::PRIO_TRACE);
        gLogMask |= maskBits;
    }
    ~LogCapture() {
        Poco::Logger& logger = Poco::Logger::get(name);
        logger.setChannel(savedChannel);
        logger.setLevel(savedLevel);
        gLogMask = savedMask;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<std::string>& lines() const { return channel->lines; }
    bool saw(const std::string& text) const {
        return std::find(lines().begin(), lines().end(), text) != lines().end();
    }

private:
    struct Collector : public Poco::Channel {
        void log(const Poco::Message& msg) override { lines.push_back(msg.getText()); }
        std::vector<std::string> lines;
    };

    std::string name;
    Poco::AutoPtr<Collector> channel;
    int savedMask;
    int savedLevel;
    Poco::Channel::Ptr savedChannel;
};

#endif
