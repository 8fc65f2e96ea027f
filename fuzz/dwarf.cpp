// libFuzzer harness: damaged ELF files through the ELF image and the DWARF
// reader. Any input must end in a clean CoreException or a usable model;
// a crash, a hang or a sanitizer report is a finding. Seeds are real
// programs (fuzz/corpus/dwarf/), so mutations reach the DWARF sections.

#include "libcommon/core/status.h"
#include "libcommon/dwarf/dwarfprogram.h"
#include "libcommon/dwarf/dwarfsymbolinformation.h"
#include "libcommon/dwarf/elfimage.h"
#include "libcommon/isymbolcontext.h"

#include <boost/make_shared.hpp>

#include <cstddef>
#include <cstdint>

namespace {

// Touches what a watch expression would: each variable's type, its members
// and its bytes in the image.
void walk(const DwarfProgram& program, IMemoryAccessor& memory) {
    std::vector<unsigned char> buffer(64);
    auto error = boost::make_shared<MemoryError>();
    for (const DwarfUnit& unit : program.getUnits()) (void)unit;
    for (const DwarfFunction& f : program.getFunctions()) {
        program.findFunctionAt(f.lowPc);
        DwarfProgram::findLocal(f, f.lowPc, "a");
    }
    for (const char* name : {"c_int", "status", "pkt", "matrix", "nodes", "list"}) {
        const DwarfVariable* v = program.findGlobalVariable(name);
        if (!v || !v->type) continue;
        for (const DwarfType* t = v->type; t; t = t->target) {
            for (const DwarfMember& m : t->members) (void)m.type->byteSize;
            if (t->kind == DwarfType::STRUCT || t->kind == DwarfType::UNION) break;
        }
        if (v->location.kind == DwarfLocation::ADDRESS)
            memory.read(v->location.address, static_cast<unsigned int>(buffer.size()),
                        buffer.begin(), error, nullptr);
    }
    program.findType("point");
}

// Walks a symbol context as the engine's type builder does, to a bounded
// depth: a damaged type graph must not make it loop or crash.
void visit(const boost::shared_ptr<ISymbolContext>& c, int depth) {
    if (!c || depth > 8) return;
    c->getName();
    c->getTypeClass();
    c->getSize();
    c->getArrayDimensions();
    c->getValue();
    visit(c->getTypeContext(), depth + 1);
    visit(c->getBaseTypeContext(), depth + 1);
    for (const auto& child : c->getChildren(ISymbolContext::SYMBOL_UNKNOWN))
        visit(child, depth + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        boost::shared_ptr<ElfImage> image =
            ElfImage::fromBytes(std::vector<unsigned char>(data, data + size), "fuzz.elf");
        image->getLoadableSegments();
        ElfImageMemoryAccessor memory(image);
        boost::shared_ptr<DwarfProgram> program = DwarfProgram::read(image);
        walk(*program, memory);
        DwarfSymbolInformation symbols(program);
        symbols.getCompilerInfo();
        for (const char* name : {"pkt", "nodes", "status", "point", "reg32", "BLUE"}) {
            visit(symbols.findGlobalSymbol(name, false), 0);
            visit(symbols.findGlobalSymbol(name, true), 0);
        }
    } catch (const CoreException&) {
    }
    return 0;
}
