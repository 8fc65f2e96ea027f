#include "libcommon/expr/declarations.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/expr/evaluator.h"
#include "libcommon/expr/symbolaccess.h"

#include <boost/make_shared.hpp>

#include <cmath>

namespace {

struct Word {
    const char* text;
    int linkClass;  // SPECIFIER or MODIFIER
    int noun;
    int subtypeOrBits;
};

const Word kWords[] = {
    {"char", SPECIFIER, NOUN_INT, IT_CHAR},
    {"short", SPECIFIER, NOUN_INT, IT_SHORT},
    {"int", SPECIFIER, NOUN_INT, IT_INT},
    {"long", SPECIFIER, NOUN_INT, IT_LONG},
    {"float", SPECIFIER, NOUN_FLOAT, FT_FLOAT},
    {"double", SPECIFIER, NOUN_FLOAT, FT_DOUBLE},
    {"void", SPECIFIER, NOUN_VOID, IT_INT},
    {"enum", SPECIFIER, NOUN_ENUM, IT_INT},
    {"unsigned", MODIFIER, 0, MOD_UNSIGNED},
    {"signed", MODIFIER, 0, MOD_SIGNED},
    {"register", MODIFIER, 0, MOD_REGISTER},
    {"const", MODIFIER, 0, MOD_CONST},
    {"volatile", MODIFIER, 0, MOD_VOLATILE},
    {"__mem_prog", MODIFIER, 0, MEMSPACE_PROG},
    {"__mem_flash", MODIFIER, 0, MEMSPACE_PROG},
    {"__mem_data", MODIFIER, 0, MEMSPACE_DATA},
    {"__mem_io", MODIFIER, 0, MEMSPACE_IO},
    {"__mem_registers", MODIFIER, 0, MEMSPACE_REGISTERS},
    {"__mem_eeprom", MODIFIER, 0, MEMSPACE_EEPROM},
    {"__mem_fuses", MODIFIER, 0, MEMSPACE_FUSES},
    {"__mem_lockbits", MODIFIER, 0, MEMSPACE_LOCKBITS},
    {"__mem_signatures", MODIFIER, 0, MEMSPACE_SIGNATURES},
    {"__mem_user_signatures", MODIFIER, 0, MEMSPACE_USER_SIGNATURES},
    {"__mem_prod_signatures", MODIFIER, 0, MEMSPACE_PROD_SIGNATURES},
};

// The number a constant stands for, without reading the target.
int64_t constantInteger(const boost::shared_ptr<SymbolAccessorApi>& api, const value& v) {
    return static_cast<int64_t>(convertScalar(api, IT_S64, v.val, getArithmeticSubtype(v.type)));
}

// The entries of a list, linked by symtab::next.
void appendList(boost::shared_ptr<symtab>& head, boost::shared_ptr<symtab>& tail,
                const boost::shared_ptr<symtab>& list) {
    if (!list) return;
    if (tail)
        tail->next = list;
    else
        head = list;
    tail = list;
    while (tail->next) tail = tail->next;
}

// The entries that walk makes of the children of one rule, chained in
// source order.
template <class Walk>
boost::shared_ptr<symtab> chainChildren(const ParseNode& node, GrammarRule rule, Walk walk) {
    boost::shared_ptr<symtab> head, tail;
    for (const ParseNode& child : node.children) {
        if (child.rule == rule) appendList(head, tail, walk(child));
    }
    return head;
}

const ParseNode* lastChild(const ParseNode& node) {
    return node.children.empty() ? nullptr : &node.children.back();
}

}  // namespace

boost::shared_ptr<link_variant> lexemeToLink(const std::string& word) {
    for (const Word& w : kWords) {
        if (word != w.text) continue;
        if (w.linkClass == MODIFIER)
            return makeModifierLink(static_cast<uint32_t>(w.subtypeOrBits));
        return makeSpecifierLink(static_cast<Noun>(w.noun), w.subtypeOrBits);
    }
    throw GenericError("Illegal lexeme " + word);
}

boost::shared_ptr<link_variant> appendDeclarator(const boost::shared_ptr<symtab>& entry,
                                                 DeclaratorType type) {
    auto link = makeDeclaratorLink(type);
    if (!entry->type) {
        entry->type = link;
    } else {
        entry->etype->next = link;
    }
    entry->etype = link;
    return link;
}

