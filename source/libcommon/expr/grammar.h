#ifndef LIBCOMMON_EXPR_GRAMMAR_H
#define LIBCOMMON_EXPR_GRAMMAR_H

// The syntax of watch expressions: C expressions and type names with a
// debugger's additions (scope prefixes "{fn,file}name", the BY/WO/DW memory
// reads, "__mem_" memory-space qualifiers, "a::b" names, the "expr, fmt"
// suffix). parseExpressionText turns a text into one parse tree; the tree
// walks of the declaration and evaluation code read its shape:
//   - every grammar rule that matched gives a node with that rule's id, also
//     a rule that only passes through to another one;
//   - a "_helper" rule (the right-recursive tail of a left-associative
//     operator chain) that matched nothing gives a node without children;
//   - every literal a production matched ("(", "->", "sizeof", "int") gives
//     a leaf child (GrammarRule::literal) holding exactly that text;
//   - a token rule (IDENTIFIER_SINGLE, INT_CONSTANT_HEX, ...) gives a node
//     with one leaf child that covers the whole token.
//
// Two productions differ from the plain C-like reading of the rules, to
// keep parsing linear in the length and nesting of the text:
//   - assignment_expression is logical_or_expression followed by either
//     assignment_operator assignment_expression or
//     conditional_expression_helper, so the shared operand is parsed once;
//   - "sizeof" tries "(" type_name ")" before a unary expression, so that
//     sizeof(T) of a typedef name T measures the type.
// Operators are tried longest first wherever one is a prefix of another
// ("<=" before "<"), and the type keywords ("int", "struct", "const", ...)
// match only as whole words, so a typedef named int32_t is not read as
// "int" followed by garbage.
//
// Whether a word is a typedef name is a question for the symbol tables,
// not for the grammar: the caller passes a TypedefQuery, asked at parse
// time for a word that stands directly (no blank in front) where a type
// specifier may stand. So "(foo)x" is a cast when foo is a typedef name,
// and a parenthesised name otherwise.
//
// Failure: a text that is not consumed up to its end throws GenericError
// "Syntax error: parsing stopped at <rest of the text>.". Nothing else is
// thrown by the parser itself; a throwing TypedefQuery counts as "no".
//
// The grammar's rules are built once per process and never change after.
// Parsing is not reentrant (the typedef query is held process-wide for the
// length of one parse): evaluations serialise it with the evaluation lock,
// and single-threaded callers (tests, tools) may call it directly.
//
//     ParseNode tree = parseExpressionText("a.b[2] + 1", noTypedefs);
//     tree.rule == GrammarRule::translation_unit;
//     tree.children[0].rule == GrammarRule::stmt;
//
// The node texts point into the parsed string: the tree must not outlive it.

#include "libcommon/expr/typechains.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

enum class GrammarRule : int {
    literal = 0,  // a leaf: a literal or the text of a token
    translation_unit,
    stmt,
    expression,
    expression_helper,
    assignment_expression,
    assignment_operator,
    conditional_expression,
    conditional_expression_helper,
    constant_expression,
    logical_or_expression,
    logical_or_expression_helper,
    logical_and_expression,
    logical_and_expression_helper,
    inclusive_or_expression,
    inclusive_or_expression_helper,
    exclusive_or_expression,
    exclusive_or_expression_helper,
    and_expression,
    and_expression_helper,
    equality_expression,
    equality_expression_helper,
    relational_expression,
    relational_expression_helper,
    shift_expression,
    shift_expression_helper,
    additive_expression,
    additive_expression_helper,
    multiplicative_expression,
    multiplicative_expression_helper,
    cast_expression,
    unary_expression,
    unary_operator,
    postfix_expression,
    postfix_expression_helper,
    argument_expression_list,
    primary_expression,
    scoped_identifier,
    TYPENAME,
    scope_definition,
    CONSTANT,
    INT_CONSTANT,
    IDENTIFIER_SINGLE,
    STRING_LITERAL_PART,
    STRING_LITERAL,
    PATH_NAME,
    INT_CONSTANT_HEX,
    INT_CONSTANT_OCT,
    INT_CONSTANT_DEC,
    INT_CONSTANT_CHAR,
    FLOAT_CONSTANT,
    FLOAT_CONSTANT_1,  // named for tracing only; no production uses them
    FLOAT_CONSTANT_2,
    FLOAT_CONSTANT_3,
    int_suffix,
    float_suffix,
    type_name,
    specifier_qualifier_list,
    type_specifier,
    type_qualifier,
    type_qualifier_list,
    struct_or_union_specifier,
    struct_or_union,
    struct_declaration_list,
    struct_declaration,
    struct_declarator_list,
    struct_declarator,
    enum_specifier,
    enumerator_list,
    enumerator,
    declarator,
    direct_declarator,
    direct_declarator_helper,  // named for tracing only
    pointer,
    abstract_declarator,
    direct_abstract_declarator,
    direct_abstract_declarator_helper,
    parameter_type_list,
    parameter_list,
    parameter_declaration,
    no_typedef_declaration_specifiers,
    count_
};

// The rule's name as the grammar tables spell it ("literal" for a leaf).
const char* grammarRuleName(GrammarRule rule);

struct ParseNode {
    GrammarRule rule = GrammarRule::literal;
    const char* first = nullptr;  // the characters the node matched
    const char* last = nullptr;
    std::vector<ParseNode> children;  // in source order

    std::string text() const { return std::string(first, last); }
    bool isLeaf() const { return rule == GrammarRule::literal; }
    // A leaf whose text is exactly `literal`.
    bool isLiteral(const char* literal) const;
    // The first child made by `r`, or null.
    const ParseNode* child(GrammarRule r) const;
};

// Asked with a candidate word; true when it names a typedef.
typedef std::function<bool(const std::string&)> TypedefQuery;

// Parses the whole text from translation_unit. Throws GenericError
// "Syntax error: parsing stopped at <rest>." when the text is not consumed
// to its end.
ParseNode parseExpressionText(const std::string& text, const TypedefQuery& isTypedefName);
// The tree points into the text, so a temporary text is refused.
ParseNode parseExpressionText(std::string&& text, const TypedefQuery& isTypedefName) = delete;

// Token values, as constants of the target's kinds (the CompilerInfo
// gives the widths):
//   - INT_CONSTANT: "IT_LONG", "IT_ULONG" when hexadecimal or with a "u"
//     suffix, cut to longBits and sign-extended when signed; with an "ll"
//     or "i64" suffix "IT_S64" or "IT_U64". Leading signs of a decimal
//     token count ("-5", "+-+7"). Throws "invalid numeric constant" or
//     "invalid int64 constant" for digits that do not fit the base (or a
//     number beyond 64 bits). Character constants give their code,
//     sign-extended from 8 bits, with the C escapes; "\0" reads the octal
//     digits after it.
//   - FLOAT_CONSTANT: "FT_DOUBLE"; "FT_LONGDOUBLE" with the suffix "l",
//     "FT_FLOAT" with "f", "F" or "L"; always "FT_FLOAT" when doubles are
//     32 bits wide.
value readIntConstant(const ParseNode& intConstant, const CompilerInfo& info);
value readFloatConstant(const ParseNode& floatConstant, const CompilerInfo& info);

// The tree as an indented outline, one node a line ("rule 'text'"), for
// tracing and for tests.
std::string describeParseTree(const ParseNode& node);

#endif
