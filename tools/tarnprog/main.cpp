// tarnprog: programs, verifies, reads and erases the flash of a chip, a
// simulated one out of the box.
//
//     tarnprog program TN8R64 firmware.hex --verify
//     tarnprog verify TN8R64 firmware.hex
//     tarnprog read TN8R64 prog 0 0x10000 -o dump.hex
//
// Exit codes: 0 success, 1 verify mismatch, 2 usage error (command line or
// input file), 3 target or device error, 130 interrupted.

#include "devices.h"
#include "errors.h"
#include "eval.h"
#include "image.h"
#include "target.h"

#include "libcommon/core/json_spirit.h"
#include "libcommon/core/progress.h"
#include "libcommon/core/progresscallbacks.h"
#include "libcommon/core/status.h"
#include "libcommon/device/devicemodel.h"
#include "libcommon/flash/flashprogrammer.h"

#include <CLI/CLI.hpp>
#include <boost/filesystem/path.hpp>

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>

namespace tarnprog {

namespace {

volatile std::sig_atomic_t interrupted = 0;

// The first Ctrl-C asks the planner to stop between two erase units; a
// second one ends the program at once.
extern "C" void onInterrupt(int) {
    interrupted = 1;
    std::signal(SIGINT, SIG_DFL);
}

std::string hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string hexRange(uint64_t first, uint64_t size) {
    return FlashProgrammer::formatHexRange(first, first + size - 1);
}

// The work counter of the library, shown as the console progress lines and
// cancelled by Ctrl-C. Each task starts its own bar.
class ConsoleProgress : public IntermediateResult {
public:
    explicit ConsoleProgress(bool show) : show(show) {}
    ~ConsoleProgress() override { finishLine(); }

    void beginTask(const std::string& description, unsigned int total) override {
        finishLine();
        // Each task counts from zero here; the library's counter would carry
        // the old count on.
        workCompleted = 0;
        pending = 0;
        IntermediateResult::beginTask(description, total);
        if (show && total != 0) {
            line.reset(new ProgramProgressCallback);
            line->setCurrentTask(description);
            line->setTotalAmount(static_cast<int>(total));
            line->increase(0);
        }
    }
    // The line is redrawn in steps of half a percent at most, so a terminal
    // is not flooded with a line per erase unit.
    void worked(unsigned int amount) override {
        IntermediateResult::worked(amount);
        pending += amount;
        if (line && (pending * 200 >= getWorkTotal() || getWorkCompleted() == getWorkTotal())) {
            line->increase(static_cast<int>(pending));
            pending = 0;
        }
    }
    void done() override {
        IntermediateResult::done();
        finishLine();
    }
    bool isCanceled() const override { return interrupted || IntermediateResult::isCanceled(); }

private:
    void finishLine() {
        if (line) {
            line->finish();
            line.reset();
        }
    }

    bool show;
    uint64_t pending = 0;
    std::unique_ptr<ProgramProgressCallback> line;
};

struct Globals {
    std::vector<std::string> deviceDirs;
    std::string packs;
    std::string state;
    bool quiet = false;
    bool json = false;
};

// One command's run: the device, its target with the saved state, the
// summary, and the clock.
class Session {
public:
    Session(const Globals& globals, const std::string& deviceName)
        : globals(globals), start(std::chrono::steady_clock::now()) {
        device = DeviceDirectory(globals.deviceDirs, globals.packs).load(deviceName);
        target = createSimulatedTarget(device);
        statePath =
            globals.state.empty() ? ".tarnprog/" + device->getName() + ".state" : globals.state;
        summary.push_back(json_spirit::Pair("device", device->getName()));
    }

    // Reads the chip's state; only a session that did may save it again, so
    // an unreadable file is never overwritten.
    void loadState() {
        target->load(statePath);
        loaded = true;
    }
    void saveState() {
        if (loaded) {
            target->save(statePath);
        }
    }

    // Runs a command that changes the chip: the state is saved whatever
    // happens, since the chip keeps what was done before a failure.
    template <typename Work>
    void change(Work work) {
        loadState();
        try {
            work();
        } catch (...) {
            saveState();
            throw;
        }
        saveState();
    }

