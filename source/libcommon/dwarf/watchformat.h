#ifndef LIBCOMMON_DWARF_WATCHFORMAT_H
#define LIBCOMMON_DWARF_WATCHFORMAT_H

// The text of an evaluated watch expression, as a debugger's print shows
// it: integers in decimal, characters as their code and quoted form
// (65 'A'), bool as true or false, enums by their constant's name where one
// matches, floats with the digits that round-trip, pointers and functions
// in hexadecimal, structs as {name = value, ...}, arrays as {a, b, ...} and
// arrays of characters as quoted strings, with runs of more than ten equal
// elements folded into "<repeats N times>".
//
// Aggregates are read once, whole, through the value's location; a read
// failure there is passed on as the location throws it.

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

struct CompilerInfo;
struct link_variant;
struct value;

// The value's text. The value must be fetched (as an evaluation gives it).
std::string formatWatchValue(const value& v, const CompilerInfo& info);

// The text of the object of type chain whose bytes start at bytes[offset].
std::string formatWatchBytes(const boost::shared_ptr<link_variant>& chain,
                             const std::vector<unsigned char>& bytes, size_t offset,
                             const CompilerInfo& info);

// A character as a debugger quotes it: 'A', '\n', '\000', '\310'.
std::string quoteWatchChar(unsigned char c, char quote);

#endif
