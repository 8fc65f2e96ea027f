#ifndef LIBCOMMON_CORE_VERSION_H
#define LIBCOMMON_CORE_VERSION_H

// Stand-in for Poco::OSP::Version, which no distribution package carries:
// "major[.minor[.revision[.qualifier]]]", ordered by the numbers first and
// the qualifier text last.

#include <stdexcept>
#include <string>

class Version {
public:
    Version();
    // Throws BundleResolveException for a text that is not a version.
    explicit Version(const std::string& text);
    Version(int major, int minor, int revision, const std::string& qualifier = "");

    int getMajor() const { return major; }
    int getMinor() const { return minor; }
    int getRevision() const { return revision; }
    const std::string& getQualifier() const { return qualifier; }
    std::string toString() const;

    bool operator<(const Version& other) const;
    bool operator==(const Version& other) const;
    bool operator!=(const Version& other) const { return !(*this == other); }

private:
    int major;
    int minor;
    int revision;
    std::string qualifier;
};

// Stand-in for Poco::OSP::BundleResolveException.
class BundleResolveException : public std::runtime_error {
public:
    explicit BundleResolveException(const std::string& message) : std::runtime_error(message) {}
};

#endif
