#include "libcommon/core/version.h"

#include <cctype>
#include <tuple>

Version::Version() : major(0), minor(0), revision(0) {}

Version::Version(int ma, int mi, int re, const std::string& q)
    : major(ma), minor(mi), revision(re), qualifier(q) {}

namespace {
int parsePart(const std::string& part, const std::string& text) {
    if (part.empty() || part.size() > 9) {
        throw BundleResolveException("Invalid version: \"" + text + "\"");
    }
    for (char c : part) {
        if (!std::isdigit(static_cast<unsigned char>(c))) {
            throw BundleResolveException("Invalid version: \"" + text + "\"");
        }
    }
    return std::stoi(part);
}
}  // namespace

Version::Version(const std::string& text) : major(0), minor(0), revision(0) {
    // Up to three numbers; the qualifier is everything behind the third dot.
    int* numbers[] = {&major, &minor, &revision};
    std::size_t pos = 0;
    for (int i = 0; i < 3; ++i) {
        std::size_t dot = text.find('.', pos);
        *numbers[i] = parsePart(text.substr(pos, dot - pos), text);
        if (dot == std::string::npos) return;
        pos = dot + 1;
    }
    qualifier = text.substr(pos);
    if (qualifier.empty()) throw BundleResolveException("Invalid version: \"" + text + "\"");
}

std::string Version::toString() const {
    std::string s = std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(revision);
    if (!qualifier.empty()) s += "." + qualifier;
    return s;
}

bool Version::operator<(const Version& o) const {
    return std::tie(major, minor, revision, qualifier) <
           std::tie(o.major, o.minor, o.revision, o.qualifier);
}

bool Version::operator==(const Version& o) const {
    return std::tie(major, minor, revision, qualifier) ==
           std::tie(o.major, o.minor, o.revision, o.qualifier);
}
