#ifndef LIBCOMMON_CONTEXT_MESSAGECONTEXT_H
#define LIBCOMMON_CONTEXT_MESSAGECONTEXT_H

#include "libcommon/context/contextbase.h"
#include "libcommon/imessagecontext.h"

#include <boost/shared_ptr.hpp>
#include <string>

// The one implementation of a message channel. Every status sent reaches
// every handler, in the order of connecting; threshold and active flag are
// only stored and published.
class MessageContext : public ContextBase<IMessageContext> {
public:
    // The id is "Msg_" and a process-wide counter. The parent may be empty;
    // a child does not forward its messages to its parent.
    MessageContext(boost::shared_ptr<IMessageContext>& parent, const std::string& name);

    std::string getName() override;
    void setThreshold(Severity severity) override;
    Severity getThreshold() const override;
    void setActive(bool active) override;
    bool isActive() const override;
    void sendMessage(const IStatus& status) override;
    boost::signals2::connection addMessageHandler(
        const MessageSignal::slot_type& handler) const override;

    json_spirit::Object getProperties() override;
    void setProperties(json_spirit::Object& properties) override;

private:
    std::string name;
    Severity threshold;
    bool active;
    mutable MessageSignal messageSignal;
};

#endif
