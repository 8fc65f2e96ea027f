// Parse-only tests of the expression grammar: which texts are accepted,
// where a failure stops, and the tree shape the walks rely on.

#include "libcommon/core/status.h"
#include "libcommon/expr/grammar.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

struct Parsed {
    std::string text;  // the tree points into it
    ParseNode tree;
};

// Texts are kept alive beside their trees for the length of a test.
class GrammarTest : public ::testing::Test {
protected:
    std::set<std::string> typedefs;
    std::vector<std::string> queries;

    const ParseNode& parse(const std::string& text) {
        auto parsed = std::make_unique<Parsed>();
        parsed->text = text;
        parsed->tree = parseExpressionText(parsed->text, query());
        kept.push_back(std::move(parsed));
        return kept.back()->tree;
    }

    // The message of the syntax error, or "" when the text parses.
    std::string failure(const std::string& text) {
        try {
            parse(text);
        } catch (const GenericError& e) {
            return e.getString();
        }
        return "";
    }

    TypedefQuery query() {
        return [this](const std::string& word) {
            queries.push_back(word);
            return typedefs.count(word) != 0;
        };
    }

private:
    std::vector<std::unique_ptr<Parsed>> kept;
};

// Depth-first search for the first node of a rule.
const ParseNode* find(const ParseNode& node, GrammarRule rule) {
    if (node.rule == rule) return &node;
    for (const auto& child : node.children) {
        if (const ParseNode* hit = find(child, rule)) return hit;
    }
    return nullptr;
}

int count(const ParseNode& node, GrammarRule rule) {
    int n = node.rule == rule ? 1 : 0;
    for (const auto& child : node.children) n += count(child, rule);
    return n;
}

std::string tokenText(const ParseNode& tree, GrammarRule rule) {
    const ParseNode* node = find(tree, rule);
    if (!node) return "<none>";
    EXPECT_EQ(node->children.size(), 1u) << grammarRuleName(rule);
    return node->children.empty() ? "" : node->children[0].text();
}

TEST_F(GrammarTest, TreeShapeOfASimpleExpression) {
    const ParseNode& tree = parse("a . b[2] + 1");
    EXPECT_EQ(tree.rule, GrammarRule::translation_unit);
    EXPECT_EQ(tree.text(), "a . b[2] + 1");
    ASSERT_EQ(tree.children.size(), 1u);
    EXPECT_EQ(tree.children[0].rule, GrammarRule::stmt);

    // A token rule has exactly one leaf child covering the token.
    const ParseNode* id = find(tree, GrammarRule::IDENTIFIER_SINGLE);
    ASSERT_NE(id, nullptr);
    ASSERT_EQ(id->children.size(), 1u);
    EXPECT_TRUE(id->children[0].isLeaf());
    EXPECT_EQ(id->children[0].text(), "a");

    // Literals are leaves with their own text; helpers chain to the right
    // and the last one is empty.
    const ParseNode* postfix = find(tree, GrammarRule::postfix_expression_helper);
    ASSERT_NE(postfix, nullptr);
    ASSERT_EQ(postfix->children.size(), 3u);
    EXPECT_TRUE(postfix->children[0].isLiteral("."));
    EXPECT_EQ(postfix->children[1].rule, GrammarRule::IDENTIFIER_SINGLE);
    const ParseNode& index = postfix->children[2];
    ASSERT_EQ(index.children.size(), 4u);
    EXPECT_TRUE(index.children[0].isLiteral("["));
    EXPECT_TRUE(index.children[2].isLiteral("]"));
    EXPECT_TRUE(index.children[3].children.empty());

    const ParseNode& additive = find(tree, GrammarRule::additive_expression)->children[1];
    EXPECT_EQ(additive.rule, GrammarRule::additive_expression_helper);
    EXPECT_TRUE(additive.children[0].isLiteral("+"));
    EXPECT_EQ(additive.children[1].text(), "1");
}

