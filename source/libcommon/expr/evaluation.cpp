#include "libcommon/expr/evaluation.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/expr/declarations.h"
#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/grammar.h"
#include "libcommon/expr/symbolaccess.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/iprocesscontext.h"

#include <boost/make_shared.hpp>

#include <list>
#include <mutex>

namespace {

// The steps of the walk keep their locals out of the frame of walk(),
// which recurses once per nesting level.
#define LC_NOINLINE __attribute__((noinline))

// A value that stands for a bare name: a struct member after "." or "->",
// or the word after the format comma.
value nameOnly(const std::string& name) {
    value v;
    v.sym = boost::make_shared<symtab>(name);
    return v;
}

// The tree walk of one evaluation. Each rule of the grammar has its step;
// a "_helper" step gets the value of the operand to its left.
class ExpressionWalker {
public:
    explicit ExpressionWalker(const boost::shared_ptr<SymbolAccessorApi>& api)
        : api(api), declarations(api, [this](const ParseNode& node) { return walk(node); }) {}

    value translationUnit(const ParseNode& node) {
        value result;
        for (const ParseNode& statement : node.children) {
            if (statement.rule != GrammarRule::stmt) continue;
            result = walk(statement);
            // Read now, so the side effects of the statements reach the
            // target in their order.
            if (result.type) result = fetchValue(result, api);
        }
        return result;
    }

private:
    value walk(const ParseNode& start) {
        const ParseNode* node = &start;
        // A level whose operator part is empty stands for its operand: it
        // is stepped through here rather than recursed into, which keeps
        // the walk's stack to a few frames per operator or parenthesis.
        for (;;) {
            switch (node->rule) {
                case GrammarRule::stmt:
                case GrammarRule::constant_expression:
                    node = &node->children.at(0);
                    continue;
                case GrammarRule::expression:
                case GrammarRule::conditional_expression:
                case GrammarRule::logical_or_expression:
                case GrammarRule::logical_and_expression:
                case GrammarRule::inclusive_or_expression:
                case GrammarRule::exclusive_or_expression:
                case GrammarRule::and_expression:
                case GrammarRule::equality_expression:
                case GrammarRule::relational_expression:
                case GrammarRule::shift_expression:
                case GrammarRule::additive_expression:
                case GrammarRule::multiplicative_expression:
                case GrammarRule::postfix_expression:
                    if (!node->children.at(1).children.empty())
                        return helper(node->children[1], walk(node->children[0]));
                    node = &node->children[0];
                    continue;
                case GrammarRule::assignment_expression:
                    if (node->children.at(1).rule == GrammarRule::assignment_operator ||
                        !node->children[1].children.empty())
                        return assignment(*node);
                    node = &node->children[0];
                    continue;
                case GrammarRule::cast_expression:
                    if (node->children.at(0).isLiteral("(")) return cast(*node);
                    node = &node->children[0];
                    continue;
                case GrammarRule::unary_expression:
                    if (node->children.at(0).rule != GrammarRule::postfix_expression)
                        return unary(*node);
                    node = &node->children[0];
                    continue;
                case GrammarRule::primary_expression:
                    if (!node->children.at(0).isLiteral("(")) return primary(*node);
                    node = &node->children.at(1);  // "(" expression ")"
                    continue;
                default:
                    throw "INTERNAL: unexpected node in expression";
            }
        }
    }

    // The operator chains: each helper carries an operator, its right
    // operand and the next helper; an empty helper ends the chain.
    LC_NOINLINE value helper(const ParseNode& first, value left) {
        for (const ParseNode* node = &first; !node->children.empty(); node = &node->children.back())
            left = operation(*node, left);
        return left;
    }

