#include "libcommon/core/status.h"

#include "libcommon/core/logging.h"

#include <cstdio>

namespace {

const std::size_t kMessageBuffer = 1024;

// The one blank status every GenericError refers to. Nobody changes it
// after load, so sharing it between threads is safe.
const boost::shared_ptr<IStatus>& sharedBlankStatus() {
    static const boost::shared_ptr<IStatus> blank(new Status());
    return blank;
}

}  // namespace

std::string formatLimited(const char* format, va_list args) {
    char buffer[kMessageBuffer];
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (n <= 0) return std::string();
    return std::string(buffer, std::min<std::size_t>(static_cast<std::size_t>(n), kMessageBuffer - 1));
}

std::string cutLimited(const std::string& text) {
    return text.size() < kMessageBuffer ? text : text.substr(0, kMessageBuffer - 1);
}

// ---- Status ---------------------------------------------------------------

Status::Status() : severity(SeverityNone), errorCode(ERR_NONE) {}

Status::Status(ErrorCode code, const char* format, ...) : severity(SeverityError), errorCode(code) {
    va_list args;
    va_start(args, format);
    message = formatLimited(format, args);
    va_end(args);
}

Status::Status(Severity sev, ErrorCode code, const char* format, ...)
    : severity(static_cast<unsigned int>(sev)), errorCode(code) {
    va_list args;
    va_start(args, format);
    message = formatLimited(format, args);
    va_end(args);
}

Status::Status(unsigned int sev, const std::string& comp, ErrorCode code, const char* format, ...)
    : severity(sev), component(comp), errorCode(code) {
    va_list args;
    va_start(args, format);
    message = formatLimited(format, args);
    va_end(args);
}

Status::Status(const GenericError& e, const std::string& comp)
    : severity(SeverityError), component(comp), errorCode(ERR_GENERAL),
      message(cutLimited(e.getString())) {}

Status::~Status() = default;

std::string Status::getComponent() const { return component; }
unsigned int Status::getSeverity() const { return severity; }
ErrorCode Status::getErrorCode() const { return errorCode; }
const std::string& Status::getMessage() const { return message; }
boost::shared_ptr<IStatus> Status::getChild() const { return child; }
void Status::setChild(boost::shared_ptr<IStatus> c) { child = c; }
bool Status::isOk() const { return severity == SeverityNone; }
bool Status::isOk(bool acceptInfo) const {
    return isOk() || (acceptInfo && errorCode == ERR_NONE);
}
bool Status::matchesSeverity(unsigned int) const { return false; }

void Status::reset() {
    severity = SeverityNone;
    component.clear();
    errorCode = ERR_NONE;
    message.clear();
}

std::string Status::toJson() const {
    if (errorCode == ERR_NONE) return std::string();
    json_spirit::Object o;
    o.push_back(json_spirit::Pair("Code", static_cast<int>(errorCode)));
    o.push_back(json_spirit::Pair("Time", 0));
    if (!serviceName.empty()) o.push_back(json_spirit::Pair("Service", serviceName));
    if (!message.empty()) o.push_back(json_spirit::Pair("Format", message));
    o.push_back(json_spirit::Pair("Severity", severity));
    o.push_back(json_spirit::Pair("AltOrg", "Velmora"));
    return json_spirit::write(o);
}

#define LC_FORMAT_INTO(target, format)     \
    do {                                   \
        va_list args_;                     \
        va_start(args_, format);           \
        target = formatLimited(format, args_); \
        va_end(args_);                     \
    } while (0)

void Status::setError(ErrorCode code, const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    setFields(SeverityError, std::string(), code, text);
}
void Status::setError(ErrorCode code, const std::string& text) {
    setFields(SeverityError, std::string(), code, cutLimited(text));
}
void Status::setWarning(ErrorCode code, const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    setFields(SeverityWarning, std::string(), code, text);
}
void Status::setWarning(ErrorCode code, const std::string& text) {
    setFields(SeverityWarning, std::string(), code, cutLimited(text));
}
void Status::setInfo(const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    setFields(SeverityInfo, std::string(), ERR_NONE, text);
}
void Status::setInfo(const std::string& text) {
    setFields(SeverityInfo, std::string(), ERR_NONE, cutLimited(text));
}
void Status::setFields(unsigned int sev, ErrorCode code, const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    setFields(sev, std::string(), code, text);
}
void Status::setFields(unsigned int sev, const std::string& comp, ErrorCode code,
                       const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    setFields(sev, comp, code, text);
}
void Status::setFields(unsigned int sev, const std::string& comp, ErrorCode code,
                       const char* format, va_list args) {
    setFields(sev, comp, code, formatLimited(format, args));
}
void Status::setFields(unsigned int sev, const std::string& comp, ErrorCode code,
                       const std::string& text) {
    severity = sev;
    component = comp;
    errorCode = code;
    message = text;
}