TEST_F(GrammarTest, ConstantsAreTokenisedAsTheLongestMatch) {
    // A tie between real and integer goes to the integer.
    EXPECT_NE(find(parse("1"), GrammarRule::INT_CONSTANT), nullptr);
    EXPECT_EQ(find(parse("1"), GrammarRule::FLOAT_CONSTANT), nullptr);
    EXPECT_NE(find(parse("1."), GrammarRule::FLOAT_CONSTANT), nullptr);
    EXPECT_NE(find(parse(".5"), GrammarRule::FLOAT_CONSTANT), nullptr);
    EXPECT_NE(find(parse("1e3"), GrammarRule::FLOAT_CONSTANT), nullptr);
    EXPECT_EQ(tokenText(parse("0x1F"), GrammarRule::INT_CONSTANT_HEX), "0x1F");
    EXPECT_EQ(tokenText(parse("0X1f"), GrammarRule::INT_CONSTANT_HEX), "0X1f");
    EXPECT_EQ(tokenText(parse("017"), GrammarRule::INT_CONSTANT_OCT), "017");
    EXPECT_EQ(tokenText(parse("0"), GrammarRule::INT_CONSTANT_DEC), "0");
    EXPECT_EQ(tokenText(parse("'a'"), GrammarRule::INT_CONSTANT_CHAR), "'a'");
    EXPECT_EQ(tokenText(parse("'\\012'"), GrammarRule::INT_CONSTANT_CHAR), "'\\012'");
    EXPECT_EQ(tokenText(parse("'\\''"), GrammarRule::INT_CONSTANT_CHAR), "'\\''");

    // Suffixes stay beside the number, longest spelling first.
    EXPECT_EQ(tokenText(parse("5ULL"), GrammarRule::int_suffix), "ULL");
    EXPECT_EQ(tokenText(parse("5ui64"), GrammarRule::int_suffix), "ui64");
    EXPECT_EQ(tokenText(parse("5l"), GrammarRule::int_suffix), "l");
    EXPECT_NE(find(parse("5l"), GrammarRule::INT_CONSTANT), nullptr);
    EXPECT_EQ(tokenText(parse("2.5f"), GrammarRule::float_suffix), "f");
    EXPECT_EQ(tokenText(parse("2.5L"), GrammarRule::float_suffix), "L");
    EXPECT_NE(failure("5 u"), "");
}

TEST_F(GrammarTest, SignsBelongToADecimalTokenUnlessAnOperandStandsBefore) {
    EXPECT_EQ(tokenText(parse("-5"), GrammarRule::INT_CONSTANT_DEC), "-5");
    EXPECT_EQ(tokenText(parse("+-+7"), GrammarRule::INT_CONSTANT_DEC), "+-+7");
    EXPECT_EQ(find(parse("-5"), GrammarRule::unary_operator), nullptr);

    const ParseNode& difference = parse("a-5");
    const ParseNode* helper = find(difference, GrammarRule::additive_expression_helper);
    ASSERT_NE(helper, nullptr);
    ASSERT_FALSE(helper->children.empty());
    EXPECT_TRUE(helper->children[0].isLiteral("-"));
    EXPECT_EQ(tokenText(difference, GrammarRule::INT_CONSTANT_DEC), "5");

    // A sign in front of a name is the unary operator.
    EXPECT_TRUE(find(parse("-x"), GrammarRule::unary_operator)->children[0].isLiteral("-"));
}

TEST_F(GrammarTest, KeywordsAreIdentifiersOnlyAtTheEndOfTheText) {
    EXPECT_NE(find(parse("sizeof"), GrammarRule::IDENTIFIER_SINGLE), nullptr);
    EXPECT_EQ(find(parse("sizeof x"), GrammarRule::IDENTIFIER_SINGLE)->text(), "x");
    EXPECT_EQ(tokenText(parse("sizeofx"), GrammarRule::IDENTIFIER_SINGLE), "sizeofx");
    EXPECT_EQ(tokenText(parse("integer"), GrammarRule::IDENTIFIER_SINGLE), "integer");
    EXPECT_EQ(tokenText(parse("class"), GrammarRule::IDENTIFIER_SINGLE), "class");
    EXPECT_EQ(tokenText(parse("class + 1"), GrammarRule::IDENTIFIER_SINGLE), "class");
    EXPECT_EQ(tokenText(parse("$r1_x"), GrammarRule::IDENTIFIER_SINGLE), "$r1_x");
    EXPECT_EQ(failure("int + 1"), "Syntax error: parsing stopped at int + 1.");

    const ParseNode& memoryRead = parse("BY 0x100");
    const ParseNode* unary = find(memoryRead, GrammarRule::unary_expression);
    ASSERT_NE(unary, nullptr);
    EXPECT_TRUE(unary->children[0].isLiteral("BY"));
    EXPECT_EQ(find(memoryRead, GrammarRule::IDENTIFIER_SINGLE), nullptr);
    EXPECT_EQ(tokenText(parse("BYTE"), GrammarRule::IDENTIFIER_SINGLE), "BYTE");
}