DeclarationWalker::DeclarationWalker(boost::shared_ptr<SymbolAccessorApi> api, Evaluate evaluate)
    : api(std::move(api)), evaluate(std::move(evaluate)) {}

boost::shared_ptr<symtab> DeclarationWalker::typeName(const ParseNode& node) {
    auto chain = specifierList(node.children.at(0));
    const ParseNode* abstract = node.child(GrammarRule::abstract_declarator);
    auto entry = abstract ? abstractDeclarator(*abstract) : boost::make_shared<symtab>("tn");
    assembleType(entry, chain);
    return entry;
}

boost::shared_ptr<link_variant> DeclarationWalker::specifierList(const ParseNode& node) {
    const ParseNode& first = node.children.at(0);
    auto link = first.rule == GrammarRule::type_specifier ? typeSpecifier(first)
                                                          : lexemeToLink(first.text());
    if (node.children.size() < 2) return link;
    // The tail goes first, so in "long double" "double" is combined with
    // "long", and in "int char" the result is a char.
    return combineSpecifiers(specifierList(node.children[1]), link);
}

boost::shared_ptr<link_variant> DeclarationWalker::privateCopy(
    const boost::shared_ptr<link_variant>& chain) {
    auto copy = cloneTypeChain(chain);
    auto end = findChainEnd(copy);
    if (end && end->spec) end->spec = boost::make_shared<specifier>(*end->spec);
    return copy;
}

boost::shared_ptr<link_variant> DeclarationWalker::typeSpecifier(const ParseNode& node) {
    const ParseNode& first = node.children.at(0);
    if (first.rule == GrammarRule::struct_or_union_specifier) {
        auto entry = structOrUnionSpecifier(first);
        auto link = makeSpecifierLink(NOUN_STRUCT);
        link->setStructdef(findChainEnd(entry->type)->getStructdef());
        return link;
    }
    if (first.rule == GrammarRule::enum_specifier) return enumSpecifier(first);
    // A keyword or a typedef name. The target's own types come first, so
    // an "int" described by debug information wins over the built-in one.
    const std::string word = first.text();
    auto known = api->findtype(word);
    if (known && known->type) return privateCopy(known->type);
    return lexemeToLink(word);
}

boost::shared_ptr<symtab> DeclarationWalker::structOrUnionSpecifier(const ParseNode& node) {
    const std::string keyword = node.children.at(0).text();
    // Unions and classes lay their members over one another.
    const bool sequential = !keyword.empty() && keyword[0] == 's';

    if (const ParseNode* typeName = node.child(GrammarRule::TYPENAME)) {
        auto found = api->findtype(typeName->text());
        if (!found || !isStruct(found->type))
            throw "<struct/class/union> used together with an unknown name";
        return found;
    }

    const ParseNode* tag = node.child(GrammarRule::IDENTIFIER_SINGLE);
    boost::shared_ptr<symtab> entry;
    if (tag) {
        const std::string name = tag->text();
        if (api->findtype(name)) throw "struct/class/union definition redefines a name";
        entry = boost::make_shared<symtab>(name);
    } else {
        entry = boost::make_shared<symtab>("st");
    }
    auto link = makeSpecifierLink(NOUN_STRUCT);
    auto definition = boost::make_shared<structdef>();
    definition->tag = entry->name;
    link->setStructdef(definition);
    entry->type = entry->etype = link;
    // Stored before the members, so that a member may point at the struct.
    if (tag) api->storeType(entry->name, entry);

    api->pushScope(entry->name);
    definition->fields = structDeclarationList(*node.child(GrammarRule::struct_declaration_list));
    api->popScope();
    definition->size = layoutFields(definition->fields, sequential, *api->getCompilerInfo());
    return entry;
}

boost::shared_ptr<symtab> DeclarationWalker::structDeclarationList(const ParseNode& node) {
    return chainChildren(node, GrammarRule::struct_declaration,
                         [this](const ParseNode& child) { return structDeclaration(child); });
}

boost::shared_ptr<symtab> DeclarationWalker::structDeclaration(const ParseNode& node) {
    auto chain = specifierList(node.children.at(0));
    auto fields = structDeclaratorList(*node.child(GrammarRule::struct_declarator_list));
    assembleType(fields, chain);
    return fields;
}

