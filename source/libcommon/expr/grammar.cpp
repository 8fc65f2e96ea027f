// The expression grammar in Boost Spirit classic. This is the one
// translation unit that instantiates it: Spirit classic compiles slowly, so
// no header includes these parsers.

#include "libcommon/expr/grammar.h"

// Keep the nodes of rules that matched the empty text (an empty helper
// still marks the end of its operator chain for the walk).
#define BOOST_SPIRIT_NO_TREE_NODE_COLLAPSING

#include "libcommon/core/status.h"

#include <boost/spirit/include/classic_chset.hpp>
#include <boost/spirit/include/classic_confix.hpp>
#include <boost/spirit/include/classic_core.hpp>
#include <boost/spirit/include/classic_parse_tree.hpp>
#include <boost/spirit/include/classic_symbols.hpp>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

namespace sp = boost::spirit::classic;

// The node factory of the expression trees. It only exists to select the
// tree policy below.
struct ExprNodeFactory : sp::node_iter_data_factory<sp::nil_t> {};

namespace boost {
namespace spirit {
BOOST_SPIRIT_CLASSIC_NAMESPACE_BEGIN

// The stock parse-tree policy copies the subtrees of the right operand of
// every sequence into the left one, which makes a nested text cost the
// square of its depth. A right operand is a temporary that the sequence
// drops after the join, so its subtrees are moved instead.
template <typename MatchPolicyT, typename T>
struct pt_tree_policy<MatchPolicyT, ExprNodeFactory, T>
    : public common_tree_tree_policy<MatchPolicyT, ExprNodeFactory> {
    typedef typename MatchPolicyT::match_t match_t;
    typedef typename MatchPolicyT::iterator_t iterator_t;

    template <typename MatchAT, typename MatchBT>
    static void concat(MatchAT& a, MatchBT const& b) {
        BOOST_SPIRIT_ASSERT(a && b);
        a.trees.insert(a.trees.end(), std::make_move_iterator(b.trees.begin()),
                       std::make_move_iterator(b.trees.end()));
        b.trees.clear();
    }

    template <typename MatchT, typename Iterator1T, typename Iterator2T>
    static void group_match(MatchT& m, parser_id const& id, Iterator1T const& first,
                            Iterator2T const& last) {
        if (!m) return;
        typedef typename ExprNodeFactory::template factory<iterator_t> factory_t;
        match_t grouped(m.length(), factory_t::create_node(first, last, false));
        auto& node = *grouped.trees.begin();
        std::swap(node.children, m.trees);
        node.value.id(id);
        for (auto& child : node.children) {
            if (child.value.id() == 0) child.value.id(id);
        }
        m = grouped;
    }

    template <typename FunctorT, typename MatchT>
    static void apply_op_to_match(FunctorT const& op, MatchT& m) {
        op(m);
    }
};

BOOST_SPIRIT_CLASSIC_NAMESPACE_END
}  // namespace spirit
}  // namespace boost

namespace {

// The typedef query of the parse in progress (see the header: parsing is
// serialised by the caller).
const TypedefQuery* gTypedefQuery = nullptr;

bool isIdentifierStart(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}

bool isIdentifierChar(unsigned char c) {
    return isIdentifierStart(c) || (c >= '0' && c <= '9');
}

// Typedef names may also carry bytes with the top bit set (names in a
// multi-byte encoding that the debug information hands through as is).
bool isTypedefChar(unsigned char c) {
    return isIdentifierChar(c) || c >= 0x80;
}

// ScopedSymbolsParser: a typedef name, as the symbol tables know it. It
// does not skip: a blank in front of the name stops the match, so that
// "( foo)x" stays a parenthesised expression.
struct ScopedSymbolsParser : public sp::parser<ScopedSymbolsParser> {
    typedef ScopedSymbolsParser self_t;

    template <typename ScannerT>
    struct result {
        typedef typename sp::match_result<ScannerT, sp::nil_t>::type type;
    };

