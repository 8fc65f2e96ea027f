#ifndef LIBCOMMON_ICONTEXTBASE_H
#define LIBCOMMON_ICONTEXTBASE_H

// The root interface of every debug context: a node known by a text id,
// with a parent, a property list that describes it and a signal that tells
// handlers when it changed.

#include "libcommon/core/json_spirit.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>
#include <string>

class IContextBase {
public:
    typedef boost::signals2::signal<void(boost::shared_ptr<IContextBase>)> ContextChangedSignal;
    typedef ContextChangedSignal::slot_type ContextChangedSlot;

    virtual ~IContextBase() {}
    virtual std::string getId() const = 0;
    // Empty for a root context.
    virtual boost::shared_ptr<IContextBase> getParent() = 0;
    virtual json_spirit::Object getProperties() = 0;
    // Acts on the keys the context knows and ignores all others.
    virtual void setProperties(json_spirit::Object& properties) = 0;
    virtual boost::signals2::connection addContextChangedHandler(
        const ContextChangedSlot& slot) const = 0;
    // A tag for the creator of the context; never interpreted by the library.
    virtual int getOwner() const = 0;
    virtual void setOwner(int owner) = 0;
};

#endif