TEST_F(GrammarTest, OperatorsThatArePrefixesOfOthersAreTriedLast) {
    const ParseNode* lessEqual = find(parse("a <= b"), GrammarRule::relational_expression_helper);
    ASSERT_NE(lessEqual, nullptr);
    EXPECT_TRUE(lessEqual->children[0].isLiteral("<="));
    EXPECT_TRUE(find(parse("a>=b"), GrammarRule::relational_expression_helper)
                    ->children[0]
                    .isLiteral(">="));
    EXPECT_TRUE(
        find(parse("a<<=2"), GrammarRule::assignment_operator)->children[0].isLiteral("<<="));
    EXPECT_TRUE(find(parse("a&=2"), GrammarRule::assignment_operator)->children[0].isLiteral("&="));
    EXPECT_TRUE(find(parse("a && b"), GrammarRule::logical_and_expression_helper)
                    ->children[0]
                    .isLiteral("&&"));
    EXPECT_TRUE(
        find(parse("a & b"), GrammarRule::and_expression_helper)->children[0].isLiteral("&"));
    EXPECT_TRUE(find(parse("a & &b"), GrammarRule::unary_operator)->children[0].isLiteral("&"));
    EXPECT_TRUE(
        find(parse("p->x"), GrammarRule::postfix_expression_helper)->children[0].isLiteral("->"));
    EXPECT_TRUE(find(parse("a++ + 1"), GrammarRule::postfix_expression_helper)
                    ->children[0]
                    .isLiteral("++"));
}

TEST_F(GrammarTest, AssignmentAndConditionalShareTheirFirstOperand) {
    const ParseNode& assignment = parse("a = b ? c : d");
    const ParseNode* node = find(assignment, GrammarRule::assignment_expression);
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(node->children.size(), 3u);
    EXPECT_EQ(node->children[0].rule, GrammarRule::logical_or_expression);
    EXPECT_EQ(node->children[1].rule, GrammarRule::assignment_operator);
    EXPECT_EQ(node->children[2].rule, GrammarRule::assignment_expression);

    const ParseNode* conditional = find(node->children[2], GrammarRule::assignment_expression);
    ASSERT_EQ(conditional->children.size(), 2u);
    EXPECT_EQ(conditional->children[1].rule, GrammarRule::conditional_expression_helper);
    EXPECT_TRUE(conditional->children[1].children[0].isLiteral("?"));

    // A conditional is no l-value: the assignment after it is left over.
    EXPECT_EQ(failure("a ? b : c = d"), "Syntax error: parsing stopped at = d.");
}

TEST_F(GrammarTest, SyntaxErrorsNameWhereParsingStopped) {
    EXPECT_EQ(failure(";"), "Syntax error: parsing stopped at ;.");
    EXPECT_EQ(failure("a b"), "Syntax error: parsing stopped at b.");
    EXPECT_EQ(failure("a + (b"), "Syntax error: parsing stopped at + (b.");
    EXPECT_EQ(failure("x + /* open"), "Syntax error: parsing stopped at + /* open.");
    EXPECT_EQ(failure("'\\x41'"), "Syntax error: parsing stopped at '\\x41'.");
    EXPECT_EQ(failure(""), "Syntax error: parsing stopped at .");
    // Statements, with a trailing semicolon allowed.
    EXPECT_EQ(count(parse("a;b;"), GrammarRule::stmt), 2);
    EXPECT_EQ(failure("a;;b"), "Syntax error: parsing stopped at ;b.");
}

