// Cost of the value-level half of evaluating typical watch expressions:
// name values as the lookup makes them, then the operations the tree walk
// calls for each node (member access, indexing, arithmetic, casts, sizeof,
// address-of, conditional, pointer chains), with every read going through
// a memory context over host RAM. Parsing is not part of it.
//
// For scale, the run also measures GDB printing the same expressions from
// the static data of an equivalent ELF program, when gdb and a C compiler
// are installed: the CPU time of one gdb process printing N rounds of the
// eight expressions, less that of one printing none, per expression.

#include "libcommon/context/stacktracecontext.h"
#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/memorylocation.h"
#include "libcommon/expr/symbolaccess.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/memory/memorycontext.h"
#include "sim/recordingmemory.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/make_shared.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

namespace {

class RamProcess : public ContextBase<IProcessContext> {
public:
    RamProcess() : ContextBase<IProcessContext>("Proc_bench", boost::shared_ptr<IContextBase>()) {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override {
        return name == "data" ? data : boost::shared_ptr<IMemoryContext>();
    }
    boost::shared_ptr<IDeviceContext> getDevice() override { return {}; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }

    boost::shared_ptr<IMemoryContext> data;
};

// struct S { int a; int b[4]; struct S *next; } s = {7, {1, 2, 3, 4}, &s};
// struct S *p = &s;
struct Program {
    Program()
        : ram(boost::make_shared<RecordingMemory>(0, 0x10000, 0)),
          process(boost::make_shared<RamProcess>()),
          info(boost::make_shared<CompilerInfo>(CompilerInfo::tarn32())),
          inForce(info) {
        ram->setRecording(false);
        process->data = boost::make_shared<MemoryContext>(
            boost::shared_ptr<IMemoryContext>(), process, ram, false, 4, 0, "data", 0, 0x10000,
            std::vector<std::string>(), false, false);
        frame = boost::make_shared<GeneralStackTraceContext>(
            "Frame_0", "main", boost::shared_ptr<IContextBase>(), process, 0x8F0, 0, 0, 0, 0, 0,
            registers);
        // The operations take sizes and the frame from the API, as in an
        // evaluation; names are made below, so it has no symbol information.
        api = boost::make_shared<SymbolAccessorApi>(boost::shared_ptr<ISymbolInformation>(), frame,
                                                    info, boost::make_shared<SymtabList>(),
                                                    boost::make_shared<SymtabList>());

        auto field = [](const std::string& name, boost::shared_ptr<link_variant> chain) {
            auto entry = boost::make_shared<symtab>(name);
            entry->type = chain;
            entry->etype = findChainEnd(chain);
            return entry;
        };
        structType = makeSpecifierLink(NOUN_STRUCT);
        auto def = boost::make_shared<structdef>();
        def->tag = "S";
        auto b = makeDeclaratorLink(DECL_ARRAY, 4);
        b->next = makeSpecifierLink(NOUN_INT, IT_INT);
        auto next = makeDeclaratorLink(DECL_POINTER);
        next->next = structType;
        def->fields = field("a", makeSpecifierLink(NOUN_INT, IT_INT));
        def->fields->next = field("b", b);
        def->fields->next->next = field("next", next);
        def->size = layoutFields(def->fields, true, *info);
        structType->setStructdef(def);
        pointerType = makeDeclaratorLink(DECL_POINTER);
        pointerType->next = structType;

        const unsigned char image[] = {7, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0,
                                       3, 0, 0, 0, 4, 0, 0, 0, 0, 1, 0, 0};
        ram->setBytes(0x100, std::vector<unsigned char>(image, image + sizeof image));
        ram->setBytes(0x200, {0, 1, 0, 0});
        for (const char* name : {"a", "b", "next", "p"}) {
            value v;
            v.sym = boost::make_shared<symtab>(name);
            v.sym->locsize = -1;
            names[name] = v;
        }
    }

    ~Program() {
        // The struct refers to itself through its next member.
        structType->getStructdef()->fields.reset();
    }

    // A variable as the name lookup gives it: a copy of its chain.
    value variable(const boost::shared_ptr<link_variant>& chain, uint64_t address) {
        value v;
        v.type = cloneTypeChain(chain);
        v.etype = findChainEnd(v.type);
        v.location =
            createAbsoluteLocation(frame, "data", address, get_bit_sizeof(chain, *info) / 8, 0, 0);
        v.lvalue = true;
        return v;
    }
    value s() { return variable(structType, 0x100); }
    value p() { return variable(pointerType, 0x200); }

