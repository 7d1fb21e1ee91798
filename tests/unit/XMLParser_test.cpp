#include "xcsp/XMLParser.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <fstream>
#include <new>
#include <sstream>
#include <stdexcept>

#include "impl/utilities.h"
#include "unit/xcsp_recording_callback.h"

using namespace CSPXMLParser;
using zelk_test::xcsp_recording_callback;

namespace {

typedef XMLParser_libxml2<CSPParserCallback, DefaultASTFactory> reader;

// The outcome of one parse: the events, the message of an exception and what
// went to standard output and standard error.
struct outcome {
  std::string events;
  std::string error;
  std::string out;
  std::string err;
};

outcome read_document(const std::string& document) {
  xcsp_recording_callback callback;
  outcome result;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  try {
    reader parser(callback);
    std::istringstream in(document);
    EXPECT_EQ(parser.parse(in), 0);
  } catch (const std::exception& e) {
    result.error = e.what();
  }
  result.out = testing::internal::GetCapturedStdout();
  result.err = testing::internal::GetCapturedStderr();
  result.events = callback.transcript();
  return result;
}

// Two domains, two variables X and Y over D.
const std::string head =
    "<instance><presentation name='t'/>"
    "<domains nbDomains='1'><domain name='D' nbValues='2'>0..1</domain></domains>"
    "<variables nbVariables='2'><variable name='X' domain='D'/><variable name='Y' domain='D'/>"
    "</variables>";

std::string constraint(const std::string& reference, const std::string& parameters) {
  return head + "<constraints nbConstraints='1'><constraint name='C' arity='2' scope='X Y' reference='" +
         reference + "'>" + parameters + "</constraint></constraints></instance>";
}

std::string relation(const std::string& attributes, const std::string& tuples) {
  return "<instance><relations nbRelations='1'><relation name='R' " + attributes + ">" + tuples +
         "</relation></relations></instance>";
}

std::string predicate(const std::string& parameters, const std::string& expression) {
  return "<instance><predicates nbPredicates='1'><predicate name='P'><parameters>" + parameters +
         "</parameters><expression>" + expression + "</expression></predicate></predicates></instance>";
}

//==== One tiny document per message ============================================

struct bad_document {
  const char* name;
  std::string document;
  std::string message;
};

std::ostream& operator<<(std::ostream& out, const bad_document& c) { return out << c.name; }

class reader_messages : public testing::TestWithParam<bad_document> {};

TEST_P(reader_messages, exact_text_with_the_line) {
  const bad_document& c = GetParam();
  outcome result = read_document(c.document);
  EXPECT_EQ(result.error, c.message);
  EXPECT_EQ(result.out, "Exception at line 1\n");
}

const bad_document bad_documents[] = {
    {"defined_twice",
     "<instance><domains nbDomains='2'><domain name='D' nbValues='1'>1</domain>"
     "<domain name='D' nbValues='1'>2</domain></domains></instance>",
     "symbol D is defined twice"},
    {"defined_twice_across_types",
     "<instance><domains nbDomains='1'><domain name='D' nbValues='1'>1</domain></domains>"
     "<variables nbVariables='1'><variable name='D' domain='D'/></variables></instance>",
     "symbol D is defined twice"},
    {"undefined_domain",
     "<instance><variables nbVariables='1'><variable name='X' domain='E'/></variables></instance>",
     "symbol E is undefined"},
    {"wrong_symbol_type",
     head + "<variables nbVariables='1'><variable name='Z' domain='X'/></variables></instance>",
     "symbol X doesn't have the expected type"},
    {"undefined_variable_in_scope", constraint("global:alldifferent", "").replace(
                                        constraint("global:alldifferent", "").find("X Y"), 3, "X W"),
     "symbol W is undefined"},
    {"undefined_variable_abridged", constraint("global:alldifferent", "<parameters>[ X Q ]</parameters>"),
     "symbol Q is undefined"},
    {"undefined_global", constraint("Global:Among", ""), "symbol Global:Among is undefined"},
    {"undefined_reference", constraint("R9", ""), "symbol R9 is undefined"},
    {"no_parent", "<domains nbDomains='0'/>", "tag has no parent but it should have one"},
    {"instance_in_instance", "<instance><instance/></instance>", "tag should have no parent"},
    {"wrong_parent", "<instance><domain name='D' nbValues='1'>1</domain></instance>",
     "wrong parent for tag"},
    {"element_in_flat_element", "<instance><presentation><x/></presentation></instance>",
     "this element must not contain any element"},
    {"element_in_formal_parameters", predicate("int <i>1</i>", ""),
     "this element must not contain any element"},
    {"text_in_instance", "<instance>hello</instance>", "<instance> tag should not have meaningful text"},
    {"text_in_list", constraint("global:alldifferent", "<parameters><list>%</list></parameters>"),
     "<list> tag should not have meaningful text"},
    {"text_in_parameters", constraint("global:alldifferent", "<parameters>X ; Y</parameters>"),
     "<parameters> tag should not have meaningful text"},
    {"parameters_in_instance", "<instance><parameters/></instance>", "unexpected <parameters> tag"},
    {"parameters_at_root", "<parameters/>", "unexpected <parameters> tag"},
    {"expression_in_domains", "<instance><domains nbDomains='0'><expression/></domains></instance>",
     "unexpected <expression> tag"},
    {"no_nbDomains", "<instance><domains/></instance>", "expected attribute nbDomains for tag <domains>"},
    {"nbDomains_not_integer", "<instance><domains nbDomains='two'/></instance>",
     "expected attribute nbDomains for tag <domains>"},
    {"no_nbValues", "<instance><domains nbDomains='1'><domain name='D'>1</domain></domains></instance>",
     "expected attribute nbValue for tag <domain>"},
    {"no_domain_name", "<instance><domains nbDomains='1'><domain nbValues='1'>1</domain></domains></instance>",
     "expected attribute name for tag <domain>"},
    {"no_nbVariables", "<instance><variables/></instance>",
     "expected attribute nbVariables for tag <variables>"},
    {"no_variable_domain", "<instance><variables nbVariables='1'><variable name='X'/></variables></instance>",
     "expected attribute domain for tag <variable>"},
    {"no_nbRelations", "<instance><relations/></instance>", "expected attribute nbRelation for tag <relations>"},
    {"no_nbPredicates", "<instance><predicates/></instance>",
     "expected attribute nbPredicate for tag <predicates>"},
    {"no_nbConstraints", "<instance><constraints/></instance>",
     "expected attribute nbConstraints for tag <constraints>"},
    {"no_relation_arity", relation("nbTuples='0' semantics='supports'", ""),
     "expected attribute arity for tag <relation>"},
    {"no_relation_semantics", relation("arity='1' nbTuples='0'", ""),
     "expected attribute semantics for tag <relation>"},
    {"no_default_cost", relation("arity='1' nbTuples='0' semantics='soft'", ""),
     "expected attribute defaultCost for tag <relation>"},
    {"no_constraint_arity",
     head + "<constraints nbConstraints='1'><constraint name='C' scope='X' reference='global:alldifferent'/>"
            "</constraints></instance>",
     "expected attribute arity for tag <constraint>"},
    {"no_constraint_scope",
     head + "<constraints nbConstraints='1'><constraint name='C' arity='1' reference='global:alldifferent'/>"
            "</constraints></instance>",
     "expected attribute scope for tag <constraint>"},
    {"no_var_name", constraint("global:alldifferent", "<parameters><var/></parameters>"),
     "expected attribute name for tag <var>"},
    {"no_entry_key", constraint("global:weightedsum", "<parameters><dict><entry/></dict></parameters>"),
     "expected attribute key for tag <entry>"},
    {"arity_zero", relation("arity='0' nbTuples='0' semantics='supports'", ""), "arity must be >0"},
    {"unknown_semantics", relation("arity='1' nbTuples='0' semantics='allowed'", ""),
     "unknown semantics for tag <relation>"},
    {"colon_in_hard_relation", relation("arity='2' nbTuples='1' semantics='supports'", "5:1 2"),
     "unexpected colon (':') in relation"},
    {"colon_after_two_values", relation("arity='2' nbTuples='1' semantics='soft' defaultCost='1'", "5 6:1 2"),
     "unexpected colon (':') in relation"},
    {"short_tuple_before_pipe", relation("arity='2' nbTuples='1' semantics='supports'", "1|"),
     "unexpected pipe ('|') in relation"},
    {"long_tuple", relation("arity='2' nbTuples='1' semantics='supports'", "1 2 3|"),
     "missing pipe ('|') in relation"},
    {"tuple_value_not_integer", relation("arity='2' nbTuples='1' semantics='supports'", "1 x"),
     "failed to read integer"},
    {"last_tuple_incomplete", relation("arity='2' nbTuples='2' semantics='supports'", "1 2|3"),
     "last tuple is incomplete !"},
    {"tuple_count", relation("arity='2' nbTuples='3' semantics='conflicts'", "1 2|3 4"),
     "effective number of tuples doesn't match the announced number"},
    {"formal_parameter_without_name", predicate("int X int", "<functional>X</functional>"),
     "missing formal parameter name after type"},
    {"unknown_function", predicate("int X", "<functional>foo(X)</functional>"), "unknown function symbol"},
    {"undefined_parameter", predicate("int X", "<functional>add(X,Y)</functional>"),
     "undefined variable found in expression"},
    {"expression_in_constraint",
     constraint("global:alldifferent", "<expression><functional>eq(X,Y)</functional></expression>"),
     "expressions not yet suported as effective parameters"},
    {"integer_element", constraint("global:alldifferent", "<parameters><i>1 2</i></parameters>"),
     "invalid integer in <i> element"},
    {"empty_integer_element", constraint("global:alldifferent", "<parameters><i/></parameters>"),
     "invalid integer in <i> element"},
    {"domain_range_without_end",
     "<instance><domains nbDomains='1'><domain name='D' nbValues='1'>5..</domain></domains></instance>",
     "invalid integer in <domain> element"},
    {"domain_word", "<instance><domains nbDomains='1'><domain name='D' nbValues='1'>one</domain></domains></instance>",
     "invalid integer in <domain> element"},
    {"text_in_symbol", constraint("global:alldifferent", "<parameters><nil> </nil></parameters>"),
     "<nil/> tag must not have any text"},
    {"value_without_key", constraint("global:weightedsum", "<parameters>{ /coef 2 X }</parameters>"),
     "missing key in dictionary"},
    {"key_without_value", constraint("global:weightedsum", "<parameters>{ /coef /var X }</parameters>"),
     "missing value in dictionary"},
    {"key_twice", constraint("global:weightedsum", "<parameters>{ /coef 1 /coef 2 }</parameters>"),
     "multiple assignments to the same key in dictionary"},
    {"key_in_a_list", constraint("global:alldifferent", "<parameters>X 1 /coef Y</parameters>"),
     "dictionary key outside a dictionary"},
    {"entry_in_a_list", constraint("global:alldifferent", "<parameters>[ <entry key='a'/> ]</parameters>"),
     "dictionary key outside a dictionary"},
    {"dict_without_key_order", constraint("global:alldifferent", "<parameters>{ 1 2 }</parameters>"),
     "no conventional key order defined for this dictionary"},
    {"dict_too_short", constraint("global:weightedsum", "<parameters>{ 2 }</parameters>"),
     "not enough values in dictionary defined with conventional order"},
    {"parameters_not_a_list", constraint("global:alldifferent", "<i>3</i>"),
     "constraint parameters doesn't appear to be a list"},
    {"parameters_twice", constraint("global:alldifferent", "<parameters/><parameters/>"),
     "internal error while handling constraint parameters"},
    {"unmatched_bracket", constraint("global:alldifferent", "<parameters><list> X ] </list></parameters>"),
     "unmatched ']'"},
    {"unmatched_brace", constraint("global:alldifferent", "<parameters>[ X } ]</parameters>"),
     "unmatched '}'"},
    {"bracket_closing_parameters", constraint("global:alldifferent", "<parameters> ] </parameters>"),
     "unmatched ']'"},
    {"unclosed_bracket", constraint("global:alldifferent", "<parameters>[ X Y</parameters>"),
     "missing ']' before </parameters>"},
    {"unclosed_brace", constraint("global:weightedsum", "<parameters>[ { 2 X </parameters>"),
     "missing '}' before </parameters>"},
};

INSTANTIATE_TEST_SUITE_P(xcsp_reader, reader_messages, testing::ValuesIn(bad_documents),
                         [](const testing::TestParamInfo<bad_document>& info) { return info.param.name; });

//==== Events of well-formed documents ==========================================

TEST(xcsp_reader, sections_domains_relations_and_predicates) {
  outcome result = read_document(
      "<?xml version='1.0'?>\n"
      "<instance>\n"
      "<presentation name='demo' maxConstraintArity='2'/>\n"
      "<domains nbDomains='1'><domain name='D' nbValues='6'>1 3..5 8</domain></domains>\n"
      "<variables nbVariables='1'><variable name='X' domain='D'/></variables>\n"
      "<relations nbRelations='3'>\n"
      "<relation name='R0' arity='2' nbTuples='2' semantics='supports'>1 2|3 4</relation>\n"
      "<relation name='R1' arity='2' nbTuples='2' semantics='conflicts'>1 2|3 4|</relation>\n"
      "<relation name='R2' arity='2' nbTuples='3' semantics='soft' defaultCost='7'>0 0|5:1 2|3 4</relation>\n"
      "</relations>\n"
      "<predicates nbPredicates='2'>\n"
      "<predicate name='P0'><parameters>int A int B</parameters>\n"
      "<expression><functional>add( A , mul(2,B) )</functional></expression></predicate>\n"
      "<predicate name='P1'><parameters>int B</parameters>"
      "<expression><functional>B</functional></expression></predicate>\n"
      "</predicates>\n"
      "</instance>\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.events,
            "beginInstance demo\n"
            "beginDomainsSection 1\n"
            "beginDomain D 0 6\n"
            "addDomainValue 1\n"
            "addDomainValue 3 .. 5\n"
            "addDomainValue 8\n"
            "endDomain\n"
            "endDomainsSection\n"
            "beginVariablesSection 1\n"
            "addVariable X 0 D 0\n"
            "endVariablesSection\n"
            "beginRelationsSection 3\n"
            "beginRelation R0 0 2 2 1\n"
            "tuple 1 2\n"
            "tuple 3 4\n"
            "endRelation\n"
            "beginRelation R1 1 2 2 0\n"
            "tuple 1 2\n"
            "tuple 3 4\n"
            "endRelation\n"
            "beginRelation R2 2 2 3 2\n"
            "tuple 0 0 cost 7\n"
            "tuple 1 2 cost 5\n"
            "tuple 3 4 cost 5\n"
            "endRelation\n"
            "endRelationsSection\n"
            "beginPredicatesSection 2\n"
            "beginPredicate P0 0\n"
            "addFormalParameter 0 A int\n"
            "addFormalParameter 1 B int\n"
            "predicateExpression add(A/$0,mul(2,B/$1))\n"
            "endPredicate\n"
            "beginPredicate P1 1\n"
            "addFormalParameter 0 B int\n"
            "predicateExpression B/$0\n"
            "endPredicate\n"
            "endPredicatesSection\n"
            "endInstance\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
}

// The presentation opens the instance; its name is optional.
TEST(xcsp_reader, presentation_without_name) {
  EXPECT_EQ(read_document("<instance><presentation/></instance>").events, "beginInstance ?\nendInstance\n");
}

TEST(xcsp_reader, constraint_references_and_parameters) {
  const std::string pred =
      "<predicates nbPredicates='1'><predicate name='P'><parameters>int A int B</parameters>"
      "<expression><functional>ne(A,B)</functional></expression></predicate></predicates>";
  const std::string rel =
      "<relations nbRelations='1'><relation name='R' arity='2' nbTuples='1' semantics='conflicts'>0 0"
      "</relation></relations>";
  std::string document = head + rel + pred +
                         "<constraints nbConstraints='4'>"
                         "<constraint name='C0' arity='2' scope='X Y' reference='R'/>"
                         "<constraint name='C1' arity='2' scope='X Y' reference='P'>"
                         "<parameters>[ X 3 ] Y</parameters></constraint>"
                         "<constraint name='C2' arity='2' scope='X Y' reference='Global:AllDifferent'>"
                         "<parameters><list><var name='X'/><i>3</i></list><var name='Y'/></parameters>"
                         "</constraint>"
                         "<constraint name='C3' arity='2' scope='Y X' reference='global:weightedsum'>"
                         "<parameters>[ { /coef 2 /var X } { -1 Y } ] <ge/> 12X</parameters></constraint>"
                         "</constraints></instance>";
  outcome result = read_document(document);
  EXPECT_EQ(result.error, "");
  std::string events = result.events;
  std::string constraints = events.substr(events.find("beginConstraintsSection"));
  EXPECT_EQ(constraints,
            "beginConstraintsSection 4\n"
            "beginConstraint C0 0 2 R 0 0 [ X/$0 Y/$1 ]\n"
            "constraintParameters [ X/$0 Y/$1 ]\n"
            "endConstraint\n"
            "beginConstraint C1 1 2 P 1 0 [ X/$0 Y/$1 ]\n"
            "constraintParameters [ [ X/$0 3 ] Y/$1 ]\n"
            "endConstraint\n"
            "beginConstraint C2 2 2 global:alldifferent 2 0 [ X/$0 Y/$1 ]\n"
            "constraintParameters [ [ X/$0 3 ] Y/$1 ]\n"
            "endConstraint\n"
            "beginConstraint C3 3 2 global:weightedsum 2 5 [ Y/$1 X/$0 ]\n"
            "constraintParameters [ [ { /coef 2 /var X/$0 } { /coef -1 /var Y/$1 } ] >= 12 X/$0 ]\n"
            "endConstraint\n"
            "endConstraintsSection\n"
            "endInstance\n");
}

// Only the names of global constraints are folded to lower case.
TEST(xcsp_reader, predicate_with_the_global_prefix) {
  outcome result = read_document(
      head +
      "<predicates nbPredicates='1'><predicate name='Global:Mine'><parameters>int A</parameters>"
      "<expression><functional>A</functional></expression></predicate></predicates>"
      "<constraints nbConstraints='1'><constraint name='C' arity='1' scope='X' reference='Global:Mine'/>"
      "</constraints></instance>");
  EXPECT_EQ(result.error, "");
  EXPECT_NE(result.events.find("beginConstraint C 0 1 Global:Mine 1 0 [ X/$0 ]"), std::string::npos);
}

TEST(xcsp_reader, dictionaries_and_symbols) {
  outcome result = read_document(
      constraint("global:cumulative",
                 "<parameters>{ 1 <nil/> 3 4 } { 1 2 3 4 5 } "
                 "<dict><entry key='coef'><i>2</i></entry><entry key='var'><var name='X'/></entry></dict>"
                 "<eq/><ne/><ge/><gt/><le/><lt/></parameters>"));
  EXPECT_EQ(result.error, "");
  EXPECT_NE(result.events.find("constraintParameters [ { /end 3 /height 4 /origin 1 } "
                               "{ /duration 2 /end 3 /height 4 /origin 1 } { /coef 2 /var X/$0 } "
                               "== != >= > <= < ]\n"),
            std::string::npos)
      << result.events;
  EXPECT_NE(result.events.find("beginConstraint C 0 2 global:cumulative 2 4 "), std::string::npos);
}

// Unknown elements are skipped with a warning; what they hold is still read.
TEST(xcsp_reader, unknown_elements) {
  outcome result = read_document(
      constraint("global:alldifferent", "<parameters><wrap kind='x'><var name='X'/> free text </wrap>"
                                        "</parameters><extension>ignored</extension>"));
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.err, "WARNING: unknown tag <wrap> will be ignored\n");
  EXPECT_NE(result.events.find("constraintParameters [ X/$0 ]\nendConstraint\n"), std::string::npos);
}

TEST(xcsp_reader, infix_and_postfix_are_skipped) {
  outcome result = read_document(
      "<instance><predicates nbPredicates='2'>"
      "<predicate name='P'><parameters>int A</parameters><expression><infix>A + 1</infix></expression>"
      "</predicate>"
      "<predicate name='Q'><parameters>int A</parameters><expression><postfix>A 1 add</postfix></expression>"
      "</predicate></predicates></instance>");
  EXPECT_EQ(result.out,
            "WARNING: ignoring infix expression: A + 1\n"
            "WARNING: ignoring postfix expression: A 1 add\n");
  EXPECT_EQ(result.events.find("predicateExpression"), std::string::npos);
}

// With another preferred syntax the callback gets the expression as text.
TEST(xcsp_reader, expression_as_text) {
  struct prefix_reader : reader {
    explicit prefix_reader(CSPParserCallback& callback) : reader(callback) {
      preferredExpressionRepresentation = PREFIX;
    }
  };
  xcsp_recording_callback callback;
  prefix_reader parser(callback);
  std::istringstream in(predicate("int A int B", "<functional>sub(A,B)</functional>"));
  parser.parse(in);
  EXPECT_NE(callback.transcript().find("predicateExpression(text) sub(A/$0,B/$1)\n"), std::string::npos);
}

//==== Text cut anywhere =========================================================

std::string many_tuples(int count) {
  std::string tuples;
  for (int i = 0; i < count; ++i) tuples += std::to_string(i) + " " + std::to_string(1000000 + i) + (i % 3 ? "|" : " | ");
  return relation("arity='2' nbTuples='" + std::to_string(count) + "' semantics='supports'", tuples);
}

// The 4096-byte chunks and libxml2's own cuts fall elsewhere with each shift of
// the document; the events must not change.
TEST(xcsp_reader, chunk_boundaries_do_not_change_the_events) {
  const std::string document = many_tuples(1200);
  ASSERT_GT(document.size(), 3 * 4096u);
  const outcome reference = read_document(document);
  ASSERT_EQ(reference.error, "");
  for (int shift = 1; shift < 40; ++shift) {
    outcome shifted = read_document("<!--" + std::string(std::size_t(shift * 7), 'x') + "-->" + document);
    EXPECT_EQ(shifted.error, "") << shift;
    EXPECT_TRUE(shifted.events == reference.events) << shift;
  }
}

// A word much longer than libxml2's pieces of character data, across a chunk
// boundary, with a multi-byte character inside.
TEST(xcsp_reader, long_words_stay_whole) {
  std::string zeros(5000, '0');
  outcome result = read_document(
      "<instance><domains nbDomains='1'><domain name='D' nbValues='2'>" + zeros + "17 3.." + zeros +
      "5</domain></domains>"
      "<predicates nbPredicates='1'><predicate name='P'><parameters>int A</parameters>"
      "<expression><infix>" + std::string(4000, 'a') + "\xC3\xA9" + std::string(1000, 'b') +
      "</infix></expression></predicate></predicates></instance>");
  EXPECT_EQ(result.error, "");
  EXPECT_NE(result.events.find("beginDomain D 0 2\naddDomainValue 17\naddDomainValue 3 .. 5\nendDomain\n"),
            std::string::npos);
  EXPECT_EQ(result.out, "WARNING: ignoring infix expression: " + std::string(4000, 'a') + "\xC3\xA9" +
                            std::string(1000, 'b') + "\n");
}

//==== Driving the SAX events directly ===========================================

typedef XMLParser<CSPParserCallback, DefaultASTFactory, UTF8String, AttributeList> sax_parser;

struct sax_driver {
  xcsp_recording_callback callback;
  sax_parser parser{callback};