    void say(const std::string& text) const {
        if (!globals.json) {
            std::cout << text << '\n';
        }
    }
    ConsoleProgress& progress() {
        if (!console) {
            console.reset(new ConsoleProgress(!globals.quiet && isatty(STDERR_FILENO)));
        }
        return *console;
    }
    void put(const std::string& key, const json_spirit::Value& value) {
        summary.push_back(json_spirit::Pair(key, value));
    }
    void putReport(const FlashProgrammer::Report& report) {
        put("erased", report.bytesErased);
        put("written", report.bytesWritten);
        put("verified", report.bytesVerified);
        put("skipped_units", report.unitsSkipped);
        put("units", static_cast<uint64_t>(report.units.size()));
        put("image_bytes", report.imageBytes);
        put("read", report.bytesRead);
        put("erase_commands", report.eraseCommands);
        put("program_commands", report.programCommands);
        put("checksum_commands", report.checksumCommands);
        put("unlocked_units", report.unlockCommands);
    }
    // Ends the summary with the time and the traffic at the chip.
    void finish() {
        console.reset();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        put("seconds", seconds);
        const TargetCounters c = target->getCounters();
        json_spirit::Object counters;
        counters.push_back(json_spirit::Pair("commands", c.commands));
        counters.push_back(json_spirit::Pair("erase_commands", c.eraseCommands));
        counters.push_back(json_spirit::Pair("program_commands", c.programCommands));
        counters.push_back(json_spirit::Pair("checksum_commands", c.checksumCommands));
        counters.push_back(json_spirit::Pair("bytes_read", c.bytesRead));
        counters.push_back(json_spirit::Pair("bytes_written", c.bytesWritten));
        counters.push_back(json_spirit::Pair("bytes_erased", c.bytesErased));
        put("target", counters);
        if (globals.json) {
            std::cout << json_spirit::write(summary) << std::endl;
        }
    }

    const Globals& globals;
    boost::shared_ptr<DIDevice> device;
    boost::shared_ptr<ITarget> target;
    std::string statePath;
    json_spirit::Object summary;

private:
    std::chrono::steady_clock::time_point start;
    bool loaded = false;
    std::unique_ptr<ConsoleProgress> console;
};

const char* actionText(FlashProgrammer::UnitAction action) {
    switch (action) {
        case FlashProgrammer::UnitSkip:
            return "unchanged, skipped";
        case FlashProgrammer::UnitRewrite:
            return "erase + program";
        default:
            return "program";
    }
}

// The plan in runs of neighbouring units with one action.
void sayPlan(Session& session, const FlashProgrammer::Report& report) {
    const auto& units = report.units;
    for (size_t i = 0; i < units.size();) {
        size_t j = i + 1;
        while (j < units.size() && units[j].action == units[i].action &&
               units[j].unlock == units[i].unlock &&
               units[j].address == units[j - 1].address + units[j - 1].size) {
            ++j;
        }
        const uint64_t end = units[j - 1].address + units[j - 1].size;
        char text[160];
        std::snprintf(text, sizeof text, "  %-23s %5zu unit%s  %s%s",
                      FlashProgrammer::formatHexRange(units[i].address, end - 1).c_str(), j - i,
                      j - i == 1 ? " " : "s", units[i].unlock ? "unlock, " : "",
                      actionText(units[i].action));
        session.say(text);
        i = j;
    }
}

void sayMismatch(const FlashProgrammer::Report& report) {
    if (report.mismatches == 0) {
        return;
    }
    char text[200];
    std::snprintf(text, sizeof text,
                  "verify failed: %llu byte%s differ%s, the first at %s (expected 0x%02X, read "
                  "0x%02X)",
                  static_cast<unsigned long long>(report.mismatches),
                  report.mismatches == 1 ? "" : "s", report.mismatches == 1 ? "s" : "",
                  hex(report.firstMismatch).c_str(), report.expectedByte, report.foundByte);
    throw ToolError(EXIT_MISMATCH, text);
}

// ---- commands ----------------------------------------------------------------

// Runs a check of the user's input: what it refuses is a usage error.
template <typename Check>
void asUsage(Check check) {
    try {
        check();
    } catch (const CoreException& e) {
        throw UsageError(e.what());
    }
}

struct ImageArgs {
    std::string file;
    std::string format = "auto";
    std::string base;

