#ifndef LIBCOMMON_DWARF_DWARFSYMBOLINFORMATION_H
#define LIBCOMMON_DWARF_DWARFSYMBOLINFORMATION_H

// DwarfSymbolInformation: the debug information of an ELF program offered
// to the expression engine as an ISymbolInformation. Every name becomes an
// ISymbolContext made on demand over the program's model (DwarfProgram):
//   - variables (locals and parameters of the function at the address asked
//     about, innermost block first, then the statics of its unit, then
//     globals, then the statics of other units) with their locations;
//   - functions, at their entry address;
//   - enumeration constants, as constants;
//   - types by typedef name, tag or base type name, when a type is asked for.
// A context keeps the program alive; contexts of one type are equivalent,
// which ends the engine's walk of a struct that points to itself.
//
// Locations. Memory locations are in the address space "data" (a process
// without one places them in "base"): absolute for globals and statics
// (AM_GLOBAL), frame-relative for locals (AM_STACK, the offset counting
// from the frame's canonical frame address, which the plug-in's
// getFrameAddress() must give), register-relative where the frame base is a
// register (AM_REGISTER_INDIRECT), or in a register (AM_REGISTER). Register
// ids are DWARF register numbers: the plug-in's frame registers must carry
// them as their index. A variable without a location is AM_OPTIMIZED_AWAY;
// one whose location needs running code (a location list, a computed
// expression) is AM_UNKNOWN and fails when read.
//
// Types the engine cannot represent are given as near as C allows: const
// and volatile vanish, a struct member whose place needs computing is left
// out. Unknown names give an empty pointer, never a failure.
//
//     auto symbols = DwarfSymbolInformation::open("firmware.elf");
//     auto api = boost::make_shared<SymbolAccessorApi>(symbols, frame,
//         symbols->getCompilerInfo(), types, names);
//
// Not synchronised; the engine's evaluation lock serialises its calls.

#include "libcommon/dwarf/dwarfprogram.h"
#include "libcommon/isymbolinformation.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

struct CompilerInfo;

class DwarfSymbolInformation : public ISymbolInformation {
public:
    // Opens and reads an ELF file; throws CoreException as ElfImage::open
    // and DwarfProgram::read do.
    static boost::shared_ptr<DwarfSymbolInformation> open(const std::string& path);
    explicit DwarfSymbolInformation(boost::shared_ptr<const DwarfProgram> program);

    boost::shared_ptr<ISymbolContext> findSymbolAt(const std::string& name, uint64_t address,
                                                   bool wantType) override;
    boost::shared_ptr<ISymbolContext> findGlobalSymbol(const std::string& name,
                                                       bool wantType) override;

    // The target compiler's sizes, from the ELF header (byte order, pointer
    // size) and the program's own base types. A base type the program never
    // uses keeps the size the ELF class implies (ILP32 or LP64).
    boost::shared_ptr<CompilerInfo> getCompilerInfo() const;

    const boost::shared_ptr<const DwarfProgram>& getProgram() const { return program; }

private:
    boost::shared_ptr<ISymbolContext> findType(const std::string& name);
    boost::shared_ptr<ISymbolContext> findObject(const std::string& name,
                                                 const DwarfFunction* function, uint64_t pc);

    boost::shared_ptr<const DwarfProgram> program;
};

#endif
