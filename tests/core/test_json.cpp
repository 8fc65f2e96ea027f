// The JSON value layer: kinds, getters and compact writing.

#include "libcommon/core/json_spirit.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

using namespace json_spirit;

TEST(Json, GettersThrowOnTheWrongKind) {
    Value s("text");
    EXPECT_EQ(str_type, s.type());
    EXPECT_THROW(s.get_int(), std::runtime_error);
    EXPECT_THROW(s.get_obj(), std::runtime_error);
    EXPECT_THROW(Value(1).get_str(), std::runtime_error);
    EXPECT_THROW(Value(true).get_int64(), std::runtime_error);
    EXPECT_THROW(Value().get_bool(), std::runtime_error);
    EXPECT_THROW(Value(1.5).get_array(), std::runtime_error);
    EXPECT_TRUE(Value().is_null());
    EXPECT_DOUBLE_EQ(3.0, Value(3).get_real()) << "an integer reads as a real";
}

TEST(Json, IntegersKeepTheirFullRange) {
    Value big(std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), big.get_uint64());
    EXPECT_EQ("18446744073709551615", write(big));
    Value neg(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ("-9223372036854775808", write(neg));
    EXPECT_EQ(-5, Value(-5).get_int());
}

TEST(Json, ObjectsKeepInsertionOrderAndDuplicates) {
    Object o;
    o.push_back(Pair("b", 1));
    o.push_back(Pair("a", Value()));
    o.push_back(Pair("b", false));
    Array inner;
    inner.push_back(Value(Object()));
    inner.push_back(Value(Array()));
    inner.push_back(Value(0.5));
    o.push_back(Pair("list", inner));
    EXPECT_EQ("{\"b\":1,\"a\":null,\"b\":false,\"list\":[{},[],0.5]}", write(o));
}

TEST(Json, StringsAreEscaped) {
    EXPECT_EQ("\"a\\\"b\\\\c\\n\\t\\u0001\"", write(Value("a\"b\\c\n\t\x01")));
    EXPECT_EQ("\"caf\xc3\xa9\"", write(Value("caf\xc3\xa9"))) << "UTF-8 passes through";
}

TEST(Json, ValuesCompareByKindAndContent) {
    EXPECT_EQ(Value(1), Value(1u));
    EXPECT_NE(Value(1), Value(1.0));
    EXPECT_NE(Value("1"), Value(1));
    Object o;
    o.push_back(Pair("k", "v"));
    EXPECT_EQ(Value(o), Value(o));
}