  sax_driver() { parser.startDocument(); }
  void start(const char* name, std::initializer_list<const char*> attributes = {}) {
    std::vector<const unsigned char*> list;
    for (const char* a : attributes) list.push_back(reinterpret_cast<const unsigned char*>(a));
    list.push_back(nullptr);
    parser.startElement(UTF8String(name), AttributeList(list.data()));
  }
  void text(const char* chars) { parser.characters(UTF8String(chars)); }
  void end(const char* name) { parser.endElement(UTF8String(name)); }
};

void expect_message(const std::function<void()>& action, const std::string& message) {
  try {
    action();
    ADD_FAILURE() << "no exception, expected " << message;
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), message);
  }
}

// A word cut over three pieces of text is one word.
TEST(xcsp_reader, word_over_three_pieces) {
  sax_driver d;
  d.start("instance");
  d.start("domains", {"nbDomains", "1"});
  d.start("domain", {"name", "D", "nbValues", "3"});
  for (const char* piece : {"1", "2", "3 4", "..", "6", " 7", "8"}) d.text(piece);
  d.end("domain");
  EXPECT_EQ(d.callback.transcript(),
            "beginDomainsSection 1\nbeginDomain D 0 3\naddDomainValue 123\naddDomainValue 4 .. 6\n"
            "addDomainValue 78\nendDomain\n");
}

