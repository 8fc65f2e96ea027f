#ifndef LIBCOMMON_CORE_STATUS_H
#define LIBCOMMON_CORE_STATUS_H

// Status records and the exception tree of the library.

#include "libcommon/core/json_spirit.h"
#include "libcommon/core/packet.h"
#include "libcommon/core/utilities.h"
#include "libcommon/istatus.h"

#include <boost/shared_ptr.hpp>
#include <cstdarg>
#include <exception>
#include <string>

class GenericError;

class Status : public IStatus {
public:
    Status();
    Status(ErrorCode code, const char* format, ...) LC_PRINTF(3, 4);
    Status(Severity severity, ErrorCode code, const char* format, ...) LC_PRINTF(4, 5);
    Status(unsigned int severity, const std::string& component, ErrorCode code,
           const char* format, ...) LC_PRINTF(5, 6);
    Status(const GenericError& e, const std::string& component);
    Status(const Status&) = default;
    Status& operator=(const Status&) = default;

    std::string getComponent() const override;
    unsigned int getSeverity() const override;
    ErrorCode getErrorCode() const override;
    const std::string& getMessage() const override;
    boost::shared_ptr<IStatus> getChild() const override;
    void setChild(boost::shared_ptr<IStatus> child) override;
    bool isOk() const override;
    bool matchesSeverity(unsigned int severity) const override;
    std::string toJson() const override;

    virtual ~Status();
    virtual bool isOk(bool acceptInfo) const;
    virtual void reset();

    void setError(ErrorCode code, const char* format, ...) LC_PRINTF(3, 4);
    void setError(ErrorCode code, const std::string& message);
    void setWarning(ErrorCode code, const char* format, ...) LC_PRINTF(3, 4);
    void setWarning(ErrorCode code, const std::string& message);
    void setInfo(const char* format, ...) LC_PRINTF(2, 3);
    void setInfo(const std::string& message);
    void setFields(unsigned int severity, ErrorCode code, const char* format, ...)
        LC_PRINTF(4, 5);
    void setFields(unsigned int severity, const std::string& component, ErrorCode code,
                   const char* format, ...) LC_PRINTF(5, 6);
    void setFields(unsigned int severity, const std::string& component, ErrorCode code,
                   const char* format, va_list args) LC_PRINTF(5, 0);
    void setFields(unsigned int severity, const std::string& component, ErrorCode code,
                   const std::string& message);

    void setServiceName(const std::string& name) { serviceName = name; }
    const std::string& getServiceName() const { return serviceName; }

private:
    boost::shared_ptr<IStatus> child;
    unsigned int severity;
    std::string component;
    ErrorCode errorCode;
    std::string message;
    std::string serviceName;
};

// printf into a 1024-byte buffer: the result is cut to 1023 characters.
// Exposed because every status-building class in the library shares it.
std::string formatLimited(const char* format, va_list args) LC_PRINTF(1, 0);
// The same cut for a finished text, which is never read as a format.
std::string cutLimited(const std::string& text);

class CoreException : public std::exception {
public:
    explicit CoreException(boost::shared_ptr<IStatus> status);
    boost::shared_ptr<IStatus> getStatus() const { return status; }
    const char* what() const noexcept override;

    [[noreturn]] static void createAndThrow(const std::string& component, ErrorCode code,
                                            const char* format, ...) LC_PRINTF(3, 4);
    [[noreturn]] static void createAndThrow(const std::string& component, ErrorCode code,
                                            const std::string& message);

private:
    boost::shared_ptr<IStatus> status;
};

class GenericError : public CoreException {
public:
    GenericError();
    explicit GenericError(int exitCode);
    explicit GenericError(const char* format, ...) LC_PRINTF(2, 3);
    GenericError(int exitCode, const char* format, ...) LC_PRINTF(3, 4);
    explicit GenericError(const std::string& message);
    GenericError(int exitCode, const std::string& message);
    GenericError(const GenericError& other);
    GenericError& operator=(const GenericError& other);

    void add(const std::string& context);
    void add(const char* format, ...) LC_PRINTF(2, 3);
    void clear() { message.clear(); }
    const std::string& getString() const { return message; }
    int getExitCode() const { return exitCode; }
    const char* what() const noexcept override { return message.c_str(); }

    bool operator==(const GenericError& other) const;
    bool operator!=(const GenericError& other) const { return !(*this == other); }

private:
    std::string message;
    int exitCode;
};

class ResponseError : public GenericError {
public:
    ResponseError();
    explicit ResponseError(const Packet& response);
    ResponseError(const Packet& response, const std::string& message);
    ResponseError(const Packet& response, const char* format, ...) LC_PRINTF(3, 4);

    const Packet& getResponse() const { return response; }
    unsigned char getResponseId() const;
    unsigned char getResponseCode() const;

    bool operator==(const ResponseError& other) const;
    bool operator!=(const ResponseError& other) const { return !(*this == other); }

private:
    Packet response;
};

class UsbDisconnectedError : public GenericError {
public:
    UsbDisconnectedError();
};

class LockedFlashError : public GenericError {
public:
    LockedFlashError();
};

class CmsisStopPollingError : public GenericError {
public:
    CmsisStopPollingError() = default;
};

// Offered to clients to end a cancelled operation; the library never raises it.
class InterruptedException : public GenericError {
public:
    InterruptedException() = default;
    explicit InterruptedException(const std::string& message) : GenericError(message) {}
};

// Error of the command layer; what() gives the rendered JSON report.
class ErrorDescr : public std::exception {
public:
    ErrorDescr(int code, const std::string& service, const std::string& format);
    std::string toJson();
    const char* what() const noexcept override { return json.c_str(); }

    std::string format;
    int code;
    int time = 0;
    std::string service;
    json_spirit::Array params;
    int severity = 0;
    int altCode = 0;
    std::string altOrg;
    std::string json;
};

#endif
