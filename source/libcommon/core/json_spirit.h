#ifndef LIBCOMMON_CORE_JSON_SPIRIT_H
#define LIBCOMMON_CORE_JSON_SPIRIT_H

// A small JSON value type with the shape of the json_spirit library, which
// Debian does not package: Value, Object (an ordered vector of Pair that
// allows duplicate names), Array, kind getters that throw
// std::runtime_error on a wrong kind, and compact one-line writing.

#include <boost/variant.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace json_spirit {

enum Value_type { obj_type, array_type, str_type, bool_type, int_type, real_type, null_type };

class Value;
struct Pair;
typedef std::vector<Pair> Object;
typedef std::vector<Value> Array;

class Value {
public:
    Value();
    Value(const char* s);
    Value(const std::string& s);
    Value(const Object& o);
    Value(const Array& a);
    Value(bool b);
    Value(int i);
    Value(unsigned int i);
    Value(long i);
    Value(unsigned long i);
    Value(long long i);
    Value(unsigned long long i);
    Value(double d);

    Value_type type() const;
    bool is_null() const { return type() == null_type; }
    // True for integers that were stored from an unsigned type.
    bool is_uint64() const { return isUnsigned_; }

    const std::string& get_str() const;
    const Object& get_obj() const;
    Object& get_obj();
    const Array& get_array() const;
    Array& get_array();
    bool get_bool() const;
    int get_int() const;
    std::int64_t get_int64() const;
    std::uint64_t get_uint64() const;
    double get_real() const;

    bool operator==(const Value& other) const;
    bool operator!=(const Value& other) const { return !(*this == other); }

    static const Value null;

private:
    struct Null {
        bool operator==(const Null&) const { return true; }
    };
    typedef boost::variant<Null, std::string, boost::recursive_wrapper<Object>,
                           boost::recursive_wrapper<Array>, bool, std::int64_t, double>
        Variant;
    Variant v_;
    bool isUnsigned_ = false;
};

struct Pair {
    Pair() = default;
    Pair(const std::string& name, const Value& value) : name_(name), value_(value) {}
    bool operator==(const Pair& other) const {
        return name_ == other.name_ && value_ == other.value_;
    }
    std::string name_;
    Value value_;
};

// Compact one-line rendering, no blanks between tokens.
std::string write(const Value& value);
std::string write(const Object& object);

}  // namespace json_spirit

#endif
