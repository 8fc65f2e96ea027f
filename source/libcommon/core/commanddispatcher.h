#ifndef LIBCOMMON_CORE_COMMANDDISPATCHER_H
#define LIBCOMMON_CORE_COMMANDDISPATCHER_H

// The command table of one protocol service: maps a command name to a
// handler and can turn every failure of a handler into a JSON error report.

#include <boost/function.hpp>
#include <boost/unordered_map.hpp>
#include <string>
#include <vector>

class CommandDispatcher {
public:
    typedef boost::function<void(const std::vector<std::string>& args,
                                 std::vector<std::string>& results)>
        Handler;

    explicit CommandDispatcher(const std::string& serviceName);

    // A second handler under the same name replaces the first.
    void addCommand(const std::string& name, Handler handler);
    void dispatch(const std::string& command, const std::vector<std::string>& args,
                  std::vector<std::string>& results, bool catchExceptions);

private:
    void invokeCommandHandler(const std::string& command, const std::vector<std::string>& args,
                              std::vector<std::string>& results);
    void dispatchCatchExceptions(const std::string& command,
                                 const std::vector<std::string>& args,
                                 std::vector<std::string>& results);

    std::string serviceName;
    boost::unordered_map<std::string, Handler> commands;
};

#endif