    template <typename ScannerT>
    typename sp::parser_result<self_t, ScannerT>::type parse(ScannerT const& scan) const {
        typedef typename ScannerT::iterator_t iterator_t;
        iterator_t start = scan.first;
        iterator_t end = start;
        if (end == scan.last || !isTypedefChar(static_cast<unsigned char>(*end)) ||
            (*end >= '0' && *end <= '9'))
            return scan.no_match();
        while (end != scan.last && isTypedefChar(static_cast<unsigned char>(*end))) ++end;
        bool known = false;
        if (gTypedefQuery && *gTypedefQuery) {
            try {
                known = (*gTypedefQuery)(std::string(start, end));
            } catch (...) {
                known = false;  // a failing lookup only means "not a typedef"
            }
        }
        if (!known) return scan.no_match();
        scan.first = end;
        return scan.create_match(static_cast<std::size_t>(end - start), sp::nil_t(), start, end);
    }
};

const ScopedSymbolsParser typedef_name_p = ScopedSymbolsParser();

// Every recursion of the grammar passes a StackGuard. It ends the whole
// parse at once, as a syntax error at that point, when the text nests so
// deep that the stack would run out, or when the parse has taken far more
// steps than a text of its length needs. The second limit matters for
// texts that fail: "- - x" may be "--" or "-" "-", and a long run of signs
// that fails at its end would otherwise be retried both ways at every
// sign. The stack budget holds nesting far beyond what anyone types (a
// few kilobytes per level of parentheses) and stays well inside the
// 8 MiB a thread gets by default; sanitizer builds use larger frames.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LC_SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LC_SANITIZED_BUILD 1
#endif
#endif
#ifdef LC_SANITIZED_BUILD
const std::ptrdiff_t kStackBudget = 6 * 1024 * 1024;
#else
const std::ptrdiff_t kStackBudget = 3 * 1024 * 1024;
#endif
const std::size_t kStepsPerCharacter = 256;

struct ParseLimits {
    const char* stackStart = nullptr;
    std::size_t steps = 0;
    std::size_t maxSteps = 0;
};
ParseLimits gLimits;

// Thrown by the guard, caught by the parse: where parsing stopped.
struct ParseAborted {
    const char* where;
};

struct StackGuard : public sp::parser<StackGuard> {
    typedef StackGuard self_t;

    template <typename ScannerT>
    struct result {
        typedef typename sp::match_result<ScannerT, sp::nil_t>::type type;
    };

    template <typename ScannerT>
    typename sp::parser_result<self_t, ScannerT>::type parse(ScannerT const& scan) const {
        const char here = 0;
        if (gLimits.stackStart - &here > kStackBudget || ++gLimits.steps > gLimits.maxSteps)
            throw ParseAborted{scan.first};
        return scan.empty_match();
    }
};

const StackGuard guard_p = StackGuard();

struct skip_grammar : public sp::grammar<skip_grammar> {
    template <typename ScannerT>
    struct definition {
        explicit definition(skip_grammar const&) {
            skip = sp::space_p | sp::comment_p("//") | sp::comment_p("/*", "*/") |
                   sp::comment_p("#line") | sp::comment_p("#pragma");
        }
        sp::rule<ScannerT> const& start() const { return skip; }
        sp::rule<ScannerT> skip;
    };
};

struct c_grammar : public sp::grammar<c_grammar> {
    template <typename ScannerT>
    struct definition {
        typedef sp::rule<ScannerT, sp::parser_context<>, sp::dynamic_parser_tag> rule_t;
        typedef typename sp::lexeme_scanner<ScannerT>::type lexeme_scanner_t;
        typedef sp::rule<lexeme_scanner_t, sp::parser_context<>, sp::dynamic_parser_tag>
            lexeme_rule_t;

        // Expressions.
        rule_t translation_unit, stmt, expression, expression_helper, assignment_expression,
            assignment_operator, conditional_expression, conditional_expression_helper,
            constant_expression, logical_or_expression, logical_or_expression_helper,
            logical_and_expression, logical_and_expression_helper, inclusive_or_expression,
            inclusive_or_expression_helper, exclusive_or_expression, exclusive_or_expression_helper,
            and_expression, and_expression_helper, equality_expression, equality_expression_helper,
            relational_expression, relational_expression_helper, shift_expression,
            shift_expression_helper, additive_expression, additive_expression_helper,
            multiplicative_expression, multiplicative_expression_helper, cast_expression,
            unary_expression, unary_operator, postfix_expression, postfix_expression_helper,
            argument_expression_list, primary_expression, scoped_identifier, TYPENAME,
            scope_definition, CONSTANT, INT_CONSTANT, FLOAT_CONSTANT, IDENTIFIER_SINGLE,
            STRING_LITERAL_PART, STRING_LITERAL, PATH_NAME;
        // Tokens read without skipping, only inside the lexemes above.
        lexeme_rule_t INT_CONSTANT_HEX, INT_CONSTANT_OCT, INT_CONSTANT_DEC, INT_CONSTANT_CHAR,
            int_suffix, float_suffix;
        // Types.
        rule_t type_name, specifier_qualifier_list, type_specifier, type_qualifier,
            type_qualifier_list, struct_or_union_specifier, struct_or_union,
            struct_declaration_list, struct_declaration, struct_declarator_list, struct_declarator,
            enum_specifier, enumerator_list, enumerator, declarator, direct_declarator, pointer,
            abstract_declarator, direct_abstract_declarator, direct_abstract_declarator_helper,
            parameter_type_list, parameter_list, parameter_declaration,
            no_typedef_declaration_specifiers;

        sp::symbols<> keywords;