    boost::shared_ptr<RecordingMemory> ram;
    boost::shared_ptr<RamProcess> process;
    boost::shared_ptr<CompilerInfo> info;
    ScopedCompilerInfo inForce;
    std::vector<uint64_t> registers;
    boost::shared_ptr<GeneralStackTraceContext> frame;
    SymbolApiPtr api;
    boost::shared_ptr<link_variant> structType;
    boost::shared_ptr<link_variant> pointerType;
    std::map<std::string, value> names;
};

// One round of the eight expressions; the results are fetched as the walk
// fetches a statement's value.
int64_t evaluateRound(Program& program) {
    auto& n = program.names;
    const SymbolApiPtr& api = program.api;
    auto fetched = [&api](const value& v) { return static_cast<int64_t>(fetchValue(v, api).val); };
    int64_t sum = 0;
    // s.a
    sum += fetched(exec_access(api, OP_DOT, program.s(), n["a"]));
    // s.b[2]
    sum += fetched(exec_access(api, OP_INDEX, exec_access(api, OP_DOT, program.s(), n["b"]),
                               makeInt(IT_SINT, 2)));
    // s.a * 3 + 1
    value product = exec_binary_operation(api, "*", exec_access(api, OP_DOT, program.s(), n["a"]),
                                          makeInt(IT_SINT, 3), false);
    sum += fetched(exec_binary_operation(api, "+", product, makeInt(IT_SINT, 1), false));
    // (char)s.a
    auto charType = boost::make_shared<symtab>("tn");
    charType->type = charType->etype = makeSpecifierLink(NOUN_INT, IT_CHAR);
    sum += fetched(exec_cast(api, charType, exec_access(api, OP_DOT, program.s(), n["a"])));
    // sizeof(s)
    sum += fetched(exec_unary_operation(api, OP_SIZEOF, program.s()));
    // &s.b[1]
    sum += fetched(exec_unary_operation(
        api, '&',
        exec_access(api, OP_INDEX, exec_access(api, OP_DOT, program.s(), n["b"]),
                    makeInt(IT_SINT, 1))));
    // s.a > 2 ? s.a : 0
    value condition = exec_logical_operation(
        api, ">", exec_access(api, OP_DOT, program.s(), n["a"]), makeInt(IT_SINT, 2));
    sum += valueToBool(condition, api) ? fetched(exec_access(api, OP_DOT, program.s(), n["a"]))
                                       : fetched(makeInt(IT_SINT, 0));
    // p->next->a
    sum += fetched(
        exec_access(api, OP_ARROW, exec_access(api, OP_ARROW, program.p(), n["next"]), n["a"]));
    return sum;
}

void BM_WatchExpressionValues(benchmark::State& state) {
    Program program;
    for (auto _ : state) benchmark::DoNotOptimize(evaluateRound(program));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 8);
    state.counters["us_per_expression"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * 8,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert, benchmark::Counter::kIs1000);
}
BENCHMARK(BM_WatchExpressionValues)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------------------
// GDB for scale.

const char* const kGdbExpressions[] = {"s.a",       "s.b[2]",  "s.a * 3 + 1",       "(char)s.a",
                                       "sizeof(s)", "&s.b[1]", "s.a > 2 ? s.a : 0", "p->next->a"};

// CPU seconds of one gdb process printing the expressions `rounds` times.
double gdbCpuSeconds(const std::string& program, const std::string& dir, int rounds) {
    const std::string script = dir + "/print.gdb";
    {
        std::ofstream out(script);
        for (int r = 0; r < rounds; ++r)
            for (const char* e : kGdbExpressions) out << "print " << e << "\n";
    }
    pid_t child = fork();
    if (child == 0) {
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(126);
        execlp("gdb", "gdb", "-batch", "-nx", "-x", script.c_str(), program.c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (child < 0 || wait4(child, &status, 0, &usage) < 0 || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0)
        return -1;
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void measureGdb() {
    char pattern[] = "/tmp/exprvaluesXXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir) return;
    const std::string source = std::string(dir) + "/program.c";
    const std::string program = std::string(dir) + "/program";
    {
        std::ofstream out(source);
        out << "struct S { int a; int b[4]; struct S *next; };\n"
               "struct S s = {7, {1, 2, 3, 4}, &s};\n"
               "struct S *p = &s;\n"
               "int main(void) { return s.a; }\n";
    }
    const std::string compile = "cc -g -O0 -o " + program + " " + source + " >/dev/null 2>&1";
    if (std::system(compile.c_str()) != 0) {
        std::printf("gdb comparison skipped: no C compiler\n");
        return;
    }
    const int rounds = 250;
    const double none = gdbCpuSeconds(program, dir, 0);
    const double many = gdbCpuSeconds(program, dir, rounds);
    if (none < 0 || many < 0) {
        std::printf("gdb comparison skipped: gdb did not run\n");
        return;
    }
    const double perExpression = (many - none) / (rounds * 8.0) * 1e6;
    std::printf("gdb: %.1f us CPU per expression (%d prints, start-up %.3f s excluded)\n",
                perExpression, rounds * 8, none);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    measureGdb();
    return 0;
}
