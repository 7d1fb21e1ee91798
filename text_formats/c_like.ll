/* Scanner of the C-like modelling language: reentrant, prefix zelk_c_like_,
   reading the context's stream one character at a time. Only blanks, line ends
   and comments move the begin of the location, so a token glued to the one
   before keeps that token's begin. Numbers above 2^32 - 1, the operators ++
   and -- and a comment that is never closed give the token ERR, which no rule
   accepts. */
%{
#include <cstdlib>
#include <iostream>
#include <istream>
#include <stdexcept>
#include <string>

#include "text_formats/c_like_solver.h"
#include "text_formats/parser_context.h"
#include "c_like_parser.hpp"

typedef yy::c_like_parser::token token;

#define YY_DECL                                                                          \
  int c_like_lex(yy::c_like_parser::semantic_type* yylval,                               \
                 yy::c_like_parser::location_type* yylloc, yyscan_t yyscanner)
#define YY_INPUT(buf, result, max_size)                                                  \
  {                                                                                      \
    char c;                                                                              \
    if (max_size > 0 && yyget_extra(yyscanner)->input->get(c)) {                         \
      buf[0] = c;                                                                        \
      result = 1;                                                                        \
    } else {                                                                             \
      result = YY_NULL;                                                                  \
    }                                                                                    \
  }
#define YY_USER_ACTION yylloc->columns(int(yyleng));
#define YY_FATAL_ERROR(msg) zelk_c_like_fatal_error(msg, yyscanner)
#define YY_BUF_SIZE 16384

[[noreturn]] static void zelk_c_like_fatal_error(const char* message, void* scanner);
static int integer_token(const char* text, int base, const char* limit,
                         yy::c_like_parser::semantic_type* yylval,
                         const yy::c_like_parser::location_type& location);
%}

%option prefix="zelk_c_like_"
%option reentrant
%option extra-type="zelk::parser_context*"
%option noyywrap nounput noinput batch never-interactive
%option nounistd

%x BLOCK_COMMENT

%%

"int"                   { return token::INT; }
"bool"                  { return token::BOOL; }
"unsigned"              { return token::UNSIGNED; }
"abs"                   { return token::ABS; }
"pow"                   { return token::POW; }
"minimize"              { return token::MINIMIZE; }
"maximize"              { return token::MAXIMIZE; }
"min"                   { return token::MIN; }
"max"                   { return token::MAX; }
0|[1-9][0-9]*           { return integer_token(yytext, 10, "4294967295", yylval, *yylloc); }
0x[0-9a-fA-F]+          { return integer_token(yytext, 16, "0xffffffff", yylval, *yylloc); }
0[0-9a-fA-F]+           { return integer_token(yytext, 8, "037777777777", yylval, *yylloc); }
[A-Za-z_][A-Za-z0-9_]*  {
                          yylval->emplace<std::string>(yytext, std::size_t(yyleng));
                          return token::IDENTIFIER;
                        }
[ \t\r]+                { yylloc->step(); }
\n+                     { yylloc->lines(int(yyleng)); yylloc->step(); }
"<="                    { return token::LE; }
">="                    { return token::GE; }
"=="                    { return token::EQ; }
"!="                    { return token::NE; }
"&&"                    { return token::AND; }
"||"                    { return token::OR; }
"++"|"--"               {
                          std::cerr << *yylloc << ": operator " << yytext << " is not supported\n";
                          return token::ERR;
                        }
"//"[^\n]*              { yylloc->step(); }
"/*"                    { BEGIN(BLOCK_COMMENT); }
<BLOCK_COMMENT>"*/"     { BEGIN(INITIAL); yylloc->step(); }
<BLOCK_COMMENT>[^*\n]+  { }
<BLOCK_COMMENT>"*"      { }
<BLOCK_COMMENT>\n+      { yylloc->lines(int(yyleng)); }
<BLOCK_COMMENT><<EOF>>  { BEGIN(INITIAL); return token::ERR; }
\0                      {
                          // As itself it would read as the end of the file, and the
                          // statements after it would silently drop out of the model.
                          return token::YYUNDEF;
                        }
.|\n                    { return int(static_cast<unsigned char>(yytext[0])); }

%%

static int integer_token(const char* text, int base, const char* limit,
                         yy::c_like_parser::semantic_type* yylval,
                         const yy::c_like_parser::location_type& location) {
  // strtoul stops at the first digit its base doesn't know: "019" reads as 1.
  const unsigned long long value = std::strtoull(text, nullptr, base);
  if (value > 0xFFFFFFFFull) {
    std::cerr << location << ": integer " << text << " is bigger than any unsigned (" << limit
              << ")" << std::endl;
    return yy::c_like_parser::token::ERR;
  }
  yylval->emplace<unsigned long long>(value);
  return yy::c_like_parser::token::INT_VALUE;
}

static void zelk_c_like_fatal_error(const char* message, void* scanner) {
  (void)scanner;
  std::cerr << message << std::endl;
  throw std::runtime_error(message);
}

namespace zelk {

const c_like_scanner_methods* c_like_scanner_methods::get() {
  static const c_like_scanner_methods methods;
  return &methods;
}

void c_like_scanner_methods::start_scanner(parser_context& context) const {
  yyscan_t scanner = nullptr;
  if (zelk_c_like_lex_init_extra(&context, &scanner) != 0)
    throw std::runtime_error("out of dynamic memory in yy_get_next_buffer()");
  context.scanner = scanner;
}

void c_like_scanner_methods::destroy_scanner(parser_context& context) const {
  if (context.scanner != nullptr) zelk_c_like_lex_destroy(context.scanner);
  context.scanner = nullptr;
}

}  // namespace zelk