        explicit definition(c_grammar const&) {
            using sp::anychar_p;
            using sp::as_lower_d;
            using sp::ch_p;
            using sp::chset_p;
            using sp::digit_p;
            using sp::end_p;
            using sp::eps_p;
            using sp::lexeme_d;
            using sp::longest_d;
            using sp::range_p;
            using sp::str_p;
            using sp::token_node_d;
            using sp::xdigit_p;

            const sp::chset<> idStart("a-zA-Z_$");
            const sp::chset<> idChar("a-zA-Z0-9_$");
            // A word of the language only as a whole word: "int" does not
            // match the start of "int32_t".
            auto kw = [&](const char* word) { return lexeme_d[str_p(word) >> ~eps_p(idChar)]; };

            keywords = "char", "double", "enum", "float", "if", "int", "long", "short", "signed",
            "sizeof", "struct", "union", "unsigned", "void", "BY", "WO", "DW", "typedef",
            "__mem_prog", "__mem_data", "__mem_io", "__mem_registers", "__mem_eeprom",
            "__mem_fuses", "__mem_lockbits", "__mem_signatures", "__mem_user_signatures",
            "__mem_flash", "__mem_prod_signatures", "volatile", "const", "register";

            translation_unit = stmt >> *(ch_p(';') >> stmt) >> !ch_p(';') >> end_p;
            stmt = expression;
            expression = assignment_expression >> expression_helper;
            expression_helper =
                (guard_p >> ch_p(',') >> assignment_expression >> expression_helper) | eps_p;
            // The operand is parsed once for both readings (see the header).
            assignment_expression =
                guard_p >> logical_or_expression >>
                ((assignment_operator >> assignment_expression) | conditional_expression_helper);
            assignment_operator =
                str_p("=") | "*=" | "/=" | "%=" | "+=" | "-=" | "<<=" | ">>=" | "&=" | "^=" | "|=";
            conditional_expression = logical_or_expression >> conditional_expression_helper;
            conditional_expression_helper =
                (guard_p >> ch_p('?') >> expression >> ch_p(':') >> conditional_expression >>
                 conditional_expression_helper) |
                eps_p;
            constant_expression = conditional_expression;
            logical_or_expression = logical_and_expression >> logical_or_expression_helper;
            logical_or_expression_helper =
                (guard_p >> str_p("||") >> logical_and_expression >> logical_or_expression_helper) |
                eps_p;
            logical_and_expression = inclusive_or_expression >> logical_and_expression_helper;
            logical_and_expression_helper = (guard_p >> str_p("&&") >> inclusive_or_expression >>
                                             logical_and_expression_helper) |
                                            eps_p;
            inclusive_or_expression = exclusive_or_expression >> inclusive_or_expression_helper;
            inclusive_or_expression_helper = (guard_p >> ch_p('|') >> exclusive_or_expression >>
                                              inclusive_or_expression_helper) |
                                             eps_p;
            exclusive_or_expression = and_expression >> exclusive_or_expression_helper;
            exclusive_or_expression_helper =
                (guard_p >> ch_p('^') >> and_expression >> exclusive_or_expression_helper) | eps_p;
            and_expression = equality_expression >> and_expression_helper;
            and_expression_helper = (guard_p >> (ch_p('&') - str_p("&&")) >> equality_expression >>
                                     and_expression_helper) |
                                    eps_p;
            equality_expression = relational_expression >> equality_expression_helper;
            equality_expression_helper = (guard_p >> (str_p("==") | "!=") >>
                                          relational_expression >> equality_expression_helper) |
                                         eps_p;
            relational_expression = shift_expression >> relational_expression_helper;
            // "<=" and ">=" first: "<" alone would leave "= b" unparsable.
            relational_expression_helper = (guard_p >> (str_p("<=") | ">=" | "<" | ">") >>
                                            shift_expression >> relational_expression_helper) |
                                           eps_p;
            shift_expression = additive_expression >> shift_expression_helper;
            shift_expression_helper = (guard_p >> (str_p("<<") | ">>") >> additive_expression >>
                                       shift_expression_helper) |
                                      eps_p;
            additive_expression = multiplicative_expression >> additive_expression_helper;
            additive_expression_helper = (guard_p >> (ch_p('+') | '-') >>
                                          multiplicative_expression >> additive_expression_helper) |
                                         eps_p;
            multiplicative_expression = cast_expression >> multiplicative_expression_helper;
            multiplicative_expression_helper =
                (guard_p >> (ch_p('*') | '/' | '%') >> cast_expression >>
                 multiplicative_expression_helper) |
                eps_p;
            cast_expression = guard_p >> ((ch_p('(') >> type_name >> ch_p(')') >> cast_expression) |
                                          unary_expression);
            unary_expression =
                guard_p >>
                (postfix_expression | ((kw("BY") | kw("WO") | kw("DW")) >> unary_expression) |
                 (str_p("++") >> unary_expression) | (str_p("--") >> unary_expression) |
                 (unary_operator >> cast_expression) |
                 (kw("sizeof") >> ((ch_p('(') >> type_name >> ch_p(')')) | unary_expression)));
            unary_operator = (ch_p('&') - str_p("&&")) | '*' | '+' | '-' | '~' | '!';
            postfix_expression = primary_expression >> postfix_expression_helper;
            postfix_expression_helper =
                (guard_p >> ((ch_p('[') >> expression >> ch_p(']')) |
                             (ch_p('(') >> !argument_expression_list >> ch_p(')')) |
                             (ch_p('.') >> IDENTIFIER_SINGLE) | (str_p("->") >> IDENTIFIER_SINGLE) |
                             str_p("++") | str_p("--")) >>
                 postfix_expression_helper) |
                eps_p;
            argument_expression_list =
                assignment_expression >> *(ch_p(',') >> assignment_expression);
            primary_expression = (!scope_definition >> scoped_identifier) | CONSTANT |
                                 STRING_LITERAL | (ch_p('(') >> expression >> ch_p(')'));
            scoped_identifier = IDENTIFIER_SINGLE >> *(str_p("::") >> IDENTIFIER_SINGLE);
            TYPENAME = IDENTIFIER_SINGLE >> *(str_p("::") >> IDENTIFIER_SINGLE);
            scope_definition = (ch_p('{') >> !TYPENAME >> ch_p(',') >> PATH_NAME >> ch_p('}')) |
                               (ch_p('{') >> !TYPENAME >> ch_p('}'));

            // Tokens. A tie between a real and an integer goes to the
            // integer, the right-hand side of longest_d.
            CONSTANT = longest_d[FLOAT_CONSTANT | INT_CONSTANT];
            INT_CONSTANT = lexeme_d[(INT_CONSTANT_HEX | INT_CONSTANT_OCT | INT_CONSTANT_DEC |
                                     INT_CONSTANT_CHAR) >>
                                    !int_suffix];
            INT_CONSTANT_HEX = token_node_d[ch_p('0') >> as_lower_d[ch_p('x')] >> +xdigit_p];
            INT_CONSTANT_OCT = token_node_d[ch_p('0') >> +range_p('0', '7')];
            INT_CONSTANT_DEC = token_node_d[*(ch_p('-') | '+') >> +digit_p];
            INT_CONSTANT_CHAR = token_node_d[!ch_p('L') >> ch_p('\'') >>
                                             longest_d[anychar_p |
                                                       (ch_p('\\') >> ch_p('0') >>
                                                        !range_p('0', '7') >> !range_p('0', '7')) |
                                                       (ch_p('\\') >> anychar_p)] >>
                                             ch_p('\'')];
            int_suffix =
                token_node_d[as_lower_d[str_p("ull") | "ul" | "ll" | "ui64" | "i64" | "u" | "l"]];
            // A real number in C form, written out because the stock real
            // parser reports a length without the decimal point, which
            // would hand "1." to the integer in longest_d.
            FLOAT_CONSTANT =
                lexeme_d[token_node_d[!(ch_p('+') | '-') >>
                                      ((+digit_p >> !(ch_p('.') >> *digit_p)) |
                                       (ch_p('.') >> +digit_p)) >>
                                      !(as_lower_d[ch_p('e')] >> !(ch_p('+') | '-') >> +digit_p)] >>
                         float_suffix];
            float_suffix = token_node_d[as_lower_d[ch_p('f') | 'l']] | eps_p;
            IDENTIFIER_SINGLE =
                lexeme_d[token_node_d[(idStart >> *idChar) - (keywords >> (anychar_p - idChar))]];
            STRING_LITERAL_PART =
                lexeme_d[token_node_d[!ch_p('L') >> ch_p('"') >>
                                      *(str_p("\\\"") | (anychar_p - ch_p('"'))) >> ch_p('"')]];
            STRING_LITERAL = +STRING_LITERAL_PART;
            PATH_NAME =
                STRING_LITERAL | lexeme_d[token_node_d[+(anychar_p - chset_p(",{}\"*?<>|"))]];

            // Types.
            type_name = specifier_qualifier_list >> !abstract_declarator;
            specifier_qualifier_list =
                guard_p >> (type_specifier | type_qualifier) >> !specifier_qualifier_list;
            type_specifier = kw("void") | kw("char") | kw("short") | kw("int") | kw("long") |
                             kw("float") | kw("double") | kw("signed") | kw("unsigned") |
                             struct_or_union_specifier | enum_specifier | typedef_name_p;
            // Whole words only, so no qualifier is a prefix of another and
            // the first match is the longest.
            type_qualifier =
                kw("__mem_prog") | kw("__mem_data") | kw("__mem_io") | kw("__mem_registers") |
                kw("__mem_eeprom") | kw("__mem_fuses") | kw("__mem_lockbits") |
                kw("__mem_signatures") | kw("__mem_user_signatures") | kw("__mem_flash") |
                kw("__mem_prod_signatures") | kw("volatile") | kw("const") | kw("register");
            type_qualifier_list = +type_qualifier;
            struct_or_union_specifier =
                struct_or_union >>
                ((IDENTIFIER_SINGLE >> ch_p('{') >> struct_declaration_list >> ch_p('}')) |
                 TYPENAME | (ch_p('{') >> struct_declaration_list >> ch_p('}')));
            struct_or_union = kw("struct") | kw("union") | kw("class");
            struct_declaration_list = +struct_declaration;
            struct_declaration = specifier_qualifier_list >> struct_declarator_list >> ch_p(';');
            struct_declarator_list = struct_declarator >> *(ch_p(',') >> struct_declarator);
            struct_declarator = declarator || (ch_p(':') >> constant_expression);
            enum_specifier =
                kw("enum") >>
                ((!IDENTIFIER_SINGLE >> ch_p('{') >> enumerator_list >> ch_p('}')) | TYPENAME);
            enumerator_list = enumerator >> *(ch_p(',') >> enumerator);
            enumerator = IDENTIFIER_SINGLE >> !(ch_p('=') >> constant_expression);
            declarator = !pointer >> direct_declarator;
            direct_declarator = guard_p >>
                                (IDENTIFIER_SINGLE | (ch_p('(') >> declarator >> ch_p(')'))) >>
                                direct_abstract_declarator_helper;
            pointer = guard_p >> ch_p('*') >> !(type_qualifier_list || pointer);
            abstract_declarator = pointer || direct_abstract_declarator;
            direct_abstract_declarator = guard_p >>
                                         ((ch_p('(') >> abstract_declarator >> ch_p(')')) |
                                          (ch_p('(') >> !parameter_type_list >> ch_p(')')) |
                                          (ch_p('[') >> !constant_expression >> ch_p(']'))) >>
                                         direct_abstract_declarator_helper;
            direct_abstract_declarator_helper =
                (guard_p >> ((ch_p('[') >> !constant_expression >> ch_p(']')) |
                             (ch_p('(') >> !parameter_type_list >> ch_p(')'))) >>
                 direct_abstract_declarator_helper) |
                eps_p;
            parameter_type_list = parameter_list >> !(ch_p(',') >> str_p("..."));
            parameter_list = parameter_declaration >> *(ch_p(',') >> parameter_declaration);
            parameter_declaration =
                no_typedef_declaration_specifiers >> !(declarator | abstract_declarator);
            no_typedef_declaration_specifiers =
                guard_p >> (type_specifier | type_qualifier) >> !no_typedef_declaration_specifiers;

            setIds();
        }