// ---- CoreException --------------------------------------------------------

CoreException::CoreException(boost::shared_ptr<IStatus> s) : status(s) {}

const char* CoreException::what() const noexcept {
    return status ? status->getMessage().c_str() : "nullstatus";
}

void CoreException::createAndThrow(const std::string& component, ErrorCode code,
                                   const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    createAndThrow(component, code, text);
}

void CoreException::createAndThrow(const std::string& component, ErrorCode code,
                                   const std::string& message) {
    boost::shared_ptr<Status> status(new Status());
    status->setFields(SeverityError, component, code, message);
    if ((gLogMask & LOG_MASK_ERROR) && BackendLogger::error_enabled(component)) {
        BackendLogger::error(component, message);
    }
    throw CoreException(status);
}

// ---- GenericError and children --------------------------------------------

GenericError::GenericError() : CoreException(sharedBlankStatus()), exitCode(1) {}
GenericError::GenericError(int code) : CoreException(sharedBlankStatus()), exitCode(code) {}
GenericError::GenericError(const char* format, ...)
    : CoreException(sharedBlankStatus()), exitCode(1) {
    LC_FORMAT_INTO(message, format);
}
GenericError::GenericError(int code, const char* format, ...)
    : CoreException(sharedBlankStatus()), exitCode(code) {
    LC_FORMAT_INTO(message, format);
}
GenericError::GenericError(const std::string& text)
    : CoreException(sharedBlankStatus()), exitCode(1) {
    add(text);
}
GenericError::GenericError(int code, const std::string& text)
    : CoreException(sharedBlankStatus()), exitCode(code) {
    add(text);
}
// A copy refers to the shared blank status, never to the source's status.
GenericError::GenericError(const GenericError& other)
    : CoreException(sharedBlankStatus()), message(other.message), exitCode(other.exitCode) {}
GenericError& GenericError::operator=(const GenericError& other) {
    message = other.message;
    exitCode = other.exitCode;
    return *this;
}

void GenericError::add(const std::string& context) {
    if (message.empty()) {
        message = context;
    } else if (!context.empty() && context.back() == '.') {
        message = context + " " + message;
    } else {
        message = context + ". " + message;
    }
}

void GenericError::add(const char* format, ...) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    add(text);
}

bool GenericError::operator==(const GenericError& other) const {
    return exitCode == other.exitCode && message == other.message;
}

ResponseError::ResponseError() = default;
ResponseError::ResponseError(const Packet& r) : response(r) {}
ResponseError::ResponseError(const Packet& r, const std::string& text)
    : GenericError(text), response(r) {}
ResponseError::ResponseError(const Packet& r, const char* format, ...) : response(r) {
    std::string text;
    LC_FORMAT_INTO(text, format);
    add(text);
}

unsigned char ResponseError::getResponseId() const {
    if (response.empty()) throw GenericError("Could not get response ID. Response packet is empty.");
    return response[0];
}

unsigned char ResponseError::getResponseCode() const {
    if (response.size() < 3) {
        throw GenericError("Could not get response code. Response packet is too small.");
    }
    return response[2];
}

bool ResponseError::operator==(const ResponseError& other) const {
    return GenericError::operator==(other) &&
           static_cast<const std::vector<unsigned char>&>(response) ==
               static_cast<const std::vector<unsigned char>&>(other.response);
}

UsbDisconnectedError::UsbDisconnectedError()
    : GenericError(std::string("The USB device has been disconnected")) {}
LockedFlashError::LockedFlashError() : GenericError(std::string("The flash region is locked.")) {}

// ---- ErrorDescr -------------------------------------------------------------

ErrorDescr::ErrorDescr(int c, const std::string& s, const std::string& f)
    : format(f), code(c), service(s) {
    toJson();
}

std::string ErrorDescr::toJson() {
    if (code == 0) {
        json.clear();
        return json;
    }
    json_spirit::Object o;
    o.push_back(json_spirit::Pair("Code", code));
    if (time != 0) o.push_back(json_spirit::Pair("Time", time));
    if (!service.empty()) o.push_back(json_spirit::Pair("Service", service));
    if (!format.empty()) o.push_back(json_spirit::Pair("Format", format));
    if (!params.empty()) o.push_back(json_spirit::Pair("Params", params));
    if (severity != 0) o.push_back(json_spirit::Pair("Severity", severity));
    if (altCode != 0) o.push_back(json_spirit::Pair("AltCode", altCode));
    if (!altOrg.empty()) o.push_back(json_spirit::Pair("AltOrg", altOrg));
    json = json_spirit::write(o);
    return json;
}
