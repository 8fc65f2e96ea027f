#ifndef LIBCOMMON_DWARF_ELFWATCH_H
#define LIBCOMMON_DWARF_ELFWATCH_H

// ElfWatch: watch expressions on an ELF program that has not run, the way a
// debugger evaluates them on a file: names from the program's DWARF, bytes
// from its image (ElfProcessContext), the expression engine for the rest.
// Each expression is evaluated on its own: a failure is reported in its
// result and does not touch the next, and no struct or enum that one
// expression defines is seen by another.
//
//     ElfWatch watch("firmware.elf");
//     WatchResult r = watch.evaluate("pkt.values[2] * 2");
//     r.ok ? r.value + " (" + r.type + ")" : r.error;
//
// Opening fails with the CoreException of ElfImage::open or
// DwarfProgram::read. Not synchronised; the engine's lock serialises the
// evaluations of all threads.

#include "libcommon/dwarf/dwarfsymbolinformation.h"
#include "libcommon/dwarf/elfprocess.h"
#include "libcommon/expr/typechains.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

struct WatchResult {
    std::string expression;
    bool ok = false;
    std::string value;  // as a debugger's print shows it (see watchformat.h)
    std::string type;   // the engine's text of the value's type
    int size = 0;       // bytes of the value's type
    std::string error;  // the engine's message when not ok
};

class ElfWatch {
public:
    explicit ElfWatch(const std::string& path);
    explicit ElfWatch(boost::shared_ptr<DwarfSymbolInformation> symbols);

    // Evaluates in a frame at instructionAddress: 0 sees globals and
    // statics only, an address in a function also its locals (which have
    // no content before the program runs).
    WatchResult evaluate(const std::string& expression, uint64_t instructionAddress = 0);
    // The text, type and size of an evaluated value. Reading an aggregate's
    // bytes may fail; the failure is reported in the result.
    WatchResult describe(const std::string& expression, const value& v);

    // A frame of the program at instructionAddress.
    boost::shared_ptr<IStackTraceContext> frame(uint64_t instructionAddress = 0);

    const boost::shared_ptr<DwarfSymbolInformation>& getSymbols() const { return symbols; }
    const boost::shared_ptr<CompilerInfo>& getCompilerInfo() const { return compilerInfo; }

private:
    boost::shared_ptr<DwarfSymbolInformation> symbols;
    boost::shared_ptr<ElfProcessContext> process;
    boost::shared_ptr<CompilerInfo> compilerInfo;
};

// The message of whatever an evaluation throws: the engine's plain texts,
// its GenericError and the CoreExceptions of the layers below.
std::string watchErrorText(std::exception_ptr failure);

#endif
