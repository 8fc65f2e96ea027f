#include "image.h"

#include "elf.h"
#include "errors.h"

#include "libcommon/image/hexwriter.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/filesystem/path.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace tarnprog {

namespace {

std::string systemError() {
    return std::strerror(errno);
}

}  // namespace

ImageFormat parseImageFormat(const std::string& text) {
    if (text == "auto") {
        return ImageFormat::Auto;
    }
    if (text == "hex") {
        return ImageFormat::Hex;
    }
    if (text == "bin") {
        return ImageFormat::Binary;
    }
    throw UsageError("unknown image format '" + text + "' (auto, hex or bin)");
}

bool isHexFile(const std::string& path, ImageFormat format) {
    if (format != ImageFormat::Auto) {
        return format == ImageFormat::Hex;
    }
    const std::string extension =
        boost::algorithm::to_lower_copy(boost::filesystem::path(path).extension().string());
    return extension == ".hex" || extension == ".ihex" || extension == ".ihx";
}

namespace {

// The library's record parser, one line at a time, so that a fault can name
// its line. Blank lines are allowed; everything behind the end record is
// ignored, as the format says.
FlashImage loadHex(const std::string& path, std::istream& in) {
    FlashImage image;
    uint64_t base = 0;
    std::string line;
    unsigned lineNumber = 0;
    while (std::getline(in, line)) {
        ++lineNumber;
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        try {
            std::istringstream text(line);
            common::HexRecord record(text, true);
            switch (record.getType()) {
                case common::HexRecord::Data: {
                    const auto data = record.getData();
                    image.add(base + record.getAddress(), *data);
                    break;
                }
                case common::HexRecord::EndOfFile:
                    return image;
                case common::HexRecord::ExtendedSegmentAddress:
                case common::HexRecord::ExtendedLinearAddress:
                    base = record.getExtendedAddress();
                    break;
                default:
                    break;  // start addresses mean nothing to a programmer
            }
        } catch (const std::exception& e) {
            throw UsageError(path + ":" + std::to_string(lineNumber) + ": " + e.what());
        }
    }
    throw UsageError(path + ":" + std::to_string(lineNumber) +
                     ": the file ends without an end-of-file record; it is truncated");
}

}  // namespace

FlashImage loadImage(const std::string& path, ImageFormat format, bool haveBase, uint64_t base) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw UsageError("cannot open image " + path + ": " + systemError());
    }
    FlashImage image;
    if (format == ImageFormat::Auto && !haveBase && isElfFile(path)) {
        image = loadElfImage(path);
    } else if (isHexFile(path, format)) {
        if (haveBase) {
            throw UsageError("--base applies to binary images; " + path +
                             " is Intel HEX and carries its own addresses");
        }
        image = loadHex(path, in);
    } else {
        std::vector<unsigned char> data((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
        if (in.bad()) {
            throw UsageError("cannot read image " + path + ": " + systemError());
        }
        image.add(base, data);
    }
    if (image.empty()) {
        throw UsageError("image " + path + " holds no data");
    }
    return image;
}

void saveImage(const std::string& path, ImageFormat format, uint64_t address,
               const std::vector<unsigned char>& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw UsageError("cannot create " + path + ": " + systemError());
    }
    if (isHexFile(path, format)) {
        if (address + data.size() > 0x100000000ull) {
            throw UsageError("Intel HEX cannot hold addresses above 4 GiB");
        }
        HexWriter writer(out);
        writer.write(static_cast<unsigned>(address), data);
        writer.endFile();
    } else {
        out.write(reinterpret_cast<const char*>(data.data()),
                  static_cast<std::streamsize>(data.size()));
    }
    out.close();
    if (!out) {
        throw UsageError("cannot write " + path + ": " + systemError());
    }
}

}  // namespace tarnprog
