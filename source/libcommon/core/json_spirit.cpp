#include "libcommon/core/json_spirit.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace json_spirit {

const Value Value::null;

Value::Value() : v_(Null()) {}
Value::Value(const char* s) : v_(std::string(s)) {}
Value::Value(const std::string& s) : v_(s) {}
Value::Value(const Object& o) : v_(o) {}
Value::Value(const Array& a) : v_(a) {}
Value::Value(bool b) : v_(b) {}
Value::Value(int i) : v_(static_cast<std::int64_t>(i)) {}
Value::Value(unsigned int i) : v_(static_cast<std::int64_t>(i)), isUnsigned_(true) {}
Value::Value(long i) : v_(static_cast<std::int64_t>(i)) {}
Value::Value(unsigned long i) : v_(static_cast<std::int64_t>(i)), isUnsigned_(true) {}
Value::Value(long long i) : v_(static_cast<std::int64_t>(i)) {}
Value::Value(unsigned long long i) : v_(static_cast<std::int64_t>(i)), isUnsigned_(true) {}
Value::Value(double d) : v_(d) {}

Value_type Value::type() const {
    switch (v_.which()) {
    case 0: return null_type;
    case 1: return str_type;
    case 2: return obj_type;
    case 3: return array_type;
    case 4: return bool_type;
    case 5: return int_type;
    default: return real_type;
    }
}

namespace {
const char* typeName(Value_type t) {
    switch (t) {
    case obj_type: return "Object";
    case array_type: return "Array";
    case str_type: return "string";
    case bool_type: return "boolean";
    case int_type: return "integer";
    case real_type: return "real";
    case null_type: return "null";
    }
    return "unknown";
}

void checkType(Value_type actual, Value_type wanted) {
    if (actual != wanted) {
        throw std::runtime_error(std::string("value type is ") + typeName(actual) +
                                 " not " + typeName(wanted));
    }
}
}  // namespace

const std::string& Value::get_str() const {
    checkType(type(), str_type);
    return boost::get<std::string>(v_);
}
const Object& Value::get_obj() const {
    checkType(type(), obj_type);
    return boost::get<Object>(v_);
}
Object& Value::get_obj() {
    checkType(type(), obj_type);
    return boost::get<Object>(v_);
}
const Array& Value::get_array() const {
    checkType(type(), array_type);
    return boost::get<Array>(v_);
}
Array& Value::get_array() {
    checkType(type(), array_type);
    return boost::get<Array>(v_);
}
bool Value::get_bool() const {
    checkType(type(), bool_type);
    return boost::get<bool>(v_);
}
int Value::get_int() const {
    checkType(type(), int_type);
    return static_cast<int>(boost::get<std::int64_t>(v_));
}
std::int64_t Value::get_int64() const {
    checkType(type(), int_type);
    return boost::get<std::int64_t>(v_);
}
std::uint64_t Value::get_uint64() const {
    checkType(type(), int_type);
    return static_cast<std::uint64_t>(boost::get<std::int64_t>(v_));
}
double Value::get_real() const {
    // Integers read as reals, as a JSON reader would expect.
    if (type() == int_type) {
        return isUnsigned_ ? static_cast<double>(get_uint64()) : static_cast<double>(get_int64());
    }
    checkType(type(), real_type);
    return boost::get<double>(v_);
}

bool Value::operator==(const Value& other) const {
    if (type() != other.type()) return false;
    if (type() == int_type) return get_int64() == other.get_int64();
    return v_ == other.v_;
}

namespace {

void writeString(const std::string& s, std::string& out) {
    out += '"';
    for (unsigned char c : s) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c == 0x7F) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
}

void writeValue(const Value& v, std::string& out);

void writeObject(const Object& o, std::string& out) {
    out += '{';
    bool first = true;
    for (const Pair& p : o) {
        if (!first) out += ',';
        first = false;
        writeString(p.name_, out);
        out += ':';
        writeValue(p.value_, out);
    }
    out += '}';
}

void writeValue(const Value& v, std::string& out) {
    switch (v.type()) {
    case obj_type: writeObject(v.get_obj(), out); break;
    case array_type: {
        out += '[';
        bool first = true;
        for (const Value& e : v.get_array()) {
            if (!first) out += ',';
            first = false;
            writeValue(e, out);
        }
        out += ']';
        break;
    }
    case str_type: writeString(v.get_str(), out); break;
    case bool_type: out += v.get_bool() ? "true" : "false"; break;
    case int_type:
        out += v.is_uint64() ? std::to_string(v.get_uint64()) : std::to_string(v.get_int64());
        break;
    case real_type: {
        double d = v.get_real();
        if (!std::isfinite(d)) {
            // JSON has no spelling for these; null is what readers accept.
            out += "null";
            break;
        }
        // Shortest text that reads back as the same double.
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.15g", d);
        if (std::strtod(buf, nullptr) != d) std::snprintf(buf, sizeof buf, "%.17g", d);
        out += buf;
        break;
    }
    case null_type: out += "null"; break;
    }
}

}  // namespace

std::string write(const Value& value) {
    std::string out;
    writeValue(value, out);
    return out;
}

std::string write(const Object& object) {
    std::string out;
    writeObject(object, out);
    return out;
}

}  // namespace json_spirit
