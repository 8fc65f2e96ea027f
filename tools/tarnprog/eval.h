#ifndef TARNPROG_EVAL_H
#define TARNPROG_EVAL_H

// tarnprog eval FILE.elf EXPR...: watch expressions on a program's static
// data, read from the ELF file with its DWARF debug information, without a
// target. One line per expression, "EXPR = VALUE (TYPE)", or with --json an
// array of objects with "expression", "value", "type", "size" and, for a
// failure, "error". A failing expression does not stop the others; the exit
// code is then EXIT_MISMATCH. A file that cannot be read is a usage error.

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tarnprog {

struct EvalArgs {
    std::string file;
    std::vector<std::string> expressions;
};

CLI::App* addEvalCommand(CLI::App& app, EvalArgs& args);
// Prints the results on standard output; gives the exit code.
int runEval(const EvalArgs& args, bool json);

}  // namespace tarnprog

#endif
