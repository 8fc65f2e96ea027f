#ifndef LIBCOMMON_DWARF_ELFPROCESS_H
#define LIBCOMMON_DWARF_ELFPROCESS_H

// A program that has not run, as a process the expression engine can
// evaluate in: its ELF image is the process's one memory, "data" (read-only,
// what the program sees when it starts), its debug information is the one
// module, and it has no registers. Its frames stand at a chosen instruction
// address with frame address 0, so globals and statics evaluate as they are
// in the file, the way a debugger shows them before the target runs.
// Locals have a place but no content here: their reads fail.
//
//     auto symbols = DwarfSymbolInformation::open("firmware.elf");
//     auto process = ElfProcessContext::create(symbols);
//     auto frame = process->createFrame(0);
//     SymbolAccessorApi api(symbols, frame, symbols->getCompilerInfo(), ...);
//
// Not synchronised, like the contexts it stands for.

#include "libcommon/context/contextbase.h"
#include "libcommon/dwarf/dwarfsymbolinformation.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/istacktracecontext.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

class ElfProcessContext : public ContextBase<IProcessContext> {
public:
    static boost::shared_ptr<ElfProcessContext> create(
        boost::shared_ptr<DwarfSymbolInformation> symbols);

    std::vector<boost::shared_ptr<IProcessModule>> getModules() override;
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override;
    // "data" is the image; any other name is empty.
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override;
    boost::shared_ptr<IDeviceContext> getDevice() override;
    // Gives the one frame of createFrame(0).
    boost::shared_ptr<IStackTraceService> getStackTraceService() override;
    boost::shared_ptr<IExpressionService> getExpressionService() override;

    // A frame of this process at instructionAddress: the function there
    // decides which locals are in scope.
    boost::shared_ptr<IStackTraceContext> createFrame(uint64_t instructionAddress);

    const boost::shared_ptr<DwarfSymbolInformation>& getSymbols() const { return symbols; }

private:
    explicit ElfProcessContext(boost::shared_ptr<DwarfSymbolInformation> symbols);

    boost::shared_ptr<DwarfSymbolInformation> symbols;
    boost::shared_ptr<IMemoryContext> memory;
};

#endif
