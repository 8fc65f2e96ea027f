#ifndef LIBCOMMON_EXPR_EVALUATION_H
#define LIBCOMMON_EXPR_EVALUATION_H

// The door of the expression engine.
//
// evalExpression parses a watch expression and walks its tree against the
// frame of a SymbolAccessorApi, under one process-wide evaluation lock: the
// grammar and the "API in force" that typedef look-ups and type sizes use
// are process-wide, so evaluations never overlap, whichever API they use.
// The lock is not recursive: a name resolver, the symbol information or a
// location read that starts another evaluation on the same thread blocks
// for ever.
//
//     auto api = boost::make_shared<SymbolAccessorApi>(info, frame, compilerInfo,
//                                                      types, symbols);
//     std::string format;
//     int bits = 0;
//     value v = evalExpression("counter + 1, hex", api, &format, &bits);
//     // format == "hex", bits == 32 on a 32-bit long
//
// An unknown name is no failure by itself: "nosuch" gives a value without
// a type whose sym is marked with locsize -1 (such a value serves as the
// word of a format suffix or a member name); using it anywhere else fails
// with "Could not resolve name". Callers test the type of the result.
//
// Failures of evalExpression are the engine's own: plain C-string texts
// (const char*) and GenericError ("Syntax error: parsing stopped at ...",
// before anything of the text has run), plus what the location layer
// throws for a failed read or write. Nothing is rolled back: in
// "a = 1; b = 1/0" the write to a stays.
//
// The three evaluateExpressionAs... functions are for code that has a
// process but no SymbolAccessorApi: they go through the process's own
// expression service (which a plug-in implements, usually on top of
// evalExpression), in the process's innermost frame, and catch every
// failure:
//   - a running process (no frames): status error ERR_OPERATION_FAILED
//     "Running";
//   - no expression context: ERR_INVALID_CONTEXT "Failed to get expression
//     context while trying evaluating expression";
//   - a failing evaluation: ERR_EXPRESSION "Failed to evaluate expression"
//     (not for the raw byte array, which keeps the status it had and gives
//     what it got so far).

#include "libcommon/expr/typechains.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

class IProcessContext;
class Status;
class SymbolAccessorApi;

// Evaluates every statement of the text ("a = 1; a + 2") and gives the
// value of the last, already read from the target. format, when given,
// receives the API's format string (the last "expr, name" suffix); sizeBits
// the size of the value's type, 0 for a value without one.
value evalExpression(const std::string& text, boost::shared_ptr<SymbolAccessorApi> api,
                     std::string* format = nullptr, int* sizeBits = nullptr);

// The value as a 64-bit number; a function's word address on a device
// whose "prog" memory has addresses below 4 bytes is doubled to a byte
// address. 0 on failure.
int64_t evaluateExpressionAsInt64(Status& status, boost::shared_ptr<IProcessContext> process,
                                  const std::string& expression);
// The absolute data address of the value, never doubled. 0 on failure.
int64_t evaluateExpressionAsAbsoluteDataAddress(Status& status,
                                                boost::shared_ptr<IProcessContext> process,
                                                const std::string& expression);
// The value's raw bytes; empty on failure.
std::vector<unsigned char> evaluateExpressionAsRawByteArray(
    Status& status, boost::shared_ptr<IProcessContext> process, const std::string& expression);

#endif
