#ifndef TESTS_IMAGE_TEMPFILES_H
#define TESTS_IMAGE_TEMPFILES_H

// A scratch directory per test, removed afterwards, and whole-file helpers.

#include <boost/filesystem.hpp>

#include <fstream>
#include <iterator>
#include <string>

class TempDir {
public:
    TempDir()
        : mPath(boost::filesystem::temp_directory_path() /
                boost::filesystem::unique_path("libcommon-image-%%%%-%%%%-%%%%")) {
        boost::filesystem::create_directories(mPath);
    }
    ~TempDir() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(mPath, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return (mPath / name).string(); }

    std::string write(const std::string& name, const std::string& content) const {
        const std::string path = file(name);
        std::ofstream out(path.c_str(), std::ios::binary);
        out << content;
        return path;
    }

private:
    boost::filesystem::path mPath;
};

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path.c_str(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

#endif