        void setIds() {
#define LC_RULE_ID(r) r.set_id(static_cast<std::size_t>(GrammarRule::r))
            LC_RULE_ID(translation_unit);
            LC_RULE_ID(stmt);
            LC_RULE_ID(expression);
            LC_RULE_ID(expression_helper);
            LC_RULE_ID(assignment_expression);
            LC_RULE_ID(assignment_operator);
            LC_RULE_ID(conditional_expression);
            LC_RULE_ID(conditional_expression_helper);
            LC_RULE_ID(constant_expression);
            LC_RULE_ID(logical_or_expression);
            LC_RULE_ID(logical_or_expression_helper);
            LC_RULE_ID(logical_and_expression);
            LC_RULE_ID(logical_and_expression_helper);
            LC_RULE_ID(inclusive_or_expression);
            LC_RULE_ID(inclusive_or_expression_helper);
            LC_RULE_ID(exclusive_or_expression);
            LC_RULE_ID(exclusive_or_expression_helper);
            LC_RULE_ID(and_expression);
            LC_RULE_ID(and_expression_helper);
            LC_RULE_ID(equality_expression);
            LC_RULE_ID(equality_expression_helper);
            LC_RULE_ID(relational_expression);
            LC_RULE_ID(relational_expression_helper);
            LC_RULE_ID(shift_expression);
            LC_RULE_ID(shift_expression_helper);
            LC_RULE_ID(additive_expression);
            LC_RULE_ID(additive_expression_helper);
            LC_RULE_ID(multiplicative_expression);
            LC_RULE_ID(multiplicative_expression_helper);
            LC_RULE_ID(cast_expression);
            LC_RULE_ID(unary_expression);
            LC_RULE_ID(unary_operator);
            LC_RULE_ID(postfix_expression);
            LC_RULE_ID(postfix_expression_helper);
            LC_RULE_ID(argument_expression_list);
            LC_RULE_ID(primary_expression);
            LC_RULE_ID(scoped_identifier);
            LC_RULE_ID(TYPENAME);
            LC_RULE_ID(scope_definition);
            LC_RULE_ID(CONSTANT);
            LC_RULE_ID(INT_CONSTANT);
            LC_RULE_ID(FLOAT_CONSTANT);
            LC_RULE_ID(IDENTIFIER_SINGLE);
            LC_RULE_ID(STRING_LITERAL_PART);
            LC_RULE_ID(STRING_LITERAL);
            LC_RULE_ID(PATH_NAME);
            LC_RULE_ID(INT_CONSTANT_HEX);
            LC_RULE_ID(INT_CONSTANT_OCT);
            LC_RULE_ID(INT_CONSTANT_DEC);
            LC_RULE_ID(INT_CONSTANT_CHAR);
            LC_RULE_ID(int_suffix);
            LC_RULE_ID(float_suffix);
            LC_RULE_ID(type_name);
            LC_RULE_ID(specifier_qualifier_list);
            LC_RULE_ID(type_specifier);
            LC_RULE_ID(type_qualifier);
            LC_RULE_ID(type_qualifier_list);
            LC_RULE_ID(struct_or_union_specifier);
            LC_RULE_ID(struct_or_union);
            LC_RULE_ID(struct_declaration_list);
            LC_RULE_ID(struct_declaration);
            LC_RULE_ID(struct_declarator_list);
            LC_RULE_ID(struct_declarator);
            LC_RULE_ID(enum_specifier);
            LC_RULE_ID(enumerator_list);
            LC_RULE_ID(enumerator);
            LC_RULE_ID(declarator);
            LC_RULE_ID(direct_declarator);
            LC_RULE_ID(pointer);
            LC_RULE_ID(abstract_declarator);
            LC_RULE_ID(direct_abstract_declarator);
            LC_RULE_ID(direct_abstract_declarator_helper);
            LC_RULE_ID(parameter_type_list);
            LC_RULE_ID(parameter_list);
            LC_RULE_ID(parameter_declaration);
            LC_RULE_ID(no_typedef_declaration_specifiers);
#undef LC_RULE_ID
        }

