#ifndef TESTS_IMAGE_HEXSAMPLES_H
#define TESTS_IMAGE_HEXSAMPLES_H

// Shared by the image tests: record texts, byte patterns and a scratch
// directory that is removed afterwards.

#include "libcommon/image/hexwriter.h"

#include <boost/filesystem.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

typedef std::vector<unsigned char> Bytes;
typedef std::vector<std::pair<unsigned, Bytes> > Chunks;

const std::string kEnd = ":00000001FF\n";

// One record with a correct checksum.
inline std::string record(unsigned address, unsigned type, const Bytes& data) {
    unsigned sum = static_cast<unsigned>(data.size()) + (address >> 8) + (address & 0xFF) + type;
    char text[16];
    std::snprintf(text, sizeof text, ":%02X%04X%02X", unsigned(data.size()), address & 0xFFFF, type);
    std::string line = text;
    for (unsigned char b : data) {
        std::snprintf(text, sizeof text, "%02X", b);
        line += text;
        sum += b;
    }
    std::snprintf(text, sizeof text, "%02X\n", (0x100 - (sum & 0xFF)) & 0xFF);
    return line + text;
}

inline Bytes counting(size_t size, unsigned first = 0) {
    Bytes data(size);
    for (size_t i = 0; i < size; ++i) {
        data[i] = static_cast<unsigned char>(first + i);
    }
    return data;
}

inline Bytes randomBytes(std::mt19937& rng, size_t size) {
    Bytes data(size);
    for (unsigned char& b : data) {
        b = static_cast<unsigned char>(rng());
    }
    return data;
}

inline Chunks segmentsOf(common::HexReader& reader) {
    Chunks result;
    for (common::HexSegment& segment : reader.getSegments()) {
        result.push_back(std::make_pair(segment.getAddress(), *segment.getData()));
    }
    return result;
}

class TempDir {
public:
    TempDir() { boost::filesystem::create_directories(mPath); }
    ~TempDir() { boost::filesystem::remove_all(mPath, mIgnored); }
    std::string file(const std::string& name) const { return (mPath / name).string(); }
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name).c_str(), std::ios::binary) << content;
        return file(name);
    }
    std::string read(const std::string& path) const {
        std::ifstream in(path.c_str(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    boost::filesystem::path mPath = boost::filesystem::temp_directory_path() /
                                    boost::filesystem::unique_path("libcommon-image-%%%%-%%%%");
    boost::system::error_code mIgnored;
};

#endif