// Messages that no document parsed by libxml2 can reach.
TEST(xcsp_reader, messages_beyond_libxml2) {
  {
    sax_driver d;
    d.text(" \n\t");
    expect_message([&] { d.text("x"); }, "Text found outside any tag");
  }
  {
    sax_driver d;
    d.start("instance");
    expect_message([&] { d.text(" \xA9"); }, "invalid UTF8 sequence");
    expect_message([&] { d.text(" \xC3"); }, "invalid UTF8 sequence");
    expect_message([&] { d.text(" \xE2\x82\x82\x82"); }, "invalid UTF8 sequence");
    expect_message([&] { d.text(" \xFF"); }, "invalid UTF8 character");
  }
  {
    sax_driver d;
    expect_message([&] { d.parser.defineSymbol("S", UNDEF); }, "Cannot register a symbol without a type");
    expect_message([&] { d.parser.defineSymbol("S", CSPDefinitionType(7)); },
                   "internal error: illegal CSPDefinitionType");
    EXPECT_EQ(d.parser.defineSymbol("S", VARIABLE), 0);
    EXPECT_EQ(d.parser.defineSymbol("T", VARIABLE), 1);
    EXPECT_EQ(d.parser.defineSymbol("U", DOMAIN), 0);
    EXPECT_EQ(d.parser.getSymbolId("T", UNDEF), 1);
    EXPECT_EQ(d.parser.getSymbolId("global:element", GLOBAL_CONSTRAINT), 6);
  }
}

