#include "libcommon/context/messagecontext.h"

#include "libcommon/core/status.h"
#include "libcommon/stringconstants.h"

#include <cstdint>

namespace {

// Severity has no fixed base type, so only 0 to 31 (the smallest bit-field
// that holds SeverityInfo) are values it can carry; a front end may send
// any number. Anything outside is refused like a value of the wrong kind.
Severity thresholdFrom(const json_spirit::Value& value) {
    // The whole number, so that a wide one is not cut into a valid one.
    const std::int64_t threshold = value.get_int64();
    if (threshold < 0 || threshold > 31)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Severity threshold %lld is out of range",
                                      static_cast<long long>(threshold));
    return static_cast<Severity>(threshold);
}

}  // namespace

MessageContext::MessageContext(boost::shared_ptr<IMessageContext>& parent, const std::string& name)
    : ContextBase<IMessageContext>(makeMessageContextId(), parent),
      name(name),
      threshold(SeverityWarning),
      active(true) {}

std::string MessageContext::getName() {
    return name;
}

void MessageContext::setThreshold(Severity severity) {
    threshold = severity;
}

Severity MessageContext::getThreshold() const {
    return threshold;
}

void MessageContext::setActive(bool flag) {
    active = flag;
    // Announced also when nothing changed: a front end that set the flag
    // expects to hear back.
    signalContextChanged();
}

bool MessageContext::isActive() const {
    return active;
}

void MessageContext::sendMessage(const IStatus& status) {
    messageSignal(status);
}

boost::signals2::connection MessageContext::addMessageHandler(
    const MessageSignal::slot_type& handler) const {
    return messageSignal.connect(handler);
}

json_spirit::Object MessageContext::getProperties() {
    json_spirit::Object properties = ContextBase<IMessageContext>::getProperties();
    properties.push_back(json_spirit::Pair(MSG_CONTEXT_NAME, getName()));
    properties.push_back(
        json_spirit::Pair(MSG_SEVERITY_THRESHOLD, static_cast<int>(getThreshold())));
    properties.push_back(json_spirit::Pair(MSG_REPORTING_ACTIVE, isActive()));
    return properties;
}

void MessageContext::setProperties(json_spirit::Object& properties) {
    // The settable keys are spelled differently from the reported ones, so a
    // list read back from getProperties() changes nothing here. A value of
    // the wrong kind throws out of the walk: earlier keys stay applied and
    // nothing is signalled.
    for (const json_spirit::Pair& pair : properties) {
        if (pair.name_ == MSG_SET_SEVERITY_THRESHOLD)
            threshold = thresholdFrom(pair.value_);
        else if (pair.name_ == MSG_SET_REPORTING_ACTIVE)
            active = pair.value_.get_bool();
    }
    signalContextChanged();
}
