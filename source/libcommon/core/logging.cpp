#include "libcommon/core/logging.h"

#include <Poco/Logger.h>
#include <Poco/Message.h>

int gLogMask = 0xE8;

const std::string L_MSG = "msg";
const std::string L_TCF = "tcf";
const std::string L_FLO = "cal";
const std::string L_HIL = "hil";
const std::string L_DBG = "dbg";
const std::string L_PRO = "pro";
const std::string L_PHY = "phy";
const std::string L_OCD = "ocd";
const std::string L_TRC = "trc";
const std::string L_STR = "str";

namespace {

void send(int maskBit, BackendLogger::Level level, const std::string& channel,
          const std::string& text) {
    if (!(gLogMask & maskBit)) return;
    Poco::Logger& logger = Poco::Logger::get(channel);
    // Poco drops the message when the logger has no channel or its level is
    // below; both are the application's configuration, not ours.
    logger.log(Poco::Message(channel, text, static_cast<Poco::Message::Priority>(level)));
}

bool enabled(BackendLogger::Level level, const std::string& channel) {
    return Poco::Logger::get(channel).getLevel() >= static_cast<int>(level);
}

}  // namespace

void BackendLogger::trace(const std::string& c, const std::string& t) { send(LOG_MASK_TRACE, LEVEL_TRACE, c, t); }
void BackendLogger::debug(const std::string& c, const std::string& t) { send(LOG_MASK_DEBUG, LEVEL_DEBUG, c, t); }
void BackendLogger::info(const std::string& c, const std::string& t) { send(LOG_MASK_INFO, LEVEL_INFO, c, t); }
void BackendLogger::warn(const std::string& c, const std::string& t) { send(LOG_MASK_WARN, LEVEL_WARN, c, t); }
void BackendLogger::notice(const std::string& c, const std::string& t) { send(LOG_MASK_NOTICE, LEVEL_NOTICE, c, t); }
void BackendLogger::error(const std::string& c, const std::string& t) { send(LOG_MASK_ERROR, LEVEL_ERROR, c, t); }
void BackendLogger::critical(const std::string& c, const std::string& t) { send(LOG_MASK_CRITICAL, LEVEL_CRITICAL, c, t); }
void BackendLogger::fatal(const std::string& c, const std::string& t) { send(LOG_MASK_FATAL, LEVEL_FATAL, c, t); }

bool BackendLogger::trace_enabled(const std::string& c) { return enabled(LEVEL_TRACE, c); }
bool BackendLogger::debug_enabled(const std::string& c) { return enabled(LEVEL_DEBUG, c); }
bool BackendLogger::info_enabled(const std::string& c) { return enabled(LEVEL_INFO, c); }
bool BackendLogger::warn_enabled(const std::string& c) { return enabled(LEVEL_WARN, c); }
bool BackendLogger::notice_enabled(const std::string& c) { return enabled(LEVEL_NOTICE, c); }
bool BackendLogger::error_enabled(const std::string& c) { return enabled(LEVEL_ERROR, c); }
bool BackendLogger::critical_enabled(const std::string& c) { return enabled(LEVEL_CRITICAL, c); }
bool BackendLogger::fatal_enabled(const std::string& c) { return enabled(LEVEL_FATAL, c); }

void BackendLogger::set_log_level(const std::string& channel, Level level) {
    Poco::Logger::get(channel).setLevel(static_cast<int>(level));
}
