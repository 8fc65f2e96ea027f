#ifndef LIBCOMMON_CORE_LOGGING_H
#define LIBCOMMON_CORE_LOGGING_H

// Logging facade over Poco loggers, with a global level mask.
//
// Usual pattern at a logging site:
//     if (gLogMask & LOG_MASK_DEBUG)
//         BackendLogger::debug(L_DBG, FormatString("read %u bytes", n));

#include <string>

// Mask bits of gLogMask. Note that warn (0x08) and notice (0x10) do not
// follow the order of the Poco level numbers.
enum LogMaskBit {
    LOG_MASK_TRACE = 0x01,
    LOG_MASK_DEBUG = 0x02,
    LOG_MASK_INFO = 0x04,
    LOG_MASK_WARN = 0x08,
    LOG_MASK_NOTICE = 0x10,
    LOG_MASK_ERROR = 0x20,
    LOG_MASK_CRITICAL = 0x40,
    LOG_MASK_FATAL = 0x80
};

// Start value 0xE8: warn, error, critical and fatal pass.
extern int gLogMask;

extern const std::string L_MSG;  // "msg"
extern const std::string L_TCF;  // "tcf"
extern const std::string L_FLO;  // "cal"
extern const std::string L_HIL;  // "hil"
extern const std::string L_DBG;  // "dbg"
extern const std::string L_PRO;  // "pro"
extern const std::string L_PHY;  // "phy"
extern const std::string L_OCD;  // "ocd"
extern const std::string L_TRC;  // "trc"
extern const std::string L_STR;  // "str"

class BackendLogger {
public:
    // Poco level numbers.
    enum Level {
        LEVEL_FATAL = 1,
        LEVEL_CRITICAL = 2,
        LEVEL_ERROR = 3,
        LEVEL_WARN = 4,
        LEVEL_NOTICE = 5,
        LEVEL_INFO = 6,
        LEVEL_DEBUG = 7,
        LEVEL_TRACE = 8
    };

    // Send when the level's bit is set in gLogMask; otherwise nothing.
    static void trace(const std::string& channel, const std::string& text);
    static void debug(const std::string& channel, const std::string& text);
    static void info(const std::string& channel, const std::string& text);
    static void warn(const std::string& channel, const std::string& text);
    static void notice(const std::string& channel, const std::string& text);
    static void error(const std::string& channel, const std::string& text);
    static void critical(const std::string& channel, const std::string& text);
    static void fatal(const std::string& channel, const std::string& text);

    // Whether the Poco logger of the channel passes the level; gLogMask is
    // not consulted, callers test both.
    static bool trace_enabled(const std::string& channel);
    static bool debug_enabled(const std::string& channel);
    static bool info_enabled(const std::string& channel);
    static bool warn_enabled(const std::string& channel);
    static bool notice_enabled(const std::string& channel);
    static bool error_enabled(const std::string& channel);
    static bool critical_enabled(const std::string& channel);
    static bool fatal_enabled(const std::string& channel);

    static void set_log_level(const std::string& channel, Level level);
};

#endif