boost::shared_ptr<symtab> DeclarationWalker::structDeclaratorList(const ParseNode& node) {
    return chainChildren(node, GrammarRule::struct_declarator,
                         [this](const ParseNode& child) { return structDeclarator(child); });
}

boost::shared_ptr<symtab> DeclarationWalker::structDeclarator(const ParseNode& node) {
    const ParseNode* named = node.child(GrammarRule::declarator);
    auto entry = named ? declarator(*named) : boost::make_shared<symtab>("sd");
    api->storeSymbol(entry->name, entry);
    if (const ParseNode* width = node.child(GrammarRule::constant_expression)) {
        const int32_t size = valueToInt(evaluate(*width), api);
        if (size > 128) throw "Bitfield has too many bits (max 128).";
        if (size < 0) throw "Bitfield has a negative number of bits.";
        appendDeclarator(entry, DECL_FIELD_WIDTH)
            ->decl->setBitField(static_cast<unsigned>(size), 0);
    }
    return entry;
}

boost::shared_ptr<link_variant> DeclarationWalker::enumSpecifier(const ParseNode& node) {
    if (const ParseNode* typeName = node.child(GrammarRule::TYPENAME)) {
        if (node.children.size() > 2) throw "INTERNAL: node should not have enumerator_list";
        auto found = api->findtype(typeName->text());
        if (!found || !found->type) throw "Unknown enum name";
        return privateCopy(found->type);
    }
    boost::shared_ptr<link_variant> link;
    if (const ParseNode* tag = node.child(GrammarRule::IDENTIFIER_SINGLE)) {
        link = lexemeToLink("enum");
        const std::string name = tag->text();
        if (api->findtype(name)) throw "enum redefinition";
        auto entry = boost::make_shared<symtab>(name);
        entry->type = entry->etype = link;
        api->storeType(name, entry);
    } else {
        link = lexemeToLink("int");
    }
    enumeratorList(*node.child(GrammarRule::enumerator_list));
    return link;
}

void DeclarationWalker::enumeratorList(const ParseNode& node) {
    int32_t running = 0;
    for (const ParseNode& item : node.children) {
        if (item.rule == GrammarRule::enumerator)
            running = static_cast<int32_t>(static_cast<uint32_t>(enumerator(item, running)) + 1u);
    }
}

int32_t DeclarationWalker::enumerator(const ParseNode& node, int32_t running) {
    int32_t number = running;
    if (const ParseNode* initializer = node.child(GrammarRule::constant_expression)) {
        const value given = evaluate(*initializer);
        if (given.type && isFloat(given.type)) throw "enum initializer is a floating point";
        // A value that is not a constant (a variable) keeps the count going.
        if (given.type && isInt(given.type) && isConstant(given.type))
            number = static_cast<int32_t>(constantInteger(api, given));
    }
    auto entry = boost::make_shared<symtab>(node.children.at(0).text());
    auto link = makeSpecifierLink(NOUN_INT, IT_SINT);
    link->spec->sclass = SC_CONSTANT;
    link->spec->val = static_cast<uint64_t>(static_cast<int64_t>(number));
    entry->type = entry->etype = link;
    api->storeSymbol(entry->name, entry);
    return number;
}

boost::shared_ptr<symtab> DeclarationWalker::declarator(const ParseNode& node) {
    auto entry = directDeclarator(*node.child(GrammarRule::direct_declarator));
    if (const ParseNode* star = node.child(GrammarRule::pointer)) pointer(*star, entry);
    return entry;
}

boost::shared_ptr<symtab> DeclarationWalker::directDeclarator(const ParseNode& node) {
    const ParseNode* name = node.child(GrammarRule::IDENTIFIER_SINGLE);
    auto entry = name ? boost::make_shared<symtab>(name->text())
                      : declarator(*node.child(GrammarRule::declarator));
    suffixes(*lastChild(node), entry);
    return entry;
}

boost::shared_ptr<symtab> DeclarationWalker::abstractDeclarator(const ParseNode& node) {
    const ParseNode* direct = node.child(GrammarRule::direct_abstract_declarator);
    auto entry = direct ? directAbstractDeclarator(*direct) : boost::make_shared<symtab>("ad");
    if (const ParseNode* star = node.child(GrammarRule::pointer)) pointer(*star, entry);
    return entry;
}