        rule_t const& start() const {
            return translation_unit;
        }
    };
};

const char* const kRuleNames[] = {
    "literal",
    "translation_unit",
    "stmt",
    "expression",
    "expression_helper",
    "assignment_expression",
    "assignment_operator",
    "conditional_expression",
    "conditional_expression_helper",
    "constant_expression",
    "logical_or_expression",
    "logical_or_expression_helper",
    "logical_and_expression",
    "logical_and_expression_helper",
    "inclusive_or_expression",
    "inclusive_or_expression_helper",
    "exclusive_or_expression",
    "exclusive_or_expression_helper",
    "and_expression",
    "and_expression_helper",
    "equality_expression",
    "equality_expression_helper",
    "relational_expression",
    "relational_expression_helper",
    "shift_expression",
    "shift_expression_helper",
    "additive_expression",
    "additive_expression_helper",
    "multiplicative_expression",
    "multiplicative_expression_helper",
    "cast_expression",
    "unary_expression",
    "unary_operator",
    "postfix_expression",
    "postfix_expression_helper",
    "argument_expression_list",
    "primary_expression",
    "scoped_identifier",
    "TYPENAME",
    "scope_definition",
    "CONSTANT",
    "INT_CONSTANT",
    "IDENTIFIER_SINGLE",
    "STRING_LITERAL_PART",
    "STRING_LITERAL",
    "PATH_NAME",
    "INT_CONSTANT_HEX",
    "INT_CONSTANT_OCT",
    "INT_CONSTANT_DEC",
    "INT_CONSTANT_CHAR",
    "FLOAT_CONSTANT",
    "FLOAT_CONSTANT_1",
    "FLOAT_CONSTANT_2",
    "FLOAT_CONSTANT_3",
    "int_suffix",
    "float_suffix",
    "type_name",
    "specifier_qualifier_list",
    "type_specifier",
    "type_qualifier",
    "type_qualifier_list",
    "struct_or_union_specifier",
    "struct_or_union",
    "struct_declaration_list",
    "struct_declaration",
    "struct_declarator_list",
    "struct_declarator",
    "enum_specifier",
    "enumerator_list",
    "enumerator",
    "declarator",
    "direct_declarator",
    "direct_declarator_helper",
    "pointer",
    "abstract_declarator",
    "direct_abstract_declarator",
    "direct_abstract_declarator_helper",
    "parameter_type_list",
    "parameter_list",
    "parameter_declaration",
    "no_typedef_declaration_specifiers",
};
static_assert(sizeof(kRuleNames) / sizeof(kRuleNames[0]) ==
                  static_cast<std::size_t>(GrammarRule::count_),
              "one name for every grammar rule");

typedef sp::tree_match<const char*, ExprNodeFactory>::container_t SpiritTrees;
typedef SpiritTrees::value_type SpiritNode;

// Copies the Spirit tree into ParseNodes. The empty nodes that Spirit makes
// for epsilon matches are dropped, so an empty helper has no children; a
// rule's text is trimmed to its children (Spirit lets it start before the
// blanks skipped ahead of its first token).
void convertTree(SpiritNode& in, ParseNode& out) {
    out.first = in.value.begin();
    out.last = in.value.end();
    if (in.children.empty()) {
        out.rule = GrammarRule::literal;
        return;
    }
    out.rule = static_cast<GrammarRule>(in.value.id().to_long());
    std::size_t used = 0;
    for (const auto& child : in.children) {
        if (child.value.begin() != nullptr) ++used;
    }
    out.children.resize(used);
    std::size_t i = 0;
    for (auto& child : in.children) {
        if (child.value.begin() != nullptr) convertTree(child, out.children[i++]);
    }
    if (used) {
        out.first = out.children.front().first;
        out.last = out.children.back().last;
    } else {
        out.last = out.first;
    }
}

// The grammars of the process: built on first use and never changed after.
struct Grammars {
    typedef sp::no_tree_gen_node_parser<skip_grammar> skipper_t;

