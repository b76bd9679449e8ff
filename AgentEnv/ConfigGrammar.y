/* The grammar of configuration files: includes, then entities holding
 * attributes and nested entities.
 *
 * Actions hand what they find to the reader, which passes it on to the
 * ConfigFileParser as events (ConfigEvents.h).
 * Texts (identifiers, strings and the strings built from them) are owned by
 * the value stack: an action takes over the texts it consumes (Owned), and
 * %destructor hands back those that error recovery or an abandoned parse
 * throws away; both give them back to the reader, which reuses them. Every call that may throw runs under ACT: the exception is kept by
 * the reader and the parse is abandoned (YYABORT), so the stack is released
 * before the reader rethrows it. */

%define api.pure full
%define api.prefix {agentenv_}
%param {Zet::ConfigReader& reader}

/* The only conflict: "a" + "b" + "c" can group either way. Shifting groups
 * it from the right, a + (b + c), which is how concatenation works here.
 * Another shift/reduce conflict, or any reduce/reduce one, fails the build. */
%expect 1

%code requires {
namespace Zet {
class ConfigReader;
class ConfigText;
}
}

%code {
#include <memory>
#include <string>

#include "AgentEnv/ConfigReader.h"
#include "AgentEnv/ConfigText.h"

struct Recycle {
  Zet::ConfigReader* reader;
  void operator()(Zet::ConfigText* text) const noexcept { reader->recycle(text); }
};
using Owned = std::unique_ptr<Zet::ConfigText, Recycle>;
#define OWN(text) Owned(text, Recycle{&reader})
using Type = Zet::ConfigFileParser::AttributeType;
using Found = Zet::ConfigEvent::Kind;

#define ACT(...) do { if (!reader.guarded([&] { __VA_ARGS__; })) YYABORT; } while (0)
#define DEFINE(text, type) ACT(Owned value = OWN(text); reader.defineAttribute(type, value->view()))
#define MISSING_SEMICOLON(text) ACT(Owned value = OWN(text); reader.displayAttributeError("missing semi-colon", -1))

/* Nesting 10,000 entities deep takes about 30,000 stack entries, and a line
 * of 250,000 joined strings 500,000; the stack lives on the heap. */
#define YYMAXDEPTH 1000000
}

%union {
  Zet::ConfigText* text;
  long integer;
  double number;
  bool boolean;
}

%token SOURCE_0 258
%token SOURCE_1 259
%token PATH_SUFFIX 260
%token INCLUDE 261
%token UNMOUNT_TYPE 262
%token TARGET 263
%token DEPENDENCY 264
%token TIMEOUT_PERIOD 265
%token TYPE_NAME 266
%token <integer> ANY_PORT 267
%token <text> IDENTIFIER 268
%token <text> STRING_LITERAL 269
%token <boolean> BOOL_LITERAL 270  /* scanned, but no rule accepts it */
%token <integer> INT_LITERAL 271
%token <number> DOUBLE_LITERAL 272

%type <text> StringValue
%type <number> NumValue

%destructor { reader.recycle($$); } <text>

%start Program

%%

Program
    : IncludeList EntityList
    ;

IncludeList
    : IncludeList Include
    | %empty
    ;

Include
    : INCLUDE STRING_LITERAL            { ACT(Owned file = OWN($2); reader.found(Found::include, file->view())); }
    ;

EntityList
    : EntityList Entity
    | Entity
    ;

Entity
    : EntHead EntBody
    ;

EntHead
    : IDENTIFIER                        { ACT(Owned name = OWN($1); reader.found(Found::entityOpens, name->view())); }
    ;

EntBody
    : '{' List '}'                      { ACT(reader.found(Found::entityCloses)); }
    | '{' List error                    { ACT(reader.displayError("unmatched bracket")); }
    ;

List
    : List Attribute
    | List Entity
    | Attribute
    | Entity
    ;

Attribute
    : SOURCE_0 '=' StringValue ';'      { DEFINE($3, Type::source0); }
    | SOURCE_1 '=' StringValue ';'      { DEFINE($3, Type::source1); }
    | PATH_SUFFIX '=' StringValue ';'   { DEFINE($3, Type::pathSuffix); }
    | TARGET '=' StringValue ';'
        { ACT(Owned value = OWN($3);
              reader.defineAttribute(Type::target, value->view() == "anyPort" ? std::string_view("65535") : value->view())); }
    | TARGET '=' ANY_PORT ';'           { ACT(reader.defineAttribute(Type::target, std::to_string($3))); }
    | TYPE_NAME '=' StringValue ';'     { DEFINE($3, Type::uType); }
    | DEPENDENCY '=' StringValue ';'
        { ACT(Owned value = OWN($3);
              if (value->view() == "_NOT READY_") reader.displayError("dependency cannot have value '_NOT READY_'");
              else reader.attribute(Type::dependency, value->view())); }
    | TIMEOUT_PERIOD '=' NumValue ';'
        { ACT(reader.attribute(Type::timeoutPeriod, reader.numberText($3))); }
    | UNMOUNT_TYPE '=' IDENTIFIER ';'   { DEFINE($3, Type::unmountType); }
    | AttributeError
    ;

NumValue
    : INT_LITERAL                       { $$ = static_cast<double>($1); }
    | DOUBLE_LITERAL                    { $$ = $1; }
    | '$' '{' IDENTIFIER '}'            { ACT(Owned name = OWN($3); $$ = reader.numericSubstitution(name->view())); }
    ;

StringValue
    : STRING_LITERAL                    { $$ = $1; }
    | '$' '{' IDENTIFIER '}'            { ACT(Owned name = OWN($3); $$ = reader.substitution(name->view())); }
    | StringValue '+' StringValue
        { ACT(Owned left = OWN($1); Owned right = OWN($3); reader.concatenate(left->view(), *right); $$ = right.release()); }
    ;

AttributeError
    : SOURCE_0 '=' StringValue          { MISSING_SEMICOLON($3); }
    | SOURCE_1 '=' StringValue          { MISSING_SEMICOLON($3); }
    | PATH_SUFFIX '=' StringValue       { MISSING_SEMICOLON($3); }
    | TARGET '=' StringValue            { MISSING_SEMICOLON($3); }
    | DEPENDENCY '=' StringValue        { MISSING_SEMICOLON($3); }
    | TYPE_NAME '=' StringValue         { MISSING_SEMICOLON($3); }
    | TIMEOUT_PERIOD '=' StringValue    { MISSING_SEMICOLON($3); }
    | IDENTIFIER '=' StringValue ';'
        { ACT(Owned name = OWN($1); Owned value = OWN($3); reader.displayError("unknown attribute name: " + std::string(name->view()))); }
    | IDENTIFIER '=' INT_LITERAL ';'
        { ACT(Owned name = OWN($1); reader.displayError("unknown attribute name: " + std::string(name->view()))); }
    | IDENTIFIER '=' DOUBLE_LITERAL ';'
        { ACT(Owned name = OWN($1); reader.displayError("unknown attribute name: " + std::string(name->view()))); }
    ;

%%