    FlashImage load(ITarget& target) const {
        uint64_t address = 0;
        if (!base.empty()) {
            address = parseNumber(base, "--base");
        } else {
            // A binary image starts at the flash by default.
            const std::vector<FlashRegion> regions = target.flash().getRegions();
            address = regions.empty() ? 0 : regions.front().start;
        }
        return loadImage(file, parseImageFormat(format), !base.empty(), address);
    }
};

void listDevices(const Globals& globals) {
    DeviceDirectory directory(globals.deviceDirs, globals.packs);
    json_spirit::Array list;
    for (const KnownDevice& known : directory.list()) {
        json_spirit::Object entry;
        entry.push_back(json_spirit::Pair("name", known.name));
        entry.push_back(json_spirit::Pair("path", known.path));
        std::string architecture;
        try {
            architecture = directory.load(known.path)->getArchitecture();
        } catch (const std::exception& e) {
            architecture = "(unreadable)";
            std::cerr << "tarnprog: warning: " << e.what() << '\n';
        }
        entry.push_back(json_spirit::Pair("architecture", architecture));
        list.push_back(entry);
        if (!globals.json) {
            std::printf("%-12s %-16s %s\n", known.name.c_str(), architecture.c_str(),
                        known.path.c_str());
        }
    }
    if (globals.json) {
        std::cout << json_spirit::write(json_spirit::Value(list)) << std::endl;
    }
}

// The interface of an address space carries no name; the loader's model
// does.
std::string spaceName(const boost::shared_ptr<DIAddressSpace>& space) {
    const auto* model = dynamic_cast<const ModelAddressSpace*>(space.get());
    return model ? model->getName() : "?";
}

void showInfo(Session& s) {
    DIDevice& device = *s.device;
    s.say(device.getName() + ": " + device.getArchitecture() + ", family " + device.getFamily() +
          ", " + s.target->describe());
    s.say("address spaces:");
    for (const auto& space : device.getAddressSpaces()) {
        char text[160];
        std::snprintf(text, sizeof text, "  %-16s %s", spaceName(space).c_str(),
                      hexRange(space->getStart(), space->getSize()).c_str());
        s.say(text);
        for (const auto& segment : space->getMemorySegments()) {
            std::snprintf(text, sizeof text, "    %-18s %-23s page %u", segment->getName().c_str(),
                          hexRange(segment->getStart(), segment->getSize()).c_str(),
                          segment->getPageSize());
            s.say(text);
        }
    }
    s.say("flash:");
    json_spirit::Array regions;
    for (const FlashRegion& region : s.target->flash().getRegions()) {
        char text[160];
        std::snprintf(text, sizeof text, "  %-23s erase unit %u bytes, page %u bytes",
                      hexRange(region.start, region.size).c_str(), region.unitSize,
                      region.pageSize);
        s.say(text);
        json_spirit::Object entry;
        entry.push_back(json_spirit::Pair("start", region.start));
        entry.push_back(json_spirit::Pair("size", region.size));
        entry.push_back(json_spirit::Pair("erase_unit", region.unitSize));
        entry.push_back(json_spirit::Pair("page", region.pageSize));
        regions.push_back(entry);
    }
    s.say("controller: " + s.target->describeController());
    s.put("architecture", device.getArchitecture());
    s.put("flash", regions);
    s.put("controller", s.target->describeController());
}

struct ProgramArgs {
    ImageArgs image;
    bool verify = false;
    bool dryRun = false;
    bool noSkip = false;
    std::string erase = "sectors";
};

void program(Session& s, const ProgramArgs& args) {
    FlashProgrammer::Options options;
    if (args.erase == "chip") {
        options.erase = FlashProgrammer::EraseChip;
    } else if (args.erase == "none") {
        options.erase = FlashProgrammer::EraseNone;
    }
    options.verify = args.verify;
    options.dryRun = args.dryRun;
    options.skipEqual = !args.noSkip;
    FlashProgrammer::Report report;
    auto work = [&]() {
        const FlashImage image = args.image.load(*s.target);
        FlashProgrammer programmer(s.target->flash());
        asUsage([&]() { programmer.checkImage(image); });
        report = programmer.program(image, options, &s.progress());
    };
    if (args.dryRun) {
        s.loadState();
        work();
    } else {
        s.change(work);
    }
    s.putReport(report);
    s.put("dry_run", args.dryRun);
    char text[240];
    std::snprintf(
        text, sizeof text,
        "%s %s: %llu image bytes in %zu erase units; %s %llu bytes, %s %llu bytes, "
        "%llu unit%s unchanged%s",
        args.dryRun ? "would program" : "programmed", s.device->getName().c_str(),
        static_cast<unsigned long long>(report.imageBytes), report.units.size(),
        args.dryRun ? "would erase" : "erased", static_cast<unsigned long long>(report.bytesErased),
        args.dryRun ? "write" : "wrote", static_cast<unsigned long long>(report.bytesWritten),
        static_cast<unsigned long long>(report.unitsSkipped), report.unitsSkipped == 1 ? "" : "s",
        args.verify && !args.dryRun ? ", verified" : "");
    if (args.dryRun) {
        sayPlan(s, report);
    }
    std::string line = text;
    if (report.unlockCommands != 0) {
        line += "; unlocked " + std::to_string(report.unlockCommands) + " locked unit" +
                (report.unlockCommands == 1 ? "" : "s") + " first";
    }
    s.say(line);
    sayMismatch(report);
}

void verify(Session& s, const ImageArgs& args) {
    s.loadState();
    const FlashImage image = args.load(*s.target);
    FlashProgrammer programmer(s.target->flash());
    asUsage([&]() { programmer.checkImage(image); });
    const FlashProgrammer::Report report = programmer.verify(image, &s.progress());
    s.putReport(report);
    s.put("mismatches", report.mismatches);
    if (report.mismatches) {
        s.put("first_mismatch", report.firstMismatch);
    }
    sayMismatch(report);
    s.say("verified " + std::to_string(report.bytesVerified) + " bytes of " + s.device->getName() +
          ": all equal");
}

struct ReadArgs {
    std::string space;
    std::string start;
    std::string size;
    std::string output;
    std::string format = "auto";
};

void read(Session& s, const ReadArgs& args) {
    const uint64_t start = parseNumber(args.start, "START");
    const uint64_t size = parseNumber(args.size, "SIZE");
    if (size == 0 || size > 0xFFFFFFFFull) {
        throw UsageError("SIZE must be between 1 and 0xffffffff");
    }
    s.loadState();
    const std::vector<unsigned char> data =
        s.target->read(args.space, start, static_cast<uint32_t>(size));
    saveImage(args.output, parseImageFormat(args.format), start, data);
    s.put("read", static_cast<uint64_t>(data.size()));
    s.say("read " + std::to_string(data.size()) + " bytes of " + args.space + " at " + hex(start) +
          " into " + args.output);
}

struct EraseArgs {
    bool chip = false;
    std::string start;
    std::string size;
};

void erase(Session& s, const EraseArgs& args) {
    if (args.chip == !args.start.empty()) {
        throw UsageError("erase needs either --chip or START and SIZE");
    }
    FlashProgrammer::Report report;
    uint64_t start = 0, size = 0;
    if (!args.chip) {
        start = parseNumber(args.start, "START");
        size = parseNumber(args.size, "SIZE");
        if (size == 0) {
            throw UsageError("SIZE must not be 0");
        }
    }
    s.change([&]() {
        FlashProgrammer programmer(s.target->flash());
        if (!args.chip) {
            asUsage([&]() { programmer.eraseUnitsOf(start, size); });
        }
        report = args.chip ? programmer.eraseAll(&s.progress())
                           : programmer.erase(start, size, &s.progress());
    });
    s.putReport(report);
    s.say("erased " + std::to_string(report.bytesErased) + " bytes of " + s.device->getName() +
          (args.chip ? " (chip erase)"
                     : " in " + std::to_string(report.units.size()) + " erase units"));
}

struct RangeArgs {
    std::string start;
    std::string size;

