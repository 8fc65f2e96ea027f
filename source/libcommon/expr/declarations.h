#ifndef LIBCOMMON_EXPR_DECLARATIONS_H
#define LIBCOMMON_EXPR_DECLARATIONS_H

// The walk of the type part of a parse tree: type names of casts and
// sizeof, with their specifier lists, pointers, array and function
// suffixes, and the struct, union and enum definitions that may stand
// inside them. The result is a symtab whose chain is the type: declarator
// links from the outside in, then the specifier chain hung behind them.
//
// Definitions outlive the type name: a struct or enum tag goes to the
// symbol API's types list before its members are walked (so a member may
// point at the struct itself), and every enumerator and struct member
// goes to its symbols list. A failure part-way leaves what was stored, so
// running the same definition again fails with the redefinition message
// for as long as the API's lists live.
//
// Entries made where the text gives no name carry fixed short names:
// "tn" a type name without declarator, "ad" an empty abstract declarator,
// "fa" a parameter without declarator, "fn" a function suffix, "sd" a
// width-only struct member, "st" (also the tag) an anonymous struct.
//
// Failures are thrown as plain C strings, "Illegal lexeme <word>" as
// GenericError; expressions inside a type (array sizes, bit-field widths,
// enumerator values) are evaluated through the caller.
//
//     DeclarationWalker types(api, [&](const ParseNode& n) { return walk(n); });
//     boost::shared_ptr<symtab> t = types.typeName(typeNameNode);
//     get_bit_sizeof(t->type, *api->getCompilerInfo());

#include "libcommon/expr/grammar.h"
#include "libcommon/expr/typechains.h"

#include <boost/shared_ptr.hpp>

#include <functional>
#include <string>

class SymbolAccessorApi;

class DeclarationWalker {
public:
    // Evaluates a constant_expression node (without reading the target
    // unless the expression itself needs to).
    typedef std::function<value(const ParseNode&)> Evaluate;

    DeclarationWalker(boost::shared_ptr<SymbolAccessorApi> api, Evaluate evaluate);

    // A type_name node: the type as the chain of the returned entry.
    boost::shared_ptr<symtab> typeName(const ParseNode& node);

private:
    boost::shared_ptr<link_variant> specifierList(const ParseNode& node);
    boost::shared_ptr<link_variant> typeSpecifier(const ParseNode& node);
    boost::shared_ptr<symtab> structOrUnionSpecifier(const ParseNode& node);
    boost::shared_ptr<symtab> structDeclarationList(const ParseNode& node);
    boost::shared_ptr<symtab> structDeclaration(const ParseNode& node);
    boost::shared_ptr<symtab> structDeclaratorList(const ParseNode& node);
    boost::shared_ptr<symtab> structDeclarator(const ParseNode& node);
    boost::shared_ptr<link_variant> enumSpecifier(const ParseNode& node);
    void enumeratorList(const ParseNode& node);
    int32_t enumerator(const ParseNode& node, int32_t running);
    boost::shared_ptr<symtab> declarator(const ParseNode& node);
    boost::shared_ptr<symtab> directDeclarator(const ParseNode& node);
    boost::shared_ptr<symtab> abstractDeclarator(const ParseNode& node);
    boost::shared_ptr<symtab> directAbstractDeclarator(const ParseNode& node);
    void suffixes(const ParseNode& helper, const boost::shared_ptr<symtab>& entry);
    void arraySuffix(const ParseNode* dimension, const boost::shared_ptr<symtab>& entry);
    void functionSuffix(const ParseNode* parameters, const boost::shared_ptr<symtab>& entry);
    void pointer(const ParseNode& node, const boost::shared_ptr<symtab>& entry);
    boost::shared_ptr<symtab> parameterList(const ParseNode& node);
    boost::shared_ptr<symtab> parameterDeclaration(const ParseNode& node);
    // A chain the symbol API already holds, copied so that combining it
    // with other specifiers cannot change the stored type.
    boost::shared_ptr<link_variant> privateCopy(const boost::shared_ptr<link_variant>& chain);

    boost::shared_ptr<SymbolAccessorApi> api;
    Evaluate evaluate;
};

// The link of one specifier or qualifier word ("int", "unsigned",
// "__mem_eeprom", ...); any other word throws GenericError
// "Illegal lexeme <word>".
boost::shared_ptr<link_variant> lexemeToLink(const std::string& word);

// Hangs a new declarator link of that type at the end of the entry's chain.
boost::shared_ptr<link_variant> appendDeclarator(const boost::shared_ptr<symtab>& entry,
                                                 DeclaratorType type);

#endif
