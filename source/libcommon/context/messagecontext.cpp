#include "libcommon/context/messagecontext.h"

#include "libcommon/core/status.h"
#include "libcommon/stringconstants.h"

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
        // Any integer is kept as given (Severity has a fixed base type, so
        // every int is a value of it); a front end may use its own levels.
        if (pair.name_ == MSG_SET_SEVERITY_THRESHOLD)
            threshold = static_cast<Severity>(pair.value_.get_int());
        else if (pair.name_ == MSG_SET_REPORTING_ACTIVE)
            active = pair.value_.get_bool();
    }
    signalContextChanged();
}
