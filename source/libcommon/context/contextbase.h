#ifndef LIBCOMMON_CONTEXT_CONTEXTBASE_H
#define LIBCOMMON_CONTEXT_CONTEXTBASE_H

// ContextBase<T>: the one implementation of IContextBase, instantiated for
// each specialised context interface T. Also the id counters and the
// property-list lookups that every context uses.

#include "libcommon/core/json_spirit.h"
#include "libcommon/icontextbase.h"
#include "libcommon/stringconstants.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>

class IDeviceContext;
class IMemoryContext;
class IMessageContext;
class IRegistersContext;
class IRunControlContext;
class IStackTraceContext;
class ISymbolContext;
class IToolContext;

template <class T>
class ContextBase : public T,
                    private boost::noncopyable,
                    public boost::enable_shared_from_this<ContextBase<T>> {
public:
    ContextBase(std::string id, boost::shared_ptr<IContextBase> parent)
        : id(std::move(id)), parent(std::move(parent)), owner(0) {}

    std::string getId() const override { return id; }

    boost::shared_ptr<IContextBase> getParent() override { return parent; }

    // "ID" first, then "ParentID" when there is a parent. Derived classes
    // append behind this list, so "ID" always leads.
    json_spirit::Object getProperties() override {
        json_spirit::Object properties;
        properties.push_back(json_spirit::Pair(PROP_ID, id));
        boost::shared_ptr<IContextBase> p = getParent();
        if (p)
            properties.push_back(json_spirit::Pair(PROP_PARENT_ID, p->getId()));
        return properties;
    }

    // The base knows no key, so it ignores them all. The using-declaration
    // keeps further overloads of the interface (such as the tool's const
    // one) visible next to this override.
    using T::setProperties;
    void setProperties(json_spirit::Object&) override {}

    boost::signals2::connection addContextChangedHandler(
        const IContextBase::ContextChangedSlot& slot) const override {
        return contextChanged.connect(slot);
    }

    int getOwner() const override { return owner; }
    void setOwner(int newOwner) override { owner = newOwner; }

    // Calls every handler with this context. The context must be owned by
    // a shared_ptr: otherwise shared_from_this() throws bad_weak_ptr and
    // nothing is signalled.
    virtual void signalContextChanged() {
        boost::shared_ptr<IContextBase> self = this->shared_from_this();
        contextChanged(self);
    }

protected:
    // The object's address as text, for log lines.
    std::string adrStr() const {
        std::ostringstream out;
        out << std::setw(8) << std::hex << reinterpret_cast<uintptr_t>(this);
        return out.str();
    }

private:
    const std::string id;
    const boost::shared_ptr<IContextBase> parent;
    mutable IContextBase::ContextChangedSignal contextChanged;
    int owner;
};

// Ids of the kinds of context that number themselves. Each kind has its own
// process-wide counter that starts at 0 and is incremented before use, so
// the first id of a kind ends in 1. The counters are atomic: contexts may
// be created on several threads, and an atomic costs nothing here while it
// keeps ids unique within the run.
std::string makeRegistersContextId(const std::string& name);  // "Reg_<name>_<n>"
std::string makeMemoryContextId(const std::string& name);     // "Mem_<name>_<n>"
std::string makeMessageContextId();                           // "Msg_<n>"

// The first value stored under key, copied to out; false if there is none.
bool findProperty(const json_spirit::Object& properties, const std::string& key,
                  json_spirit::Value& out);
// As findProperty, but a value of another kind than the wanted one throws a
// CoreException (ERR_OPERATION_FAILED, "Property <key> is not of expected
// type").
bool findTypedProperty(const json_spirit::Object& properties, const std::string& key,
                       json_spirit::Value_type kind, json_spirit::Value& out);
// The integer under key, or fallback if the key is absent; a value of
// another kind throws as findTypedProperty does.
int findIntegerProperty(const json_spirit::Object& properties, const std::string& key,
                        int fallback);

#endif
