#include "eval.h"

#include "errors.h"
#include "libcommon/core/json_spirit.h"
#include "libcommon/core/status.h"
#include "libcommon/dwarf/elfwatch.h"

#include <iostream>

namespace tarnprog {

CLI::App* addEvalCommand(CLI::App& app, EvalArgs& args) {
    CLI::App* command = app.add_subcommand(
        "eval", "evaluate watch expressions on an ELF program's data, without a target");
    command->add_option("FILE", args.file, "ELF program with DWARF debug information")->required();
    command->add_option("EXPR", args.expressions, "C expressions")->required();
    return command;
}

int runEval(const EvalArgs& args, bool json) {
    std::unique_ptr<ElfWatch> watch;
    try {
        watch.reset(new ElfWatch(args.file));
    } catch (const CoreException& e) {
        throw UsageError(e.what());
    }
    int code = EXIT_OK;
    json_spirit::Array results;
    for (const std::string& expression : args.expressions) {
        WatchResult r = watch->evaluate(expression);
        if (!r.ok) code = EXIT_MISMATCH;
        if (json) {
            json_spirit::Object o;
            o.push_back(json_spirit::Pair("expression", r.expression));
            o.push_back(json_spirit::Pair(
                "value", r.ok ? json_spirit::Value(r.value) : json_spirit::Value()));
            o.push_back(json_spirit::Pair(
                "type", r.ok ? json_spirit::Value(r.type) : json_spirit::Value()));
            o.push_back(json_spirit::Pair(
                "size", r.ok ? json_spirit::Value(r.size) : json_spirit::Value()));
            if (!r.ok) o.push_back(json_spirit::Pair("error", r.error));
            results.push_back(o);
        } else if (r.ok) {
            std::cout << r.expression << " = " << r.value << " (" << r.type << ")\n";
        } else {
            std::cout << r.expression << ": error: " << r.error << "\n";
        }
    }
    if (json) std::cout << json_spirit::write(results) << std::endl;
    return code;
}

}  // namespace tarnprog
