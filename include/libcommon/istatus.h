#ifndef LIBCOMMON_ISTATUS_H
#define LIBCOMMON_ISTATUS_H

#include <boost/shared_ptr.hpp>
#include <string>

// Error numbering. Small general codes, and the library's own band from
// 0x20000 on; 0x20000 itself (ERR_NONE) means "no error code".
enum ErrorCode {
    ERR_GENERAL = 1,
    ERR_COMMAND = 3,
    ERR_INVALID_ARGUMENT = 0xF,
    ERR_INVALID_CONTEXT = 0x10,
    ERR_INVALID_REGISTER = 0x11,
    ERR_EXPRESSION = 0x12,
    ERR_NONE = 0x20000,
    ERR_ADDRESS_RANGE = 0x20009,
    ERR_MISSING_MEMORY_INFO = 0x20012,
    ERR_FILE_IO = 0x20015,
    ERR_UNSUPPORTED_REGISTER = 0x20016,
    ERR_HEX_FORMAT = 0x20017,
    ERR_HEX_CHECKSUM = 0x20018,
    ERR_DEVICE_INFO = 0x2001D,
    ERR_OPERATION_FAILED = 0x2001F,
    ERR_NOT_SUPPORTED = 0x20022,
    ERR_NOT_DECLARED = 0x20023,
    ERR_NOT_FOUND = 0x20025,
    ERR_DEVICE_SETUP = 0x2002F,
    ERR_DEVICE_FILE = 0x20030,
    ERR_ACCESS_REFUSED = 0x20031,
    ERR_FLASH_TIMEOUT = 0x20032,
    ERR_NVM_CONTROLLER = 0x20203
};

// Severity of a status record; stored as an unsigned 32-bit value. The base
// type is fixed so that any integer a front end sends as a threshold is a
// defined value of the type, named or not.
enum Severity : int {
    SeverityNone = 0,
    SeverityWarning = 2,
    SeverityError = 4,
    SeverityInfo = 16
};

// The status record as callers see it. Deliberately without a virtual
// destructor of its own: statuses are owned through shared_ptr<Status>
// or shared_ptr<IStatus> created from a Status, which deletes correctly.
class IStatus {
public:
    virtual std::string getComponent() const = 0;
    virtual unsigned int getSeverity() const = 0;
    virtual ErrorCode getErrorCode() const = 0;
    virtual const std::string& getMessage() const = 0;
    virtual boost::shared_ptr<IStatus> getChild() const = 0;
    virtual void setChild(boost::shared_ptr<IStatus> child) = 0;
    virtual bool isOk() const = 0;
    virtual bool matchesSeverity(unsigned int severity) const = 0;
    virtual std::string toJson() const = 0;

protected:
    ~IStatus() = default;
};

#endif