    // The whole flash when no range is given.
    std::pair<uint64_t, uint64_t> resolve(ITarget& target) const {
        if (start.empty()) {
            const std::vector<FlashRegion> regions = target.flash().getRegions();
            return {regions.front().start, regions.back().end() - regions.front().start};
        }
        if (size.empty()) {
            throw UsageError("give START and SIZE, or neither for the whole flash");
        }
        return {parseNumber(start, "START"), parseNumber(size, "SIZE")};
    }
};

void lock(Session& s, const RangeArgs& args, bool locking) {
    s.change([&]() {
        const auto range = args.resolve(*s.target);
        if (locking) {
            s.target->protection().lock(range.first, range.second);
        } else {
            s.target->protection().unlock(range.first, range.second);
        }
    });
    for (const std::string& line : s.target->protection().describe()) {
        s.say(line);
    }
}

void showProtection(Session& s) {
    s.loadState();
    json_spirit::Array lines;
    for (const std::string& line : s.target->protection().describe()) {
        s.say(line);
        lines.push_back(line);
    }
    s.put("protection", lines);
}

void setSecurity(Session& s, int level, bool force) {
    if (level != 0 && !force) {
        throw UsageError("a security level can lock the chip for good; add --force to set it");
    }
    s.change([&]() { s.target->protection().setSecurityLevel(level); });
    s.say("security level " + std::to_string(level) + " set on " + s.device->getName());
}

struct UserPageArgs {
    std::string output;
    std::string input;
    std::string offset = "0";
};

void userPage(Session& s, const UserPageArgs& args) {
    if (args.output.empty() == args.input.empty()) {
        throw UsageError("userpage needs either -o FILE to read or --write FILE");
    }
    if (!args.output.empty()) {
        s.loadState();
        const std::vector<unsigned char> data = s.target->protection().readUserPage();
        saveImage(args.output, ImageFormat::Binary, 0, data);
        s.say("read the " + std::to_string(data.size()) + "-byte user page into " + args.output);
        return;
    }
    const FlashImage image = loadImage(args.input, ImageFormat::Binary, true, 0);
    const std::vector<unsigned char>& data = image.getSegments().front().data;
    s.change([&]() {
        s.target->protection().writeUserPage(parseNumber(args.offset, "--offset"), data);
    });
    s.say("wrote " + std::to_string(data.size()) + " bytes into the user page");
}

void fuses(Session& s, const std::vector<std::string>& settings) {
    auto show = [&s]() {
        const uint64_t value = s.target->protection().readFuses();
        s.put("fuses", value);
        s.say("fuses: " + hex(value));
    };
    if (settings.empty()) {
        s.loadState();
        show();
        return;
    }
    std::vector<std::pair<int, bool>> changes;
    for (const std::string& setting : settings) {
        const size_t equals = setting.find('=');
        const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
        if (value != "0" && value != "1") {
            throw UsageError("fuse setting '" + setting + "' is not INDEX=0 or INDEX=1");
        }
        changes.emplace_back(static_cast<int>(parseNumber(setting.substr(0, equals), "INDEX")),
                             value == "1");
    }
    s.change([&]() {
        for (const auto& change : changes) {
            s.target->protection().writeFuse(change.first, change.second);
        }
    });
    show();
}

// Reports a failure: one line on standard error, and the summary with the
// error when JSON was asked for.
int fail(const Globals& globals, Session* session, ExitCode code, const std::string& message) {
    std::cerr << "tarnprog: " << (code == EXIT_MISMATCH ? "" : "error: ") << message << '\n';
    if (globals.json) {
        if (session) {
            session->put("error", message);
            session->put("exit_code", static_cast<int>(code));
            try {
                session->finish();
            } catch (const std::exception&) {
            }
        } else {
            json_spirit::Object failure;
            failure.push_back(json_spirit::Pair("error", message));
            failure.push_back(json_spirit::Pair("exit_code", static_cast<int>(code)));
            std::cout << json_spirit::write(failure) << std::endl;
        }
    }
    return code;
}

}  // namespace

unsigned long long parseNumber(const std::string& text, const std::string& what) {
    size_t used = 0;
    unsigned long long value = 0;
    try {
        value = std::stoull(text, &used, 0);
    } catch (const std::exception&) {
        used = 0;
    }
    unsigned long long scale = 1;
    if (used != 0 && used + 1 == text.size()) {
        const char suffix = text.back();
        scale = suffix == 'K' || suffix == 'k' ? 1024 : suffix == 'M' ? 1024 * 1024 : 0;
    } else if (used != text.size()) {
        scale = 0;
    }
    if (used == 0 || scale == 0 || text[0] == '-' || value > ~0ull / scale) {
        throw UsageError(what + " '" + text + "' is not a number");
    }
    return value * scale;
}

int run(int argc, char** argv) {
    CLI::App app(
        "tarnprog: programs the flash of Tarn and Cortex-M parts; by default a simulated "
        "chip, kept in a state file between runs.");
    app.set_version_flag("--version", "tarnprog " LIBCOMMON_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    Globals globals;
    app.add_option("--device-dir", globals.deviceDirs,
                   "look for device files here first (repeatable)");
    app.add_option("--packs", globals.packs,
                   "extensions directory of the installed part packs (default: ../extensions "
                   "beside the program)");
    app.add_option("--state", globals.state,
                   "state file of the simulated chip (default .tarnprog/DEVICE.state)");
    app.add_flag("-q,--quiet", globals.quiet, "no progress lines");
    app.add_flag("--json", globals.json, "print a JSON summary on standard output");

    std::string deviceName;
    auto addDevice = [&deviceName](CLI::App* command) {
        command->add_option("DEVICE", deviceName, "device name, or path to a device file")
            ->required();
    };
    auto addImage = [](CLI::App* command, ImageArgs& image) {
        command->add_option("FILE", image.file, "image: Intel HEX (.hex), ELF program or raw binary")
            ->required();
        command->add_option("--base", image.base, "load address of a binary image");
        command->add_option("--format", image.format, "image format: auto, hex or bin")
            ->check(CLI::IsMember({"auto", "hex", "bin"}));
    };

    CLI::App* devices = app.add_subcommand("devices", "list the known device files");
    EvalArgs evalArgs;
    CLI::App* evalCmd = addEvalCommand(app, evalArgs);
    CLI::App* info = app.add_subcommand("info", "show a part's memories and flash");
    addDevice(info);

    ProgramArgs programArgs;
    CLI::App* programCmd = app.add_subcommand("program", "write an image into the flash");
    addDevice(programCmd);
    addImage(programCmd, programArgs.image);
    programCmd->add_flag("--verify", programArgs.verify, "check every unit written");
    programCmd
        ->add_option("--erase", programArgs.erase,
                     "sectors: erase units the image touches (default); chip: all; "
                     "none: program over what is there")
        ->check(CLI::IsMember({"chip", "sectors", "none"}));
    programCmd->add_flag("--dry-run", programArgs.dryRun,
                         "show what would be erased and written; change nothing");
    programCmd->add_flag("--no-skip", programArgs.noSkip,
                         "rewrite erase units that already hold the image");

    ImageArgs verifyArgs;
    CLI::App* verifyCmd = app.add_subcommand("verify", "compare an image with the flash");
    addDevice(verifyCmd);
    addImage(verifyCmd, verifyArgs);

    ReadArgs readArgs;
    CLI::App* readCmd = app.add_subcommand("read", "read a memory into a file");
    addDevice(readCmd);
    readCmd->add_option("SPACE", readArgs.space, "address space or memory, e.g. prog")->required();
    readCmd->add_option("START", readArgs.start, "first address")->required();
    readCmd->add_option("SIZE", readArgs.size, "bytes to read")->required();
    readCmd->add_option("-o,--output", readArgs.output, "output: .hex for Intel HEX, else binary")
        ->required();
    readCmd->add_option("--format", readArgs.format, "output format: auto, hex or bin")
        ->check(CLI::IsMember({"auto", "hex", "bin"}));

    EraseArgs eraseArgs;
    CLI::App* eraseCmd = app.add_subcommand("erase", "erase the chip or whole erase units");
    addDevice(eraseCmd);
    eraseCmd->add_flag("--chip", eraseArgs.chip, "erase the whole flash");
    eraseCmd->add_option("START", eraseArgs.start, "first address, on an erase unit border");
    eraseCmd->add_option("SIZE", eraseArgs.size, "bytes, whole erase units");

    CLI::App* protectionCmd =
        app.add_subcommand("protection", "show lock bits, lock regions and security");
    addDevice(protectionCmd);

    RangeArgs lockArgs;
    CLI::App* lockCmd = app.add_subcommand("lock", "lock flash against writing");
    CLI::App* unlockCmd = app.add_subcommand("unlock", "unlock flash");
    for (CLI::App* command : {lockCmd, unlockCmd}) {
        addDevice(command);
        command->add_option("START", lockArgs.start, "first address (default: whole flash)");
        command->add_option("SIZE", lockArgs.size, "bytes");
    }

    int level = 0;
    bool force = false;
    CLI::App* securityCmd = app.add_subcommand("security", "set the security level");
    addDevice(securityCmd);
    securityCmd->add_option("LEVEL", level, "0, 1 or 2")->required()->check(CLI::Range(0, 2));
    securityCmd->add_flag("--force", force, "needed for a level that can lock the chip for good");

    UserPageArgs userPageArgs;
    CLI::App* userPageCmd = app.add_subcommand("userpage", "read or write the user page");
    addDevice(userPageCmd);
    userPageCmd->add_option("-o,--output", userPageArgs.output, "read the page into FILE");
    userPageCmd->add_option("--write", userPageArgs.input, "write FILE (binary) into the page");
    userPageCmd->add_option("--offset", userPageArgs.offset, "where in the page --write starts");

    std::vector<std::string> fuseSettings;
    CLI::App* fusesCmd = app.add_subcommand("fuses", "show or set general purpose fuse bits");
    addDevice(fusesCmd);
    fusesCmd->add_option("SETTING", fuseSettings, "INDEX=0 or INDEX=1, one per fuse to set");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? EXIT_OK : EXIT_USAGE;
    }

    std::signal(SIGINT, onInterrupt);
    std::unique_ptr<Session> session;
    try {
        if (evalCmd->parsed()) {
            return runEval(evalArgs, globals.json);
        }
        if (devices->parsed()) {
            listDevices(globals);
            return EXIT_OK;
        }
        session.reset(new Session(globals, deviceName));
        Session& s = *session;
        if (info->parsed()) {
            showInfo(s);
        } else if (programCmd->parsed()) {
            program(s, programArgs);
        } else if (verifyCmd->parsed()) {
            verify(s, verifyArgs);
        } else if (readCmd->parsed()) {
            read(s, readArgs);
        } else if (eraseCmd->parsed()) {
            erase(s, eraseArgs);
        } else if (protectionCmd->parsed()) {
            showProtection(s);
        } else if (lockCmd->parsed() || unlockCmd->parsed()) {
            lock(s, lockArgs, lockCmd->parsed());
        } else if (securityCmd->parsed()) {
            setSecurity(s, level, force);
        } else if (userPageCmd->parsed()) {
            userPage(s, userPageArgs);
        } else if (fusesCmd->parsed()) {
            fuses(s, fuseSettings);
        }
        s.finish();
        return EXIT_OK;
    } catch (const std::exception& e) {
        ExitCode code = EXIT_TARGET;
        if (const ToolError* tool = dynamic_cast<const ToolError*>(&e)) {
            code = tool->getCode();
        } else if (dynamic_cast<const InterruptedException*>(&e)) {
            code = EXIT_INTERRUPTED;
        }
        return fail(globals, session.get(), code, e.what());
    } catch (const char* text) {
        // Some drivers refuse what they do not implement with a bare text.
        return fail(globals, session.get(), EXIT_TARGET, text);
    }
}

}  // namespace tarnprog

int main(int argc, char** argv) {
    return tarnprog::run(argc, argv);
}