//==== Exceptions, libxml2 and documents out of the ordinary =====================

class throwing_callback : public xcsp_recording_callback {
 public:
  explicit throwing_callback(std::function<void()> raise) : raise(std::move(raise)) {}
  void beginDomain(const std::string&, int, int) override { raise(); }

 private:
  std::function<void()> raise;
};

struct not_a_runtime_error : std::exception {
  const char* what() const noexcept override { return "unsupported here"; }
};

const std::string two_line_domain =
    "<instance>\n<domains nbDomains='1'>\n<domain name='D' nbValues='1'>1</domain></domains></instance>";

// The exception leaves parse() with its own type, after libxml2 has returned.
TEST(xcsp_reader, callback_exceptions_keep_their_type) {
  {
    throwing_callback callback([] { throw zelk::parse_error("bad domain"); });
    reader parser(callback);
    std::istringstream in(two_line_domain);
    testing::internal::CaptureStdout();
    EXPECT_THROW(parser.parse(in), zelk::parse_error);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Exception at line 3\n");
  }
  {
    throwing_callback callback([] { throw not_a_runtime_error(); });
    reader parser(callback);
    std::istringstream in(two_line_domain);
    testing::internal::CaptureStdout();
    EXPECT_THROW(parser.parse(in), not_a_runtime_error);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
  {
    throwing_callback callback([] { throw std::bad_alloc(); });
    reader parser(callback);
    std::istringstream in(two_line_domain);
    EXPECT_THROW(parser.parse(in), std::bad_alloc);
  }
}

TEST(xcsp_reader, line_of_the_error) {
  outcome result = read_document("<instance>\n<presentation/>\n\n<domains nbDomains='1'>\n"
                                 "<domain name='D' nbValues='1'>\n1 x\n</domain></domains></instance>");
  EXPECT_EQ(result.error, "invalid integer in <domain> element");
  EXPECT_EQ(result.out, "Exception at line 7\n");

  // Raised while an early chunk is parsed: the later ones are not read.
  std::string lines;
  for (int i = 0; i < 2000; ++i) lines += "<!-- filler -->\n";
  result = read_document("<instance>\n<domains nbDomains='1'><domain name='D' nbValues='1'>x</domain>\n" +
                         lines + "<domains/></instance>");
  EXPECT_EQ(result.error, "invalid integer in <domain> element");
  EXPECT_EQ(result.out, "Exception at line 2\n");
  EXPECT_EQ(result.events, "beginDomainsSection 1\nbeginDomain D 0 1\n");
}

TEST(xcsp_reader, empty_input_makes_no_call) {
  outcome result = read_document("");
  EXPECT_EQ(result.events, "");
  EXPECT_EQ(result.error, "");
}

// libxml2 reports a malformed document itself; the events stop where it stopped.
TEST(xcsp_reader, malformed_xml_ends_the_events) {
  outcome result = read_document("<instance><presentation name='a'/><domains nbDomains='1'></instance>");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.events, "beginInstance a\nbeginDomainsSection 1\n");
  EXPECT_NE(result.err, "");
}