TEST_F(GrammarTest, BlanksCommentsAndDirectivesAreSkippedBetweenTokens) {
    EXPECT_EQ(count(parse(" a /* one */ + // two\n b "), GrammarRule::IDENTIFIER_SINGLE), 2);
    EXPECT_EQ(count(parse("a // to the end"), GrammarRule::IDENTIFIER_SINGLE), 1);
    EXPECT_EQ(count(parse("a\n#pragma pack"), GrammarRule::IDENTIFIER_SINGLE), 1);
    EXPECT_EQ(count(parse("#line 4 \"x.c\"\na"), GrammarRule::IDENTIFIER_SINGLE), 1);
    // No skipping inside a token.
    EXPECT_NE(failure("0x 10"), "");
}

TEST_F(GrammarTest, StringLiteralPartsJoinIntoOneLiteral) {
    const ParseNode& tree = parse("\"ab\" \"c\\\"d\"");
    const ParseNode* literal = find(tree, GrammarRule::STRING_LITERAL);
    ASSERT_NE(literal, nullptr);
    ASSERT_EQ(literal->children.size(), 2u);
    EXPECT_EQ(literal->children[0].children[0].text(), "\"ab\"");
    EXPECT_EQ(literal->children[1].children[0].text(), "\"c\\\"d\"");
}

TEST_F(GrammarTest, ScopePrefixesTakeAFunctionAndAFile) {
    const ParseNode* scope = find(parse("{fn,\"main.c\"}x"), GrammarRule::scope_definition);
    ASSERT_NE(scope, nullptr);
    EXPECT_NE(scope->child(GrammarRule::TYPENAME), nullptr);
    EXPECT_NE(find(*scope, GrammarRule::STRING_LITERAL), nullptr);

    scope = find(parse("{fn}x"), GrammarRule::scope_definition);
    ASSERT_NE(scope, nullptr);
    EXPECT_EQ(scope->child(GrammarRule::PATH_NAME), nullptr);

    scope = find(parse("{,main.c}x"), GrammarRule::scope_definition);
    ASSERT_NE(scope, nullptr);
    EXPECT_EQ(scope->child(GrammarRule::TYPENAME), nullptr);
    EXPECT_EQ(scope->child(GrammarRule::PATH_NAME)->text(), "main.c");

    EXPECT_EQ(find(parse("ns::inner::x"), GrammarRule::scoped_identifier)->text(), "ns::inner::x");
}

TEST_F(GrammarTest, AWordIsACastOnlyWhenTheSymbolTablesKnowATypedef) {
    typedefs = {"foo", "int32_t"};
    EXPECT_NE(find(parse("(foo)x"), GrammarRule::type_name), nullptr);
    // A blank in front of the name stops the typedef match.
    EXPECT_EQ(failure("( foo)x"), "Syntax error: parsing stopped at x.");
    // int32_t is not "int" followed by garbage.
    const ParseNode* spec = find(parse("(int32_t)x"), GrammarRule::type_specifier);
    ASSERT_NE(spec, nullptr);
    EXPECT_EQ(spec->text(), "int32_t");

    typedefs.clear();
    EXPECT_EQ(find(parse("(foo)"), GrammarRule::type_name), nullptr);
    EXPECT_EQ(failure("(foo)x"), "Syntax error: parsing stopped at x.");
}

TEST_F(GrammarTest, SizeofOfATypedefNameIsSizeofAType) {
    typedefs = {"T"};
    const ParseNode& tree = parse("sizeof(T) * 2");
    EXPECT_NE(find(tree, GrammarRule::type_name), nullptr);
    EXPECT_EQ(find(tree, GrammarRule::primary_expression)->text(), "2");

    typedefs.clear();
    EXPECT_EQ(find(parse("sizeof(T)"), GrammarRule::type_name), nullptr);
    EXPECT_NE(find(parse("sizeof(int)"), GrammarRule::type_name), nullptr);
    EXPECT_NE(find(parse("sizeof (x) + 1"), GrammarRule::additive_expression_helper), nullptr);
}