    c_grammar expressions;
    skip_grammar blanks;
    // Skipping builds no tree: the skipper runs with plain matches. The
    // scanner holds it by reference, so it lives here.
    skipper_t skipper;

    Grammars() : skipper(blanks) {
        // Build the rule definitions now rather than inside the first
        // evaluation, so that they are complete before anyone reads them.
        const char warmUp[] = "0";
        parse(warmUp, warmUp + 1);
    }

    typedef sp::skip_parser_iteration_policy<skipper_t> iteration_policy_t;
    typedef sp::pt_match_policy<const char*, ExprNodeFactory> match_policy_t;
    typedef sp::scanner_policies<iteration_policy_t, match_policy_t> policies_t;
    typedef sp::scanner<const char*, policies_t> scanner_t;

    // Returns the tree of a complete parse; `stop` receives where parsing
    // stopped.
    bool parse(const char* begin, const char* end, ParseNode* tree = nullptr,
               const char** stop = nullptr) const {
        iteration_policy_t iteration(skipper);
        policies_t policies(iteration);
        const char* position = begin;
        const char stackStart = 0;
        gLimits.stackStart = &stackStart;
        gLimits.steps = 0;
        gLimits.maxSteps = kStepsPerCharacter * (static_cast<std::size_t>(end - begin) + 64);
        scanner_t scan(position, end, policies);
        typename sp::parser_result<c_grammar, scanner_t>::type hit;
        try {
            hit = expressions.parse(scan);
        } catch (const ParseAborted& aborted) {
            if (stop) *stop = aborted.where;
            return false;
        }
        if (stop) *stop = position;
        const bool complete = hit && position == end;
        if (complete && tree) {
            SpiritTrees& trees = hit.trees;
            SpiritNode* top = trees.empty() ? nullptr : &trees.front();
            // Look through a wrapper node the grammar object may add.
            while (top &&
                   top->value.id().to_long() != static_cast<long>(GrammarRule::translation_unit) &&
                   top->children.size() == 1)
                top = &top->children.front();
            if (top) convertTree(*top, *tree);
        }
        return complete;
    }
};

const Grammars& grammars() {
    static const Grammars instance;
    return instance;
}

void describeNode(const ParseNode& node, int depth, std::string& out) {
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
    out += grammarRuleName(node.rule);
    out += " '";
    out.append(node.first ? node.first : "", node.first ? node.last : nullptr);
    out += "'\n";
    for (const auto& child : node.children) describeNode(child, depth + 1, out);
}

}  // namespace