    LC_NOINLINE value operation(const ParseNode& node, const value& left) {
        const std::string op = node.children[0].text();
        switch (node.rule) {
            case GrammarRule::expression_helper:
                return exec_binary_operation(api, ",", left, walk(node.children.at(1)), false);
            case GrammarRule::conditional_expression_helper:
                // Only the chosen branch is walked.
                return valueToBool(left, api) ? walk(node.children.at(1))
                                              : walk(node.children.at(3));
            case GrammarRule::logical_or_expression_helper:
            case GrammarRule::logical_and_expression_helper:
            case GrammarRule::equality_expression_helper:
            case GrammarRule::relational_expression_helper:
                return exec_logical_operation(api, op, left, walk(node.children.at(1)));
            case GrammarRule::inclusive_or_expression_helper:
            case GrammarRule::exclusive_or_expression_helper:
            case GrammarRule::and_expression_helper:
            case GrammarRule::shift_expression_helper:
            case GrammarRule::additive_expression_helper:
            case GrammarRule::multiplicative_expression_helper:
                return exec_binary_operation(api, op, left, walk(node.children.at(1)), false);
            case GrammarRule::postfix_expression_helper:
                return postfix(node, left);
            default:
                throw "INTERNAL: unexpected helper in expression";
        }
    }

    LC_NOINLINE value assignment(const ParseNode& node) {
        const ParseNode& tail = node.children.at(1);
        if (tail.rule != GrammarRule::assignment_operator)
            return helper(tail, walk(node.children[0]));
        // The right side first, then the left.
        const value right = walk(node.children.at(2));
        const value left = walk(node.children[0]);
        return exec_assignment(api, tail.text()[0], left, right);
    }

    LC_NOINLINE value cast(const ParseNode& node) {
        if (!node.children.at(0).isLiteral("(")) return walk(node.children[0]);
        const boost::shared_ptr<symtab> target = declarations.typeName(node.children.at(1));
        value operand = walk(node.children.at(3));
        if (!target->type || isArray(target->type) || isStruct(target->type))
            throw "Illegal cast-to type";
        if (!operand.type) throw "Cast of unknown variable";
        if (isPointer(target->type) && isPointer(operand.type)) {
            // A pointer stays where it points; only its type changes.
            operand = fetchValue(operand, api);
            operand.type = cloneTypeChain(target->type);
            operand.etype = findChainEnd(operand.type);
            return operand;
        }
        return exec_cast(api, target, operand);
    }

    LC_NOINLINE value unary(const ParseNode& node) {
        const ParseNode& first = node.children.at(0);
        if (first.rule == GrammarRule::postfix_expression) return walk(first);
        if (first.rule == GrammarRule::unary_operator)
            return exec_unary_operation(api, first.text()[0], walk(node.children.at(1)));
        if (first.isLiteral("sizeof")) {
            const ParseNode& operand = node.children.at(1);
            if (operand.isLiteral("(")) {
                const auto type = declarations.typeName(node.children.at(2));
                const uint32_t bits = get_bit_sizeof(type->type, *api->getCompilerInfo());
                return makeInt(IT_UINT, static_cast<int32_t>(bits / 8));
            }
            return exec_unary_operation(api, OP_SIZEOF, walk(operand));
        }
        if (first.isLiteral("++"))
            return exec_unary_operation(api, OP_PREFIX_INCREMENT, walk(node.children.at(1)));
        if (first.isLiteral("--"))
            return exec_unary_operation(api, OP_PREFIX_DECREMENT, walk(node.children.at(1)));
        // "BY", "WO", "DW" go by their first letter.
        return exec_unary_operation(api, first.text()[0], walk(node.children.at(1)));
    }

    LC_NOINLINE value postfix(const ParseNode& node, const value& left) {
        const ParseNode& first = node.children[0];
        if (first.isLiteral("["))
            return exec_access(api, OP_INDEX, left, walk(node.children.at(1)));
        if (first.isLiteral("(")) {
            std::vector<value> arguments;
            if (const ParseNode* list = node.child(GrammarRule::argument_expression_list)) {
                for (const ParseNode& argument : list->children) {
                    if (argument.rule == GrammarRule::assignment_expression)
                        arguments.push_back(walk(argument));
                }
            }
            return exec_function_call(api, left, arguments);
        }
        if (first.isLiteral("."))
            return exec_access(api, OP_DOT, left, nameOnly(node.children.at(1).text()));
        if (first.isLiteral("->"))
            return exec_access(api, OP_ARROW, left, nameOnly(node.children.at(1).text()));
        if (first.isLiteral("++")) return exec_unary_operation(api, OP_POSTFIX_INCREMENT, left);
        return exec_unary_operation(api, OP_POSTFIX_DECREMENT, left);
    }

