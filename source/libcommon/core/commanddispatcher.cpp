#include "libcommon/core/commanddispatcher.h"

#include "libcommon/core/status.h"

CommandDispatcher::CommandDispatcher(const std::string& name) : serviceName(name) {}

void CommandDispatcher::addCommand(const std::string& name, Handler handler) {
    commands[name] = handler;
}

void CommandDispatcher::dispatch(const std::string& command, const std::vector<std::string>& args,
                                 std::vector<std::string>& results, bool catchExceptions) {
    if (catchExceptions) {
        dispatchCatchExceptions(command, args, results);
    } else {
        invokeCommandHandler(command, args, results);
    }
}

void CommandDispatcher::invokeCommandHandler(const std::string& command,
                                             const std::vector<std::string>& args,
                                             std::vector<std::string>& results) {
    auto it = commands.find(command);
    if (it == commands.end()) throw ErrorDescr(ERR_COMMAND, serviceName, "Unknown command");
    it->second(args, results);
}

void CommandDispatcher::dispatchCatchExceptions(const std::string& command,
                                                const std::vector<std::string>& args,
                                                std::vector<std::string>& results) {
    // The order matters: a GenericError is a CoreException whose status is
    // blank, and every CoreException is a std::exception.
    try {
        invokeCommandHandler(command, args, results);
    } catch (ErrorDescr& e) {
        results.push_back(e.toJson());
    } catch (GenericError& e) {
        results.push_back(ErrorDescr(ERR_COMMAND, serviceName, e.getString()).toJson());
    } catch (CoreException& e) {
        boost::shared_ptr<IStatus> status = e.getStatus();
        results.push_back(status ? status->toJson() : std::string());
    } catch (std::exception& e) {
        results.push_back(ErrorDescr(ERR_GENERAL, serviceName, e.what()).toJson());
    } catch (...) {
        results.push_back(
            ErrorDescr(ERR_GENERAL, serviceName, "The Service threw an unknown exception").toJson());
    }
}
