#include "statefile.h"

#include "errors.h"

#include <boost/crc.hpp>
#include <boost/filesystem.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace tarnprog {

namespace {

const char* const MAGIC = "tarnprog-state 1";

uint32_t crcOf(const std::string& text) {
    boost::crc_32_type crc;
    crc.process_bytes(text.data(), text.size());
    return crc.checksum();
}

[[noreturn]] void unreadable(const std::string& path, const std::string& why) {
    throw TargetError("unreadable state file " + path + ": " + why +
                      " (delete it to start from a blank chip)");
}

}  // namespace

const std::vector<unsigned char>* ChipState::find(const std::string& name) const {
    for (const auto& block : blocks) {
        if (block.first == name) {
            return &block.second;
        }
    }
    return nullptr;
}

bool loadState(const std::string& path, ChipState& state) {
    boost::system::error_code ec;
    if (!boost::filesystem::exists(path, ec)) {
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        unreadable(path, std::strerror(errno));
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        unreadable(path, std::strerror(errno));
    }
    // The seal first: nothing of a damaged file is believed.
    const size_t endLine = text.rfind("end ");
    if (text.compare(0, std::strlen(MAGIC), MAGIC) != 0) {
        unreadable(path, "not a tarnprog state file");
    }
    unsigned long sealed = 0;
    if (endLine == std::string::npos ||
        std::sscanf(text.c_str() + endLine, "end %8lx", &sealed) != 1 ||
        sealed != crcOf(text.substr(0, endLine))) {
        unreadable(path, "the file is damaged or truncated");
    }
    std::istringstream body(text.substr(0, endLine));
    std::string line;
    std::getline(body, line);  // magic
    std::string word;
    if (!(body >> word >> state.device) || word != "device") {
        unreadable(path, "no device line");
    }
    while (body >> word) {
        std::string name;
        size_t size = 0;
        if (word != "block" || !(body >> name >> size) || body.get() != '\n') {
            unreadable(path, "bad block header");
        }
        std::vector<unsigned char> bytes(size);
        if (!body.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size)) ||
            body.get() != '\n') {
            unreadable(path, "block " + name + " is cut short");
        }
        state.blocks.emplace_back(name, std::move(bytes));
    }
    return true;
}

void saveState(const std::string& path, const ChipState& state) {
    std::string text = std::string(MAGIC) + "\ndevice " + state.device + "\n";
    for (const auto& block : state.blocks) {
        text += "block " + block.first + " " + std::to_string(block.second.size()) + "\n";
        text.append(block.second.begin(), block.second.end());
        text += "\n";
    }
    char seal[32];
    std::snprintf(seal, sizeof seal, "end %08x\n", static_cast<unsigned>(crcOf(text)));
    text += seal;

    const boost::filesystem::path target(path);
    boost::system::error_code ec;
    if (target.has_parent_path()) {
        boost::filesystem::create_directories(target.parent_path(), ec);
        if (ec) {
            throw TargetError("cannot create " + target.parent_path().string() + ": " +
                              ec.message());
        }
    }
    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out) {
            throw TargetError("cannot write state file " + temporary + ": " + std::strerror(errno));
        }
    }
    boost::filesystem::rename(temporary, target, ec);
    if (ec) {
        throw TargetError("cannot replace state file " + path + ": " + ec.message());
    }
}

}  // namespace tarnprog