    LC_NOINLINE value primary(const ParseNode& node) {
        const ParseNode& first = node.children.at(0);
        switch (first.rule) {
            case GrammarRule::scope_definition:
                return scopedName(first, node.children.at(1));
            case GrammarRule::scoped_identifier:
                return name(scopedIdentifier(first));
            case GrammarRule::CONSTANT: {
                const ParseNode& token = first.children.at(0);
                if (token.rule == GrammarRule::FLOAT_CONSTANT)
                    return readFloatConstant(token, *api->getCompilerInfo());
                return readIntConstant(token, *api->getCompilerInfo());
            }
            case GrammarRule::STRING_LITERAL:
                return stringLiteral(first);
            default:
                return walk(node.children.at(1));  // "(" expression ")"
        }
    }

    static std::string scopedIdentifier(const ParseNode& node) {
        std::string joined;
        for (const ParseNode& part : node.children) {
            if (part.rule != GrammarRule::IDENTIFIER_SINGLE) continue;
            if (!joined.empty()) joined += "::";
            joined += part.text();
        }
        return joined;
    }

    // The characters of a string literal: its parts without their quotes.
    static std::string literalText(const ParseNode& literal) {
        std::string text;
        for (const ParseNode& part : literal.children) {
            const std::string quoted = part.text();
            if (quoted.size() >= 2) text += quoted.substr(1, quoted.size() - 2);
        }
        return text;
    }

    // "{function,file}name": the name is looked up under the scope text.
    value scopedName(const ParseNode& scope, const ParseNode& identifier) {
        std::string function, file;
        if (const ParseNode* fn = scope.child(GrammarRule::TYPENAME)) function = fn->text();
        if (const ParseNode* path = scope.child(GrammarRule::PATH_NAME)) {
            const ParseNode& inner = path->children.at(0);
            file = inner.rule == GrammarRule::STRING_LITERAL ? literalText(inner) : path->text();
        }
        api->pushSymbolScope("{" + function + "," + file + "}");
        try {
            value v = name(scopedIdentifier(identifier));
            api->popSymbolScope();
            return v;
        } catch (...) {
            api->popSymbolScope();
            throw;
        }
    }

    value name(const std::string& text) {
        boost::shared_ptr<symtab> entry = api->findvar(text);
        if (!entry) {
            entry = api->findtype(text);
            if (entry && !(entry->type && isConstant(findChainEnd(entry->type))))
                throw "unexpected typedef in expression";
        }
        if (!entry) {
            // Unknown: usable as a format word or member name, and fails
            // when it is read.
            value unknown = nameOnly(text);
            unknown.sym->locsize = -1;
            return unknown;
        }
        if (entry->etype && isConstant(entry->etype)) {
            // An enumerator or a named constant. Enum constants from debug
            // information count as integers too.
            if (!isIntegral(entry->type)) throw "Unexpected non-integer constant\n";
            value constant = makeConstant(entry->etype->spec->subtype, entry->etype->spec->val);
            setMemorySpaceCode(constant.type, getMemorySpaceCode(entry->type));
            return constant;
        }
        value v;
        v.type = cloneTypeChain(entry->type);
        v.etype = findChainEnd(v.type);
        v.sym = entry;
        v.location = entry->location;
        v.lvalue = true;
        return v;
    }

    // A pointer to char into host memory: the evaluator keeps the text.
    value stringLiteral(const ParseNode& node) {
        strings.push_back(literalText(node));
        auto pointer = makeDeclaratorLink(DECL_POINTER, 1);
        pointer->setNext(makeSpecifierLink(NOUN_INT, IT_CHAR));
        value v;
        v.type = pointer;
        v.etype = pointer->getNext();
        v.val = reinterpret_cast<uintptr_t>(strings.back().c_str());
        return v;
    }

    boost::shared_ptr<SymbolAccessorApi> api;
    DeclarationWalker declarations;
    std::list<std::string> strings;  // the string literals of the text
};

// Serialises all evaluations of the process. Not recursive on purpose: an
// evaluation started from inside another one is a programming error, and
// blocking shows it at once.
std::mutex& evaluationLock() {
    static std::mutex lock;
    return lock;
}

}  // namespace