const char* grammarRuleName(GrammarRule rule) {
    const auto index = static_cast<std::size_t>(rule);
    if (index >= static_cast<std::size_t>(GrammarRule::count_)) return "unknown";
    return kRuleNames[index];
}

bool ParseNode::isLiteral(const char* literal) const {
    const auto length = std::strlen(literal);
    return isLeaf() && static_cast<std::size_t>(last - first) == length &&
           std::memcmp(first, literal, length) == 0;
}

const ParseNode* ParseNode::child(GrammarRule r) const {
    for (const auto& c : children) {
        if (c.rule == r) return &c;
    }
    return nullptr;
}

ParseNode parseExpressionText(const std::string& text, const TypedefQuery& isTypedefName) {
    const Grammars& g = grammars();
    struct QueryScope {
        explicit QueryScope(const TypedefQuery* q) { gTypedefQuery = q; }
        ~QueryScope() { gTypedefQuery = nullptr; }
    } scope(&isTypedefName);

    const char* begin = text.data();
    const char* end = begin + text.size();
    ParseNode tree;
    const char* stop = begin;
    if (!g.parse(begin, end, &tree, &stop)) {
        throw GenericError("Syntax error: parsing stopped at " + std::string(stop, end) + ".");
    }
    return tree;
}

namespace {

// Reads digits in the base the text announces ("0x" hexadecimal, a leading
// "0" octal, else decimal). False when a character does not fit the base
// or the number needs more than 64 bits.
bool readNumber(const std::string& digits, uint64_t& number) {
    std::size_t i = 0;
    unsigned base = 10;
    if (digits.size() > 1 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        i = 2;
    } else if (digits.size() > 1 && digits[0] == '0') {
        base = 8;
        i = 1;
    }
    if (i >= digits.size()) return false;
    number = 0;
    for (; i < digits.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(digits[i]);
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return false;
        if (digit >= base || number > (UINT64_MAX - digit) / base) return false;
        number = number * base + digit;
    }
    return true;
}

// The code of a character constant's text ("'a'", "'\n'", "'\012'").
uint64_t readCharacter(const std::string& token) {
    if (!token.empty() && token[0] == 'L') throw "TODO: wide char constants are not supported";
    const std::string inner = token.substr(1, token.size() - 2);
    int code = 0;
    if (inner.size() == 1) {
        code = static_cast<signed char>(inner[0]);
    } else {
        switch (inner[1]) {
            case '0': {
                unsigned octal = 0;
                for (std::size_t i = 2; i < inner.size(); ++i) {
                    if (inner[i] < '0' || inner[i] > '7') throw "invalid char constant";
                    octal = octal * 8 + static_cast<unsigned>(inner[i] - '0');
                }
                code = static_cast<signed char>(octal & 0xFF);
                break;
            }
            case 'x':
                throw "invalid char constant";
            case 'a':
                code = 7;
                break;
            case 'b':
                code = 8;
                break;
            case 'f':
                code = 12;
                break;
            case 'n':
                code = 10;
                break;
            case 'r':
                code = 13;
                break;
            case 't':
                code = 9;
                break;
            case 'v':
                code = 11;
                break;
            default:
                code = static_cast<signed char>(inner[1]);
        }
    }
    return static_cast<uint64_t>(static_cast<int64_t>(code));
}

}  // namespace

