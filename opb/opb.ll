/* Scanner of the OPB format: reentrant, prefix zelk_opb_, reading from the
   context's stream and keeping line and column in the context's location.
   "*" starts a comment up to the end of the line (products are written by
   juxtaposition, so "*" is never an operator); an unterminated block comment
   gives the token ERR, which no rule accepts. CR, LF and CRLF each end a line.
   A NUL byte is a byte like any other that the grammar has no place for: it
   must not be taken for the end of the input.

   Reading stays linear in the input: flex rescans a token from its start
   after each refill of its buffer, so a refill takes all the free room of the
   buffer (which doubles when a token fills it) instead of a fixed block, and
   comments are skipped in pieces of bounded length. */
%{
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <stdexcept>

#include "opb/opb_context.h"
#include "opb_parser.hpp"

#define YY_DECL yy::opb_parser::symbol_type zelk_opb_lex(yyscan_t yyscanner)
#define YY_INPUT(buf, result, max_size) \
  result = yyget_extra(yyscanner)->read_input(buf, std::size_t(max_size))
#define YY_USER_ACTION loc.columns(int(yyleng));
#define YY_FATAL_ERROR(msg) zelk_opb_fatal_error(msg, yyscanner)
#define YY_READ_BUF_SIZE INT_MAX

// Lines ended by CR, LF or CRLF in a run of line ends.
static int zelk_opb_count_lines(const char* text, int length) {
  int lines = 0;
  for (int i = 0; i < length; ++i)
    if (text[i] == '\n' || (text[i] == '\r' && (i + 1 == length || text[i + 1] != '\n'))) ++lines;
  return lines;
}

[[noreturn]] static void zelk_opb_fatal_error(const char* message, void* scanner);
%}

%option prefix="zelk_opb_"
%option reentrant
%option extra-type="zelk::opb::context*"
%option noyywrap nounput noinput batch never-interactive
%option nounistd
%option full 8bit

%x COMMENT LINE_COMMENT

%%

%{
  yy::location& loc = yyextra->location();
  loc.step();
%}

[0-9]+                  {
                          // Saturated: a larger number is as unusable as INT_MAX.
                          const long value = std::strtol(yytext, nullptr, 10);
                          return yy::opb_parser::make_INTEGER(value > INT_MAX ? INT_MAX : int(value), loc);
                        }
"min"                   { return yy::opb_parser::make_MIN(loc); }
"max"                   { return yy::opb_parser::make_MAX(loc); }
[A-Za-z_][A-Za-z0-9_]*  {
                          char* name = strdup(yytext);
                          if (name == nullptr) throw std::bad_alloc();
                          return yy::opb_parser::make_IDENTIFIER(name, loc);
                        }
[ \t]+                  { loc.step(); }
(\r|\n)+                { loc.lines(zelk_opb_count_lines(yytext, int(yyleng))); loc.step(); }
"<="                    { return yy::opb_parser::make_LE(loc); }
">="                    { return yy::opb_parser::make_GE(loc); }
"*"                     { BEGIN(LINE_COMMENT); loc.step(); }
"/*"                    { BEGIN(COMMENT); }
\0                      { return yy::opb_parser::make_YYUNDEF(loc); }
.                       {
                          return yy::opb_parser::symbol_type(
                              int(static_cast<unsigned char>(yytext[0])), loc);
                        }
<INITIAL><<EOF>>         { return yy::opb_parser::make_END(loc); }

<LINE_COMMENT>[^\r\n]{1,64} { loc.step(); }
<LINE_COMMENT>\r\n|\r|\n  { BEGIN(INITIAL); loc.lines(1); loc.step(); }
<LINE_COMMENT><<EOF>>   { BEGIN(INITIAL); return yy::opb_parser::make_END(loc); }

<COMMENT>"*/"           { BEGIN(INITIAL); loc.step(); }
<COMMENT>[^*\r\n]{1,64} { loc.step(); }
<COMMENT>"*"            { loc.step(); }
<COMMENT>(\r|\n)+       { loc.lines(zelk_opb_count_lines(yytext, int(yyleng))); loc.step(); }
<COMMENT><<EOF>>        { return yy::opb_parser::make_ERR(loc); }

%%

static void zelk_opb_fatal_error(const char* message, void* scanner) {
  std::cerr << yyget_extra(scanner)->location() << ":" << message << std::endl;
  throw std::runtime_error(message);
}
