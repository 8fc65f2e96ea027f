#ifndef LIBCOMMON_EXPR_EVALUATOR_H
#define LIBCOMMON_EXPR_EVALUATOR_H

// The value-level half of expression execution: reading values from the
// target, C's conversions, and every operator family of the interpreter at
// the target's widths. The tree walk calls these for each node; they never
// parse.
//
// Semantics:
//   - fetchValue is the only read of target memory; an assignment is the
//     only write. Values carry their location, so a value is read late (at
//     fetch) and every fetch reads the target again;
//   - arithmetic is done on the host at the widths and signedness of the
//     operation class (getOperationClass). Where C leaves the result
//     undefined on the host (signed overflow, shifts by the width or more,
//     the most negative number divided by -1) the result is the target's
//     two's-complement one; division and remainder by zero are errors;
//   - the departures from C that the front end expects are kept and marked
//     where they are made: no short-circuit of && and || (both sides were
//     evaluated before the operator runs), unsigned char and short promote
//     to unsigned int, comparisons of two pointers are signed 64-bit.
// Failures are thrown as plain C strings, or as GenericError where the
// message carries a name; failures of the location layer pass through.
// Of the API the operations use the target's sizes (getCompilerInfo()), the
// frame in which pointer targets are made (getStackTrace()) and the store
// of the format suffix (setFormatString()); evalExpression passes its API
// down to every operation. Unit code may pass an empty API: the sizes are
// then those of the CompilerInfo in force (see ScopedCompilerInfo),
// pointer targets have no frame and a format suffix is not kept.
//
//     value sum = exec_binary_operation(api, "+", makeInt(IT_SINT, 2),
//                                       makeInt(IT_SINT, 3), false);
//     valueToInt(sum, api);   // 5
//
// Not synchronised: evaluations run one at a time under the evaluation
// lock.

#include "libcommon/expr/typechains.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class SymbolAccessorApi;

typedef boost::shared_ptr<SymbolAccessorApi> SymbolApiPtr;

// Operation codes of the postfix and unary family. The other unary
// operators are passed as their character: '&', '*', '+', '-', '~', '!', and
// 'B', 'W', 'D' for BY, WO and DW.
enum UnaryOperationCode : int {
    OP_PREFIX_INCREMENT = 0,
    OP_POSTFIX_INCREMENT = 1,
    OP_PREFIX_DECREMENT = 2,
    OP_POSTFIX_DECREMENT = 3,
    OP_INDEX = 4,
    OP_DEREFERENCE = 5,
    OP_DOT = 6,
    OP_ARROW = 7,
    OP_SIZEOF = 9
};

// The value with val (and target for pointers) loaded from the target. A
// constant takes its specifier's bits; a value that is no lvalue is
// returned as it stands once its address part is set.
value fetchValue(const value& v, const SymbolApiPtr& api);

// The common subtype of two promoted arithmetic subtypes (the usual
// arithmetic conversions).
int usualArithmeticSubtype(int ct1, int ct2);

// The C conversion of sourceBits of sourceSubtype to targetSubtype; the
// result holds the target kind's bits, zero- or sign-extended to 64 bits as
// the target kind's signedness says (float kinds: their IEEE bits).
uint64_t convertScalar(const SymbolApiPtr& api, int targetSubtype, uint64_t sourceBits,
                       int sourceSubtype);

bool valueToBool(const value& v, const SymbolApiPtr& api);
int32_t valueToInt(const value& v, const SymbolApiPtr& api);
double valueToDouble(const value& v, const SymbolApiPtr& api);

// op is the operator's text ("+", "<=", "<<", ",", ...); comparison selects
// the comparison family for the relational and equality operators.
value exec_binary_operation(const SymbolApiPtr& api, const std::string& op, value left, value right,
                            bool comparison);
// "&&", "||" and the comparison operators.
value exec_logical_operation(const SymbolApiPtr& api, const std::string& op, value left,
                             value right);
// op: a UnaryOperationCode or an operator character.
value exec_unary_operation(const SymbolApiPtr& api, int op, value operand);
// op: '=' or the first character of a compound operator ('+' for "+=", '<'
// for "<<=", ...).
value exec_assignment(const SymbolApiPtr& api, char op, value left, value right);
// code: OP_INDEX, OP_DEREFERENCE, OP_DOT or OP_ARROW; for dot and arrow the
// right value carries the field name in sym.
value exec_access(const SymbolApiPtr& api, int code, value left, value right);
// The built-in functions sin, cos, exp, log and fmod; nothing runs on the
// target.
value exec_function_call(const SymbolApiPtr& api, const value& callee,
                         const std::vector<value>& arguments);
value exec_cast(const SymbolApiPtr& api, const boost::shared_ptr<symtab>& type, value operand);

#endif