value readIntConstant(const ParseNode& intConstant, const CompilerInfo& info) {
    const ParseNode& token = intConstant.children.at(0);
    const std::string text = token.children.at(0).text();
    bool isUnsigned = token.rule == GrammarRule::INT_CONSTANT_HEX;
    bool is64 = false;
    if (const ParseNode* suffixNode = intConstant.child(GrammarRule::int_suffix)) {
        std::string suffix = suffixNode->text();
        for (char& c : suffix) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (suffix[0] == 'u') {
            isUnsigned = true;
            suffix.erase(0, 1);
        }
        is64 = suffix == "i64" || suffix == "ll";
    }

    uint64_t number = 0;
    if (token.rule == GrammarRule::INT_CONSTANT_CHAR) {
        number = readCharacter(text);
    } else {
        // A decimal token may start with any run of signs.
        std::size_t digitsAt = 0;
        bool negative = false;
        while (digitsAt < text.size() && (text[digitsAt] == '-' || text[digitsAt] == '+'))
            negative ^= text[digitsAt++] == '-';
        if (!readNumber(text.substr(digitsAt), number))
            throw is64 ? "invalid int64 constant" : "invalid numeric constant";
        if (negative) number = ~number + 1;
    }
    if (is64) return makeConstant(isUnsigned ? IT_U64 : IT_S64, number);

    const unsigned bits = static_cast<unsigned>(info.longBits);
    if (bits > 0 && bits < 64) {
        const uint64_t mask = (uint64_t(1) << bits) - 1;
        number &= mask;
        if (!isUnsigned && ((number >> (bits - 1)) & 1)) number |= ~mask;
    }
    return makeConstant(isUnsigned ? IT_ULONG : IT_LONG, number);
}

value readFloatConstant(const ParseNode& floatConstant, const CompilerInfo& info) {
    const double number = std::strtod(floatConstant.children.at(0).text().c_str(), nullptr);
    const ParseNode* suffix = floatConstant.child(GrammarRule::float_suffix);
    char kind = 'd';
    if (suffix && !suffix->children.empty()) kind = suffix->text() == "l" ? 'l' : 'f';
    if (info.doubleBits == 32) kind = 'f';
    return makeFloat(kind, number);
}

std::string describeParseTree(const ParseNode& node) {
    std::string out;
    describeNode(node, 0, out);
    return out;
}
