#ifndef LIBCOMMON_IMESSAGECONTEXT_H
#define LIBCOMMON_IMESSAGECONTEXT_H

// A named channel through which the back-end hands status messages to a
// front end. The channel is a pure transport: its severity threshold and
// active flag are published settings for whoever consumes the messages,
// not filters inside the channel.

#include "libcommon/icontextbase.h"
#include "libcommon/istatus.h"

#include <boost/signals2/signal.hpp>
#include <string>

// Keys that setProperties reads. They are spelled differently from the keys
// a channel reports ("SeverityThreshold", "ReportingActive"), so a list read
// back from getProperties() and fed in again changes no setting.
inline const std::string MSG_SET_SEVERITY_THRESHOLD = "MESSAGE_PROP_SEVERITY_THRESHOLD";
inline const std::string MSG_SET_REPORTING_ACTIVE = "MESSAGE_PROP_REPORTING_ACTIVE";

class IMessageContext : public IContextBase {
public:
    typedef boost::signals2::signal<void(const IStatus&)> MessageSignal;

    virtual std::string getName() = 0;
    virtual void setThreshold(Severity severity) = 0;
    virtual Severity getThreshold() const = 0;
    virtual void setActive(bool active) = 0;
    virtual bool isActive() const = 0;
    virtual void sendMessage(const IStatus& status) = 0;
    virtual boost::signals2::connection addMessageHandler(
        const MessageSignal::slot_type& handler) const = 0;
};

#endif