boost::shared_ptr<symtab> DeclarationWalker::directAbstractDeclarator(const ParseNode& node) {
    boost::shared_ptr<symtab> entry;
    if (const ParseNode* inner = node.child(GrammarRule::abstract_declarator)) {
        entry = abstractDeclarator(*inner);
    } else if (node.children.at(0).isLiteral("(")) {
        entry = boost::make_shared<symtab>("fn");
        functionSuffix(node.child(GrammarRule::parameter_type_list), entry);
    } else {
        entry = boost::make_shared<symtab>("ad");
        arraySuffix(node.child(GrammarRule::constant_expression), entry);
    }
    suffixes(*lastChild(node), entry);
    return entry;
}

// Every suffix of a direct_abstract_declarator_helper chain, left to
// right: "[2][3]" is an array of 2 arrays of 3, the outer dimension at the
// head of the chain as the struct layout expects.
void DeclarationWalker::suffixes(const ParseNode& helper, const boost::shared_ptr<symtab>& entry) {
    if (helper.rule != GrammarRule::direct_abstract_declarator_helper || helper.children.empty())
        return;
    if (helper.children[0].isLiteral("["))
        arraySuffix(helper.child(GrammarRule::constant_expression), entry);
    else
        functionSuffix(helper.child(GrammarRule::parameter_type_list), entry);
    suffixes(*lastChild(helper), entry);
}

void DeclarationWalker::arraySuffix(const ParseNode* dimension,
                                    const boost::shared_ptr<symtab>& entry) {
    if (!dimension) {
        // "int []" is "int *".
        appendDeclarator(entry, DECL_POINTER);
        return;
    }
    // Looked at as it stands: a constant carries its number, nothing is
    // read from the target.
    const value size = evaluate(*dimension);
    int64_t count = 0;
    if (size.type && isFloat(size.type)) {
        if (gLogMask & LOG_MASK_WARN)
            BackendLogger::warn(L_DBG, "array dim is a floating point, truncating to int");
        const double truncated = std::trunc(valueToDouble(size, api));
        if (!(truncated >= 0 && truncated <= 0x7FFFFFFF)) throw "array dim is out of range.";
        count = static_cast<int64_t>(truncated);
    } else if (size.type && isInt(size.type)) {
        count = constantInteger(api, size);
    } else {
        throw "array dim is not numeric.";
    }
    if (count < 0 || count > 0x7FFFFFFF) throw "array dim is out of range.";
    appendDeclarator(entry, DECL_ARRAY)->decl->numele = static_cast<uint32_t>(count);
}

void DeclarationWalker::functionSuffix(const ParseNode* parameters,
                                       const boost::shared_ptr<symtab>& entry) {
    // "(" ")" declares nothing.
    if (!parameters) return;
    api->pushScope("");
    auto list = parameterList(*parameters->child(GrammarRule::parameter_list));
    appendDeclarator(entry, DECL_FUNCTION)->setArgs(list);
    api->popScope();
}

void DeclarationWalker::pointer(const ParseNode& node, const boost::shared_ptr<symtab>& entry) {
    // Qualifiers of a pointer have no lasting effect and are skipped.
    appendDeclarator(entry, DECL_POINTER);
    if (const ParseNode* inner = node.child(GrammarRule::pointer)) pointer(*inner, entry);
}

boost::shared_ptr<symtab> DeclarationWalker::parameterList(const ParseNode& node) {
    return chainChildren(node, GrammarRule::parameter_declaration,
                         [this](const ParseNode& child) { return parameterDeclaration(child); });
}

boost::shared_ptr<symtab> DeclarationWalker::parameterDeclaration(const ParseNode& node) {
    auto chain = specifierList(node.children.at(0));
    boost::shared_ptr<symtab> entry;
    if (const ParseNode* named = node.child(GrammarRule::declarator))
        entry = declarator(*named);
    else if (const ParseNode* abstract = node.child(GrammarRule::abstract_declarator))
        entry = abstractDeclarator(*abstract);
    else
        entry = boost::make_shared<symtab>("fa");
    assembleType(entry, chain);
    return entry;
}