value evalExpression(const std::string& text, boost::shared_ptr<SymbolAccessorApi> api,
                     std::string* format, int* sizeBits) {
    std::lock_guard<std::mutex> hold(evaluationLock());
    if (!api || !api->getCompilerInfo()) throw "No symbol access for the evaluation";
    ScopedCompilerInfo inForce(api->getCompilerInfo());
    // Whether a word is a typedef name is known only to the symbol tables.
    const TypedefQuery isTypedefName = [&api](const std::string& word) {
        auto entry = api->findtype(word);
        return entry && entry->type && entry->type->isTypedef;
    };
    const ParseNode tree = parseExpressionText(text, isTypedefName);
    ExpressionWalker walker(api);
    value result = walker.translationUnit(tree);
    if (format) *format = api->getFormatString();
    if (sizeBits)
        *sizeBits = result.type
                        ? static_cast<int>(get_bit_sizeof(result.type, *api->getCompilerInfo()))
                        : 0;
    return result;
}

namespace {

// The process's expression context in its innermost frame, or empty with
// the status set.
boost::shared_ptr<IExpressionContext> getExpressionContext(
    Status& status, const boost::shared_ptr<IProcessContext>& process,
    const std::string& expression) {
    try {
        // A missing process or service fails like any other failure of
        // this step instead of crashing.
        if (!process || !process->getStackTraceService()) throw "No stack trace service";
        auto frames = process->getStackTraceService()->getFrames(process, 0);
        if (frames.empty()) {
            status.setError(ERR_OPERATION_FAILED, std::string("Running"));
            return boost::shared_ptr<IExpressionContext>();
        }
        auto service = process->getExpressionService();
        if (!service) throw "No expression service";
        return service->createExpressionContext(status, frames.front(), "C", expression);
    } catch (...) {
        status.setError(ERR_INVALID_CONTEXT,
                        std::string("Failed to get expression context while trying evaluating "
                                    "expression"));
        return boost::shared_ptr<IExpressionContext>();
    }
}

// Ends the context however the evaluation went.
struct Disposer {
    boost::shared_ptr<IExpressionContext> context;
    ~Disposer() {
        if (!context) return;
        try {
            context->dispose();
        } catch (...) {
            // A failing dispose must not replace the result.
        }
    }
};

}  // namespace

int64_t evaluateExpressionAsInt64(Status& status, boost::shared_ptr<IProcessContext> process,
                                  const std::string& expression) {
    Disposer context{getExpressionContext(status, process, expression)};
    if (!status.isOk(true) || !context.context) {
        if (gLogMask & LOG_MASK_ERROR)
            BackendLogger::error(
                "exp", FormatString("Failed to get expression context for expression <%s>: %s",
                                    expression.c_str(), status.getMessage().c_str()));
        return 0;
    }
    try {
        int64_t result = context.context->getValueAsInt64(status);
        auto program = process->getMemory("prog");
        // A word address of a small program memory becomes a byte address.
        if (program && program->getMemoryAddressSize() < 4 && !context.context->isByteAddress())
            result *= 2;
        return result;
    } catch (...) {
        status.setError(ERR_EXPRESSION, std::string("Failed to evaluate expression"));
        return 0;
    }
}

int64_t evaluateExpressionAsAbsoluteDataAddress(Status& status,
                                                boost::shared_ptr<IProcessContext> process,
                                                const std::string& expression) {
    if (!process) {
        status.setError(ERR_INVALID_CONTEXT,
                        std::string("Invalid Process Context while evaluating expression"));
        return 0;
    }
    Disposer context{getExpressionContext(status, process, expression)};
    if (!status.isOk(true) || !context.context) return 0;
    try {
        return static_cast<int64_t>(context.context->getAbsoluteDataAddress(status));
    } catch (...) {
        status.setError(ERR_EXPRESSION, std::string("Failed to evaluate expression"));
        return 0;
    }
}

std::vector<unsigned char> evaluateExpressionAsRawByteArray(
    Status& status, boost::shared_ptr<IProcessContext> process, const std::string& expression) {
    std::vector<unsigned char> bytes;
    Disposer context{getExpressionContext(status, process, expression)};
    if (!status.isOk() || !context.context) return bytes;
    try {
        auto buffer = context.context->getValueBuffer();
        if (buffer) buffer->getBytes(bytes);
    } catch (...) {
        // The status stays as it was; the caller gets what was filled.
    }
    return bytes;
}
