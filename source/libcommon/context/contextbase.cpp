#include "libcommon/context/contextbase.h"

#include "libcommon/core/status.h"

#include <atomic>

namespace {
std::atomic<int> registersCounter(0);
std::atomic<int> memoryCounter(0);
std::atomic<int> messageCounter(0);
}  // namespace

std::string makeRegistersContextId(const std::string& name) {
    return "Reg_" + name + "_" + std::to_string(++registersCounter);
}

std::string makeMemoryContextId(const std::string& name) {
    return "Mem_" + name + "_" + std::to_string(++memoryCounter);
}

std::string makeMessageContextId() {
    return "Msg_" + std::to_string(++messageCounter);
}

bool findProperty(const json_spirit::Object& properties, const std::string& key,
                  json_spirit::Value& out) {
    for (const json_spirit::Pair& pair : properties) {
        if (pair.name_ == key) {
            out = pair.value_;
            return true;
        }
    }
    return false;
}

bool findTypedProperty(const json_spirit::Object& properties, const std::string& key,
                       json_spirit::Value_type kind, json_spirit::Value& out) {
    if (!findProperty(properties, key, out))
        return false;
    if (out.type() != kind)
        CoreException::createAndThrow("", ERR_OPERATION_FAILED,
                                      "Property %s is not of expected type", key.c_str());
    return true;
}

int findIntegerProperty(const json_spirit::Object& properties, const std::string& key,
                        int fallback) {
    json_spirit::Value value;
    if (!findTypedProperty(properties, key, json_spirit::int_type, value))
        return fallback;
    return value.get_int();
}