// Declarations, entities, processing instructions and CDATA: libxml2's default
// handlers for them would take the reader for their parser context.
TEST(xcsp_reader, document_type_declarations) {
  outcome result = read_document(
      "<?xml version='1.0'?>\n"
      "<!DOCTYPE instance SYSTEM 'xcsp.dtd' [\n"
      "  <!ELEMENT instance ANY>\n"
      "  <!ATTLIST presentation name CDATA 'fixed' format CDATA #IMPLIED>\n"
      "  <!ENTITY values '1..3'>\n"
      "  <!ENTITY % pe 'x'>\n"
      "  <!NOTATION note SYSTEM 'note'>\n"
      "  <!ENTITY picture SYSTEM 'p.gif' NDATA note>\n"
      "]>\n"
      "<?solver hint?>\n"
      "<instance><presentation name='a&lt;b'/>"
      "<domains nbDomains='1'><domain name='D' nbValues='3'><![CDATA[1..3]]> &#52;</domain></domains>"
      "</instance>");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.events,
            "beginInstance a<b\nbeginDomainsSection 1\nbeginDomain D 0 3\naddDomainValue 1 .. 3\n"
            "addDomainValue 4\nendDomain\nendDomainsSection\nendInstance\n");
}

TEST(xcsp_reader, undeclared_entity) {
  outcome result = read_document("<!DOCTYPE instance [ <!ENTITY v '4'> ]><instance><domains nbDomains='1'>"
                                 "<domain name='D' nbValues='1'>&v;</domain></domains></instance>");
  EXPECT_EQ(result.events.find("addDomainValue 4"), std::string::npos);
}

//==== Benchmark documents =======================================================

TEST(xcsp_reader, benchmark_documents) {
  namespace fs = std::filesystem;
  const fs::path bench = fs::path(ZELK_SOURCE_DIR) / "../shared/bench";
  std::ifstream manifest(bench / "MANIFEST.tsv");
  if (!manifest) GTEST_SKIP() << "no benchmark manifest at " << bench;
  std::string line;
  int documents = 0;
  while (std::getline(manifest, line)) {
    std::istringstream fields(line);
    std::string path, format;
    if (!std::getline(fields, path, '\t') || !std::getline(fields, format, '\t') || format != "xcsp") continue;
    std::ifstream file(bench / path);
    ASSERT_TRUE(file) << path;
    xcsp_recording_callback callback;
    reader parser(callback);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(parser.parse(file)) << path;
    std::string out = testing::internal::GetCapturedStdout();
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out + err, "") << path;
    ASSERT_FALSE(callback.events.empty()) << path;
    EXPECT_EQ(callback.events.back(), "endInstance") << path;
    ++documents;
  }
  EXPECT_GT(documents, 0);
}

}  // namespace