TEST_F(GrammarTest, TypeNamesWithDeclaratorsAndDefinitions) {
    const ParseNode& structCast = parse("(struct s {int a; unsigned b : 3, : 2;} *)p");
    EXPECT_EQ(count(structCast, GrammarRule::struct_declaration), 2);
    EXPECT_EQ(count(structCast, GrammarRule::struct_declarator), 3);
    EXPECT_NE(find(structCast, GrammarRule::pointer), nullptr);

    const ParseNode& functionPointer = parse("(int (*)(char, long *, ...))f");
    EXPECT_NE(find(functionPointer, GrammarRule::parameter_type_list), nullptr);
    EXPECT_EQ(count(functionPointer, GrammarRule::parameter_declaration), 2);

    const ParseNode& enumSize = parse("sizeof(enum e {a, b = 5, c})");
    EXPECT_EQ(count(enumSize, GrammarRule::enumerator), 3);

    const ParseNode& qualified = parse("(const __mem_eeprom unsigned char *)0x10");
    EXPECT_EQ(count(qualified, GrammarRule::type_qualifier), 2);
    EXPECT_NE(find(parse("(int [4])x"), GrammarRule::direct_abstract_declarator), nullptr);
    EXPECT_NE(find(parse("(struct s)x"), GrammarRule::TYPENAME), nullptr);
}

TEST_F(GrammarTest, DeepNestingParsesInLinearWork) {
    typedefs = {"T"};
    for (int depth : {10, 200}) {
        queries.clear();
        std::string text = "x";
        for (int i = 0; i < depth; ++i) text = "(x + " + text + ")";
        const ParseNode& tree = parse(text);
        EXPECT_EQ(count(tree, GrammarRule::additive_expression_helper), 2 * depth + 1);
        // One typedef question per parenthesis: nothing is parsed twice.
        EXPECT_EQ(queries.size(), static_cast<std::size_t>(depth)) << depth;
    }
    // Assignments nest to the right without re-parsing their left sides.
    std::string chain;
    for (int i = 0; i < 200; ++i) chain += "a" + std::to_string(i) + " = ";
    chain += "1";
    EXPECT_EQ(count(parse(chain), GrammarRule::assignment_operator), 200);
}

TEST_F(GrammarTest, NestingBeyondTheStackIsASyntaxErrorNotACrash) {
    const std::string parens = std::string(100000, '(') + "1" + std::string(100000, ')');
    EXPECT_EQ(failure(parens).rfind("Syntax error: parsing stopped at ", 0), 0u);
    for (const std::string& text :
         {std::string(100000, '-') + "-x", "1" + std::string(100000, '+') + "1",
          "(int" + std::string(100000, '*') + ")p", "x" + std::string(100000, '[')}) {
        EXPECT_EQ(failure(text).rfind("Syntax error: parsing stopped at ", 0), 0u);
    }
    std::string chain = "a";
    for (int i = 0; i < 50000; ++i) chain += "+a";
    EXPECT_EQ(failure(chain).rfind("Syntax error: parsing stopped at ", 0), 0u);
    // A run of signs without an operand can be split into "--" and "-" in
    // many ways; it fails quickly all the same.
    EXPECT_EQ(failure(std::string(200, '-')).rfind("Syntax error: parsing stopped at ", 0), 0u);
    EXPECT_EQ(failure("x = " + std::string(200, '+') + ";").rfind("Syntax error", 0), 0u);
}

TEST_F(GrammarTest, RuleNamesFollowTheGrammar) {
    EXPECT_STREQ(grammarRuleName(GrammarRule::translation_unit), "translation_unit");
    EXPECT_STREQ(grammarRuleName(GrammarRule::no_typedef_declaration_specifiers),
                 "no_typedef_declaration_specifiers");
    EXPECT_STREQ(grammarRuleName(GrammarRule::count_), "unknown");
    EXPECT_NE(describeParseTree(parse("1")).find("INT_CONSTANT_DEC '1'"), std::string::npos);
}

}  // namespace
